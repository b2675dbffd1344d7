// Decoding of uuencoded items. Large items are common, so a full line is decoded eight characters at a time, from the
// reader's buffer into the item's.
#include "ux_in/uudecode.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "er/er.h"

namespace {

constexpr std::size_t kFullLine = 45;  // bytes of a line that is not the last
constexpr std::size_t kFullLineCharacters = 60;
constexpr std::size_t kMostCharacters = 88;  // of a line with the largest count, 63, in whole groups of eight
constexpr std::size_t kMostBytes =
    kMostCharacters / 4 * 3 + 2;  // written for it, two of them by the last group's excess
constexpr std::size_t kLoggedLineLimit = 1024;
constexpr char kZeroBits = ' ';

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
    decode_four(in + kFullLineCharacters - 4, out + kFullLine - 3);
}

// A line of any count, and of any length: what it lacks is zero bits, what it has beyond its count is ignored.
void decode_line(std::string_view characters, std::size_t count, char* out) {
    char padded[kMostCharacters];
    std::memset(padded, kZeroBits, sizeof padded);
    std::memcpy(padded, characters.data(), std::min(characters.size(), sizeof padded));
    for (std::size_t done = 0, at = 0; done < count; done += 6, at += 8) decode_eight(padded + at, out + done);
}

// Appends a line's bytes to the item; returns how many they are. A line without any character has none.
std::size_t append_line(std::string_view line, im_Item& item) {
    if (line.empty()) return 0;
    const std::size_t count = value_of(line.front());
    const std::string_view characters = line.substr(1);
    char* const out = item.room(kMostBytes);
    if (count == kFullLine && characters.size() >= kFullLineCharacters)
        decode_full_line(characters.data(), out);
    else
        decode_line(characters, count, out);
    item.advance(count);
    return count;
}

// The closing line of an item. Read as data it would be five bytes.
bool closes_item(const ux_MailText& line) { return line.at_start && line.whole && line.text == "end"; }

}  // namespace

std::optional<std::string> ux_InIsUuencodeMarker(std::string_view pTextLine) {
    const er_Trace trace("ux_InIsUuencodeMarker");
    constexpr std::string_view word = "begin ";
    constexpr std::size_t mode_digits = 3;
    if (!pTextLine.starts_with(word)) return std::nullopt;
    const std::string_view mode = pTextLine.substr(word.size());
    if (mode.size() < mode_digits || !std::ranges::all_of(mode.substr(0, mode_digits), is_octal_digit))
        return std::nullopt;

    er_LogMsg(11, kGatewayGroup, 1519, pTextLine.substr(0, kLoggedLineLimit));
    const std::size_t blank = mode.find(' ');  // whatever stands before it, a longer mode say, is skipped
    return std::string(blank == mode.npos ? std::string_view() : mode.substr(blank + 1, kUuencodedNameLimit));
}

im_Item ux_InUudecodeItem(ux_LineReader& pEncodedMsg, bool& pEndOfMsg) {
    const er_Trace trace("ux_InUudecodeItem");
    im_Item item = im_CrNewDataItem();
    for (;;) {
        const ux_MailText line = pEncodedMsg.text(kUuencodedLineLimit);
        if (line.is_end) {
            pEndOfMsg = true;
            return item;
        }
        if (closes_item(line)) {
            pEncodedMsg.unread();
            return item;
        }
        if (append_line(line.unstuffed(), item) != kFullLine) return item;
    }
}
