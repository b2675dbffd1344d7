// Encapsulated messages (message/rfc822; RFC 2046, section 5.2.1): a package in the native message, with a header and a
// distribution list of its own. One is a frame on the entity dispatcher's stack: it hands out its body, and closes its
// package when that is done.
#pragma once

#include <memory>

#include "ux_mimein/mime_frame.h"
#include "ux_mimein/mime_part.h"

// An encapsulated message; `part` and `conversion` outlive the frame. While it is open, msgNestLevel is one higher and
// havePnPropsForMsg is its own. Its body is that of a message and stands at no top level; no report is made of it and
// no property part in it is written.
std::unique_ptr<ux_MimeFrame> ux_InParseMimeSubMsg(ux_MimeConversion& conversion, ux_MimePart& part);
