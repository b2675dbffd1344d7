// The part-information list: collecting it, taking entries from it, and the conversion that an entry asks for.
#include "ux_in/part_info.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/log_lines.h"
#include "ux_in/charsets.h"

namespace {

class PartInfo : public testing::Test {
protected:
    PartInfo() {
        ux_reset_part_info();
        ux_reset_charsets();
        ux_charsets().FromCharSet = "ISO8859_1";
        ux_charsets().ToLatinCS = "ISO8859_1";
    }
    ~PartInfo() override {
        ux_reset_part_info();
        ux_reset_charsets();
    }
    // All entries of a list, one word each: "-" not found, else file code and set.
    static std::string entries(std::string_view list, int count) {
        std::string all;
        for (int i = 0; i < count; ++i) {
            const ux_PartInfo info = i == 0 ? ux_InGetNextPartInfo(list) : ux_InGetNextPartInfo(std::nullopt);
            if (i != 0) all += ' ';
            all += info.found ? std::to_string(info.Filecode) + ":" + info.CharSet : "-";
            EXPECT_EQ(info.Keyword, "");
        }
        return all;
    }
    LogLines log_;
};

TEST_F(PartInfo, Collecting) {
    EXPECT_EQ(ux_InAppendEncodingInfo("fc=1,", true), "fc=1,");
    EXPECT_EQ(ux_InAppendEncodingInfo(" fc=2", false), "fc=1, fc=2") << "as it stands";
    EXPECT_EQ(ux_InAppendEncodingInfo("", false), "fc=1, fc=2");
    EXPECT_EQ(ux_InAppendEncodingInfo("x", true), "x") << "reset empties it first";
    EXPECT_EQ(ux_InAppendEncodingInfo("", true), "");
    EXPECT_EQ(&ux_InAppendEncodingInfo("y", false), &ux_part_info().pEncodingList);
}

TEST_F(PartInfo, CollectingIsBounded) {
    ux_InAppendEncodingInfo("", true);
    const std::string line(1000, 'x');
    for (int i = 0; i < 1049; ++i) ux_InAppendEncodingInfo(line, false);
    EXPECT_EQ(ux_part_info().pEncodingList.size(), std::size_t{1048576});
    EXPECT_EQ(ux_InAppendEncodingInfo(line, false).size(), std::size_t{1048576});
    EXPECT_EQ(ux_InAppendEncodingInfo("fc=1", true), "fc=1");
}

TEST_F(PartInfo, Entries) {
    const struct {
        const char *list, *expected, *why;
    } rows[] = {
        {"", "- - -", "an empty list"},
        {"fc=2133", "2133: - -", "one entry"},
        {"fc=2133.UTF8", "2133:UTF8 - -", "with a set"},
        {"fc=10,fc=20", "10: 20: -", "two entries"},
        {" fc=10 , fc=20 ", "10: 20: -", "with blanks"},
        {"\tfc=10,\r\n\tfc=20", "10: 20: -", "with what folding leaves behind"},
        {"fc=1167.ISO8859_1 (the letter), fc=2130", "1167:ISO8859_1 2130: -", "a comment"},
        {"(a)fc=(b)7(c)", "7: - -", "comments anywhere"},
        {"fc=7(a,b),fc=8", "7: 8: -", "a comma in a comment"},
        {"fc=7(a(b)c),fc=8", "7: 8: -", "comments do not nest: the rest clings to the word"},
        {"fc=7 (never closed, fc=8", "7: - -", "a comment runs to its end"},
        {"(all of it)", "- - -", "nothing but a comment"},
        {"fc=7),fc=8", "7: 8: -", "a closing bracket without an opening one"},
        {"fc=10,,fc=30", "10: - 30:", "an empty entry keeps its place"},
        {",fc=20", "- 20: -", "at the start too"},
        {"fc=10,", "10: - -", "nothing after the last comma"},
        {"name fc=10 size=5", "10: - -", "other words say nothing"},
        {"fc=10 fc=20.UTF8 fc=30", "30: - -", "the last word holds, its missing set too"},
        {"fc=10 fc=x", "10: - -", "a word without digit is no such word"},
        {"fc=0", "0: - -", "the least code"},
        {"fc=9999", "9999: - -", "the largest code"},
        {"fc=10000.UTF8", "0: - -", "a code out of range"},
        {"fc=12345", "0: - -", "a code out of range"},
        {"fc=99999999999999999999", "0: - -", "a code of any length"},
        {"fc=10.UTF8 fc=12345.IA5", "0: - -", "a later code out of range holds too"},
        {"fc=12345 fc=10", "10: - -", "a later good code holds"},
        {"fc=-5", "0: - -", "no digit"},
        {"FC=10", "0: - -", "no such word"},
        {"xfc=10", "0: - -", "no such word"},
        {"fc=", "0: - -", "no digit"},
        {"nonsense", "0: - -", "an entry, though it says nothing"},
        {"fc=0010abc.UTF8", "10:UTF8 - -", "a number ends where its digits end"},
        {"fc=10.", "10: - -", "an empty set"},
        {"fc=10.a.b", "10:a.b - -", "the first dot divides"},
        {"fc=10.FOURTEEN_LONG_", "10:FOURTEEN_LONG_ - -", "fourteen characters"},
        {"fc=10.FIFTEEN_LONG_SX", "10:FIFTEEN_LONG_S - -", "and no more"},
    };
    for (const auto& row : rows) EXPECT_EQ(entries(row.list, 3), row.expected) << row.list << ": " << row.why;
}

TEST_F(PartInfo, LoadingStartsAgain) {
    EXPECT_EQ(entries("fc=1,fc=2,fc=3", 2), "1: 2:");
    EXPECT_EQ(entries("fc=4,fc=5", 3), "4: 5: -");
    EXPECT_FALSE(ux_InGetNextPartInfo(std::nullopt).found) << "the end stays the end";
    EXPECT_EQ(entries("", 1), "-");
}

TEST_F(PartInfo, TheListItselfMayBeLoaded) {
    const std::string& list = ux_InAppendEncodingInfo("fc=1,fc=2", true);
    EXPECT_EQ(entries(list, 3), "1: 2: -");
    EXPECT_EQ(ux_part_info().pEncodingList, "fc=1,fc=2");
}

TEST_F(PartInfo, Log) {
    entries("fc=10.UTF8 x", 2);
    EXPECT_EQ(log_.all().size(), 2U);
    EXPECT_EQ(log_.first("11 102.1511"), "11 102.1511 fc=10.UTF8 x -  10 UTF8");
    EXPECT_EQ(log_.count("11 102.1512"), 1U);
    entries("fc=12345", 1);
    EXPECT_EQ(log_.first("5 102.1516"), "5 102.1516 fc=12345 -  0 ");
    entries("fc=5 " + std::string(3000, 'x'), 1);
    EXPECT_EQ(log_.all().back(), "11 102.1511 fc=5 " + std::string(1024 - 5, 'x') + " -  5 ");
}

TEST_F(PartInfo, ConversionOfTheEntry) {
    const struct {
        const char *list, *CharSet, *ToTextCS, *why;
    } rows[] = {
        {"", "", "ISO8859_1", "no entry: plain text in the default set"},
        {"fc=1167", "ISO8859_1", "ISO8859_1", "a text code without a set gets the default one"},
        {"fc=1736", "ISO8859_1", "ISO8859_1", "the other text code too"},
        {"fc=1167.ISO8859_1", "ISO8859_1", "ISO8859_1", "the default set by name"},
        {"fc=0", "", "", "a binary part has none"},
        {"fc=2133.UTF8", "UTF8", "UTF8", "a code that is not plain text keeps its set"},
    };
    for (const auto& row : rows) {
        const ux_PartInfo info = ux_InGetNextPartInfo(row.list);
        EXPECT_EQ(info.CharSet, row.CharSet) << row.why;
        EXPECT_EQ(info.ToTextCS, row.ToTextCS) << row.why;
        EXPECT_TRUE(info.DoConv) << row.why;
    }
    EXPECT_EQ(ux_charsets().FromCharSet, "ISO8859_1");
}

TEST_F(PartInfo, LongListsAreLinear) {
    std::string list;
    for (int i = 0; i < 100000; ++i) list += "fc=1(x),";
    er_SetLevel(3);
    ux_PartInfo info = ux_InGetNextPartInfo(list);
    int found = 0;
    for (; info.found; info = ux_InGetNextPartInfo(std::nullopt)) ++found;
    EXPECT_EQ(found, 100000);
    EXPECT_EQ(entries(std::string(1000000, '('), 1), "-");
    EXPECT_EQ(entries(std::string(1000000, ' ') + "fc=1", 1), "1:");
}

}  // namespace
