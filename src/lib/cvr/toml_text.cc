// TOML text as ASCII: see toml_text.h.
#include "cvr/toml_text.h"

#include "ccs/ccs.h"

namespace {

constexpr std::string_view kHex = "0123456789abcdef";
constexpr std::string_view kSignature = "\xEF\xBB\xBF";

// "^0^", "^1^" ...: the first that the text does not hold.
std::string unused_mark(std::string_view text) {
    for (unsigned number = 0;; ++number) {
        std::string mark = '^' + std::to_string(number) + '^';
        if (text.find(mark) == std::string_view::npos) return mark;
    }
}

std::string in_ascii(std::string_view text, std::string_view mark) {
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80)
            out += c;
        else
            out.append(mark).append({kHex[byte >> 4], kHex[byte & 15]});
    }
    return out;
}

}  // namespace

AsciiToml::AsciiToml(std::string_view utf8) {
    if (utf8.starts_with(kSignature)) utf8.remove_prefix(kSignature.size());
    if (!ccs_Is7BitAscii(utf8)) mark_ = unused_mark(utf8);
    text_ = in_ascii(utf8, mark_);
}

std::string AsciiToml::original(std::string_view found) const {
    std::string out;
    while (!found.empty()) {
        const std::size_t at = mark_.empty() ? found.npos : found.find(mark_);
        out += found.substr(0, at);
        if (at == found.npos) break;
        const std::size_t high = at + mark_.size();
        if (high + 2 > found.size()) break;  // cut by the parser, in a complaint
        out += static_cast<char>(kHex.find(found[high]) << 4 | kHex.find(found[high + 1]));
        found.remove_prefix(high + 2);
    }
    return out;
}
