// Body parts that carry the message store's own properties rather than content.
#pragma once

#include <string_view>

#include "im/im.h"

// Could a part of this content type become native properties: "text/calendar" or "application/ploxen-prop", any case?
bool ux_IsPotentialMapiPropsSrcBP(std::string_view pPartType);

// Repairs a TNEF part whose base64 was not declared: an item that begins with "eJ8+" (the base64 form of a TNEF
// stream's first bytes) is decoded; the item is then another one. Reading ends at a line "--Dummy1" or "--Dummy1--", or
// at the item's end. Any other item stays as it is, and so does this one when anything fails, which is accepted.
void ux_TryDecodeTnefContent(im_Item& item);
