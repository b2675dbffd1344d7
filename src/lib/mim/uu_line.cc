// Uuencoded lines: see uu_line.h. Large items are common, so a full line is decoded eight characters at a time, and
// with AVX2 thirty-two.
#include "mim/uu_line.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "mim/six_bits.h"

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

constexpr char kFullLineCount = ' ' + static_cast<char>(kUuFullLine);

// The length of the line at the start of `text`, its line end included, if it has the count and the length of a full
// one; else 0.
std::size_t full_line_length(std::string_view text) {
    constexpr std::size_t end = 1 + kFullLineCharacters;
    if (text.size() <= end || text.front() != kFullLineCount) return 0;
    if (text[end] == '\n') return end + 1;
    return text.size() > end + 1 && text[end] == '\r' && text[end + 1] == '\n' ? end + 2 : 0;
}

// Is a control character among eight? Without carries: of a byte that is none, the highest bit of itself or of the sum
// is set.
bool has_control(const char* in) {
    std::uint64_t word;
    std::memcpy(&word, in, sizeof word);
    const std::uint64_t beyond = ((word & 0x6060606060606060U) + 0x6060606060606060U) | word;
    return (~beyond & 0x8080808080808080U) != 0;
}

// The last group overlaps the one before it.
bool has_control_in_line(const char* in) {
    bool found = has_control(in + kFullLineCharacters - 8);
    for (std::size_t at = 0; at + 8 <= kFullLineCharacters; at += 8) found |= has_control(in + at);
    return found;
}

#if defined(__x86_64__)

// A full line's sixty characters, the last thirty-two of which overlap the first; false when a control character is
// among them.
__attribute__((target("avx2"))) bool decode_wide(const char* in, char* out) {
    constexpr std::size_t last = kFullLineCharacters - kWideStep;
    static_assert(last / 4 * 3 + kWideStep <= kUuFullLine + kUuLinesSlack);
    const __m256i head = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in));
    const __m256i tail = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + last));
    const __m256i least = _mm256_min_epu8(head, tail);
    const __m256i controls = _mm256_cmpeq_epi8(_mm256_min_epu8(least, _mm256_set1_epi8(0x1F)), least);
    if (_mm256_testz_si256(controls, controls) == 0) return false;
    const __m256i turned = _mm256_set1_epi8(0x20), bits = _mm256_set1_epi8(0x3F);  // as value_of() does
    mim_join_six_bits(_mm256_and_si256(_mm256_xor_si256(head, turned), bits), out);
    mim_join_six_bits(_mm256_and_si256(_mm256_xor_si256(tail, turned), bits), out + last / 4 * 3);
    return true;
}

__attribute__((target("avx2"))) mim_UuLines decode_lines_wide(std::string_view text, std::size_t most, char* out) {
    mim_UuLines done;
    while (done.lines < most) {
        const std::size_t length = full_line_length(text.substr(done.length));
        if (length == 0 || !decode_wide(text.data() + done.length + 1, out + done.lines * kUuFullLine)) break;
        done.length += length;
        ++done.lines;
    }
    return done;
}

#endif

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

mim_UuLines mim_uu_decode_full_lines_by_words(std::string_view text, std::size_t most, char* out) {
    mim_UuLines done;
    while (done.lines < most) {
        const std::size_t length = full_line_length(text.substr(done.length));
        const char* const characters = text.data() + done.length + 1;
        if (length == 0 || has_control_in_line(characters)) break;
        decode_full_line(characters, out + done.lines * kUuFullLine);
        done.length += length;
        ++done.lines;
    }
    return done;
}

mim_UuLines mim_uu_decode_full_lines(std::string_view text, std::size_t most, char* out) {
#if defined(__x86_64__)
    if (mim_has_avx2()) return decode_lines_wide(text, most, out);
#endif
    return mim_uu_decode_full_lines_by_words(text, most, out);
}

bool mim_uu_is_begin(std::string_view line) {
    constexpr std::string_view word = "begin ";
    constexpr std::size_t mode_digits = 3;
    if (!line.starts_with(word) || line.size() < word.size() + mode_digits) return false;
    return std::ranges::all_of(line.substr(word.size(), mode_digits), is_octal_digit);
}
