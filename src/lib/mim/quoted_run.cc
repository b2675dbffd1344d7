// Quoted-printable runs: see quoted_run.h. Text between escapes is copied thirty-two bytes at a time, eight where there
// is no instruction for that, looking for the next "=" in all of them at once; escapes often follow each other
// directly, so each looks for the next before the search goes on.
#include "mim/quoted_run.h"

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
    #include <emmintrin.h>
#endif

namespace {

constexpr std::uint8_t kNoDigit = 0xF0;  // bits that no value has

constexpr std::array<std::uint8_t, 256> make_digits() {
    std::array<std::uint8_t, 256> digits{};
    digits.fill(kNoDigit);
    for (unsigned value = 0; value < 10; ++value) digits['0' + value] = static_cast<std::uint8_t>(value);
    for (unsigned value = 10; value < 16; ++value)  // small letters are not allowed, but written
        digits['A' + value - 10] = digits['a' + value - 10] = static_cast<std::uint8_t>(value);
    return digits;
}
constexpr auto kDigits = make_digits();

constexpr std::size_t kWord = sizeof(std::uint64_t);

// Copies a word and tells how many of its bytes stand before its first "="; kWord: there is none.
std::size_t copy_word(const char* in, char* out) {
    std::uint64_t word;
    std::memcpy(&word, in, kWord);
    std::memcpy(out, &word, kWord);
    if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap64(word);
    constexpr std::uint64_t ones = 0x0101010101010101U;
    const std::uint64_t zeros = word ^ (ones * '=');
    const std::uint64_t marks = (zeros - ones) & ~zeros & (ones << 7);  // exact up to the first zero byte
    return static_cast<std::size_t>(std::countr_zero(marks)) / 8;
}

#if defined(__SSE2__)
constexpr std::size_t kBlock = 2 * sizeof(__m128i);

// Copies sixteen bytes and tells which are "=": a bit each, the first lowest.
std::uint32_t copy_half(const char* in, char* out) {
    const __m128i text = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), text);
    return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(text, _mm_set1_epi8('='))));
}

// The same with a block. Accents are about as far from each other as a block is long: with shorter ones it is anybody's
// guess, and the processor's, whether there is one.
std::size_t copy_block(const char* in, char* out) {
    const std::uint32_t low = copy_half(in, out), high = copy_half(in + kBlock / 2, out + kBlock / 2);
    return static_cast<std::size_t>(std::countr_zero(high << kBlock / 2 | low));
}
#else
constexpr std::size_t kBlock = kWord;
std::size_t copy_block(const char* in, char* out) { return copy_word(in, out); }
#endif

// Copies text in pieces of one size up to the next "=", or until less than a piece is left. True: a "=" was found.
template <std::size_t kSize>
bool copy_plain(const char*& at, const char* end, char*& out) {
    while (static_cast<std::size_t>(end - at) >= kSize) {
        const std::size_t plain = kSize == kWord ? copy_word(at, out) : copy_block(at, out);
        at += plain;
        out += plain;
        if (plain < kSize) return true;
    }
    return false;
}

// A byte's value from the two characters after "=", or more than 255.
unsigned escaped_byte(const char* digits) {
    const unsigned high = kDigits[static_cast<unsigned char>(digits[0])];
    const unsigned low = kDigits[static_cast<unsigned char>(digits[1])];
    return ((high | low) & kNoDigit) != 0 ? 256U : high << 4 | low;
}

}  // namespace

char* mim_quoted_run(std::string_view in, const char* before, char* out, bool joins) {
    const char* at = in.data();
    const char* const end = at + in.size();
    while (at != end) {
        if (!copy_plain<kBlock>(at, end, out)) copy_plain<kWord>(at, end, out);
        while (end - at > 2 && *at == '=') {
            const unsigned byte = escaped_byte(at + 1);
            if (byte > 255) break;
            if (joins && byte == '\n' && out != before && out[-1] == '\r') --out;
            *out++ = static_cast<char>(byte);
            at += 3;
        }
        // A "=" that is no escape, or one of the last characters.
        if (at != end && (*at == '=' || static_cast<std::size_t>(end - at) < kWord)) *out++ = *at++;
    }
    return out;
}
