// Content transfer decodings: see decode.h.
#include "mim/decode.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "dstring/ascii.h"
#include "mim/base64_block.h"
#include "mim/uu_line.h"

namespace {

constexpr std::size_t kLongestLine = 1000;  // base64 lines up to this length go through the fast path

constexpr bool is_blank(char c) { return c == ' ' || c == '\t'; }

// Where decoded bytes go. In a text part CR LF becomes LF, also when the two come apart.
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
    // Everything is in the item afterwards; what follows does not join a CR before it.
    void release() {
        if (held_return_) out_.write('\r');
        held_return_ = false;
    }
    void cut(std::uint64_t size) { out_.truncate(size); }

private:
    im_Item& out_;
    bool text_;
    bool held_return_ = false;
};

// A line end that has been read but may still belong to a boundary.
class LineEnd {
public:
    void read(const mim_LinePiece& line) { returns_ = line.returns, waits_ = true; }
    void write_to(Sink& sink) {
        if (!waits_) return;
        waits_ = false;
        if (!sink.text())
            for (; returns_ > 0; --returns_) sink.item().write('\r');
        sink.put("\n");
    }
    void drop() { waits_ = false; }

private:
    std::size_t returns_ = 0;
    bool waits_ = false;
};

class Identity : public mim_Decoder {
public:
    Identity(bool text, im_Item& out) : sink_(out, text) {}

    // As it arrived: a CR that is text is not joined with anything.
    void piece(const mim_LinePiece& line) override {
        end_.write_to(sink_);
        sink_.item().write(line.text);
        if (line.whole) end_.read(line);
    }
    void finish(bool at_boundary) override {
        if (!at_boundary) end_.write_to(sink_);
        end_.drop();
    }
    void restart() {
        end_.drop();
        sink_.cut(0);
    }

private:
    Sink sink_;
    LineEnd end_;
};

class Base64 : public mim_Decoder {
public:
    Base64(bool text, im_Item& out) : sink_(out, text) {}

    void piece(const mim_LinePiece& line) override {
        std::array<char, 1024> bytes;
        std::size_t count = 0;
        for (const char c : line.text) {
            const std::uint8_t value = kBase64Values[static_cast<unsigned char>(c)];
            if (value == kBase64Skip) continue;
            if (value == kBase64Pad) {
                count += end_group(bytes.data() + count);
            } else {
                bits_ = bits_ << 6 | value;
                if (++have_ == 4) count += end_group(bytes.data() + count);
            }
            if (count + 3 > bytes.size()) flush(bytes.data(), count);
        }
        flush(bytes.data(), count);
    }

    std::size_t lines(std::string_view block) override;

    void finish(bool) override {
        std::array<char, 3> bytes;
        sink_.put({bytes.data(), end_group(bytes.data())});
        sink_.release();
    }

private:
    // The octets of the characters that there are: four make three, three two, two one, one none.
    std::size_t end_group(char* out) {
        const std::size_t octets = have_ == 0 ? 0 : have_ - 1;
        const unsigned group = bits_ << (6 * (4 - have_));
        for (std::size_t i = 0; i < octets; ++i) out[i] = static_cast<char>(group >> (16 - 8 * i));
        have_ = 0;
        bits_ = 0;
        return octets;
    }
    void flush(const char* bytes, std::size_t& count) {
        sink_.put({bytes, count});
        count = 0;
    }

    Sink sink_;
    unsigned bits_ = 0;
    unsigned have_ = 0;  // characters of the group in hand
};

// Mailers write lines of one length: the first tells where the others end, so that none has to be searched.
std::size_t Base64::lines(std::string_view block) {
    if (have_ != 0) return 0;
    const std::size_t stride = std::min(block.find('\n'), block.size()) + 1;
    if (stride > block.size() || stride > kLongestLine) return 0;
    std::size_t length = stride - 1;
    while (length > 0 && block[length - 1] == '\r') --length;
    if (length == 0 || length % 4 != 0) return 0;
    const std::string_view line_end = block.substr(length, stride - length);

    std::array<char, kLongestLine> text_bytes;
    std::size_t taken = 0;
    while (taken + stride <= block.size() && block.substr(taken + length, line_end.size()) == line_end) {
        char* const out = sink_.text() ? text_bytes.data() : sink_.item().room(length + kBase64Slack);
        if (!mim_base64_run(block.substr(taken, length), out)) break;
        if (sink_.text())
            sink_.put({out, length / 4 * 3});
        else
            sink_.item().advance(length / 4 * 3);
        taken += stride;
    }
    return taken;
}

std::optional<unsigned> hex_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;  // not allowed, but written
    return std::nullopt;
}

class QuotedPrintable : public mim_Decoder {
public:
    QuotedPrintable(bool text, im_Item& out) : sink_(out, text) {}

    void piece(const mim_LinePiece& line) override {
        end_.write_to(sink_);
        std::string_view text = line.text;
        std::string joined;
        if (!cut_escape_.empty()) {
            joined = std::exchange(cut_escape_, {});
            joined.append(text);
            text = joined;
        }
        decode(text, line.whole);
        if (line.whole) end_line(line);
    }
    void finish(bool at_boundary) override {
        literal(cut_escape_);
        if (!at_boundary) end_.write_to(sink_);
        end_.drop();
        sink_.release();
    }

private:
    void decode(std::string_view text, bool whole) {
        while (!text.empty()) {
            const std::size_t at = std::min(text.find('='), text.size());
            literal(text.substr(0, at));
            text.remove_prefix(at);
            if (!text.empty()) text.remove_prefix(escape(text, whole));
        }
    }
    std::size_t escape(std::string_view text, bool whole);
    void literal(std::string_view run);
    void end_line(const mim_LinePiece& line);

    Sink sink_;
    LineEnd end_;
    std::string cut_escape_;  // "=" or "=X" at the end of a piece
    std::optional<std::uint64_t>
        loose_from_;     // where the line's last blanks begin in the item; they go when the line ends
    bool soft_ = false;  // "=" stands before those blanks: the line goes on
};

// text begins with "=". Returns how much of it was used.
std::size_t QuotedPrintable::escape(std::string_view text, bool whole) {
    const auto high = text.size() > 1 ? hex_value(text[1]) : std::nullopt;
    const auto low = text.size() > 2 ? hex_value(text[2]) : std::nullopt;
    if (high && low) {
        const char byte = static_cast<char>(*high << 4 | *low);
        sink_.put({&byte, 1});
        loose_from_.reset();
        soft_ = false;
        return 3;
    }
    if (!whole && (text.size() == 1 || (text.size() == 2 && high))) {
        cut_escape_ = text;
        return text.size();
    }
    sink_.release();
    loose_from_ = sink_.item().size();
    soft_ = true;
    sink_.put("=");
    return 1;
}

// Blanks are written, and taken back when the line ends with them: no line is too long for that.
void QuotedPrintable::literal(std::string_view run) {
    if (run.empty()) return;
    const std::size_t last = run.find_last_not_of(" \t");
    const std::size_t solid = last == std::string_view::npos ? 0 : last + 1;
    if (solid > 0) {
        sink_.put(run.substr(0, solid));
        loose_from_.reset();
        soft_ = false;
    }
    if (solid == run.size()) return;
    if (!loose_from_) {
        sink_.release();
        loose_from_ = sink_.item().size();
    }
    sink_.put(run.substr(solid));
}

void QuotedPrintable::end_line(const mim_LinePiece& line) {
    if (loose_from_) sink_.cut(*loose_from_);
    if (!soft_) end_.read(line);
    loose_from_.reset();
    soft_ = false;
}

class Uuencode : public mim_Decoder {
public:
    Uuencode(bool text, im_Item& out) : sink_(out, text), before_(text, out) {}

    void piece(const mim_LinePiece& line) override {
        if (state_ == State::before) return search(line);
        if (state_ != State::inside || !line.at_start) return;  // what is beyond a piece is beyond any count
        if (line.whole && line.text == "end") {
            state_ = State::after;
            return;
        }
        std::array<char, kUuRoom> bytes;
        sink_.put({bytes.data(), mim_uu_decode_line(line.text, bytes.data())});
    }
    void finish(bool at_boundary) override {
        if (state_ == State::before) return before_.finish(at_boundary);
        sink_.release();
    }

private:
    enum class State { before, inside, after };

    void search(const mim_LinePiece& line) {
        if (!line.at_start || !mim_uu_is_begin(line.text)) return before_.piece(line);
        before_.restart();
        state_ = State::inside;
    }

    Sink sink_;
    Identity before_;  // what there is if no "begin" comes
    State state_ = State::before;
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

// The field without its comments (RFC 822, section 3.4.3: they nest) and without blanks.
std::string without_comments(std::string_view field) {
    std::string word;
    std::size_t depth = 0;
    for (const char c : field) {
        if (c == '(') ++depth;
        if (depth == 0 && !is_blank(c) && c != '\r' && c != '\n') word += c;
        if (c == ')' && depth > 0) --depth;
    }
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
