// TOML text in ASCII: see toml.h.
#include "os/toml.h"

#include <algorithm>

#include "er/er.h"

namespace {

constexpr std::string_view kHex = "0123456789abcdef";
constexpr std::string_view kSignature = "\xEF\xBB\xBF";

bool is_ascii(char c) { return static_cast<unsigned char>(c) < 0x80; }

// "^0^", "^1^" ...: the first that the text does not hold.
std::string unused_mark(std::string_view text) {
    for (unsigned number = 0;; ++number) {
        std::string mark = '^' + std::to_string(number) + '^';
        if (text.find(mark) == std::string_view::npos) return mark;
    }
}

}  // namespace

os_AsciiToml::os_AsciiToml(std::string_view utf8) {
    if (utf8.starts_with(kSignature)) utf8.remove_prefix(kSignature.size());
    if (!std::all_of(utf8.begin(), utf8.end(), is_ascii)) mark_ = unused_mark(utf8);
    unsigned line = 1;
    while (!utf8.empty()) {
        const std::size_t length = er_utf8_length(utf8);
        if (length == 0 && bad_line_ == 0) bad_line_ = line;
        if (utf8.front() == '\n') ++line;
        for (const char c : utf8.substr(0, length == 0 ? 1 : length)) {
            if (is_ascii(c)) {
                text_ += c;
                continue;
            }
            const auto byte = static_cast<unsigned char>(c);
            text_.append(mark_).append({kHex[byte >> 4], kHex[byte & 15]});
        }
        utf8.remove_prefix(length == 0 ? 1 : length);
    }
}

std::string os_AsciiToml::original(std::string_view found) const {
    std::string out;
    while (!found.empty()) {
        const std::size_t at = mark_.empty() ? found.npos : found.find(mark_);
        out += found.substr(0, at);
        if (at == found.npos) break;
        found.remove_prefix(at + mark_.size());
        if (found.size() < 2) break;  // cut by the parser, in a complaint
        out += static_cast<char>(kHex.find(found[0]) << 4 | kHex.find(found[1]));
        found.remove_prefix(2);
    }
    return out;
}
