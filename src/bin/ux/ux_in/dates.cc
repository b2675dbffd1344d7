// The date scanner. Characters of code 32 and below, bytes of 128 and above, and commas separate tokens; what a token
// is follows from its first character:
//
//   letter      the month; else, after the time, the zone; else ignored (day names, AM, comments)
//   digit       with a ":" in the token the time; else the day, then (after the month) the year
//   "+" or "-"  after the time, the zone: hours, or hours and minutes
//   other       ignored
#include "ux_in/dates.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>

#include "dstring/ascii.h"
#include "er/er.h"

namespace {

constexpr auto kMonths = std::to_array<std::string_view>(
    {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"});

// Days before each month of a common year.
constexpr auto AccumMonthDays = std::to_array<int>({0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334});
static_assert(kMonths.size() == AccumMonthDays.size());

struct ZoneRow {
    int hours;  // east of GMT
    std::string_view name;
};

// The signs of the single letters are those that RFC 822 printed, not the corrected ones of RFC 1123 section 5.2.14:
// dates of the mail that uses letters at all were written by that table.
constexpr auto kZones = std::to_array<ZoneRow>({
    {0, "UT"},   {0, "Z"},    {-1, "A"},   {-2, "B"},   {-3, "C"},   {-4, "D"},     {-5, "E"},   {-6, "F"},
    {-7, "G"},   {-8, "H"},   {-9, "I"},   {-10, "K"},  {-11, "L"},  {-12, "M"},    {1, "N"},    {2, "O"},
    {3, "P"},    {4, "Q"},    {5, "R"},    {6, "S"},    {7, "T"},    {8, "U"},      {9, "V"},    {10, "W"},
    {11, "X"},   {12, "Y"},   {0, "GMT"},  {1, "BST"},  {-5, "EST"}, {-4, "EDT"},   {-6, "CST"}, {-5, "CDT"},
    {-7, "MST"}, {-6, "MDT"}, {-8, "PST"}, {-7, "PDT"}, {0, "WET"},  {1, "WETDST"}, {1, "MET"},  {2, "METDST"},
});

constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }
constexpr bool is_letter(char c) { return dstring_lower(c) >= 'a' && dstring_lower(c) <= 'z'; }

// Bytes of 128 and above have always counted as negative here, and so as separators.
constexpr bool separates(char c) {
    const auto code = static_cast<unsigned char>(c);
    return code < 33 || code >= 128 || c == ',';
}

// Takes the decimal digits at the front of `text`. A number too large for 32 bits is the largest there is, which is out
// of range for every part of a date.
std::int64_t take_digits(std::string_view& text) {
    constexpr std::int64_t largest = std::numeric_limits<std::int32_t>::max();
    std::int64_t number = 0;
    for (; !text.empty() && is_digit(text.front()); text.remove_prefix(1))
        number = std::min(number * 10 + (text.front() - '0'), largest);
    return number;
}

// Takes a number with an optional sign; without a digit nothing is taken.
std::optional<std::int64_t> take_number(std::string_view& text) {
    std::string_view rest = text;
    const bool negative = rest.starts_with('-');
    if (negative || rest.starts_with('+')) rest.remove_prefix(1);
    if (rest.empty() || !is_digit(rest.front())) return std::nullopt;
    const std::int64_t number = take_digits(rest);
    text = rest;
    return negative ? -number : number;
}

// One date as far as it has been read.
class DateScan {
public:
    explicit DateScan(std::int16_t default_zone) : default_zone_(default_zone), zone_(default_zone) {}

    // False when the token makes the date invalid.
    bool token(std::string_view token) {
        const char first = token.front();
        if (is_letter(first)) return word(token);
        if (is_digit(first)) return token.find(':') != token.npos ? time(token) : number(token);
        if (first == '+' || first == '-') return offset(token);
        return true;
    }

    std::optional<ux_Date> date() const;

private:
    static constexpr std::int64_t kMissing = -1;

    bool word(std::string_view token);
    bool time(std::string_view token);
    bool number(std::string_view token);
    bool offset(std::string_view token);
    std::int64_t year_from_1900() const;
    bool awaits_zone() const { return time_found_ && !zone_found_; }
    void set_zone(std::int64_t minutes) {
        zone_ = minutes;
        zone_found_ = true;
    }

    std::int64_t day_ = kMissing, month_ = kMissing, year_ = kMissing;
    std::int64_t hour_ = kMissing, minute_ = kMissing, second_ = kMissing;
    std::int64_t default_zone_, zone_;  // minutes east
    bool time_found_ = false, zone_found_ = false;
};

bool DateScan::word(std::string_view token) {
    if (month_ == kMissing) {
        if (const auto month = ux_InParseMonth(token)) {
            month_ = *month;
            return true;
        }
    }
    if (awaits_zone()) {
        if (const auto zone = ux_InParseTimeZone(token)) set_zone(*zone);
    }
    return true;
}

// time = hour ":" minute [ ":" second ] anything
bool DateScan::time(std::string_view token) {
    if (time_found_) return false;
    hour_ = take_digits(token);
    if (!token.starts_with(':')) return false;
    token.remove_prefix(1);
    const auto minute = take_number(token);
    if (!minute) return false;
    minute_ = *minute;
    second_ = 0;
    if (token.starts_with(':')) {
        token.remove_prefix(1);
        second_ = take_number(token).value_or(0);
    }
    time_found_ = true;
    return true;
}

// A number after the time closes the zone: in "Mon Jan 5 10:00:00 2004 +0100" the offset comes too late.
bool DateScan::number(std::string_view token) {
    if (awaits_zone()) set_zone(default_zone_);
    if (day_ == kMissing) {
        day_ = take_digits(token);
        return true;
    }
    if (month_ == kMissing) return false;
    if (year_ == kMissing) year_ = take_digits(token);
    return true;
}

// offset = ("+" / "-") digits: one or two digits are hours, more are hours and two digits of minutes
bool DateScan::offset(std::string_view token) {
    if (!awaits_zone()) return true;
    std::string_view digits = token.substr(1);
    const std::size_t before = digits.size();
    std::int64_t number = take_digits(digits);
    const std::size_t count = before - digits.size();
    if (count == 0) return true;
    if (count <= 2) number *= 100;
    const std::int64_t minutes = number % 100 + number / 100 * 60;
    set_zone(token.front() == '-' ? -minutes : minutes);
    return true;
}

// 04 is 2004, 99 is 1999. A year written 1901 to 1969 lands a century later: settled, mail is younger than that.
std::int64_t DateScan::year_from_1900() const {
    std::int64_t year = year_;
    if (year > 1900) year -= 1900;
    if (year >= 0 && year <= 69) year += 100;
    return year;
}

std::optional<ux_Date> DateScan::date() const {
    const auto within = [](std::int64_t value, int least, int most) { return value >= least && value <= most; };
    const std::int64_t year = year_from_1900();
    // A day beyond its month's length is not refused: 31 Feb is 3 Mar, or 2 Mar in a leap year.
    if (!within(day_, 1, 31) || month_ == kMissing || !within(year, 0, 200) || !within(hour_, 0, 23) ||
        !within(minute_, 0, 59) || !within(second_, 0, 59))
        return std::nullopt;

    const std::int64_t leap_days = (year - 69) / 4;
    std::int64_t days = (year - 70) * 365 + leap_days + AccumMonthDays[static_cast<std::size_t>(month_)] + day_ - 1;
    if (year % 4 == 0 && month_ > 1) ++days;  // 2100 too
    const std::int64_t seconds = days * 86400 + hour_ * 3600 + minute_ * 60 + second_ - zone_ * 60;
    // Both are stored in the bits that their fields have, whatever zone the text claims.
    return ux_Date{static_cast<std::int32_t>(static_cast<std::uint32_t>(seconds)), static_cast<std::int16_t>(zone_)};
}

// Takes the next token of `text`; empty at its end.
std::string_view take_token(std::string_view& text) {
    const auto start = std::ranges::find_if_not(text, separates);
    const auto end = std::find_if(start, text.end(), separates);
    const std::string_view token(start, end);
    text = std::string_view(end, text.end());
    return token;
}

}  // namespace

std::optional<int> ux_InParseMonth(std::string_view pInBuf) {
    const er_Trace trace("ux_InParseMonth");
    const auto row =
        std::ranges::find_if(kMonths, [&](std::string_view name) { return dstring_equal_ignoring_case(name, pInBuf); });
    if (row == kMonths.end()) return std::nullopt;
    return static_cast<int>(row - kMonths.begin());
}

std::optional<std::int16_t> ux_InParseTimeZone(std::string_view pInBuf) {
    const er_Trace trace("ux_InParseTimeZone");
    const auto row = std::ranges::find_if(
        kZones, [&](const ZoneRow& zone) { return dstring_equal_ignoring_case(zone.name, pInBuf); });
    if (row == kZones.end()) return std::nullopt;
    return static_cast<std::int16_t>(row->hours * 60);
}

std::optional<ux_Date> ux_InParseDate(std::string_view pInBuf, std::int16_t DefTimeZone) {
    const er_Trace trace("ux_InParseDate");
    DateScan scan(DefTimeZone);
    for (std::string_view token = take_token(pInBuf); !token.empty(); token = take_token(pInBuf)) {
        if (!scan.token(token)) return std::nullopt;
    }
    return scan.date();
}
