// One line of uuencoded data: a count character, then characters of six bits each (code - 0x20, modulo 64).
#pragma once

#include <cstddef>
#include <string_view>

inline constexpr std::size_t kUuFullLine = 45;                           // bytes of a line that is not the last
inline constexpr std::size_t kUuMostBytes = 63;                          // the largest count
inline constexpr std::size_t kUuLongestLine = 1 + kUuMostBytes / 3 * 4;  // what is beyond it means nothing
// What mim_uu_decode_line may write to: the bytes, and the excess of the last group of eight characters.
inline constexpr std::size_t kUuRoom = 68;

// Decodes a line without its line end into `out` (kUuRoom bytes) and returns how many bytes it stands for. What the
// line lacks is zero bits, what it has beyond its count is ignored; a line without any character stands for none.
std::size_t mim_uu_decode_line(std::string_view line, char* out);

// Many lines at once: those at the start of `text` that are full and end in LF or CR LF, at most `most` of them, up to
// the first of any other look. Their bytes go to `out`, and up to kUuLinesSlack more bytes are written to. A full line
// is "M" and sixty characters, none of which is a control character.
struct mim_UuLines {
    std::size_t lines = 0;
    std::size_t length = 0;  // of them in `text`
};
inline constexpr std::size_t kUuLinesSlack = 8;
mim_UuLines mim_uu_decode_full_lines(std::string_view text, std::size_t most, char* out);
// The same without the wide instructions: for processors that lack them, and for comparison.
mim_UuLines mim_uu_decode_full_lines_by_words(std::string_view text, std::size_t most, char* out);

// "begin <mode> <name>": does the line open an item? Mode: three octal digits, or more characters up to a blank.
bool mim_uu_is_begin(std::string_view line);
