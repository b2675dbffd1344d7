// Uuencoded lines and the line that begins an item.
#include "mim/uu_line.h"

#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "support/decoding.h"

namespace {

// Of a line that ends where its memory ends, into memory that ends where it may be written to.
std::string decoded(std::string_view line) {
    const std::vector<char> in(line.begin(), line.end());
    std::vector<char> out(kUuRoom);
    const std::size_t count = mim_uu_decode_line({in.data(), in.size()}, out.data());
    return {out.data(), count};
}

struct Row {
    std::string_view line;
    std::string_view bytes;
    const char* why;
};
constexpr Row kRows[] = {
    {"", "", "nothing"},
    {" ", "", "a count of 0"},
    {"`", "", "a count of 0, written with a grave accent"},
    {"` junk", "", "with something behind"},
    {"#0V%T", "Cat", "three bytes"},
    {"#0V%T!", "Cat", "a checksum behind"},
    {"\"0V$`", "Ca", "two of three"},
    {"\"0V$ ", "Ca", "zero bits as a blank"},
    {"\"0V$", "Ca", "the blank is gone: zero bits"},
    {"#0V%", std::string_view("Ca@", 3), "a line that is cut off is filled with zero bits"},
    {"#", std::string_view("\0\0\0", 3), "nothing but a count"},
    {"%", std::string_view("\0\0\0\0\0", 5), "the same for five"},
    {"#pVeT", "Cat", "codes beyond 0x5F wrap round"},
};

TEST(UuLine, Rows) {
    for (const Row& row : kRows) EXPECT_EQ(decoded(row.line), row.bytes) << row.why;
}

TEST(UuLine, EveryCountAndLength) {
    std::mt19937 random(45);
    for (unsigned count = 0; count <= kUuMostBytes; ++count)
        for (std::size_t length = 0; length <= 100; ++length) {
            std::string line(1 + length, static_cast<char>(0x20 + count));
            for (std::size_t at = 1; at < line.size(); ++at) line[at] = static_cast<char>(random());
            ASSERT_EQ(decoded(line), decoding::plain_uu_line(line)) << count << ' ' << length;
            ASSERT_EQ(decoded(line), decoded(line.substr(0, kUuLongestLine))) << "what is beyond means nothing";
        }
    const std::string longest(kUuLongestLine, '_');
    EXPECT_EQ(decoded(longest), std::string(kUuMostBytes, '\xFF')) << "and all that is not beyond does";
    EXPECT_NE(decoded(longest.substr(0, kUuLongestLine - 1)), std::string(kUuMostBytes, '\xFF'));
}

TEST(UuLine, EveryCharacterAtEveryPlace) {
    std::string line = "M" + std::string(60, '5');
    for (std::size_t at = 0; at < line.size(); ++at) {
        const char kept = line[at];
        for (unsigned code = 0; code < 256; ++code) {
            line[at] = static_cast<char>(code);
            ASSERT_EQ(decoded(line), decoding::plain_uu_line(line)) << at << ' ' << code;
        }
        line[at] = kept;
    }
}

struct BeginRow {
    std::string_view line;
    bool begins;
    const char* why;
};
constexpr BeginRow kBeginRows[] = {
    {"begin 644 a.txt", true, "as it is written"},
    {"begin 0644 a.txt", true, "four digits"},
    {"begin 644", true, "no name"},
    {"begin 64", false, "two digits"},
    {"begin 684 a.txt", false, "no octal digit"},
    {"begin 64 a.txt", false, "a blank is no digit"},
    {"begin  644 a.txt", false, "two blanks"},
    {"begin\t644 a.txt", false, "a tab"},
    {"Begin 644 a.txt", false, "case counts"},
    {" begin 644 a.txt", false, "at the start only"},
    {"begin", false, "a word"},
    {"beginning 644", false, "another word"},
    {"", false, "nothing"},
};

TEST(UuLine, Begin) {
    for (const BeginRow& row : kBeginRows) EXPECT_EQ(mim_uu_is_begin(row.line), row.begins) << row.why;
}

}  // namespace
