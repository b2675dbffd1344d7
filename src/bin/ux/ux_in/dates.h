// Dates of header fields (RFC 822 section 5, RFC 5322 section 3.3 and what mailers really write), turned into native
// time: seconds since 1970-01-01 00:00:00 GMT, unsigned in 32 bits, and the zone of the text in minutes east of GMT.
//
// A tolerant token scanner, not a grammar: it takes "Tue, 3 Feb 2004 10:20:30 +0100", "Mon Jan 5 10:00:00 2004" and
// much between them, and refuses only dates whose parts are missing or out of range.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

struct ux_Date {
    std::int32_t GMTTime = 0;   // the bits of the unsigned 32-bit number of seconds, as records hold it
    std::int16_t TimeZone = 0;  // minutes east of GMT
    bool operator==(const ux_Date&) const = default;
};

// The month of a three-letter name in any case, 0 to 11.
std::optional<int> ux_InParseMonth(std::string_view pInBuf);

// The minutes east of GMT of a zone's name in any case. Military letters are as RFC 822 printed them (A is one hour
// west); there is no "J".
std::optional<std::int16_t> ux_InParseTimeZone(std::string_view pInBuf);

// The date in a field's text, or nothing when it is no valid date. DefTimeZone (minutes east, that of the current local
// date) stands in for a zone that the text does not give. Raises nothing, whatever the text is.
std::optional<ux_Date> ux_InParseDate(std::string_view pInBuf, std::int16_t DefTimeZone);
