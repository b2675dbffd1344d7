// A recurrence rule as a calendar writes it (RFC 5545, section 3.3.10):
//
//   recur = part *(";" part); part = name "=" value; FREQ is there, COUNT and UNTIL exclude each other
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "mapi/calendar_time.h"

struct RecurrenceRule {
    enum class Frequency { daily, weekly, monthly, yearly, shorter };  // shorter: than a day
    struct Day {
        int nth = 0;  // 0: every one
        int weekday = 0;
    };
    Frequency frequency = Frequency::daily;
    std::int64_t interval = 1;
    std::int64_t count = 0;  // 0: none
    std::optional<CalendarTime> until;
    std::vector<Day> by_day;
    std::vector<int> by_month_day, by_month, by_set_position, by_hour, by_minute, by_second;
    int week_start = 1;
    bool other_parts = false;  // BYWEEKNO, BYYEARDAY, or a part that is not known
};
// None when it is no rule. A list that is longer than any that means something (366) is none either.
std::optional<RecurrenceRule> parse_recurrence_rule(std::string_view text);
