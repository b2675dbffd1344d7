// From a calendar's entry to the properties and the text of a message: what calendar.cc puts together.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "mapi/calendar_entry.h"
#include "mapi/property.h"

// What the calendar wants of its reader.
enum class CalendarMethod { publish, request, reply, cancel, counter, unknown };

struct CalendarMessage {
    CalendarMethod method = CalendarMethod::publish;
    const CalendarEntry& entry;
    const std::optional<AppointmentRecurrence>& recurrence;
    std::string subject;
};

// The message class; empty when there is none for it.
std::string_view calendar_class(const CalendarMessage& message);
std::vector<mapi_Property> calendar_properties(const CalendarMessage& message);

// "When: ...", "Where: ...", a line of stars, the description.
std::string calendar_description(const CalendarEntry& entry);

// PidLidGlobalObjectId ([MS-OXOCAL], section 2.2.1.27) of a calendar's UID; `day`: of the occurrence, days since
// 1970-01-01, none for the whole.
std::string global_object_id(std::string_view uid, const std::optional<std::int64_t>& day);

// PidLidTimeZoneStruct and PidLidAppointmentTimeZoneDefinition... of a zone in a year.
std::string time_zone_struct(const ClockYear& clock);
std::string time_zone_definition(const ClockYear& clock, std::string_view key_name, std::int64_t year, bool recurring);
// The clock of a definition's last rule; none when the bytes are no definition.
std::optional<ClockYear> read_time_zone_definition(std::string_view definition);
