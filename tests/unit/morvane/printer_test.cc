// What reaches a terminal: nothing from mail may drive it.
#include "morvane/printer.h"

#include <string>

#include <gtest/gtest.h>

namespace morvane {
namespace {

constexpr Screen kPlain{false, false}, kUtf8{true, false}, kColour{true, true};

TEST(Harmless, TurnsWhatATerminalActsOnIntoText) {
    struct Row {
        std::string_view text, expected, why;
    };
    const Row kRows[] = {
        {"plain text", "plain text", "ASCII stays"},
        {"\x1B[31mred\x1B[0m", "\\x1B[31mred\\x1B[0m", "escape sequences"},
        {"a\rb\nc\bd", "a\\x0Db\\x0Ac\\x08d", "a line that would be written over"},
        {std::string_view("a\0b", 3), "a\\x00b", "NUL"},
        {"\x7F", "\\x7F", "DEL"},
        {"a\tb", "a b", "a tab is a blank"},
        {"Gr\xC3\xBC\xC3\x9F", "Gr\xC3\xBC\xC3\x9F", "UTF-8 stays"},
        {"\xFF\xC3", "\\xFF\\xC3", "bytes that are no UTF-8"},
        {"\xC3(", "\\xC3(", "a sequence that breaks off"},
        {"\xE2\x80\xAE"
         "evil",
         "\\u{202E}evil", "right-to-left override"},
        {"\xE2\x81\xA6", "\\u{2066}", "isolate"},
        {"\xE2\x80\xA8", "\\u{2028}", "line separator"},
        {"\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80", "four bytes"},
        {"", "", "nothing"},
    };
    for (const Row& row : kRows) EXPECT_EQ(harmless(row.text, kUtf8), row.expected) << row.why;
    const std::string c1 = harmless(
        "\xC2\x9B"
        "31m",
        kUtf8);
    EXPECT_EQ(c1.find("\xC2\x9B"), std::string::npos) << "U+009B begins an escape sequence: " << c1;
}

TEST(Harmless, AsciiScreensGetAsciiAlone) {
    EXPECT_EQ(harmless("Gr\xC3\xBC\xC3\x9F \xF0\x9F\x98\x80", kPlain), "Gr?? ?");
    EXPECT_EQ(harmless("\xFF", kPlain), "\\xFF");
}

TEST(Harmless, EveryByteAndEveryPairOfBytes) {
    for (int a = 0; a < 256; ++a) {
        for (int b = 0; b < 256; ++b) {
            const std::string text{static_cast<char>(a), static_cast<char>(b)};
            for (const char c : harmless(text, kPlain)) ASSERT_TRUE(c >= ' ' && c <= '~') << a << ' ' << b;
            for (const char c : harmless(text, kUtf8))
                ASSERT_TRUE(static_cast<unsigned char>(c) >= ' ' && c != 0x7F) << a << ' ' << b;
        }
    }
}

TEST(Shorten, CutsBetweenCharacters) {
    EXPECT_EQ(shorten("abc", 3, kUtf8), "abc");
    EXPECT_EQ(shorten("abcd", 3, kUtf8), "ab\xE2\x80\xA6");
    EXPECT_EQ(shorten("\xC3\xA4\xC3\xB6\xC3\xBC", 3, kUtf8), "\xC3\xA4\xC3\xB6\xC3\xBC");
    EXPECT_EQ(shorten("\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F", 3, kUtf8), "\xC3\xA4\xC3\xB6\xE2\x80\xA6");
    EXPECT_EQ(shorten("abcd", 3, kPlain), "ab...");
    EXPECT_EQ(width_of("\xC3\xA4"
                       "b\xF0\x9F\x98\x80"),
              3U);
}

TEST(Sizes, AreReadable) {
    struct Row {
        std::uint64_t bytes;
        std::string_view expected;
    };
    const Row kRows[] = {
        {0, "0 bytes"},           {1, "1 byte"},        {1023, "1,023 bytes"},
        {1024, "1.0 KiB"},        {1536, "1.5 KiB"},    {1048524, "1023.9 KiB"},
        {1048525, "1.0 MiB"},     {1048576, "1.0 MiB"}, {std::uint64_t{5} << 30, "5.0 GiB"},
        {UINT64_MAX, "16.0 EiB"},
    };
    for (const Row& row : kRows) EXPECT_EQ(human_size(row.bytes), row.expected);
    EXPECT_EQ(with_commas(999), "999");
    EXPECT_EQ(with_commas(1000), "1,000");
    EXPECT_EQ(with_commas(1234567), "1,234,567");
    EXPECT_EQ(counted(1, "file", "files"), "1 file");
    EXPECT_EQ(counted(0, "file", "files"), "0 files");
}

TEST(Paint, ColoursOnlyWhereTheScreenHasThem) {
    EXPECT_EQ(kUtf8.paint(Ink::damage, "x"), "x");
    EXPECT_EQ(kColour.paint(Ink::damage, "x"), "\x1B[1;31mx\x1B[0m");
    EXPECT_EQ(kColour.paint(Ink::damage, ""), "");
}

TEST(PrinterTest, CapturesInOrder) {
    std::string text;
    {
        Printer out(text);
        out << "a" << 'b' << std::uint64_t{12};
        EXPECT_EQ(text, "") << "blocks, not single pieces";
        out.flush();
        EXPECT_EQ(text, "ab12");
        out << "c";
    }
    EXPECT_EQ(text, "ab12c");
}

}  // namespace
}  // namespace morvane
