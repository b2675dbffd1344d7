// Uuencoded lines: see uu_line.h. Large items are common, so a full line is decoded eight characters at a time.
#include "mim/uu_line.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace {

constexpr std::size_t kFullLineCharacters = 60;
constexpr std::size_t kMostCharacters = 88;  // of a line with the largest count, in whole groups of eight
constexpr char kZeroBits = ' ';
static_assert(kMostCharacters / 8 * 6 + 2 <= kUuRoom, "the last group of eight writes two bytes too many");

constexpr bool is_octal_digit(char c) { return c >= '0' && c <= '7'; }

constexpr std::uint64_t big_endian(std::uint64_t word) {
    return std::endian::native == std::endian::little ? __builtin_bswap64(word) : word;
}

// The value of a character is (code - 0x20) AND 63: six low bits with the highest turned over, so that no borrow can
// travel between the bytes of a word.
constexpr unsigned value_of(char c) { return (static_cast<unsigned char>(c) ^ 0x20U) & 0x3FU; }

// Decodes eight characters into six bytes, and writes eight. Neighbours are joined in three steps: pairs to 12 bits,
// fours to 24, all to 48.
void decode_eight(const char* in, char* out) {
    std::uint64_t word;
    std::memcpy(&word, in, sizeof word);
    word = (big_endian(word) ^ 0x2020202020202020U) & 0x3F3F3F3F3F3F3F3FU;
    word = (word & 0x003F003F003F003FU) | ((word & 0x3F003F003F003F00U) >> 2);
    word = (word & 0x00000FFF00000FFFU) | ((word & 0x0FFF00000FFF0000U) >> 4);
    word = (word & 0x0000000000FFFFFFU) | ((word & 0x00FFFFFF00000000U) >> 8);
    word = big_endian(word << 16);
    std::memcpy(out, &word, sizeof word);
}

void decode_four(const char* in, char* out) {
    const unsigned group = value_of(in[0]) << 18 | value_of(in[1]) << 12 | value_of(in[2]) << 6 | value_of(in[3]);
    out[0] = static_cast<char>(group >> 16);
    out[1] = static_cast<char>(group >> 8);
    out[2] = static_cast<char>(group);
}

void decode_full_line(const char* in, char* out) {
    for (std::size_t group = 0; group < kFullLineCharacters / 8; ++group) decode_eight(in + group * 8, out + group * 6);
    decode_four(in + kFullLineCharacters - 4, out + kUuFullLine - 3);
}

// A line of any count, and of any length.
void decode_line(std::string_view characters, std::size_t count, char* out) {
    char padded[kMostCharacters];
    std::memset(padded, kZeroBits, sizeof padded);
    std::memcpy(padded, characters.data(), std::min(characters.size(), sizeof padded));
    for (std::size_t done = 0, at = 0; done < count; done += 6, at += 8) decode_eight(padded + at, out + done);
}

}  // namespace

std::size_t mim_uu_decode_line(std::string_view line, char* out) {
    if (line.empty()) return 0;
    const std::size_t count = value_of(line.front());
    const std::string_view characters = line.substr(1);
    if (count == kUuFullLine && characters.size() >= kFullLineCharacters)
        decode_full_line(characters.data(), out);
    else
        decode_line(characters, count, out);
    return count;
}

bool mim_uu_is_begin(std::string_view line) {
    constexpr std::string_view word = "begin ";
    constexpr std::size_t mode_digits = 3;
    if (!line.starts_with(word) || line.size() < word.size() + mode_digits) return false;
    return std::ranges::all_of(line.substr(word.size(), mode_digits), is_octal_digit);
}
