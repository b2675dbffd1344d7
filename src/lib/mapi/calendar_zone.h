// Time zones of calendars: from a VTIMEZONE, by an Olson name (the system's TZif files, RFC 8536), by the names that
// Windows gives its zones, UTC, and the zone of this host for times that name none.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "mapi/calendar_reader.h"
#include "mapi/calendar_time.h"

// A yearly change of the clock: the nth weekday of a month (nth 0: a day of the month).
struct YearlyChange {
    int month = 1;
    int nth = 0, weekday = 0;
    int day = 1;  // with nth 0: the day; with nth 0 and `from_day`: the first such weekday from this day on
    bool from_day = false;
};

// The wall-clock time of a yearly change, `time` seconds after midnight of its day.
std::int64_t yearly_onset(const YearlyChange& change, std::int64_t time, std::int64_t year);

// From `onset` on, the clock is `to` seconds east of UTC; before it was `from`. `onset` is what the clock shows that
// is still on `from`.
struct Observance {
    std::int64_t onset = 0;
    std::int64_t from = 0, to = 0;
    bool daylight = false;
    std::optional<YearlyChange> yearly;  // again every year at that time of day, until `until` (UTC)
    std::optional<std::int64_t> until;
};

// What the clock does in one year, in the terms of a registry of zones: two changes at most.
struct ClockChange {
    int month = 0;  // 0: there is none
    int nth = 0;    // 1 to 4, 5: the last
    int weekday = 0;
    int hour = 0, minute = 0;
};
struct ClockYear {
    std::int64_t standard = 0, daylight = 0;  // seconds east of UTC
    ClockChange to_standard, to_daylight;
};

// Seconds east of UTC at a UTC time, of a clock that does the same every year.
std::int64_t clock_offset(const ClockYear& clock, std::int64_t utc);

class CalendarZone {
public:
    static CalendarZone utc();
    static CalendarZone host();
    CalendarZone(std::string name, std::vector<Observance> observances);

    const std::string& name() const { return name_; }          // for people; empty: the host's
    const std::string& key_name() const { return key_name_; }  // a Windows name where there is one, else the name
    bool is_utc() const { return kind_ == Kind::utc; }
    bool is_host() const { return kind_ == Kind::host; }

    // Wall clock and UTC. A time that the clock leaps over is read with the offset before; of one that comes twice it
    // is the first.
    std::int64_t to_utc(std::int64_t local) const;
    std::int64_t to_local(std::int64_t utc) const;
    ClockYear year(std::int64_t year) const;

private:
    enum class Kind { utc, host, rules };
    CalendarZone(Kind kind, std::string name);
    struct Onset {
        std::int64_t local, from, to;
        bool daylight;
        const Observance* observance;
    };
    template <class Accept>
    std::optional<Onset> latest(std::int64_t around, Accept accept) const;
    std::int64_t first_offset() const;
    void take_change(ClockYear& found, const Onset& onset) const;

    Kind kind_;
    std::string name_, key_name_;
    std::vector<Observance> observances_;
};

// The zones of one calendar: its own VTIMEZONEs, then the names that everybody knows. Each name is looked up once; one
// that means nothing is logged once, and its times are floating.
class ZoneFinder {
public:
    explicit ZoneFinder(const CalendarComponent& calendar);
    const CalendarZone& named(std::string_view tzid);  // of a TZID; empty: floating
    const CalendarZone& floating() const { return *floating_; }
    const CalendarZone& utc() const { return utc_; }

private:
    std::unordered_map<std::string, const CalendarComponent*> own_;
    std::unordered_map<std::string, std::unique_ptr<CalendarZone>> known_;  // null: means nothing
    CalendarZone utc_ = CalendarZone::utc();
    CalendarZone host_ = CalendarZone::host();
    const CalendarZone* floating_ = &host_;
};

// For tests: the zone that a VTIMEZONE describes, and the one of an Olson name; none when they describe none.
std::unique_ptr<CalendarZone> zone_of_component(const CalendarComponent& component);
std::unique_ptr<CalendarZone> zone_of_olson(std::string_view olson, std::string name);

// The tables of Windows' names: the Olson name of a Windows zone, and the Windows name of an Olson zone; empty when
// there is none. Case is ignored.
std::string_view olson_of_windows(std::string_view name);
std::string_view windows_of_olson(std::string_view name);

// TZIDs as mailers write them: "/mozilla.org/20050126_1/Europe/Berlin" is "Europe/Berlin".
std::string_view olson_part(std::string_view tzid);
