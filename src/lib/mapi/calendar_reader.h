// Reading iCalendar text (RFC 5545) into plain components. The text is foreign: before libical sees it, it is reduced
// to the components and properties that become something, and every length and number in it is bounded.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Bounds. What lies beyond one is left out and logged; a calendar that was cut is still a calendar.
inline constexpr std::size_t kLongestCalendarText = std::size_t{1} << 20;    // of a DESCRIPTION
inline constexpr std::size_t kLongestCalendarValue = std::size_t{16} << 10;  // of any other content line
inline constexpr std::size_t kMostCalendarBytes = std::size_t{4} << 20;      // of all lines that are kept
inline constexpr std::size_t kMostCalendarComponents = 1000;                 // events, tasks and zones
inline constexpr std::size_t kMostAttendees = 5000;                          // of one event or task; any other: 1,000

struct CalendarProperty {
    std::string name;   // upper case
    std::string value;  // as properties_module.h has it
    std::vector<std::pair<std::string, std::string>> parameters;

    std::string_view parameter(std::string_view wanted) const;  // empty when it is not there
};

struct CalendarComponent {
    std::string name;
    std::vector<CalendarProperty> properties;
    std::vector<CalendarComponent> components;

    const CalendarProperty* first(std::string_view wanted) const;  // none: null
    std::string_view value(std::string_view wanted) const;         // of the first; empty when it is not there
};

// The lines of `text` that become something: unfolded, valid UTF-8 (other bytes are taken for Latin-1), ended by LF,
// only of whole components. Empty when the text is no whole calendar ("BEGIN:VCALENDAR" ... "END:VCALENDAR") or holds
// no event or task.
std::string calendar_lines(std::string_view text);
// Text whose every byte is part of well-formed UTF-8; a byte that is not is the character of its Latin-1 code.
std::string calendar_utf8(std::string_view text);

// The VCALENDARs of `text`; none when it is no calendar, holds no event or task, or the module that reads calendars
// cannot be loaded (which is logged).
std::vector<CalendarComponent> read_calendar(std::string_view text);
