// Text parts of MIME messages: is a declared character set true, is the text plain ASCII whatever it declares, and
// conversion as the steering files say.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

class im_Item;  // im/im.h

// Checks the set that a text part declares by reading it as that set. Valid: the part may keep its label, or has got a
// valid one: text that is all ASCII becomes ASCII (the item is rewritten when its bytes change) with the label
// IA5. Raises what reading and writing items raises.
struct ux_TextValidity {
    bool valid = false;
    bool pCsetChanged = false;
};
ux_TextValidity ux_validateTextFileCharset(im_Item& item, std::string& qnCharSet);

// What a part is when it goes into a converter of the steering files; subject, its set and the MIME type are handed to
// the converter in its environment as SUBJECT, CHARSET and MIMETYPE.
struct StandardConverterPart {
    std::int32_t ItemType = 0;
    std::string_view pFromCharSet;
    std::string_view pSubject = {};
    std::string_view pSubjCharSet = {};
    std::string_view pMimeType = {};
};
struct StandardConverterResult {
    bool converted = false;
    bool pRetain = false;  // not converted: the input is to be kept
    std::int32_t pToItemType = 0;
    std::string pToCharSet;
};
// Converts `in` into `out` (an empty item) as the steering file in force says. A converter that cannot be run is logged
// at level 3, one that failed at level 5 (24071). Raises what reading and writing items raises.
StandardConverterResult standardConverter(im_Item& in, im_Item& out, const StandardConverterPart& part);
