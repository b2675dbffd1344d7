// Conversion of strings and items: results, what is lost, what is refused, and any cut of the input.
#include "cvc/cvc.h"

#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "ccs/ccs.h"
#include "cvc/converter.h"
#include "cvc/utf8.h"
#include "im/im.h"
#include "support/home.h"

namespace {

using namespace std::string_literals;

struct ConvertRow {
    std::string text;
    const char* from;
    const char* to;
    int result;
    std::string expected;
    const char* why;
};

const ConvertRow kRows[] = {
    {"", "IA5", "UTF8", 0, "", "nothing"},
    {"plain", "IA5", "ISO2022JP", 0, "plain", "ASCII under another name"},
    {"Gr\xfc\xdf"s
     "e",
     "ISO8859_1", "UTF8", 0,
     "Gr\xc3\xbc\xc3\x9f"s
     "e",
     "own code both sides"},
    {"Gr\xc3\xbc\xc3\x9f"s
     "e",
     "UTF8", "ISO8859_1", 0,
     "Gr\xfc\xdf"s
     "e",
     "and back"},
    {"\x80\x9f\xa0\xff", "ISO8859_1", "UTF8", 0, "\xc2\x80\xc2\x9f\xc2\xa0\xc3\xbf", "all of the upper half"},
    {"1 \xe2\x82\xac", "UTF8", "ISO8859_1", 1, "1 ?", "no euro in Latin-1"},
    {"1 \xe2\x82\xac", "UTF8", "ISO8859_15", 0, "1 \xa4", "but in Latin-9"},
    {"1 \xe2\x82\xac", "UTF8", "WIN1252", 0, "1 \x80", "and in the code page"},
    {"\xf0\x9f\x98\x80!", "UTF8", "KOI8_R", 1, "?!", "one mark for one character, not for its bytes"},
    {"\xe4", "ISO8859_1", "IA5", 1, "?", "no ASCII"},
    {"\xe4", "IA5", "ISO8859_1", 4, "", "no ASCII: not text of its set"},
    {"\xe4", "UTF8", "ISO8859_1", 4, "", "no UTF-8"},
    {"abc\xc3", "UTF8", "ISO8859_1", 4, "", "ends inside a character"},
    {"\xed\xa0\x80", "UTF8", "ISO2022JP", 4, "", "a surrogate"},
    {"\xc0\xaf", "UTF8", "ISO8859_1", 4, "", "an overlong slash"},
    {"\xf4\x90\x80\x80", "UTF8", "GB18030", 4, "", "above Unicode"},
    {"\xef\xbb\xbf"s
     "abc\xc3\xa4",
     "UTF8", "ISO8859_1", 0, "abc\xe4", "a signature is no text"},
    {"\x81", "WIN1252", "UTF8", 4, "", "a hole in the code page"},
    {"x", "IA5", "x-unknown", 5, "", "no such set"},
    {"x", "x-unknown", "IA5", 5, "", "no such set"},
    {"x", "utf 8", "ISO8859_1", 0, "x", "punctuation of a known name"},
    {"x", "UTF-8//IGNORE", "ISO8859_1", 5, "", "options of iconv's are no part of a name"},
    {"\xe4", "x/../UTF-8", "ISO8859_2", 5, "", "a path is no name"},
    {"\xe4\xff", "ISO8859_1", "latin1", 0, "\xe4\xff", "one set under two names"},
    {"\xe4\xff", "x-own", "X-OWN", 0, "\xe4\xff", "also when nobody knows it"},
    {"a\0b\xfc"s, "ISO8859_1", "UTF8", 0, "a\0b\xc3\xbc"s, "a NUL byte is a character"},
    {"\x82\xa0\x87\x40", "SJIS", "UTF8", 0, "\xe3\x81\x82\xe2\x91\xa0", "code page 932 has circled digits"},
    {"\x5c\x7e", "SJIS", "UTF8", 0, "\\~", "a backslash is a backslash"},
    {"\x81\x60", "SJIS", "ISO2022JP", 0, "\x1b$B!A\x1b(B", "a wave dash that two tables call differently"},
    {"\xe3\x81\x82 a", "UTF8", "ISO2022JP", 0, "\x1b$B$\"\x1b(B a", "shifts back"},
    {"\xe3\x81\x82", "UTF8", "ISO2022JP", 0, "\x1b$B$\"\x1b(B", "shifts back at the end"},
    {"\xe3\x81\x82\xf0\x9f\x98\x80", "UTF8", "ISO2022JP", 1, "\x1b$B$\"\x1b(B?", "the mark is written in ASCII"},
    {"\xb1\xe8\x8c\x63", "KSC5601", "UTF8", 0, "\xea\xb9\x80\xeb\x98\xa0", "syllables beyond EUC-KR"},
    {"\x81\x41\xd6\xd0", "GB2312", "UTF8", 0, "\xe4\xb8\x84\xe4\xb8\xad", "GBK under the older name"},
    {"~{VPND~}", "HZGB2312", "UTF8", 0, "\xe4\xb8\xad\xe6\x96\x87", "HZ"},
    {"a~~b~{VP~}\n~\n.", "HZGB2312", "GB2312", 0, "a~b\xd6\xd0\n.", "tildes and soft ends"},
    {"~{VP\nplain", "HZGB2312", "GB2312", 0, "\xd6\xd0\nplain", "a line end ends the pairs"},
    {"~{VPN", "HZGB2312", "UTF8", 4, "", "ends inside a pair"},
    {"~{VPND", "HZGB2312", "GB2312", 0, "\xd6\xd0\xce\xc4", "no closing mark"},
    {"~x", "HZGB2312", "UTF8", 4, "", "no such escape"},
    {"\xd6\xd0", "HZGB2312", "UTF8", 4, "", "HZ is 7-bit"},
    {"\xe4\xb8\xad~\xe6\x96\x87", "UTF8", "HZGB2312", 0, "~{VP~}~~~{ND~}", "written"},
    {"\xe9\xab\x94", "UTF8", "HZGB2312", 1, "?", "in GBK, but not in GB 2312"},
    {"\xe2\x80\x94\xc2\xb7", "UTF8", "GB2312", 0, "\xa1\xaa\xa1\xa4", "dash and dot"},
    {"a\xcc", "WIN1258", "UTF8", 0, "\xc3\xa0", "composed"},
    {"a", "WIN1258", "UTF8", 0, "a", "ASCII needs no look ahead"},
    {"\xe2", "WIN1258", "UTF8", 0, "\xc3\xa2", "held back until the end"},
    {"+AOQ-", "UTF7", "ISO8859_1", 0, "\xe4", "UTF-7"},
    {"a+b", "IA5", "UTF7", 0, "a+-b", "a plus is escaped"},
    {"\xc3\xa4", "UTF8", "UTF7", 0, "+AOQ-", "ends in ASCII"},
    {"a\xc8"s
     "a",
     "T61", "ISO8859_1", 0, "a\xe4", "an accent before its letter"},
    {"a\0b\0"s, "UTF-16LE", "IA5", 0, "ab", "a set that only iconv knows"},
};

TEST(Strings, AreConverted) {
    for (const ConvertRow& row : kRows) {
        std::string out = "left over";
        EXPECT_EQ(cvc_ConvertString(row.text, row.from, row.to, out), row.result)
            << row.from << ' ' << row.to << ": " << row.why;
        EXPECT_EQ(out, row.expected) << row.from << ' ' << row.to << ": " << row.why;
    }
}

TEST(Strings, CutAnywhereGiveTheSame) {
    for (const ConvertRow& row : kRows) {
        if (row.result == kNoConversion || ccs_same_set(row.from, row.to)) continue;
        for (std::size_t cut = 0; cut <= row.text.size(); ++cut) {
            cvc_Converter converter(row.from, row.to);
            ASSERT_TRUE(converter.available()) << row.from << ' ' << row.to;
            std::string out;
            const bool converted = converter.convert(row.text.substr(0, cut), out) &&
                                   converter.convert(row.text.substr(cut), out) && converter.finish(out);
            EXPECT_EQ(converted, row.result != kNotInSet) << row.why << ", cut at " << cut;
            if (!converted) continue;
            EXPECT_EQ(out, row.expected) << row.why << ", cut at " << cut;
            EXPECT_EQ(converter.lost() != 0, row.result == 1) << row.why;
        }
    }
}

TEST(Strings, ByteByByteGiveTheSame) {
    for (const ConvertRow& row : kRows) {
        if (row.result > 1 || ccs_same_set(row.from, row.to)) continue;
        cvc_Converter converter(row.from, row.to);
        std::string out;
        for (const char c : row.text) ASSERT_TRUE(converter.convert({&c, 1}, out)) << row.why;
        ASSERT_TRUE(converter.finish(out)) << row.why;
        EXPECT_EQ(out, row.expected) << row.why;
    }
}

TEST(Strings, LeaveNothingBehindForTheNext) {
    std::string out;
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(cvc_ConvertString("\x1b$B$\"", "ISO2022JP", "UTF8", out), 0) << "ends shifted";
        EXPECT_EQ(cvc_ConvertString("$\"", "ISO2022JP", "UTF8", out), 0);
        EXPECT_EQ(out, "$\"") << "begins unshifted";
        EXPECT_EQ(cvc_ConvertString("\x1b$B$", "ISO2022JP", "UTF8", out), kNotInSet);
    }
}

TEST(Strings, EverySetReadsWhatItWrites) {
    const std::string_view text = "The quick brown fox; 0123456789 <a@example.org> (50%) = \"x\" + y";
    for (const ccs_Descriptor& set : ccs_sets()) {
        std::string there, back;
        EXPECT_EQ(cvc_ConvertString(text, "UTF8", set.name, there), 0) << set.name;
        EXPECT_EQ(cvc_ConvertString(there, set.name, "UTF8", back), 0) << set.name;
        EXPECT_EQ(back, text) << set.name;
        EXPECT_TRUE(there == text || !set.extends_ascii()) << set.name;
        EXPECT_TRUE(cvc_IsMappingAvail(set.name, "ISO8859_1")) << set.name;
        EXPECT_TRUE(cvc_IsConvertAvail("UTF8", set.name)) << set.name;
    }
}

TEST(Strings, SingleByteSetsAreWhole) {
    for (const ccs_Descriptor& set : ccs_sets()) {
        if (set.shape != ccs_Shape::single || !set.ascii || set.name == kAsciiSet) continue;
        int there = 0;
        for (int byte = 0x80; byte < 0x100; ++byte) {
            std::string middle, back;
            const std::string text(1, static_cast<char>(byte));
            if (cvc_ConvertString(text, set.name, "UTF8", middle) != 0) continue;
            ++there;
            EXPECT_EQ(cvc_ConvertString(middle, "UTF8", set.name, back), 0) << set.name << ' ' << byte;
            EXPECT_EQ(back, text) << set.name;
        }
        EXPECT_GE(there, 64) << set.name;
    }
}

TEST(Strings, LongTextIsConvertedInBlocks) {
    std::string latin, utf8;
    for (int count = 0; count < 50000; ++count) latin += "\xe4x", utf8 += "\xc3\xa4x";
    std::string out;
    EXPECT_EQ(cvc_ConvertString(utf8, "UTF8", "ISO8859_15", out), 0);
    EXPECT_EQ(out, latin);
    EXPECT_EQ(cvc_ConvertString("y" + utf8, "UTF8", "ISO8859_15", out), 0) << "blocks end inside characters";
    EXPECT_EQ(out, "y" + latin);
}

std::string plain_latin1(std::string_view text) {
    std::string utf8;
    for (const char c : text) append_utf8(utf8, static_cast<unsigned char>(c));
    return utf8;
}

// Words of eight bytes, accents at every place of them, and what is left at the end.
TEST(Strings, Latin1OfEveryLengthWithAccentsAnywhere) {
    std::mt19937 random(8859);
    for (std::size_t length = 0; length <= 40; ++length)
        for (int round = 0; round < 300; ++round) {
            const unsigned sparse = 1 + round % 12;
            std::string text;
            while (text.size() < length)
                text += static_cast<char>(random() % sparse == 0 ? 0x80 + random() % 0x80 : random() % 0x80);
            std::string out = "before";
            cvc_Converter converter("ISO8859_1", "UTF8");
            const std::size_t cut = length == 0 ? 0 : random() % length;
            ASSERT_TRUE(converter.convert(std::string_view(text).substr(0, cut), out));
            ASSERT_TRUE(converter.convert(std::string_view(text).substr(cut), out));
            ASSERT_TRUE(converter.finish(out));
            ASSERT_EQ(out, "before" + plain_latin1(text)) << length;
        }
}

TEST(Strings, NothingGoesOutOfAPieceThatCannotBeRead) {
    for (const char* const from : {"IA5", "UTF8", "WIN1252"})
        for (const char* const to : {"UTF8", "ISO8859_1"}) {
            cvc_Converter converter(from, to);
            std::string out;
            EXPECT_TRUE(converter.convert("good ", out));
            EXPECT_FALSE(converter.convert("then \x81 not", out)) << from << ' ' << to;
            EXPECT_EQ(out, "good ") << from << ' ' << to;
        }
}

TEST(Names, AreRecognised) {
    for (const char* name :
         {"IA5", "UTF8", "HZGB2312", "iso-8859-1", "UTF-16", "VISCII", "EUC-TW", "MAC-CYRILLIC", "IBM866"})
        EXPECT_TRUE(cvc_iconv_recognised_charset(name)) << name;
    for (const char* name : {"", "x-unknown", "ISO8859_12", "/etc/passwd", "a b", "UTF-8/", "DECODEIT"})
        EXPECT_EQ(cvc_iconv_recognised_charset(name), std::string_view(name) == "UTF-8/") << name;
    EXPECT_FALSE(cvc_iconv_recognised_charset(std::string(41, 'x'))) << "too long for a name";
}

TEST(Names, OfTheConverter) {
    EXPECT_EQ(cvc_iconvCharsetEquiv("IA5", cvc_Direction::to), "US-ASCII");
    EXPECT_EQ(cvc_iconvCharsetEquiv("us-ascii", cvc_Direction::from), "US-ASCII");
    EXPECT_EQ(cvc_iconvCharsetEquiv("ISO8859_15", cvc_Direction::from), "ISO-8859-15");
    EXPECT_EQ(cvc_iconvCharsetEquiv("x-unknown", cvc_Direction::from), "x-unknown");
}

TEST(Names, UnknownOnesDoNotFillThePool) {
    for (int number = 0; number < 500; ++number)
        EXPECT_FALSE(cvc_iconv_recognised_charset("x-unknown-" + std::to_string(number)));
    EXPECT_TRUE(cvc_iconv_recognised_charset("KOI8_R"));
    cvc_Reset();
    EXPECT_TRUE(cvc_iconv_recognised_charset("KOI8_R"));
}

TEST(Names, MoreConvertersAtATimeThanThePoolHolds) {
    std::vector<std::unique_ptr<cvc_Converter>> open;
    for (int count = 0; count < 40; ++count) open.push_back(std::make_unique<cvc_Converter>("KOI8_R", "UTF8"));
    EXPECT_TRUE(open.front()->available());
    EXPECT_FALSE(open.back()->available());
    open.clear();
    EXPECT_TRUE(cvc_Converter("KOI8_R", "UTF8").available());
}

TEST(Results, ThoseThatCanBeUsed) {
    for (const int result : {-1, 0, 1, 2, 3, 4, 5})
        EXPECT_EQ(cvc_is_usable(result), result == 0 || result == 1 || result == 3);
}

class Items : public ::testing::Test {
protected:
    im_Item item(std::string_view text) const {
        im_Item made = im_CrNewDataItem();
        made.write(text);
        return made;
    }
    static std::string content(const im_Item& item) {
        std::string scratch;
        return std::string(item.head(std::string_view::npos, scratch));
    }
    TestHome home_;
};

TEST_F(Items, IntoMemory) {
    std::string out;
    cvc_FileResult result = cvc_iconvConvertFile2(item("Gr\xc3\xbc\xe2\x82\xac"), out, "UTF-8", "US-ASCII");
    EXPECT_EQ(result.code, 0u);
    EXPECT_EQ(result.lost, 2u);
    EXPECT_EQ(out, "Gr??");
    EXPECT_EQ(cvc_iconvConvertFile2(item("\xff"), out, "UTF8", "IA5").code, kInvalidText);
    EXPECT_EQ(cvc_iconvConvertFile2(item("a\xc3"), out, "UTF8", "IA5").code, kInvalidText) << "ends inside a character";
    EXPECT_EQ(cvc_iconvConvertFile2(item("a"), out, "x-unknown", "IA5").code, kUnknownSet);
    EXPECT_EQ(cvc_iconvConvertFile2(item(""), out, "UTF8", "IA5").code, 0u);
}

TEST_F(Items, IntoAnotherItem) {
    std::string text, expected;
    while (text.size() < 300000) text += "\xe3\x81\x82", expected += "\x82\xa0";  // no block ends at a character's end
    im_Item out = im_CrNewDataItem();
    const cvc_FileResult result = cvc_iconvConvertFile(item(text), out, "UTF8", "SJIS");
    EXPECT_EQ(result.code, 0u);
    EXPECT_EQ(result.lost, 0u);
    EXPECT_EQ(content(out), expected);
}

TEST_F(Items, ResultsAsForStrings) {
    const auto convert = [&](std::string_view text, const char* from) {
        im_Item out = im_CrNewDataItem();
        return cvc_enhConvertFile(item(text), out, from, "ISO8859_1");
    };
    EXPECT_EQ(convert("\xc3\xa4", "UTF8"), 0);
    EXPECT_EQ(convert("\xe2\x82\xac", "UTF8"), 1);
    EXPECT_EQ(convert("\xff", "UTF8"), kNotInSet);
    EXPECT_EQ(convert("x", "x-unknown"), kNoConversion);
}

TEST(Utf8, PrefixesOfTextThatIsCutAndTextThatIsWrong) {
    struct Row {
        std::string text;
        std::size_t valid;
        bool cut;
    };
    const Row rows[] = {
        {"", 0, false},
        {"abc", 3, false},
        {"a\xc3", 1, true},
        {"\xe2\x82", 0, true},
        {"\xf0\x9f\x98", 0, true},
        {"\xc3\xa4\x80", 2, false},
        {"\xe2(", 0, false},
        {"\xe0\x80", 0, false},
        {"\xed\xa0", 0, false},
        {"\xf4\x8f\xbf\xbf", 4, false},
        {"\xf4\x90", 0, false},
        {"\xff", 0, false},
    };
    for (const Row& row : rows) {
        const Utf8Prefix prefix = check_utf8(row.text);
        EXPECT_EQ(prefix.valid, row.valid) << row.text;
        EXPECT_EQ(prefix.cut, row.cut) << row.text;
    }
}

TEST(Utf8, EveryCharacterIsReadAsItWasWritten) {
    for (char32_t code = 0; code < 0x110000; code += code < 0x3000 ? 1 : 251) {
        if (code >= 0xD800 && code <= 0xDFFF) continue;
        std::string text;
        append_utf8(text, code);
        EXPECT_EQ(check_utf8(text).valid, text.size()) << std::uint32_t{code};
        EXPECT_TRUE(first_character(text).code == code) << std::uint32_t{code};
        EXPECT_EQ(first_character(text).length, text.size());
    }
}

}  // namespace
