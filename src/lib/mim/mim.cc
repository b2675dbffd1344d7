// Small rules of header text.
#include "mim/mim.h"

#include <optional>

namespace {

constexpr std::string_view kBlanks = " \t\r\n\v\f";

std::optional<int> hex_digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return std::nullopt;
}

// The byte that "+HH" at the start of `text` stands for.
std::optional<char> hex_byte(std::string_view text) {
    if (text.size() < 3 || text[0] != '+') return std::nullopt;
    const auto high = hex_digit(text[1]), low = hex_digit(text[2]);
    if (!high || !low) return std::nullopt;
    return static_cast<char>(*high * 16 + *low);
}

}  // namespace

std::string_view mim_trim_trailing_space(std::string_view text) {
    const std::size_t last = text.find_last_not_of(kBlanks);
    return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

std::string_view mim_SpaceTrimming(std::string_view text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    return first == std::string_view::npos ? text.substr(0, 0) : mim_trim_trailing_space(text.substr(first));
}

std::string_view mim_RemoveQuotes(std::string_view text) {
    if (text.size() < 2 || text.front() != '"' || text.back() != '"') return text;
    return text.substr(1, text.size() - 2);
}

std::string mim_DecodeXtextString(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const std::optional<char> byte = hex_byte(text);
        const char c = byte.value_or(text.front());
        if (c == '\0') break;
        out.push_back(c);
        text.remove_prefix(byte ? 3 : 1);
    }
    return out;
}
