// Native reports: the acknowledgement and the non-delivery report that a parsed report is turned into.
//
//   1100 (class 1, type 110 or 100), 13000 when there is a date, 13200 the message reported on, of a non-delivery
//   report 11100 its subject and the message that came back, 40000 of each envelope recipient, then of each entry
//
//   42100 acknowledgement: i16@16 flags (SubAckLevel x 16 + AckLevel, and 128: sent by hand), string@24 name and, with
//         an original recipient, four empty strings and it
//   42200 non-delivery: i16@22 reason, string@24 name and, with an original recipient, two i16 zeros and it
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "msg/msg.h"
#include "tf/file.h"

// What both have in common.
struct ux_ReportFields {
    std::string_view MsgId;  // native identifier of the message reported on
    std::int32_t CreateGMTTime = 0;
    std::int16_t CreateTimeZone = 0;  // no date is written when both are 0
};

// Converts the message that came back into the report: its records into the first, its files into the second.
using ux_ReturnedMessage = std::function<void(tf_File&, Msg_File&)>;

// Make a report of the list of acknowledged or of failed recipients, ready to be queued; an entry whose address has no
// native name gets no record. Until it is queued, it deletes what it consists of. ReturnedMessage: empty when none came
// back. Raise what the stores and converting names raise, and then leave nothing.
Msg_File ux_InGenerateAck(const ux_ReportFields& fields, bool ManualAck);
Msg_File ux_InGenerateNDN(const ux_ReportFields& fields, std::string_view pRfc2047subject,
                          const ux_ReturnedMessage& ReturnedMessage);
