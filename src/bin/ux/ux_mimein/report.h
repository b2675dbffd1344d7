// Reports (RFC 6522): a delivery status or disposition notification about a message of this mail system is not
// delivered as mail but as native reports. It is copied while it is parsed, so that one that turns out to be anything
// else is read again and delivered as the mail it also is.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "msg/msg.h"
#include "ux_mimein/mail_input.h"
#include "ux_mimein/report_lines.h"
#include "ux_mimein/report_message.h"

// A multipart/report at its first line.
struct ux_OfferedReport {
    std::string_view pRfc2047subject;
    std::string_view pszPartMarker;      // its boundary line, without a line end
    std::string_view pszLastPartMarker;  // its closing line
    std::string_view pszReportType;      // empty when it names none
    bool& pbEndOfMsg;
    std::int32_t CreateGMTTime = 0;
    std::int16_t CreateTimeZone = 0;
    // Converts the message that came back, from MIME text; without it such a message is left out.
    ux_ReturnedMessage ReturnedMessage = {};
};

// What became of it.
struct ux_ConvertedReport {
    bool converted = false;
    Msg_File pAckMsgHandle, pNDNMsgHandle;  // when converted: at least one, ready to be queued
    // When not: what MIME text is now read from, while this lives. None: the report has not been read.
    std::unique_ptr<ux_ReportCopy> Reportfp;
};

// Converts a report, or gives it back to be read from its first line, with pbEndOfMsg cleared. A converted one has been
// read to the end line of the message. Raises 102/1427 and 102/1412 when the copy cannot be kept, 102/1401 when input
// ends, and what the stores and converting names raise; then nothing is left.
ux_ConvertedReport ux_InConvertReport(const ux_OfferedReport& report);
