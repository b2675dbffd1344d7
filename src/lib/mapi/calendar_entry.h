// One event or task of a calendar, its properties understood: times in their zones, people, recurrence.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mapi/calendar_reader.h"
#include "mapi/calendar_zone.h"
#include "mapi/recurrence.h"

// A point in time as the calendar gives it. A date is its midnight.
struct CalendarMoment {
    std::int64_t local = 0, utc = 0;     // seconds since 1970-01-01
    const CalendarZone* zone = nullptr;  // of the calendar's ZoneFinder, which outlives it
    bool is_date = false;
};

enum class AttendeeRole { required, optional, resource };
// What an attendee answered; the numbers are those of the store.
enum class AttendeeStatus : int {
    none = 0,
    organized = 1,
    tentative = 2,
    accepted = 3,
    declined = 4,
    not_responded = 5
};

struct CalendarPerson {
    std::string name, address;  // the address without "mailto:"
    AttendeeRole role = AttendeeRole::required;
    AttendeeStatus status = AttendeeStatus::not_responded;
    bool answer_wanted = false;

    const std::string& shown() const { return name.empty() ? address : name; }
};

enum class BusyStatus : int { free = 0, tentative = 1, busy = 2, out_of_office = 3, elsewhere = 4 };

struct CalendarEntry {
    bool is_task = false, all_day = false;
    std::optional<CalendarMoment> start, end;  // of a task: end is when it is due
    std::optional<CalendarMoment> recurrence_id, stamp, completed, original_start, original_end;
    std::string uid, summary, location, description, status;
    std::uint32_t sequence = 0;
    int attachCount = 0;
    int percent_complete = 0;
    BusyStatus busy = BusyStatus::busy, intended = BusyStatus::busy;
    int sensitivity = 0;  // 0 normal, 1 personal, 2 private, 3 confidential
    int importance = 1;   // 0 low, 1 normal, 2 high
    bool counter_not_wanted = false;
    std::optional<std::int64_t> reminder;  // minutes before the start
    std::optional<CalendarPerson> organizer;
    std::vector<CalendarPerson> attendees;
    std::vector<std::string> categories;
    std::optional<RecurrenceRule> rule;
    bool other_dates = false;  // it recurs in a way that is not one rule
    std::vector<CalendarMoment> excluded;

    bool cancelled() const { return status == "CANCELLED"; }
    std::int64_t minutes() const;  // its duration
};

CalendarEntry read_entry(const CalendarComponent& component, ZoneFinder& zones);

// The store's recurrence of an event with the ones that replace its occurrences; none when it has none, or one that the
// store cannot keep.
std::optional<AppointmentRecurrence> recurrence_of(const CalendarEntry& master,
                                                   const std::vector<const CalendarEntry*>& overrides);
