// Encoding fields: entries, counts, methods, comments, and what is malformed. Entries are shown as count:method.
#include "ux_uuin/encoding.h"

#include <string>

#include <gtest/gtest.h>

#include "support/log_lines.h"

namespace {

std::string shown(std::string_view list) {
    std::string out;
    while (const auto entry = ux_InParseEncodingStr(list)) {
        out += std::to_string(entry->pNumLines) + ":" + std::to_string(entry->pMethod) + " ";
        list = entry->next;
    }
    return out;
}

TEST(Encoding, Rows) {
    const std::string longest(79, 'x'), too_long(80, 'x');
    const std::string deep(100'000, '('), closed(100'000, ')');
    const struct {
        std::string list, entries;
        const char* why;
    } rows[] = {
        {"text", "-1:2 ", "a word alone runs to the end"},
        {"12 text, 40 uuencode", "12:2 40:3 ", "counts"},
        {"12 text,40 uuencode,", "12:2 40:3 ", "blanks after a comma may be missing, the last comma says nothing"},
        {"1 hex, 2 HEXBIN, 3 hex-x", "1:1 2:1 3:1 ", "whatever begins hex"},
        {"1 uuencode, 2 X-UUEncoded", "1:3 2:3 ", "whatever holds uuencode"},
        {"1 hexuuencode", "1:1 ", "hex is looked for first"},
        {"1 message, 2 Message, 3 messages", "1:4 2:4 3:2 ", "message exactly, in any case"},
        {"1 postscript, 2 text us-ascii extra", "1:2 2:2 ", "all else is text, further words say nothing"},
        {"0 text, 1 text", "0:2 1:2 ", "a count of nothing"},
        {"007 text", "7:2 ", "leading zeros"},
        {"2147483647 text", "2147483647:2 ", "the largest count"},
        {"2147483648 text, 99999999999999999999 hex", "2147483647:2 2147483647:1 ", "and what is beyond it"},
        {"-3 text", "", "a negative count is none"},
        {"+3 text", "", "nor is a signed one"},
        {"3text", "", "a count needs a blank behind it"},
        {"3(c) text", "", "a comment is none"},
        {"3", "", "a count alone"},
        {"3 ", "", "and one with a blank"},
        {"3\ttext", "3:2 ", "a tab, left behind by a fold, is a blank"},
        {"3 4 text", "", "a method begins with a letter"},
        {"3 \xE4text", "", "of ASCII"},
        {"", "", "an empty list"},
        {"  \t ", "", "a blank list"},
        {",text", "", "an empty entry ends the list"},
        {"text,,text", "-1:2 ", "wherever it stands"},
        {"1 text(c)", "1:2 ", "a comment right behind a method"},
        {"1 hex(c)ical, 2 hex", "1:1 2:1 ", "ends it"},
        {"(a) 1 (b) text (c), 2 hex", "1:2 2:1 ", "comments anywhere"},
        {"1 (a (b (c, d), e) f) hex", "1:1 ", "they nest, and hide commas"},
        {"1 text (a, b), 2 hex", "1:2 2:1 ", "also behind the method"},
        {"(only a comment)", "", "nothing else"},
        {"1 text, (open, 2 hex", "1:2 ", "a comment that is not closed"},
        {"1 text (open, 2 hex", "", "behind the method it spoils its own entry"},
        {"1 text, ) 2 hex", "1:2 ", "a stray one makes the rest unusable"},
        {"1 text ), 2 hex", "", "and the entry that it stands in"},
        {"1 ) text", "", "wherever that is"},
        {"1 " + longest, "1:2 ", "the longest method"},
        {"1 " + too_long, "", "one too long is malformed"},
        {"1 " + too_long + ", 2 hex", "", "and ends the list"},
        {deep + closed + "1 text", "1:2 ", "comments of any depth"},
        {deep + "1 text", "", "open for ever"},
    };
    for (const auto& row : rows) EXPECT_EQ(shown(row.list), row.entries) << row.list.substr(0, 99) << ": " << row.why;
}

TEST(Encoding, AStrayCommentEndIsLogged) {
    const LogLines log;
    EXPECT_EQ(ux_InStripBlankAndComment(" (a) ) text"), std::nullopt);
    EXPECT_EQ(log.count("7 102.1530"), 1U);
    EXPECT_EQ(ux_InStripBlankAndComment(" (a text"), std::nullopt);
    EXPECT_EQ(log.count("7 102.1530"), 1U) << "one that was never closed is not";
}

TEST(Encoding, StripsToTheFirstCharacter) {
    EXPECT_EQ(ux_InStripBlankAndComment("text "), "text ");
    EXPECT_EQ(ux_InStripBlankAndComment(" \t(a(b))c"), "c");
    EXPECT_EQ(ux_InStripBlankAndComment(""), std::nullopt);
    EXPECT_EQ(ux_InStripBlankAndComment(" (a) "), std::nullopt);
}

TEST(Encoding, SkipsToTheNextComma) {
    EXPECT_EQ(ux_InSkipToComma("a (,) b, c"), ", c");
    EXPECT_EQ(ux_InSkipToComma("a"), "");
    EXPECT_EQ(ux_InSkipToComma(""), "");
    EXPECT_EQ(ux_InSkipToComma("a (b"), std::nullopt);
    EXPECT_EQ(ux_InSkipToComma("a ) b, c"), std::nullopt);
    EXPECT_EQ(ux_InSkipToComma("a, ) b"), ", ) b") << "what follows is of the next entry";
}

}  // namespace
