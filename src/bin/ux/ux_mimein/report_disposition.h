// Message disposition notifications (RFC 8098) that answer messages of this mail system: a person has read a message,
// or it has been deleted unread.
//
//   disposition = action-mode "/" sending-mode ";" type [ "/" modifier *( "," modifier ) ]
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "ux_mimein/report_lines.h"

// What the notification is about.
struct ux_AcknowledgedMessage {
    bool converted = false;   // it is one of ours, and its acknowledgement was filed
    std::string MsgId;        // its native identifier
    bool pManualAck = false;  // a person agreed to the notification
};

// Reads the report's parts: the notification is the second, and only that. Raises what reading raises.
ux_AcknowledgedMessage ux_InParseMDN(const ux_ReportText& text);

// Parses the notification, to the line that ends its part, and files its recipient; false: nothing was filed.
bool ux_InParseMDNInfo(ux::ReportReader& reader, bool& pManualAck, std::string& pArpaMsgId);

// The levels of a disposition. "displayed" is 7, "deleted" 6, and then a modifier may be a sub-level; any other type is
// not converted: false. Words are compared in any case of their letters.
struct ux_DispositionLevels {
    std::int16_t pAckLevel = 0;
    std::int16_t pSubAckLevel = 0;
    bool pManualAck = false;  // set, never cleared
};
bool ux_InParseDisposition(std::string_view pDisposition, ux_DispositionLevels& levels);
