// Message identifiers: RFC 5322 identifiers (section 3.6.4) into native ones, and transport identifiers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tf/file.h"

// The byte that separates the parts of a native identifier.
inline constexpr char kIdentifierSeparator = 29;

// Process-wide: the message identifier seen last, for log lines.
struct ux_IdentifierState {
    std::string pLogArpaMsgId;
};
ux_IdentifierState& ux_identifiers();
void ux_reset_identifiers();

// Where the identifiers of a field go.
struct ux_MsgIdTarget {
    tf_File& TfHandle;             // main transfer file
    std::int32_t MsgIdTFRec;       // record type: 13100 message, 13200 in-reply-to, 13800 references, 13900 obsoletes
    bool& pHadMsgId;               // the message has its identifier; every further one is passed over
    bool& pHadReplyId;             // the message has its in-reply-to; every further one is a reference
    std::string_view TransportID;  // goes with 13100; empty: none
    bool WrapTfRecs;               // the records are wrapped
    std::string_view Envid;        // goes with 13100 without a transport identifier; empty: none
};

// Makes a record of every identifier in angle brackets; one without its ">" runs to the end. Each is audited as it came
// (code 7) and as it was converted (code 3). Raises what writing records and converting names raise.
void ux_InParseMsgIdList(std::string_view pMsgIdList, const ux_MsgIdTarget& target);

// The native form of an identifier (without angle brackets). One that was born here and went out as "local@MHS" gives
// its local part, with byte 29 and a native name when it carried one behind "*". Any other is written in printable
// characters, at most 1,064: "(" letter ")" for @ % ! " _, "(" three digits ")" for what else is not printable.
std::string ux_InConvMsgId(std::string_view pArpaMsgId);

// Converts the name that an identifier carries; without the Internet address in it. The result is that of
// inet_uxConvArpaORNToORN; 0 with both texts empty for an address of more than 1,024 characters, which is logged
// (102/1505 and 102/1418, level 7).
int ux_getMsgIdORN(std::string& pArpaORN, std::string& pORN);

// Decodes a transport identifier: "/" stands for byte 29, "{" three digits "}" for the byte of that value modulo 256;
// byte 0 ends it. Nothing when a "{" begins anything else.
std::optional<std::string> ux_InDecodeXportID(std::string_view EncodedXportID);

// The transport identifier in the first angle brackets of a field, decoded; empty when there is none or it is
// malformed.
std::string ux_InParseTransportIDList(std::string_view pMsgIdList);

// Is the text an identifier of this mail system: "MV", 16 upper-case hexadecimal digits, and maybe byte 29 and a name?
bool im_IsQuillnetMsgId(std::string_view identifier);
