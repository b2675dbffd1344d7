// Meetings for people: see meeting.h.
#include "morvane/meeting.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>

#include "mapi/calendar_mapping.h"
#include "mapi/calendar_time.h"
#include "mapi/property_text.h"
#include "mapi/recurrence.h"

namespace morvane {
namespace {

constexpr std::size_t kMostExceptionsTold = 10;
constexpr std::size_t kMostPeopleTold = 20;

struct ClassWords {
    std::string_view item_class, words;
};
constexpr auto kClasses = std::to_array<ClassWords>({
    {"IPM.Schedule.Meeting.Request", "invitation to a meeting"},
    {"IPM.Schedule.Meeting.Canceled", "meeting cancelled"},
    {"IPM.Schedule.Meeting.Resp.Pos", "meeting accepted"},
    {"IPM.Schedule.Meeting.Resp.Neg", "meeting declined"},
    {"IPM.Schedule.Meeting.Resp.Tent", "meeting tentatively accepted"},
    {"IPM.Appointment", "appointment"},
    {"IPM.Task", "task"},
    {"IPM.Contact", "contact"},
    {"IPM.Note", "mail"},
    {"Report.IPM.Note.IPNRN", "read receipt"},
    {"Report.IPM.Note.NDR", "non-delivery report"},
});

// Properties by name.
class Values {
public:
    explicit Values(std::string_view text) {
        while (!text.empty()) {
            const std::size_t end = text.find('\n');
            if (end == std::string_view::npos) return;  // cut
            auto property = mapi_read_line(text.substr(0, end));
            text.remove_prefix(end + 1);
            if (property && !property->values.empty())
                values_.try_emplace(mapi_name_text(*property), *std::move(property));
        }
    }
    bool has(std::string_view name) const { return find(name) != nullptr; }
    std::string text(std::string_view name) const {
        const mapi_Property* property = find(name);
        return property == nullptr ? std::string() : property->values.front().bytes;
    }
    std::int64_t number(std::string_view name, std::int64_t otherwise = 0) const {
        const mapi_Property* property = find(name);
        return property == nullptr ? otherwise : property->values.front().number;
    }
    double real(std::string_view name) const {
        const mapi_Property* property = find(name);
        return property == nullptr ? 0 : property->values.front().real;
    }
    std::vector<std::int64_t> numbers(std::string_view name) const {
        std::vector<std::int64_t> all;
        if (const mapi_Property* property = find(name))
            for (const mapi_Value& value : property->values) all.push_back(value.number);
        return all;
    }
    std::optional<std::int64_t> time(std::string_view name) const {  // seconds since 1970
        const mapi_Property* property = find(name);
        if (property == nullptr || property->type != mapi_Type::time) return std::nullopt;
        return mapi_unix_seconds(property->values.front().number);
    }

private:
    const mapi_Property* find(std::string_view name) const {
        const auto found = values_.find(name);
        return found == values_.end() ? nullptr : &found->second;
    }
    std::map<std::string, mapi_Property, std::less<>> values_;
};

std::string day_text(std::int64_t local) {
    constexpr std::array<std::string_view, 7> names{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    const std::int64_t day = floor_div(local, kSecondsOfDay);
    return std::string(names[static_cast<std::size_t>(weekday_of(day))]) + " " + date_text(local);
}

std::string span_text(std::int64_t start, std::int64_t end) {
    const std::string until =
        date_text(start) == date_text(end) ? clock_text(end) : day_text(end) + " " + clock_text(end);
    return day_text(start) + " " + clock_text(start) + " - " + until;
}

std::string days_text(std::int64_t start, std::int64_t end) {
    const std::string first = day_text(start), last = day_text(std::max(end - 1, start));
    return (first == last ? first : first + " - " + last) + " (all day)";
}

// Who is asked, with the answers where there are any, else as a mailer shows them.
struct RoleRow {
    std::string_view label, names, statuses, shown;
};
constexpr auto kRoles = std::to_array<RoleRow>({
    {"required", "PidLidNonSendableTo", "PidLidNonSendToTrackStatus", "PidLidToAttendeesString"},
    {"optional", "PidLidNonSendableCc", "PidLidNonSendCcTrackStatus", "PidLidCcAttendeesString"},
    {"resources", "PidLidNonSendableBcc", "PidLidNonSendBccTrackStatus", "PidLidResourceAttendees"},
});

class Meeting {
public:
    explicit Meeting(std::string_view properties) : values_(properties) {
        clock_ = read_time_zone_definition(values_.text("PidLidAppointmentTimeZoneDefinitionStartDisplay"));
        zone_ = clock_ ? values_.text("PidLidTimeZoneDescription") : std::string();
        if (zone_.empty()) zone_ = "UTC";
    }
    std::vector<std::string> lines() {
        if (values_.has("PidLidTaskStatus")) tell_task();
        if (values_.has("PidLidAppointmentStartWhole")) tell_meeting();
        return std::move(lines_);
    }

private:
    void tell(std::string_view label, const std::string& text) {
        constexpr std::size_t width = 10;
        std::string line(label);
        line.append(width - std::min(width - 1, label.size()), ' ');
        lines_.push_back(line + text);
    }
    std::int64_t local(std::int64_t utc) const { return utc + (clock_ ? clock_offset(*clock_, utc) : 0); }
    std::string times(std::string_view start_name, std::string_view end_name) const {
        const std::int64_t start = values_.time(start_name).value_or(0), end = values_.time(end_name).value_or(start);
        if (values_.number("PidLidAppointmentSubType") != 0) return days_text(start, end);
        return span_text(local(start), local(end)) + " (" + zone_ + ")";
    }

    void tell_meeting();
    void tell_task();
    void tell_recurrence();
    void tell_changes();
    void tell_people(std::string_view label, std::string_view names, std::string_view statuses);

    Values values_;
    std::optional<ClockYear> clock_;
    std::string zone_;
    std::vector<std::string> lines_;
};

std::string_view answer(std::int64_t status) {
    constexpr std::array<std::string_view, 6> words{"", " (organiser)", " (tentative)", " (accepted)", " (declined)",
                                                    ""};
    return status >= 0 && status < static_cast<std::int64_t>(words.size()) ? words[static_cast<std::size_t>(status)]
                                                                           : "";
}

void Meeting::tell_people(std::string_view label, std::string_view names, std::string_view statuses) {
    const std::string list = values_.text(names);
    const std::vector<std::int64_t> answers = values_.numbers(statuses);
    std::string told;
    std::size_t number = 0;
    for (std::string_view rest = list; !rest.empty(); ++number) {
        const std::size_t end = std::min(rest.find("; "), rest.size());
        if (number == kMostPeopleTold) {
            told.append(" and others");
            break;
        }
        told.append(told.empty() ? "" : ", ").append(rest.substr(0, end));
        if (number < answers.size()) told.append(answer(answers[number]));
        rest.remove_prefix(std::min(end + 2, rest.size()));
    }
    if (!told.empty()) tell(label, told);
}

void Meeting::tell_recurrence() {
    const auto recurrence = decode_recurrence(values_.text("PidLidAppointmentRecur"));
    if (!recurrence) return;
    tell("repeats", describe_pattern(recurrence->pattern));
    const auto seconds = [](std::uint32_t minutes) {
        return (std::int64_t{minutes} / 1440 - kDaysTo1970) * kSecondsOfDay + std::int64_t{minutes} % 1440 * 60;
    };
    std::size_t told = 0;
    for (const RecurrenceException& exception : recurrence->exceptions) {
        if (++told > kMostExceptionsTold) break;
        std::string text = day_text(seconds(exception.original_start)) + " becomes " +
                           span_text(seconds(exception.start), seconds(exception.end));
        if (exception.changes & kChangedSubject) text.append(", \"").append(exception.subject).append("\"");
        if (exception.changes & kChangedLocation) text.append(", at ").append(exception.location);
        tell("except", text);
    }
    const auto moved = [&](std::uint32_t day) {
        return std::any_of(
            recurrence->exceptions.begin(), recurrence->exceptions.end(),
            [day](const RecurrenceException& exception) { return exception.original_start / 1440 == day / 1440; });
    };
    std::string dropped;
    for (const std::uint32_t day : recurrence->pattern.deleted) {
        if (moved(day)) continue;
        if (++told > kMostExceptionsTold) break;
        dropped.append(dropped.empty() ? "not on " : ", ").append(day_text(seconds(day)));
    }
    if (told > kMostExceptionsTold) dropped.append(dropped.empty() ? "and others" : " and others");
    if (!dropped.empty()) tell("except", dropped);
}

// What is new about a meeting that its reader knows already.
void Meeting::tell_changes() {
    if (values_.number("PidLidAppointmentCounterProposal") != 0)
        tell("proposed", times("PidLidAppointmentProposedStartWhole", "PidLidAppointmentProposedEndWhole"));
    if (const auto replaced = values_.time("PidLidExceptionReplaceTime"))
        tell("instead of", day_text(local(*replaced)) + " " + clock_text(local(*replaced)));
    if (const std::int64_t sequence = values_.number("PidLidAppointmentSequence"); sequence > 0)
        tell("update", "number " + std::to_string(sequence));
}

void Meeting::tell_meeting() {
    tell("when", times("PidLidAppointmentStartWhole", "PidLidAppointmentEndWhole"));
    if (const std::string place = values_.text("PidLidLocation"); !place.empty()) tell("where", place);
    tell_changes();
    tell_recurrence();
    const std::string name = values_.text(values_.has("PidTagSentRepresentingName") ? "PidTagSentRepresentingName"
                                                                                    : "PidTagSenderName"),
                      address = values_.text("PidTagSentRepresentingEmailAddress");
    if (!name.empty()) tell("from", name == address || address.empty() ? name : name + " <" + address + ">");
    for (const RoleRow& row : kRoles)
        tell_people(row.label, values_.has(row.names) ? row.names : row.shown, row.statuses);
    if (values_.number("PidLidReminderSet") != 0)
        tell("reminder", std::to_string(values_.number("PidLidReminderDelta")) + " minutes before");
}

void Meeting::tell_task() {
    constexpr std::array<std::string_view, 5> states{"not started", "in progress", "complete", "waiting for somebody",
                                                     "deferred"};
    const auto state = static_cast<std::size_t>(std::clamp<std::int64_t>(values_.number("PidLidTaskStatus"), 0, 4));
    std::string text(states[state]);
    const auto percent = static_cast<int>(std::clamp(values_.real("PidLidPercentComplete"), 0.0, 1.0) * 100 + 0.5);
    if (state == 1) text += ", " + std::to_string(percent) + " %";
    tell("state", text);
    if (const auto start = values_.time("PidLidTaskStartDate")) tell("starts", day_text(*start));
    if (const auto due = values_.time("PidLidTaskDueDate")) tell("due", day_text(*due));
    if (const auto pattern = decode_pattern(values_.text("PidLidTaskRecurrence")))
        tell("repeats", describe_pattern(*pattern));
}

}  // namespace

std::string_view class_in_words(std::string_view item_class) {
    for (const ClassWords& row : kClasses)
        if (row.item_class == item_class) return row.words;
    return {};
}

std::vector<std::string> meeting_lines(std::string_view properties) { return Meeting(properties).lines(); }

}  // namespace morvane
