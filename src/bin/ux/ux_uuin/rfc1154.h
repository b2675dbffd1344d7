// RFC 1154 bodies: parts one behind the other, each described by an entry of the "Encoding" field (see encoding.h).
//
//   body = part *( [ separator ] part )
//   separator = one line that is blank or begins with a blank, dropped
//
// A part that is a message opens a package; it has a header, and a body that its own "Encoding" describes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "msg/msg.h"
#include "tf/file.h"

struct ux_Rfc1154Content {
    tf_File& TfHandle;                 // gets the records of the parts and packages
    std::string_view pRfc2047subject;  // of the parts; those of encapsulated messages have none
    std::string_view pFromCharSet;     // set of text
    std::string_view pEncoding;        // the list
    Msg_File& MsgHandle;               // gets the parts' items
    bool& pEndOfMsg;                   // in and out: the end line has been read
    bool GenObjFiles = true;           // headers of encapsulated messages are stored as objects
};

// Begins a message of NumLines lines (below 0: to the end of the message): reads its header, which opens its package,
// and returns the list that describes its body: its own, at most `list_limit` bytes of it, else one text part of the
// lines that are left; empty when the message has ended. A count of 0: nothing is read and nothing returned. The caller
// converts the body and closes the package. Raises what ux_UUInProcessSubMsgHdr raises.
std::optional<std::string> ux_InParseRfc1154SubMsg(const ux_Rfc1154Content& content, std::int32_t NumLines,
                                                   std::size_t list_limit);

// Converts the parts that the list describes, as far as it is well formed; what the text holds beyond them is left
// unread. A part that cannot be decoded ends the walk through its message: a part with the text of 1543 takes the place
// of the rest. Encapsulated messages deeper than UX_MAX_DEPTH are kept whole, as one item each. Raises 102/1401 when
// the input ends, and what header conversion and the stores raise.
void ux_InParseRfc1154Content(const ux_Rfc1154Content& content);
