// Understanding an event or task: see calendar_entry.h.
#include "mapi/calendar_entry.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>

#include "dstring/ascii.h"
#include "er/er.h"

namespace {

constexpr std::size_t kMostExcluded = 1000;

template <class Value>
struct Word {
    std::string_view text;
    Value value;
};
template <class Value, std::size_t N>
Value value_of(const std::array<Word<Value>, N>& words, std::string_view text, Value otherwise) {
    for (const auto& word : words)
        if (dstring_equal_ignoring_case(word.text, text)) return word.value;
    return otherwise;
}

constexpr auto kBusyWords = std::to_array<Word<BusyStatus>>({{"FREE", BusyStatus::free},
                                                             {"TENTATIVE", BusyStatus::tentative},
                                                             {"BUSY", BusyStatus::busy},
                                                             {"OOF", BusyStatus::out_of_office},
                                                             {"WORKINGELSEWHERE", BusyStatus::elsewhere}});
// A class that is not known is to be treated as private (RFC 5545, section 3.8.1.3).
constexpr auto kClassWords =
    std::to_array<Word<int>>({{"PUBLIC", 0}, {"PERSONAL", 1}, {"X-PERSONAL", 1}, {"PRIVATE", 2}, {"CONFIDENTIAL", 3}});
constexpr auto kRoleWords = std::to_array<Word<AttendeeRole>>({{"CHAIR", AttendeeRole::required},
                                                               {"REQ-PARTICIPANT", AttendeeRole::required},
                                                               {"OPT-PARTICIPANT", AttendeeRole::optional},
                                                               {"NON-PARTICIPANT", AttendeeRole::resource}});
constexpr auto kStatusWords = std::to_array<Word<AttendeeStatus>>({{"ACCEPTED", AttendeeStatus::accepted},
                                                                   {"DECLINED", AttendeeStatus::declined},
                                                                   {"TENTATIVE", AttendeeStatus::tentative}});

std::optional<std::int64_t> number_of(std::string_view text) {
    if (text.starts_with('+')) text.remove_prefix(1);
    std::int64_t value = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc()) return std::nullopt;
    return value;
}

bool is_true(std::string_view text) { return dstring_equal_ignoring_case(text, "TRUE"); }

std::string upper(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return out;
}

std::optional<CalendarMoment> moment_of(const CalendarProperty* property, ZoneFinder& zones) {
    if (property == nullptr) return std::nullopt;
    const auto time = parse_calendar_time(property->value);
    if (!time) return std::nullopt;
    CalendarMoment moment;
    moment.zone = time->is_utc    ? &zones.utc()
                  : time->is_date ? &zones.floating()
                                  : &zones.named(property->parameter("TZID"));
    moment.local = time->seconds;
    moment.utc = moment.zone->to_utc(time->seconds);
    moment.is_date = time->is_date;
    return moment;
}

// Days are the clock's, hours are exact (RFC 5545, section 3.3.6).
CalendarMoment later(const CalendarMoment& from, std::int64_t seconds) {
    CalendarMoment moment = from;
    if (seconds % kSecondsOfDay == 0) {
        moment.local += seconds;
        moment.utc = moment.zone->to_utc(moment.local);
    } else {
        moment.utc += seconds;
        moment.local = moment.zone->to_local(moment.utc);
        moment.is_date = false;
    }
    return moment;
}

void take_times(const CalendarComponent& component, ZoneFinder& zones, CalendarEntry& entry) {
    constexpr std::int64_t longest = 400 * 366 * kSecondsOfDay;
    entry.start = moment_of(component.first("DTSTART"), zones);
    entry.end = moment_of(component.first(entry.is_task ? "DUE" : "DTEND"), zones);
    entry.recurrence_id = moment_of(component.first("RECURRENCE-ID"), zones);
    entry.stamp = moment_of(component.first("DTSTAMP"), zones);
    entry.completed = moment_of(component.first("COMPLETED"), zones);
    entry.original_start = moment_of(component.first("X-MS-OLK-ORIGINALSTART"), zones);
    entry.original_end = moment_of(component.first("X-MS-OLK-ORIGINALEND"), zones);
    if (!entry.start) return;
    const auto duration = number_of(component.value("DURATION"));
    if (!entry.end && duration) entry.end = later(*entry.start, std::clamp<std::int64_t>(*duration, 0, longest));
    if (entry.is_task) return;
    if (!entry.end) entry.end = later(*entry.start, entry.start->is_date ? kSecondsOfDay : 0);
    if (entry.end->utc < entry.start->utc) entry.end = entry.start;
    entry.all_day =
        entry.start->is_date || (is_true(component.value("X-MICROSOFT-CDO-ALLDAYEVENT")) &&
                                 entry.start->local % kSecondsOfDay == 0 && entry.end->local % kSecondsOfDay == 0);
}

void take_states(const CalendarComponent& component, CalendarEntry& entry) {
    entry.status = upper(component.value("STATUS"));
    BusyStatus busy =
        dstring_equal_ignoring_case(component.value("TRANSP"), "TRANSPARENT") ? BusyStatus::free : BusyStatus::busy;
    if (entry.status == "TENTATIVE") busy = BusyStatus::tentative;
    entry.busy = value_of(kBusyWords, component.value("X-MICROSOFT-CDO-BUSYSTATUS"), busy);
    entry.intended = value_of(kBusyWords, component.value("X-MICROSOFT-CDO-INTENDEDSTATUS"), entry.busy);
    const std::string_view access = component.value("CLASS");
    entry.sensitivity = access.empty() ? 0 : value_of(kClassWords, access, 2);
    const std::int64_t priority = number_of(component.value("PRIORITY")).value_or(0);
    entry.importance = priority >= 1 && priority <= 4 ? 2 : priority >= 6 && priority <= 9 ? 0 : 1;
    const auto importance = number_of(component.value("X-MICROSOFT-CDO-IMPORTANCE"));
    if (importance && *importance >= 0 && *importance <= 2) entry.importance = static_cast<int>(*importance);
    entry.counter_not_wanted = is_true(component.value("X-MICROSOFT-DISALLOW-COUNTER"));
    entry.sequence = static_cast<std::uint32_t>(
        std::clamp<std::int64_t>(number_of(component.value("SEQUENCE")).value_or(0), 0, 0x7FFFFFFF));
    entry.percent_complete =
        static_cast<int>(std::clamp<std::int64_t>(number_of(component.value("PERCENT-COMPLETE")).value_or(0), 0, 100));
}

// Characters of a parameter that it could not hold: "^n", "^'", "^^" (RFC 6868).
std::string parameter_text(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char next = text[i] == '^' && i + 1 < text.size() ? text[i + 1] : '\0';
        if (next != 'n' && next != '\'' && next != '^') {
            out += text[i];
            continue;
        }
        out += next == 'n' ? ' ' : next == '\'' ? '"' : '^';
        ++i;
    }
    return out;
}

CalendarPerson person_of(const CalendarProperty& property) {
    CalendarPerson person;
    std::string_view address = property.value;
    if (dstring_starts_ignoring_case(address, "mailto:")) address.remove_prefix(7);
    person.address = address;
    person.name = parameter_text(property.parameter("CN"));
    person.role = value_of(kRoleWords, property.parameter("ROLE"), AttendeeRole::required);
    const std::string_view kind = property.parameter("CUTYPE");
    if (dstring_equal_ignoring_case(kind, "RESOURCE") || dstring_equal_ignoring_case(kind, "ROOM"))
        person.role = AttendeeRole::resource;
    person.status = value_of(kStatusWords, property.parameter("PARTSTAT"), AttendeeStatus::not_responded);
    person.answer_wanted = is_true(property.parameter("RSVP"));
    return person;
}

// The first alarm that has a time. One after the start is one at the start: the store knows minutes before it.
void take_reminder(const CalendarComponent& component, ZoneFinder& zones, CalendarEntry& entry) {
    const auto& base = entry.start ? entry.start : entry.end;
    if (!base) return;
    constexpr std::int64_t longest = 366 * 1440;
    for (const CalendarComponent& alarm : component.components) {
        const CalendarProperty* trigger = alarm.name == "VALARM" ? alarm.first("TRIGGER") : nullptr;
        if (trigger == nullptr || trigger->value.empty()) continue;
        std::int64_t at;
        if (trigger->value.front() == '+' || trigger->value.front() == '-') {
            const bool from_end = dstring_equal_ignoring_case(trigger->parameter("RELATED"), "END") && entry.end;
            at = (from_end ? entry.end->utc : base->utc) + number_of(trigger->value).value_or(0);
        } else {
            const auto moment = moment_of(trigger, zones);
            if (!moment) continue;
            at = moment->utc;
        }
        entry.reminder = std::clamp<std::int64_t>(floor_div(base->utc - at, 60), 0, longest);
        return;
    }
}

void take_lists(const CalendarComponent& component, ZoneFinder& zones, CalendarEntry& entry) {
    for (const CalendarProperty& property : component.properties) {
        if (property.name == "ATTACH") ++entry.attachCount;
        if (property.name == "ATTENDEE") entry.attendees.push_back(person_of(property));
        if (property.name == "ORGANIZER" && !entry.organizer) entry.organizer = person_of(property);
        if (property.name == "CATEGORIES") entry.categories.push_back(property.value);
        if (property.name == "RDATE") entry.other_dates = true;
        if (property.name == "RRULE") {
            if (entry.rule) entry.other_dates = true;
            entry.rule = parse_recurrence_rule(property.value);
            if (!entry.rule) entry.other_dates = true;
        }
        if (property.name == "EXDATE" && entry.excluded.size() < kMostExcluded)
            if (const auto moment = moment_of(&property, zones)) entry.excluded.push_back(*moment);
    }
}

// ---- recurrence

std::uint32_t store_minutes(std::int64_t local) {
    return static_cast<std::uint32_t>(std::max<std::int64_t>(floor_div(local, 60) + kDaysTo1970 * kMinutesOfDay, 0));
}
std::uint32_t midnight(std::uint32_t minutes) { return static_cast<std::uint32_t>(minutes - minutes % kMinutesOfDay); }

// A moment on the clock of the recurring event.
std::int64_t on_clock_of(const CalendarEntry& master, const CalendarMoment& moment) {
    return moment.is_date ? moment.local : master.start->zone->to_local(moment.utc);
}

RecurrenceException exception_of(const CalendarEntry& master, const CalendarEntry& other, std::uint32_t day) {
    RecurrenceException exception;
    exception.original_start = day + store_minutes(master.start->local) % static_cast<std::uint32_t>(kMinutesOfDay);
    exception.start = exception.original_start;
    exception.end = exception.start + static_cast<std::uint32_t>(master.minutes());
    if (other.start) {
        exception.start = store_minutes(on_clock_of(master, *other.start));
        exception.end = store_minutes(on_clock_of(master, *other.end));
    }
    const auto change = [&exception](bool changed, RecurrenceChange what) {
        if (changed) exception.changes = static_cast<std::uint16_t>(exception.changes | what);
    };
    change(other.summary != master.summary, kChangedSubject);
    change(other.location != master.location, kChangedLocation);
    change(other.busy != master.busy, kChangedBusyStatus);
    change(other.all_day != master.all_day, kChangedSubType);
    change(other.reminder.has_value() != master.reminder.has_value(), kChangedReminder);
    change(other.reminder && other.reminder != master.reminder, kChangedReminderDelta);
    if (exception.changes & kChangedSubject) exception.subject = other.summary;
    if (exception.changes & kChangedLocation) exception.location = other.location;
    if (exception.changes & kChangedBusyStatus) exception.busy_status = static_cast<std::uint32_t>(other.busy);
    if (exception.changes & kChangedSubType) exception.sub_type = other.all_day ? 1 : 0;
    if (exception.changes & kChangedReminder) exception.reminder_set = other.reminder ? 1 : 0;
    if (exception.changes & kChangedReminderDelta)
        exception.reminder_delta = static_cast<std::uint32_t>(*other.reminder);
    return exception;
}

void take_exceptions(const CalendarEntry& master, const std::vector<const CalendarEntry*>& overrides,
                     AppointmentRecurrence& recurrence) {
    // By the day of the occurrence: nothing for one that is deleted.
    std::map<std::uint32_t, const CalendarEntry*> by_day;
    const auto add = [&](const CalendarMoment& moment, const CalendarEntry* other) {
        const std::uint32_t day = midnight(store_minutes(on_clock_of(master, moment)));
        if (by_day.size() < kMostExceptions && occurs_on(recurrence.pattern, day / kMinutesOfDay))
            by_day.try_emplace(day, other);
    };
    for (const CalendarEntry* other : overrides)
        if (other->recurrence_id) add(*other->recurrence_id, other->cancelled() ? nullptr : other);
    for (const CalendarMoment& moment : master.excluded) add(moment, nullptr);
    for (const auto& [day, other] : by_day) {
        recurrence.pattern.deleted.push_back(day);
        if (other != nullptr) recurrence.exceptions.push_back(exception_of(master, *other, day));
    }
    std::sort(recurrence.exceptions.begin(), recurrence.exceptions.end(),
              [](const RecurrenceException& a, const RecurrenceException& b) { return a.start < b.start; });
    for (const RecurrenceException& exception : recurrence.exceptions)
        recurrence.pattern.modified.push_back(midnight(exception.start));
}

}  // namespace

std::int64_t CalendarEntry::minutes() const { return start && end ? (end->utc - start->utc) / 60 : 0; }

CalendarEntry read_entry(const CalendarComponent& component, ZoneFinder& zones) {
    CalendarEntry entry;
    entry.is_task = component.name == "VTODO";
    entry.uid = component.value("UID");
    entry.summary = component.value("SUMMARY");
    entry.location = component.value("LOCATION");
    entry.description = component.value("DESCRIPTION");
    take_times(component, zones, entry);
    take_states(component, entry);
    take_lists(component, zones, entry);
    take_reminder(component, zones, entry);
    return entry;
}

std::optional<AppointmentRecurrence> recurrence_of(const CalendarEntry& master,
                                                   const std::vector<const CalendarEntry*>& overrides) {
    if (!master.rule || master.other_dates || !master.start) return std::nullopt;
    RecurrenceRule rule = *master.rule;
    if (rule.until && rule.until->is_utc) rule.until->seconds = master.start->zone->to_local(rule.until->seconds);
    const auto pattern = pattern_of_rule(rule, master.start->local);
    if (!pattern) return std::nullopt;
    AppointmentRecurrence recurrence;
    recurrence.pattern = *pattern;
    recurrence.start_offset = store_minutes(master.start->local) - pattern->start_date;
    const std::int64_t end = master.end ? on_clock_of(master, *master.end) : master.start->local;
    recurrence.end_offset = std::max(store_minutes(end), pattern->start_date) - pattern->start_date;
    take_exceptions(master, overrides, recurrence);
    return recurrence;
}
