// Calendars as messages: classes, properties, text, lists; hostile and damaged ones.
#include "mapi/calendar.h"

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "mapi/calendar_mapping.h"
#include "mapi/property_text.h"
#include "mapi/property_xml.h"
#include "support/bytes.h"
#include "support/home.h"
#include "support/log_lines.h"

namespace {

constexpr std::string_view kTimes = "DTSTART:20261120T100000Z\nDTEND:20261120T110000Z\n";

std::string calendar(std::string_view method, std::string_view inside) {
    const std::string line = method.empty() ? "" : "METHOD:" + std::string(method) + "\n";
    return "BEGIN:VCALENDAR\nVERSION:2.0\n" + line + std::string(inside) + "END:VCALENDAR\n";
}
std::string component(std::string_view name, std::string_view inside) {
    return "BEGIN:" + std::string(name) + "\n" + std::string(inside) + "END:" + std::string(name) + "\n";
}
std::string event(std::string_view inside) { return component("VEVENT", inside); }
std::string task(std::string_view inside) { return component("VTODO", inside); }

class Calendar : public testing::Test {
protected:
    // The properties of one message by name, values as property text has them.
    using Values = std::map<std::string, std::string, std::less<>>;

    struct Message {
        std::string item_class;
        Values values;
        std::string operator[](std::string_view name) const {
            const auto found = values.find(name);
            return found == values.end() ? "(none)" : found->second;
        }
    };
    Message message_of(const MAPI_ICAL_2_XML& made) {
        im_Item tnef = im_create(im_Domain::temporary, kScratchItem);
        const MSGSTORE_MAPI_INFO info = mapi_CreateMapiInfoFromXml(made.pPnPropsXml, tnef);
        EXPECT_EQ(info.utf8Subject, made.pUtf8Subject);
        EXPECT_EQ(info.utf8Description, made.pTextDescription);
        EXPECT_EQ(info.utcRecurrenceIdTime, made.utcRecurrenceIdTime);
        Message message{info.itemClass, {}};
        for (std::string_view rest = info.listProps; !rest.empty();) {
            const std::string_view line = rest.substr(0, rest.find('\n'));
            rest.remove_prefix(line.size() + 1);
            const std::size_t colon = line.find(':'), equals = line.find('=');
            const std::string name(line.substr(0, colon));
            EXPECT_FALSE(message.values.contains(name)) << name << " stands there twice";
            message.values[name] = line.substr(equals + 1);
        }
        return message;
    }
    Message message(std::string_view text) {
        const auto made = mapi_IcalToPnProps(text, "subject");
        EXPECT_TRUE(made) << text;
        return made ? message_of(*made) : Message{};
    }
    Message of_event(std::string_view inside, std::string_view method = "REQUEST") {
        return message(calendar(method, event(inside)));
    }
    std::string item_class(std::string_view text) {
        const auto made = mapi_IcalToPnProps(text, "subject");
        return made ? message_of(*made).item_class : "";
    }
    static std::string described(std::string_view text) {
        const auto made = mapi_IcalToPnProps(text, "subject");
        return made ? made->pTextDescription : "";
    }
    // The first line of the description.
    static std::string when(std::string_view inside, std::string_view more = "") {
        const std::string text = described(calendar("REQUEST", std::string(more) + event(inside)));
        return text.substr(0, text.find('\n'));
    }
    std::optional<AppointmentRecurrence> recurrence(std::string_view text) {
        const auto bytes = mapi_read_base64(message(text)["PidLidAppointmentRecur"]);
        return bytes ? decode_recurrence(*bytes) : std::nullopt;
    }

    TestHome home_;
};

TEST_F(Calendar, Classes) {
    const std::string attendee = "ATTENDEE;PARTSTAT=";
    const struct {
        std::string_view method;
        std::string inside;
        std::string_view item_class, why;
    } rows[] = {
        {"REQUEST", event(kTimes), "IPM.Schedule.Meeting.Request", ""},
        {"request", event(kTimes), "IPM.Schedule.Meeting.Request", "in any case"},
        {"ADD", event(kTimes), "IPM.Schedule.Meeting.Request", "another occurrence is asked for"},
        {"CANCEL", event(kTimes), "IPM.Schedule.Meeting.Canceled", ""},
        {"PUBLISH", event(kTimes), "IPM.Appointment", ""},
        {"", event(kTimes), "IPM.Appointment", "no method"},
        {"X-OWN", event(kTimes), "IPM.Appointment", "a method that nobody knows"},
        {"REPLY", event(attendee + "ACCEPTED:mailto:a@b\n"), "IPM.Schedule.Meeting.Resp.Pos", ""},
        {"REPLY", event(attendee + "DECLINED:mailto:a@b\n"), "IPM.Schedule.Meeting.Resp.Neg", ""},
        {"REPLY", event(attendee + "tentative:mailto:a@b\n"), "IPM.Schedule.Meeting.Resp.Tent", ""},
        {"REPLY", event(attendee + "NEEDS-ACTION:mailto:a@b\n"), "", "no answer is no answer"},
        {"REPLY", event(attendee + "DELEGATED:mailto:a@b\n"), "", "nor is another's"},
        {"REPLY", event(kTimes), "", "nor is nobody's"},
        {"COUNTER", event(kTimes), "IPM.Schedule.Meeting.Resp.Tent", "a counter-proposal"},
        {"DECLINECOUNTER", event(kTimes), "", "no message for that"},
        {"REFRESH", event(kTimes), "", "nor for that"},
        {"", task("SUMMARY:t\n"), "IPM.Task", "a task"},
        {"REQUEST", task("SUMMARY:t\n"), "IPM.Task", "however it comes"},
        {"REQUEST", component("VJOURNAL", "SUMMARY:j\n"), "", "neither event nor task"},
        {"REQUEST", "", "", "nothing"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(item_class(calendar(row.method, row.inside)), row.item_class) << row.method << " " << row.why;
    EXPECT_EQ(item_class("no calendar"), "");
}

TEST_F(Calendar, WhatEveryEventHas) {
    const Message made = of_event("UID:a\n" + std::string(kTimes));
    for (const char* name :
         {"PidTagSubject", "PidLidAppointmentStartWhole", "PidLidAppointmentEndWhole", "PidLidAppointmentDuration",
          "PidLidAppointmentSubType", "PidLidBusyStatus", "PidLidAppointmentSequence", "PidLidGlobalObjectId",
          "PidLidCleanGlobalObjectId", "PidLidIsRecurring", "PidLidReminderSet", "PidLidReminderDelta",
          "PidTagSensitivity", "PidTagImportance"})
        EXPECT_NE(made[name], "(none)") << name;
    EXPECT_EQ(made["PidLidLocation"], "(none)") << "it has no place";
    EXPECT_EQ(made["PidTagSubject"], "subject") << "the message's, when the calendar gives none";
}

TEST_F(Calendar, ValuesOfAnEvent) {
    const struct {
        std::string_view line, property, value;
    } rows[] = {
        {"SUMMARY:a\\, b", "PidTagSubject", "a, b"},
        {"LOCATION:Room 1\\; Berlin", "PidLidLocation", "Room 1; Berlin"},
        {"SEQUENCE:7", "PidLidAppointmentSequence", "7"},
        {"SEQUENCE:-7", "PidLidAppointmentSequence", "0"},
        {"CLASS:PUBLIC", "PidTagSensitivity", "0"},
        {"CLASS:X-PERSONAL", "PidTagSensitivity", "1"},
        {"CLASS:PRIVATE", "PidTagSensitivity", "2"},
        {"CLASS:CONFIDENTIAL", "PidTagSensitivity", "3"},
        {"CLASS:X-OWN", "PidTagSensitivity", "2"},
        {"CLASS:PRIVATE", "PidLidPrivate", "true"},
        {"CLASS:PUBLIC", "PidLidPrivate", "false"},
        {"PRIORITY:0", "PidTagImportance", "1"},
        {"PRIORITY:1", "PidTagImportance", "2"},
        {"PRIORITY:4", "PidTagImportance", "2"},
        {"PRIORITY:5", "PidTagImportance", "1"},
        {"PRIORITY:6", "PidTagImportance", "0"},
        {"PRIORITY:9", "PidTagImportance", "0"},
        {"PRIORITY:10", "PidTagImportance", "1"},
        {"X-MICROSOFT-CDO-IMPORTANCE:2", "PidTagImportance", "2"},
        {"X-MICROSOFT-CDO-IMPORTANCE:3", "PidTagImportance", "1"},
        {"TRANSP:OPAQUE", "PidLidBusyStatus", "2"},
        {"TRANSP:TRANSPARENT", "PidLidBusyStatus", "0"},
        {"STATUS:TENTATIVE", "PidLidBusyStatus", "1"},
        {"X-MICROSOFT-CDO-BUSYSTATUS:FREE", "PidLidBusyStatus", "0"},
        {"X-MICROSOFT-CDO-BUSYSTATUS:TENTATIVE", "PidLidBusyStatus", "1"},
        {"X-MICROSOFT-CDO-BUSYSTATUS:BUSY", "PidLidBusyStatus", "2"},
        {"X-MICROSOFT-CDO-BUSYSTATUS:OOF", "PidLidBusyStatus", "3"},
        {"X-MICROSOFT-CDO-BUSYSTATUS:WORKINGELSEWHERE", "PidLidBusyStatus", "4"},
        {"X-MICROSOFT-CDO-BUSYSTATUS:LAZY", "PidLidBusyStatus", "2"},
        {"X-MICROSOFT-CDO-INTENDEDSTATUS:OOF", "PidLidIntendedBusyStatus", "3"},
        {"X-MICROSOFT-DISALLOW-COUNTER:TRUE", "PidLidAppointmentNotAllowPropose", "true"},
        {"CATEGORIES:Red,Blue", "PidNameKeywords", "Red\\;Blue"},
        {"DTSTAMP:20261101T120000Z", "PidLidOwnerCriticalChange", "2026-11-01T12:00:00Z"},
        {"ORGANIZER;CN=\"B, A\":MAILTO:b@x", "PidTagSentRepresentingName", "B, A"},
        {"ORGANIZER:mailto:b@x", "PidTagSentRepresentingName", "b@x"},
        {"ORGANIZER;CN=B:mailto:b@x", "PidTagSentRepresentingEmailAddress", "b@x"},
        {"ORGANIZER;CN=Caf^'e^' ^^:mailto:b@x", "PidTagSentRepresentingName", "Caf\"e\" ^"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(of_event(std::string(kTimes) + std::string(row.line) + "\n")[row.property], row.value) << row.line;
}

TEST_F(Calendar, Times) {
    const struct {
        std::string_view lines, start, end, minutes, all_day, why;
    } rows[] = {
        {"DTSTART:20261120T100000Z\nDTEND:20261120T113000Z\n", "2026-11-20T10:00:00Z", "2026-11-20T11:30:00Z", "90",
         "false", "UTC"},
        {"DTSTART;TZID=Europe/Paris:20260720T100000\nDTEND;TZID=Europe/London:20260720T100000\n",
         "2026-07-20T08:00:00Z", "2026-07-20T09:00:00Z", "60", "false", "two zones"},
        {"DTSTART;TZID=Romance Standard Time:20260720T100000\nDURATION:PT45M\n", "2026-07-20T08:00:00Z",
         "2026-07-20T08:45:00Z", "45", "false", "a duration"},
        {"DTSTART;TZID=Europe/Paris:20261024T100000\nDURATION:P1D\n", "2026-10-24T08:00:00Z", "2026-10-25T09:00:00Z",
         "1500", "false", "days are the clock's"},
        {"DTSTART;TZID=Europe/Paris:20261024T100000\nDURATION:PT23H59M\n", "2026-10-24T08:00:00Z",
         "2026-10-25T07:59:00Z", "1439", "false", "hours are exact"},
        {"DTSTART:20261120T100000\n", "2026-11-20T10:00:00Z", "2026-11-20T10:00:00Z", "0", "false",
         "floating, without an end"},
        {"DTSTART;VALUE=DATE:20261120\n", "2026-11-20T00:00:00Z", "2026-11-21T00:00:00Z", "1440", "true", "a day"},
        {"DTSTART;VALUE=DATE:20261120\nDTEND;VALUE=DATE:20261123\n", "2026-11-20T00:00:00Z", "2026-11-23T00:00:00Z",
         "4320", "true", "days"},
        {"DTSTART:20261120T000000Z\nDTEND:20261121T000000Z\nX-MICROSOFT-CDO-ALLDAYEVENT:TRUE\n", "2026-11-20T00:00:00Z",
         "2026-11-21T00:00:00Z", "1440", "true", "a day, said so"},
        {"DTSTART:20261120T010000Z\nDTEND:20261121T000000Z\nX-MICROSOFT-CDO-ALLDAYEVENT:TRUE\n", "2026-11-20T01:00:00Z",
         "2026-11-21T00:00:00Z", "1380", "false", "but it is none"},
        {"DTSTART:20261120T100000Z\nDTEND:20261120T090000Z\n", "2026-11-20T10:00:00Z", "2026-11-20T10:00:00Z", "0",
         "false", "an end before the start"},
        {"DTSTART;TZID=Middle/Earth:20261120T100000\n", "2026-11-20T10:00:00Z", "2026-11-20T10:00:00Z", "0", "false",
         "a zone that does not exist"},
    };
    ::setenv("TZ", "UTC", 1);
    for (const auto& row : rows) {
        const Message made = of_event(row.lines);
        EXPECT_EQ(made["PidLidAppointmentStartWhole"], row.start) << row.why;
        EXPECT_EQ(made["PidLidAppointmentEndWhole"], row.end) << row.why;
        EXPECT_EQ(made["PidLidCommonStart"], row.start) << row.why;
        EXPECT_EQ(made["PidLidAppointmentDuration"], row.minutes) << row.why;
        EXPECT_EQ(made["PidLidAppointmentSubType"], row.all_day) << row.why;
    }
    EXPECT_EQ(of_event("UID:a\n")["PidLidAppointmentStartWhole"], "(none)") << "an event without a time";
    EXPECT_EQ(of_event("DTSTART:16001231T000000Z\n")["PidLidAppointmentStartWhole"], "(none)") << "before time";
    EXPECT_EQ(of_event("DTSTART:16010101T000000Z\n")["PidLidAppointmentStartWhole"], "1601-01-01T00:00:00Z");
    EXPECT_EQ(of_event("DTSTART:45010101T000000Z\n")["PidLidAppointmentStartWhole"], "(none)") << "after it";
    EXPECT_EQ(of_event("DTSTART:20260230T000000Z\n")["PidLidAppointmentStartWhole"], "(none)") << "no such day";
}

TEST_F(Calendar, Zones) {
    const Message paris = of_event("DTSTART;TZID=Europe/Paris:20261120T100000\nRRULE:FREQ=DAILY\n");
    EXPECT_EQ(paris["PidLidTimeZoneDescription"], "Europe/Paris");
    EXPECT_EQ(
        hex(*mapi_read_base64(paris["PidLidTimeZoneStruct"])),
        hex(bytes(
            "C4FFFFFF 00000000 C4FFFFFF 0000 00000A00000005000300000000000000 0000 00000300000005000200000000000000")));
    const std::string definition = *mapi_read_base64(paris["PidLidAppointmentTimeZoneDefinitionRecur"]);
    EXPECT_NE(definition.find(std::string("R\0o\0m\0a\0n\0c\0e\0", 14)), std::string::npos)
        << "by the name that its readers know";
    EXPECT_EQ(of_event(kTimes)["PidLidTimeZoneStruct"], "(none)") << "only what recurs needs it";
    EXPECT_NE(of_event(kTimes)["PidLidAppointmentTimeZoneDefinitionStartDisplay"], "(none)");
    EXPECT_EQ(of_event("DTSTART:20261120T100000\n")["PidLidTimeZoneDescription"], "(none)")
        << "a floating time has no zone";
    EXPECT_EQ(of_event("DTSTART;VALUE=DATE:20261120\n")["PidLidTimeZoneDescription"], "(none)") << "nor has a day";
}

TEST_F(Calendar, ZoneOfTheCalendarItself) {
    const std::string own =
        "BEGIN:VTIMEZONE\nTZID:Own\nBEGIN:STANDARD\nDTSTART:20000101T000000\nTZOFFSETFROM:+0545\nTZOFFSETTO:+0545\nEND:"
        "STANDARD\nEND:VTIMEZONE\n";
    const Message made = message(calendar("REQUEST", own + event("DTSTART;TZID=Own:20261120T100000\n")));
    EXPECT_EQ(made["PidLidAppointmentStartWhole"], "2026-11-20T04:15:00Z");
    EXPECT_EQ(
        message(calendar("REQUEST", event("DTSTART;TZID=Own:20261120T100000\n") + own))["PidLidAppointmentStartWhole"],
        "2026-11-20T04:15:00Z")
        << "it may come later";
}

TEST_F(Calendar, Reminders) {
    const auto delta = [this](std::string_view alarm) {
        const Message made = of_event(std::string(kTimes) + component("VALARM", alarm));
        return made["PidLidReminderSet"] == "true"
                   ? made["PidLidReminderDelta"] + " " + made["PidLidReminderSignalTime"]
                   : "none";
    };
    EXPECT_EQ(delta("TRIGGER:-PT15M\nACTION:DISPLAY\n"), "15 2026-11-20T09:45:00Z");
    EXPECT_EQ(delta("TRIGGER:-P1DT2H\n"), "1560 2026-11-19T08:00:00Z");
    EXPECT_EQ(delta("TRIGGER;RELATED=END:-PT90M\n"), "30 2026-11-20T09:30:00Z");
    EXPECT_EQ(delta("TRIGGER;VALUE=DATE-TIME:20261120T094000Z\n"), "20 2026-11-20T09:40:00Z");
    EXPECT_EQ(delta("TRIGGER:PT15M\n"), "0 2026-11-20T10:00:00Z") << "after the start";
    EXPECT_EQ(delta("TRIGGER:PT0S\n"), "0 2026-11-20T10:00:00Z");
    EXPECT_EQ(delta("ACTION:DISPLAY\n"), "none") << "no trigger";
    EXPECT_EQ(of_event(std::string(kTimes) + component("VALARM", "TRIGGER:-PT5M\n") +
                       component("VALARM", "TRIGGER:-PT9M\n"))["PidLidReminderDelta"],
              "5")
        << "the first one";
    EXPECT_EQ(of_event(kTimes)["PidLidReminderSet"], "false");
}

TEST_F(Calendar, Attendees) {
    const Message made = of_event(
        std::string(kTimes) +
        "ATTENDEE;CN=A;ROLE=CHAIR;PARTSTAT=ACCEPTED:mailto:a@x\nATTENDEE;ROLE=REQ-PARTICIPANT;PARTSTAT=DECLINED;RSVP="
        "TRUE:mailto:b@x\n"
        "ATTENDEE;CN=C;ROLE=OPT-PARTICIPANT;PARTSTAT=TENTATIVE:mailto:c@x\nATTENDEE;CN=D;CUTYPE=ROOM:mailto:d@x\n"
        "ATTENDEE;CN=E;CUTYPE=RESOURCE;ROLE=OPT-PARTICIPANT:mailto:e@x\nATTENDEE;CN=F;ROLE=NON-PARTICIPANT:mailto:f@"
        "x\n");
    EXPECT_EQ(made["PidLidAllAttendeesString"], "A; b@x; C; D; E; F");
    EXPECT_EQ(made["PidLidToAttendeesString"], "A; b@x");
    EXPECT_EQ(made["PidLidCcAttendeesString"], "C");
    EXPECT_EQ(made["PidLidRequiredAttendees"], "a@x; b@x");
    EXPECT_EQ(made["PidLidOptionalAttendees"], "c@x");
    EXPECT_EQ(made["PidLidResourceAttendees"], "d@x; e@x; f@x");
    EXPECT_EQ(made["PidLidNonSendToTrackStatus"], "3\\;4");
    EXPECT_EQ(made["PidLidNonSendCcTrackStatus"], "2");
    EXPECT_EQ(made["PidLidNonSendBccTrackStatus"], "5\\;5\\;5");
    EXPECT_EQ(made["PidTagResponseRequested"], "true");
    EXPECT_EQ(of_event(std::string(kTimes) + "ATTENDEE:mailto:a@x\n")["PidTagResponseRequested"], "false");
    EXPECT_EQ(of_event(kTimes)["PidLidAllAttendeesString"], "(none)");
}

TEST_F(Calendar, StatesOfMeetings) {
    const std::string guest =
        std::string(kTimes) +
        "ATTENDEE;PARTSTAT=ACCEPTED;CN=A:mailto:a@x\nORGANIZER:mailto:o@x\nDTSTAMP:20261101T000000Z\n";
    const Message request = of_event(guest, "REQUEST"), cancel = of_event(guest, "CANCEL"),
                  reply = of_event(guest, "REPLY"), own = of_event(guest, "");
    EXPECT_EQ(request["PidLidAppointmentStateFlags"], "3");
    EXPECT_EQ(request["PidLidMeetingType"], "1");
    EXPECT_EQ(request["PidLidResponseStatus"], "5");
    EXPECT_EQ(cancel["PidLidAppointmentStateFlags"], "7");
    EXPECT_EQ(own["PidLidAppointmentStateFlags"], "1");
    EXPECT_EQ(of_event(kTimes, "")["PidLidAppointmentStateFlags"], "0");
    EXPECT_EQ(reply["PidTagSentRepresentingEmailAddress"], "a@x") << "who answers";
    EXPECT_EQ(request["PidTagSentRepresentingEmailAddress"], "o@x") << "who asks";
    EXPECT_EQ(reply["PidLidAppointmentReplyTime"], "2026-11-01T00:00:00Z");
    EXPECT_EQ(reply["PidLidAttendeeCriticalChange"], "2026-11-01T00:00:00Z");
    EXPECT_EQ(reply["PidLidAppointmentReplyName"], "A");
    EXPECT_EQ(reply["PidLidOwnerCriticalChange"], "(none)");
    EXPECT_EQ(own["PidTagIconIndex"], "1026");
    EXPECT_EQ(of_event(kTimes, "")["PidTagIconIndex"], "1024");
    EXPECT_EQ(of_event(std::string(kTimes) + "RRULE:FREQ=DAILY\n", "")["PidTagIconIndex"], "1025");
}

TEST_F(Calendar, CounterProposals) {
    const Message made = of_event(std::string(kTimes) +
                                      "X-MS-OLK-ORIGINALSTART:20261119T100000Z\nX-MS-OLK-ORIGINALEND:"
                                      "20261119T103000Z\nATTENDEE;PARTSTAT=TENTATIVE:mailto:a@x\n",
                                  "COUNTER");
    EXPECT_EQ(made["PidLidAppointmentCounterProposal"], "true");
    EXPECT_EQ(made["PidLidAppointmentProposedStartWhole"], "2026-11-20T10:00:00Z");
    EXPECT_EQ(made["PidLidAppointmentProposedEndWhole"], "2026-11-20T11:00:00Z");
    EXPECT_EQ(made["PidLidAppointmentProposedDuration"], "60");
    EXPECT_EQ(made["PidLidAppointmentStartWhole"], "2026-11-19T10:00:00Z");
    EXPECT_EQ(made["PidLidAppointmentDuration"], "30");
    EXPECT_EQ(of_event(kTimes)["PidLidAppointmentCounterProposal"], "(none)");
}

TEST_F(Calendar, Identity) {
    const std::string head = "040000008200E00074C5B7101A82E008", zeros(40, '0');
    const auto id = [this](std::string_view lines, std::string_view name = "PidLidGlobalObjectId") {
        return hex(*mapi_read_base64(of_event(std::string(kTimes) + std::string(lines))[name]));
    };
    EXPECT_EQ(id("UID:ab\n"), hex(bytes(head + zeros + "0F000000 7643616C2D556964 01000000 'ab' 00")));
    EXPECT_EQ(id("UID:ab\nRECURRENCE-ID:20261119T100000Z\n"),
              hex(bytes(head + "07EA0B13" + zeros.substr(8) + "0F000000 7643616C2D556964 01000000 'ab' 00")));
    EXPECT_EQ(id("UID:ab\nRECURRENCE-ID:20261119T100000Z\n", "PidLidCleanGlobalObjectId"), id("UID:ab\n"));
    const std::string given = head + "07EA0101" + std::string(32, '1') + "04000000" + "DEADBEEF";
    EXPECT_EQ(id("UID:" + given + "\n"), hex(bytes(head + "00000000" + std::string(32, '1') + "04000000 DEADBEEF")))
        << "one that a store gave";
    EXPECT_EQ(id("UID:" + given + "0\n").substr(0, 4), "0400") << "an odd digit makes it any other";
    EXPECT_NE(id("UID:" + given + "0\n"), id("UID:" + given + "\n"));
    EXPECT_EQ(of_event(kTimes)["PidLidGlobalObjectId"], "(none)") << "no UID";
}

TEST_F(Calendar, RecurrenceWithExceptions) {
    const std::string master =
        "UID:u\nSUMMARY:S\nLOCATION:L\nDTSTART;TZID=Europe/Paris:20261120T100000\nDTEND;TZID=Europe/"
        "Paris:20261120T110000\nRRULE:FREQ=DAILY;COUNT=10\n";
    const auto made = recurrence(calendar(
        "REQUEST",
        event(master +
              "EXDATE;TZID=Europe/"
              "Paris:20261121T100000\nEXDATE:20261122T090000Z\nEXDATE;VALUE=DATE:20261123\nEXDATE:20270101T090000Z\n") +
            event("UID:u\nSUMMARY:Moved\nLOCATION:L\nRECURRENCE-ID:20261124T090000Z\nDTSTART:20261125T130000Z\nDTEND:"
                  "20261125T150000Z\nX-MICROSOFT-CDO-BUSYSTATUS:OOF\n") +
            event("UID:u\nSUMMARY:S\nLOCATION:L\nSTATUS:CANCELLED\nRECURRENCE-ID;TZID=Europe/"
                  "Paris:20261126T100000\nDTSTART:20261126T090000Z\n")));
    ASSERT_TRUE(made);
    const std::uint32_t start = made->pattern.start_date;
    const auto day = [start](std::uint32_t days) { return start + days * 1440; };
    EXPECT_EQ(made->start_offset, 600U);
    EXPECT_EQ(made->end_offset, 660U);
    EXPECT_EQ(made->pattern.deleted, (std::vector<std::uint32_t>{day(1), day(2), day(3), day(4), day(6)}));
    EXPECT_EQ(made->pattern.modified, (std::vector<std::uint32_t>{day(5)}));
    ASSERT_EQ(made->exceptions.size(), 1U);
    const RecurrenceException& moved = made->exceptions[0];
    EXPECT_EQ(moved.original_start, day(4) + 600);
    EXPECT_EQ(moved.start, day(5) + 14 * 60) << "in the clock of the series";
    EXPECT_EQ(moved.end, day(5) + 16 * 60);
    EXPECT_EQ(moved.changes, kChangedSubject | kChangedBusyStatus);
    EXPECT_EQ(moved.subject, "Moved");
    EXPECT_EQ(moved.busy_status, 3U);
}

TEST_F(Calendar, RecurrenceEndsInItsOwnZone) {
    const auto end = [this](std::string_view until) {
        const auto made =
            recurrence(calendar("", event("DTSTART;TZID=America/New_York:20261120T200000\nRRULE:FREQ=DAILY;UNTIL=" +
                                          std::string(until) + "\n")));
        return made ? made->pattern.occurrences : 0;
    };
    EXPECT_EQ(end("20261123T010000Z"), 3U) << "20:00 on the 22nd there";
    EXPECT_EQ(end("20261123T005959Z"), 2U);
    EXPECT_EQ(end("20261123"), 4U);
}

TEST_F(Calendar, OverMidnightAndAllDay) {
    const auto night =
        recurrence(calendar("", event("DTSTART:20261120T230000Z\nDTEND:20261121T010000Z\nRRULE:FREQ=WEEKLY\n")));
    ASSERT_TRUE(night);
    EXPECT_EQ(night->start_offset, 1380U);
    EXPECT_EQ(night->end_offset, 1500U);
    const auto day =
        recurrence(calendar("", event("DTSTART;VALUE=DATE:20261120\nRRULE:FREQ=YEARLY\nEXDATE;VALUE=DATE:20271120\n")));
    ASSERT_TRUE(day);
    EXPECT_EQ(day->start_offset, 0U);
    EXPECT_EQ(day->end_offset, 1440U);
    EXPECT_EQ(day->pattern.deleted.size(), 1U);
}

TEST_F(Calendar, PropertiesOfARecurrence) {
    const Message made = of_event(std::string(kTimes) + "RRULE:FREQ=WEEKLY;COUNT=3\n");
    EXPECT_EQ(made["PidLidIsRecurring"], "true");
    EXPECT_EQ(made["PidLidRecurring"], "true");
    EXPECT_EQ(made["PidLidRecurrenceType"], "2");
    EXPECT_EQ(made["PidLidRecurrencePattern"], "every week on Friday, 3 times");
    EXPECT_EQ(made["PidLidClipStart"], "2026-11-20T00:00:00Z");
    EXPECT_EQ(made["PidLidClipEnd"], "2026-12-04T00:00:00Z");
    EXPECT_EQ(of_event(std::string(kTimes) + "RRULE:FREQ=DAILY\n")["PidLidClipEnd"], "4500-08-31T23:59:00Z")
        << "without an end";
    EXPECT_EQ(of_event(kTimes)["PidLidIsRecurring"], "false");
    EXPECT_EQ(of_event(kTimes)["PidLidAppointmentRecur"], "(none)");
}

TEST_F(Calendar, RecurrenceThatTheStoreCannotKeep) {
    for (const std::string_view rule : {"RRULE:FREQ=HOURLY", "RRULE:FREQ=DAILY\nRRULE:FREQ=WEEKLY",
                                        "RRULE:FREQ=DAILY\nRDATE:20261125T100000Z", "RDATE:20261125T100000Z"}) {
        const std::string inside =
            std::string(kTimes) + std::string(rule) + "\nATTENDEE;PARTSTAT=ACCEPTED:mailto:a@x\n";
        EXPECT_EQ(item_class(calendar("REQUEST", event(inside))), "") << rule << ": better kept as it came";
        EXPECT_EQ(item_class(calendar("", event(inside))), "") << rule;
        EXPECT_EQ(item_class(calendar("REQUEST", event(kTimes) + event(inside))), "")
            << rule << ": all of the calendar";
        EXPECT_EQ(item_class(calendar("REPLY", event(inside))), "IPM.Schedule.Meeting.Resp.Pos")
            << rule << ": an answer is one";
        EXPECT_EQ(item_class(calendar("CANCEL", event(inside))), "IPM.Schedule.Meeting.Canceled") << rule;
    }
}

TEST_F(Calendar, Lists) {
    const auto made = mapi_IcalToPnProps(
        calendar("REQUEST",
                 event("UID:b\nSUMMARY:override\nRECURRENCE-ID:20261121T100000Z\nSEQUENCE:2\n" + std::string(kTimes)) +
                     event("UID:a\nSUMMARY:other\nATTACH:http://x\nATTACH:http://y\n" + std::string(kTimes)) +
                     event("UID:b\nSUMMARY:master\nRRULE:FREQ=DAILY\n" + std::string(kTimes)) +
                     task("UID:t\nSUMMARY:task\n") +
                     event("UID:c\nSUMMARY:lone\nRECURRENCE-ID;VALUE=DATE:20261122\nDTSTART;VALUE=DATE:20261122\n") +
                     event("SUMMARY:no uid\n" + std::string(kTimes)) +
                     event("UID:a\nSUMMARY:again\n" + std::string(kTimes))),
        "subject");
    struct Row {
        std::string subject, id;
        bool operator==(const Row&) const = default;
    };
    std::vector<Row> rows;
    for (const MAPI_ICAL_2_XML* entry = made.get(); entry != nullptr; entry = entry->next.get())
        rows.push_back({entry->pUtf8Subject, entry->utcRecurrenceIdTime});
    const std::vector<Row> expected = {{"master", ""}, {"override", "2026-11-21T10:00:00Z"}, {"other", ""},
                                       {"task", ""},   {"lone", "2026-11-22T00:00:00Z"},     {"no uid", ""},
                                       {"again", ""}};
    ASSERT_EQ(rows.size(), expected.size());
    for (std::size_t i = 0; i < rows.size(); ++i)
        EXPECT_EQ(rows[i].subject + rows[i].id, expected[i].subject + expected[i].id) << i;
    EXPECT_EQ(made->next->sequenceNum, 2U);
    EXPECT_EQ(made->next->next->attachCount, 2);
    const Message override_made = message_of(*made->next);
    EXPECT_EQ(override_made["PidLidIsException"], "true");
    EXPECT_EQ(override_made["PidLidExceptionReplaceTime"], "2026-11-21T10:00:00Z");
    EXPECT_EQ(override_made["PidLidIsRecurring"], "true");
    EXPECT_EQ(message_of(*made)["PidLidIsException"], "false");
}

TEST_F(Calendar, Tasks) {
    const auto of_task = [this](std::string_view inside) { return message(calendar("", task(inside))); };
    const Message made = of_task(
        "SUMMARY:t\nDTSTART:20261120T100000Z\nDUE:20261125T170000Z\nSTATUS:IN-PROCESS\nPERCENT-COMPLETE:40\nPRIORITY:"
        "1\nORGANIZER;CN=O:mailto:o@x\nRRULE:FREQ=DAILY\n" +
        component("VALARM", "TRIGGER:-PT10M\n"));
    EXPECT_EQ(made["PidTagSubject"], "t");
    EXPECT_EQ(made["PidLidTaskStartDate"], "2026-11-20T00:00:00Z");
    EXPECT_EQ(made["PidLidTaskDueDate"], "2026-11-25T00:00:00Z");
    EXPECT_EQ(made["PidLidCommonEnd"], "2026-11-25T17:00:00Z");
    EXPECT_EQ(made["PidLidTaskStatus"], "1");
    EXPECT_EQ(made["PidLidPercentComplete"], "0.4");
    EXPECT_EQ(made["PidLidTaskComplete"], "false");
    EXPECT_EQ(made["PidTagImportance"], "2");
    EXPECT_EQ(made["PidLidTaskOwner"], "O");
    EXPECT_EQ(made["PidLidReminderDelta"], "10");
    EXPECT_EQ(made["PidLidTaskFRecurring"], "true");
    EXPECT_TRUE(decode_pattern(*mapi_read_base64(made["PidLidTaskRecurrence"])));
    EXPECT_EQ(made["PidLidAppointmentStartWhole"], "(none)");
    const struct {
        std::string_view lines, status;
    } rows[] = {{"STATUS:NEEDS-ACTION\n", "0"},
                {"STATUS:COMPLETED\n", "2"},
                {"STATUS:CANCELLED\n", "4"},
                {"PERCENT-COMPLETE:100\n", "2"},
                {"PERCENT-COMPLETE:10\n", "1"},
                {"COMPLETED:20261120T100000Z\n", "2"},
                {"", "0"},
                {"PERCENT-COMPLETE:200\n", "2"}};
    for (const auto& row : rows) EXPECT_EQ(of_task(row.lines)["PidLidTaskStatus"], row.status) << row.lines;
    EXPECT_EQ(of_task("COMPLETED:20261120T100000Z\n")["PidLidTaskDateCompleted"], "2026-11-20T00:00:00Z");
    EXPECT_EQ(of_task("STATUS:COMPLETED\n")["PidLidPercentComplete"], "1");
    EXPECT_EQ(of_task("DUE;VALUE=DATE:20261125\n" + component("VALARM", "TRIGGER:-PT10M\n"))["PidLidReminderSet"],
              "true")
        << "before it is due";
}

TEST_F(Calendar, WhenInWords) {
    EXPECT_EQ(when("DTSTART;TZID=Europe/Paris:20261120T100000\nDTEND;TZID=Europe/Paris:20261120T110000\n"),
              "When: 2026-11-20 10:00 - 11:00 (Europe/Paris)");
    EXPECT_EQ(when(kTimes), "When: 2026-11-20 10:00 - 11:00 (UTC)");
    EXPECT_EQ(when("DTSTART;VALUE=DATE:20261120\n"), "When: 2026-11-20 (all day)");
    EXPECT_EQ(when("DTSTART;VALUE=DATE:20261120\nDTEND;VALUE=DATE:20261121\n"), "When: 2026-11-20 (all day)");
    EXPECT_EQ(when("DTSTART;VALUE=DATE:20261120\nDTEND;VALUE=DATE:20261123\n"),
              "When: 2026-11-20 - 2026-11-22 (all day)");
    EXPECT_EQ(when("DTSTART:20261120T100000\nDTEND:20261120T110000\n"), "When: 2026-11-20 10:00 - 11:00") << "floating";
    EXPECT_EQ(when("DTSTART:20261120T230000Z\nDTEND:20261121T010000Z\n"),
              "When: 2026-11-20 23:00 - 2026-11-21 01:00 (UTC)");
    EXPECT_EQ(when("DTSTART;TZID=Europe/Paris:20261120T100000\nDTEND;TZID=America/New_York:20261120T060000\n"),
              "When: 2026-11-20 10:00 - 12:00 (Europe/Paris)")
        << "one clock";
    EXPECT_EQ(when("DTSTART;TZID=/mozilla.org/x/Europe/Paris:20261120T100000\n"),
              "When: 2026-11-20 10:00 - 10:00 (Europe/Paris)");
    EXPECT_EQ(when("SUMMARY:x\n"), "") << "no time, no line";
    EXPECT_EQ(described(calendar("", task("DUE:20261125T170000Z\n"))),
              "When: 2026-11-25 17:00 (UTC)\n\n*~*~*~*~*~*~*~*~*~*\n\n");
}

TEST_F(Calendar, TextForPeople) {
    EXPECT_EQ(
        described(
            calendar("REQUEST", event("DTSTART;TZID=Europe/Paris:20261120T100000\nDTEND;TZID=Europe/"
                                      "Paris:20261120T110000\nLOCATION:Room 1\nDESCRIPTION:the\\nDESCRIPTION\n"))),
        "When: 2026-11-20 10:00 - 11:00 (Europe/Paris)\nWhere: Room 1\n\n*~*~*~*~*~*~*~*~*~*\n\nthe\nDESCRIPTION\n");
    EXPECT_EQ(described(calendar("REQUEST", event("LOCATION:a\\nb\nDESCRIPTION:x\\n\n"))),
              "Where: a b\n\n*~*~*~*~*~*~*~*~*~*\n\nx\n");
}

TEST_F(Calendar, LongTextsAreBounded) {
    std::string place;
    for (int i = 0; i < 300; ++i) place += "ß";
    const Message made = of_event(std::string(kTimes) + "LOCATION:" + place + "\n");
    EXPECT_EQ(made["PidLidLocation"].size(), 2U * 255);
    EXPECT_EQ(made["PidLidWhere"].size(), 2U * 300);
}

TEST_F(Calendar, CharactersThatAreNone) {
    const auto made = mapi_IcalToPnProps(calendar("", event(std::string("SUMMARY:a\x01\xE4\xFF\0b\n", 15))), "s");
    ASSERT_TRUE(made);
    EXPECT_EQ(made->pUtf8Subject, "a\x01äÿ b");
    EXPECT_EQ(made->pPnPropsXml.find('\x01'), std::string::npos) << "what XML cannot hold";
}

// ---- what it must withstand

template <class Work>
double seconds_of(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
constexpr double kLimit = 60;  // wide, for sanitizers and busy machines

TEST_F(Calendar, ThousandsOfEvents) {
    std::string many;
    for (int i = 0; i < 5000; ++i)
        many += event("UID:" + std::to_string(i) + "\nRRULE:FREQ=DAILY;COUNT=40000\n" + std::string(kTimes));
    std::size_t entries = 0;
    EXPECT_LT(seconds_of([&] {
                  const auto made = mapi_IcalToPnProps(calendar("", many), "s");
                  for (const auto* entry = made.get(); entry != nullptr; entry = entry->next.get()) ++entries;
              }),
              kLimit);
    EXPECT_EQ(entries, kMostCalendarComponents);
    std::string overrides;
    for (int i = 0; i < 5000; ++i)
        overrides += event("UID:u\nRECURRENCE-ID:2026" + std::string(i % 2 ? "1121" : "1122") + "T100000Z\n" +
                           std::string(kTimes));
    EXPECT_LT(seconds_of([&] {
                  mapi_IcalToPnProps(calendar("", event("UID:u\nRRULE:FREQ=DAILY\n" + std::string(kTimes)) + overrides),
                                     "s");
              }),
              kLimit)
        << "one series";
    std::string attendees;
    for (int i = 0; i < 20'000; ++i)
        attendees += "ATTENDEE;CN=Somebody With A Name;ROLE=OPT-PARTICIPANT:mailto:somebody@x.org\n";
    EXPECT_LT(seconds_of([&] { of_event(std::string(kTimes) + attendees); }), kLimit) << "attendees";
    std::string zone;
    for (int i = 0; i < 5000; ++i)
        zone +=
            "BEGIN:STANDARD\nDTSTART:20000101T000000\nRRULE:FREQ=YEARLY;BYMONTH=3;BYDAY=1SU\nTZOFFSETFROM:+"
            "0100\nTZOFFSETTO:+0200\nEND:STANDARD\n";
    zone = "BEGIN:VTIMEZONE\nTZID:z\n" + zone + "END:VTIMEZONE\n";
    std::string dates;
    for (int i = 0; i < 1000; ++i) dates += "EXDATE;TZID=z:20261121T100000\n";
    EXPECT_LT(seconds_of([&] {
                  mapi_IcalToPnProps(
                      calendar("", zone + event("DTSTART;TZID=z:20261120T100000\nRRULE:FREQ=DAILY\n" + dates)), "s");
              }),
              kLimit)
        << "a zone of many changes";
}

TEST_F(Calendar, RulesOfAnyKind) {
    for (const std::string_view rule :
         {"FREQ=SECONDLY;BYMONTH=2;BYMONTHDAY=30", "FREQ=YEARLY;INTERVAL=999999999999",
          "FREQ=DAILY;COUNT=99999999999999999999", "FREQ=YEARLY;BYMONTH=2;BYMONTHDAY=30",
          "FREQ=WEEKLY;INTERVAL=999;COUNT=40000", "FREQ=MONTHLY;UNTIL=44991231T000000Z", "FREQ=DAILY;UNTIL=16010101"})
        EXPECT_LT(seconds_of([&] {
                      mapi_IcalToPnProps(calendar("", event(std::string(kTimes) + "RRULE:" + std::string(rule) + "\n")),
                                         "s");
                  }),
                  kLimit)
            << rule;
    of_event("DTSTART:45001231T235959Z\nDURATION:P99999D\nRRULE:FREQ=DAILY\n" +
             component("VALARM", "TRIGGER:-P99999D\n"));
    of_event(
        "DTSTART;TZID=America/"
        "New_York:16010101T000000\nRRULE:FREQ=DAILY;COUNT=2\nEXDATE:16010101T000000Z\nRECURRENCE-ID:16010101T000000\n");
}

TEST_F(Calendar, CutAnywhereItGivesNothing) {
    const std::string text = calendar(
        "REQUEST", event("UID:a\nSUMMARY:Gespräch\nDTSTART;TZID=Europe/Paris:20261120T100000\nRRULE:FREQ=DAILY\n" +
                         component("VALARM", "TRIGGER:-PT5M\n")));
    for (std::size_t size = 0; size + 1 < text.size(); ++size)
        EXPECT_FALSE(mapi_IcalToPnProps(text.substr(0, size), "s")) << size;
    EXPECT_TRUE(mapi_IcalToPnProps(text.substr(0, text.size() - 1), "s"));
}

// Whatever byte is another one: an answer, and if it is XML, it is read again.
TEST_F(Calendar, AnyByteTurned) {
    const std::string text = calendar(
        "REQUEST",
        event("UID:a\nSUMMARY:S\nDTSTART;TZID=Europe/"
              "Paris:20261120T100000\nDURATION:PT1H\nRRULE:FREQ=WEEKLY;BYDAY=MO,FR;COUNT=3\nEXDATE:20261123T090000Z\n"
              "ATTENDEE;CN=A;PARTSTAT=ACCEPTED:mailto:a@x\n" +
              component("VALARM", "TRIGGER:-PT5M\n")));
    for (std::size_t at = 0; at < text.size(); ++at)
        for (const char turned : {'\0', '\n', ':', ';', '\xFF', static_cast<char>(text[at] ^ 1)}) {
            std::string other = text;
            other[at] = turned;
            const auto made = mapi_IcalToPnProps(other, "s");
            if (made) message_of(*made);
        }
}

}  // namespace
