// Small rules of header text.
#include "mim/mim.h"

#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace {

TEST(MimTest, SpaceTrimming) {
    struct Row {
        const char* text;
        const char* both;
        const char* end;
    };
    const Row rows[] = {
        {"", "", ""},
        {" \t\r\n\v\f", "", ""},
        {"a", "a", "a"},
        {" \ta b\r\n", "a b", " \ta b"},
        {"a \x01", "a \x01", "a \x01"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(mim_SpaceTrimming(row.text), row.both) << row.text;
        EXPECT_EQ(mim_trim_trailing_space(row.text), row.end) << row.text;
    }
}

TEST(MimTest, RemoveQuotesTakesOnePairAround) {
    struct Row {
        const char* text;
        const char* result;
        const char* why;
    };
    const Row rows[] = {
        {"\"abc\"", "abc", "a pair"},
        {"\"\"abc\"\"", "\"abc\"", "one pair only"},
        {"\"\"", "", "nothing inside"},
        {"\"", "\"", "one quote is no pair"},
        {"\"abc", "\"abc", "not closed"},
        {"a\"b\"c", "a\"b\"c", "not around"},
        {" \"abc\"", " \"abc\"", "not around either"},
        {"", "", "nothing"},
    };
    for (const Row& row : rows) EXPECT_EQ(mim_RemoveQuotes(row.text), row.result) << row.why;
}

TEST(MimTest, Xtext) {
    struct Row {
        std::string_view text;
        const char* result;
        const char* why;
    };
    const Row rows[] = {
        {"QQ+2B1", "QQ+1", "an escape"},
        {"user+40host", "user@host", "another"},
        {"+2b+2B", "++", "digits in any case"},
        {"a+", "a+", "cut off"},
        {"a+4", "a+4", "cut off later"},
        {"a+4G", "a+4G", "no digit"},
        {"++41", "+A", "a plus sign that begins none"},
        {"a+00b", "a", "a byte 0 ends the result"},
        {std::string_view("a\0b", 3), "a", "as it stands too"},
        {"+E9", "\xE9", "8-bit"},
        {"", "", "nothing"},
    };
    for (const Row& row : rows) EXPECT_EQ(mim_DecodeXtextString(row.text), row.result) << row.why;
}

}  // namespace
