// Names, subjects and first lines as people read them.
#include "morvane/text.h"

#include <stdlib.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "nm/nm.h"
#include "os/os.h"

namespace morvane {
namespace {

TEST(ReadableName, SaysWhoAndWhere) {
    nm_reset();
    struct Row {
        const char* native;
        const char* expected;
        const char* why;
    };
    constexpr Row kRows[] = {
        {"", "", "no name"},
        {"/DD.RFC-822=jane(a)example.org", "jane@example.org", "the printable form decoded"},
        {"/DD.RFC-822=a(p)b(a)x/CN=A B", "A B <a%b@x>", "other printable escapes"},
        {"/DD.RFC-822=a(042)b(a)x", "a*b@x", "three digits are a byte"},
        {"/DD.RFC-822=a(04)b(a)x", "a(04)b@x", "two are none"},
        {"/S=Doe/G=Jane/O=example.org", "Jane Doe", "a personal name"},
        {"/S=Doe/G=Jane/IA=jane.doe@example.org", "Jane Doe <jane.doe@example.org>", "with its address"},
        {"/CN=Jane/IA=<jane@example.org>", "Jane <jane@example.org>", "brackets are not doubled"},
        {"/CN=x/IA=\"Doe, Jane\" <jane@example.org>", "Doe, Jane <jane@example.org>", "the address brings the name"},
        {"/IA==?utf-8?q?M=C3=BCller?= <m@x.org>", "M\xC3\xBCller <m@x.org>", "encoded words decoded"},
        {"/CN=Team", "Team", "a group"},
        {"/IA=;;;", ";;;", "an address that is none stays as it is"},
        {"no name at all", "", "text without fields"},
    };
    for (const Row& row : kRows) EXPECT_EQ(readable_name(row.native), row.expected) << row.why;
}

TEST(ReadableName, LeavesTheAddressOutOfTheNativeForm) {
    nm_reset();
    EXPECT_EQ(without_address("/S=Doe/IA=d@x.org"), "/S=Doe");
    EXPECT_EQ(without_address("/S=Doe"), "/S=Doe");
    EXPECT_EQ(without_address("text"), "text");
    EXPECT_EQ(without_address(""), "");
}

TEST(ReadableSubject, DecodesWords) {
    EXPECT_EQ(readable_subject("=?iso-8859-1?q?Gr=FC=DFe?= aus"),
              "Gr\xC3\xBC\xC3\x9F"
              "e aus");
    EXPECT_EQ(readable_subject("=?utf-8?b?w6Q=?="), "\xC3\xA4");
    EXPECT_EQ(readable_subject("=?no-such-set?q?x?="), "=?no-such-set?q?x?=");
    EXPECT_EQ(readable_subject(""), "");
}

TEST(ToUtf8, ConvertsOrLeavesAlone) {
    EXPECT_EQ(to_utf8("Gr\xFC\xDF"
                      "e",
                      "ISO8859_1"),
              "Gr\xC3\xBC\xC3\x9F"
              "e");
    EXPECT_EQ(to_utf8("\x80", "WIN1252"), "\xE2\x82\xAC");
    EXPECT_EQ(to_utf8("abc", ""), "abc");
    EXPECT_EQ(to_utf8("\xFF", "NO_SUCH_SET"), "\xFF");
    EXPECT_EQ(to_utf8("a\xC3", "UTF8"), "a") << "a character cut off by the look's end";
    EXPECT_EQ(to_utf8("\xFF\xFE", "UTF8"), "\xFF\xFE") << "not in the set: as it is";
}

TEST(LenientUtf8, AlwaysGivesUtf8) {
    EXPECT_EQ(lenient_utf8("a\xFF"
                           "b"),
              "a\xC3\xBF"
              "b");
    EXPECT_EQ(lenient_utf8("\xC3\xA4"), "\xC3\xA4");
    EXPECT_TRUE(is_utf8("\xC3\xA4"));
    EXPECT_FALSE(is_utf8("\xC3"));
    for (int byte = 0; byte < 256; ++byte)
        EXPECT_TRUE(is_utf8(lenient_utf8(std::string(3, static_cast<char>(byte))))) << byte;
}

std::string previewed(const std::string& text, std::string_view set = "", std::size_t most = 3) {
    ByteFile file = ByteFile::over(text, "F");
    const Preview found = preview(file, 0, file.size(), set, most);
    std::string lines;
    for (const std::string& line : found.lines) lines += "[" + line + "]";
    return lines + (found.more ? "..." : "");
}

TEST(PreviewTest, ShowsTheFirstLines) {
    EXPECT_EQ(previewed("a\nb\n"), "[a][b]");
    EXPECT_EQ(previewed("a\r\nb"), "[a][b]");
    EXPECT_EQ(previewed("a\nb\nc\nd\n"), "[a][b][c]...");
    EXPECT_EQ(previewed("a\nb\nc\n"), "[a][b][c]");
    EXPECT_EQ(previewed("\n \n\t\na\n\nb\n"), "[a][][b]") << "leading blank lines are left out";
    EXPECT_EQ(previewed(""), "");
    EXPECT_EQ(previewed("\n\n"), "");
    EXPECT_EQ(previewed("\xE4\n", "ISO8859_1"), "[\xC3\xA4]");
    const std::string endless(100'000, 'x');
    EXPECT_TRUE(previewed(endless).ends_with("]...")) << "one line without an end";
    EXPECT_LT(previewed(endless).size(), 10'000U);
}

TEST(NameDelimiter, ComesFromTheHome) {
    char folder[] = "/tmp/text_test.XXXXXX";
    ASSERT_NE(::mkdtemp(folder), nullptr);
    os_SetHome(folder);
    std::filesystem::create_directory(std::string(folder) + "/sys");
    const auto config = [&](std::size_t size, std::uint16_t value) {
        std::string content(size, '\0');
        if (size >= 478) std::memcpy(content.data() + 476, &value, 2);
        std::ofstream(std::string(folder) + "/sys/config") << content;
        load_name_delimiter();
        return nm_state().inet_PrimDelim;
    };
    load_name_delimiter();
    EXPECT_EQ(nm_state().inet_PrimDelim, '/') << "no file";
    EXPECT_EQ(config(512, ';'), ';');
    EXPECT_EQ(config(512, 0), '/') << "no value";
    EXPECT_EQ(config(512, 0x0100 | '!'), '!') << "the low byte counts";
    EXPECT_EQ(config(477, '!'), '/') << "too short";
    std::filesystem::remove_all(folder);
    nm_reset();
}

}  // namespace
}  // namespace morvane
