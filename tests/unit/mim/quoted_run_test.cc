// Quoted-printable runs: escapes, what only looks like one, and CR LF that come together.
#include "mim/quoted_run.h"

#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "support/decoding.h"

namespace {

// Into memory that ends where it may be written to.
std::string decoded(std::string_view in, bool joins = false, std::string_view before = {}) {
    std::vector<char> out(before.begin(), before.end());
    out.resize(before.size() + in.size());
    char* const at = out.data() + before.size();
    return {out.data(), mim_quoted_run(in, out.data(), at, joins)};
}

struct Row {
    std::string_view in;
    std::string_view out;
    const char* why;
};
constexpr Row kRows[] = {
    {"", "", "nothing"},
    {"a", "a", "a character"},
    {"plain text of some length", "plain text of some length", "no escape"},
    {"=41", "A", "an escape"},
    {"=4a=4A", "JJ", "digits in any case"},
    {"=00=FF", std::string_view("\0\xFF", 2), "the least and the greatest byte"},
    {"=41=42=43=44", "ABCD", "escapes in a row"},
    {"1234567=41", "1234567A", "an escape at a word's end"},
    {"12345678=41", "12345678A", "at a word's start"},
    {"123456=419", "123456A9", "across two words"},
    {"=", "=", "a sign alone"},
    {"=4", "=4", "half an escape"},
    {"=4=41", "=4A", "half of one, then one"},
    {"==41", "=A", "a sign, then an escape"},
    {"===", "===", "signs"},
    {"=4G=G4=gg", "=4G=G4=gg", "no digits"},
    {"= 41=\t41", "= 41=\t41", "blanks are no digits"},
    {"=3D41", "=41", "a sign that was decoded begins nothing"},
    {"caf\xC3\xA9=C3=A9", "caf\xC3\xA9\xC3\xA9", "8-bit characters stay"},
    {std::string_view("a\0=41", 5), std::string_view("a\0A", 3), "a NUL is a character"},
};

TEST(QuotedRun, Rows) {
    for (const Row& row : kRows) {
        EXPECT_EQ(decoded(row.in), row.out) << row.why;
        EXPECT_EQ(decoded(row.in, true), row.out) << row.why;
    }
}

constexpr Row kJoinedRows[] = {
    {"=0D=0A", "\n", "CR LF"},
    {"a=0D=0Ab", "a\nb", "in the middle"},
    {"=0D=0D=0A", "\r\n", "the first CR is alone"},
    {"=0D=0A=0A", "\n\n", "a LF joins one CR"},
    {"=0Dx=0A", "\rx\n", "they are apart"},
    {"=0D", "\r", "a CR alone"},
    {"\r=0A", "\n", "a CR that stands there"},
    {"=0D\n", "\r\n", "a LF that stands there is none that was decoded"},
};

TEST(QuotedRun, Joining) {
    for (const Row& row : kJoinedRows) EXPECT_EQ(decoded(row.in, true), row.out) << row.why;
    EXPECT_EQ(decoded("=0D=0A"), "\r\n");
    EXPECT_EQ(decoded("=0A", true, "\r"), "\n") << "with a byte before";
    EXPECT_EQ(decoded("=0A", true, "x"), "x\n");
    EXPECT_EQ(decoded("=0A", false, "\r"), "\r\n");
    EXPECT_EQ(decoded("", true, "\r"), "\r");
}

TEST(QuotedRun, AnEscapeAtEveryPlaceOfEveryLength) {
    for (std::size_t length = 3; length <= 80; ++length)
        for (std::size_t at = 0; at + 3 <= length; ++at) {
            std::string text(length, 'x');
            for (std::size_t i = 0; i < length; ++i) text[i] = static_cast<char>('A' + i % 26);
            std::string expected = text;
            text.replace(at, 3, "=E9");
            expected.replace(at, 3, "\xE9");
            ASSERT_EQ(decoded(text), expected) << at;
            text.replace(at, 3, "=Z9");
            ASSERT_EQ(decoded(text), text) << at;
        }
}

TEST(QuotedRun, LikeAPlainReading) {
    std::mt19937 random(2045);
    constexpr std::string_view kParts[] = {"=", "=4", "=41", "=0D", "=0A", "=zz", "a", "bcdefgh", "\r", " ", "A", "0"};
    for (int round = 0; round < 20000; ++round) {
        std::string in;
        for (std::size_t parts = random() % 30; parts > 0; --parts) in += kParts[random() % std::size(kParts)];
        in += '.';  // no end of line to be judged
        const decoding::Job job{mim_TransferEncoding::quoted_printable};
        ASSERT_EQ(decoded(in), decoding::plain_quoted(job, in)) << in;
        ASSERT_EQ(decoded(in, true), decoding::joined_line_ends(decoding::plain_quoted(job, in))) << in;
    }
}

}  // namespace
