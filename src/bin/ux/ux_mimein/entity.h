// The MIME entity dispatcher: every entity of a message, the body as a whole as well as each part of a multipart, is
// split by its content type here and handed to who converts it. Depth is a stack of frames, not of calls.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "ux_mimein/mime_part.h"

// A content type taken apart; all trimmed.
struct ux_ContentTypeParts {
    std::string type, subtype;
    std::optional<std::string> parameters;  // after the first ";" behind the subtype; none: there is no ";"
};
// Without a "/" it is text/plain without parameters. The subtype ends at its first blank, CR or tab.
ux_ContentTypeParts ux_split_content_type(std::string_view content_type);

// Converts one entity and everything in it, up to the end of the enclosing multipart's part or of the message.
// Entities that hold others and stand deeper than UX_MAX_DEPTH (10,000) are kept whole as one attached item and logged.
// Raises what the parts raise: 102/1401 input that ends, 102/1411, 102/1412 copies that cannot be written, 102/1428 a
// message that is refused for good.
void ux_InParseMimeContent(ux_MimeConversion& conversion, ux_MimePart& part);
