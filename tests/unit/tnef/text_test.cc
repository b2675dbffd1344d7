// Text in streams: code pages, Unicode, and bytes that are not what they are said to be.
#include "tnef/text.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ccs/ccs.h"
#include "cvc/cvc.h"
#include "support/bytes.h"
#include "support/home.h"

namespace {

// The text as it is had from a stream, in pieces.
std::string in_pieces(std::string_view bytes_of_text, const tnef_TextKind& kind) {
    im_Item item = im_CrNewDataItem();
    item.write("x");
    item.write(bytes_of_text);
    tnef_Source source(item);
    std::string out;
    tnef_read_text(
        source, {1, item.size()}, kind, [&](std::string_view piece) { out += piece; }, [&] { out.clear(); });
    return out;
}

struct CodepageRow {
    std::uint32_t codepage;
    const char* set;
};

constexpr CodepageRow kRows[] = {
    {0, "WIN1252"},       {874, "ISO8859_11"},  {932, "SJIS"},        {936, "GBK"},          {949, "KSC5601"},
    {950, "BIG5"},        {1250, "WIN1250"},    {1251, "WIN1251"},    {1252, "WIN1252"},     {1253, "WIN1253"},
    {1254, "WIN1254"},    {1255, "WIN1255"},    {1256, "WIN1256"},    {1257, "WIN1257"},     {1258, "WIN1258"},
    {20127, "IA5"},       {20866, "KOI8_R"},    {20932, "EUCJP"},     {21866, "KOI8_U"},     {28591, "ISO8859_1"},
    {28592, "ISO8859_2"}, {28593, "ISO8859_3"}, {28594, "ISO8859_4"}, {28595, "ISO8859_5"},  {28596, "ISO8859_6"},
    {28597, "ISO8859_7"}, {28598, "ISO8859_8"}, {28599, "ISO8859_9"}, {28603, "ISO8859_13"}, {28605, "ISO8859_15"},
    {38598, "ISO8859_8"}, {50220, "ISO2022JP"}, {50221, "ISO2022JP"}, {50222, "ISO2022JP"},  {50225, "ISO2022KR"},
    {50227, "ISO2022CN"}, {51932, "EUCJP"},     {51936, "GB2312"},    {51949, "KSC5601"},    {52936, "HZGB2312"},
    {54936, "GB18030"},   {65000, "UTF7"},      {65001, "UTF8"},      {99999, "WIN1252"},    {0xFFFFFFFF, "WIN1252"},
};

TEST(Codepages, EachHasASetThatCanBeRead) {
    for (const CodepageRow& row : kRows) {
        EXPECT_EQ(tnef_set_of(row.codepage), row.set) << row.codepage;
        EXPECT_TRUE(cvc_is_usable([&] {
            std::string out;
            return cvc_ConvertString("abc", row.set, "UTF8", out);
        }()))
            << row.codepage;
    }
    for (const std::uint32_t codepage : {1200U, 1201U, 10000U}) {
        std::string out;
        EXPECT_EQ(cvc_ConvertString("abcd", tnef_set_of(codepage), "UTF8", out) & ~1, 0) << codepage;
    }
    EXPECT_EQ(tnef_set_of(850), "CP850") << "one that the converter alone knows";
}

struct TextRow {
    const char* bytes;
    const char* set;
    const char* utf8;
    const char* why;
};

constexpr TextRow kTexts[] = {
    {"", "WIN1252", "", "nothing"},
    {"616263 00", "WIN1252", "abc", "its NUL"},
    {"616263", "WIN1252", "abc", "no NUL"},
    {"6100 6263", "WIN1252", "a", "what follows the NUL is nothing"},
    {"80", "WIN1252", "\xE2\x82\xAC", "the euro sign"},
    {"8365 8358 8367", "SJIS", "\xE3\x83\x86\xE3\x82\xB9\xE3\x83\x88", "katakana"},
    {"CFF0E8E2E5F2", "WIN1251", "\xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82", "Cyrillic"},
    {"C3A9", "UTF8", "\xC3\xA9", "UTF-8"},
    {"C3A9", "IA5", "\xC3\xA9", "not ASCII, but UTF-8"},
    {"E941", "IA5",
     "\xC3\xA9"
     "A",
     "not ASCII and not UTF-8"},
    {"83", "SJIS", "\xC2\x83", "half a character"},
    {"1B2442 2446 1B2842", "ISO2022JP", "\xE3\x81\xA6", "shifts"},
    {"2B414F6B2D", "UTF7", "\xC3\xA9", "ASCII bytes that are not ASCII text"},
    {"E9", "no such set", "\xC3\xA9", "a set that is not known"},
    {"410042000000", "UTF-16LE", "AB", "two bytes for each"},
};

TEST(Text, InACodePageAtOnceAndInPieces) {
    const TestHome home;
    for (const TextRow& row : kTexts) {
        EXPECT_EQ(tnef_utf8(bytes(row.bytes), {.set = row.set}), row.utf8) << row.why;
        EXPECT_EQ(in_pieces(bytes(row.bytes), {.set = row.set}), row.utf8) << row.why;
    }
}

TEST(Text, UnicodeInPieces) {
    const TestHome home;
    std::string wide, utf8;
    while (wide.size() < 400'000) {
        wide += bytes("4100 3DD8 00DE E900");
        utf8 += "A\xF0\x9F\x98\x80\xC3\xA9";
    }
    EXPECT_TRUE(in_pieces(wide, {.is_unicode = true}) == utf8);
    EXPECT_TRUE(in_pieces(wide + bytes("0000 4200"), {.is_unicode = true}) == utf8);
    EXPECT_TRUE(in_pieces(wide + bytes("3DD8"), {.is_unicode = true}) == utf8 + "\xEF\xBF\xBD");
    EXPECT_TRUE(in_pieces(wide + "A", {.is_unicode = true}) == utf8 + "\xEF\xBF\xBD");
}

TEST(Text, CharactersThatLieAcrossPieces) {
    const TestHome home;
    for (std::size_t offset = 0; offset < 4; ++offset) {
        std::string sjis(offset, 'a'), utf8(offset, 'a');
        while (sjis.size() < 200'000) {
            sjis += bytes("8365 61");
            utf8 +=
                "\xE3\x83\x86"
                "a";
        }
        EXPECT_TRUE(in_pieces(sjis, {.set = "SJIS"}) == utf8) << offset;
    }
}

TEST(Text, LateDamageBeginsAgain) {
    const TestHome home;
    const std::string text(100'000, 'a');
    EXPECT_TRUE(in_pieces(text + bytes("83"), {.set = "SJIS"}) == text + "\xC2\x83");
    EXPECT_TRUE(in_pieces(text + bytes("C3A9"), {.set = "IA5"}) == text + "\xC3\xA9");
}

}  // namespace
