// Properties as text: every type, both ways, and what is no property.
#include "mapi/property_text.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "mapi/names.h"

namespace {

mapi_Property with(std::uint16_t id, mapi_Type type, std::vector<mapi_Value> values, bool multiple = false) {
    mapi_Property property;
    property.id = id;
    property.type = type;
    property.multiple = multiple;
    property.values = std::move(values);
    return property;
}
mapi_Value number(std::int64_t value) { return {.number = value, .bytes = {}}; }
mapi_Value real(double value) { return {.real = value, .bytes = {}}; }
mapi_Value text(std::string_view value) { return {.bytes = std::string(value)}; }

std::string line(const mapi_Property& property) {
    std::string out;
    mapi_append_line(out, property);
    return out;
}

struct Row {
    mapi_Property property;
    std::string line;
    const char* why;
};

const std::vector<Row>& rows() {
    using enum mapi_Type;
    static const std::vector<Row> all = {
        {with(0x0037, unicode, {text("Hello")}), "PidTagSubject:unicode=Hello", "plain text"},
        {with(0x0037, unicode, {text("")}), "PidTagSubject:unicode=", "no text"},
        {with(0x0037, unicode, {text("a\\b\r\nc\n")}), "PidTagSubject:unicode=a\\\\b\\r\\nc\\n", "escapes"},
        {with(0x0037, unicode, {text("a=b:c;\xC3\xA9")}), "PidTagSubject:unicode=a=b:c;\xC3\xA9",
         "what needs no escape"},
        {with(0x0017, integer16, {number(-32768)}), "PidTagImportance:integer16=-32768", "least"},
        {with(0x0017, integer32, {number(2147483647)}), "PidTagImportance:integer32=2147483647", "greatest"},
        {with(0x0017, integer64, {number(std::numeric_limits<std::int64_t>::min())}),
         "PidTagImportance:integer64=-9223372036854775808", "least"},
        {with(0x0017, floating32, {real(0.1F)}), "PidTagImportance:floating32=0.1", "the shortest form"},
        {with(0x0017, floating64, {real(-2.5e300)}), "PidTagImportance:floating64=-2.5e+300", "large"},
        {with(0x0017, floating64, {real(std::numeric_limits<double>::infinity())}), "PidTagImportance:floating64=inf",
         "no number"},
        {with(0x0C17, boolean, {number(1)}), "PidTagReplyRequested:boolean=true", "true"},
        {with(0x0C17, boolean, {number(0)}), "PidTagReplyRequested:boolean=false", "false"},
        {with(0x0039, time, {number(mapi_time_of(1'795'209'753))}), "PidTagClientSubmitTime:time=2026-11-20T21:22:33Z",
         "a time"},
        {with(0x0039, time, {number(0)}), "PidTagClientSubmitTime:time=1601-01-01T00:00:00Z", "the first"},
        {with(0x0039, time, {number(0x0CB34557A3DD4000)}), "PidTagClientSubmitTime:time=4501-01-01T00:00:00Z",
         "what stands for no date"},
        {with(0x0039, time, {number(mapi_time_of(-2'203'891'200))}), "PidTagClientSubmitTime:time=1900-03-01T00:00:00Z",
         "after the leap day that 1900 did not have"},
        {with(0x0039, time, {number(mapi_time_of(951'782'400))}), "PidTagClientSubmitTime:time=2000-02-29T00:00:00Z",
         "the leap day that 2000 had"},
        {with(0x0039, time, {number(-10'000'000)}), "PidTagClientSubmitTime:time=1600-12-31T23:59:59Z",
         "before the first"},
        {with(0x0039, time, {number(std::numeric_limits<std::int64_t>::min())}),
         "PidTagClientSubmitTime:time=-27627-04-19T21:11:54Z", "the first that there is"},
        {with(0x0039, time, {number(9'223'372'036'850'000'000)}), "PidTagClientSubmitTime:time=30828-09-14T02:48:05Z",
         "the last"},
        {with(0x300B, guid, {text(std::string(kPsetidCommon.bytes.begin(), kPsetidCommon.bytes.end()))}),
         "PidTagSearchKey:guid=00062008-0000-0000-c000-000000000046", "a guid"},
        {with(0x300B, binary, {text(std::string_view("\0\xFF\n", 3))}), "PidTagSearchKey:binary=AP8K", "three bytes"},
        {with(0x300B, binary, {text("ab")}), "PidTagSearchKey:binary=YWI=", "two"},
        {with(0x300B, binary, {text("a")}), "PidTagSearchKey:binary=YQ==", "one"},
        {with(0x300B, binary, {text("")}), "PidTagSearchKey:binary=", "none"},
        {with(0x300B, error, {number(0x80040102)}), "PidTagSearchKey:error=0x80040102", "an error"},
        {with(0x3701, object, {text("0123456789abcdefX")}),
         "PidTagAttachDataObject:object=MDEyMzQ1Njc4OWFiY2RlZlg=", "an object"},
        {with(0x300B, unicode, {text("a;b"), text("c\\"), text("")}, true),
         "PidTagSearchKey:multiple-unicode=a;b\\;c\\\\\\;", "several texts, the last empty"},
        {with(0x300B, unicode, {text("\\"), text(";")}, true), "PidTagSearchKey:multiple-unicode=\\\\\\;;",
         "an escaped backslash before a separator"},
        {with(0x300B, integer32, {number(1), number(-2)}, true), "PidTagSearchKey:multiple-integer32=1\\;-2",
         "numbers"},
        {with(0x300B, binary, {text("a"), text("")}, true), "PidTagSearchKey:multiple-binary=YQ==\\;", "binaries"},
        {with(0x300B, time, {}, true), "PidTagSearchKey:multiple-time=", "none at all"},
        {with(0x6FFF, integer32, {number(5)}), "0x6FFF0003:integer32=5", "no canonical name"},
        {with(0x6FFF, integer32, {number(5)}, true), "0x6FFF1003:multiple-integer32=5", "nor of several values"},
    };
    return all;
}

TEST(Line, EveryTypeBothWays) {
    for (const Row& row : rows()) {
        EXPECT_EQ(line(row.property), row.line + "\n") << row.why;
        const auto back = mapi_read_line(row.line + "\n");
        ASSERT_TRUE(back) << row.line;
        EXPECT_EQ(*back, row.property) << row.line;
    }
}

TEST(Line, OfANamedProperty) {
    EXPECT_EQ(line(mapi_unicode("PidLidLocation", "Room 1")), "PidLidLocation:unicode=Room 1\n");
    EXPECT_EQ(line(mapi_unicodes("PidNameKeywords", {"a", "b"})), "PidNameKeywords:multiple-unicode=a\\;b\n");
    EXPECT_EQ(mapi_read_line("PidLidLocation:unicode=Room 1"), mapi_unicode("PidLidLocation", "Room 1"));
    mapi_Property unknown = mapi_integer32("PidLidLocation", 1);
    unknown.id = 0x8123;
    unknown.name->lid = 0x7777;
    EXPECT_EQ(line(unknown), "0x81230003:integer32=1\n");
}

TEST(Line, TypesWithoutAWord) {
    EXPECT_EQ(line(with(0x0037, mapi_Type::string8, {text("x")})), "PidTagSubject:unicode=x\n");
    EXPECT_EQ(line(with(0x0037, mapi_Type::currency, {number(12345)})), "PidTagSubject:integer64=12345\n");
    EXPECT_EQ(line(with(0x0037, mapi_Type::floating_time, {real(1.5)})), "PidTagSubject:floating64=1.5\n");
}

TEST(Line, NotANumberIsReadAgain) {
    const auto back = mapi_read_line("PidTagImportance:floating64=nan");
    ASSERT_TRUE(back);
    EXPECT_TRUE(std::isnan(back->values.at(0).real));
}

TEST(Line, FractionsAndOtherFormsAreRead) {
    EXPECT_EQ(mapi_read_line("PidTagClientSubmitTime:time=2026-11-20T21:22:33.1234567Z"),
              mapi_time("PidTagClientSubmitTime", mapi_time_of(1'795'209'753)));
    EXPECT_EQ(mapi_read_line("PidTagSearchKey:error=5")->values.at(0).number, 5);
    EXPECT_EQ(mapi_read_line("PidTagSearchKey:binary=Y W\tI=")->values.at(0).bytes, "ab");
    EXPECT_EQ(mapi_read_line("0x0037001f:integer32=1")->tag(), 0x00370003U) << "the type word holds";
}

constexpr const char* kNoProperties[] = {
    "",
    "\n",
    "PidTagSubject",
    "PidTagSubject:unicode",
    "PidTagSubject=x",
    "PidTagSubject=x:unicode",
    ":unicode=x",
    "PidTagNothing:unicode=x",
    "PidTagSubject:=x",
    "PidTagSubject:string=x",
    "PidTagSubject:multiple=x",
    "PidTagSubject:multiple-=x",
    "PidTagSubject:multiple-multiple-unicode=x",
    "PidTagSubject:Unicode=x",
    "0x0037:unicode=x",
    "0x0037001G:unicode=x",
    "0y0037001F:unicode=x",
    "PidTagSubject:unicode=\\",
    "PidTagSubject:unicode=\\t",
    "PidTagSubject:unicode=a\\;b",
    "PidTagSubject:multiple-unicode=\\",
    "PidTagImportance:integer16=32768",
    "PidTagImportance:integer16=",
    "PidTagImportance:integer16=+1",
    "PidTagImportance:integer16= 1",
    "PidTagImportance:integer32=2147483648",
    "PidTagImportance:integer32=1x",
    "PidTagImportance:integer64=9223372036854775808",
    "PidTagImportance:multiple-integer32=1\\;",
    "PidTagImportance:multiple-integer32=1;2",
    "PidTagImportance:floating64=",
    "PidTagImportance:floating64=1,5",
    "PidTagImportance:floating64= 1",
    "PidTagImportance:floating64=+1",
    "PidTagImportance:floating64=-+1",
    "PidTagImportance:floating64=- 1",
    "PidTagImportance:floating64=0x10",
    "PidTagImportance:floating64=1e999",
    "PidTagImportance:floating32=1e-99",
    "PidTagImportance:floating64=1.5x",
    "PidTagReplyRequested:boolean=1",
    "PidTagReplyRequested:boolean=True",
    "PidTagReplyRequested:boolean=",
    "PidTagSearchKey:guid=",
    "PidTagSearchKey:guid=00062008",
    "PidTagSearchKey:binary=YQ",
    "PidTagSearchKey:binary=YQ=a",
    "PidTagSearchKey:binary====",
    "PidTagSearchKey:binary=Y-==",
    "PidTagSearchKey:error=0x100000000",
    "PidTagSearchKey:error=-1",
    "PidTagClientSubmitTime:time=",
    "PidTagClientSubmitTime:time=2026-11-20",
    "PidTagClientSubmitTime:time=2026-11-20T21:22:33",
    "PidTagClientSubmitTime:time=2026-11-20 21:22:33Z",
    "PidTagClientSubmitTime:time=2026-13-20T21:22:33Z",
    "PidTagClientSubmitTime:time=2026-00-20T21:22:33Z",
    "PidTagClientSubmitTime:time=2026-02-29T21:22:33Z",
    "PidTagClientSubmitTime:time=2026-11-31T21:22:33Z",
    "PidTagClientSubmitTime:time=2026-11-20T24:00:00Z",
    "PidTagClientSubmitTime:time=2026-11-20T21:60:00Z",
    "PidTagClientSubmitTime:time=2026-11-20T21:22:60Z",
    "PidTagClientSubmitTime:time=2026-11-20T21:22:33.Z",
    "PidTagClientSubmitTime:time=2026-11-20T21:22:33ZZ",
    "PidTagClientSubmitTime:time=99999-11-20T21:22:33Z",
    "PidTagClientSubmitTime:time=226-11-20T21:22:33Z",
    "PidTagClientSubmitTime:time=30828-09-14T02:48:06Z",
    "PidTagClientSubmitTime:time=-27627-04-19T21:11:53Z",
};

TEST(Line, WhatIsNoProperty) {
    for (const char* row : kNoProperties) EXPECT_FALSE(mapi_read_line(row)) << row;
}

TEST(Parts, ASingleTextStandsAsItIsWhereNoEscapesAreNeeded) {
    const mapi_Property subject = mapi_unicode("PidTagSubject", "a\\b\nc");
    EXPECT_EQ(mapi_value_text(subject, false), "a\\b\nc");
    EXPECT_EQ(mapi_read_property("PidTagSubject", "unicode", "a\\b\nc", false), subject);
    const mapi_Property two = mapi_unicodes("PidNameKeywords", {"a\\", "b"});
    EXPECT_EQ(mapi_value_text(two, false), "a\\\\\\;b");
    EXPECT_EQ(mapi_read_property("PidNameKeywords", "multiple-unicode", "a\\\\\\;b", false), two);
    EXPECT_EQ(mapi_name_text(two), "PidNameKeywords");
    EXPECT_EQ(mapi_type_text(two), "multiple-unicode");
}

// Any property whose type the text has a word for comes back as it was.
TEST(Line, AnyPropertyComesBack) {
    using enum mapi_Type;
    std::mt19937 random(7);
    const std::vector<mapi_Type> types = {unicode, integer16, integer32, integer64, floating32, floating64,
                                          boolean, time,      guid,      binary,    error,      object};
    const auto bytes = [&](std::size_t size) {
        std::string out;
        while (out.size() < size) out += static_cast<char>(random());
        return out;
    };
    const auto value = [&](mapi_Type type) {
        switch (type) {
            case unicode: {
                std::string out;
                for (auto i = random() % 12; i > 0; --i) out += "a\\;\r\n=\xC3\xA9"[random() % 6];
                return text(out);
            }
            case integer16: return number(static_cast<std::int16_t>(random()));
            case integer32: return number(static_cast<std::int32_t>(random()));
            case integer64: return number(static_cast<std::int64_t>(std::uint64_t{random()} << 32 | random()));
            case floating32: return real(static_cast<float>(random()) / 7);
            case floating64: return real(static_cast<double>(random()) / 7);
            case boolean: return number(random() % 2);
            case time: return number(static_cast<std::int64_t>(random()) * kMapiTicks * 100);
            case guid: return text(bytes(16));
            case error: return number(random());
            default: return text(bytes(random() % 20));
        }
    };
    for (int turn = 0; turn < 5000; ++turn) {
        const mapi_Type type = types[random() % types.size()];
        const bool multiple = random() % 2 == 0;
        mapi_Property property = with(static_cast<std::uint16_t>(random() % 0x8000), type, {}, multiple);
        for (auto i = multiple ? random() % 3 + 2 : 1; i > 0; --i) property.values.push_back(value(type));
        const std::string written = line(property);
        ASSERT_EQ(mapi_read_line(written), property) << written;
    }
}

}  // namespace
