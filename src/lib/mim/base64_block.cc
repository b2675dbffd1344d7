// Base64 runs: see base64_block.h. With AVX2 thirty-two characters are turned at once: five range comparisons tell what
// to add to each character, and two multiply-adds join four values of six bits to three bytes.
#include "mim/base64_block.h"

#if defined(__x86_64__)
    #include <immintrin.h>
#endif

namespace {

constexpr std::array<std::uint8_t, 256> make_values() {
    constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::array<std::uint8_t, 256> values{};
    values.fill(kBase64Skip);
    for (std::size_t i = 0; i < alphabet.size(); ++i)
        values[static_cast<unsigned char>(alphabet[i])] = static_cast<std::uint8_t>(i);
    values['='] = kBase64Pad;
    return values;
}

#if defined(__x86_64__)

constexpr std::size_t kStep = 32;

// Where lo <= character <= hi, `offset`; zero elsewhere.
__attribute__((target("avx2"))) __m256i in_range(__m256i text, char lo, char hi, char offset) {
    const __m256i above = _mm256_cmpgt_epi8(text, _mm256_set1_epi8(static_cast<char>(lo - 1)));
    const __m256i below = _mm256_cmpgt_epi8(_mm256_set1_epi8(static_cast<char>(hi + 1)), text);
    return _mm256_and_si256(_mm256_and_si256(above, below), _mm256_set1_epi8(offset));
}

// Thirty-two characters into twenty-four bytes; writes thirty-two. Every class has an offset other than zero, so a
// zero marks a character of no class.
__attribute__((target("avx2"))) bool step_avx2(const char* in, char* out) {
    const __m256i text = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in));
    __m256i offset = in_range(text, 'A', 'Z', -65);
    offset = _mm256_or_si256(offset, in_range(text, 'a', 'z', -71));
    offset = _mm256_or_si256(offset, in_range(text, '0', '9', 4));
    offset = _mm256_or_si256(offset, in_range(text, '+', '+', 19));
    offset = _mm256_or_si256(offset, in_range(text, '/', '/', 16));
    const __m256i strange = _mm256_cmpeq_epi8(offset, _mm256_setzero_si256());
    if (_mm256_movemask_epi8(strange) != 0) return false;

    const __m256i values = _mm256_add_epi8(text, offset);
    const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));  // v0 * 64 + v1
    const __m256i quads = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));      // p0 * 4096 + p1
    // Three bytes of each little-endian quad, the highest first; the halves are then joined.
    const __m256i order = _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1,  //
                                           2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
    const __m256i packed =
        _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(quads, order), _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), packed);
    return true;
}

// The last step overlaps the one before it rather than read past the end.
__attribute__((target("avx2"))) bool run_avx2(std::string_view in, char* out) {
    std::size_t at = 0;
    for (; at + kStep <= in.size(); at += kStep)
        if (!step_avx2(in.data() + at, out + at / 4 * 3)) return false;
    if (at == in.size()) return true;
    const std::size_t last = in.size() - kStep;
    return step_avx2(in.data() + last, out + last / 4 * 3);
}

const bool has_avx2 = __builtin_cpu_supports("avx2");

#endif

}  // namespace

constinit const std::array<std::uint8_t, 256> kBase64Values = make_values();

bool mim_base64_run_by_table(std::string_view in, char* out) {
    unsigned bad = 0;
    for (std::size_t at = 0; at < in.size(); at += 4, out += 3) {
        const unsigned a = kBase64Values[static_cast<unsigned char>(in[at])];
        const unsigned b = kBase64Values[static_cast<unsigned char>(in[at + 1])];
        const unsigned c = kBase64Values[static_cast<unsigned char>(in[at + 2])];
        const unsigned d = kBase64Values[static_cast<unsigned char>(in[at + 3])];
        bad |= a | b | c | d;
        const unsigned group = a << 18 | b << 12 | c << 6 | d;
        out[0] = static_cast<char>(group >> 16);
        out[1] = static_cast<char>(group >> 8);
        out[2] = static_cast<char>(group);
    }
    return (bad & 0xC0) == 0;
}

bool mim_base64_run(std::string_view in, char* out) {
#if defined(__x86_64__)
    if (has_avx2 && in.size() >= kStep) return run_avx2(in, out);
#endif
    return mim_base64_run_by_table(in, out);
}
