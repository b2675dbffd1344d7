// Property XML: the properties of a message as an application/ploxen-prop part carries them, and as a calendar is
// turned into.
//
//   <ploxen-prop class="IPM.Schedule.Meeting.Request" flags1="0" flags2="0">
//     <subject>...</subject>
//     <description>...</description>
//     <list><prop name="PidLidLocation" type="unicode">Room 1</prop>...</list>
//     <comp>...</comp>
//     <rel flags="0"><prop ...>...</prop>...</rel>
//   </ploxen-prop>
//
// Every element and attribute but the root is optional; others are passed over. Names and types are those of property
// text (property_text.h). An element's text is the value; several values stand as they do there. Flags are decimal.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "im/im.h"

inline constexpr int kBadPropertyXml = 22;  // EINVAL, of the system group

// What a property XML describes.
struct MSGSTORE_MAPI_INFO {
    bool isException = false;         // one that replaces an occurrence: it has PidLidExceptionReplaceTime
    std::string utcRecurrenceIdTime;  // which occurrence: "2026-11-20T09:00:00Z", at most 20 characters
    std::string itemClass;
    std::string listProps, compProps, relProps;  // property text
    std::uint32_t flags1 = 0, flags2 = 0, relFlags = 0;
    std::string utf8Subject, utf8Description;
    int attachCount = 0;                       // always 0: what is attached to a message is its own affair
    std::unique_ptr<MSGSTORE_MAPI_INFO> next;  // one XML describes one message: always none
};

// Reads property XML and writes the properties of its <list> and <rel> as a TNEF stream ([MS-OXTNEF]: version, message
// class, properties) into `tnef`, an empty item. Raises EINVAL (system group), the failure's text its detail, for what
// is not well formed, has another root, nests deeper than elements do here, or has a <prop> without name or type, or
// with a value that is not of its type.
MSGSTORE_MAPI_INFO mapi_CreateMapiInfoFromXml(std::string_view xml, im_Item& tnef);
