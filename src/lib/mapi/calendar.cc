// Calendars as lists of messages: see calendar.h.
#include "mapi/calendar.h"

#include <algorithm>
#include <array>
#include <deque>
#include <unordered_map>
#include <utility>

#include "dstring/ascii.h"
#include "er/er.h"
#include "mapi/calendar_mapping.h"
#include "mapi/property_xml_writer.h"

namespace {

constexpr int kSharedWarning = 24071;

struct MethodRow {
    std::string_view name;
    CalendarMethod method;
};
// Methods of RFC 5546, section 1.4. One that no standard knows publishes.
constexpr auto kMethods = std::to_array<MethodRow>({
    {"PUBLISH", CalendarMethod::publish},
    {"REQUEST", CalendarMethod::request},
    {"ADD", CalendarMethod::request},
    {"REPLY", CalendarMethod::reply},
    {"CANCEL", CalendarMethod::cancel},
    {"COUNTER", CalendarMethod::counter},
    {"REFRESH", CalendarMethod::unknown},
    {"DECLINECOUNTER", CalendarMethod::unknown},
});

CalendarMethod method_of(const CalendarComponent& calendar) {
    const std::string_view name = calendar.value("METHOD");
    const auto* row = std::find_if(kMethods.begin(), kMethods.end(), [name](const MethodRow& candidate) {
        return dstring_equal_ignoring_case(candidate.name, name);
    });
    return row == kMethods.end() ? CalendarMethod::publish : row->method;
}

// An event and what replaces its occurrences: they have one UID.
struct Series {
    const CalendarEntry* master = nullptr;
    std::vector<const CalendarEntry*> overrides;
};

// In the order in which the calendar begins them. A second entry with a UID that is no override is a series of its own.
std::vector<Series> series_of(const std::deque<CalendarEntry>& entries) {
    std::vector<Series> all;
    std::unordered_map<std::string_view, std::size_t> by_uid;
    for (const CalendarEntry& entry : entries) {
        const auto [place, is_new] =
            entry.uid.empty() ? std::pair{by_uid.end(), true} : by_uid.try_emplace(entry.uid, all.size());
        const bool takes_place = !is_new && (entry.recurrence_id || all[place->second].master == nullptr);
        Series& series = takes_place ? all[place->second] : all.emplace_back();
        if (entry.recurrence_id)
            series.overrides.push_back(&entry);
        else
            series.master = &entry;
    }
    return all;
}

class ListBuilder {
public:
    ListBuilder(CalendarMethod method, std::string_view subject) : method_(method), subject_(subject) {}

    // False: the calendar had better stay as it is.
    bool add(const Series& series) {
        if (series.master != nullptr && !add(*series.master, series.overrides)) return false;
        for (const CalendarEntry* entry : series.overrides) {
            const bool is_gone = series.master != nullptr && entry->cancelled();
            if (!is_gone && !add(*entry, {})) return false;
        }
        return true;
    }
    std::unique_ptr<MAPI_ICAL_2_XML> take() { return std::move(first_); }

private:
    bool add(const CalendarEntry& entry, const std::vector<const CalendarEntry*>& overrides) {
        const auto recurrence = recurrence_of(entry, overrides);
        const bool recurs = (entry.rule || entry.other_dates) && !entry.recurrence_id;
        const bool must_recur = method_ == CalendarMethod::publish || method_ == CalendarMethod::request;
        if (recurs && !recurrence && must_recur) {
            er_LogMsg(7, kSharedGroup, kSharedWarning, "Calendar recurs in a way that is not known: ", entry.uid);
            return false;
        }
        const CalendarMessage message{method_, entry, recurrence, entry.summary.empty() ? subject_ : entry.summary};
        const std::string_view item_class = calendar_class(message);
        if (item_class.empty()) {
            er_LogMsg(7, kSharedGroup, kSharedWarning, "Calendar that answers nothing: ", entry.uid);
            return false;
        }
        append(message, item_class);
        return true;
    }

    void append(const CalendarMessage& message, std::string_view item_class) {
        auto made = std::make_unique<MAPI_ICAL_2_XML>();
        made->pTextDescription = calendar_description(message.entry);
        made->pUtf8Subject = message.subject;
        made->attachCount = message.entry.attachCount;
        made->sequenceNum = message.entry.sequence;
        if (message.entry.recurrence_id) made->utcRecurrenceIdTime = utc_text(message.entry.recurrence_id->utc);
        made->pPnPropsXml =
            write_property_xml(item_class, made->pUtf8Subject, made->pTextDescription, calendar_properties(message));
        std::unique_ptr<MAPI_ICAL_2_XML>& place = last_ == nullptr ? first_ : last_->next;
        place = std::move(made);
        last_ = place.get();
    }

    CalendarMethod method_;
    std::string subject_;
    std::unique_ptr<MAPI_ICAL_2_XML> first_;
    MAPI_ICAL_2_XML* last_ = nullptr;
};

bool add_calendar(const CalendarComponent& calendar, ListBuilder& list) {
    ZoneFinder zones(calendar);
    std::deque<CalendarEntry> entries;
    for (const CalendarComponent& component : calendar.components)
        if (component.name == "VEVENT" || component.name == "VTODO") entries.push_back(read_entry(component, zones));
    const std::vector<Series> all = series_of(entries);
    return std::all_of(all.begin(), all.end(), [&list](const Series& series) { return list.add(series); });
}

std::unique_ptr<MAPI_ICAL_2_XML> convert(std::string_view text, std::string_view subject) {
    const std::vector<CalendarComponent> calendars = read_calendar(text);
    if (calendars.empty()) return nullptr;
    const CalendarMethod method = method_of(calendars.front());
    if (method == CalendarMethod::unknown) {
        er_LogMsg(7, kSharedGroup, kSharedWarning,
                  "Calendar with a method that has no message: ", calendars.front().value("METHOD"));
        return nullptr;
    }
    ListBuilder list(method, subject);
    for (const CalendarComponent& calendar : calendars)
        if (!add_calendar(calendar, list)) return nullptr;
    return list.take();
}

}  // namespace

MAPI_ICAL_2_XML::~MAPI_ICAL_2_XML() {
    std::unique_ptr<MAPI_ICAL_2_XML> rest = std::move(next);
    while (rest) rest = std::move(rest->next);
}

std::unique_ptr<MAPI_ICAL_2_XML> mapi_IcalToPnProps(std::string_view text, std::string_view utf8Subject, int) {
    const er_Trace trace("mapi_IcalToPnProps");
    std::unique_ptr<MAPI_ICAL_2_XML> made;
    er_Translate([&] { made = convert(text, utf8Subject); });
    return made;
}
