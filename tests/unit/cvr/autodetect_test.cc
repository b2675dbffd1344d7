// The set of text whose label is missing or proven wrong.
#include "cvr/autodetect.h"

#include <string>

#include <gtest/gtest.h>

#include "im/im.h"
#include "support/home.h"

namespace {

using namespace std::string_literals;

im_Item item_of(std::string_view text) {
    im_Item item = im_CrNewDataItem();
    item.write(text);
    return item;
}

const std::string kJapanese = "\x1b$B$3$s$K$A$O@$3&\x1b(B";
const std::string kUtf8 = "gr\xc3\xbc\xc3\x9f gott";
const std::string kNoSet = "\x81\x8d\x8f\x81";

TEST(Autodetect, Rows) {
    const TestHome home;
    struct Row {
        std::string text;
        const char *subject, *profile, *names;
        bool is_8bit;
        const char* why;
    };
    const Row rows[] = {
        {"", "KOI8_R", "GB2312", "", false, "nothing"},
        {"plain", "KOI8_R", "GB2312", "", false, "7-bit text says nothing, and nothing is supplied"},
        {"\x1b[31mred", "", "", "", false, "escapes of a terminal"},
        {kJapanese, "KOI8_R", "GB2312", "ISO2022JP", false, "7-bit text with escapes says what it is"},
        {"~{VPND~} ~{VPND~} ~{VPND~}", "", "", "HZGB2312", false, "HZ too"},
        {kUtf8, "", "", "UTF8", true, "8-bit text"},
        {kUtf8, "KOI8_R", "GB2312", "UTF8,GB2312,KOI8_R", true, "then the customary set, then that of the subject"},
        {kNoSet, "KOI8_R", "GB2312", "GB2312,KOI8_R", true, "nothing recognised"},
        {kNoSet, "KOI8_R", "", "KOI8_R", true, "no customary set"},
        {kNoSet, "koi8-r", "euc-kr", "KSC5601,KOI8_R", true, "by their native names"},
        {kNoSet, "IA5", "", "", true, "ASCII is none for 8-bit text"},
        {kNoSet, "US-ASCII", "IA5", "", true, "by whatever name"},
        {kNoSet, "x-none", "", "x-none", true, "a set that nobody knows keeps its name"},
        {kNoSet, "", "", "", true, "no idea"},
    };
    for (const Row& row : rows) {
        const im_Item item = item_of(row.text);
        const cvr_Autodetected found = cvr_autodetectCS(item, -1, row.subject, row.profile);
        EXPECT_EQ(found.names, row.names) << row.why;
        EXPECT_EQ(found.Is8bit, row.is_8bit) << row.why;
    }
}

TEST(Autodetect, OnlyWhatIsAskedForIsLookedAt) {
    const TestHome home;
    const im_Item item = item_of(std::string(100, 'x') + kUtf8);
    struct Row {
        std::int64_t limit;
        bool is_8bit;
    };
    for (const Row& row : {Row{0, false}, Row{102, false}, Row{103, true}, Row{1'000'000, true}, Row{-1, true}})
        EXPECT_EQ(cvr_autodetectCS(item, row.limit, "", "").Is8bit, row.is_8bit) << row.limit;
    EXPECT_EQ(cvr_autodetectCS(item, 102, "KOI8_R", "GB2312").names, "");
    EXPECT_EQ(cvr_autodetectCS(item, -1, "", "").names, "UTF8");
}

TEST(Autodetect, ALargeItemIsReadInBlocks) {
    const TestHome home;
    for (const std::size_t before : {65'535U, 65'536U, 300'000U}) {
        const im_Item item = item_of(std::string(before, 'x') + kUtf8);
        const cvr_Autodetected found = cvr_autodetectCS(item, -1, "", "");
        EXPECT_EQ(found.names, "UTF8") << before;
        EXPECT_TRUE(found.Is8bit) << before;
    }
}

}  // namespace
