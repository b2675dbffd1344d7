// Reading MIME text: lines from the stream in force, folded header lines, and the copy that is kept while a report
// may still have to be read again.
#pragma once

#include <string>
#include <string_view>

#include "im/im.h"
#include "ux_in/lines.h"

// Process-wide values of MIME input.
struct ux_MimeInputState {
    ux_LineReader* mimfp = nullptr;  // where MIME text is read from; none: the dialogue
    im_Item* Reportfp = nullptr;     // gets a copy of what is read
    bool gCopyForReport = false;     // ... while this holds
    // The alternative steering files have been looked for, or an encoded subject came first: then they never are, and
    // the steering that was loaded at start-up stays alone for the life of the process.
    bool GotMimeSteering = false;
};
ux_MimeInputState& ux_mime_input();
void ux_reset_mime_input();  // for tests

ux_LineReader& ux_MimeInput();  // the stream in force

// One piece of MIME text (see ux_MailText), NUL bytes as blanks; copied to the report copy with its line end as it
// arrived. Raises 102/1401 at the end of input, 102/1412 when the copy cannot be written.
ux_MailText GetMailText();
// The same with NUL bytes as they are, for content that is kept byte for byte.
ux_MailText GetRawMailText();

// Appends the continuation lines of a header field (they begin with a blank or a tab) to pszString, each trimmed, and
// copies them to pHeaderStream when one is given. An encoded word is joined by one blank, anything else by nothing:
// what mailers fold between are tokens that need none. The value stays below 1,024 characters; what does not fit is
// left out. Raises 102/1412 (report copy) and 102/1411 (header item) when a copy cannot be written.
void GetContinuation(std::string& pszString, im_Item* pHeaderStream);

// Writes to an item; a failure of the store leaves as 102/`reason`.
void ux_write_or_escape(im_Item& item, std::string_view data, int reason);
