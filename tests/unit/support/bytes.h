// Bytes written by hand: hex digits, blanks for the reader's eye, and texts between single quotes.
//
//   bytes("00000013 00002BC0 'IPM' 00")
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

inline std::string bytes(std::string_view notation) {
    const auto digit = [](char c) {
        const std::size_t value = std::string_view("0123456789ABCDEF").find(c);
        if (value == std::string_view::npos) throw std::invalid_argument("bytes(): not a hex digit");
        return value;
    };
    std::string out;
    for (std::size_t i = 0; i < notation.size(); ++i) {
        if (notation[i] == ' ') continue;
        if (notation[i] == '\'') {
            const std::size_t end = notation.find('\'', i + 1);
            out.append(notation.substr(i + 1, end - i - 1));
            i = end;
            continue;
        }
        out += static_cast<char>(digit(notation[i]) << 4 | digit(notation.at(i + 1)));
        ++i;
    }
    return out;
}

// The same bytes as hex digits, in groups of four: what a failed comparison prints.
inline std::string hex(std::string_view data) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string out;
    for (std::size_t i = 0; i < data.size(); ++i) {
        if (i != 0 && i % 4 == 0) out += ' ';
        out += digits[static_cast<unsigned char>(data[i]) >> 4];
        out += digits[static_cast<unsigned char>(data[i]) & 15];
    }
    return out;
}
