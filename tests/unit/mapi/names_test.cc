// The names of [MS-OXPROPS]: every row is found both ways, and no name is there twice.
#include "mapi/names.h"

#include <array>
#include <map>
#include <set>
#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace {

TEST(Names, EveryTagIsFoundBothWays) {
    for (const mapi_TagRow& row : mapi_tag_rows()) {
        const auto found = mapi_find_name(row.name);
        ASSERT_TRUE(found) << std::string_view(row.name);
        EXPECT_EQ(found->id, row.id) << std::string_view(row.name);
        EXPECT_FALSE(found->name) << std::string_view(row.name);
        EXPECT_EQ(mapi_canonical_name(*found), row.name);
        EXPECT_TRUE(std::string_view(row.name).starts_with("PidTag")) << std::string_view(row.name);
    }
}

TEST(Names, EveryNumberInASetIsFoundBothWays) {
    for (const mapi_LidRow& row : mapi_lid_rows()) {
        const auto found = mapi_find_name(row.name);
        ASSERT_TRUE(found && found->name) << std::string_view(row.name);
        EXPECT_EQ(*found->name, (mapi_Name{row.set, row.lid, {}})) << std::string_view(row.name);
        EXPECT_EQ(mapi_canonical_name(*found), row.name);
        EXPECT_TRUE(std::string_view(row.name).starts_with("PidLid")) << std::string_view(row.name);
    }
}

TEST(Names, EveryTextInASetIsFoundBothWays) {
    for (const mapi_TextRow& row : mapi_text_rows()) {
        const auto found = mapi_find_name(row.name);
        ASSERT_TRUE(found && found->name) << std::string_view(row.name);
        EXPECT_EQ(*found->name, (mapi_Name{row.set, 0, std::string(std::string_view(row.text))}))
            << std::string_view(row.name);
        EXPECT_EQ(mapi_canonical_name(*found), row.name);
        EXPECT_TRUE(std::string_view(row.name).starts_with("PidName")) << std::string_view(row.name);
    }
}

TEST(Names, NoNameIsThereTwiceAndNoSetIsSplit) {
    std::set<std::string_view> names;
    for (const auto& row : mapi_tag_rows()) EXPECT_TRUE(names.insert(row.name).second) << std::string_view(row.name);
    for (const auto& row : mapi_lid_rows()) EXPECT_TRUE(names.insert(row.name).second) << std::string_view(row.name);
    for (const auto& row : mapi_text_rows()) EXPECT_TRUE(names.insert(row.name).second) << std::string_view(row.name);
    std::set<std::array<std::uint8_t, 16>> sets;
    mapi_Guid set{};
    for (const auto& row : mapi_lid_rows()) {
        const bool begins = std::exchange(set, row.set) != row.set;
        EXPECT_TRUE(!begins || sets.insert(row.set.bytes).second) << std::string_view(row.name);
    }
}

// Names by which the standard documents know these, written out again.
TEST(Names, KnownOnes) {
    const std::map<std::uint16_t, std::string_view> tags = {
        {0x001A, "PidTagMessageClass"},     {0x0029, "PidTagReadReceiptRequested"},
        {0x0037, "PidTagSubject"},          {0x0039, "PidTagClientSubmitTime"},
        {0x0C17, "PidTagReplyRequested"},   {0x1000, "PidTagBody"},
        {0x1009, "PidTagRtfCompressed"},    {0x1013, "PidTagHtml"},
        {0x3701, "PidTagAttachDataBinary"}, {0x3707, "PidTagAttachLongFilename"},
        {0x370E, "PidTagAttachMimeTag"},    {0x3712, "PidTagAttachContentId"},
        {0x3FDE, "PidTagInternetCodepage"}};
    for (const auto& [id, name] : tags) {
        mapi_Property property;
        property.id = id;
        EXPECT_EQ(mapi_canonical_name(property), name);
    }
    const std::map<std::string_view, std::pair<mapi_Guid, std::uint32_t>> lids = {
        {"PidLidLocation", {kPsetidAppointment, 0x8208}},
        {"PidLidAppointmentStartWhole", {kPsetidAppointment, 0x820D}},
        {"PidLidAppointmentEndWhole", {kPsetidAppointment, 0x820E}},
        {"PidLidAppointmentDuration", {kPsetidAppointment, 0x8213}},
        {"PidLidAppointmentSubType", {kPsetidAppointment, 0x8215}},
        {"PidLidBusyStatus", {kPsetidAppointment, 0x8205}},
        {"PidLidAppointmentSequence", {kPsetidAppointment, 0x8201}},
        {"PidLidAppointmentRecur", {kPsetidAppointment, 0x8216}},
        {"PidLidGlobalObjectId", {kPsetidMeeting, 3}},
        {"PidLidCleanGlobalObjectId", {kPsetidMeeting, 0x23}},
        {"PidLidIsRecurring", {kPsetidMeeting, 5}},
        {"PidLidReminderSet", {kPsetidCommon, 0x8503}},
        {"PidLidReminderDelta", {kPsetidCommon, 0x8501}},
        {"PidLidTaskDueDate", {kPsetidTask, 0x8105}}};
    for (const auto& [name, place] : lids) {
        const auto found = mapi_find_name(name);
        ASSERT_TRUE(found && found->name) << name;
        EXPECT_EQ(*found->name, (mapi_Name{place.first, place.second, {}})) << name;
    }
}

TEST(Names, ThatTheTypeDecides) {
    mapi_Property property;
    property.id = 0x1013;
    property.type = mapi_Type::binary;
    EXPECT_EQ(mapi_canonical_name(property), "PidTagHtml");
    property.type = mapi_Type::unicode;
    EXPECT_EQ(mapi_canonical_name(property), "PidTagBodyHtml");
    EXPECT_EQ(mapi_find_name("PidTagBodyHtml")->id, 0x1013);
    property.id = 0x3701;
    EXPECT_EQ(mapi_canonical_name(property), "PidTagAttachDataBinary");
    property.type = mapi_Type::object;
    EXPECT_EQ(mapi_canonical_name(property), "PidTagAttachDataObject");
    EXPECT_EQ(mapi_find_name("PidTagAttachDataObject")->id, 0x3701);
    property.multiple = true;
    EXPECT_EQ(mapi_canonical_name(property), "PidTagAttachDataBinary");
}

TEST(Names, WhatHasNoNameHasNone) {
    mapi_Property property;
    property.id = 0x0003;
    EXPECT_EQ(mapi_canonical_name(property), "");
    property.id = 0x8001;
    property.name = mapi_Name{kPsetidCommon, 0x8500, {}};
    EXPECT_EQ(mapi_canonical_name(property), "");
    property.name = mapi_Name{kPsetidMeeting, 0x8501, {}};
    EXPECT_EQ(mapi_canonical_name(property), "") << "the number is another set's";
    property.name = mapi_Name{mapi_Guid{}, 0x8501, {}};
    EXPECT_EQ(mapi_canonical_name(property), "");
    property.name = mapi_Name{kPsPublicStrings, 0, "keywords"};
    EXPECT_EQ(mapi_canonical_name(property), "") << "texts are compared exactly";
    for (const char* name : {"", "PidTag", "pidtagsubject", "PidTagSubject ", "PidLidLocatio", "Zzz", "0x0037001F"})
        EXPECT_FALSE(mapi_find_name(name)) << name;
}

}  // namespace
