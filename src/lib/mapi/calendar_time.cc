// Days, dates and times: see calendar_time.h.
#include "mapi/calendar_time.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace {

constexpr std::int64_t kFirstYear = 1601;
constexpr std::int64_t kLastYear = 4500;

// Exactly `count` digits from `at`.
std::optional<int> digits(std::string_view text, std::size_t at, std::size_t count) {
    if (text.size() < at + count) return std::nullopt;
    int value = 0;
    const char* end = text.data() + at + count;
    const auto [stop, error] = std::from_chars(text.data() + at, end, value);
    if (error != std::errc() || stop != end || text[at] == '-') return std::nullopt;
    return value;
}

std::string two_digits(std::int64_t value) {
    return {static_cast<char>('0' + value / 10 % 10), static_cast<char>('0' + value % 10)};
}

}  // namespace

std::int64_t floor_div(std::int64_t value, std::int64_t by) { return value / by - (value % by < 0 ? 1 : 0); }

// Years are counted from March, so that the leap day is the last one of its year.
std::int64_t days_of(const CivilDate& date) {
    const std::int64_t year = date.month <= 2 ? date.year - 1 : date.year;
    const std::int64_t era = floor_div(year, 400);
    const std::int64_t of_era = year - era * 400;
    const std::int64_t of_year = (153 * (date.month + (date.month > 2 ? -3 : 9)) + 2) / 5 + date.day - 1;
    return era * 146097 + of_era * 365 + of_era / 4 - of_era / 100 + of_year - 719468;
}

CivilDate date_of(std::int64_t days) {
    days += 719468;
    const std::int64_t era = floor_div(days, 146097);
    const std::int64_t day = days - era * 146097;
    const std::int64_t of_era = (day - day / 1460 + day / 36524 - day / 146096) / 365;
    const std::int64_t of_year = day - (365 * of_era + of_era / 4 - of_era / 100);
    const std::int64_t month = (5 * of_year + 2) / 153;
    CivilDate date;
    date.day = static_cast<int>(of_year - (153 * month + 2) / 5 + 1);
    date.month = static_cast<int>(month < 10 ? month + 3 : month - 9);
    date.year = of_era + era * 400 + (date.month <= 2 ? 1 : 0);
    return date;
}

int days_in_month(std::int64_t year, int month) {
    if (month != 2) return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0) ? 29 : 28;
}

int nth_weekday(std::int64_t year, int month, int weekday, int nth) {
    const int length = days_in_month(year, month);
    int day;
    if (nth > 0) {
        const int first = weekday_of(days_of({year, month, 1}));
        day = 1 + (weekday - first + 7) % 7 + (nth - 1) * 7;
    } else {
        const int last = weekday_of(days_of({year, month, length}));
        day = length - (last - weekday + 7) % 7 + (nth + 1) * 7;
    }
    return nth != 0 && day >= 1 && day <= length ? day : 0;
}

std::optional<CalendarTime> parse_calendar_time(std::string_view text) {
    const auto year = digits(text, 0, 4), month = digits(text, 4, 2), day = digits(text, 6, 2);
    if (!year || !month || !day || *year < kFirstYear || *year > kLastYear || *month < 1 || *month > 12 || *day < 1 ||
        *day > days_in_month(*year, *month))
        return std::nullopt;
    CalendarTime time;
    time.seconds = days_of({*year, *month, *day}) * kSecondsOfDay;
    if (text.size() == 8) {
        time.is_date = true;
        return time;
    }
    const auto hour = digits(text, 9, 2), minute = digits(text, 11, 2), second = digits(text, 13, 2);
    if (text[8] != 'T' || !hour || !minute || !second || *hour > 23 || *minute > 59 || *second > 60)
        return std::nullopt;
    time.is_utc = text.size() == 16 && text[15] == 'Z';
    if (text.size() != 15 && !time.is_utc) return std::nullopt;
    time.seconds += *hour * 3600 + *minute * 60 + std::min(*second, 59);
    return time;
}

std::string date_text(std::int64_t seconds) {
    const CivilDate date = date_of(floor_div(seconds, kSecondsOfDay));
    std::string year = std::to_string(date.year);
    if (year.size() < 4) year.insert(0, 4 - year.size(), '0');
    return year + "-" + two_digits(date.month) + "-" + two_digits(date.day);
}

std::string clock_text(std::int64_t seconds) {
    const std::int64_t of_day = seconds - floor_div(seconds, kSecondsOfDay) * kSecondsOfDay;
    return two_digits(of_day / 3600) + ":" + two_digits(of_day / 60 % 60);
}

std::string utc_text(std::int64_t seconds) {
    const std::int64_t of_minute = seconds - floor_div(seconds, 60) * 60;
    return date_text(seconds) + "T" + clock_text(seconds) + ":" + two_digits(of_minute) + "Z";
}
