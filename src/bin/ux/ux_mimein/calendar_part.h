// Parts that become native properties instead of content: property parts (application/ploxen-prop) and calendars
// (text/calendar). Their records go in front of the message's address lists; the part itself is not attached.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ux_mimein/leaf_part.h"
#include "ux_mimein/mime_part.h"

namespace ux {

// What a decoded part turned out to be.
struct PropertyPart {
    bool GotPloxenMapiProps = false;  // a property part, or a calendar that was converted
    bool gotIcalBody = false;         // the latter
    std::string pPnPropsXml;          // of a converted calendar
    std::string pTextDescription;     // UTF-8
    int attachCount = 0;
};

// Looks at a decoded part. A calendar is converted here, and what it means for the text alternative before it is done:
// the text is hidden when the calendar gives no properties, replaced by the calendar's own description when it is poor,
// and kept otherwise. A part inside an encapsulated message, whose records have no place for properties, is neither and
// hides nothing. Raises what the stores raise; a calendar that cannot be converted is none.
PropertyPart find_properties(ux_MimeConversion& conversion, const ux_MimePart& entity, const ux_LeafPart& leaf);

// Writes the properties of a part for which GotPloxenMapiProps holds, and a description of a calendar that has no text
// beside it. True: the part is to be attached all the same (UXI_RETAIN_PLOXEN_PROPS); false: its item is gone.
bool dispose_of_properties(ux_MimeConversion& conversion, const ux_MimePart& entity, ux_LeafPart& leaf,
                           const PropertyPart& properties);

}  // namespace ux

// The content of an item; nothing (logged) when it is larger than any calendar or property part is (16 MiB) or cannot
// be read.
std::optional<std::string> ux_CnvFileToString(const im_Item& item);

// The text alternative that a mailer made of an invitation often lost the characters that its set does not have: when
// `first text part` holds the separator line of such texts and the description is not all ASCII, the description takes
// its place, and its records are cut and written again (at icalPartAlternativePos, up to the end of the file). An
// alternative of several files stays, and so does a text that cannot be read; a failure to write it raises.
struct ux_TextAlternative {
    ITEM_REF first_text_part;
    std::string_view description;
    int attachCount = 0;
    std::string_view rfc2047subject;
};
void uxm_ReplacePoorTxtAltOfCalendar(ux_MimeConversion& conversion, const ux_TextAlternative& alternative);

// Writes the properties of a property XML into the transfer file, in front of the record at tfDistListPos; none without
// XML or with -1. Returns the number of bytes put in there: saved positions from tfDistListPos on move by it. XML that
// cannot be converted is logged (1550) and writes nothing. Raises what writing the transfer file raises.
std::int64_t ux_ConvertPloxenProps(tf_File& TFHandle, std::string_view pFileData, bool TopLevel,
                                   std::int64_t tfDistListPos);
