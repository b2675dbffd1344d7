// Meetings for people: what properties say in lines.
#include "morvane/meeting.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "mapi/calendar.h"
#include "mapi/property_xml.h"
#include "support/home.h"

namespace morvane {
namespace {

using Lines = std::vector<std::string>;

Lines lines_of(std::string_view method, std::string_view inside, std::string_view more = "") {
    const TestHome home;
    const auto made = mapi_IcalToPnProps("BEGIN:VCALENDAR\nMETHOD:" + std::string(method) + "\n" + std::string(inside) +
                                             std::string(more) + "END:VCALENDAR\n",
                                         "s");
    EXPECT_TRUE(made);
    im_Item tnef = im_create(im_Domain::temporary, kScratchItem);
    return meeting_lines(mapi_CreateMapiInfoFromXml(made->pPnPropsXml, tnef).listProps);
}
std::string event(std::string_view inside) { return "BEGIN:VEVENT\n" + std::string(inside) + "END:VEVENT\n"; }
constexpr std::string_view kParis =
    "DTSTART;TZID=Europe/Paris:20261120T100000\nDTEND;TZID=Europe/Paris:20261120T110000\n";

TEST(Meeting, Invitation) {
    EXPECT_EQ(lines_of("REQUEST", event(std::string(kParis) +
                                        "LOCATION:Room "
                                        "1\nSEQUENCE:2\nORGANIZER;CN=Boss:mailto:b@x\nATTENDEE;CN=A;PARTSTAT=ACCEPTED:"
                                        "mailto:a@x\nATTENDEE:mailto:c@x\n"
                                        "ATTENDEE;CN=O;ROLE=OPT-PARTICIPANT;PARTSTAT=DECLINED:mailto:o@x\nATTENDEE;CN="
                                        "R;CUTYPE=ROOM:mailto:r@x\nBEGIN:VALARM\nTRIGGER:-PT15M\nEND:VALARM\n")),
              (Lines{"when      Fri 2026-11-20 10:00 - 11:00 (Europe/Paris)", "where     Room 1", "update    number 2",
                     "from      Boss <b@x>", "required  A (accepted), c@x", "optional  O (declined)", "resources R",
                     "reminder  15 minutes before"}));
}

TEST(Meeting, WhenItIs) {
    EXPECT_EQ(
        lines_of("", event("DTSTART;TZID=Europe/Paris:20260720T230000\nDTEND;TZID=Europe/Paris:20260721T010000\n")),
        Lines{"when      Mon 2026-07-20 23:00 - Tue 2026-07-21 01:00 (Europe/Paris)"})
        << "in summer, over midnight";
    EXPECT_EQ(lines_of("", event("DTSTART;TZID=Australia/Sydney:20260115T100000\n")),
              Lines{"when      Thu 2026-01-15 10:00 - 10:00 (Australia/Sydney)"});
    EXPECT_EQ(lines_of("", event("DTSTART;TZID=Asia/Kolkata:20260115T100000\n")),
              Lines{"when      Thu 2026-01-15 10:00 - 10:00 (Asia/Kolkata)"});
    EXPECT_EQ(lines_of("", event("DTSTART;TZID=America/New_York:20260115T100000\n")),
              Lines{"when      Thu 2026-01-15 10:00 - 10:00 (America/New_York)"});
    EXPECT_EQ(lines_of("", event("DTSTART:20261120T100000Z\n")), Lines{"when      Fri 2026-11-20 10:00 - 10:00 (UTC)"});
    EXPECT_EQ(lines_of("", event("DTSTART;VALUE=DATE:20261120\n")), Lines{"when      Fri 2026-11-20 (all day)"});
    EXPECT_EQ(lines_of("", event("DTSTART;VALUE=DATE:20261120\nDTEND;VALUE=DATE:20261122\n")),
              Lines{"when      Fri 2026-11-20 - Sat 2026-11-21 (all day)"});
}

TEST(Meeting, WhatRepeatsAndWhatDoesNot) {
    EXPECT_EQ(
        lines_of("",
                 event("UID:u\nSUMMARY:S\nRRULE:FREQ=WEEKLY;COUNT=5\nEXDATE:20261127T090000Z\n" + std::string(kParis)),
                 event("UID:u\nSUMMARY:T\nLOCATION:L\nRECURRENCE-ID:20261204T090000Z\nDTSTART:20261205T130000Z\nDTEND:"
                       "20261205T140000Z\n")),
        (Lines{"when      Fri 2026-11-20 10:00 - 11:00 (Europe/Paris)", "repeats   every week on Friday, 5 times",
               "except    Fri 2026-12-04 becomes Sat 2026-12-05 14:00 - 15:00, \"T\", at L",
               "except    not on Fri 2026-11-27"}));
    std::string many;
    for (int day = 10; day < 30; ++day) many += "EXDATE:202612" + std::to_string(day) + "T090000Z\n";
    const Lines lines = lines_of("", event("RRULE:FREQ=DAILY\n" + std::string(kParis) + many));
    EXPECT_TRUE(lines.back().ends_with("Sat 2026-12-19 and others")) << lines.back();
}

TEST(Meeting, WhatChanged) {
    EXPECT_EQ(lines_of("COUNTER",
                       event("X-MS-OLK-ORIGINALSTART:20261119T100000Z\nX-MS-OLK-ORIGINALEND:20261119T110000Z\nDTSTART:"
                             "20261120T100000Z\nDTEND:20261120T113000Z\nATTENDEE;CN=A:mailto:a@x\n")),
              (Lines{"when      Thu 2026-11-19 10:00 - 11:00 (UTC)", "proposed  Fri 2026-11-20 10:00 - 11:30 (UTC)",
                     "from      A <a@x>", "required  A"}));
    EXPECT_EQ(
        lines_of("REQUEST", event("UID:u\nRECURRENCE-ID;TZID=Europe/Paris:20261119T100000\n" + std::string(kParis))),
        (Lines{"when      Fri 2026-11-20 10:00 - 11:00 (Europe/Paris)", "instead of Thu 2026-11-19 10:00"}));
}

TEST(Meeting, Tasks) {
    EXPECT_EQ(lines_of("",
                       "BEGIN:VTODO\nDUE:20261125T170000Z\nDTSTART:20261120T100000Z\nSTATUS:IN-PROCESS\nPERCENT-"
                       "COMPLETE:40\nRRULE:FREQ=DAILY\nEND:VTODO\n"),
              (Lines{"state     in progress, 40 %", "starts    Fri 2026-11-20", "due       Wed 2026-11-25",
                     "repeats   every day"}));
}

TEST(Meeting, OtherPropertiesSayNothing) {
    EXPECT_EQ(meeting_lines(""), Lines{});
    EXPECT_EQ(meeting_lines("PidTagSubject:unicode=x\n"), Lines{});
    EXPECT_EQ(meeting_lines("no property\nPidLidAppointmentStartWhole:time=never\nPidLidAppointmentStartWhole"),
              Lines{})
        << "damaged, and cut";
    EXPECT_EQ(meeting_lines("PidLidAppointmentStartWhole:integer32=5\n").size(), 1U) << "of another type";
    EXPECT_EQ(meeting_lines("PidLidAppointmentStartWhole:time=2026-11-20T10:00:00Z\nPidLidAppointmentRecur:binary="
                            "AAAA\nPidLidAppointmentTimeZoneDefinitionStartDisplay:binary=AAAA\n"),
              Lines{"when      Fri 2026-11-20 10:00 - 10:00 (UTC)"})
        << "structures that are none";
}

TEST(Meeting, AsAMailerShowsPeople) {
    EXPECT_EQ(
        meeting_lines("PidLidAppointmentStartWhole:time=2026-11-20T10:00:00Z\nPidTagSenderName:unicode="
                      "Boss\nPidLidToAttendeesString:unicode=A; B\nPidLidCcAttendeesString:unicode=C\n"),
        (Lines{"when      Fri 2026-11-20 10:00 - 10:00 (UTC)", "from      Boss", "required  A, B", "optional  C"}));
}

TEST(Meeting, Classes) {
    EXPECT_EQ(class_in_words("IPM.Schedule.Meeting.Request"), "invitation to a meeting");
    EXPECT_EQ(class_in_words("IPM.Other"), "");
}

}  // namespace
}  // namespace morvane
