// Leaf parts: whatever is neither a multipart nor a message becomes one native body part: an item, attached to the
// message, and a content-file record (30500) that describes it.
#pragma once

#include "ux_mimein/mime_part.h"

// Converts a leaf, from the first line of its body to the boundary line or end line that ends it; sets *part.pbLastPart
// or conversion.pbEndOfMsg accordingly. Raises 102/1401 when input ends, and what the stores and the type map raise;
// its item is gone then.
void ux_InParseMimeFile(ux_MimeConversion& conversion, ux_MimePart& part);
