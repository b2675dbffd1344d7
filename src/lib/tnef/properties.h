// The properties of a list in a TNEF stream, one after the other. Lists are read in place: a property is a head and the
// span of its values, which are read when they are wanted.
#pragma once

#include <cstdint>
#include <string_view>

#include "mapi/property.h"
#include "tnef/source.h"

// Values that take more bytes in the stream than this are not held in memory as a property.
inline constexpr std::uint64_t kTnefLargeValue = std::uint64_t{32} << 10;

struct tnef_Property {
    mapi_Property head;       // id, type, multiple and name; no values
    std::uint32_t count = 1;  // of its values
    tnef_Span values;         // after the count, paddings included

    bool is_large() const { return values.size() > kTnefLargeValue; }
};

// The next property of a list; the cursor stands before it, and behind it afterwards. EBADMSG: it is damaged, or its
// name is longer than kTnefNameLimit.
inline constexpr std::uint32_t kTnefNameLimit = std::uint32_t{8} << 10;
tnef_Property tnef_take_property(tnef_Cursor& list);

// The first value of text, binary or object: its bytes as they stand; empty when there is none.
tnef_Span tnef_first_value(tnef_Source& source, const tnef_Property& property);

// The property with its values, text in UTF-8 (text in `set`, the code page of the stream, becomes unicode). Not for
// large ones.
mapi_Property tnef_read_values(tnef_Source& source, const tnef_Property& property, std::string_view set);
