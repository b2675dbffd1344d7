// What a recurrence means: rules to patterns, the days of a pattern, words for people. See recurrence.h.
#include "mapi/recurrence.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

constexpr std::uint32_t kEveryDay = 0x7F;
constexpr std::uint32_t kLastWeek = 5;
constexpr std::uint32_t kWorkdays = 0x3E;
constexpr std::int64_t kDaysOfWeek = 7;

using Frequency = RecurrenceRule::Frequency;

std::int64_t day_number(std::uint32_t minutes) { return minutes / kMinutesOfDay; }
std::uint32_t minutes_of(std::int64_t day) { return static_cast<std::uint32_t>(day * kMinutesOfDay); }
int weekday(std::int64_t day) { return weekday_of(day - kDaysTo1970); }
CivilDate civil(std::int64_t day) { return date_of(day - kDaysTo1970); }
std::int64_t day_of(const CivilDate& date) { return days_of(date) + kDaysTo1970; }
std::int64_t months_since_1601(const CivilDate& date) { return (date.year - 1601) * 12 + date.month - 1; }
std::int64_t week_start(const RecurrencePattern& pattern, std::int64_t day) {
    return day - (weekday(day) - static_cast<int>(pattern.first_weekday) + 7) % 7;
}

// Parts of a day that say again when the appointment begins change nothing.
bool is_alone(const std::vector<int>& values, std::int64_t value) {
    return values.empty() || (values.size() == 1 && values.front() == value);
}

std::uint32_t weekdays_of(const RecurrenceRule& rule) {
    std::uint32_t mask = 0;
    for (const RecurrenceRule::Day& day : rule.by_day) mask |= 1U << day.weekday;
    return mask;
}

bool has_positions(const RecurrenceRule& rule) {
    return std::any_of(rule.by_day.begin(), rule.by_day.end(),
                       [](const RecurrenceRule::Day& day) { return day.nth != 0; });
}

bool make_daily(const RecurrenceRule& rule, RecurrencePattern& pattern) {
    if (!rule.by_month_day.empty() || !rule.by_month.empty() || !rule.by_set_position.empty() || has_positions(rule))
        return false;
    pattern.frequency = RecurFrequency::daily;
    const std::uint32_t days = weekdays_of(rule);
    if (days == 0 || days == kEveryDay) {
        pattern.type = PatternType::day;
        pattern.period = static_cast<std::uint32_t>(rule.interval * kMinutesOfDay);
        return true;
    }
    if (rule.interval != 1) return false;
    if (days != kWorkdays) pattern.frequency = RecurFrequency::weekly;
    pattern.type = PatternType::week;
    pattern.period = 1;
    pattern.weekdays = days;
    return true;
}

bool make_weekly(const RecurrenceRule& rule, std::int64_t start_day, RecurrencePattern& pattern) {
    if (!rule.by_month_day.empty() || !rule.by_month.empty() || !rule.by_set_position.empty() || has_positions(rule))
        return false;
    pattern.frequency = RecurFrequency::weekly;
    pattern.type = PatternType::week;
    pattern.period = static_cast<std::uint32_t>(rule.interval);
    pattern.weekdays = rule.by_day.empty() ? 1U << weekday(start_day) : weekdays_of(rule);
    return true;
}

// One weekday with a position ("2MO"), or weekdays and one position among all their days ("MO,TU,WE,TH,FR" and "-1").
bool make_nth(const RecurrenceRule& rule, RecurrencePattern& pattern) {
    if (!rule.by_month_day.empty()) return false;
    int nth;
    if (!rule.by_set_position.empty()) {
        if (rule.by_set_position.size() != 1 || has_positions(rule)) return false;
        nth = rule.by_set_position.front();
    } else {
        if (rule.by_day.size() != 1) return false;
        nth = rule.by_day.front().nth;
    }
    if (nth != -1 && (nth < 1 || nth > 4)) return false;
    pattern.type = PatternType::month_nth;
    pattern.weekdays = weekdays_of(rule);
    pattern.nth = nth == -1 ? kLastWeek : static_cast<std::uint32_t>(nth);
    return true;
}

bool make_day_of_month(const RecurrenceRule& rule, const CivilDate& start, RecurrencePattern& pattern) {
    if (!rule.by_set_position.empty() || rule.by_month_day.size() > 1) return false;
    const int day = rule.by_month_day.empty() ? start.day : rule.by_month_day.front();
    if (day != -1 && (day < 1 || day > 31)) return false;
    pattern.type = PatternType::month;
    pattern.day_of_month = day == -1 ? 31 : static_cast<std::uint32_t>(day);
    return true;
}

bool make_monthly(const RecurrenceRule& rule, const CivilDate& start, RecurrencePattern& pattern) {
    if (!rule.by_month.empty()) return false;
    pattern.frequency = RecurFrequency::monthly;
    pattern.period = static_cast<std::uint32_t>(rule.interval);
    return rule.by_day.empty() ? make_day_of_month(rule, start, pattern) : make_nth(rule, pattern);
}

// A year's pattern has no month of its own: it is the month of its first date.
bool make_yearly(const RecurrenceRule& rule, const CivilDate& start, RecurrencePattern& pattern) {
    if (!is_alone(rule.by_month, start.month)) return false;
    // Without a month these are the nth Monday of the year, and a day of every month.
    if (rule.by_month.empty() && !(rule.by_day.empty() && rule.by_month_day.empty())) return false;
    pattern.frequency = RecurFrequency::yearly;
    pattern.period = static_cast<std::uint32_t>(rule.interval * 12);
    return rule.by_day.empty() ? make_day_of_month(rule, start, pattern) : make_nth(rule, pattern);
}

bool make_pattern(const RecurrenceRule& rule, std::int64_t start_day, RecurrencePattern& pattern) {
    const CivilDate start = civil(start_day);
    switch (rule.frequency) {
        case Frequency::daily: return make_daily(rule, pattern);
        case Frequency::weekly: return make_weekly(rule, start_day, pattern);
        case Frequency::monthly: return make_monthly(rule, start, pattern);
        case Frequency::yearly: return make_yearly(rule, start, pattern);
        case Frequency::shorter: break;
    }
    return false;
}

// Where in its period the pattern stands ([MS-OXOCAL], section 2.2.1.44.1, "FirstDateTime").
std::uint32_t phase(const RecurrencePattern& pattern) {
    const std::int64_t start = day_number(pattern.start_date);
    switch (pattern.type) {
        case PatternType::day: return pattern.start_date % pattern.period;
        case PatternType::week: return minutes_of(week_start(pattern, start) % (pattern.period * kDaysOfWeek));
        default: {
            const std::int64_t months = months_since_1601(civil(start)) % pattern.period;
            return minutes_of(day_of({1601 + months / 12, static_cast<int>(months % 12) + 1, 1}));
        }
    }
}

// The day that a monthly pattern has in a month: always one but where the month has none such.
std::int64_t day_in_month(const RecurrencePattern& pattern, std::int64_t months) {
    const std::int64_t year = 1601 + months / 12;
    const int month = static_cast<int>(months % 12) + 1;
    const int length = days_in_month(year, month);
    if (pattern.type != PatternType::month_nth)
        return day_of(
            {year, month,
             static_cast<int>(std::min<std::uint32_t>(pattern.day_of_month, static_cast<std::uint32_t>(length)))});
    std::uint32_t seen = 0;
    std::int64_t last = 0;
    for (int day = 1; day <= length; ++day) {
        const std::int64_t candidate = day_of({year, month, day});
        if ((pattern.weekdays >> weekday(candidate) & 1U) == 0) continue;
        last = candidate;
        if (++seen == pattern.nth && pattern.nth != kLastWeek) return candidate;
    }
    return last;
}

// The days of a pattern one after the other, whatever its end.
class DayCursor {
public:
    explicit DayCursor(const RecurrencePattern& pattern)
        : pattern_(pattern), day_(day_number(pattern.start_date)), month_(months_since_1601(civil(day_))) {}
    // The next day from the start on; -1 when the pattern has none.
    std::int64_t next() {
        switch (pattern_.type) {
            case PatternType::day: return step_day();
            case PatternType::week: return step_week();
            default: return step_month();
        }
    }

private:
    std::int64_t step_day() {
        const std::int64_t by = std::max<std::int64_t>(pattern_.period / kMinutesOfDay, 1);
        return std::exchange(day_, day_ + by);
    }
    std::int64_t step_week() {
        if ((pattern_.weekdays & kEveryDay) == 0) return -1;
        for (;;) {
            const std::int64_t day = day_++;
            if (weekday(day_) == static_cast<int>(pattern_.first_weekday % 7))
                day_ += (std::int64_t{pattern_.period} - 1) * kDaysOfWeek;
            if ((pattern_.weekdays >> weekday(day) & 1U) != 0) return day;
        }
    }
    std::int64_t step_month() {
        for (;;) {
            const std::int64_t day = day_in_month(pattern_, month_);
            month_ += std::max<std::int64_t>(pattern_.period, 1);
            if (day >= day_) return day;
        }
    }
    const RecurrencePattern& pattern_;
    std::int64_t day_, month_;
};

// How far the rule goes: its last day and number. What has too many occurrences has no end.
void take_end(const RecurrenceRule& rule, std::int64_t start, RecurrencePattern& pattern) {
    if (rule.count == 0 && !rule.until) return;
    std::int64_t bound = day_number(kEndOfTime);
    if (rule.until) {  // the day on which the last one may begin
        const std::int64_t of_day = rule.until->is_date ? 0 : start - floor_div(start, kSecondsOfDay) * kSecondsOfDay;
        bound = floor_div(rule.until->seconds - of_day, kSecondsOfDay) + kDaysTo1970;
    }
    DayCursor days(pattern);
    std::int64_t last = day_number(pattern.start_date);
    std::uint32_t number = 0;
    for (;;) {
        const std::int64_t day = days.next();
        if (day < 0 || day > bound) break;
        if (number == kMostOccurrences) return;
        last = day;
        if (++number == rule.count) break;
    }
    pattern.end = rule.count != 0 ? RecurrenceEnd::after_number : RecurrenceEnd::by_date;
    pattern.occurrences = std::max<std::uint32_t>(number, 1);
    pattern.end_date = minutes_of(last);
}

std::string list_of_weekdays(std::uint32_t mask) {
    constexpr std::array<std::string_view, 7> names{"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                    "Thursday", "Friday", "Saturday"};
    if ((mask & kEveryDay) == kEveryDay) return "day";
    std::string list;
    for (std::size_t day = 0; day < names.size(); ++day) {
        if ((mask >> day & 1U) == 0) continue;
        list.append(list.empty() ? "" : ", ").append(names[day]);
    }
    return list;
}

std::string every(std::uint32_t number, std::string_view unit) {
    if (number <= 1) return "every " + std::string(unit);
    return "every " + std::to_string(number) + " " + std::string(unit) + "s";
}

std::string position(std::uint32_t nth) {
    constexpr std::array<std::string_view, 6> names{"", "first", "second", "third", "fourth", "last"};
    return std::string(names[std::min<std::uint32_t>(nth, kLastWeek)]);
}

}  // namespace

std::optional<RecurrencePattern> pattern_of_rule(const RecurrenceRule& rule, std::int64_t start) {
    constexpr std::int64_t longest_interval = 999;
    const std::int64_t start_day = floor_div(start, kSecondsOfDay);
    const std::int64_t of_day = start - start_day * kSecondsOfDay;
    if (rule.other_parts || rule.interval > longest_interval || start_day + kDaysTo1970 < 0) return std::nullopt;
    if (!is_alone(rule.by_hour, of_day / 3600) || !is_alone(rule.by_minute, of_day / 60 % 60) ||
        !is_alone(rule.by_second, of_day % 60))
        return std::nullopt;
    RecurrencePattern pattern;
    pattern.start_date = minutes_of(start_day + kDaysTo1970);
    pattern.first_weekday = static_cast<std::uint32_t>(rule.week_start);
    if (!make_pattern(rule, start_day + kDaysTo1970, pattern)) return std::nullopt;
    pattern.first = phase(pattern);
    take_end(rule, start, pattern);
    return pattern;
}

std::vector<std::int64_t> pattern_days(const RecurrencePattern& pattern, std::size_t limit) {
    std::vector<std::int64_t> days;
    DayCursor cursor(pattern);
    const std::int64_t last = day_number(pattern.end_date);
    while (days.size() < limit) {
        const std::int64_t day = cursor.next();
        if (day < 0 || day > last) break;
        days.push_back(day);
    }
    return days;
}

bool occurs_on(const RecurrencePattern& pattern, std::int64_t day) {
    const std::int64_t start = day_number(pattern.start_date);
    if (day < start || day > day_number(pattern.end_date)) return false;
    const auto period = std::max<std::int64_t>(pattern.period, 1);
    switch (pattern.type) {
        case PatternType::day: return (day - start) % std::max<std::int64_t>(period / kMinutesOfDay, 1) == 0;
        case PatternType::week:
            return (pattern.weekdays >> weekday(day) & 1U) != 0 &&
                   (week_start(pattern, day) - week_start(pattern, start)) / kDaysOfWeek % period == 0;
        default: {
            const std::int64_t months = months_since_1601(civil(day));
            return (months - months_since_1601(civil(start))) % period == 0 && day_in_month(pattern, months) == day;
        }
    }
}

std::string describe_pattern(const RecurrencePattern& pattern) {
    std::string text;
    switch (pattern.type) {
        case PatternType::day: text = every(static_cast<std::uint32_t>(pattern.period / kMinutesOfDay), "day"); break;
        case PatternType::week:
            text = every(pattern.period, "week") + " on " + list_of_weekdays(pattern.weekdays);
            break;
        default: {
            const bool years = pattern.period != 0 && pattern.period % 12 == 0;
            const std::string when = pattern.type == PatternType::month_nth
                                         ? "the " + position(pattern.nth) + " " + list_of_weekdays(pattern.weekdays)
                                         : "day " + std::to_string(pattern.day_of_month);
            text = (years ? every(pattern.period / 12, "year") : every(pattern.period, "month")) + " on " + when;
            if (years) text += " of month " + std::to_string(civil(day_number(pattern.start_date)).month);
        }
    }
    if (pattern.end == RecurrenceEnd::never) return text;
    if (pattern.end == RecurrenceEnd::after_number)
        return text + (pattern.occurrences == 1 ? ", once" : ", " + std::to_string(pattern.occurrences) + " times");
    return text + " until " + date_text((day_number(pattern.end_date) - kDaysTo1970) * kSecondsOfDay);
}
