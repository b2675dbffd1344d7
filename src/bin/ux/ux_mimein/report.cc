// Reports: see report.h.
#include "ux_mimein/report.h"

#include <algorithm>
#include <array>
#include <string>

#include "dstring/ascii.h"
#include "er/er.h"
#include "ux_mimein/report_disposition.h"
#include "ux_mimein/report_recipients.h"
#include "ux_mimein/report_status.h"

namespace {

// What parsing a report has found, of either type; who is concerned stands in the lists.
struct Parsed {
    bool converted = false;
    std::string MsgId;
    std::uint64_t ROCOffset = 0;
    bool ManualAck = false;
};

Parsed parse_status(const ux_ReportText& text) {
    ux_ReportedMessage found = ux_InParseDSN(text);
    return {.converted = found.converted, .MsgId = std::move(found.MsgId), .ROCOffset = found.pROCOffset};
}

Parsed parse_disposition(const ux_ReportText& text) {
    ux_AcknowledgedMessage found = ux_InParseMDN(text);
    return {.converted = found.converted, .MsgId = std::move(found.MsgId), .ManualAck = found.pManualAck};
}

struct ReportType {
    std::string_view name;
    Parsed (*parse)(const ux_ReportText&);
};
constexpr auto kReportTypes = std::to_array<ReportType>({
    {"delivery-status", parse_status},
    {"disposition-notification", parse_disposition},
});

const ReportType* find_type(std::string_view name) {
    const auto found = std::find_if(kReportTypes.begin(), kReportTypes.end(), [&](const ReportType& type) {
        return dstring_equal_ignoring_case(type.name, name);
    });
    return found == kReportTypes.end() ? nullptr : &*found;
}

// Whoever the report named is forgotten however it ends.
struct ListsInUse {
    ListsInUse() { ux_reset_report(); }
    ~ListsInUse() { ux_reset_report(); }
    ListsInUse(const ListsInUse&) = delete;
    ListsInUse& operator=(const ListsInUse&) = delete;
};

// The returned message is read again from the copy; when it has been read, there is nothing left to read.
ux_ReturnedMessage returned_message(const ux_OfferedReport& report, const Parsed& parsed, ux_ReportCopy& copy) {
    if (parsed.ROCOffset == 0 || !report.ReturnedMessage) return {};
    return [&](tf_File& file, Msg_File& message) {
        copy.read_again(parsed.ROCOffset);
        report.ReturnedMessage(file, message);
    };
}

void generate(const ux_OfferedReport& report, const Parsed& parsed, ux_ReportCopy& copy, ux_ConvertedReport& made) {
    const ux_ReportFields fields{
        .MsgId = parsed.MsgId, .CreateGMTTime = report.CreateGMTTime, .CreateTimeZone = report.CreateTimeZone};
    if (!ux_report().gAckNameList.empty()) made.pAckMsgHandle = ux_InGenerateAck(fields, parsed.ManualAck);
    if (!ux_report().gNDNNameList.empty())
        made.pNDNMsgHandle = ux_InGenerateNDN(fields, report.pRfc2047subject, returned_message(report, parsed, copy));
}

}  // namespace

ux_ConvertedReport ux_InConvertReport(const ux_OfferedReport& report) {
    const er_Trace trace("ux_InConvertReport");
    ux_ConvertedReport made;
    const ReportType* const type = find_type(report.pszReportType);
    if (type == nullptr) return made;

    const ListsInUse lists;
    auto copy = std::make_unique<ux_ReportCopy>();
    bool last_part = false;
    const Parsed parsed = type->parse({.pszPartMarker = report.pszPartMarker,
                                       .pszLastPartMarker = report.pszLastPartMarker,
                                       .pbEndOfMsg = report.pbEndOfMsg,
                                       .pbLastPart = last_part});
    // A notification that names nobody tells nothing.
    made.converted = parsed.converted && !(ux_report().gAckNameList.empty() && ux_report().gNDNNameList.empty());
    if (made.converted) copy->stop();
    ux::drop_mail_text(report.pbEndOfMsg);
    if (made.converted) {
        generate(report, parsed, *copy, made);
    } else {
        copy->read_again();
        report.pbEndOfMsg = false;
        made.Reportfp = std::move(copy);
    }
    return made;
}
