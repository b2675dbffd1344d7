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

using DecodeLines = mim_UuLines (*)(std::string_view, std::size_t, char*);
constexpr DecodeLines kDecodeLines[] = {mim_uu_decode_full_lines, mim_uu_decode_full_lines_by_words};

// Of text that ends where its memory ends, into memory that ends where it may be written to.
std::string decoded_lines(DecodeLines decode, std::string_view text, std::size_t most, mim_UuLines& done) {
    const std::vector<char> in(text.begin(), text.end());
    std::vector<char> out(most * kUuFullLine + kUuLinesSlack);
    done = decode({in.data(), in.size()}, most, out.data());
    return {out.data(), done.lines * kUuFullLine};
}

std::string full_line(std::mt19937& random) {
    std::string line = "M";
    while (line.size() <= 60) line += static_cast<char>(0x20 + random() % (0x100 - 0x20));
    return line;
}

const std::string kFull = "M" + std::string(60, '5');

struct LinesRow {
    std::string text;
    std::size_t lines;
    const char* why;
};
const LinesRow kLinesRows[] = {
    {"", 0, "nothing"},
    {kFull, 0, "no line end"},
    {kFull + "\r", 0, "half a line end"},
    {kFull + "\n", 1, "LF"},
    {kFull + "\r\n", 1, "CR LF"},
    {kFull + "\r\r\n", 0, "two CRs"},
    {kFull + "\rx\n", 0, "a CR and a character"},
    {kFull + "x\n", 0, "a checksum"},
    {kFull.substr(1) + "\n", 0, "too short"},
    {"L" + kFull.substr(1) + "\n", 0, "another count"},
    {"m" + kFull.substr(1) + "\n", 0, "the same count, written with another character"},
    {kFull + "\n" + kFull + "\r\n" + kFull + "\n", 3, "line ends mixed"},
    {kFull + "\n" + kFull + "\n#86)C\n" + kFull + "\n", 2, "up to the line that is not full"},
    {kFull + "\n\n" + kFull + "\n", 1, "up to an empty line"},
    {kFull + "\n" + kFull, 1, "a line that is still to come"},
};

TEST(UuLines, Rows) {
    for (const DecodeLines decode : kDecodeLines)
        for (const LinesRow& row : kLinesRows) {
            mim_UuLines done;
            std::string bytes;
            for (std::size_t i = 0; i < row.lines; ++i) bytes += decoding::plain_uu_line(kFull);
            EXPECT_EQ(decoded_lines(decode, row.text, 9, done), bytes) << row.why;
            EXPECT_EQ(done.lines, row.lines) << row.why;
            if (row.lines == 1) {
                EXPECT_EQ(done.length, row.text.find('\n') + 1) << row.why;
            }
        }
}

TEST(UuLines, AtMostSoMany) {
    std::mt19937 random(46);
    std::string text;
    for (int line = 0; line < 200; ++line) text += full_line(random) + (line % 3 == 0 ? "\r\n" : "\n");
    for (const DecodeLines decode : kDecodeLines)
        for (std::size_t most = 0; most <= 210; ++most) {
            std::string bytes;
            std::size_t end = 0;
            for (std::size_t line = 0; line < most && end < text.size(); ++line) {
                bytes += decoding::plain_uu_line(std::string_view(text).substr(end, 61));
                end = text.find('\n', end) + 1;
            }
            mim_UuLines done;
            ASSERT_EQ(decoded_lines(decode, text, most, done), bytes) << most;
            ASSERT_EQ(done.length, end) << most;
        }
}

TEST(UuLines, EveryCharacterAtEveryPlace) {
    std::mt19937 random(47);
    std::string text = full_line(random) + "\n";
    for (std::size_t at = 1; at <= 60; ++at) {
        const char kept = text[at];
        for (unsigned code = 0; code < 256; ++code) {
            text[at] = static_cast<char>(code);
            for (const DecodeLines decode : kDecodeLines) {
                mim_UuLines done;
                const std::string bytes = decoded_lines(decode, text, 1, done);
                ASSERT_EQ(done.lines, code < 0x20 ? 0U : 1U) << at << ' ' << code;
                ASSERT_EQ(done.length, done.lines * text.size()) << at << ' ' << code;
                if (code >= 0x20) {
                    ASSERT_EQ(bytes, decoding::plain_uu_line(std::string_view(text).substr(0, 61)))
                        << at << ' ' << code;
                }
            }
        }
        text[at] = kept;
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
