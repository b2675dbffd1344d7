// Attributes that have properties of their own: each row, and every class that has another name today.
#include "tnef/legacy.h"

#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "mapi/property_text.h"
#include "support/bytes.h"
#include "support/tnef_bytes.h"

namespace {

using namespace tnef_bytes;

std::string shown(std::uint32_t attribute, std::string_view data, bool about_meeting = false) {
    const tnef_LegacyRow* row = tnef_find_legacy(attribute);
    if (row == nullptr) return "no row";
    std::string lines;
    for (const mapi_Property& property : tnef_legacy_properties(*row, data, "WIN1252", about_meeting))
        mapi_append_line(lines, property);
    return lines;
}

const std::string kDate = bytes("D407 0200 1D00 0B00 1900 2300 0200");

TEST(Legacy, EveryRow) {
    const std::string trp =
        u16(4) + u16(40) + u16(8) + u16(20) + padded(zero_ended("Ann B")) + padded(zero_ended("SMTP:ann@x.example"));
    const std::string pair = u16(4) + zero_ended("Bob") + u16(10) + zero_ended("SMTP:b@x.y");
    EXPECT_EQ(shown(0x00008000, trp),
              "PidTagSenderName:unicode=Ann B\nPidTagSenderAddressType:unicode=SMTP\n"
              "PidTagSenderEmailAddress:unicode=ann@x.example\n");
    EXPECT_EQ(shown(0x00060001, pair),
              "PidTagSentRepresentingName:unicode=Bob\nPidTagSentRepresentingAddressType:unicode=SMTP\n"
              "PidTagSentRepresentingEmailAddress:unicode=b@x.y\n");
    EXPECT_EQ(shown(0x00060000, pair),
              "PidTagReceivedRepresentingName:unicode=Bob\n"
              "PidTagReceivedRepresentingAddressType:unicode=SMTP\n"
              "PidTagReceivedRepresentingEmailAddress:unicode=b@x.y\n");
    EXPECT_EQ(shown(0x00060000, pair, true), shown(0x00060001, pair)) << "who asks for a meeting owns it";
    EXPECT_EQ(shown(0x00060002, "id"), "PidTagReceivedRepresentingEntryId:binary=aWQ=\n");
    EXPECT_EQ(shown(0x00030006, kDate), "PidTagStartDate:time=2004-02-29T11:25:35Z\n");
    EXPECT_EQ(shown(0x00030007, kDate), "PidTagEndDate:time=2004-02-29T11:25:35Z\n");
    EXPECT_EQ(shown(0x00038005, kDate), "PidTagClientSubmitTime:time=2004-02-29T11:25:35Z\n");
    EXPECT_EQ(shown(0x00038006, kDate), "PidTagMessageDeliveryTime:time=2004-02-29T11:25:35Z\n");
    EXPECT_EQ(shown(0x00038020, kDate), "PidTagLastModificationTime:time=2004-02-29T11:25:35Z\n");
    EXPECT_EQ(shown(0x00040008, u32(0x80000001)), "PidTagOwnerAppointmentId:integer32=-2147483647\n");
    EXPECT_EQ(shown(0x00040009, u16(1)), "PidTagResponseRequested:boolean=true\n");
    EXPECT_EQ(shown(0x00040009, u16(0)), "PidTagResponseRequested:boolean=false\n");
    EXPECT_EQ(shown(0x00070006, zero_ended("IPM.Microsoft Mail.Note")),
              "PidTagOriginalMessageClass:unicode=IPM.Note\n");
    EXPECT_EQ(shown(0x00078008, zero_ended("IPM.Note")), "PidTagMessageClass:unicode=IPM.Note\n");
    EXPECT_EQ(shown(0x00018004, zero_ended("caf\xE9")), "PidTagSubject:unicode=caf\xC3\xA9\n");
    EXPECT_EQ(shown(0x0002800C, "no zero"), "PidTagBody:unicode=no zero\n");
    EXPECT_EQ(shown(0x00018009, zero_ended("0aFf")), "PidTagSearchKey:binary=Cv8=\n");
    EXPECT_EQ(shown(0x0001800A, zero_ended("00")), "PidTagParentKey:binary=AA==\n");
    EXPECT_EQ(shown(0x0001800B, zero_ended("")), "PidTagConversationKey:binary=\n");
    EXPECT_EQ(shown(0x0004800D, u16(1)), "PidTagImportance:integer32=2\n");
    EXPECT_EQ(shown(0x0004800D, u16(2)), "PidTagImportance:integer32=1\n");
    EXPECT_EQ(shown(0x0004800D, u16(3)), "PidTagImportance:integer32=0\n");
    EXPECT_EQ(shown(0x00069003, ""), "no row");
    EXPECT_EQ(tnef_legacy_rows().size(), 20U) << "all of them stand above";
}

TEST(Legacy, FlagsOfAMessage) {
    const std::map<int, int> rows = {{0x00, 2},  {0x01, 0}, {0x20, 3},  {0x21, 1},
                                     {0x02, 10}, {0x04, 6}, {0x80, 18}, {0x08, 2}};
    for (const auto& [status, flags] : rows)
        EXPECT_EQ(shown(0x00068007, std::string(1, static_cast<char>(status))),
                  "PidTagMessageFlags:integer32=" + std::to_string(flags) + "\n");
}

TEST(Legacy, WhatIsTooShortOrSenselessSaysNothing) {
    const std::vector<std::pair<std::uint32_t, std::string>> rows = {
        {0x00008000, ""},
        {0x00008000, u16(4) + u16(0) + u16(1) + u16(0)},
        {0x00008000, u16(4) + u16(9) + u16(0xFFFF) + u16(0xFFFF) + "x"},
        {0x00060000, ""},
        {0x00060000, u16(9) + "abc"},
        {0x00060001, u16(1) + "a"},
        {0x00060001, u16(1) + "a" + u16(2) + "b"},
        {0x00030006, kDate.substr(0, 13)},
        {0x00030006, std::string(14, '\0')},
        {0x00038005, bytes("D407 0D00 0100 0000 0000 0000 0000")},
        {0x00038005, bytes("4006 0100 0100 0000 0000 0000 0000")},
        {0x00038005, bytes("D407 0100 2000 0000 0000 0000 0000")},
        {0x00038005, bytes("D407 0100 0100 1800 0000 0000 0000")},
        {0x00038005, bytes("D407 0100 0100 0000 3C00 0000 0000")},
        {0x00038005, bytes("D407 0100 0100 0000 0000 3C00 0000")},
        {0x00040008, "abc"},
        {0x00040009, "a"},
        {0x00068007, ""},
        {0x00018009, "0"},
        {0x00018009, "0g"},
        {0x00018009, "+1"},
        {0x0004800D, "\1"},
        {0x0004800D, u16(0)},
        {0x0004800D, u16(4)}};
    for (const auto& [attribute, data] : rows)
        EXPECT_EQ(shown(attribute, data), "") << std::hex << attribute << ' ' << hex(data);
}

TEST(Legacy, AnAddressWithoutATypeIsNoAddress) {
    EXPECT_EQ(shown(0x00060001, u16(2) + zero_ended("B") + u16(2) + zero_ended("b")),
              "PidTagSentRepresentingName:unicode=B\n");
}

TEST(Classes, EveryRow) {
    const std::map<std::string, std::string> rows = {
        {"IPM.Microsoft Mail.Note", "IPM.Note"},
        {"IPM.Microsoft Mail.Read Receipt", "Report.IPM.Note.IPNRN"},
        {"IPM.Microsoft Mail.Non-Delivery", "Report.IPM.Note.NDR"},
        {"IPM.Microsoft Schedule.MtgReq", "IPM.Schedule.Meeting.Request"},
        {"IPM.Microsoft Schedule.MtgRespP", "IPM.Schedule.Meeting.Resp.Pos"},
        {"IPM.Microsoft Schedule.MtgRespN", "IPM.Schedule.Meeting.Resp.Neg"},
        {"IPM.Microsoft Schedule.MtgRespA", "IPM.Schedule.Meeting.Resp.Tent"},
        {"IPM.Microsoft Schedule.MtgCncl", "IPM.Schedule.Meeting.Canceled"}};
    EXPECT_EQ(tnef_class_rows().size(), rows.size());
    for (const auto& [legacy, name] : rows) {
        EXPECT_EQ(tnef_message_class(legacy), name);
        EXPECT_EQ(tnef_message_class("Microsoft Mail v3.0 " + legacy), name);
    }
    EXPECT_EQ(tnef_message_class("ipm.microsoft mail.note"), "IPM.Note");
}

TEST(Classes, OthersStayAsTheyAre) {
    for (const char* name : {"", "IPM.Note", "IPM.Microsoft Mail.Notes", "IPM.Microsoft Mail",
                             "IPM.Microsoft Schedule.MtgResp", "Microsoft Mail v3.0 IPM.Other", "IPM.Task"})
        EXPECT_EQ(tnef_message_class(name), name);
}

}  // namespace
