// Time zones: described by calendars, by the system, by Windows' names.
#include "mapi/calendar_zone.h"

#include <cstdlib>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "er/er.h"
#include "mapi/calendar_mapping.h"
#include "mapi/tzif.h"
#include "support/bytes.h"
#include "support/log_lines.h"

namespace {

std::int64_t at(std::string_view time) { return parse_calendar_time(time)->seconds; }

CalendarComponent observance(std::string_view name, std::string_view start, int from, int to, std::string_view rule) {
    CalendarComponent component;
    component.name = name;
    component.properties = {{"DTSTART", std::string(start), {}},
                            {"TZOFFSETFROM", std::to_string(from), {}},
                            {"TZOFFSETTO", std::to_string(to), {}}};
    if (!rule.empty()) component.properties.push_back({"RRULE", std::string(rule), {}});
    return component;
}

CalendarComponent zone_component(std::string tzid, std::vector<CalendarComponent> observances) {
    CalendarComponent zone;
    zone.name = "VTIMEZONE";
    zone.properties = {{"TZID", std::move(tzid), {}}};
    zone.components = std::move(observances);
    return zone;
}

CalendarComponent paris() {
    return zone_component("Somewhere",
                          {observance("STANDARD", "16010101T030000", 7200, 3600, "FREQ=YEARLY;BYDAY=-1SU;BYMONTH=10"),
                           observance("DAYLIGHT", "16010101T020000", 3600, 7200, "FREQ=YEARLY;BYDAY=-1SU;BYMONTH=3")});
}

struct ClockRow {
    std::string_view local, utc, why;
};
void expect_clock(const CalendarZone& zone, const std::vector<ClockRow>& rows) {
    for (const ClockRow& row : rows) {
        EXPECT_EQ(utc_text(zone.to_utc(at(row.local))), utc_text(at(row.utc)))
            << zone.name() << " " << row.local << ": " << row.why;
        EXPECT_EQ(utc_text(zone.to_local(zone.to_utc(at(row.local)))).substr(0, 13),
                  utc_text(at(row.local)).substr(0, 13))
            << row.local;
    }
}

const std::vector<ClockRow> kParis = {
    {"20261120T100000", "20261120T090000", "winter"},
    {"20260720T100000", "20260720T080000", "summer"},
    {"20260329T015959", "20260329T005959", "before the leap"},
    {"20260329T030000", "20260329T010000", "after it"},
    {"20261025T015959", "20261024T235959", "before the hour that comes twice"},
    {"20261025T023000", "20261025T003000", "within it, the first time"},
    {"20261025T030000", "20261025T020000", "after it"},
    {"20261231T235959", "20261231T225959", "the end of a year"},
    {"20270101T000000", "20261231T230000", "the beginning of one"},
};

TEST(CalendarZone, OfTheCalendar) {
    const auto zone = zone_of_component(paris());
    ASSERT_TRUE(zone);
    expect_clock(*zone, kParis);
    EXPECT_EQ(utc_text(zone->to_utc(at("20260329T023000"))), "2026-03-29T01:30:00Z")
        << "a time that the clock leaps over";
}

TEST(CalendarZone, OfTheSystem) {
    const auto zone = zone_of_olson("Europe/Paris", "Europe/Paris");
    ASSERT_TRUE(zone);
    expect_clock(*zone, kParis);
    expect_clock(*zone, {{"21000720T100000", "21000720T080000", "beyond what the file lists"},
                         {"19500720T100000", "19500720T090000", "before summer time"}});
    EXPECT_EQ(zone->key_name(), "Romance Standard Time");
}

TEST(CalendarZone, SouthernSummer) {
    const auto zone = zone_of_olson("Australia/Sydney", "x");
    ASSERT_TRUE(zone);
    expect_clock(*zone,
                 {{"20260115T120000", "20260115T010000", "summer"}, {"20260715T120000", "20260715T020000", "winter"}});
    const ClockYear clock = zone->year(2026);
    EXPECT_EQ(clock.to_daylight.month, 10);
    EXPECT_EQ(clock.to_standard.month, 4);
    EXPECT_EQ(clock.to_standard.nth, 1);
}

TEST(CalendarZone, ChangesOfAYear) {
    for (const auto& zone :
         {zone_of_component(paris()), zone_of_olson("Europe/Paris", "x"), zone_of_olson("Europe/Berlin", "x")}) {
        ASSERT_TRUE(zone);
        const ClockYear clock = zone->year(2026);
        EXPECT_EQ(clock.standard, 3600);
        EXPECT_EQ(clock.daylight, 7200);
        EXPECT_EQ(hex(time_zone_struct(clock)),
                  hex(bytes("C4FFFFFF 00000000 C4FFFFFF 0000 00000A00000005000300000000000000 0000 "
                            "00000300000005000200000000000000")));
    }
    const ClockYear none = zone_of_olson("Asia/Tokyo", "x")->year(2026);
    EXPECT_EQ(none.standard, 9 * 3600);
    EXPECT_EQ(none.to_daylight.month, 0);
    const ClockYear new_york = zone_of_olson("America/New_York", "x")->year(2026);
    EXPECT_EQ(new_york.to_daylight.nth, 2) << "the second Sunday of March";
    EXPECT_EQ(new_york.to_standard.nth, 1);
}

TEST(CalendarZone, DefinitionOfAZone) {
    const std::string definition = time_zone_definition(zone_of_component(paris())->year(2026), "XY", 2026, true);
    EXPECT_EQ(
        hex(definition),
        hex(bytes("0201 0A00 0200 0200 58005900 0100 0201 3E00 0300 EA07 00000000000000000000000000 00"
                  "C4FFFFFF 00000000 C4FFFFFF 00000A00000005000300000000000000 00000300000005000200000000000000")));
}

TEST(CalendarZone, OddRules) {
    const auto by_days = zone_of_component(
        zone_component("x", {observance("STANDARD", "20001029T030000", 7200, 3600,
                                        "FREQ=YEARLY;BYMONTH=10;BYDAY=SU;BYMONTHDAY=25,26,27,28,29,30,31"),
                             observance("DAYLIGHT", "20000326T020000", 3600, 7200,
                                        "FREQ=YEARLY;BYMONTH=3;BYDAY=SU;BYMONTHDAY=25,26,27,28,29,30,31")}));
    expect_clock(*by_days, kParis);
    EXPECT_EQ(by_days->year(2026).to_daylight.nth, 5) << "from the 25th on is the last one";
    const auto ended = zone_of_component(
        zone_component("x", {observance("DAYLIGHT", "20000326T020000", 3600, 7200,
                                        "FREQ=YEARLY;BYDAY=-1SU;BYMONTH=3;UNTIL=20100328T010000Z"),
                             observance("STANDARD", "20001029T030000", 7200, 3600,
                                        "FREQ=YEARLY;BYDAY=-1SU;BYMONTH=10;UNTIL=20101031T010000Z")}));
    expect_clock(*ended, {{"20100720T100000", "20100720T080000", "its last summer"},
                          {"20110720T100000", "20110720T090000", "no more summers"}});
    const auto wild = zone_of_component(
        zone_component("x", {observance("STANDARD", "20000101T000000", 3600, 3600, "FREQ=SECONDLY")}));
    expect_clock(*wild, {{"20261120T100000", "20261120T090000", "a rule that is none of a zone counts once"}});
    const auto empty = zone_of_component(zone_component("x", {}));
    EXPECT_FALSE(empty) << "a zone without a clock is none";
    EXPECT_FALSE(zone_of_component(zone_component("x", {observance("STANDARD", "never", 0, 0, "")})));
}

TEST(CalendarZone, NamesOfWindowsAreZonesOfTheSystem) {
    for (const char* name : {"Romance Standard Time", "romance standard time", "UTC", "Pacific Standard Time",
                             "India Standard Time", "FLE Standard Time", "Central Standard Time (Mexico)",
                             "E. South America Standard Time", "Tokyo Standard Time"}) {
        const std::string_view olson = olson_of_windows(name);
        ASSERT_FALSE(olson.empty()) << name;
        EXPECT_TRUE(zone_of_olson(olson, name)) << olson;
    }
    EXPECT_EQ(windows_of_olson("Europe/Zurich"), "W. Europe Standard Time");
    EXPECT_EQ(olson_of_windows("Nowhere Standard Time"), "");
    EXPECT_EQ(windows_of_olson("Nowhere/Zone"), "");
}

TEST(CalendarZone, NamesAreNoPaths) {
    for (const char* name : {"../../etc/passwd", "/etc/passwd", "Europe//Paris", "Europe", "", "Europe/Paris\n",
                             "posixrules ", ".", "tzdata.zi"})
        EXPECT_FALSE(zone_of_olson(name, "x")) << name;
    EXPECT_FALSE(zone_of_olson(std::string(65, 'a'), "x"));
}

TEST(CalendarZone, NamesAsMailersWriteThem) {
    EXPECT_EQ(olson_part("/mozilla.org/20050126_1/Europe/Berlin"), "Europe/Berlin");
    EXPECT_EQ(olson_part("/freeassociation.sourceforge.net/Tzfile/America/New_York"), "America/New_York");
    EXPECT_EQ(olson_part("/own"), "/own");
    EXPECT_EQ(olson_part("Europe/Berlin"), "Europe/Berlin");
}

TEST(CalendarZone, FilesThatAreDamagedAreNone) {
    for (const std::string_view bytes :
         {"", "TZif", "TZif2", "not a zone at all, but long enough to have a header in it"})
        EXPECT_TRUE(parse_tzif(bytes).empty());
    std::string huge = "TZif2" + std::string(15, '\0') + std::string(24, '\xFF');
    EXPECT_TRUE(parse_tzif(huge).empty()) << "counts of 4 GiB";
}

TEST(ZoneFinder, WhereANameIsLookedFor) {
    const LogLines log(12);
    CalendarComponent calendar;
    calendar.components.push_back(paris());
    ZoneFinder zones(calendar);
    EXPECT_EQ(zones.named("Somewhere").to_utc(at("20260720T100000")), at("20260720T080000"));
    EXPECT_EQ(zones.named("Europe/Paris").to_utc(at("20260720T100000")), at("20260720T080000"));
    EXPECT_EQ(zones.named("/x/Europe/Paris").name(), "Europe/Paris");
    EXPECT_EQ(zones.named("Romance Standard Time").to_utc(at("20260720T100000")), at("20260720T080000"));
    EXPECT_EQ(zones.named("Romance Standard Time").name(), "Romance Standard Time");
    for (const char* name : {"UTC", "Etc/UTC", "GMT"}) EXPECT_TRUE(zones.named(name).is_utc()) << name;
    EXPECT_TRUE(zones.named("").is_host()) << "a floating time";
    EXPECT_TRUE(zones.named("Middle/Earth").is_host()) << "a zone that does not exist";
    EXPECT_TRUE(zones.named("Middle/Earth").is_host());
    std::size_t told = 0;
    for (const std::string& line : log.all()) told += line.find("Middle/Earth") != std::string::npos ? 1 : 0;
    EXPECT_EQ(told, 1U) << "and that is said once";
}

TEST(ZoneFinder, FloatingTimesHaveTheCalendarsZone) {
    CalendarComponent calendar;
    calendar.properties.push_back({"X-WR-TIMEZONE", "Asia/Tokyo", {}});
    ZoneFinder zones(calendar);
    EXPECT_EQ(zones.floating().to_utc(at("20260720T100000")), at("20260720T010000"));
}

TEST(ZoneFinder, ElseTheHosts) {
    ::setenv("TZ", "America/New_York", 1);
    ::tzset();
    const CalendarZone host = CalendarZone::host();
    expect_clock(host,
                 {{"20260720T100000", "20260720T140000", "summer"}, {"20261120T100000", "20261120T150000", "winter"}});
    ::setenv("TZ", "UTC", 1);
    ::tzset();
}

}  // namespace
