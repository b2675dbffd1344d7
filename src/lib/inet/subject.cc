// Encoding of subjects: see subject.h.
//
// A word has room for 75 characters less "=?", the label, "?B?" and "?=". Text is cut into characters and each word
// takes as many as fit. Where bytes mean nothing by themselves (sets with shifts) the text is cut as UTF-8 and each
// piece is converted for itself, so that it begins and ends unshifted.
#include "inet/subject.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "ccs/ccs.h"
#include "cvc/cvc.h"
#include "dstring/base64.h"

namespace {

constexpr std::size_t kWordLimit = 75;                      // RFC 2047, section 2
constexpr std::size_t kLabelLimit = 40;                     // characters; leaves room for text in every word
constexpr std::string_view kUnknownLabel = "UNKNOWN-8BIT";  // RFC 1428

constexpr bool is_printable(char c) { return (c >= 0x20 && c <= 0x7E) || c == '\t'; }

// May the byte stand for itself in Q-encoded text (RFC 2047, section 4.2)? A subject is unstructured text, so all
// printable characters but these may.
constexpr bool is_literal(char c) { return c > 0x20 && c <= 0x7E && c != '=' && c != '?' && c != '_'; }

bool stays_plain(std::string_view text, const ccs_Descriptor* set) {
    if (set == nullptr || !set->ascii) return false;
    return std::all_of(text.begin(), text.end(), is_printable) && text.find("=?") == std::string_view::npos;
}

// A label that cannot end the word early: what is not a token character of RFC 2047 goes.
std::string label_of(std::string_view charset, const ccs_Descriptor* set) {
    if (set != nullptr) return std::string(set->mime);
    std::string label;
    for (const char c : charset)
        if (c > 0x20 && c < 0x7F && std::string_view("()<>@,;:\"/[]?.=*").find(c) == std::string_view::npos) label += c;
    return label.empty() ? std::string(kUnknownLabel) : label.substr(0, kLabelLimit);
}

std::size_t encoded_size(std::string_view bytes, bool base64) {
    if (base64) return (bytes.size() + 2) / 3 * 4;
    std::size_t size = 0;
    for (const char c : bytes) size += is_literal(c) || c == ' ' ? 1 : 3;
    return size;
}

void append_quoted(std::string& out, std::string_view bytes) {
    constexpr std::string_view kHex = "0123456789ABCDEF";
    for (const char c : bytes) {
        if (is_literal(c)) {
            out += c;
        } else if (c == ' ') {
            out += '_';
        } else {
            const auto byte = static_cast<unsigned char>(c);
            out += {'=', kHex[byte >> 4], kHex[byte & 15]};
        }
    }
}

// The text in characters, and what the first `count` of them are as bytes of the set.
class Characters {
public:
    Characters(std::string_view text, std::string_view charset, const ccs_Descriptor* set)
        : whole_(text), rest_(text), charset_(charset), shape_(set == nullptr ? ccs_Shape::single : set->shape) {
        if (shape_ != ccs_Shape::shifted) return;
        reshift_ = cvc_ConvertString(text, charset, kUtf8Set, utf8_) == kConverted;
        shape_ = reshift_ ? ccs_Shape::utf8 : ccs_Shape::single;
        if (reshift_) rest_ = utf8_;
    }

    bool empty() const { return rest_.empty(); }

    // Takes as many characters as fit into `room` of encoded text, at least one. Text that fits whole is taken as it
    // is.
    std::string take(std::size_t room, bool base64) {
        if (std::exchange(first_, false) && encoded_size(whole_, base64) <= room) {
            rest_ = {};
            return std::string(whole_);
        }
        return reshift_ ? take_reshifted(room, base64) : std::string(take_straight(room, base64));
    }

private:
    std::string_view take_straight(std::size_t room, bool base64) {
        std::size_t end = 0, used = 0;
        while (end < rest_.size()) {
            const std::string_view next = rest_.substr(end, ccs_character_length(shape_, rest_.substr(end)));
            const std::size_t more =
                base64 ? encoded_size(rest_.substr(0, end + next.size()), true) : used + encoded_size(next, false);
            if (more > room && end != 0) break;
            used = more;
            end += next.size();
        }
        return split_off(end);
    }

    // A character takes at least one place in any method, so no more than `room` of them need trying.
    std::string take_reshifted(std::size_t room, bool base64) {
        std::vector<std::size_t> ends;  // after 1, 2, ... characters
        for (std::size_t end = 0; end < rest_.size() && ends.size() < room;)
            ends.push_back(end += ccs_character_length(shape_, rest_.substr(end)));
        const auto fits = [&](std::size_t end) { return encoded_size(shifted(rest_.substr(0, end)), base64) <= room; };
        const auto beyond = std::partition_point(ends.begin() + 1, ends.end(), fits);
        return shifted(split_off(*(beyond - 1)));
    }

    std::string shifted(std::string_view utf8) const {
        std::string bytes;
        cvc_ConvertString(utf8, kUtf8Set, charset_, bytes);
        return bytes;
    }

    std::string_view split_off(std::size_t count) {
        const std::string_view taken = rest_.substr(0, count);
        rest_.remove_prefix(count);
        return taken;
    }

    std::string_view whole_;
    std::string utf8_;
    std::string_view rest_;
    std::string_view charset_;
    ccs_Shape shape_;
    bool reshift_ = false;
    bool first_ = true;
};

std::string in_words(std::string_view text, std::string_view charset, bool base64) {
    const ccs_Descriptor* set = ccs_GetCSDescriptor2(charset);
    const std::string opening = "=?" + label_of(charset, set) + (base64 ? "?B?" : "?Q?");
    const std::size_t room = kWordLimit - opening.size() - 2;
    Characters characters(text, charset, set);
    std::string out;
    while (!characters.empty()) {
        if (!out.empty()) out += ' ';
        out += opening;
        const std::string bytes = characters.take(room, base64);
        base64 ? dstring_append_base64(out, bytes) : append_quoted(out, bytes);
        out += "?=";
    }
    return out;
}

}  // namespace

std::string inet_Subject_toRfc2047_dstring(std::string_view text, std::string_view charset, char method) {
    if (stays_plain(text, ccs_GetCSDescriptor2(charset))) return std::string(text);
    if (method == kBase64Method) return in_words(text, charset, true);
    std::string quoted = in_words(text, charset, false);
    if (method == kQuotedMethod) return quoted;
    std::string base64 = in_words(text, charset, true);
    return base64.size() < quoted.size() ? base64 : quoted;
}
