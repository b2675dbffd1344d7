// Rich text from plain text; files as strings.
#include "mapi/rich_text.h"

#include <string>

#include <gtest/gtest.h>

#include "support/home.h"

namespace {

// What stands between the head and the closing brace.
std::string body(std::string_view text, int attachments = 0) {
    const std::string rtf = mapi_makeRtfFromUtf8Description(text, attachments);
    EXPECT_TRUE(rtf.starts_with("{\\rtf1\\ansi")) << rtf;
    EXPECT_TRUE(rtf.ends_with("}\r\n")) << rtf;
    const std::size_t start = rtf.find("\\fs20 ") + 6;
    return rtf.substr(start, rtf.size() - start - 3);
}

TEST(RichText, Characters) {
    const struct {
        std::string_view text, rtf, why;
    } rows[] = {
        {"plain", "plain\\par\r\n", "ASCII, and an end of its paragraph"},
        {"a\nb\n", "a\\par\r\nb\\par\r\n", "lines"},
        {"a\r\nb", "a\\par\r\nb\\par\r\n", "CR LF"},
        {"{\\}", "\\{\\\\\\}\\par\r\n", "what means something there"},
        {"a\tb", "a\\tab b\\par\r\n", "a tab"},
        {"\x01\x7F", "\\par\r\n", "control characters"},
        {"\xC2\x85", "\\par\r\n", "and those of ISO 6429"},
        {"ä€", "\\u228?\\u8364?\\par\r\n", "two and three bytes"},
        {"\xEF\xBF\xBC", "\\u-4?\\par\r\n", "numbers are signed"},
        {"🎂", "\\u-10180?\\u-8318?\\par\r\n", "beyond 16 bits"},
        {"\xFFx", "\\u-3?x\\par\r\n", "no UTF-8"},
        {"", "\\par\r\n", "nothing is an empty paragraph"},
    };
    for (const auto& row : rows) EXPECT_EQ(body(row.text), row.rtf) << row.why;
}

TEST(RichText, Attachments) {
    EXPECT_EQ(body("a", 2), "a\\par\r\n\\objattph \\par\r\n\\objattph \\par\r\n");
    EXPECT_EQ(body("a", -1), "a\\par\r\n");
    EXPECT_EQ(mapi_makeRtfFromUtf8Desc_dstring("a", 1), mapi_makeRtfFromUtf8Description("a", 1));
    EXPECT_LT(mapi_makeRtfFromUtf8Description("", 2'000'000'000).size(), std::size_t{1} << 20) << "bounded";
}

TEST(FileToString, Files) {
    const TestHome home;
    home.write("tmp/x", std::string("a\0b", 3));
    EXPECT_EQ(mapi_FileToString("~/tmp/x"), std::string("a\0b", 3));
    EXPECT_FALSE(mapi_FileToString("~/tmp/nothing"));
    EXPECT_FALSE(mapi_FileToString("~/tmp")) << "a folder";
    home.write("tmp/x", std::string(kLargestTextFile, 'x'));
    EXPECT_TRUE(mapi_FileToString("~/tmp/x"));
    home.write("tmp/x", std::string(kLargestTextFile + 1, 'x'));
    EXPECT_FALSE(mapi_FileToString("~/tmp/x"));
}

}  // namespace
