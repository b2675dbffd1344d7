// Base64 (RFC 4648, section 4): encoding.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Appends `bytes`, padded, without line ends.
inline void dstring_append_base64(std::string& out, std::string_view bytes) {
    constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const std::string_view group = bytes.substr(at, 3);
        unsigned bits = 0;
        for (std::size_t index = 0; index < 3; ++index)
            bits = bits << 8 | (index < group.size() ? static_cast<unsigned char>(group[index]) : 0U);
        for (std::size_t digit = 0; digit < 4; ++digit)
            out += digit <= group.size() ? kDigits[bits >> (18 - 6 * digit) & 63] : '=';
    }
}
