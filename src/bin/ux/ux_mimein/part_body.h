// The body of a leaf part: from the dialogue, or the stream in force, through its transfer decoding into an item.
#pragma once

#include <string_view>

#include "im/im.h"
#include "ux_mimein/mime_part.h"

// How a body ended.
enum class ux_BodyEnd {
    message,    // at the end line of the message
    next_part,  // at the boundary line
    last_part,  // at the closing line of the multipart
};

// Decodes a body (mim/decode.h) and appends it to `item`. It ends at one of the markers (none: it has none) alone on
// its line but for blanks and tabs after it, the last one in any case of its letters, or at the end line of the
// message. `nonTextType`: its bytes are kept as they are. What is decoded is never taken for a boundary or an end line.
// Raises 102/1401 when input ends, and what writing the item raises.
ux_BodyEnd mim_DecodeMimeFile(im_Item& item, std::string_view pszEncoding, const ux_PartMarkers* markers,
                              bool nonTextType);
