// Time zones of calendars: see calendar_zone.h.
#include "mapi/calendar_zone.h"

#include <fcntl.h>

#include <algorithm>
#include <charconv>
#include <ctime>
#include <utility>

#include "dstring/ascii.h"
#include "er/er.h"
#include "mapi/recurrence_rule.h"
#include "mapi/tzif.h"

namespace {

constexpr int kSharedWarning = 24071;
constexpr std::int64_t kLargestOffset = 26 * 3600;  // of what a TZif file or a calendar may say
constexpr std::size_t kMostObservances = 1000;

std::int64_t year_of(std::int64_t seconds) { return date_of(floor_div(seconds, kSecondsOfDay)).year; }

// The day of a yearly change.
CivilDate change_day(const YearlyChange& change, std::int64_t year) {
    CivilDate date{year, change.month, change.day};
    if (change.nth != 0) {
        date.day = std::max(nth_weekday(year, change.month, change.weekday, change.nth), 1);
    } else if (change.from_day) {
        const std::int64_t days = days_of(date);
        return date_of(days + (change.weekday - weekday_of(days) + 7) % 7);
    }
    date.day = std::min(date.day, days_in_month(year, change.month));
    return date;
}

std::int64_t onset_in(const Observance& observance, std::int64_t year) {
    const std::int64_t of_day = observance.onset - floor_div(observance.onset, kSecondsOfDay) * kSecondsOfDay;
    return yearly_onset(*observance.yearly, of_day, year);
}

// "BYMONTHDAY=8,9,10,11,12,13,14;BYDAY=SU" is the first Sunday from the 8th on.
std::optional<YearlyChange> yearly_change(std::string_view text, std::int64_t onset) {
    const auto rule = parse_recurrence_rule(text);
    if (!rule || rule->frequency != RecurrenceRule::Frequency::yearly || rule->interval != 1 ||
        rule->by_month.size() > 1 || rule->by_day.size() > 1 || rule->other_parts)
        return std::nullopt;
    const CivilDate start = date_of(floor_div(onset, kSecondsOfDay));
    YearlyChange change;
    change.month = rule->by_month.empty() ? start.month : rule->by_month.front();
    if (change.month < 1 || change.month > 12) return std::nullopt;
    change.day = start.day;
    if (!rule->by_month_day.empty()) {
        change.day = *std::min_element(rule->by_month_day.begin(), rule->by_month_day.end());
        change.from_day = !rule->by_day.empty();
    }
    if (change.day < 1 || change.day > 31) return std::nullopt;
    if (rule->by_day.empty()) return change;
    change.weekday = rule->by_day.front().weekday;
    change.nth = rule->by_day.front().nth;
    if (change.nth < -5 || change.nth > 5) return std::nullopt;
    if (change.nth == 0 && !change.from_day) return std::nullopt;
    return change;
}

std::int64_t offset_of(const CalendarComponent& observance, std::string_view name) {
    const std::string_view text = observance.value(name);
    std::int64_t seconds = 0;
    std::from_chars(text.data() + (text.starts_with('+') ? 1 : 0), text.data() + text.size(), seconds);
    return std::clamp(seconds, -kLargestOffset, kLargestOffset);
}

void take_observance(const CalendarComponent& component, std::vector<Observance>& observances) {
    const auto start = parse_calendar_time(component.value("DTSTART"));
    if (!start || component.first("TZOFFSETTO") == nullptr) return;
    Observance observance;
    observance.onset = start->seconds;
    observance.to = offset_of(component, "TZOFFSETTO");
    observance.from = component.first("TZOFFSETFROM") == nullptr ? observance.to : offset_of(component, "TZOFFSETFROM");
    observance.daylight = component.name == "DAYLIGHT";
    for (const CalendarProperty& property : component.properties) {
        if (property.name == "RRULE" && !observance.yearly) {
            observance.yearly = yearly_change(property.value, observance.onset);
            const auto rule = parse_recurrence_rule(property.value);
            if (rule && rule->until)
                observance.until = rule->until->seconds - (rule->until->is_utc ? 0 : observance.from);
        }
        const auto again = property.name == "RDATE" ? parse_calendar_time(property.value) : std::nullopt;
        if (!again || observances.size() == kMostObservances) continue;
        Observance single = observance;
        single.onset = again->seconds;
        single.yearly.reset();
        observances.push_back(single);
    }
    if (observances.size() < kMostObservances) observances.push_back(observance);
}

int week_of(std::int64_t day) { return static_cast<int>((day - 1) / 7 + 1); }

}  // namespace

std::int64_t yearly_onset(const YearlyChange& change, std::int64_t time, std::int64_t year) {
    return days_of(change_day(change, year)) * kSecondsOfDay + time;
}

// Of the last change before: when none of this year is, it is the later one of the year before.
std::int64_t clock_offset(const ClockYear& clock, std::int64_t utc) {
    if (clock.to_standard.month == 0 || clock.to_daylight.month == 0) return clock.standard;
    const auto onset = [utc](const ClockChange& change, std::int64_t before) {
        const YearlyChange yearly{
            .month = change.month, .nth = change.nth == 5 ? -1 : change.nth, .weekday = change.weekday};
        return yearly_onset(yearly, change.hour * 3600 + change.minute * 60, year_of(utc)) - before;
    };
    const std::int64_t daylight_from = onset(clock.to_daylight, clock.standard);
    const std::int64_t standard_from = onset(clock.to_standard, clock.daylight);
    const bool summer = daylight_from < standard_from ? utc >= daylight_from && utc < standard_from
                                                      : utc >= daylight_from || utc < standard_from;
    return summer ? clock.daylight : clock.standard;
}

CalendarZone::CalendarZone(Kind kind, std::string name) : kind_(kind), name_(std::move(name)), key_name_(name_) {}
CalendarZone CalendarZone::utc() { return {Kind::utc, "UTC"}; }
CalendarZone CalendarZone::host() { return {Kind::host, ""}; }

CalendarZone::CalendarZone(std::string name, std::vector<Observance> observances)
    : kind_(Kind::rules), name_(std::move(name)), observances_(std::move(observances)) {
    const std::string_view windows = windows_of_olson(olson_part(name_));
    key_name_ = windows.empty() ? name_ : std::string(windows);
}

// The latest onset that `accept` takes. Times around it are at most a day and a half away from `around`, in whatever
// they are counted, so that the years before and after it are enough.
template <class Accept>
std::optional<CalendarZone::Onset> CalendarZone::latest(std::int64_t around, Accept accept) const {
    std::optional<Onset> found;
    const auto offer = [&](const Observance& observance, std::int64_t local) {
        if (found && found->local >= local) return;
        if (accept(observance, local))
            found = Onset{local, observance.from, observance.to, observance.daylight, &observance};
    };
    for (const Observance& observance : observances_) {
        offer(observance, observance.onset);
        if (!observance.yearly) continue;
        std::int64_t last = year_of(around) + 1;
        if (observance.until) last = std::min(last, year_of(*observance.until) + 1);
        for (std::int64_t year = last; year > last - 3; --year) {
            const std::int64_t local = onset_in(observance, year);
            if (local > observance.onset && (!observance.until || local - observance.from <= *observance.until))
                offer(observance, local);
        }
    }
    return found;
}

// Before everything that is known the clock is what it was before the first change.
std::int64_t CalendarZone::first_offset() const {
    const auto first = std::min_element(observances_.begin(), observances_.end(),
                                        [](const Observance& a, const Observance& b) { return a.onset < b.onset; });
    return first == observances_.end() ? 0 : first->from;
}

std::int64_t CalendarZone::to_utc(std::int64_t local) const {
    if (kind_ == Kind::utc) return local;
    if (kind_ == Kind::host) {
        const CivilDate date = date_of(floor_div(local, kSecondsOfDay));
        const std::int64_t of_day = local - floor_div(local, kSecondsOfDay) * kSecondsOfDay;
        std::tm parts{};
        parts.tm_year = static_cast<int>(date.year - 1900);
        parts.tm_mon = date.month - 1;
        parts.tm_mday = date.day;
        parts.tm_hour = static_cast<int>(of_day / 3600);
        parts.tm_min = static_cast<int>(of_day / 60 % 60);
        parts.tm_sec = static_cast<int>(of_day % 60);
        parts.tm_isdst = -1;
        return std::mktime(&parts);
    }
    const auto onset = latest(local, [local](const Observance& observance, std::int64_t at) {
        return at + std::max<std::int64_t>(observance.to - observance.from, 0) <= local;
    });
    return local - (onset ? onset->to : first_offset());
}

std::int64_t CalendarZone::to_local(std::int64_t utc) const {
    if (kind_ == Kind::utc) return utc;
    if (kind_ == Kind::host) {
        const std::time_t time = utc;
        std::tm parts{};
        return ::localtime_r(&time, &parts) == nullptr ? utc : utc + parts.tm_gmtoff;
    }
    const auto onset =
        latest(utc, [utc](const Observance& observance, std::int64_t at) { return at - observance.from <= utc; });
    return utc + (onset ? onset->to : first_offset());
}

// A change that is one of a yearly rule has the rule's week: the last Sunday may be the fourth one too.
void CalendarZone::take_change(ClockYear& found, const Onset& onset) const {
    const std::int64_t days = floor_div(onset.local, kSecondsOfDay);
    const CivilDate date = date_of(days);
    ClockChange& change = onset.daylight ? found.to_daylight : found.to_standard;
    (onset.daylight ? found.daylight : found.standard) = onset.to;
    change.month = date.month;
    change.weekday = weekday_of(days);
    change.nth = week_of(date.day);
    change.hour = static_cast<int>((onset.local - days * kSecondsOfDay) / 3600);
    change.minute = static_cast<int>((onset.local - days * kSecondsOfDay) / 60 % 60);
    for (const Observance& rule : observances_)
        if (rule.yearly && rule.daylight == onset.daylight && onset_in(rule, date.year) == onset.local) {
            const bool last = rule.yearly->nth == -1 ||
                              (rule.yearly->from_day && rule.yearly->day + 6 >= days_in_month(date.year, date.month));
            if (last) change.nth = 5;
        }
}

ClockYear CalendarZone::year(std::int64_t year) const {
    const std::int64_t start = days_of({year, 1, 1}) * kSecondsOfDay;
    const std::int64_t end = days_of({year + 1, 1, 1}) * kSecondsOfDay;
    ClockYear found;
    for (const bool summer : {false, true}) {
        const auto onset = latest(end - 1, [&](const Observance& observance, std::int64_t at) {
            return observance.daylight == summer && observance.from != observance.to && at >= start && at < end;
        });
        if (onset) take_change(found, *onset);
    }
    if (found.to_standard.month != 0 && found.to_daylight.month != 0) return found;
    found = {};
    found.standard = found.daylight = end - 1 - to_utc(end - 1);
    return found;
}

std::string_view olson_part(std::string_view tzid) {
    if (!tzid.starts_with('/')) return tzid;
    constexpr auto regions =
        std::to_array<std::string_view>({"/Africa/", "/America/", "/Antarctica/", "/Arctic/", "/Asia/", "/Atlantic/",
                                         "/Australia/", "/Europe/", "/Indian/", "/Pacific/", "/Etc/"});
    for (const std::string_view region : regions) {
        const std::size_t at = tzid.find(region);
        if (at != std::string_view::npos) return tzid.substr(at + 1);
    }
    return tzid;
}

std::unique_ptr<CalendarZone> zone_of_component(const CalendarComponent& component) {
    std::vector<Observance> observances;
    for (const CalendarComponent& child : component.components)
        if (child.name == "STANDARD" || child.name == "DAYLIGHT") take_observance(child, observances);
    if (observances.empty()) return nullptr;
    return std::make_unique<CalendarZone>(std::string(olson_part(component.value("TZID"))), std::move(observances));
}

std::unique_ptr<CalendarZone> zone_of_olson(std::string_view olson, std::string name) {
    std::vector<Observance> observances = read_system_zone(olson);
    if (observances.empty()) return nullptr;
    return std::make_unique<CalendarZone>(std::move(name), std::move(observances));
}

ZoneFinder::ZoneFinder(const CalendarComponent& calendar) {
    for (const CalendarComponent& component : calendar.components)
        if (component.name == "VTIMEZONE") own_.try_emplace(std::string(component.value("TZID")), &component);
    const std::string_view named_floating = calendar.value("X-WR-TIMEZONE");
    if (!named_floating.empty()) floating_ = &named(named_floating);
}

const CalendarZone& ZoneFinder::named(std::string_view tzid) {
    if (tzid.empty()) return *floating_;
    const auto [place, is_new] = known_.try_emplace(std::string(tzid));
    std::unique_ptr<CalendarZone>& zone = place->second;
    if (!is_new) return zone ? *zone : *floating_;
    const auto own = own_.find(place->first);
    if (own != own_.end()) zone = zone_of_component(*own->second);
    const std::string_view olson = olson_part(tzid);
    if (!zone && (olson == "UTC" || olson == "Etc/UTC" || olson == "GMT" || olson == "Z"))
        zone = std::make_unique<CalendarZone>(CalendarZone::utc());
    if (!zone) zone = zone_of_olson(olson, std::string(olson));
    if (!zone && !olson_of_windows(tzid).empty()) zone = zone_of_olson(olson_of_windows(tzid), std::string(tzid));
    if (!zone) er_LogMsg(7, kSharedGroup, kSharedWarning, "Calendar with a time zone that is not known: ", tzid);
    return zone ? *zone : *floating_;
}
