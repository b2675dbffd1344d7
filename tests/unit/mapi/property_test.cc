// The property model: GUIDs, times, UTF-16, properties made by name.
#include "mapi/property.h"

#include <cerrno>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "mapi/names.h"
#include "support/bytes.h"

namespace {

TEST(Guid, IsWrittenInGroupsWhoseFirstThreeAreTurned) {
    EXPECT_EQ(mapi_guid_text(kPsetidCommon), "00062008-0000-0000-c000-000000000046");
    EXPECT_EQ(mapi_guid_text(kPsetidMeeting), "6ed8da90-450b-101b-98da-00aa003f1305");
    EXPECT_EQ(hex(std::string(kPsetidMeeting.bytes.begin(), kPsetidMeeting.bytes.end())),
              "90DAD86E 0B451B10 98DA00AA 003F1305");
}

TEST(Guid, IsReadInAnyCaseAndWithBraces) {
    EXPECT_EQ(mapi_read_guid("6ED8DA90-450b-101B-98DA-00AA003F1305"), kPsetidMeeting);
    EXPECT_EQ(mapi_read_guid("{6ed8da90-450b-101b-98da-00aa003f1305}"), kPsetidMeeting);
    for (const char* bad : {"", "{", "{}", "6ed8da90", "6ed8da90-450b-101b-98da-00aa003f130",
                            "6ed8da90450b101b98da00aa003f1305", "6ed8da90-450b-101b-98da-00aa003f13055",
                            "6ed8da90-450b-101b-98da-00aa003f130g", "6ed8da90-450b-101b-98da-00aa003f1305}"})
        EXPECT_FALSE(mapi_read_guid(bad)) << bad;
}

TEST(Time, CountsFrom1601) {
    EXPECT_EQ(mapi_time_of(0), 116'444'736'000'000'000);
    EXPECT_EQ(mapi_unix_seconds(116'444'736'000'000'000), 0);
    EXPECT_EQ(mapi_unix_seconds(116'444'735'999'999'999), -1) << "fractions fall towards the past";
    EXPECT_EQ(mapi_unix_seconds(0), -11'644'473'600);
    EXPECT_EQ(mapi_unix_seconds(-1), -11'644'473'601);
}

struct Utf16Row {
    const char* utf8;
    const char* utf16;
    const char* why;
};

constexpr Utf16Row kUtf16Rows[] = {
    {"", "", "nothing"},
    {"Az", "4100 7A00", "ASCII"},
    {"\xC3\xA9", "E900", "two bytes"},
    {"\xE2\x82\xAC", "AC20", "three bytes"},
    {"\xF0\x9F\x98\x80", "3DD8 00DE", "a pair"},
    {"\xF4\x8F\xBF\xBF", "FFDB FFDF", "the last character"},
    {"\xEE\x80\x80", "00E0", "the first code after the surrogates"},
    {"\xED\x9F\xBF", "FFD7", "the last code before them"},
};

TEST(Utf16, BothWays) {
    for (const Utf16Row& row : kUtf16Rows) {
        std::string out;
        mapi_append_utf16(out, row.utf8);
        EXPECT_EQ(hex(out), hex(bytes(row.utf16))) << row.why;
        EXPECT_EQ(mapi_utf8(bytes(row.utf16)), row.utf8) << row.why;
    }
}

constexpr Utf16Row kBrokenUtf16[] = {
    {"\xEF\xBF\xBD", "3DD8", "a first half alone"},
    {"\xEF\xBF\xBD", "00DE", "a second half alone"},
    {"\xEF\xBF\xBD"
     "A",
     "3DD8 4100", "a first half before a letter"},
    {"\xEF\xBF\xBD\xF0\x9F\x98\x80", "3DD8 3DD8 00DE", "a first half before a pair"},
    {"\xEF\xBF\xBD\xEF\xBF\xBD", "00DE 3DD8", "the halves in the wrong order"},
    {"A\xEF\xBF\xBD", "4100 42", "an odd byte"},
    {"\xEF\xBF\xBD\xEF\xBF\xBD", "3DD8 42", "a first half before an odd byte"},
    {"A", "4100 0000 4200", "a NUL ends the text"},
    {"\xEF\xBF\xBD", "3DD8 0000", "a first half before it"},
};

TEST(Utf16, WhatIsBrokenBecomesTheReplacement) {
    for (const Utf16Row& row : kBrokenUtf16) EXPECT_EQ(mapi_utf8(bytes(row.utf16)), row.utf8) << row.why;
    std::string out;
    mapi_append_utf16(out, "a\xFF\xC3");
    EXPECT_EQ(hex(out), hex(bytes("6100 FDFF FDFF")));
}

TEST(Utf16, InBlocksAsAtOnce) {
    const std::string text = bytes("4100 3DD8 00DE 3DD8 4200 AC20");
    for (std::size_t cut = 0; cut <= text.size(); cut += 2) {
        std::string out;
        char16_t high = 0;
        EXPECT_TRUE(mapi_append_utf8(out, std::string_view(text).substr(0, cut), high));
        EXPECT_TRUE(mapi_append_utf8(out, std::string_view(text).substr(cut), high));
        EXPECT_EQ(high, 0);
        EXPECT_EQ(out, mapi_utf8(text)) << cut;
    }
}

TEST(Utf16, AnyValidTextComesBack) {
    std::mt19937 random(1);
    for (int turn = 0; turn < 2000; ++turn) {
        std::string utf16;
        for (auto i = random() % 20; i > 0; --i) {
            const auto unit = random() % 0xFFFF + 1;
            if (unit >= 0xD800 && unit < 0xE000) {
                utf16 += bytes("3DD8 00DE");
                continue;
            }
            utf16 += static_cast<char>(unit & 255);
            utf16 += static_cast<char>(unit >> 8);
        }
        std::string back;
        mapi_append_utf16(back, mapi_utf8(utf16));
        ASSERT_EQ(hex(back), hex(utf16)) << turn;
    }
}

TEST(Property, IsMadeByItsCanonicalName) {
    const mapi_Property subject = mapi_unicode("PidTagSubject", "Hello");
    EXPECT_EQ(subject.tag(), 0x0037001FU);
    EXPECT_EQ(subject.values.at(0).bytes, "Hello");
    const mapi_Property duration = mapi_integer32("PidLidAppointmentDuration", -5);
    ASSERT_TRUE(duration.name);
    EXPECT_EQ(duration.name->set, kPsetidAppointment);
    EXPECT_EQ(duration.name->lid, 0x8213U);
    EXPECT_EQ(duration.values.at(0).number, -5);
    EXPECT_EQ(mapi_integer16("PidTagImportance", -2).type, mapi_Type::integer16);
    EXPECT_EQ(mapi_boolean("PidLidReminderSet", true).values.at(0).number, 1);
    EXPECT_EQ(mapi_time("PidTagClientSubmitTime", 7).type, mapi_Type::time);
    EXPECT_EQ(mapi_binary("PidLidGlobalObjectId", {"\0x", 2}).values.at(0).bytes.size(), 2U);
    const mapi_Property keywords = mapi_unicodes("PidNameKeywords", {"a", "b"});
    EXPECT_TRUE(keywords.multiple);
    EXPECT_EQ(keywords.values.size(), 2U);
    EXPECT_EQ(keywords.tag(), 0x0000101FU);
}

TEST(Property, AnUnknownNameIsRefused) {
    EXPECT_THROW(mapi_unicode("PidTagNoSuchThing", ""), er_Escape);
    EXPECT_EQ(er_GetReason(), EINVAL);
}

}  // namespace
