// Is a declared set true, is text ASCII, and the steering converters of MIME parts.
#include "ux_mimein/conversion.h"

#include <string>

#include <gtest/gtest.h>

#include "cvr/cvr.h"
#include "im/im.h"
#include "support/home.h"
#include "support/log_lines.h"

namespace {

using namespace std::string_literals;

class Conversion : public ::testing::Test {
protected:
    Conversion() { cvr_TidyUp(); }
    ~Conversion() override { cvr_TidyUp(); }

    static im_Item item(std::string_view text) {
        im_Item made = im_CrNewDataItem();
        made.write(text);
        return made;
    }
    static std::string content(const im_Item& made) {
        std::string scratch;
        return std::string(made.head(std::string_view::npos, scratch));
    }
    TestHome home_;
};

struct ValidityRow {
    std::string text;
    const char* set;
    bool valid, changed;
    std::string after, set_after;
    const char* why;
};

const ValidityRow kValidityRows[] = {
    {"plain", "IA5", true, false, "plain", "IA5", "ASCII called ASCII"},
    {"caf\xe9", "IA5", false, false, "caf\xe9", "IA5", "8-bit text called ASCII"},
    {"plain", "UTF8", true, true, "plain", "IA5", "ASCII called UTF-8"},
    {"caf\xc3\xa9", "UTF8", true, false, "caf\xc3\xa9", "UTF8", "UTF-8"},
    {"caf\xe9", "UTF8", false, false, "caf\xe9", "UTF8", "no UTF-8"},
    {"plain", "ISO8859_15", true, true, "plain", "IA5", "ASCII called Latin-9"},
    {"caf\xe9", "ISO8859_15", true, false, "caf\xe9", "ISO8859_15", "Latin-9"},
    {"\x81", "WIN1252", false, false, "\x81", "WIN1252", "a hole in the code page"},
    {"plain", "ISO2022JP", true, true, "plain", "IA5", "no shifts"},
    {"\x1b(Bplain", "ISO2022JP", true, true, "plain", "IA5", "a shift to ASCII goes away"},
    {"\x1b$B$\"\x1b(B", "ISO2022JP", true, false, "\x1b$B$\"\x1b(B", "ISO2022JP", "7-bit, but not ASCII"},
    {"a+-b", "UTF7", true, true, "a+b", "IA5", "UTF-7 is decoded"},
    {"+AOQ-", "UTF7", true, false, "+AOQ-", "UTF7", "7-bit, but not ASCII"},
    {"~{VPND~}", "HZGB2312", true, false, "~{VPND~}", "HZGB2312", "HZ is not looked at"},
    {"~x", "HZGB2312", true, false, "~x", "HZGB2312", "nor when it is none"},
    {"plain", "x-unknown", false, false, "plain", "x-unknown", "no such set"},
    {"a\0b\0"s, "UTF-16LE", true, true, "ab", "IA5", "a set without a native name"},
    {"", "UTF8", true, true, "", "IA5", "nothing is ASCII"},
    {"plain", "us-ascii", true, false, "plain", "us-ascii", "ASCII under another name"},
};

TEST_F(Conversion, DeclaredSetsAreChecked) {
    for (const ValidityRow& row : kValidityRows) {
        im_Item part = item(row.text);
        const ITEM_REF before = part.ref();
        std::string set = row.set;
        const ux_TextValidity validity = ux_validateTextFileCharset(part, set);
        EXPECT_EQ(validity.valid, row.valid) << row.why;
        EXPECT_EQ(validity.pCsetChanged, row.changed) << row.why;
        EXPECT_EQ(content(part), row.after) << row.why;
        EXPECT_EQ(set, row.set_after) << row.why;
        EXPECT_EQ(part.ref(), before) << "the item keeps its name";
    }
}

TEST_F(Conversion, LargeItemsAreConvertedOutsideMemory) {
    for (const std::size_t size : {std::size_t{1'048'575}, std::size_t{1'048'576}, std::size_t{1'048'577}}) {
        const LogLines log(11);
        im_Item part = item("\x1b(B" + std::string(size - 3, 'a'));
        std::string set = "ISO2022JP";
        const ux_TextValidity validity = ux_validateTextFileCharset(part, set);
        EXPECT_TRUE(validity.valid && validity.pCsetChanged) << size;
        EXPECT_EQ(set, "IA5");
        EXPECT_EQ(part.size(), size - 3);
        EXPECT_EQ(content(part), std::string(size - 3, 'a')) << size;
        EXPECT_EQ(log.count("11 100.24070"), size < 1'048'576 ? 1u : 0u) << "only small items are converted in memory";
        EXPECT_TRUE(home_.files("data/4").empty()) << "no scratch file is left";
    }
}

TEST_F(Conversion, LargeItemsThatAreAsciiAreNotRewritten) {
    im_Item part = item(std::string(1'100'000, 'a'));
    std::string set = "KOI8_R";
    EXPECT_TRUE(ux_validateTextFileCharset(part, set).pCsetChanged);
    EXPECT_EQ(set, "IA5");
    part.overwrite(1'000'000, "\xc1");
    set = "KOI8_R";
    EXPECT_FALSE(ux_validateTextFileCharset(part, set).pCsetChanged);
    set = "UTF8";
    EXPECT_FALSE(ux_validateTextFileCharset(part, set).valid);
}

TEST_F(Conversion, TheCheckNamesItsConverters) {
    const LogLines log(11);
    im_Item part = item("plain");
    std::string set = "ISO8859_15";
    ux_validateTextFileCharset(part, set);
    EXPECT_NE(log.first("11 100.24070").find("ux_validateTextFileCharset: cvc_iconvConvertFile2 Fr="),
              std::string::npos);
    EXPECT_NE(log.first("11 100.24070").find("ISO-8859-15"), std::string::npos) << log.first("11 100.24070");
}

constexpr std::string_view kSteering = R"(
[[convert]]
type = 1
from = "*"
to_type = 1736
to = "UTF8"
converter = "env"
[[convert]]
type = 2
from = "UTF8"
to_type = 2
to = "UTF8"
converter = "env"
[[convert]]
type = 3
from = "*"
to_type = 1167
to = "IA5"
converter = "none"
[[convert]]
type = 4
from = "*"
to_type = 1167
to = "KOI8_R"
converter = "fail"
[[discard]]
type = 5
from = "*"
[converter.env]
command = ["sh", "-c", "cat; printf '|%s|%s|%s' \"$SUBJECT\" \"$CHARSET\" \"$MIMETYPE\""]
[converter.none]
command = ["/no/such/program"]
[converter.fail]
command = ["sh", "-c", "yes complaint | head -c 5000 >&2; exit 1"]
)";

TEST_F(Conversion, PartsGoThroughTheSteeringConverters) {
    home_.write("sys/unixin.str", kSteering);
    ASSERT_EQ(cvr_InitConvert("~/sys/unixin.str").result, 0);
    const auto convert = [](std::int32_t type, const char* set) {
        im_Item in = item("text"), out = im_CrNewDataItem();
        const StandardConverterResult result = standardConverter(in, out, {type, set, "Sub", "UTF-8", "text/x"});
        return std::to_string(result.converted) + std::to_string(result.pRetain) + ' ' +
               std::to_string(result.pToItemType) + ' ' + result.pToCharSet + ' ' + content(out);
    };
    const LogLines log(7);
    EXPECT_EQ(convert(1, "KOI8_R"), "10 1736 UTF8 text|Sub|UTF-8|text/x");
    EXPECT_EQ(convert(2, "UTF8"), "01 0  ") << "stays as it is: kept";
    EXPECT_EQ(convert(5, "UTF8"), "00 0  ") << "thrown away: neither";
    EXPECT_EQ(convert(9, "UTF8"), "00 0  ") << "no row: neither";
    EXPECT_TRUE(log.all().empty());
    EXPECT_EQ(convert(3, "UTF8"), "01 0  ") << "cannot be run: kept";
    ASSERT_EQ(log.all().size(), 1u);
    EXPECT_TRUE(log.all()[0].starts_with("3 1.2 ")) << "its group and reason: " << log.all()[0];
    EXPECT_NE(log.all()[0].find("/no/such/program"), std::string::npos);
    EXPECT_EQ(convert(4, "UTF8"), "01 0  ") << "failed: kept";
    ASSERT_EQ(log.all().size(), 2u);
    const std::string& line = log.all()[1];
    EXPECT_TRUE(line.starts_with("5 100.24071 ")) << line;
    for (const char* piece : {"Failed to convert part of a message:", " input-file '", " input-charset 'UTF8'",
                              " output-charset 'KOI8_R'", " error-text 'complaint"})
        EXPECT_NE(line.find(piece), std::string::npos) << piece << ": " << line;
    EXPECT_TRUE(home_.files("data").empty()) << "nothing is left in the store";
}

}  // namespace
