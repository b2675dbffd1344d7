// Recurrence rules: see recurrence_rule.h.
#include "mapi/recurrence_rule.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "dstring/ascii.h"

namespace {

constexpr std::size_t kLongestList = 366;
constexpr std::int64_t kLargestNumber = 1'000'000;

std::optional<std::int64_t> whole_number(std::string_view text) {
    if (text.starts_with('+')) text.remove_prefix(1);
    std::int64_t value = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || stop != text.data() + text.size()) return std::nullopt;
    return std::clamp(value, -kLargestNumber, kLargestNumber);
}

std::optional<int> weekday(std::string_view text) {
    constexpr std::string_view names = "SUMOTUWETHFRSA";
    for (int day = 0; day < 7; ++day)
        if (dstring_equal_ignoring_case(text, names.substr(2 * static_cast<std::size_t>(day), 2))) return day;
    return std::nullopt;
}

std::string_view take_until(std::string_view& text, char separator) {
    const std::size_t end = std::min(text.find(separator), text.size());
    const std::string_view piece = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return piece;
}

bool take_numbers(std::string_view list, std::vector<int>& numbers) {
    while (!list.empty()) {
        const auto number = whole_number(take_until(list, ','));
        if (!number || numbers.size() == kLongestList) return false;
        numbers.push_back(static_cast<int>(*number));
    }
    return !numbers.empty();
}

bool take_days(std::string_view list, std::vector<RecurrenceRule::Day>& days) {
    while (!list.empty()) {
        const std::string_view item = take_until(list, ',');
        if (item.size() < 2 || days.size() == kLongestList) return false;
        const auto day = weekday(item.substr(item.size() - 2));
        const std::string_view position = item.substr(0, item.size() - 2);
        const auto nth = position.empty() ? std::optional<std::int64_t>(0) : whole_number(position);
        if (!day || !nth) return false;
        days.push_back({static_cast<int>(*nth), *day});
    }
    return !days.empty();
}

bool take_frequency(std::string_view text, RecurrenceRule& rule) {
    struct Row {
        std::string_view name;
        RecurrenceRule::Frequency frequency;
    };
    using Frequency = RecurrenceRule::Frequency;
    constexpr auto rows = std::to_array<Row>({{"DAILY", Frequency::daily},
                                              {"WEEKLY", Frequency::weekly},
                                              {"MONTHLY", Frequency::monthly},
                                              {"YEARLY", Frequency::yearly},
                                              {"HOURLY", Frequency::shorter},
                                              {"MINUTELY", Frequency::shorter},
                                              {"SECONDLY", Frequency::shorter}});
    for (const Row& row : rows)
        if (dstring_equal_ignoring_case(row.name, text)) {
            rule.frequency = row.frequency;
            return true;
        }
    return false;
}

bool take_positive(std::string_view text, std::int64_t& number) {
    const auto value = whole_number(text);
    if (!value || *value < 1) return false;
    number = *value;
    return true;
}

bool take_part(std::string_view name, std::string_view value, RecurrenceRule& rule) {
    const auto is = [name](std::string_view wanted) { return dstring_equal_ignoring_case(name, wanted); };
    if (is("FREQ")) return take_frequency(value, rule);
    if (is("INTERVAL")) return take_positive(value, rule.interval);
    if (is("COUNT")) return take_positive(value, rule.count);
    if (is("UNTIL")) return (rule.until = parse_calendar_time(value)).has_value();
    if (is("BYDAY")) return take_days(value, rule.by_day);
    if (is("BYMONTHDAY")) return take_numbers(value, rule.by_month_day);
    if (is("BYMONTH")) return take_numbers(value, rule.by_month);
    if (is("BYSETPOS")) return take_numbers(value, rule.by_set_position);
    if (is("BYHOUR")) return take_numbers(value, rule.by_hour);
    if (is("BYMINUTE")) return take_numbers(value, rule.by_minute);
    if (is("BYSECOND")) return take_numbers(value, rule.by_second);
    if (is("WKST")) {
        const auto day = weekday(value);
        rule.week_start = day.value_or(rule.week_start);
        return day.has_value();
    }
    rule.other_parts = true;
    return true;
}

}  // namespace

std::optional<RecurrenceRule> parse_recurrence_rule(std::string_view text) {
    RecurrenceRule rule;
    bool has_frequency = false;
    while (!text.empty()) {
        std::string_view part = take_until(text, ';');
        if (part.empty()) continue;
        const std::string_view name = take_until(part, '=');
        if (!take_part(name, part, rule)) return std::nullopt;
        has_frequency = has_frequency || dstring_equal_ignoring_case(name, "FREQ");
    }
    if (!has_frequency) return std::nullopt;
    return rule;
}
