// Characters that carry six bits each (base64, uuencode), thirty-two at a time: what the wide instructions of AVX2 do
// for both. They are used where the processor has them, which is asked when the program runs.
#pragma once

#if defined(__x86_64__)

    #include <immintrin.h>

    #include <cstddef>

inline constexpr std::size_t kWideStep = 32;  // characters, or bytes, of one instruction

inline bool mim_has_avx2() { return __builtin_cpu_supports("avx2") != 0; }

// Joins thirty-two values of six bits to twenty-four bytes at `out`; writes thirty-two.
__attribute__((target("avx2"))) inline void mim_join_six_bits(__m256i values, char* out) {
    const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));  // v0 * 64 + v1
    const __m256i quads = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));      // p0 * 4096 + p1
    // Three bytes of each little-endian quad, the highest first; the halves are then joined.
    const __m256i order = _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1,  //
                                           2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
    const __m256i packed =
        _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(quads, order), _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), packed);
}

#endif
