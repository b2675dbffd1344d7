// The text of a calendar message for people:
//
//   When: 2026-11-20 10:00 - 11:00 (Europe/Paris)
//   Where: Room 1
//
//   *~*~*~*~*~*~*~*~*~*
//
//   the DESCRIPTION
#include "mapi/calendar_mapping.h"

namespace {

constexpr std::string_view kStars = "*~*~*~*~*~*~*~*~*~*";

std::string whole_days(const CalendarEntry& entry) {
    const std::string first = date_text(entry.start->local);
    // An end is the first moment that no longer belongs to it.
    const std::string last = date_text(std::max(entry.end->local - 1, entry.start->local));
    return (first == last ? first : first + " - " + last) + " (all day)";
}

std::string zone_note(const CalendarMoment& moment) {
    return moment.is_date || moment.zone->name().empty() ? std::string() : " (" + moment.zone->name() + ")";
}

std::string point(const CalendarMoment& moment) {
    return moment.is_date ? date_text(moment.local) : date_text(moment.local) + " " + clock_text(moment.local);
}

// The end is told in the clock of the beginning.
std::string span(const CalendarMoment& start, const CalendarMoment& end) {
    CalendarMoment shown = end;
    if (!end.is_date && !start.is_date) shown.local = start.zone->to_local(end.utc);
    const bool same_day = date_text(start.local) == date_text(shown.local);
    const std::string until = same_day && !shown.is_date ? clock_text(shown.local) : point(shown);
    return point(start) + " - " + until + zone_note(start);
}

std::string when(const CalendarEntry& entry) {
    if (entry.all_day && entry.start && entry.end) return whole_days(entry);
    if (entry.start && entry.end) return span(*entry.start, *entry.end);
    if (entry.start) return point(*entry.start) + zone_note(*entry.start);
    if (entry.end) return point(*entry.end) + zone_note(*entry.end);
    return {};
}

// One line of it: a text that a calendar broke into several is told in one.
std::string one_line(std::string_view text) {
    std::string line(text);
    for (char& c : line)
        if (c == '\n' || c == '\r') c = ' ';
    return line;
}

}  // namespace

std::string calendar_description(const CalendarEntry& entry) {
    std::string text;
    const std::string times = when(entry);
    if (!times.empty()) text.append("When: ").append(times) += '\n';
    if (!entry.location.empty()) text.append("Where: ").append(one_line(entry.location)) += '\n';
    text.append("\n").append(kStars).append("\n\n").append(entry.description);
    if (!text.ends_with('\n')) text += '\n';
    return text;
}
