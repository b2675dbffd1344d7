// What the header of a body part says about the file that the part is: its name (RFC 2183, section 2.3; RFC 2231) and
// its disposition with dates.
#pragma once

#include <string>
#include <string_view>

#include "tf/file.h"

// The file name, or "". The first there is of the disposition's "filename*" and "filename" and the content type's
// "name*" and "name"; the starred ones in RFC 2047 form.
std::string uxm_GetMimeFilename(std::string_view pszContentType, std::string_view pszContentDisposition);

// The disposition itself, at most 20 characters. Appends date records for its "creation-date" (30600) and
// "modification-date" (30605); a date without a zone has the local one. What is no date makes no record.
std::string uxm_ParseContentDisposition(std::string_view pszCDHeader, tf_File& TfHandle);
