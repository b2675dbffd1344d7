// Dates: the twelve months, the zone table, and texts as headers carry them. Expected instants come from <chrono>.
#include "ux_in/dates.h"

#include <chrono>
#include <limits>
#include <optional>
#include <string>

#include <gtest/gtest.h>

namespace {

constexpr std::int16_t kLocal = 120;  // the zone that stands in where the text gives none

struct Instant {
    std::int64_t seconds;
    int zone;
};

Instant at(int zone, int year, unsigned month, unsigned day, int hour, int minute, int second = 0) {
    const std::chrono::sys_days date{std::chrono::year(year) / std::chrono::month(month) / std::chrono::day(day)};
    const std::int64_t midnight = std::int64_t{date.time_since_epoch().count()} * 86400;
    return {midnight + hour * 3600 + minute * 60 + second - zone * 60, zone};
}

struct DateRow {
    std::string text;
    std::optional<Instant> expected;
    const char* why;
};

void check(const DateRow& row) {
    const auto date = ux_InParseDate(row.text, kLocal);
    ASSERT_EQ(date.has_value(), row.expected.has_value()) << row.text << ": " << row.why;
    if (!date) return;
    EXPECT_EQ(static_cast<std::uint32_t>(date->GMTTime), static_cast<std::uint32_t>(row.expected->seconds))
        << row.text << ": " << row.why;
    EXPECT_EQ(date->TimeZone, row.expected->zone) << row.text << ": " << row.why;
}

TEST(Months, ThreeLettersInAnyCase) {
    const char* names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    for (int month = 0; month < 12; ++month) {
        std::string name = names[month];
        EXPECT_EQ(ux_InParseMonth(name), month) << name;
        for (char& c : name) c = static_cast<char>(c ^ 0x20);
        EXPECT_EQ(ux_InParseMonth(name), month) << name;
    }
    for (const char* other : {"", "Ja", "January", "Jan.", " Jan", "J@n", "Mai"})
        EXPECT_EQ(ux_InParseMonth(other), std::nullopt) << other;
}

TEST(Zones, EveryRow) {
    const struct {
        const char* name;
        int hours;
    } rows[] = {{"UT", 0},   {"Z", 0},    {"A", -1},     {"B", -2},   {"C", -3},    {"D", -4},   {"E", -5},
                {"F", -6},   {"G", -7},   {"H", -8},     {"I", -9},   {"K", -10},   {"L", -11},  {"M", -12},
                {"N", 1},    {"O", 2},    {"P", 3},      {"Q", 4},    {"R", 5},     {"S", 6},    {"T", 7},
                {"U", 8},    {"V", 9},    {"W", 10},     {"X", 11},   {"Y", 12},    {"GMT", 0},  {"BST", 1},
                {"EST", -5}, {"EDT", -4}, {"CST", -6},   {"CDT", -5}, {"MST", -7},  {"MDT", -6}, {"PST", -8},
                {"PDT", -7}, {"WET", 0},  {"WETDST", 1}, {"MET", 1},  {"METDST", 2}};
    for (const auto& row : rows) {
        EXPECT_EQ(ux_InParseTimeZone(row.name), row.hours * 60) << row.name;
        std::string lower = row.name;
        for (char& c : lower) c = static_cast<char>(c | 0x20);
        EXPECT_EQ(ux_InParseTimeZone(lower), row.hours * 60) << lower;
    }
    for (const char* other : {"J", "", "UTC", "GMT+1", "(EST)", "MEST", "AA"})
        EXPECT_EQ(ux_InParseTimeZone(other), std::nullopt) << other;
}

TEST(Dates, FormsThatMailersWrite) {
    const DateRow rows[] = {
        {"Tue, 3 Feb 2004 10:20:30 +0100", at(60, 2004, 2, 3, 10, 20, 30), "as RFC 822 has it"},
        {"3 Feb 04 10:20 EST", at(-300, 2004, 2, 3, 10, 20), "no seconds, two digits of year"},
        {"Mon Jan 5 10:00:00 2004", at(kLocal, 2004, 1, 5, 10, 0), "ctime: the year closes the zone"},
        {"Mon Jan 5 10:00:00 2004 +0500", at(kLocal, 2004, 1, 5, 10, 0), "an offset after it comes too late"},
        {"Mon Jan 5 10:00:00 EST 2004", at(-300, 2004, 1, 5, 10, 0), "date(1): the zone stands before the year"},
        {"Feb 3 2004 10:00:00", at(kLocal, 2004, 2, 3, 10, 0), "month, day, year"},
        {"3 Feb 2004 10:20:30 (Central European Time) +0100", at(60, 2004, 2, 3, 10, 20, 30), "comments are words"},
        {"3 Feb 2004 10:20:30 AM PST", at(-480, 2004, 2, 3, 10, 20, 30), "a word that is no zone is passed over"},
        {"3 Feb 2004 10:20:30 -0800 (PST)", at(-480, 2004, 2, 3, 10, 20, 30), "a comment after the zone"},
        {"10:20:30 3 Feb 2004", at(kLocal, 2004, 2, 3, 10, 20, 30), "the time first; the day closes the zone"},
        {"  3,Feb,2004\t10:20:30\r\n +0100 ", at(60, 2004, 2, 3, 10, 20, 30), "commas and controls separate"},
        {"3\xC2\xA0"
         "Feb\xE9"
         "2004\x80"
         "10:20:30 Z",
         at(0, 2004, 2, 3, 10, 20, 30), "bytes of 128 and above separate"},
        {"3 feb 2004 10:20:30 z", at(0, 2004, 2, 3, 10, 20, 30), "any case"},
        {"3 Feb 2004 10:20:30 A", at(-60, 2004, 2, 3, 10, 20, 30), "A is west"},
        {"3 Feb 2004 10:20:30 N", at(60, 2004, 2, 3, 10, 20, 30), "N is east"},
        {"3 Feb 2004 10:20:30 J", at(kLocal, 2004, 2, 3, 10, 20, 30), "there is no J"},
        {"3 Feb 2004 10:20:30 J M", at(-720, 2004, 2, 3, 10, 20, 30), "a later word may be the zone"},
        {"3 Feb 2004 10:20:30 GMT PST", at(0, 2004, 2, 3, 10, 20, 30), "the first zone holds"},
        {"EST 3 Feb 2004 10:20:30", at(kLocal, 2004, 2, 3, 10, 20, 30), "a zone before the time is no zone"},
        {"+0500 3 Feb 2004 10:20:30", at(kLocal, 2004, 2, 3, 10, 20, 30), "nor is an offset"},
        {"3rd Feb 2004 10:20", at(kLocal, 2004, 2, 3, 10, 20), "a number ends where its digits end"},
        {"3-Feb-2004 10:20 Feb 2004", at(kLocal, 2004, 2, 3, 10, 20), "one token, one number"},
        {"3 Feb 2004 10:20:30 99 100", at(kLocal, 2004, 2, 3, 10, 20, 30), "further numbers are ignored"},
        {"3 Feb 2004 Mar 10:20", at(kLocal, 2004, 2, 3, 10, 20), "the first month holds"},
        {"3 Feb 2004 [x] 10:20:30 *+0100 +0200", at(120, 2004, 2, 3, 10, 20, 30), "other tokens are ignored"},
    };
    for (const DateRow& row : rows) check(row);
}

TEST(Dates, Offsets) {
    const std::string time = "3 Feb 2004 10:20:30 ";
    const auto local = [](int zone) { return at(zone, 2004, 2, 3, 10, 20, 30); };
    const DateRow rows[] = {
        {time + "-5", local(-300), "one digit: hours"},
        {time + "-05", local(-300), "two digits: hours"},
        {time + "+130", local(90), "three digits: an hour and thirty minutes"},
        {time + "+005", local(5), "leading zeros are digits"},
        {time + "+0530", local(330), "half hours"},
        {time + "-0000", local(0), "zero of either sign"},
        {time + "+0199", local(159), "minutes are not checked"},
        {time + "+05:30", local(300), "digits end at the colon"},
        {time + "+", local(kLocal), "no digit: ignored"},
        {time + "+x1", local(kLocal), "no digit right after the sign: ignored"},
        {time + "+ +0100", local(60), "and a later one may do"},
        {time + "+-5", local(kLocal), "one sign only"},
        {time + "+0100 -0800", local(60), "the first offset holds"},
        {"3 Feb 2004 10:20:30+0100", local(kLocal), "what clings to the time is lost"},
    };
    for (const DateRow& row : rows) check(row);
}

TEST(Dates, Times) {
    const DateRow rows[] = {
        {"3 Feb 2004 9:5:7 Z", at(0, 2004, 2, 3, 9, 5, 7), "single digits"},
        {"3 Feb 2004 10:20: Z", at(0, 2004, 2, 3, 10, 20), "a second that is missing is 0"},
        {"3 Feb 2004 10:20:x Z", at(0, 2004, 2, 3, 10, 20), "or is no number"},
        {"3 Feb 2004 10:20.5 Z", at(0, 2004, 2, 3, 10, 20), "what follows the numbers is ignored"},
        {"3 Feb 2004 10:20:30:40 Z", at(0, 2004, 2, 3, 10, 20, 30), "a fourth number too"},
        {"3 Feb 2004 10:+5:+6 Z", at(0, 2004, 2, 3, 10, 5, 6), "a sign is part of a number"},
        {"3 Feb 2004 10:-0 Z", at(0, 2004, 2, 3, 10, 0), "minus nothing"},
        {"3 Feb 2004 10:-5 Z", std::nullopt, "a negative minute"},
        {"3 Feb 2004 10:: Z", std::nullopt, "one number is no time"},
        {"3 Feb 2004 10:x Z", std::nullopt, "one number is no time"},
        {"3 Feb 2004 10x:20 Z", std::nullopt, "the colon must follow the hour"},
        {"3 Feb 2004 23:59:59 Z", at(0, 2004, 2, 3, 23, 59, 59), "the last second"},
        {"3 Feb 2004 24:00:00 Z", std::nullopt, "no such hour"},
        {"3 Feb 2004 10:60:00 Z", std::nullopt, "no such minute"},
        {"3 Feb 2004 23:59:60 Z", std::nullopt, "leap seconds are refused"},
        {"3 Feb 2004 10:00 11:00", std::nullopt, "two times"},
        {"3 Feb 2004", std::nullopt, "no time"},
        {"3 Feb 2004 99999999999999999999:00:00", std::nullopt, "an hour of any length"},
        {"3 Feb 2004 10:00:-99999999999999999999", std::nullopt, "a second of any length"},
        {"3 Feb 2004 10:4294967296:00", std::nullopt, "that would wrap to 0"},
    };
    for (const DateRow& row : rows) check(row);
}

TEST(Dates, DaysMonthsAndYears) {
    const DateRow rows[] = {
        {"0 Feb 2004 10:00 Z", std::nullopt, "day 0"},
        {"1 Feb 2004 10:00 Z", at(0, 2004, 2, 1, 10, 0), "day 1"},
        {"31 Jan 2004 10:00 Z", at(0, 2004, 1, 31, 10, 0), "day 31"},
        {"32 Jan 2004 10:00 Z", std::nullopt, "day 32"},
        {"4294967297 Jan 2004 10:00 Z", std::nullopt, "a day that would wrap to 1"},
        {"31 Feb 2004 10:00 Z", at(0, 2004, 3, 2, 10, 0), "a day beyond the month runs over, leap year"},
        {"31 Feb 2005 10:00 Z", at(0, 2005, 3, 3, 10, 0), "a day beyond the month runs over"},
        {"3 4 Feb 2004 10:00", std::nullopt, "a second number before the month"},
        {"3 January 2004 10:00", std::nullopt, "long names do not match, so the year comes before the month"},
        {"10:00 Z Feb", std::nullopt, "no day"},
        {"3 10:00 Z", std::nullopt, "no month"},
        {"3 Feb 10:00 Z", std::nullopt, "no year"},
        {"", std::nullopt, "nothing at all"},
        {" , \x80\t", std::nullopt, "only separators"},
        {"1 Mar 04 00:00 Z", at(0, 2004, 3, 1, 0, 0), "04 is 2004"},
        {"1 Mar 00 00:00 Z", at(0, 2000, 3, 1, 0, 0), "00 is 2000"},
        {"1 Mar 69 00:00 Z", at(0, 2069, 3, 1, 0, 0), "69 is 2069"},
        {"1 Mar 70 00:00 Z", at(0, 1970, 3, 1, 0, 0), "70 is 1970"},
        {"1 Mar 99 00:00 Z", at(0, 1999, 3, 1, 0, 0), "99 is 1999"},
        {"1 Mar 104 00:00 Z", at(0, 2004, 3, 1, 0, 0), "104 is what some programs write for 2004"},
        {"1 Jan 200 00:00 Z", at(0, 2100, 1, 1, 0, 0), "the last year"},
        {"1 Jan 201 00:00 Z", std::nullopt, "beyond the last year"},
        {"1 Jan 2100 00:00 Z", at(0, 2100, 1, 1, 0, 0), "the last year, in full"},
        {"1 Jan 2101 00:00 Z", std::nullopt, "beyond the last year, in full"},
        {"1 Mar 2100 00:00 Z", at(0, 2100, 3, 2, 0, 0), "2100 counts as a leap year"},
        {"1 Jan 1900 00:00 Z", std::nullopt, "1900 is not above 1900"},
        {"1 Jan 1901 00:00 Z", at(0, 2001, 1, 1, 0, 0), "a century later"},
        {"3 Feb 1950 10:00:00 GMT", at(0, 2050, 2, 3, 10, 0), "a century later"},
        {"1 Jan 1969 00:00 Z", at(0, 2069, 1, 1, 0, 0), "the last of them"},
        {"1 Jan 1970 00:00 Z", at(0, 1970, 1, 1, 0, 0), "the first that is itself"},
        {"1 Jan 1970 00:00 +0100", at(60, 1970, 1, 1, 0, 0), "before the first second: wraps"},
        {"29 Feb 2000 12:00 Z", at(0, 2000, 2, 29, 12, 0), "a leap day"},
        {"1 Mar 2000 00:00 Z", at(0, 2000, 3, 1, 0, 0), "the day after it"},
        {"31 Dec 1972 00:00 Z", at(0, 1972, 12, 31, 0, 0), "end of the first leap year"},
        {"1 Jan 1973 00:00 Z", at(0, 1973, 1, 1, 0, 0), "the day after it"},
        {"19 Jan 2038 03:14:08 Z", at(0, 2038, 1, 19, 3, 14, 8), "beyond 31 bits"},
        {"1 Jan 99999999999999999999 00:00", std::nullopt, "a year of any length"},
    };
    for (const DateRow& row : rows) check(row);
}

TEST(Dates, EveryMonthOfCommonAndLeapYears) {
    const char* names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    for (int year = 1970; year < 2100; ++year)
        for (unsigned month = 1; month <= 12; ++month)
            check({"1 " + std::string(names[month - 1]) + " " + std::to_string(year) + " 00:00:00 GMT",
                   at(0, year, month, 1, 0, 0), "first of the month"});
}

// An offset that no zone has is computed as it stands and stored in the bits there are.
TEST(Dates, AbsurdOffsetsAreCut) {
    const std::int64_t local = at(0, 2004, 2, 3, 10, 20, 30).seconds;
    const auto date = ux_InParseDate("3 Feb 2004 10:20:30 +99999999999999999999", kLocal);
    const std::int64_t number = std::numeric_limits<std::int32_t>::max();
    const std::int64_t zone = number % 100 + number / 100 * 60;
    ASSERT_TRUE(date);
    EXPECT_EQ(date->TimeZone, static_cast<std::int16_t>(zone));
    EXPECT_EQ(static_cast<std::uint32_t>(date->GMTTime), static_cast<std::uint32_t>(local - zone * 60));
}

TEST(Dates, DefaultZoneOfEitherSign) {
    for (const int zone : {-720, -1, 0, 330, 840}) {
        const auto date = ux_InParseDate("3 Feb 2004 10:20:30", static_cast<std::int16_t>(zone));
        ASSERT_TRUE(date) << zone;
        EXPECT_EQ(date->TimeZone, zone);
        EXPECT_EQ(date->GMTTime, at(zone, 2004, 2, 3, 10, 20, 30).seconds);
    }
}

TEST(Dates, LongTextsAreLinear) {
    std::string text;
    for (int i = 0; i < 200000; ++i) text += "x ";
    text += "3 Feb 2004 10:20:30 Z ";
    text.append(1000000, '9');
    check({text, at(0, 2004, 2, 3, 10, 20, 30), "a megabyte"});
}

}  // namespace
