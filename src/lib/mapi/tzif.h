// The system's time zones: TZif files (RFC 8536) below /usr/share/zoneinfo.
#pragma once

#include <string_view>
#include <vector>

#include "mapi/calendar_zone.h"

// What the file of an Olson name says; nothing when there is none, or it cannot be read. The name comes from foreign
// text: only letters, digits and "_+-/" make a path.
std::vector<Observance> read_system_zone(std::string_view olson);

// The content of such a file, version 2 or later; nothing when it is none.
std::vector<Observance> parse_tzif(std::string_view bytes);
