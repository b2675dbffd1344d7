// What is known of a leaf part while it is converted.
#pragma once

#include <cstdint>
#include <string>

#include "im/im.h"

struct ux_LeafPart {
    im_Item item;  // the decoded content
    std::int32_t lQNFileCode = 0;
    std::string QNCharSet;              // native name of the text's set; of a set that is not known, its label
    std::string pszMIMEContentType;     // rewritten when type or set were settled otherwise than declared
    std::string pszContentDisposition;  // the value alone, at most 20 characters
    std::string pOrigFileName;          // in RFC 2047 form as the header has it; empty: none was given
    std::string rfc2047subject;         // the file name in RFC 2047 form, else the subject of what encloses the part
    std::string ConfigDefCS;            // the set of text that declares none
    std::string CSautoDetectProfile;    // the set that detection prefers; empty: none
    bool Used8bitDefCS = false;         // QNCharSet came from ConfigDefCS, not from the message
};
