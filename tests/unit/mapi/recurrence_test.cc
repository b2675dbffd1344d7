// Recurrence: rules to patterns, the days they mean, the binary structure and back.
#include "mapi/recurrence.h"

#include <algorithm>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "support/bytes.h"

namespace {

// 2026-11-20 is a Friday.
constexpr std::string_view kFriday = "20261120T100000";

std::int64_t seconds(std::string_view time) { return parse_calendar_time(time)->seconds; }

std::optional<RecurrencePattern> pattern_of(std::string_view rule, std::string_view start = kFriday) {
    const auto parsed = parse_recurrence_rule(rule);
    if (!parsed) return std::nullopt;
    return pattern_of_rule(*parsed, seconds(start));
}

std::string shown_days(const RecurrencePattern& pattern, std::size_t limit) {
    std::string text;
    for (const std::int64_t day : pattern_days(pattern, limit)) {
        const std::string date = date_text((day - kDaysTo1970) * kSecondsOfDay);
        text.append(text.empty() ? "" : " ").append(date.substr(2));
    }
    return text;
}

struct RuleRow {
    std::string_view rule, start, days, described;
    std::string_view why;
};

TEST(Recurrence, RulesThatTheStoreKnows) {
    const RuleRow rows[] = {
        {"FREQ=DAILY", kFriday, "26-11-20 26-11-21 26-11-22 26-11-23", "every day", "no end"},
        {"FREQ=DAILY;INTERVAL=3;COUNT=3", kFriday, "26-11-20 26-11-23 26-11-26", "every 3 days, 3 times",
         "interval, count"},
        {"FREQ=DAILY;UNTIL=20261122", kFriday, "26-11-20 26-11-21 26-11-22", "every day until 2026-11-22",
         "the last day counts"},
        {"FREQ=DAILY;UNTIL=20261122T095959", kFriday, "26-11-20 26-11-21", "every day until 2026-11-21",
         "the last one would begin too late"},
        {"FREQ=DAILY;UNTIL=20261122T100000", kFriday, "26-11-20 26-11-21 26-11-22", "every day until 2026-11-22",
         "it begins just in time"},
        {"FREQ=DAILY;BYDAY=MO,TU,WE,TH,FR", kFriday, "26-11-20 26-11-23 26-11-24 26-11-25",
         "every week on Monday, Tuesday, Wednesday, Thursday, Friday", "workdays"},
        {"FREQ=DAILY;BYDAY=SU,MO,TU,WE,TH,FR,SA;COUNT=2", kFriday, "26-11-20 26-11-21", "every day, 2 times",
         "all days"},
        {"FREQ=WEEKLY;COUNT=3", kFriday, "26-11-20 26-11-27 26-12-04", "every week on Friday, 3 times",
         "the day of its start"},
        {"FREQ=WEEKLY;INTERVAL=2;BYDAY=MO,FR;COUNT=4", kFriday, "26-11-20 26-11-30 26-12-04 26-12-14",
         "every 2 weeks on Monday, Friday, 4 times", "weeks begin on Monday"},
        {"FREQ=WEEKLY;INTERVAL=2;BYDAY=SU,FR;COUNT=4;WKST=SU", kFriday, "26-11-20 26-11-29 26-12-04 26-12-13",
         "every 2 weeks on Sunday, Friday, 4 times", "weeks begin on Sunday"},
        {"FREQ=WEEKLY;INTERVAL=2;BYDAY=SU,FR;COUNT=4;WKST=MO", kFriday, "26-11-20 26-11-22 26-12-04 26-12-06",
         "every 2 weeks on Sunday, Friday, 4 times", "and so they mean other days"},
        {"FREQ=MONTHLY;COUNT=3", kFriday, "26-11-20 26-12-20 27-01-20", "every month on day 20, 3 times",
         "the day of its start"},
        {"FREQ=MONTHLY;BYMONTHDAY=-1;COUNT=4", "20261130T100000", "26-11-30 26-12-31 27-01-31 27-02-28",
         "every month on day 31, 4 times", "the last day of months"},
        {"FREQ=MONTHLY;INTERVAL=2;BYMONTHDAY=25;COUNT=2", kFriday, "26-11-25 27-01-25",
         "every 2 months on day 25, 2 times", "it begins later"},
        {"FREQ=MONTHLY;BYDAY=3FR;COUNT=3", kFriday, "26-11-20 26-12-18 27-01-15",
         "every month on the third Friday, 3 times", "by position"},
        {"FREQ=MONTHLY;BYDAY=-1FR;COUNT=3", kFriday, "26-11-27 26-12-25 27-01-29",
         "every month on the last Friday, 3 times", "from the end"},
        {"FREQ=MONTHLY;BYDAY=FR;BYSETPOS=2;COUNT=2", kFriday, "26-12-11 27-01-08",
         "every month on the second Friday, 2 times", "by set"},
        {"FREQ=MONTHLY;BYDAY=MO,TU,WE,TH,FR;BYSETPOS=-1;COUNT=3", kFriday, "26-11-30 26-12-31 27-01-29",
         "every month on the last Monday, Tuesday, Wednesday, Thursday, Friday, 3 times", "the last workday"},
        {"FREQ=MONTHLY;BYDAY=SU,MO,TU,WE,TH,FR,SA;BYSETPOS=2;COUNT=2", kFriday, "26-12-02 27-01-02",
         "every month on the second day, 2 times", "any day"},
        {"FREQ=YEARLY;COUNT=2", kFriday, "26-11-20 27-11-20", "every year on day 20 of month 11, 2 times", "its date"},
        {"FREQ=YEARLY;BYMONTH=11;BYMONTHDAY=20;INTERVAL=4;COUNT=2", kFriday, "26-11-20 30-11-20",
         "every 4 years on day 20 of month 11, 2 times", "said again"},
        {"FREQ=YEARLY;BYMONTH=11;BYDAY=4TH;COUNT=3", "20261126T100000", "26-11-26 27-11-25 28-11-23",
         "every year on the fourth Thursday of month 11, 3 times", "a feast"},
        {"FREQ=YEARLY;COUNT=3", "20240229T100000", "24-02-29 25-02-28 26-02-28",
         "every year on day 29 of month 2, 3 times", "the store's leap days"},
        {"freq=daily;byhour=10;byminute=0;bysecond=0;count=1", kFriday, "26-11-20", "every day, once",
         "any case; its own time said again"},
    };
    for (const RuleRow& row : rows) {
        const auto pattern = pattern_of(row.rule, row.start);
        ASSERT_TRUE(pattern) << row.rule;
        EXPECT_EQ(shown_days(*pattern, 4), row.days) << row.rule << ": " << row.why;
        EXPECT_EQ(describe_pattern(*pattern), row.described) << row.rule;
        const std::string bytes = encode_pattern(*pattern);
        EXPECT_EQ(decode_pattern(bytes), pattern) << row.rule;
    }
}

TEST(Recurrence, RulesThatItDoesNotKnow) {
    for (const std::string_view rule : {"FREQ=HOURLY",
                                        "FREQ=MINUTELY;COUNT=2",
                                        "FREQ=SECONDLY",
                                        "FREQ=DAILY;BYMONTH=1",
                                        "FREQ=DAILY;INTERVAL=2;BYDAY=MO",
                                        "FREQ=DAILY;BYHOUR=9,10",
                                        "FREQ=DAILY;BYHOUR=11",
                                        "FREQ=DAILY;BYMINUTE=30",
                                        "FREQ=DAILY;BYSECOND=1",
                                        "FREQ=WEEKLY;BYSETPOS=1;BYDAY=MO",
                                        "FREQ=WEEKLY;BYDAY=1MO",
                                        "FREQ=WEEKLY;BYMONTH=3",
                                        "FREQ=MONTHLY;BYMONTHDAY=1,15",
                                        "FREQ=MONTHLY;BYMONTHDAY=-2",
                                        "FREQ=MONTHLY;BYMONTHDAY=32",
                                        "FREQ=MONTHLY;BYDAY=5FR",
                                        "FREQ=MONTHLY;BYDAY=-2FR",
                                        "FREQ=MONTHLY;BYDAY=FR",
                                        "FREQ=MONTHLY;BYDAY=1MO,1FR",
                                        "FREQ=MONTHLY;BYDAY=FR;BYMONTHDAY=13",
                                        "FREQ=MONTHLY;BYMONTH=1",
                                        "FREQ=MONTHLY;BYDAY=MO;BYSETPOS=1,2",
                                        "FREQ=YEARLY;BYDAY=20MO",
                                        "FREQ=YEARLY;BYMONTH=1,2",
                                        "FREQ=YEARLY;BYMONTH=12",
                                        "FREQ=YEARLY;BYMONTHDAY=5",
                                        "FREQ=YEARLY;BYWEEKNO=20",
                                        "FREQ=YEARLY;BYYEARDAY=100",
                                        "FREQ=DAILY;RSCALE=HEBREW",
                                        "FREQ=DAILY;INTERVAL=1000"})
        EXPECT_FALSE(pattern_of(rule)) << rule;
}

TEST(Recurrence, WhatIsNoRule) {
    for (const std::string_view rule :
         {"", "COUNT=2", "FREQ=OFTEN", "FREQ=", "FREQ=DAILY;INTERVAL=0", "FREQ=DAILY;INTERVAL=x", "FREQ=DAILY;COUNT=-1",
          "FREQ=DAILY;UNTIL=tomorrow", "FREQ=WEEKLY;BYDAY=XX",
          "FREQ=WEEKLY;BYDAY=", "FREQ=DAILY;WKST=", "FREQ=MONTHLY;BYMONTHDAY=a"})
        EXPECT_FALSE(parse_recurrence_rule(rule)) << rule;
    std::string many = "FREQ=MONTHLY;BYMONTHDAY=1";
    for (int i = 0; i < 365; ++i) many += ",1";
    EXPECT_TRUE(parse_recurrence_rule(many)) << "as many as a year has days";
    EXPECT_FALSE(parse_recurrence_rule(many + ",1"));
}

TEST(Recurrence, HowManyAreAnEnd) {
    EXPECT_EQ(pattern_of("FREQ=DAILY;COUNT=40000")->end, RecurrenceEnd::after_number);
    EXPECT_EQ(pattern_of("FREQ=DAILY;COUNT=40000")->occurrences, kMostOccurrences);
    EXPECT_EQ(pattern_of("FREQ=DAILY;COUNT=40001")->end, RecurrenceEnd::never);
    EXPECT_EQ(pattern_of("FREQ=DAILY;UNTIL=20261125")->occurrences, 6U) << "also of what ends by a date";
    EXPECT_EQ(pattern_of("FREQ=YEARLY;COUNT=999999")->end, RecurrenceEnd::after_number) << "as far as time goes";
    EXPECT_EQ(pattern_of("FREQ=DAILY")->end_date, kEndOfTime);
    EXPECT_EQ(pattern_of("FREQ=DAILY;UNTIL=20200101")->occurrences, 1U) << "an end before the start leaves one";
}

TEST(Recurrence, ThePhaseOfAPeriod) {
    const RecurrencePattern daily = *pattern_of("FREQ=DAILY;INTERVAL=3");
    EXPECT_EQ(daily.first, daily.start_date % (3 * 1440));
    const RecurrencePattern weekly = *pattern_of("FREQ=WEEKLY;INTERVAL=2;WKST=SU");
    EXPECT_EQ((daily.start_date - 5 * 1440) % (2 * 7 * 1440), weekly.first) << "from the Sunday of its week";
    EXPECT_EQ(pattern_of("FREQ=MONTHLY;INTERVAL=12", "20261120T100000")->first, 437760U) << "November 1601";
    EXPECT_EQ(pattern_of("FREQ=MONTHLY", "20261120T100000")->first, 0U);
}

TEST(Recurrence, TheBytesOfAWeek) {
    AppointmentRecurrence recurrence;
    recurrence.pattern = *pattern_of("FREQ=WEEKLY;BYDAY=MO,FR;COUNT=2");
    recurrence.start_offset = 600;
    recurrence.end_offset = 660;
    recurrence.pattern.deleted = {recurrence.pattern.start_date};
    EXPECT_EQ(hex(encode_recurrence(recurrence)),
              hex(bytes("0430 0430 0B20 0100 0000 00000000 01000000 00000000 22000000 22200000 02000000 01000000"
                        "01000000 60DE590D 00000000 60DE590D 40EF590D 06300000 09300000 58020000 94020000 0000"
                        "00000000 00000000")));
}

TEST(Recurrence, ExceptionsKeepWhatTheyChange) {
    AppointmentRecurrence recurrence;
    recurrence.pattern = *pattern_of("FREQ=DAILY;COUNT=9");
    recurrence.exceptions.resize(2);
    RecurrenceException& all = recurrence.exceptions[0];
    all.start = 1;
    all.end = 2;
    all.original_start = 3;
    all.changes = 0x01FF;
    all.subject = "Gespräch 🎂";
    all.location = "Zürich";
    all.meeting_type = 4, all.reminder_delta = 5, all.reminder_set = 1, all.busy_status = 3, all.attachment = 1,
    all.sub_type = 1, all.color = 9;
    recurrence.exceptions[1].start = 7;
    recurrence.exceptions[1].changes = kChangedBusyStatus;
    recurrence.exceptions[1].busy_status = 2;
    const std::string bytes = encode_recurrence(recurrence);
    EXPECT_EQ(decode_recurrence(bytes), recurrence);
    for (std::size_t size = 0; size < bytes.size(); ++size)
        EXPECT_FALSE(decode_recurrence(std::string_view(bytes).substr(0, size))) << "cut at " << size;
}

TEST(Recurrence, TextsOfExceptionsAreCutBetweenCharacters) {
    AppointmentRecurrence recurrence;
    recurrence.pattern = *pattern_of("FREQ=DAILY");
    recurrence.exceptions.resize(1);
    recurrence.exceptions[0].changes = kChangedSubject;
    for (int i = 0; i < 300; ++i) recurrence.exceptions[0].subject += "ß";
    const auto decoded = decode_recurrence(encode_recurrence(recurrence));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->exceptions[0].subject.size(), 255U * 2);
}

TEST(Recurrence, CountsAreBelievedAsFarAsBytesAre) {
    std::string bytes = encode_pattern(*pattern_of("FREQ=DAILY"));
    constexpr std::size_t deleted_count_at = 34;
    bytes.replace(deleted_count_at, 4, "\xFF\xFF\xFF\xFF");
    EXPECT_FALSE(decode_pattern(bytes));
    EXPECT_FALSE(decode_pattern("")) << "nothing";
}

TEST(Recurrence, PatternsThatCannotBeAreNone) {
    const auto refused = [](auto change) {
        RecurrencePattern pattern = *pattern_of("FREQ=WEEKLY");
        change(pattern);
        return !decode_pattern(encode_pattern(pattern));
    };
    EXPECT_TRUE(refused([](RecurrencePattern& p) { p.period = 0; })) << "it would stand still";
    EXPECT_TRUE(refused([](RecurrencePattern& p) { p.weekdays = 0; })) << "it would never come";
    EXPECT_TRUE(refused([](RecurrencePattern& p) { p.weekdays = 0x80; }));
    EXPECT_TRUE(refused([](RecurrencePattern& p) { p.first_weekday = 7; }));
    EXPECT_TRUE(refused([](RecurrencePattern& p) {
        p.type = PatternType::month;
        p.day_of_month = 32;
    }));
    EXPECT_TRUE(refused([](RecurrencePattern& p) {
        p.type = PatternType::month_nth;
        p.nth = 6;
    }));
    EXPECT_TRUE(refused([](RecurrencePattern& p) { p.frequency = static_cast<RecurFrequency>(1); }));
    EXPECT_TRUE(refused([](RecurrencePattern& p) { p.end = static_cast<RecurrenceEnd>(1); }));
    EXPECT_FALSE(refused([](RecurrencePattern&) {}));
}

// ---- against another way of counting: every day is asked whether the rule means it

struct Random {
    std::mt19937 engine{20261120};
    int below(int bound) { return static_cast<int>(engine() % static_cast<unsigned>(bound)); }
    bool coin() { return below(2) == 0; }
};

std::string random_days(Random& random) {
    std::string list;
    for (const std::string_view day : {"MO", "TU", "WE", "TH", "FR", "SA", "SU"})
        if (random.below(3) == 0) list.append(list.empty() ? "" : ",").append(day);
    return list.empty() ? "WE" : list;
}

struct Asked {
    std::string rule;
    std::int64_t start = 0;
};
Asked random_rule(Random& random) {
    Asked asked;
    asked.start = seconds(kFriday) + random.below(3000) * kSecondsOfDay;
    const CivilDate date = date_of(floor_div(asked.start, kSecondsOfDay));
    const std::string interval = ";INTERVAL=" + std::to_string(1 + random.below(5));
    switch (random.below(5)) {
        case 0: asked.rule = "FREQ=DAILY" + interval; break;
        case 1: asked.rule = "FREQ=WEEKLY" + interval + ";BYDAY=" + random_days(random); break;
        case 2: asked.rule = "FREQ=MONTHLY" + interval + ";BYMONTHDAY=" + std::to_string(1 + random.below(28)); break;
        case 3:
            asked.rule = "FREQ=MONTHLY" + interval + ";BYDAY=" + random_days(random) +
                         ";BYSETPOS=" + std::to_string(random.coin() ? -1 : 1 + random.below(4));
            break;
        default:
            asked.rule = "FREQ=YEARLY" + interval + ";BYMONTH=" + std::to_string(date.month) +
                         ";BYDAY=" + std::to_string(1 + random.below(4)) + "TU";
            break;
    }
    return asked;
}

// RFC 5545, section 3.3.10, for the rules above, word for word.
bool means(const RecurrenceRule& rule, std::int64_t start, std::int64_t day) {
    const CivilDate from = date_of(start), date = date_of(day);
    const auto monday = [](std::int64_t d) { return d - (weekday_of(d) + 6) % 7; };
    const auto has_day = [&rule](std::int64_t d) {
        return std::any_of(rule.by_day.begin(), rule.by_day.end(),
                           [d](const auto& wanted) { return wanted.weekday == weekday_of(d); });
    };
    const std::int64_t months = (date.year - from.year) * 12 + date.month - from.month;
    switch (rule.frequency) {
        case RecurrenceRule::Frequency::daily: return (day - start) % rule.interval == 0;
        case RecurrenceRule::Frequency::weekly:
            return has_day(day) && (monday(day) - monday(start)) / 7 % rule.interval == 0;
        case RecurrenceRule::Frequency::yearly:
            return months % (12 * rule.interval) == 0 &&
                   date.day == nth_weekday(date.year, date.month, rule.by_day[0].weekday, rule.by_day[0].nth);
        default: break;
    }
    if (months % rule.interval != 0) return false;
    if (rule.by_day.empty()) return date.day == rule.by_month_day[0];
    std::vector<int> set;
    for (int d = 1; d <= days_in_month(date.year, date.month); ++d)
        if (has_day(days_of({date.year, date.month, d}))) set.push_back(d);
    const int position = rule.by_set_position[0];
    return date.day == (position < 0 ? set.back() : set[static_cast<std::size_t>(position) - 1]);
}

TEST(Recurrence, RandomRulesMeanTheSameDays) {
    Random random;
    for (int round = 0; round < 400; ++round) {
        const Asked asked = random_rule(random);
        const auto rule = parse_recurrence_rule(asked.rule);
        const auto made = pattern_of_rule(*rule, asked.start);
        ASSERT_TRUE(made) << asked.rule;
        const auto pattern = decode_pattern(encode_pattern(*made));
        ASSERT_TRUE(pattern) << asked.rule;
        const std::int64_t start = floor_div(asked.start, kSecondsOfDay);
        const std::vector<std::int64_t> days = pattern_days(*pattern, 60);
        ASSERT_FALSE(days.empty());
        std::size_t at = 0;
        for (std::int64_t day = start; day <= days.back() - kDaysTo1970; ++day) {
            const bool meant = means(*rule, start, day);
            ASSERT_EQ(at < days.size() && days[at] == day + kDaysTo1970, meant)
                << asked.rule << " from " << date_text(asked.start) << " on " << date_text(day * kSecondsOfDay);
            ASSERT_EQ(occurs_on(*pattern, day + kDaysTo1970), meant) << asked.rule;
            if (meant) ++at;
        }
    }
}

}  // namespace
