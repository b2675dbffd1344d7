// The table of character sets, its names, and the tests for 7-bit text.
#include "ccs/ccs.h"

#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "im/im.h"
#include "support/home.h"

namespace {

struct NameRow {
    std::string_view name, native;  // native empty: not known
    const char* why;
};

constexpr NameRow kNames[] = {
    {"IA5", "IA5", "native"},
    {"us-ascii", "IA5", "MIME, lower case"},
    {"ANSI_X3.4-1968", "IA5", "what a C locale calls it"},
    {"ascii", "IA5", "customary"},
    {"iso-8859-1", "ISO8859_1", "MIME"},
    {"ISO_8859-1:1987", "ISO8859_1", "IANA's formal name"},
    {"latin1", "ISO8859_1", "customary"},
    {"Latin-1", "ISO8859_1", "punctuation does not count"},
    {"iso8859_16", "ISO8859_16", "native, lower case"},
    {"ISO-8859-8-I", "ISO8859_8", "Hebrew in logical order is the same bytes"},
    {"ISO-8859-12", "", "there is no twelfth"},
    {"ISO8859_12", "", "nor under its native name"},
    {"iso-8859-11", "ISO8859_11", "not taken for 8859-1 and a digit"},
    {"TIS-620", "ISO8859_11", "Thai, as the detector says"},
    {"utf-8", "UTF8", "MIME"},
    {"UTF8", "UTF8", "native"},
    {"utf-7", "UTF7", "MIME"},
    {"UTF-16", "", "no native name: text with zero bytes"},
    {"windows-1252", "WIN1252", "MIME"},
    {"cp1252", "WIN1252", "iconv's"},
    {"WIN1258", "WIN1258", "last of its row"},
    {"windows-1249", "", "one before the first"},
    {"windows-1259", "", "one after the last"},
    {"gb2312", "GB2312", "MIME"},
    {"GB_2312-80", "GB2312", "IANA's formal name"},
    {"GBK", "GBK", "not GB2312, though iconv reads that as GBK"},
    {"cp936", "GBK", "customary"},
    {"gb18030", "GB18030", "stays itself"},
    {"hz-gb-2312", "HZGB2312", "MIME"},
    {"ks_c_5601-1987", "KSC5601", "what Korean mailers write"},
    {"euc-kr", "KSC5601", "MIME"},
    {"UHC", "KSC5601", "the detector's name"},
    {"CP949", "KSC5601", "the detector's other name"},
    {"shift_jis", "SJIS", "MIME"},
    {"Windows-31J", "SJIS", "the code page"},
    {"x-sjis", "SJIS", "old browsers"},
    {"iso-2022-jp", "ISO2022JP", "MIME"},
    {"ISO-2022-JP-2", "", "another set"},
    {"big5", "BIG5", "MIME"},
    {"Big5-HKSCS", "", "another set"},
    {"koi8-r", "KOI8_R", "MIME"},
    {"KOI8-U", "KOI8_U", "MIME"},
    {"T.61", "T61", "native, with punctuation"},
    {"T.61-8bit", "T61", "MIME"},
    {"", "", "no name"},
    {"---", "", "nothing but punctuation"},
    {"x-unknown", "", "mailers that do not know"},
    {"0123456789012345678901234567890123456789", "", "as long as a key may be"},
    {"01234567890123456789012345678901234567890", "", "longer than any name"},
};

TEST(Sets, AreFoundByAnyName) {
    for (const NameRow& row : kNames) {
        const ccs_Descriptor* set = ccs_GetCSDescriptor2(row.name, 2);
        EXPECT_EQ(set == nullptr ? "" : set->name, row.native) << row.name << ": " << row.why;
        EXPECT_EQ(ccs_GetCSDescriptor(row.name), set) << row.name;
        EXPECT_EQ(ccs_native_name(row.name), row.native.empty() ? row.name : row.native) << row.name;
    }
}

TEST(Sets, AreTheOnesOfTheNativeFormat) {
    const std::set<std::string_view> wanted = {
        "IA5",        "ISO8859_1",  "ISO8859_2", "ISO8859_3",  "ISO8859_4",  "ISO8859_5",  "ISO8859_6",
        "ISO8859_7",  "ISO8859_8",  "ISO8859_9", "ISO8859_10", "ISO8859_11", "ISO8859_13", "ISO8859_14",
        "ISO8859_15", "ISO8859_16", "UTF8",      "UTF7",       "ISO2022JP",  "SJIS",       "EUCJP",
        "GB2312",     "GBK",        "GB18030",   "HZGB2312",   "ISO2022CN",  "KSC5601",    "ISO2022KR",
        "BIG5",       "KOI8_R",     "KOI8_U",    "WIN1250",    "WIN1251",    "WIN1252",    "WIN1253",
        "WIN1254",    "WIN1255",    "WIN1256",   "WIN1257",    "WIN1258",    "T61"};
    std::set<std::string_view> there;
    for (const ccs_Descriptor& set : ccs_sets()) there.insert(set.name);
    EXPECT_EQ(there, wanted);
}

TEST(Sets, AreFoundByEveryNameOfTheirRow) {
    for (const ccs_Descriptor& set : ccs_sets()) {
        EXPECT_EQ(ccs_GetCSDescriptor2(set.name), &set) << set.name;
        EXPECT_EQ(ccs_GetCSDescriptor2(set.mime), &set) << set.mime;
        EXPECT_LE(set.name.size(), kSetNameLimit);
        for (const int selector : {0, 1, 2})
            EXPECT_EQ(ccs_GetInternalCharset(set.name, selector), set.name) << selector;
    }
}

TEST(Sets, HaveTheMimeNamesOfTheRegistry) {
    const std::map<std::string_view, std::string_view> rows = {
        {"IA5", "US-ASCII"},         {"ISO8859_15", "ISO-8859-15"}, {"UTF8", "UTF-8"},    {"SJIS", "Shift_JIS"},
        {"EUCJP", "EUC-JP"},         {"KSC5601", "EUC-KR"},         {"GB2312", "GB2312"}, {"HZGB2312", "HZ-GB-2312"},
        {"WIN1252", "windows-1252"}, {"KOI8_R", "KOI8-R"},          {"BIG5", "Big5"},     {"ISO2022KR", "ISO-2022-KR"}};
    for (const auto& [native, mime] : rows) EXPECT_EQ(ccs_GetCSDescriptor2(native)->mime, mime);
}

TEST(Sets, InternalNamesOfOthersAreTheirOwn) {
    EXPECT_EQ(ccs_GetInternalCharset("x-unknown", 1), "x-unknown");
    EXPECT_EQ(ccs_GetInternalCharset("utf-8", 1), "UTF8");
    EXPECT_EQ(ccs_GetInternalCharset("utf-8", 3), "utf-8") << "no such selector";
    EXPECT_EQ(ccs_GetInternalCharset("utf-8", -1), "utf-8") << "no such selector";
}

TEST(Sets, OnlyTheInterchangeSetHasItsFlag) {
    for (const ccs_Descriptor& set : ccs_sets()) EXPECT_EQ(set.flags, set.name == "T61" ? 64u : 0u) << set.name;
}

TEST(Sets, AreComparedByMeaning) {
    EXPECT_TRUE(ccs_same_set("utf-8", "UTF8"));
    EXPECT_TRUE(ccs_same_set("X-Own", "x-own"));
    EXPECT_FALSE(ccs_same_set("x-own", "x-other"));
    EXPECT_FALSE(ccs_same_set("x-own", "UTF8"));
    EXPECT_FALSE(ccs_same_set("GBK", "GB2312"));
    EXPECT_TRUE(ccs_same_set("", ""));
    EXPECT_TRUE(ccs_equal_ignoring_case("aZ[", "Az["));
    EXPECT_FALSE(ccs_equal_ignoring_case("[", "{")) << "only letters have case";
    EXPECT_FALSE(ccs_equal_ignoring_case("a", "ab"));
}

TEST(SevenBit, EveryPositionOfTheEightBitByteIsSeen) {
    for (std::size_t length = 0; length <= 80; ++length) {
        std::string text(length, '\x7f');
        EXPECT_TRUE(ccs_Is7BitAscii(text)) << length;
        for (std::size_t at = 0; at < length; ++at) {
            text[at] = '\x80';
            EXPECT_EQ(ccs_ascii_prefix(text), at) << length;
            EXPECT_FALSE(ccs_Is7BitAscii(text));
            EXPECT_EQ(ccs_ascii_prefix(std::string_view(text).substr(1)), at == 0 ? length - 1 : at - 1) << "unaligned";
            text[at] = '\0';
        }
    }
}

TEST(SevenBit, ItemsInMemoryAndOnDisk) {
    const TestHome home;
    constexpr std::size_t kBlock = 65536;
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, kBlock - 1, kBlock, kBlock + 1, 5 * kBlock}) {
        im_Item item = im_CrNewDataItem();
        item.write(std::string(size, 'a'));
        EXPECT_TRUE(ccs_Is7BitAsciiFile(item)) << size;
        item.write('\xff');
        EXPECT_FALSE(ccs_Is7BitAsciiFile(item)) << size;
    }
}

struct LengthRow {
    ccs_Shape shape;
    std::string_view text;
    std::size_t length;
    const char* why;
};

TEST(Characters, AreNotCutInTheMiddle) {
    using enum ccs_Shape;
    const LengthRow rows[] = {
        {single, "\xe4\xe4", 1, "one byte"},
        {utf8, "a\xc3\xa4", 1, "ASCII"},
        {utf8, "\xc3\xa4x", 2, "two bytes"},
        {utf8, "\xe2\x82\xac", 3, "three bytes"},
        {utf8, "\xf0\x9f\x98\x80", 4, "four bytes"},
        {utf8, "\xf0\x9f\x98", 1, "cut off"},
        {utf8, "\xc3(", 1, "not continued"},
        {utf8, "\x80", 1, "no lead byte"},
        {utf8, "\xf5\x80\x80\x80", 1, "above Unicode"},
        {euc, "\xb0\xa1", 2, "a pair"},
        {euc, "\xb0\x40", 1, "no second byte"},
        {eucjp, "\x8e\xb1", 2, "half-width kana"},
        {eucjp, "\x8f\xb0\xa1", 3, "JIS X 0212"},
        {eucjp, "\x8f\xb0", 1, "cut off"},
        {sjis, "\x82\xa0", 2, "kana"},
        {sjis, "\x83\x5c", 2, "a backslash as second byte"},
        {sjis, "\xb1\xb2", 1, "half-width kana"},
        {lead81, "\x81\x40", 2, "lowest pair"},
        {lead81, "\xb0", 1, "cut off"},
        {lead81, "\xb0\x20", 1, "no second byte"},
        {gb18030, "\x81\x30\x81\x30", 4, "four bytes"},
        {gb18030, "\x81\x30\x81", 1, "cut off"},
        {gb18030, "\xb0\xa1\x30", 2, "a pair"},
    };
    for (const LengthRow& row : rows) EXPECT_EQ(ccs_character_length(row.shape, row.text), row.length) << row.why;
}

}  // namespace
