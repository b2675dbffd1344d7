// Properties of calendar messages ([MS-OXCICAL], section 2.1.3; [MS-OXOCAL], section 2.2): see calendar_mapping.h.
#include "mapi/calendar_mapping.h"

#include <algorithm>
#include <array>

#include "dstring/ascii.h"

namespace {

// Values of the store. Never renumbered.
constexpr std::int32_t kIsMeeting = 1, kIsReceived = 2, kIsCanceled = 4;  // PidLidAppointmentStateFlags
constexpr std::int32_t kMeetingRequest = 1;                               // PidLidMeetingType
constexpr std::size_t kLongestLocation = 255;                             // characters of PidLidLocation

struct ClassRow {
    CalendarMethod method;
    AttendeeStatus answer;  // none: whatever it is
    std::string_view name;
    std::int32_t icon, recurring_icon;
};
// The first row that fits. A reply without an answer has none.
constexpr auto kClasses = std::to_array<ClassRow>({
    {CalendarMethod::request, AttendeeStatus::none, "IPM.Schedule.Meeting.Request", 0x404, 0x404},
    {CalendarMethod::cancel, AttendeeStatus::none, "IPM.Schedule.Meeting.Canceled", 0x408, 0x408},
    {CalendarMethod::counter, AttendeeStatus::none, "IPM.Schedule.Meeting.Resp.Tent", 0x407, 0x407},
    {CalendarMethod::reply, AttendeeStatus::accepted, "IPM.Schedule.Meeting.Resp.Pos", 0x405, 0x405},
    {CalendarMethod::reply, AttendeeStatus::declined, "IPM.Schedule.Meeting.Resp.Neg", 0x406, 0x406},
    {CalendarMethod::reply, AttendeeStatus::tentative, "IPM.Schedule.Meeting.Resp.Tent", 0x407, 0x407},
    {CalendarMethod::publish, AttendeeStatus::none, "IPM.Appointment", 0x400, 0x401},
});
constexpr std::string_view kTaskClass = "IPM.Task";

const ClassRow* class_row(const CalendarMessage& message) {
    const AttendeeStatus answer =
        message.entry.attendees.empty() ? AttendeeStatus::none : message.entry.attendees.front().status;
    const auto* row = std::find_if(kClasses.begin(), kClasses.end(), [&](const ClassRow& candidate) {
        return candidate.method == message.method &&
               (candidate.answer == AttendeeStatus::none || candidate.answer == answer);
    });
    return row == kClasses.end() ? nullptr : row;
}

bool from_attendee(CalendarMethod method) {
    return method == CalendarMethod::reply || method == CalendarMethod::counter;
}

std::string_view first_characters(std::string_view text, std::size_t most) {
    std::size_t at = 0;
    for (std::size_t count = 0; at < text.size() && count < most; ++count) {
        ++at;
        while (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) ++at;
    }
    return text.substr(0, at);
}

std::int64_t store_time(const CalendarMoment& moment) { return mapi_time_of(moment.utc); }

mapi_Property floating64(std::string_view name, double value) {
    mapi_Property property = mapi_integer32(name, 0);
    property.type = mapi_Type::floating64;
    property.values.front().real = value;
    return property;
}

// The properties of one message, gathered.
class Properties {
public:
    explicit Properties(const CalendarMessage& message) : message_(message), entry_(message.entry) {}
    std::vector<mapi_Property> take_event() {
        take_common();
        take_times();
        take_meeting();
        take_identity();
        take_recurrence();
        take_zone();
        take_reminder();
        take_people();
        take_proposal();
        return std::move(list_);
    }
    std::vector<mapi_Property> take_task() {
        take_common();
        take_task_state();
        take_reminder();
        take_people();
        return std::move(list_);
    }

private:
    void text(std::string_view name, std::string_view value) {
        list_.push_back(mapi_unicode(name, std::string(value)));
    }
    void number(std::string_view name, std::int64_t value) {
        list_.push_back(
            mapi_integer32(name, static_cast<std::int32_t>(std::clamp<std::int64_t>(value, 0, 0x7FFFFFFF))));
    }
    void truth(std::string_view name, bool value) { list_.push_back(mapi_boolean(name, value)); }
    void time(std::string_view name, std::int64_t filetime) { list_.push_back(mapi_time(name, filetime)); }
    void bytes(std::string_view name, std::string value) { list_.push_back(mapi_binary(name, std::move(value))); }

    void take_common();
    void take_times();
    void take_meeting();
    void take_identity();
    void take_recurrence();
    void take_zone();
    void take_reminder();
    void take_people();
    void take_attendees();
    void take_proposal();
    void take_task_state();

    const CalendarMessage& message_;
    const CalendarEntry& entry_;
    std::vector<mapi_Property> list_;
};

void Properties::take_common() {
    text("PidTagSubject", message_.subject);
    if (!entry_.location.empty()) {
        text("PidLidLocation", first_characters(entry_.location, kLongestLocation));
        text("PidLidWhere", entry_.location);
    }
    number("PidTagSensitivity", entry_.sensitivity);
    number("PidTagImportance", entry_.importance);
    truth("PidLidPrivate", entry_.sensitivity >= 2);
    if (!entry_.categories.empty()) list_.push_back(mapi_unicodes("PidNameKeywords", entry_.categories));
}

// What a proposal is about keeps its own time, as far as the proposal says it; the new one is a property of its own.
void Properties::take_times() {
    if (!entry_.start) return;
    const bool counter = message_.method == CalendarMethod::counter;
    const CalendarMoment& start = counter && entry_.original_start ? *entry_.original_start : *entry_.start;
    const CalendarMoment& end = counter && entry_.original_end ? *entry_.original_end : *entry_.end;
    time("PidLidAppointmentStartWhole", store_time(start));
    time("PidLidAppointmentEndWhole", store_time(end));
    time("PidLidCommonStart", store_time(start));
    time("PidLidCommonEnd", store_time(end));
    time("PidTagStartDate", store_time(start));
    time("PidTagEndDate", store_time(end));
    number("PidLidAppointmentDuration", (end.utc - start.utc) / 60);
    truth("PidLidAppointmentSubType", entry_.all_day);
}

void Properties::take_meeting() {
    const ClassRow* row = class_row(message_);
    const bool recurring = message_.recurrence.has_value();
    if (row != nullptr) {
        const bool meeting = message_.method == CalendarMethod::publish && !entry_.attendees.empty();
        number("PidTagIconIndex", (recurring ? row->recurring_icon : row->icon) + (meeting ? 2 : 0));
    }
    number("PidLidBusyStatus", static_cast<int>(entry_.busy));
    number("PidLidIntendedBusyStatus", static_cast<int>(entry_.intended));
    number("PidLidAppointmentSequence", entry_.sequence);
    truth("PidLidAppointmentNotAllowPropose", entry_.counter_not_wanted);
    switch (message_.method) {
        case CalendarMethod::request:
            number("PidLidAppointmentStateFlags", kIsMeeting | kIsReceived);
            number("PidLidMeetingType", kMeetingRequest);
            number("PidLidResponseStatus", static_cast<int>(AttendeeStatus::not_responded));
            break;
        case CalendarMethod::cancel:
            number("PidLidAppointmentStateFlags", kIsMeeting | kIsReceived | kIsCanceled);
            break;
        default: number("PidLidAppointmentStateFlags", entry_.attendees.empty() ? 0 : kIsMeeting); break;
    }
    if (!entry_.stamp || message_.method == CalendarMethod::publish) return;
    time(from_attendee(message_.method) ? "PidLidAttendeeCriticalChange" : "PidLidOwnerCriticalChange",
         store_time(*entry_.stamp));
    if (from_attendee(message_.method)) time("PidLidAppointmentReplyTime", store_time(*entry_.stamp));
}

void Properties::take_identity() {
    if (!entry_.uid.empty()) {
        std::optional<std::int64_t> day;
        if (entry_.recurrence_id) day = floor_div(entry_.recurrence_id->local, kSecondsOfDay);
        bytes("PidLidGlobalObjectId", global_object_id(entry_.uid, day));
        bytes("PidLidCleanGlobalObjectId", global_object_id(entry_.uid, std::nullopt));
    }
    truth("PidLidIsException", entry_.recurrence_id.has_value());
    if (entry_.recurrence_id) time("PidLidExceptionReplaceTime", store_time(*entry_.recurrence_id));
}

void Properties::take_recurrence() {
    const auto& recurrence = message_.recurrence;
    truth("PidLidIsRecurring", recurrence.has_value() || entry_.recurrence_id.has_value());
    truth("PidLidRecurring", recurrence.has_value());
    if (!recurrence) return;
    const RecurrencePattern& pattern = recurrence->pattern;
    bytes("PidLidAppointmentRecur", encode_recurrence(*recurrence));
    number("PidLidRecurrenceType", static_cast<int>(pattern.frequency) - static_cast<int>(RecurFrequency::daily) + 1);
    text("PidLidRecurrencePattern", describe_pattern(pattern));
    // Dates of the clock of the event, as UTC.
    const auto date_time = [](std::uint32_t minutes) { return std::int64_t{minutes} * 60 * kMapiTicks; };
    time("PidLidClipStart", date_time(pattern.start_date));
    // Its own end of time ([MS-OXOCAL], section 2.2.1.15).
    const std::int64_t never = mapi_time_of((days_of({4500, 8, 31}) + 1) * kSecondsOfDay - 60);
    time("PidLidClipEnd", pattern.end == RecurrenceEnd::never ? never : date_time(pattern.end_date));
}

// An event of a day, and one whose times name no zone, are the same everywhere.
void Properties::take_zone() {
    if (!entry_.start || entry_.start->is_date || entry_.start->zone->is_host()) return;
    const CalendarZone& zone = *entry_.start->zone;
    const std::int64_t year = date_of(floor_div(entry_.start->local, kSecondsOfDay)).year;
    const ClockYear clock = zone.year(year);
    text("PidLidTimeZoneDescription", zone.name());
    bytes("PidLidAppointmentTimeZoneDefinitionStartDisplay", time_zone_definition(clock, zone.key_name(), year, false));
    const CalendarZone& end_zone = *entry_.end->zone;
    if (!end_zone.is_host())
        bytes("PidLidAppointmentTimeZoneDefinitionEndDisplay",
              time_zone_definition(end_zone.year(year), end_zone.key_name(), year, false));
    if (!message_.recurrence) return;
    bytes("PidLidTimeZoneStruct", time_zone_struct(clock));
    bytes("PidLidAppointmentTimeZoneDefinitionRecur", time_zone_definition(clock, zone.key_name(), year, true));
}

void Properties::take_reminder() {
    const auto& base = entry_.start ? entry_.start : entry_.end;
    truth("PidLidReminderSet", entry_.reminder.has_value());
    number("PidLidReminderDelta", entry_.reminder.value_or(0));
    if (!entry_.reminder || !base) return;
    time("PidLidReminderTime", store_time(*base));
    time("PidLidReminderSignalTime", mapi_time_of(base->utc - *entry_.reminder * 60));
}

// The sender in whose name it comes: of an answer its attendee, of anything else the organiser.
void Properties::take_people() {
    const CalendarPerson* author = entry_.organizer ? &*entry_.organizer : nullptr;
    if (from_attendee(message_.method) && !entry_.attendees.empty()) author = &entry_.attendees.front();
    if (author != nullptr) {
        text("PidTagSentRepresentingName", author->shown());
        text("PidTagSentRepresentingAddressType", "SMTP");
        text("PidTagSentRepresentingEmailAddress", author->address);
        if (from_attendee(message_.method)) text("PidLidAppointmentReplyName", author->shown());
    }
    take_attendees();
}

void append_name(std::string& list, std::string_view name) { list.append(list.empty() ? "" : "; ").append(name); }

struct RoleRow {
    AttendeeRole role;
    std::string_view required, shown, names, statuses;
};
// By role: who is asked, who is shown, who they are, what they answered (in the same order).
constexpr auto kRoles = std::to_array<RoleRow>({
    {AttendeeRole::required, "PidLidRequiredAttendees", "PidLidToAttendeesString", "PidLidNonSendableTo",
     "PidLidNonSendToTrackStatus"},
    {AttendeeRole::optional, "PidLidOptionalAttendees", "PidLidCcAttendeesString", "PidLidNonSendableCc",
     "PidLidNonSendCcTrackStatus"},
    {AttendeeRole::resource, "PidLidResourceAttendees", "", "PidLidNonSendableBcc", "PidLidNonSendBccTrackStatus"},
});

// A message has no table of the attendees of its meeting, so they stand in the lists that the store has for people who
// are not among its recipients, each with the status that the calendar gives.
void Properties::take_attendees() {
    if (entry_.attendees.empty()) return;
    std::string all;
    bool answer_wanted = false;
    for (const CalendarPerson& person : entry_.attendees) {
        append_name(all, person.shown());
        answer_wanted = answer_wanted || person.answer_wanted;
    }
    text("PidLidAllAttendeesString", all);
    if (message_.method == CalendarMethod::request) truth("PidTagResponseRequested", answer_wanted);
    for (const RoleRow& row : kRoles) {
        std::string shown, addresses;
        mapi_Property statuses = mapi_integer32(row.statuses, 0);
        statuses.multiple = true;
        statuses.values.clear();
        for (const CalendarPerson& person : entry_.attendees) {
            if (person.role != row.role) continue;
            append_name(shown, person.shown());
            append_name(addresses, person.address);
            statuses.values.emplace_back().number = static_cast<int>(person.status);
        }
        if (statuses.values.empty()) continue;
        text(row.required, addresses);
        if (!row.shown.empty()) text(row.shown, shown);
        text(row.names, shown);
        list_.push_back(std::move(statuses));
    }
}

void Properties::take_proposal() {
    if (message_.method != CalendarMethod::counter || !entry_.start) return;
    truth("PidLidAppointmentCounterProposal", true);
    time("PidLidAppointmentProposedStartWhole", store_time(*entry_.start));
    time("PidLidAppointmentProposedEndWhole", store_time(*entry_.end));
    number("PidLidAppointmentProposedDuration", entry_.minutes());
}

// Dates of tasks are midnights that mean the same day everywhere ([MS-OXOTASK], section 2.2.2.2.4).
void Properties::take_task_state() {
    const auto day = [](const CalendarMoment& moment) {
        return mapi_time_of(floor_div(moment.local, kSecondsOfDay) * kSecondsOfDay);
    };
    const bool complete = entry_.status == "COMPLETED" || entry_.completed || entry_.percent_complete == 100;
    const std::int32_t status = complete                        ? 2
                                : entry_.status == "IN-PROCESS" ? 1
                                : entry_.cancelled()            ? 4
                                : entry_.percent_complete > 0   ? 1
                                                                : 0;
    number("PidLidTaskStatus", status);
    truth("PidLidTaskComplete", complete);
    list_.push_back(floating64("PidLidPercentComplete", complete ? 1.0 : entry_.percent_complete / 100.0));
    if (entry_.start) {
        time("PidLidTaskStartDate", day(*entry_.start));
        time("PidLidCommonStart", store_time(*entry_.start));
    }
    if (entry_.end) {
        time("PidLidTaskDueDate", day(*entry_.end));
        time("PidLidCommonEnd", store_time(*entry_.end));
    }
    if (entry_.completed) time("PidLidTaskDateCompleted", day(*entry_.completed));
    if (entry_.organizer) text("PidLidTaskOwner", entry_.organizer->shown());
    truth("PidLidTaskFRecurring", message_.recurrence.has_value());
    if (message_.recurrence) bytes("PidLidTaskRecurrence", encode_pattern(message_.recurrence->pattern));
}

// ---- binary structures

void append_number(std::string& out, std::uint64_t value, int width) {
    for (int i = 0; i < width; ++i) out += static_cast<char>(value >> (8 * i) & 0xFF);
}

// SYSTEMTIME of a yearly change: month, day of the week, week of the month, time.
void append_change(std::string& out, const ClockChange& change) {
    for (const int part : {0, change.month, change.weekday, change.nth, change.hour, change.minute, 0, 0})
        append_number(out, static_cast<std::uint64_t>(part), 2);
}

void append_biases(std::string& out, const ClockYear& clock) {
    append_number(out, static_cast<std::uint64_t>(-clock.standard / 60), 4);
    append_number(out, 0, 4);
    append_number(out, static_cast<std::uint64_t>((clock.standard - clock.daylight) / 60), 4);
}

int hex_digit(char c) {
    const std::size_t value = std::string_view("0123456789abcdef").find(dstring_lower(c));
    return value == std::string_view::npos ? -1 : static_cast<int>(value);
}

// The bytes of hex text; empty when it is none.
std::string unhex(std::string_view text) {
    std::string out;
    if (text.size() % 2 != 0) return out;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const int high = hex_digit(text[i]), low = hex_digit(text[i + 1]);
        if (high < 0 || low < 0) return {};
        out += static_cast<char>(high << 4 | low);
    }
    return out;
}

constexpr std::string_view kObjectIdClass{"\x04\x00\x00\x00\x82\x00\xE0\x00\x74\xC5\xB7\x10\x1A\x82\xE0\x08", 16};
constexpr std::size_t kObjectIdHead = 40;  // class, date, creation time, eight zeros, size
constexpr std::size_t kObjectIdDate = 16;

}  // namespace

std::string_view calendar_class(const CalendarMessage& message) {
    if (message.entry.is_task) return kTaskClass;
    const ClassRow* row = class_row(message);
    return row == nullptr ? std::string_view() : row->name;
}

std::vector<mapi_Property> calendar_properties(const CalendarMessage& message) {
    Properties properties(message);
    return message.entry.is_task ? properties.take_task() : properties.take_event();
}

// A UID that is the hex form of an identifier that the store gave is that identifier; any other one is its data, behind
// "vCal-Uid" and a 1.
std::string global_object_id(std::string_view uid, const std::optional<std::int64_t>& day) {
    std::string id = unhex(uid);
    if (!id.starts_with(kObjectIdClass) || id.size() < kObjectIdHead) {
        id.assign(kObjectIdClass);
        id.append(4 + 8 + 8, '\0');
        append_number(id, 12 + uid.size() + 1, 4);
        id.append("vCal-Uid").append("\x01\0\0\0", 4).append(uid) += '\0';
    }
    std::string date(4, '\0');
    if (day) {
        const CivilDate civil = date_of(*day);
        date = {static_cast<char>(civil.year >> 8 & 0xFF), static_cast<char>(civil.year & 0xFF),
                static_cast<char>(civil.month), static_cast<char>(civil.day)};
    }
    return id.replace(kObjectIdDate, date.size(), date);
}

// offset width field: 0 i32 bias, 4 i32 standard bias, 8 i32 daylight bias, 12 u16 0, 14 SYSTEMTIME to standard, 30 u16
// 0, 32 SYSTEMTIME to daylight ([MS-OXOCAL], section 2.2.1.39).
std::string time_zone_struct(const ClockYear& clock) {
    std::string out;
    append_biases(out, clock);
    append_number(out, 0, 2);
    append_change(out, clock.to_standard);
    append_number(out, 0, 2);
    append_change(out, clock.to_daylight);
    return out;
}

// u8 2, u8 1, u16 size of what follows up to the rules, u16 2, u16 length of the name, UTF-16 name, u16 1 rule; the
// rule: u8 2, u8 1, u16 62, u16 flags, u16 year, 14 zeros, biases, the two changes ([MS-OXOCAL], section 2.2.1.41).
std::string time_zone_definition(const ClockYear& clock, std::string_view key_name, std::int64_t year, bool recurring) {
    constexpr std::size_t longest_name = 260;
    constexpr std::uint64_t effective = 2, of_the_recurrence = 1;
    std::string name;
    mapi_append_utf16(name, first_characters(key_name, longest_name));
    std::string out("\x02\x01", 2);
    append_number(out, 6 + name.size(), 2);
    append_number(out, 2, 2);
    append_number(out, name.size() / 2, 2);
    out.append(name);
    append_number(out, 1, 2);
    out.append("\x02\x01", 2);
    append_number(out, 62, 2);
    append_number(out, recurring ? effective | of_the_recurrence : effective, 2);
    append_number(out, static_cast<std::uint64_t>(year), 2);
    out.append(14, '\0');
    append_biases(out, clock);
    append_change(out, clock.to_standard);
    append_change(out, clock.to_daylight);
    return out;
}

std::optional<ClockYear> read_time_zone_definition(std::string_view definition) {
    constexpr std::size_t rule_size = 66, biases_at = 22, changes_at = 34, change_size = 16, bias_limit = 24 * 60;
    if (definition.size() < rule_size || !definition.starts_with("\x02\x01")) return std::nullopt;
    const std::string_view rule = definition.substr(definition.size() - rule_size);
    if (!rule.starts_with(std::string_view("\x02\x01\x3E\0", 4))) return std::nullopt;
    const auto number = [rule](std::size_t at, std::size_t width) {
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < width; ++i)
            value |= static_cast<std::uint32_t>(static_cast<unsigned char>(rule[at + i])) << (8 * i);
        return value;
    };
    const auto minutes = [&](std::size_t at) { return std::int64_t{static_cast<std::int32_t>(number(at, 4))}; };
    const auto change = [&](std::size_t at) {
        const auto part = [&](std::size_t index) { return static_cast<int>(number(at + 2 * index, 2)); };
        const ClockChange made{part(1), part(3), part(2), part(4), part(5)};
        const bool sound = made.month <= 12 && made.nth >= 1 && made.nth <= 5 && made.weekday <= 6 && made.hour < 24;
        return sound ? made : ClockChange{};
    };
    ClockYear clock;
    clock.standard = -(minutes(biases_at) + minutes(biases_at + 4)) * 60;
    clock.daylight = -(minutes(biases_at) + minutes(biases_at + 8)) * 60;
    clock.to_standard = change(changes_at);
    clock.to_daylight = change(changes_at + change_size);
    const auto too_far = [](std::int64_t offset) {
        return offset / 60 > std::int64_t{bias_limit} || offset / 60 < -std::int64_t{bias_limit};
    };
    if (too_far(clock.standard) || too_far(clock.daylight)) return std::nullopt;
    return clock;
}
