// UTF-8 (RFC 3629) as the middle of every conversion: checked when it comes from outside, walked afterwards.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// How far `text` is valid, and whether what follows is the beginning of a character that may be completed.
struct Utf8Prefix {
    std::size_t valid = 0;
    bool cut = false;
};
Utf8Prefix check_utf8(std::string_view text);

// The character at the start of valid text.
struct Utf8Character {
    char32_t code = 0;
    std::size_t length = 1;
};
Utf8Character first_character(std::string_view valid_text);

void append_utf8(std::string& out, char32_t code);
