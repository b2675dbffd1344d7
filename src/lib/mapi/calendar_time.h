// Times of calendars: wall-clock times counted in seconds, as if every zone were UTC, and the days and minutes that
// recurrences are made of. Proleptic Gregorian calendar.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

inline constexpr std::int64_t kSecondsOfDay = 86400;
inline constexpr std::int64_t kMinutesOfDay = 1440;
inline constexpr std::int64_t kDaysTo1970 = 134774;  // from 1601-01-01, where the store's times begin

struct CivilDate {
    std::int64_t year = 1970;
    int month = 1, day = 1;
    bool operator==(const CivilDate&) const = default;
};
// Days since 1970-01-01, and back.
std::int64_t days_of(const CivilDate& date);
CivilDate date_of(std::int64_t days);
int days_in_month(std::int64_t year, int month);
inline int weekday_of(std::int64_t days) { return static_cast<int>(((days + 4) % 7 + 7) % 7); }  // 0: Sunday
std::int64_t floor_div(std::int64_t value, std::int64_t by);

// The day of a month that is its `nth` such weekday: 1 to 5 from the front, -1 to -5 from its end. None: 0.
int nth_weekday(std::int64_t year, int month, int weekday, int nth);

// A DATE or DATE-TIME as it stands (RFC 5545, sections 3.3.4 and 3.3.5): "20261120", "20261120T100000",
// "20261120T100000Z". Years from 1601 to 4500: those the store's recurrences know. A leap second is the second before.
struct CalendarTime {
    std::int64_t seconds = 0;  // wall clock, since 1970-01-01
    bool is_date = false;
    bool is_utc = false;
};
std::optional<CalendarTime> parse_calendar_time(std::string_view text);

std::string date_text(std::int64_t seconds);   // "2026-11-20"
std::string clock_text(std::int64_t seconds);  // "10:00"
std::string utc_text(std::int64_t seconds);    // "2026-11-20T10:00:00Z"
