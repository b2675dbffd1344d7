// Base64 runs: see base64_block.h. With AVX2 thirty-two characters are turned at once. A character is two nibbles, and
// an instruction looks up sixteen nibbles in a table of sixteen bytes: so two look-ups tell whether a character is of
// the alphabet, and a third what to add to it.
#include "mim/base64_block.h"

#include "mim/six_bits.h"

namespace {

constexpr std::uint8_t kLargestValue = 63;

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

using NibbleTable = std::array<std::uint8_t, 16>;

constexpr unsigned kFirstRow = 2, kLastRow = 7;  // high nibbles of the alphabet's characters: 0x2B ("+") to 0x7A ("z")
constexpr std::uint8_t kNoRow = 0x80;            // the bit of all other high nibbles
constexpr std::uint8_t row_bit(unsigned row) { return static_cast<std::uint8_t>(1U << (row - kFirstRow)); }
static_assert(row_bit(kLastRow) < kNoRow);

constexpr auto kValues = make_values();

// A bit for each high nibble that the alphabet has, and one for all that it does not have.
constexpr NibbleTable make_row_bits() {
    NibbleTable bits{};
    bits.fill(kNoRow);
    for (unsigned row = kFirstRow; row <= kLastRow; ++row) bits[row] = row_bit(row);
    return bits;
}

// For each low nibble the rows that have no character of the alphabet there. A character is strange when the bit of its
// high nibble is among them.
constexpr NibbleTable make_strange_rows() {
    NibbleTable rows{};
    rows.fill(kNoRow);
    for (unsigned row = kFirstRow; row <= kLastRow; ++row)
        for (unsigned low = 0; low < 16; ++low)
            if (kValues[row << 4 | low] > kLargestValue) rows[low] |= row_bit(row);
    return rows;
}

// What to add to a character of each row to get its value, modulo 256. Only "/" is at odds with its row, which it
// shares with "+": its high nibble is taken for one less, a row that has no characters of its own.
constexpr char kOddOne = '/';
constexpr NibbleTable make_offsets() {
    NibbleTable offsets{};
    for (const char c : std::string_view("+0AaPp")) {
        const auto code = static_cast<unsigned char>(c);
        offsets[code >> 4] = static_cast<std::uint8_t>(kValues[code] - code);
    }
    offsets[(kOddOne >> 4) - 1] = static_cast<std::uint8_t>(kValues[kOddOne] - kOddOne);
    return offsets;
}

alignas(16) constexpr NibbleTable kRowBits = make_row_bits();
alignas(16) constexpr NibbleTable kStrangeRows = make_strange_rows();
alignas(16) constexpr NibbleTable kOffsets = make_offsets();

// Of each byte of `nibbles` its row in the table; the highest bit of none of them is set.
__attribute__((target("avx2"))) __m256i look_up(const NibbleTable& table, __m256i nibbles) {
    const __m128i half = _mm_load_si128(reinterpret_cast<const __m128i*>(table.data()));
    return _mm256_shuffle_epi8(_mm256_broadcastsi128_si256(half), nibbles);
}

// Thirty-two characters into twenty-four bytes; writes thirty-two.
__attribute__((target("avx2"))) bool step_avx2(const char* in, char* out) {
    const __m256i text = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in));
    const __m256i low = _mm256_and_si256(text, _mm256_set1_epi8(0x0F));
    const __m256i high = _mm256_and_si256(_mm256_srli_epi16(text, 4), _mm256_set1_epi8(0x0F));
    if (_mm256_testz_si256(look_up(kRowBits, high), look_up(kStrangeRows, low)) == 0) return false;

    const __m256i odd = _mm256_cmpeq_epi8(text, _mm256_set1_epi8(kOddOne));  // -1 where it is, 0 elsewhere
    const __m256i offsets = look_up(kOffsets, _mm256_add_epi8(high, odd));
    mim_join_six_bits(_mm256_add_epi8(text, offsets), out);
    return true;
}

// The last step overlaps the one before it rather than read past the end.
__attribute__((target("avx2"))) bool run_avx2(std::string_view in, char* out) {
    std::size_t at = 0;
    for (; at + kWideStep <= in.size(); at += kWideStep)
        if (!step_avx2(in.data() + at, out + at / 4 * 3)) return false;
    if (at == in.size()) return true;
    const std::size_t last = in.size() - kWideStep;
    return step_avx2(in.data() + last, out + last / 4 * 3);
}

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
    if (mim_has_avx2() && in.size() >= kWideStep) return run_avx2(in, out);
#endif
    return mim_base64_run_by_table(in, out);
}
