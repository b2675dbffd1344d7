// The character set of a text part: labelled, supplied, detected, proven, converted.
#include "ux_mimein/part_charset.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/log_lines.h"
#include "support/mime.h"

namespace {

using namespace std::string_literals;

constexpr const char* kAlways = "";
constexpr const char* kUnlabelled = "UXI_MIME_CS_AUTODETECT = \"unlabelled\"\n";
constexpr const char* kNever = "UXI_MIME_CS_AUTODETECT = false\n";

std::string with_default(std::string_view keys, std::string_view set) {
    return std::string(keys) + "UXI_UNIX_MAIL_CHARSET = \"" + std::string(set) + "\"\n";
}

const std::string kUtf8 = "gr\xc3\xbc\xc3\x9f gott aus m\xc3\xbcnchen";
const std::string kLatin1 = "gr\xfc\xdf gott aus m\xfcnchen";
const std::string kJapanese = "\x1b$B$3$s$K$A$O@$3&\x1b(B";
const std::string kNoSet = "\x81\x8d\x8f\x81";  // what the detector says nothing about

struct Row {
    std::string keys;
    const char* type;
    std::string text;
    std::string record;  // code, set, and the content type behind "|"
    const char* why;
    const char* disposition = "";
};

class PartCharset : public testing::Test {
protected:
    // "1736 UTF8|text/plain; charset=UTF-8"
    std::string settled(const Row& row) {
        process_.restart_with(row.keys);
        ux_MimePart part;
        part.header.pszSubPartType = row.type;
        part.header.pszContentDisposition = row.disposition;
        part.header.pszSubPartEncoding = "quoted-printable";
        part.AtTopLevel = true;
        made_ = process_.convert(part, quoted(row.text) + "=\n.\n");
        return record_of(made_.records.back());
    }
    static std::string record_of(const std::string& line) {
        std::string record = line.substr(6, line.find(" subject[") - 6);
        const std::size_t set = record.find(" set[");
        std::string name;
        if (set != std::string::npos) {
            const std::size_t end = record.find(']', set);
            name = record.substr(set + 5, end - set - 5);
        }
        const std::size_t type = record.find(" type[");
        std::string content = record.substr(type + 6);
        content.resize(content.find(']'));
        return record.substr(0, record.find(' ')) + " " + name + "|" + content;
    }
    static std::string quoted(std::string_view text) {
        constexpr std::string_view hex = "0123456789ABCDEF";
        std::string out;
        for (const char c : text) {
            const auto byte = static_cast<unsigned char>(c);
            out += '=';
            out += hex[byte >> 4];
            out += hex[byte & 15];
            if (out.size() % 600 == 0) out += "=\n";
        }
        return out;
    }
    std::string bytes() const { return made_.items.empty() ? "(no item)" : made_.items.back(); }

    MimeProcess process_;
    ConvertedMime made_;
};

TEST_F(PartCharset, DetectedAlways) {
    const Row rows[] = {
        {kAlways, "text/plain; charset=utf-8", kUtf8, "1736 UTF8|text/plain; charset=utf-8", "right as it is"},
        {kAlways, "text/plain; charset=UTF8; format=flowed", kUtf8, "1736 UTF8|text/plain; charset=UTF8; format=flowed",
         "by whatever name: nothing is rewritten"},
        {kAlways, "text/plain; charset=us-ascii", kUtf8, "1736 UTF8|text/plain; charset=UTF-8", "a wrong label"},
        {kAlways, "text/plain; charset=us-ascii; format=flowed; name=x", kUtf8, "1736 UTF8|text/plain; charset=UTF-8",
         "the other parameters go with the type"},
        {kAlways, "text/html; charset=us-ascii", kUtf8, "2133 UTF8|text/html; charset=UTF-8", "of HTML"},
        {kAlways, "TEXT/HTML; charset=us-ascii", kUtf8, "2133 UTF8|text/html; charset=UTF-8", "in any case"},
        {kAlways, "text/enriched; charset=us-ascii", kUtf8, "1736 UTF8|text/plain; charset=UTF-8",
         "any text becomes plain"},
        {kAlways, "text/plain; charset=utf-8", "plain", "1167 IA5|text/plain; charset=US-ASCII", "ASCII is ASCII"},
        {kAlways, "text/plain; charset=iso-8859-1", kUtf8, "1736 UTF8|text/plain; charset=UTF-8",
         "Latin-1 that is none"},
        {kAlways, "text/plain", kUtf8, "1736 UTF8|text/plain; charset=UTF-8", "no label"},
        {kAlways, "text/plain", "plain", "1167 IA5|text/plain; charset=US-ASCII", "no label and ASCII"},
        {kAlways, "text/plain; charset=us-ascii", kJapanese, "1736 ISO2022JP|text/plain; charset=ISO-2022-JP",
         "7-bit text with escapes"},
        {kAlways, "text/plain; charset=x-none", "plain", "1167 IA5|text/plain; charset=US-ASCII", "an unknown label"},
        {kAlways, "text/plain; charset=\"utf-8\"", kUtf8, "1736 UTF8|text/plain; charset=\"utf-8\"", "a quoted label"},
        {kAlways, "text/plain; charset=", "plain", "1167 IA5|text/plain; charset=US-ASCII", "an empty one is none"},
        {kAlways, "text/plain; charset=utf-8", "", "1167 IA5|text/plain; charset=US-ASCII", "nothing is ASCII"},
        {kAlways, "", kUtf8, "1736 UTF8|text/plain; charset=UTF-8", "no type"},
        {"UXI_MIME_CS_AUTODETECT = true\n", "text/plain; charset=us-ascii", kUtf8,
         "1736 UTF8|text/plain; charset=UTF-8", "asked for"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(settled(row), row.record) << row.why;
        EXPECT_EQ(bytes(), row.text) << row.why << ": its bytes are what they were";
    }
}

TEST_F(PartCharset, DetectedWhereTheLabelMeansLittle) {
    const Row rows[] = {
        {kUnlabelled, "text/plain", kUtf8, "1736 UTF8|text/plain; charset=UTF-8", "no label"},
        {kUnlabelled, "text/plain; format=flowed", kUtf8, "1736 UTF8|text/plain; charset=UTF-8", "nothing of it stays"},
        {kUnlabelled, "text/plain; charset=us-ascii", kUtf8, "1736 UTF8|text/plain; charset=UTF-8",
         "ASCII that is none"},
        {kUnlabelled, "text/plain; charset=us-ascii; format=flowed", kUtf8,
         "1736 UTF8|text/plain; charset=UTF-8; format=flowed", "only its label changes"},
        {kUnlabelled, "text/enriched; charset=us-ascii", kUtf8, "1736 UTF8|text/enriched; charset=UTF-8",
         "and not its type"},
        {kUnlabelled, "text/html; charset=us-ascii", kUtf8, "2133 UTF8|text/html; charset=UTF-8", "of HTML"},
        {kUnlabelled, "text/plain; charset=iso-8859-1", kUtf8, "1167 ISO8859_1|text/plain; charset=iso-8859-1",
         "any bytes can be Latin-1"},
        {kUnlabelled, "text/plain; charset=utf-7", kUtf8, "1736 UTF8|text/plain; charset=UTF-8", "UTF-7 that is none"},
        {kUnlabelled, "text/plain; charset=utf-8", kLatin1, "1736 UTF8|text/plain; charset=utf-8",
         "another label is believed, true or not"},
        {kUnlabelled, "text/plain; charset=utf-8", "plain", "1167 IA5|text/plain; charset=US-ASCII",
         "but ASCII is called ASCII"},
        {kUnlabelled, "text/plain; charset=utf-8; format=flowed", "plain", "1167 IA5|text/plain; charset=US-ASCII",
         "and the type anew"},
        {kUnlabelled, "text/plain; charset=x-none", "plain", "1167 IA5|text/plain; charset=US-ASCII",
         "an unknown label of ASCII"},
        {kUnlabelled, "text/plain; charset=x-none; format=flowed", "plain",
         "1167 IA5|text/plain; charset=US-ASCII; format=flowed", "of which only the label goes"},
        {kUnlabelled, "text/plain; charset=x-none", kUtf8, "1736 x-none|text/plain; charset=x-none", "of other text"},
        {kUnlabelled, "text/plain; charset=us-ascii", kNoSet, "1167 IA5|text/plain; charset=us-ascii",
         "bytes that are nothing"},
        {kUnlabelled, "text/plain", kNoSet, "1167 IA5|text/plain; charset=US-ASCII", "without a label"},
        {kUnlabelled, "text/plain; charset=us-ascii", kNoSet, "1736 KOI8_R|text/plain; charset=KOI8-R",
         "in the set of its name", "attachment; filename=\"=?koi8-r?q?=C1?=\""},
        {kUnlabelled, "text/plain; charset=us-ascii", kNoSet, "1167 IA5|text/plain; charset=us-ascii",
         "T.61 is a set of interchange: text is never said to be in it",
         "attachment; filename=\"=?t.61-8bit?q?=C1?=\""},
        {kUnlabelled, "text/plain; charset=hz-gb-2312", "~{VPND~}", "1736 HZGB2312|text/plain; charset=hz-gb-2312",
         "HZ is not looked at"},
        {kUnlabelled, "text/plain; charset=iso-2022-jp", kJapanese, "1736 ISO2022JP|text/plain; charset=iso-2022-jp",
         "7-bit text that is not ASCII"},
        {kUnlabelled, "text/plain; charset=us-ascii", kJapanese, "1167 IA5|text/plain; charset=us-ascii",
         "ASCII is ASCII, escapes and all"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(settled(row), row.record) << row.why;
        EXPECT_EQ(bytes(), row.text) << row.why << ": its bytes are what they were";
    }
}

TEST_F(PartCharset, NeverDetected) {
    const Row rows[] = {
        {kNever, "text/plain; charset=us-ascii", kUtf8, "1167 IA5|text/plain; charset=us-ascii", "a wrong label stays"},
        {kNever, "text/plain", kUtf8, "1167 IA5|text/plain; charset=US-ASCII", "so does the default"},
        {kNever, "text/plain; charset=x-none", "plain", "1736 x-none|text/plain; charset=x-none", "and an unknown one"},
        {kNever, "text/plain; charset=utf-8", "plain", "1167 IA5|text/plain; charset=US-ASCII",
         "that a text is ASCII is proven, not detected"},
        {kNever, "text/plain; charset=utf-8", kLatin1, "1736 UTF8|text/plain; charset=utf-8",
         "a label that is not true"},
        {with_default(kNever, "ISO8859_15"), "text/plain", kLatin1, "1736 ISO8859_15|text/plain; charset=ISO-8859-15",
         "the default set"},
        {with_default(kNever, "ISO8859_15"), "text/plain", "plain", "1167 IA5|text/plain; charset=US-ASCII",
         "of ASCII text"},
        {with_default(kNever, "X_NONE"), "text/plain; x=y", "plain", "1167 IA5|text/plain; x=y; charset=US-ASCII",
         "one that proves nothing"},
        {with_default(kNever, "X_NONE"), "text/plain; x=y", kLatin1, "1736 X_NONE|text/plain; x=y; charset=X_NONE",
         "of other text"},
        {with_default(kNever, ""), "text/plain; x=y", "plain", "1167 IA5|text/plain; x=y; charset=US-ASCII",
         "an empty default"},
        {with_default(kNever, "ISO8859_15_and_more"), "text/plain", kLatin1,
         "1736 ISO8859_15_and|text/plain; charset=ISO8859_15_and", "a default is 14 characters at most"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(settled(row), row.record) << row.why;
        EXPECT_EQ(bytes(), row.text) << row.why << ": its bytes are what they were";
    }
}

TEST_F(PartCharset, TheSetThatIsCustomaryHere) {
    const Row rows[] = {
        {with_default(kUnlabelled, "ISO2022CN"), "text/plain; charset=us-ascii", kNoSet,
         "1736 GB2312|text/plain; charset=GB2312", "Chinese"},
        {with_default(kUnlabelled, "GB2312"), "text/plain; charset=us-ascii", kNoSet,
         "1736 GB2312|text/plain; charset=GB2312", "Chinese"},
        {with_default(kUnlabelled, "ISO2022KR"), "text/plain; charset=us-ascii", kNoSet,
         "1736 KSC5601|text/plain; charset=EUC-KR", "Korean"},
        {with_default(kUnlabelled, "KSC5601"), "text/plain; charset=us-ascii", kNoSet,
         "1736 KSC5601|text/plain; charset=EUC-KR", "Korean"},
        {with_default(kUnlabelled, "KSC5601"), "text/plain; charset=us-ascii", kUtf8,
         "1736 UTF8|text/plain; charset=UTF-8", "what is recognised goes before it"},
        {with_default(kUnlabelled, "SJIS"), "text/plain; charset=us-ascii", kNoSet,
         "1167 IA5|text/plain; charset=us-ascii", "no other set is"},
    };
    for (const Row& row : rows) EXPECT_EQ(settled(row), row.record) << row.keys;
}

TEST_F(PartCharset, OfPartsThatAreNoTextNothingIsTouched) {
    const Row rows[] = {
        {kAlways, "application/x-y; charset=us-ascii", kUtf8, "0 IA5|application/x-y; charset=us-ascii", "binary"},
        {kAlways, "application/rtf", kUtf8, "2130 |application/rtf", "rich text"},
        {kAlways, "application/x-y", "plain", "0 |application/x-y", "ASCII"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(settled(row), row.record) << row.why;
        EXPECT_EQ(bytes(), row.text) << row.why;
    }
}

TEST_F(PartCharset, HowMuchIsLookedAt) {
    const std::string late = std::string(100, 'x') + kUtf8;
    const Row rows[] = {
        {"UXI_AUTODETECT_SCAN_LIMIT = 100\n", "text/plain; charset=utf-8", late,
         "1167 IA5|text/plain; charset=US-ASCII", "the first 100 bytes say ASCII"},
        {"UXI_AUTODETECT_SCAN_LIMIT = 110\n", "text/plain; charset=us-ascii", late,
         "1736 UTF8|text/plain; charset=UTF-8", "a little more"},
        {"UXI_AUTODETECT_SCAN_LIMIT = 0\n", "text/plain; charset=us-ascii", late, "1736 UTF8|text/plain; charset=UTF-8",
         "all of it"},
        {"UXI_AUTODETECT_SCAN_LIMIT = -1\n", "text/plain; charset=us-ascii", late,
         "1736 UTF8|text/plain; charset=UTF-8", "all of it"},
        {kAlways, "text/plain; charset=us-ascii", std::string(10'240, 'x') + kUtf8,
         "1167 IA5|text/plain; charset=us-ascii", "10,240 bytes"},
        {kAlways, "text/plain; charset=us-ascii", std::string(10'200, 'x') + kUtf8,
         "1736 UTF8|text/plain; charset=UTF-8", "unless there is something in them"},
    };
    for (const Row& row : rows) EXPECT_EQ(settled(row), row.record) << row.why;
}

TEST_F(PartCharset, ALargeTextIsProvenWithoutHoldingIt) {
    const Row ascii{kNever, "text/plain; charset=utf-16le", "", "1167 IA5|text/plain; charset=US-ASCII", ""};
    for (const std::size_t characters : {524'287U, 524'288U}) {  // a byte or two below 1 MiB, and 1 MiB
        Row row = ascii;
        for (std::size_t i = 0; i < characters; ++i) row.text += "a\0"s;
        EXPECT_EQ(settled(row), row.record) << characters;
        EXPECT_TRUE(bytes() == std::string(characters, 'a')) << characters << ": its bytes are those of ASCII now";
    }
}

TEST_F(PartCharset, WhatIsLogged) {
    const auto logged = [&](const char* type, const std::string& text) {
        const LogLines log(11);
        settled({kAlways, type, text, "", ""});
        return log.first("11 100.24070 Valid") + log.first("7 100.24071 Invalid");
    };
    EXPECT_EQ(logged("text/plain; charset=us-ascii", kUtf8),
              "11 100.24070 Valid body charset detected= UTF8 , default= IA5");
}

struct ConversionRow {
    const char *steering, *type, *text;
    const char* record;
    const char* bytes;
    const char* why;
};

// What the steering file makes of a part whose label is believed.
class PartConversion : public PartCharset {
protected:
    void check(const ConversionRow& row) {
        process_.home.write("sys/mimein.str", row.steering);
        EXPECT_EQ(settled({kUnlabelled, row.type, row.text, "", ""}), row.record) << row.why;
        EXPECT_EQ(bytes(), row.bytes) << row.why;
        const std::string size = " " + std::to_string(bytes().size()) + " type[";
        EXPECT_NE(made_.records[0].find(size), std::string::npos) << row.why << ": the size is that of what came out";
        EXPECT_EQ(process_.home.files("data").size(), 0U) << row.why << ": everything was taken away";
    }
};

TEST_F(PartConversion, ToATargetSet) {
    const char* const to_latin1 = "[[target]]\nfrom = \"*\"\nto = \"ISO8859_1\"\n";
    const char* const to_ascii = "[[target]]\nfrom = \"*\"\nto = \"IA5\"\n";
    const char* const to_utf8 = "[[target]]\nfrom = \"*\"\nto = \"UTF8\"\n";
    const char* const html_only = "[[target]]\nfrom = \"*\"\ntype = 2133\nto = \"UTF8\"\n";
    const ConversionRow rows[] = {
        {to_latin1, "text/plain; charset=utf-8", "gr\xc3\xbcn", "1167 ISO8859_1|text/plain; charset=ISO-8859-1",
         "gr\xfcn", "Latin-1 is plain text"},
        {"[[target]]\nfrom = \"UTF8\"\nto = \"ISO8859_15\"\n", "text/plain; charset=utf-8", "\xe2\x82\xac",
         "1736 ISO8859_15|text/plain; charset=ISO-8859-15", "\xa4", "another set is text in another set"},
        {to_utf8, "text/html; charset=iso-8859-1", "gr\xfcn", "2133 UTF8|text/html; charset=UTF-8", "gr\xc3\xbcn",
         "HTML stays HTML"},
        {to_utf8, "text/plain; charset=iso-8859-15; format=flowed", "\xa4",
         "1736 UTF8|text/plain; charset=UTF-8; format=flowed", "\xe2\x82\xac", "other parameters stay"},
        {to_utf8, "text/plain; charset=us-ascii", "a", "1167 IA5|text/plain; charset=us-ascii", "a",
         "plain ASCII is converted into nothing"},
        {to_utf8, "text/html; charset=us-ascii", "a", "2133 UTF8|text/html; charset=UTF-8", "a",
         "but HTML in ASCII is"},
        {to_utf8, "text/plain; charset=utf-8", "\xc3\xbc", "1736 UTF8|text/plain; charset=utf-8", "\xc3\xbc",
         "into its own set: no conversion"},
        {to_ascii, "text/plain; charset=utf-8", "gr\xc3\xbcn", "1167 ISO8859_1|text/plain; charset=ISO-8859-1",
         "gr\xfcn", "ASCII is raised to Latin-1"},
        {to_ascii, "text/plain; charset=iso-8859-1", "gr\xfcn", "1167 ISO8859_1|text/plain; charset=iso-8859-1",
         "gr\xfcn", "which it is already"},
        {to_latin1, "text/plain; charset=utf-8", "1 \xe2\x82\xac", "1167 ISO8859_1|text/plain; charset=ISO-8859-1",
         "1 ?", "what the set does not have is replaced"},
        {to_latin1, "text/plain; charset=utf-8", "gr\xfcn", "1736 UTF8|text/plain; charset=utf-8", "gr\xfcn",
         "text that is not what it says stays as it is"},
        {to_latin1, "text/plain; charset=x-none", "gr\xfcn", "1736 x-none|text/plain; charset=x-none", "gr\xfcn",
         "a set that nobody knows"},
        {"[[target]]\nfrom = \"*\"\nto = \"X_NONE\"\n", "text/plain; charset=utf-8", "\xc3\xbc",
         "1736 UTF8|text/plain; charset=utf-8", "\xc3\xbc", "a target that nobody knows"},
        {html_only, "text/plain; charset=iso-8859-15", "\xa4", "1736 ISO8859_15|text/plain; charset=iso-8859-15",
         "\xa4", "a rule for another type"},
        {"[[target]]\nfrom = \"KOI8_R\"\nto = \"UTF8\"\n", "text/plain; charset=iso-8859-15", "\xa4",
         "1736 ISO8859_15|text/plain; charset=iso-8859-15", "\xa4", "a rule for another set"},
        {to_utf8, "text/plain; charset=hz-gb-2312", "~{VPND~}", "1736 UTF8|text/plain; charset=UTF-8",
         "\xe4\xb8\xad\xe6\x96\x87", "HZ is decoded"},
        {to_utf8, "application/x-y; charset=iso-8859-1", "gr\xfcn", "0 ISO8859_1|application/x-y; charset=iso-8859-1",
         "gr\xfcn", "what is no text has no target"},
        {to_utf8, "text/calendar; charset=iso-8859-1", "gr\xfcn", "2191 ISO8859_1|text/calendar; charset=iso-8859-1",
         "gr\xfcn", "nor has a calendar"},
    };
    ux_mime_state().IcalNowAttachment = true;
    for (const ConversionRow& row : rows) check(row);
}

TEST_F(PartConversion, ByAConverter) {
    const char* const upper =
        "[[convert]]\ntype = 2133\nfrom = \"*\"\nto_type = 1167\nto = \"ISO8859_1\"\nconverter = \"up\"\n"
        "[converter.up]\ncommand = [\"/usr/bin/tr\", \"a-z\", \"A-Z\"]\n";
    const char* const fails =
        "[[convert]]\ntype = 2133\nfrom = \"*\"\nto_type = 1167\nto = \"ISO8859_1\"\nconverter = \"no\"\n"
        "[[target]]\nfrom = \"*\"\nto = \"UTF8\"\n"
        "[converter.no]\ncommand = [\"/bin/false\"]\n";
    const char* const missing =
        "[[convert]]\ntype = 2133\nfrom = \"*\"\nto_type = 1167\nto = \"UTF8\"\nconverter = \"none\"\n"
        "[converter.none]\ncommand = [\"/nowhere/none\"]\n";
    const char* const discard = "[[discard]]\ntype = 2133\nfrom = \"*\"\n";
    const char* const binary =
        "[[convert]]\ntype = 0\nfrom = \"*\"\nto_type = 1736\nto = \"UTF8\"\nconverter = \"up\"\n"
        "[converter.up]\ncommand = [\"/usr/bin/tr\", \"a-z\", \"A-Z\"]\n";
    const ConversionRow rows[] = {
        {upper, "text/html; charset=us-ascii", "<b>a</b>", "1167 ISO8859_1|text/html; charset=ISO-8859-1", "<B>A</B>",
         "its type is as it came, with the new set"},
        {upper, "text/plain; charset=iso-8859-15", "\xa4", "1736 ISO8859_15|text/plain; charset=iso-8859-15", "\xa4",
         "a rule for another type"},
        {fails, "text/html; charset=iso-8859-1", "gr\xfcn", "2133 UTF8|text/html; charset=UTF-8", "gr\xc3\xbcn",
         "one that fails leaves the part to its target set"},
        {missing, "text/html; charset=us-ascii", "a", "2133 IA5|text/html; charset=us-ascii", "a",
         "one that cannot be run leaves the part as it is"},
        {discard, "text/html; charset=us-ascii", "a", "2133 IA5|text/html; charset=us-ascii", "a",
         "a MIME part is never thrown away"},
        {binary, "application/x-y; charset=utf-8", "a", "1736 UTF8|application/x-y; charset=UTF-8", "A",
         "a part that is no text"},
        {binary, "application/x-y", "a", "1736 UTF8|application/x-y; charset=UTF-8", "A", "nor had a set"},
    };
    for (const ConversionRow& row : rows) check(row);
}

TEST_F(PartConversion, WithoutASteeringFileNothingIsAsked) {
    settled({kUnlabelled, "text/plain; charset=utf-8", "gr\xc3\xbcn", "", ""});
    EXPECT_EQ(bytes(), "gr\xc3\xbcn");
    process_.home.write("sys/unixin.str", "[[target]]\nfrom = \"*\"\nto = \"ISO8859_1\"\n");
    settled({kUnlabelled, "text/plain; charset=utf-8", "gr\xc3\xbcn", "", ""});
    EXPECT_EQ(bytes(), "gr\xfcn") << "that of all text does as well";
}

TEST_F(PartConversion, TheNewTypeIsBounded) {
    process_.home.write("sys/mimein.str", "[[target]]\nfrom = \"*\"\nto = \"ISO8859_1\"\n");
    const std::string type = "text/plain; x=" + std::string(989, 'y') + "; charset=utf-8";
    const std::string record = settled({kUnlabelled, type.c_str(), "gr\xc3\xbcn", "", ""});
    EXPECT_EQ(record.size(), std::string("1167 ISO8859_1|").size() + type.size() + 5) << "ISO-8859-1: still whole";
    const std::string longest = "text/plain; charset=utf-8; x=" + std::string(1000, 'y');
    const std::string cut = settled({kUnlabelled, longest.c_str(), "gr\xc3\xbcn", "", ""});
    EXPECT_EQ(cut.size(), std::string("1167 ISO8859_1|").size() + 1023);
}

}  // namespace
