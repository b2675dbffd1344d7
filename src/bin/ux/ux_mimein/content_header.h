// The header block of one body part (RFC 2045, section 3): read from MIME text, saved, its known fields taken out.
#pragma once

#include <string>

#include "im/im.h"

// What a content header says. Values are at most 1,023 characters.
struct ux_ContentHeader {
    std::string pszSubPartType;         // Content-Type
    std::string pszSubPartEncoding;     // Content-Transfer-Encoding
    std::string pszContentDisposition;  // Content-Disposition
    std::string szContentID;            // the text between "<" and ">" of Content-ID
    std::string szContentLocation;      // Content-Location
};

// Reads a header block to its blank line, which is not saved, or to the end line of the message (pbEndOfMsg). Fields
// that are not there leave their values as they were. Every line goes into HeaderItem with CR LF. Raises 102/1411 (1412
// for a continuation line) when the item cannot be written, 102/1401 when input ends.
void ux_InParseContentHeader(im_Item& HeaderItem, bool& pbEndOfMsg, ux_ContentHeader& header);
