// Content transfer decodings: see decode.h.
#include "mim/decode.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "dstring/ascii.h"
#include "mim/base64_block.h"
#include "mim/quoted_run.h"
#include "mim/uu_line.h"

namespace {

constexpr std::size_t kLongestLine = 1000;  // of a line that is taken from a block, its line end included

constexpr bool is_blank(char c) { return c == ' ' || c == '\t'; }

std::string_view without_last_blanks(std::string_view text) {
    while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
    return text;
}

// The lines at the start of a block that any decoder may take.
class OrdinaryLines {
public:
    explicit OrdinaryLines(std::string_view block) : block_(block) {}

    std::optional<mim_LinePiece> next() {
        const std::string_view ahead = block_.substr(taken_, kLongestLine);
        const std::size_t end = ahead.find('\n');
        if (end == std::string_view::npos || ahead.front() == '-' || ahead.front() == '.') return std::nullopt;
        if (holds_nul(taken_ + end)) return std::nullopt;
        std::string_view text = ahead.substr(0, end);
        while (text.ends_with('\r')) text.remove_suffix(1);
        taken_ += end + 1;
        return mim_LinePiece{text, true, true, end - text.size()};
    }
    std::size_t taken() const { return taken_; }

private:
    static constexpr std::size_t kWindow = 1024;

    // Is there a NUL before `end`, in what has not been looked at? It is looked for in many lines at a time, but not in
    // all of the block, of which few may be taken.
    bool holds_nul(std::size_t end) {
        while (clean_ < end) {
            const std::string_view window = block_.substr(clean_, kWindow);
            const std::size_t nul = window.find('\0');
            if (nul != std::string_view::npos && clean_ + nul < end) return true;
            clean_ += std::min(nul, window.size());
        }
        return false;
    }

    std::string_view block_;
    std::size_t taken_ = 0;
    std::size_t clean_ = 0;  // so many bytes of the block hold no NUL
};

template <class Decoder>
std::size_t take_ordinary_lines(Decoder& decoder, std::string_view block) {
    OrdinaryLines lines(block);
    while (const auto line = lines.next()) decoder.piece(*line);
    return lines.taken();
}

// Where decoded bytes go whose lines are not the body's. In a text part CR LF becomes LF, also when the two come apart.
class Sink {
public:
    Sink(im_Item& out, bool text) : out_(out), text_(text) {}
    bool text() const { return text_; }
    im_Item& item() { return out_; }

    void put(std::string_view bytes) {
        if (!text_) return out_.write(bytes);
        while (!bytes.empty()) {
            if (held_return_ && bytes.front() != '\n') release();
            held_return_ = false;
            const std::size_t at = std::min(bytes.find('\r'), bytes.size());
            out_.write(bytes.substr(0, at));
            if (at == bytes.size()) return;
            held_return_ = true;
            bytes.remove_prefix(at + 1);
        }
    }
    // Nothing follows any more.
    void release() {
        if (held_return_) out_.write('\r');
        held_return_ = false;
    }

private:
    im_Item& out_;
    bool text_;
    bool held_return_ = false;
};

// A line end that has been read but may still belong to a boundary.
class LineEnd {
public:
    void read(const mim_LinePiece& line) { returns_ = line.returns, waits_ = true; }
    bool waits() const { return waits_; }
    void write_to(im_Item& out, bool text) {
        if (!waits_) return;
        waits_ = false;
        for (; returns_ > 0 && !text; --returns_) out.write('\r');
        out.write('\n');
    }
    void drop() { waits_ = false; }

private:
    std::size_t returns_ = 0;
    bool waits_ = false;
};

// As it arrived: a CR that is text is not joined with anything.
class Identity final : public mim_Decoder {
public:
    Identity(bool text, im_Item& out) : out_(out), text_(text), start_(out.size()) {}

    void piece(const mim_LinePiece& line) override {
        if (line.text.empty() && !line.whole) return;
        end_.write_to(out_, text_);
        out_.write(line.text);
        if (line.whole) end_.read(line);
    }
    std::size_t lines(std::string_view block) override { return take_ordinary_lines(*this, block); }
    void finish(bool at_boundary) override {
        if (!at_boundary) end_.write_to(out_, text_);
        end_.drop();
    }
    void restart() {
        end_.drop();
        out_.truncate(start_);
    }

private:
    im_Item& out_;
    bool text_;
    std::uint64_t start_;
    LineEnd end_;
};

class Base64 final : public mim_Decoder {
public:
    Base64(bool text, im_Item& out) : sink_(out, text) {}

    void piece(const mim_LinePiece& line) override;
    std::size_t lines(std::string_view block) override;
    void finish(bool) override {
        end_group();
        flush();
        sink_.release();
    }

private:
    static constexpr std::size_t kRun = 996;  // characters that are tried at once, at most
    static_assert(kRun % 4 == 0 && kRun <= kLongestLine);

    // Whole groups, nothing else among them; false: nothing was decoded.
    bool decode_run(std::string_view run);
    void decode_character(char c) {
        const std::uint8_t value = kBase64Values[static_cast<unsigned char>(c)];
        if (value == kBase64Skip) return;
        if (value == kBase64Pad) return end_group();
        bits_ = bits_ << 6 | value;
        if (++have_ == 4) end_group();
    }
    // The octets of the characters that there are: four make three, three two, two one, one none.
    void end_group() {
        const unsigned group = bits_ << (6 * (4 - have_));
        for (unsigned octet = 0; octet + 1 < have_; ++octet)
            few_[few_used_++] = static_cast<char>(group >> (16 - 8 * octet));
        have_ = 0;
        bits_ = 0;
        if (few_used_ + 3 > few_.size()) flush();
    }
    void flush() {
        sink_.put({few_.data(), few_used_});
        few_used_ = 0;
    }

    Sink sink_;
    unsigned bits_ = 0;
    unsigned have_ = 0;           // characters of the group in hand
    std::array<char, 1024> few_;  // decoded one by one, not in the sink yet; empty between calls
    std::size_t few_used_ = 0;
};

bool Base64::decode_run(std::string_view run) {
    const std::size_t octets = run.size() / 4 * 3;
    if (sink_.text()) {
        std::array<char, kRun + kBase64Slack> bytes;
        if (!mim_base64_run(run, bytes.data())) return false;
        sink_.put({bytes.data(), octets});
        return true;
    }
    if (!mim_base64_run(run, sink_.item().room(octets + kBase64Slack))) return false;
    sink_.item().advance(octets);
    return true;
}

// Whole groups are decoded at once where nothing is among them; the rest character by character.
void Base64::piece(const mim_LinePiece& line) {
    std::string_view text = without_last_blanks(line.text);
    while (!text.empty()) {
        const std::size_t run = have_ == 0 ? std::min(text.size() / 4 * 4, kRun) : 0;
        if (run != 0 && decode_run(text.substr(0, run))) {
            text.remove_prefix(run);
            continue;
        }
        // To the end of a group; a run that failed is not tried again.
        std::size_t count = 0;
        do decode_character(text[count++]);
        while (count < text.size() && (have_ != 0 || count < run));
        flush();
        text.remove_prefix(count);
    }
}

// Mailers write lines of one length: the first tells where the others end, so that none has to be searched.
std::size_t Base64::lines(std::string_view block) {
    if (have_ != 0) return 0;
    const std::size_t stride = block.substr(0, kRun).find('\n') + 1;
    if (stride == 0) return 0;
    std::size_t length = stride - 1;
    while (length > 0 && block[length - 1] == '\r') --length;
    if (length == 0 || length % 4 != 0) return 0;
    const std::string_view line_end = block.substr(length, stride - length);

    std::size_t taken = 0;
    while (taken + stride <= block.size() && block.substr(taken + length, line_end.size()) == line_end &&
           decode_run(block.substr(taken, length)))
        taken += stride;
    return taken;
}

// What a line ends with is known when it has ended: its blanks go, and with a "=" before them the line goes on. Until
// then they are in the item, from where they are taken back: so no line is too long.
class QuotedPrintable final : public mim_Decoder {
public:
    QuotedPrintable(bool text, im_Item& out) : out_(out), text_(text) {}

    void piece(const mim_LinePiece& line) override;
    std::size_t lines(std::string_view block) override { return take_ordinary_lines(*this, block); }
    void finish(bool at_boundary) override {
        put(cut_escape_);
        if (!at_boundary) write_line_end();
        end_.drop();
    }

private:
    // What the item ends with: to return to.
    struct Mark {
        std::uint64_t size;
        char last;
    };
    struct Loose {
        Mark before;
        bool soft;  // they begin with "="
    };

    void decode(std::string_view run);
    void put(std::string_view bytes) {
        out_.write(bytes);
        if (!bytes.empty()) last_ = bytes.back();
    }
    void return_to(const Mark& mark) {
        out_.truncate(mark.size);
        last_ = mark.last;
    }
    void write_line_end() {
        if (!end_.waits()) return;
        if (text_ && last_ == '\r') out_.truncate(out_.size() - 1);  // encoded before a line end: one CR LF with it
        end_.write_to(out_, text_);
        last_ = '\n';
    }

    im_Item& out_;
    bool text_;
    char last_ = 0;  // byte of the item
    LineEnd end_;
    std::string cut_escape_;      // "=" or "=X" at the end of a piece
    std::optional<Loose> loose_;  // what goes if the line ends here
};

// "=" or "=X" at the end of `text`, which a next piece may complete.
std::size_t cut_escape_at_end(std::string_view text) {
    const std::string_view last = text.substr(text.size() - std::min<std::size_t>(text.size(), 2));
    const std::size_t mark = last.rfind('=');
    return mark == std::string_view::npos ? 0 : last.size() - mark;
}

void QuotedPrintable::piece(const mim_LinePiece& line) {
    if (line.text.empty() && !line.whole) return;
    write_line_end();
    std::string_view text = line.text;
    std::string joined;
    if (!cut_escape_.empty()) {
        joined = cut_escape_.append(text);
        text = joined;
        cut_escape_.clear();
    }
    if (!line.whole) {
        const std::size_t cut = cut_escape_at_end(text);
        cut_escape_ = text.substr(text.size() - cut);
        text.remove_suffix(cut);
    }

    std::string_view solid = without_last_blanks(text);
    const bool soft = solid.ends_with('=');
    if (soft) solid.remove_suffix(1);
    if (!solid.empty() || soft) loose_.reset();
    decode(solid);
    if (solid.size() < text.size() && !loose_) loose_ = Loose{{out_.size(), last_}, soft};
    if (!line.whole) return put(text.substr(solid.size()));
    const bool goes_on = loose_ && loose_->soft;
    if (loose_) return_to(loose_->before);
    loose_.reset();
    if (!goes_on) end_.read(line);
}

void QuotedPrintable::decode(std::string_view run) {
    if (run.empty()) return;
    const bool joins_last = text_ && last_ == '\r';  // it may be joined with the first byte of the run
    if (joins_last) out_.truncate(out_.size() - 1);
    char* const begin = out_.room(run.size() + 1);
    char* at = begin;
    if (joins_last) *at++ = '\r';
    at = mim_quoted_run(run, begin, at, text_);
    out_.advance(static_cast<std::size_t>(at - begin));
    last_ = at[-1];
}

class Uuencode final : public mim_Decoder {
public:
    Uuencode(bool text, im_Item& out) : sink_(out, text), before_(text, out) {}

    void piece(const mim_LinePiece& line) override {
        if (state_ == State::before) before_.piece(line);
        if (line.whole && line_.empty()) return judge(line.text);
        line_.append(line.text.substr(0, kUuLongestLine - line_.size()));
        if (!line.whole) return;
        judge(line_);
        line_.clear();
    }
    std::size_t lines(std::string_view block) override { return take_ordinary_lines(*this, block); }
    void finish(bool at_boundary) override {
        if (!line_.empty()) judge(line_);  // the last line has no end
        if (state_ == State::before) return before_.finish(at_boundary);
        sink_.release();
    }

private:
    enum class State { before, inside, after };

    // A whole line, or as much of it as can mean something.
    void judge(std::string_view line) {
        if (state_ == State::inside && line == "end") {
            state_ = State::after;
        } else if (state_ == State::inside) {
            std::array<char, kUuRoom> bytes;
            sink_.put({bytes.data(), mim_uu_decode_line(line, bytes.data())});
        } else if (state_ == State::before && mim_uu_is_begin(line)) {
            before_.restart();
            state_ = State::inside;
        }
    }

    Sink sink_;
    Identity before_;  // what there is if no "begin" comes
    State state_ = State::before;
    std::string line_;  // the start of a line that comes in pieces
};

struct EncodingRow {
    std::string_view name;
    mim_TransferEncoding encoding;
};
constexpr auto kEncodings = std::to_array<EncodingRow>({
    {"7bit", mim_TransferEncoding::identity},
    {"8bit", mim_TransferEncoding::identity},
    {"binary", mim_TransferEncoding::identity},
    {"base64", mim_TransferEncoding::base64},
    {"quoted-printable", mim_TransferEncoding::quoted_printable},
    {"x-uuencode", mim_TransferEncoding::uuencode},
    {"uuencode", mim_TransferEncoding::uuencode},
    {"x-uue", mim_TransferEncoding::uuencode},
});

// The field without its comments (RFC 822, section 3.4.3: they nest; a backslash takes the meaning of what follows)
// and without the blanks around what is left.
std::string without_comments(std::string_view field) {
    std::string word;
    std::size_t depth = 0;
    for (std::size_t at = 0; at < field.size(); ++at) {
        const char c = field[at];
        if (c == '(') ++depth;
        if (depth == 0) word += c;
        if (depth > 0 && c == '\\') ++at;
        if (c == ')' && depth > 0 && --depth == 0) word += ' ';
    }
    constexpr std::string_view blanks = " \t\r\n";
    word.erase(word.find_last_not_of(blanks) + 1);
    word.erase(0, word.find_first_not_of(blanks));
    return word;
}

}  // namespace

mim_TransferEncoding mim_transfer_encoding(std::string_view field) {
    const std::string word = without_comments(field);
    for (const EncodingRow& row : kEncodings)
        if (dstring_equal_ignoring_case(word, row.name)) return row.encoding;
    return mim_TransferEncoding::identity;
}

std::unique_ptr<mim_Decoder> mim_make_decoder(mim_TransferEncoding encoding, bool text, im_Item& out) {
    switch (encoding) {
        case mim_TransferEncoding::base64: return std::make_unique<Base64>(text, out);
        case mim_TransferEncoding::quoted_printable: return std::make_unique<QuotedPrintable>(text, out);
        case mim_TransferEncoding::uuencode: return std::make_unique<Uuencode>(text, out);
        case mim_TransferEncoding::identity: break;
    }
    return std::make_unique<Identity>(text, out);
}
