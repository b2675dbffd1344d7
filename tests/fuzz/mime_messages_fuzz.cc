// MIME messages, in two ways.
//
// Raw: a message text that begins with MIME fields and goes on with anything. The session ends in an answer; what is
// queued is whole, a refusal leaves nothing; and how the input was cut on its way does not matter.
//
// Built: a tree of multiparts, encapsulated messages and leaves is written from the input, as a mailer would write it,
// with anything around the parts that may be there. Every leaf's octets are in exactly one item, in order, or the
// message was refused.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_source.h"
#include "session_room.h"

using namespace session_room;

namespace {

constexpr int kDeepest = 8;
constexpr std::size_t kLongestHeader = 200;
constexpr std::size_t kUsualLeaf = 100, kLongestLeaf = 20000;

std::string in_base64(std::string_view octets, std::size_t line_length, std::string_view eol) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    std::size_t in_line = 0;
    for (std::size_t at = 0; at < octets.size(); at += 3) {
        unsigned group = 0;
        for (std::size_t i = at; i < at + 3; ++i)
            group = group << 8 | (i < octets.size() ? static_cast<unsigned char>(octets[i]) : 0U);
        for (std::size_t i = 0; i < 4; ++i) {
            text += at + i <= octets.size() ? digits[group >> (18 - 6 * i) & 63] : '=';
            if (++in_line % line_length == 0) text += eol;
        }
    }
    return text.append(eol);
}

std::string in_quoted_printable(std::string_view octets, std::size_t line_length, std::string_view eol) {
    constexpr std::string_view hex = "0123456789ABCDEF";
    std::string text;
    std::size_t in_line = 0;
    for (const char c : octets) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = byte > 0x20 && byte < 0x7F && c != '=' && c != '-';
        text += plain ? std::string(1, c) : std::string{'=', hex[byte >> 4], hex[byte & 15]};
        if (++in_line % line_length == 0) text.append("=").append(eol);
    }
    return text.append(eol);
}

std::string in_uuencode(std::string_view octets, std::string_view eol) {
    const auto digit = [](unsigned value) { return static_cast<char>(value == 0 ? '`' : value + ' '); };
    std::string text = std::string("begin 644 x").append(eol);
    for (std::size_t at = 0; at < octets.size(); at += 45) {
        const std::string_view line = octets.substr(at, 45);
        text += digit(static_cast<unsigned>(line.size()));
        for (std::size_t i = 0; i < line.size(); i += 3) {
            unsigned group = 0;
            for (std::size_t j = i; j < i + 3; ++j)
                group = group << 8 | (j < line.size() ? static_cast<unsigned char>(line[j]) : 0U);
            for (const unsigned shift : {18U, 12U, 6U, 0U}) text += digit(group >> shift & 63);
        }
        text += eol;
    }
    return text.append("`").append(eol).append("end").append(eol);
}

class Builder {
public:
    explicit Builder(FuzzSource source) : source_(source) {}

    // The message text, dots stuffed.
    std::string build() {
        out_ = "MIME-Version: 1.0" + eol();
        entity(0, nullptr);
        return stuffed();
    }
    const std::vector<std::string>& leaves() const { return leaves_; }
    // Something that was to be ignored or kept would be a boundary line: then the message is another one.
    bool is_ambiguous() const { return ambiguous_; }

private:
    std::string eol() { return source_.choice(4) == 0 ? "\r\n" : "\n"; }
    std::string new_boundary() { return "=_" + std::to_string(++boundaries_) + std::string(source_.choice(80), '+'); }

    void entity(int depth, const std::string* marker) {
        const unsigned kind = depth < kDeepest && !source_.empty() ? source_.choice(8) : 7;
        if (kind < 3)
            multipart(depth, marker);
        else if (kind == 3)
            message(depth, marker);
        else
            leaf(marker);
    }

    void other_fields() {
        if (source_.choice(4) != 0) return;
        std::string text = source_.text(kLongestHeader);
        std::erase_if(text, [](char c) { return c == '\r' || c == '\n'; });
        out_ += "X-Field: " + text + eol();
    }

    void multipart(int depth, const std::string* marker) {
        constexpr std::string_view kinds[] = {"mixed", "alternative", "related", "parallel", "x-unknown"};
        const std::string boundary = new_boundary(), line = "--" + boundary;
        out_ += "Content-Type: multipart/" + std::string(kinds[source_.choice(5)]) + "; boundary=\"" + boundary + '"' +
                eol();
        other_fields();
        out_ += eol();
        ignored(line);
        const unsigned parts = source_.choice(4) + 1;
        for (unsigned part = 0; part < parts; ++part) {
            out_ += line + eol();
            entity(depth + 1, &line);
        }
        out_ += line + "--" + eol();
        ignored(marker != nullptr ? *marker : line);
    }

    // A preamble or an epilogue, which the line `stop` would end.
    void ignored(const std::string& stop) {
        if (source_.choice(3) != 0) return;
        const std::string text = source_.text(3000) + eol();
        if (holds_marker(text, stop)) ambiguous_ = true;
        out_ += text;
    }

    void message(int depth, const std::string* marker) {
        out_ += "Content-Type: message/rfc822" + eol();
        other_fields();
        out_ += eol();
        out_ += "Subject: inner" + eol() + "MIME-Version: 1.0" + eol();
        entity(depth + 1, marker);
    }

    void leaf(const std::string* marker) {
        constexpr std::string_view kinds[] = {"application/octet-stream", "image/png", "application/pdf; name=x"};
        out_ += "Content-Type: " + std::string(kinds[source_.choice(3)]) + eol();
        const unsigned encoding = source_.choice(5);
        constexpr std::string_view encodings[] = {"base64", "quoted-printable", "x-uuencode", "binary", "x-unknown"};
        out_ += "Content-Transfer-Encoding: " + std::string(encodings[encoding]) + eol();
        other_fields();
        out_ += eol();
        write_body(encoding, marker);
    }

    void write_body(unsigned encoding, const std::string* marker) {
        const std::size_t line_length = 1 + source_.choice(200);
        const std::string end = eol();
        std::string octets = source_.text(source_.choice(4) == 0 ? kLongestLeaf : kUsualLeaf);
        if (encoding == 0) out_ += in_base64(octets, line_length, end);
        if (encoding == 1) out_ += in_quoted_printable(octets, line_length, end);
        if (encoding == 1 && marker == nullptr) octets += end;  // the last line end is content: no boundary follows
        if (encoding == 2) out_ += in_uuencode(octets, end);
        if (encoding >= 3) identity(octets, end, marker);
        leaves_.push_back(octets);
    }

    void identity(std::string& octets, const std::string& end, const std::string* marker) {
        out_ += octets + end;
        if (marker == nullptr)
            octets += end;
        else
            while (octets.ends_with('\r'))
                octets.pop_back();  // they belong to the line end, as it does to the boundary
        if (marker != nullptr && holds_marker(octets + '\n', *marker)) ambiguous_ = true;
    }

    static bool holds_marker(std::string_view text, const std::string& marker) {
        return ("\n" + std::string(text)).find("\n" + marker) != std::string::npos;
    }

    std::string stuffed() const {
        std::string text;
        bool at_start = true;
        for (const char c : out_) {
            if (at_start && c == '.') text += '.';
            text += c;
            at_start = c == '\n';
        }
        return text;
    }

    FuzzSource source_;
    std::string out_;
    std::vector<std::string> leaves_;
    int boundaries_ = 0;
    bool ambiguous_ = false;
};

std::string dialogue_of(const std::string& text) {
    return "MAIL FROM:<s@x>\nRCPT TO:<r@x>\nDATA\n" + text + ".\nQUIT\n";
}

// Either taken and queued, or refused and gone.
void check_answer(const Outcome& outcome) {
    require(!outcome.replies.empty() && outcome.replies.back() == '\n');
    require(store_is_empty());
}

bool was_taken(const Outcome& outcome) { return !outcome.files.empty(); }

void raw(std::string_view bytes, std::size_t piece) {
    std::string text = "MIME-Version: 1.0\nContent-Type: ";
    text.append(bytes);
    const std::string dialogue = dialogue_of(text + '\n');
    const Outcome whole = run_whole(dialogue);
    check_answer(whole);
    require(whole == run_in_pieces(dialogue, piece + dialogue.size() / 128));
}

void built(std::string_view bytes, std::size_t piece) {
    Builder builder((FuzzSource(bytes)));
    const std::string dialogue = dialogue_of(builder.build());
    if (builder.is_ambiguous()) return;
    const Outcome outcome =
        piece % 4 == 0 ? run_in_pieces(dialogue, piece + dialogue.size() / 128) : run_whole(dialogue);
    check_answer(outcome);
    if (was_taken(outcome)) require(outcome.items == builder.leaves());
    require(was_taken(outcome));  // nothing in it is a reason to refuse it
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    make_home();
    if (size < 3) return 0;
    const std::string_view rest(reinterpret_cast<const char*>(data) + 2, size - 2);
    const std::size_t piece = 1 + data[1] % 61U;
    if (data[0] % 3 == 0)
        raw(rest, piece);
    else
        built(rest, piece);
    return 0;
}
