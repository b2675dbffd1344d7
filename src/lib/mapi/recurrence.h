// Recurring appointments as the message store keeps them: the binary structure of PidLidAppointmentRecur
// ([MS-OXOCAL], section 2.2.1.44) and of PidLidTaskRecurrence, whose first half it is. All integers are little-endian;
// times are minutes since 1601-01-01 00:00 of the appointment's wall clock.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mapi/recurrence_rule.h"

// Written into properties: never renumbered.
enum class RecurFrequency : std::uint16_t { daily = 0x200A, weekly = 0x200B, monthly = 0x200C, yearly = 0x200D };
enum class PatternType : std::uint16_t { day = 0, week = 1, month = 2, month_nth = 3, month_end = 4 };
enum class RecurrenceEnd : std::uint32_t { by_date = 0x2021, after_number = 0x2022, never = 0x2023 };

// Bits of an exception's flags: what it changes.
enum RecurrenceChange : std::uint16_t {
    kChangedSubject = 0x0001,
    kChangedMeetingType = 0x0002,
    kChangedReminderDelta = 0x0004,
    kChangedReminder = 0x0008,
    kChangedLocation = 0x0010,
    kChangedBusyStatus = 0x0020,
    kChangedAttachment = 0x0040,
    kChangedSubType = 0x0080,
    kChangedColor = 0x0100,
    kChangedBody = 0x0200,
};

inline constexpr std::uint32_t kEndOfTime = 0x5AE980DF;    // the end of what has none: 4500-12-31 23:59
inline constexpr std::uint32_t kMostOccurrences = 40'000;  // a recurrence with more of them counts as endless
inline constexpr std::size_t kMostExceptions = 1000;

struct RecurrencePattern {
    RecurFrequency frequency = RecurFrequency::daily;
    PatternType type = PatternType::day;
    std::uint32_t first = 0;         // FirstDateTime: the phase of the period, in minutes
    std::uint32_t period = 0;        // minutes of days, weeks, or months
    std::uint32_t weekdays = 0;      // week, month_nth: bit 0 is Sunday
    std::uint32_t nth = 0;           // month_nth: 1 to 4, 5: the last
    std::uint32_t day_of_month = 0;  // month: 31 is the last one of a shorter month too
    RecurrenceEnd end = RecurrenceEnd::never;
    std::uint32_t occurrences = 10;
    std::uint32_t first_weekday = 0;      // of a week; 0: Sunday
    std::vector<std::uint32_t> deleted;   // midnights of what was deleted or moved, ascending
    std::vector<std::uint32_t> modified;  // midnights of where it was moved to, ascending
    std::uint32_t start_date = 0;         // midnight
    std::uint32_t end_date = kEndOfTime;  // midnight of the last one
    bool operator==(const RecurrencePattern&) const = default;
};

struct RecurrenceException {
    std::uint32_t start = 0, end = 0, original_start = 0;
    std::uint16_t changes = 0;
    std::string subject, location;  // UTF-8
    std::uint32_t meeting_type = 0, reminder_delta = 0, reminder_set = 0, busy_status = 0, attachment = 0, sub_type = 0,
                  color = 0;
    bool operator==(const RecurrenceException&) const = default;
};

struct AppointmentRecurrence {
    RecurrencePattern pattern;
    std::uint32_t start_offset = 0, end_offset = 0;  // minutes after midnight
    std::vector<RecurrenceException> exceptions;     // ascending by start
    bool operator==(const AppointmentRecurrence&) const = default;
};

// The pattern of a rule whose first occurrence begins at `start` (wall clock, seconds since 1970). `until` of the rule
// is taken as wall clock. None when the store has no such pattern: parts of a day, several days of a month, positions
// that it does not count.
std::optional<RecurrencePattern> pattern_of_rule(const RecurrenceRule& rule, std::int64_t start);

// The days of a pattern, in days since 1601-01-01, from its start to its end, at most `limit`; its exceptions are not
// looked at.
std::vector<std::int64_t> pattern_days(const RecurrencePattern& pattern, std::size_t limit);
bool occurs_on(const RecurrencePattern& pattern, std::int64_t day);

std::string encode_pattern(const RecurrencePattern& pattern);
std::string encode_recurrence(const AppointmentRecurrence& recurrence);
// None when the bytes end early or are no such structure. Counts are believed only as far as bytes are there.
std::optional<RecurrencePattern> decode_pattern(std::string_view bytes);
std::optional<AppointmentRecurrence> decode_recurrence(std::string_view bytes);

// "every 2 weeks on Monday, Wednesday until 2026-12-31": for people.
std::string describe_pattern(const RecurrencePattern& pattern);
