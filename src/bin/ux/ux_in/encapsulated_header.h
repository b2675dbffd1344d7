// Headers of messages inside messages: what the header of a message inside a MIME message and that of one inside an
// RFC 1154 message share. Each opens a package in the main transfer file:
//
//   30100          start of package: the subject
//   34500 (1100)   header record, wrapped like all that follow
//   34500 (...)    the fields, in header order; then what was missing, and the originator
//   34500 (30700)  the saved header as object "inetMessageHeader", when object files are wanted
//   30500 (1166)   content file: the message's own distribution list, attached to the native message
//
// Whoever converts the body closes the package. The kinds differ by what they are told (EncapsulatedHeaderKind).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "im/im.h"
#include "msg/msg.h"
#include "tf/file.h"
#include "ux_in/lines.h"

namespace ux {

struct EncapsulatedHeaderKind {
    ux_MailText (*read)();    // where its lines come from
    bool originators;         // Sender and From make creator and P2 originator records
    bool flags_written;       // priority, importance, hops ... reach the package's header record
    bool content_fields;      // Content-Type and Content-Transfer-Encoding are taken
    bool first_line_subject;  // only the first line of a folded subject reaches the subject record, and the search
                              // for the package's subject ends at MIME-Version
};

// Where a header goes.
struct EncapsulatedHeaderTarget {
    tf_File& TfHandle;
    Msg_File& MsgHandle;
    bool GenObjFiles = true;
    const im_Item* pContentHdrRef = nullptr;  // the part's own content header, stored as an object too
    // The boundary lines of the multipart that the message is a part of; empty: there is none.
    std::string_view pszPartMarker = {}, pszLastPartMarker = {};
    std::size_t encoding_limit = std::size_t{1} << 20;  // of ppEncoding; a value that does not fit is left out
};

// What was found.
struct EncapsulatedHeader {
    std::string pRfc2047subjectD;
    std::string ppEncoding;  // of all Encoding fields, one behind the other
    std::string pszSubPartType, pszSubPartEncoding;
    std::string pFullMIMEType;         // Content-Type, when it is a multipart
    bool pEndOfMsg = false;            // the end line came inside the header,
    bool bNextPart = false;            // or the boundary line of the next part,
    bool pbLastPart = false;           // or the closing line: the message has no body
    std::int32_t nLinesRead = 0;       // lines of the header, its blank line included
    std::int64_t pTfDistListPos = -1;  // of the content-file record of the list
};

// Reads and converts one header. Raises what reading (102/1401), saving (102/1411), the stores and the conversion of
// names raise; files that were not attached by then are gone with it.
EncapsulatedHeader convert_encapsulated_header(const EncapsulatedHeaderKind& kind,
                                               const EncapsulatedHeaderTarget& target);

}  // namespace ux
