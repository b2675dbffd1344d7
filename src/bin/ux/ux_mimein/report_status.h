// Delivery status notifications (RFC 3464) that answer messages of this mail system: whom the message has reached, and
// whom it has not.
//
//   message/delivery-status = per-message fields, blank line, then of each recipient: fields, blank line
//
// One block that says anything but failed, delivered or expanded makes the whole report ordinary mail: a report that
// was native in part would leave the rest untold.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "ux_mimein/report_lines.h"

// What the report is about.
struct ux_ReportedMessage {
    bool converted = false;        // it is one of ours, and every block was filed
    std::string MsgId;             // its native identifier
    std::uint64_t pROCOffset = 0;  // where in the report copy the message that came back begins; 0: none came
};

// Reads the report's parts: the notification is the first or the second, a returned message the third. Reads as far as
// it must, with a third part to the end line. Raises what reading raises.
ux_ReportedMessage ux_InParseDSN(const ux_ReportText& text);

// Parses one delivery-status part, to the line that ends it, and files its recipients. False: it is about no message of
// ours (or none that is to be told about while relaying), or a block was not filed; the rest of it has not been read.
bool ux_InParseDSNInfo(ux::ReportReader& reader, std::string& pArpaMsgId);

// What one block says of a recipient.
struct ux_DSNRecipient {
    std::string OrigRecip = {};
    std::string FinalRecip = {};  // the address of type "rfc822"
    std::string Status = {};
    std::string Action = {};
    std::int16_t Reason = 0;  // 0: not given
    bool GotInfo = false;     // one of these was there
};

// Files a block: "failed" into the non-delivery list, "delivered" and "expanded" into the acknowledgement list. False:
// any other action, or a final recipient, an action or a status is missing, or there was no room.
bool ux_InProcessDSNName(const ux_DSNRecipient& recipient);

namespace ux {
// The native reason of an enhanced status code (RFC 3463): 500 + 10 x subject + detail, whatever its class. One without
// subject and detail (x.0.0), or that is not three numbers, is 300: no reason given. Numbers are not checked for range;
// 16 bits of the result are kept.
std::int16_t reason_of_status(std::string_view status);
}  // namespace ux
