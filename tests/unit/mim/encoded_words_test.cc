// Decoding of encoded words, in all the ways in which mail writes them.
#include "mim/encoded_words.h"

#include <chrono>
#include <string>

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

struct Row {
    std::string encoded;
    std::string text, charset;  // as declared
    std::string utf8;           // each word for itself
    const char* why;
};

const Row kRows[] = {
    {"", "", "IA5", "", "nothing"},
    {"plain text", "plain text", "IA5", "plain text", "no word"},
    {"Gr\xfc\xdf"s
     "e",
     "Gr\xfc\xdf"s
     "e",
     "",
     "Gr\xfc\xdf"s
     "e",
     "bytes of no known set"},
    {"=?iso-8859-1?Q?Gr=FC=DFe?=",
     "Gr\xfc\xdf"s
     "e",
     "ISO8859_1",
     "Gr\xc3\xbc\xc3\x9f"s
     "e",
     "quoted"},
    {"=?ISO-8859-1?B?R3L832U=?=",
     "Gr\xfc\xdf"s
     "e",
     "ISO8859_1",
     "Gr\xc3\xbc\xc3\x9f"s
     "e",
     "base64"},
    {"=?utf-8?q?a_b=5F=3d?=", "a b_=", "UTF8", "a b_=", "underscores, hex digits of both cases"},
    {"=?utf-8?Q?a=?=", "a=", "UTF8", "a=", "an escape that ends early"},
    {"=?utf-8?Q?a=3?=", "a=3", "UTF8", "a=3", "half an escape"},
    {"=?utf-8?Q?100=zz=41?=", "100=zzA", "UTF8", "100=zzA", "no escape"},
    {"=?utf-8?Q?=C3=A4?=", "\xc3\xa4", "UTF8", "\xc3\xa4", "the first escape directly after the mark"},
    {"=?utf-8?Q?\?=", "", "UTF8", "", "an empty word"},
    {"=?utf-8?Q?a b?=", "a b", "UTF8", "a b", "a blank inside"},
    {"=?utf-8?B?R3L DvM OfZQ==?=",
     "Gr\xc3\xbc\xc3\x9f"s
     "e",
     "UTF8",
     "Gr\xc3\xbc\xc3\x9f"s
     "e",
     "blanks inside base64"},
    {"=?utf-8?b?R3LDvMOfZQ?=",
     "Gr\xc3\xbc\xc3\x9f"s
     "e",
     "UTF8",
     "Gr\xc3\xbc\xc3\x9f"s
     "e",
     "no padding"},
    {"=?utf-8?b?R3LDvMOfZQ=?=",
     "Gr\xc3\xbc\xc3\x9f"s
     "e",
     "UTF8",
     "Gr\xc3\xbc\xc3\x9f"s
     "e",
     "half the padding"},
    {"=?utf-8?b?YQ==Yg==?=", "ab", "UTF8", "ab", "data after padding"},
    {"=?utf-8?b?Y?=", "", "UTF8", "", "six bits are no byte"},
    {"=?utf-8?B?YW!Jj?=", "abc", "UTF8", "abc", "a character that is none of base64"},
    {"=?utf-8*en?Q?colour?=", "colour", "UTF8", "colour", "a language"},
    {"=?utf-8*?Q?colour?=", "colour", "UTF8", "colour", "an empty language"},
    {"=? utf-8 ?Q? colour?=", " colour", "UTF8", " colour", "blanks around the set"},
    {"=?utf-8? Q ?colour?=", "colour", "UTF8", "colour", "blanks around the method"},
    {"=?utf-8?Q?a?= =?utf-8?Q?b?=", "ab", "UTF8", "ab", "white space between words is none of the text"},
    {"=?utf-8?Q?a?=\r\n\t =?utf-8?Q?b?=", "ab", "UTF8", "ab", "folding too"},
    {"=?utf-8?Q?a?==?utf-8?Q?b?=", "ab", "UTF8", "ab", "words that touch"},
    {"=?utf-8?Q?a?= b =?utf-8?Q?c?=", "a b c", "UTF8", "a b c", "other text keeps its blanks"},
    {"a =?utf-8?Q?b?= ", "a b ", "UTF8", "a b ", "at the ends too"},
    {"x=?utf-8?Q?b?=y", "xby", "UTF8", "xby", "text that touches"},
    {"\"=?utf-8?Q?b?=\"", "\"b\"", "UTF8", "\"b\"", "in quotes"},
    {"=?utf-8?Q?=C3?= =?utf-8?Q?=A4?=", "\xc3\xa4", "UTF8", "\xc3\xa4", "a character split between words"},
    {"=?utf-8?B?4g==?= =?UTF-8?Q?=82?= =?utf8?B?rA==?=", "\xe2\x82\xac", "UTF8", "\xe2\x82\xac",
     "and methods and names"},
    {"=?iso-2022-jp?B?GyRCJCI=?= =?iso-2022-jp?B?JCQbKEI=?=", "\x1b$B$\"$$\x1b(B", "ISO2022JP",
     "\xe3\x81\x82\xe3\x81\x84", "a shift that goes on in the next word"},
    {"=?iso-8859-1?Q?=E4?= =?utf-8?Q?=C3=BC?=", "\xe4\xfc", "ISO8859_1", "\xc3\xa4\xc3\xbc", "two sets, in the first"},
    {"=?iso-8859-1?Q?=E4?= =?utf-8?Q?=E2=82=AC?=", "\xc3\xa4\xe2\x82\xac", "UTF8", "\xc3\xa4\xe2\x82\xac",
     "two sets, in neither"},
    {"=?x-unknown?Q?a=E4?=", "a\xe4", "x-unknown", "=?x-unknown?Q?a=E4?=", "an unknown set keeps label and bytes"},
    {"=?x-unknown?Q?a?= =?utf-8?Q?b?=", "ab", "x-unknown", "=?x-unknown?Q?a?= b", "and its blank, when it stays"},
    {"=?utf-8?Q?b?= =?x-unknown?Q?a?=", "ba", "UTF8", "b =?x-unknown?Q?a?=", "the other way round"},
    {"=?us-ascii?Q?=C3=A4?=", "\xc3\xa4", "IA5", "\xc3\xa4", "UTF-8 that is called ASCII"},
    {"=?utf-8?Q?abc=C3?=", "abc\xc3", "UTF8", "abc", "cut off by whoever sent it"},
    {"=?utf-8?Q?=E4bc?=",
     "\xe4"s
     "bc",
     "UTF8", "=?utf-8?Q?=E4bc?=", "not UTF-8 at all: stays"},
    {"=?hz-gb-2312?B?fntWUE5Efn0=?= a~", "~{VPND~} a~~", "HZGB2312", "\xe4\xb8\xad\xe6\x96\x87 a~", "plain text in HZ"},
    {"=?ks_c_5601-1987?B?vsiz5w==?=", "\xbe\xc8\xb3\xe7", "KSC5601", "\xec\x95\x88\xeb\x85\x95", "Korean"},
    {"=?gb2312?B?1tDOxA==?=", "\xd6\xd0\xce\xc4", "GB2312", "\xe4\xb8\xad\xe6\x96\x87", "Chinese"},
    {"=?shift_jis?B?gqA=?=", "\x82\xa0", "SJIS", "\xe3\x81\x82", "Japanese"},
    {"=?utf-8?X?a?=", "=?utf-8?X?a?=", "IA5", "=?utf-8?X?a?=", "no such method"},
    {"=?utf-8?QQ?a?=", "=?utf-8?QQ?a?=", "IA5", "=?utf-8?QQ?a?=", "no such method"},
    {"=?utf-8?Q?a", "=?utf-8?Q?a", "IA5", "=?utf-8?Q?a", "no end"},
    {"=?utf-8?Q?a?", "=?utf-8?Q?a?", "IA5", "=?utf-8?Q?a?", "no end"},
    {"=??Q?a?=", "=??Q?a?=", "IA5", "=??Q?a?=", "no set"},
    {"=?*en?Q?a?=", "=?*en?Q?a?=", "IA5", "=?*en?Q?a?=", "no set"},
    {"=?u t f?Q?a?=", "=?u t f?Q?a?=", "IA5", "=?u t f?Q?a?=", "a set of three words"},
    {"=?", "=?", "IA5", "=?", "a beginning"},
    {"=?=?utf-8?Q?a?=", "=?a", "UTF8", "=?a", "a beginning before a word"},
    {"what =? 1 ?= 2", "what =? 1 ?= 2", "IA5", "what =? 1 ?= 2", "both marks, and no word"},
};

TEST(Words, AreDecodedInTheirSet) {
    for (const Row& row : kRows) {
        const mim_DecodedText decoded = mim_2047_to_string_and_cset_dstring(row.encoded);
        EXPECT_EQ(decoded.text, row.text) << row.encoded << ": " << row.why;
        EXPECT_EQ(decoded.charset, row.charset) << row.encoded << ": " << row.why;
        EXPECT_TRUE(decoded.converted);
    }
}

TEST(Words, AreDecodedIntoUtf8) {
    for (const Row& row : kRows)
        EXPECT_EQ(mim_DecodeMimeCharStr(row.encoded), row.utf8) << row.encoded << ": " << row.why;
}

struct TargetRow {
    std::string encoded;
    const char* target;
    bool converted;
    std::string text, charset;
    const char* why;
};

const TargetRow kTargetRows[] = {
    {"=?iso-8859-1?Q?=E4?= b", "UTF8", true, "\xc3\xa4 b", "UTF8", "converted"},
    {"=?utf-8?Q?=E2=82=AC?=", "ISO8859_1", true, "?", "ISO8859_1", "what the set does not have"},
    {"=?utf-8?Q?=C3=A4?=", "UTF8", true, "\xc3\xa4", "UTF8", "in its set already"},
    {"plain", "UTF8", true, "plain", "UTF8", "no word"},
    {"a~b", "HZGB2312", true, "a~~b", "HZGB2312", "plain text in a set that is not ASCII"},
    {"\xc3\xa4", "ISO8859_1", true, "\xe4", "ISO8859_1", "bytes that can only be UTF-8"},
    {"\xe4", "UTF8", false, "\xe4", "", "bytes that cannot"},
    {"=?iso-8859-1?Q?=E4?= \xe4", "UTF8", true, "\xc3\xa4 \xc3\xa4", "UTF8", "bytes beside a word are in its set"},
    {"=?x-unknown?Q?=E4?=", "UTF8", false, "\xe4", "x-unknown", "no such conversion"},
    {"=?utf-8?Q?=C3=A4?=", "x-unknown", false, "\xc3\xa4", "UTF8", "no such conversion"},
    {"=?utf-8?Q?=E4bc?=", "ISO8859_1", false,
     "\xe4"s
     "bc",
     "UTF8", "not text of its set"},
    {"=?hz-gb-2312?B?fntWUE5Efn0=?=", "GB2312", true, "\xd6\xd0\xce\xc4", "GB2312", "HZ"},
};

TEST(Words, AreDecodedIntoATarget) {
    for (const TargetRow& row : kTargetRows) {
        const mim_DecodedText decoded = mim_2047_to_string_and_cset_dstring(row.encoded, row.target);
        EXPECT_EQ(decoded.converted, row.converted) << row.encoded << ": " << row.why;
        EXPECT_EQ(decoded.text, row.text) << row.encoded << ": " << row.why;
        EXPECT_EQ(decoded.charset, row.charset) << row.encoded << ": " << row.why;
    }
}

TEST(Words, ReportAtMost39CharactersOfTheSet) {
    const std::string name(39, 'x');
    EXPECT_EQ(mim_2047_to_string_and_cset_dstring("=?" + name + "?Q?a?=").charset, name);
    EXPECT_EQ(mim_2047_to_string_and_cset_dstring("=?" + name + "y?Q?a?=").charset, name);
    EXPECT_EQ(mim_2047_to_string_and_cset_dstring("=?" + std::string(79, 'x') + "?Q?a?=").text, "a");
    EXPECT_EQ(mim_2047_to_string_and_cset_dstring("=?" + std::string(80, 'x') + "?Q?a?=").charset, "IA5")
        << "that is no name";
}

TEST(Words, HostileTextCostsLittle) {
    const auto start = std::chrono::steady_clock::now();
    for (const char* piece : {"=?", "=?a?Q?", "=?a?Q?x", "?=", "=?utf-8?Q?a?=", "=?x-y?B?YQ==?= ", "=?=?a?q?=",
                              "=?a?b?=\xff", "=?utf-8?Q?=C3?= "}) {
        std::string text;
        while (text.size() < 200'000) text += piece;
        mim_2047_to_string_and_cset_dstring(text);
        mim_2047_to_string_and_cset_dstring(text, "UTF8");
        mim_DecodeMimeCharStr(text);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

}  // namespace
