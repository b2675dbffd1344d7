// Reading calendars: what is kept of the text, what becomes of damaged and oversized ones, the module.
#include "mapi/calendar_reader.h"

#include <algorithm>
#include <chrono>
#include <string>

#include <gtest/gtest.h>

#include "cvc/utf8.h"
#include "mapi/token_reader.h"
#include "os/module.h"
#include "support/log_lines.h"

namespace {

std::string calendar(std::string_view inside) { return "BEGIN:VCALENDAR\n" + std::string(inside) + "END:VCALENDAR\n"; }
std::string event(std::string_view inside) { return calendar("BEGIN:VEVENT\n" + std::string(inside) + "END:VEVENT\n"); }

struct LinesRow {
    std::string text, lines;
    std::string_view why;
};

TEST(CalendarLines, WhatIsKept) {
    const std::string empty_event = event("");
    const LinesRow rows[] = {
        {"begin:vcalendar\r\nBegin : VEVENT\r\nEND:VCALENDAR\r\n", "", "an event's beginning has no blanks in it"},
        {"\xEF\xBB\xBF"
         "BEGIN:VCALENDAR\r\nbegin:vevent \r\nend:vevent\r\nEND:VCALENDAR",
         empty_event, "any case, CR LF, a byte order mark, no last line end"},
        {event("UID:a\nPRODID:x\nX-OTHER:y\nsummary;language=en:z\n"), event("UID:a\nSUMMARY;language=en:z\n"),
         "what becomes nothing is left out"},
        {event("SUMMARY:a\r\n b\r\n\tc\n"), event("SUMMARY:abc\n"), "folded lines"},
        {event("SUMMARY:\xC3\n \xA4\n"), event("SUMMARY:\xC3\xA4\n"), "folded within a character"},
        {event("SUMMARY:\xE4x\xFF\n"), event("SUMMARY:\xC3\xA4x\xC3\xBF\n"), "Latin-1"},
        {event(std::string("SUMMARY:a\0b\n", 12)), event("SUMMARY:a b\n"), "NUL bytes"},
        {event("ATTACH;VALUE=BINARY;ENCODING=BASE64:AAAA\n"), event("ATTACH:cid:0\n"),
         "only the number of attachments counts"},
        {event("BEGIN:X-MINE\nUID:b\nBEGIN:VEVENT\nEND:VEVENT\nEND:X-MINE\nUID:a\n"), event("UID:a\n"),
         "components that are not known"},
        {event("BEGIN:VALARM\nTRIGGER:-PT5M\nEND:VALARM\n"), event("BEGIN:VALARM\nTRIGGER:-PT5M\nEND:VALARM\n"),
         "an alarm"},
        {calendar("METHOD:REQUEST\nBEGIN:VTODO\nDUE:x\nEND:VTODO\n"),
         calendar("METHOD:REQUEST\nBEGIN:VTODO\nDUE:x\nEND:VTODO\n"), "a task"},
        {calendar("BEGIN:VJOURNAL\nEND:VJOURNAL\n"), "", "neither event nor task"},
        {calendar("METHOD:REQUEST\n"), "", "nothing at all"},
        {calendar("BEGIN:VEVENT\nUID:a\nEND:VTODO\nBEGIN:VEVENT\nEND:VEVENT\n"), empty_event,
         "an end that is another's"},
        {calendar("BEGIN:VEVENT\nUID:a\n"), "", "an event without end"},
        {empty_event.substr(0, empty_event.size() - 2), "", "a calendar without end"},
        {"BEGIN:VEVENT\nEND:VEVENT\n", "", "an event outside a calendar"},
        {"END:VEVENT\nEND:VCALENDAR\n" + empty_event, empty_event, "ends of nothing"},
        {empty_event + empty_event, empty_event + empty_event, "two calendars"},
        {"no calendar", "", "text"},
        {"", "", "nothing"},
    };
    for (const LinesRow& row : rows) EXPECT_EQ(calendar_lines(row.text), row.lines) << row.why;
}

TEST(CalendarLines, BoundsOfLines) {
    const std::string name = "SUMMARY:";
    const std::string fits(kLongestCalendarValue - name.size(), 'x');
    EXPECT_EQ(calendar_lines(event(name + fits + "\n")), event(name + fits + "\n"));
    EXPECT_EQ(calendar_lines(event(name + fits + "y\n")), event(name + fits + "\n"));
    const std::string cut = fits.substr(0, fits.size() - 1);
    EXPECT_EQ(calendar_lines(event(name + cut + "ß\n")), event(name + cut + "\n")) << "between characters";
    const std::string text(kLongestCalendarText - 12, 'x');
    EXPECT_EQ(calendar_lines(event("DESCRIPTION:" + text + "yz\n")), event("DESCRIPTION:" + text + "\n"));
}

TEST(CalendarLines, BoundsOfNumbers) {
    const LogLines log(12);
    std::string many, few;
    for (std::size_t i = 0; i < kMostCalendarComponents; ++i) few += "BEGIN:VEVENT\nEND:VEVENT\n";
    many = few + "BEGIN:VEVENT\nEND:VEVENT\n";
    EXPECT_EQ(calendar_lines(calendar(few)), calendar(few));
    EXPECT_EQ(log.all().size(), 0U);
    EXPECT_EQ(calendar_lines(calendar(many)), calendar(few));
    EXPECT_EQ(log.all().size(), 1U) << "what is left out is said";
    std::string attendees;
    for (std::size_t i = 0; i < kMostAttendees; ++i) attendees += "ATTENDEE:a\n";
    EXPECT_EQ(calendar_lines(event(attendees + "ATTENDEE:b\n")), event(attendees));
}

template <class Work>
double seconds_of(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Fifty megabytes in a line, and ten of much that is small: an answer in a time that grows with the bytes alone. The
// limit is wide, for sanitizers and busy machines; what is not linear takes hours.
TEST(CalendarLines, FiftyMegabytes) {
    constexpr std::size_t size = std::size_t{50} << 20;
    constexpr double limit = 60;
    const auto fill = [](std::string_view piece) {
        std::string text;
        while (text.size() < size / 5) text.append(piece);
        return text;
    };
    std::string out;
    EXPECT_LT(seconds_of([&] { out = calendar_lines(event("DESCRIPTION:" + std::string(size, 'x') + "\n")); }), limit)
        << "one line";
    EXPECT_EQ(out.size(), event("\n").size() + kLongestCalendarText);
    EXPECT_LT(seconds_of([&] { out = calendar_lines(event("DESCRIPTION:" + fill("x\n ") + "\n")); }), limit)
        << "folded";
    EXPECT_LT(seconds_of([&] { out = calendar_lines(event(fill("BEGIN:X\n"))); }), limit) << "deep";
    EXPECT_EQ(out, "");
    EXPECT_LT(seconds_of(
                  [&] { out = calendar_lines(calendar(fill("BEGIN:VEVENT\nSUMMARY:xxxxxxxxxxxxxxx\nEND:VEVENT\n"))); }),
              limit)
        << "events";
    EXPECT_LE(out.size(), kMostCalendarBytes);
    EXPECT_LT(seconds_of([&] { out = calendar_lines(fill(event("SUMMARY:x\n"))); }), limit) << "calendars";
    EXPECT_LE(out.size(), kMostCalendarBytes);
}

TEST(CalendarReader, ComponentsAndProperties) {
    const auto calendars =
        read_calendar(calendar("METHOD:REQUEST\nBEGIN:VEVENT\nSUMMARY:a\\, b\\nc\\;\\\\\nATTENDEE;CN=\"A: "
                               "B\";ROLE=CHAIR:mailto:a@b\nDURATION:-PT1H30M\n"
                               "EXDATE:20261120T100000,20261121T100000\nRRULE:FREQ=WEEKLY;BYDAY=MO\nX-MICROSOFT-CDO-"
                               "BUSYSTATUS:FREE\nATTACH:http://x\n"
                               "BEGIN:VALARM\nTRIGGER:-PT15M\nEND:VALARM\nBEGIN:VALARM\nTRIGGER;VALUE=DATE-TIME:"
                               "20261120T100000Z\nEND:VALARM\nEND:VEVENT\n"
                               "BEGIN:VTIMEZONE\nTZID:z\nBEGIN:STANDARD\nDTSTART:20000101T000000\nTZOFFSETFROM:-"
                               "0330\nTZOFFSETTO:+0100\nEND:STANDARD\nEND:VTIMEZONE\n"));
    ASSERT_EQ(calendars.size(), 1U);
    EXPECT_EQ(calendars[0].value("METHOD"), "REQUEST");
    ASSERT_EQ(calendars[0].components.size(), 2U);
    const auto is_event = [](const CalendarComponent& component) { return component.name == "VEVENT"; };
    const auto& components = calendars[0].components;
    const CalendarComponent& entry = *std::find_if(components.begin(), components.end(), is_event);
    EXPECT_EQ(entry.name, "VEVENT");
    EXPECT_EQ(entry.value("SUMMARY"), "a, b\nc;\\");
    EXPECT_EQ(entry.first("ATTENDEE")->parameter("CN"), "A: B");
    EXPECT_EQ(entry.first("ATTENDEE")->parameter("ROLE"), "CHAIR");
    EXPECT_EQ(entry.first("ATTENDEE")->parameter("RSVP"), "");
    EXPECT_EQ(entry.value("ATTENDEE"), "mailto:a@b");
    EXPECT_EQ(entry.value("DURATION"), "-5400");
    EXPECT_EQ(entry.value("RRULE"), "FREQ=WEEKLY;BYDAY=MO");
    EXPECT_EQ(entry.value("X-MICROSOFT-CDO-BUSYSTATUS"), "FREE");
    EXPECT_EQ(entry.value("UID"), "");
    EXPECT_EQ(std::count_if(entry.properties.begin(), entry.properties.end(),
                            [](const auto& p) { return p.name == "EXDATE"; }),
              2)
        << "a list is several";
    ASSERT_EQ(entry.components.size(), 2U);
    EXPECT_EQ(entry.components[0].value("TRIGGER"), "-900");
    EXPECT_EQ(entry.components[1].value("TRIGGER"), "20261120T100000Z");
    const CalendarComponent& zone = *std::find_if_not(components.begin(), components.end(), is_event);
    const CalendarComponent& observance = zone.components.at(0);
    EXPECT_EQ(observance.value("TZOFFSETFROM"), "-12600");
    EXPECT_EQ(observance.value("TZOFFSETTO"), "+3600");
}

TEST(CalendarReader, ValuesThatAreNoneAreLeftOut) {
    const auto calendars = read_calendar(event("DTSTART:tomorrow\nRRULE:FREQ=OFTEN\nDURATION:long\nSUMMARY\nUID:a\n"));
    ASSERT_EQ(calendars.size(), 1U);
    const CalendarComponent& entry = calendars[0].components.at(0);
    EXPECT_EQ(entry.value("UID"), "a");
    EXPECT_EQ(entry.first("DTSTART"), nullptr);
    EXPECT_EQ(entry.first("RRULE"), nullptr);
}

// A backslash before a character of several bytes is no escape, and what is left of the character must not stay alone.
TEST(CalendarReader, TextIsUtf8WhateverStandsBehindABackslash) {
    for (const char* text : {"a\\\xc3\xa9z", "a\\\x92z", "a\\\xe2\x82\xacz", "a\\\xf0\x9f\x98\x80z", "a\\"}) {
        const auto calendars = read_calendar(event("UID:a\nDESCRIPTION:" + std::string(text) + "\n"));
        ASSERT_EQ(calendars.size(), 1u);
        const std::string_view value = calendars[0].components[0].value("DESCRIPTION");
        EXPECT_EQ(check_utf8(value).valid, value.size()) << text;
        EXPECT_TRUE(value.starts_with('a')) << text;
    }
}

TEST(CalendarReader, AModuleThatIsNotThere) {
    const LogLines log(12);
    forget_properties_module();
    os_set_module_folder("/nowhere");
    EXPECT_TRUE(read_calendar(event("UID:a\n")).empty());
    EXPECT_TRUE(read_calendar(event("UID:a\n")).empty());
    EXPECT_EQ(log.all().size(), 1U) << "said once";
    forget_properties_module();
    os_set_module_folder(std::nullopt);
    EXPECT_FALSE(read_calendar(event("UID:a\n")).empty());
}

}  // namespace
