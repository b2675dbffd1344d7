// Native reports: see report_message.h. Handles own what was made, so an escape leaves nothing behind.
#include "ux_mimein/report_message.h"

#include "er/er.h"
#include "ux_in/finishing.h"
#include "ux_in/recipients.h"
#include "ux_in/records.h"
#include "ux_mimein/report_recipients.h"

namespace {

constexpr std::string_view kFilterRoute = "";
constexpr std::int16_t kReportClass = 1;
constexpr std::int16_t kNonDelivery = 100;
constexpr std::int16_t kAcknowledgement = 110;

constexpr std::size_t kIdentifierAt = 18;
constexpr std::size_t kAckFlagsAt = 16;
constexpr std::size_t kReasonAt = 22;
constexpr std::size_t kNameAt = 24;
constexpr int kSubLevelUnit = 16;
constexpr int kSentByHand = 128;

tf_File begin_report(std::int16_t type, const ux_ReportFields& fields) {
    tf_File file = tf_CreateFile();
    tf_Record record;
    ux_InCreateHeaderRecord(kReportClass, type, false, "", record);
    tf_AppendRecord(file, record);
    if (fields.CreateGMTTime != 0 || fields.CreateTimeZone != 0) {
        ux_InCreateDateRecord(TFREC_creation_date, fields.CreateGMTTime, fields.CreateTimeZone, record);
        tf_AppendRecord(file, record);
    }
    record.init(TFREC_in_reply_to);
    record.put_string(kIdentifierAt, fields.MsgId);
    tf_AppendRecord(file, record);
    return file;
}

// The report goes to whom the envelope names; that it cannot be delivered must not make another one.
void add_envelope(tf_File& file) { ux_InAddRecipsToTF(file, {.DisallowNonDelivery = true}); }

// The native name of an address; empty when it has none.
std::string native_name(std::string address) {
    std::string name;
    ux_InConvArpaORNToORN(address, name, false);
    return name;
}

void put_acknowledgement(tf_Record& record, const AckNameInfo& entry, const std::string& name, bool ManualAck) {
    const int flags = entry.SubAckLevel * kSubLevelUnit + entry.AckLevel + (ManualAck ? kSentByHand : 0);
    record.init(TFREC_acknowledgement);
    record.put16(kAckFlagsAt, static_cast<std::int16_t>(flags));
    std::size_t at = record.put_string(kNameAt, name);
    if (entry.pOrigRecip.empty()) return;
    for (int i = 0; i < 4; ++i) at = record.put_string(at, "");
    record.put_string(at, entry.pOrigRecip);
}

void put_non_delivery(tf_Record& record, const AckNameInfo& entry, const std::string& name) {
    record.init(TFREC_non_delivery);
    record.put16(kReasonAt, entry.Reason);
    const std::size_t at = record.put_string(kNameAt, name);
    if (entry.pOrigRecip.empty()) return;
    record.put16(at, 0);
    record.put16(at + 2, 0);
    record.put_string(at + 4, entry.pOrigRecip);
}

}  // namespace

Msg_File ux_InGenerateAck(const ux_ReportFields& fields, bool ManualAck) {
    const er_Trace trace("ux_InGenerateAck");
    tf_File file = begin_report(kAcknowledgement, fields);
    add_envelope(file);
    tf_Record record;
    ux_report().gAckNameList.for_each([&](const AckNameInfo& entry) {
        const std::string name = native_name(entry.pArpaRecip);
        if (name.empty()) return;
        put_acknowledgement(record, entry, name, ManualAck);
        tf_AppendRecord(file, record);
    });
    Msg_File message = Msg_CreateFile(kFilterRoute);
    message.finish(std::move(file));
    return message;
}

Msg_File ux_InGenerateNDN(const ux_ReportFields& fields, std::string_view pRfc2047subject,
                          const ux_ReturnedMessage& ReturnedMessage) {
    const er_Trace trace("ux_InGenerateNDN");
    tf_File file = begin_report(kNonDelivery, fields);
    tf_Record record;
    tf_MakeSubjectRec(record, TFREC_subject, pRfc2047subject);
    tf_AppendRecord(file, record);
    Msg_File message = Msg_CreateFile(kFilterRoute);
    if (ReturnedMessage) ReturnedMessage(file, message);
    add_envelope(file);
    ux_report().gNDNNameList.for_each([&](const AckNameInfo& entry) {
        const std::string name = native_name(entry.pArpaRecip);
        if (name.empty()) return;
        put_non_delivery(record, entry, name);
        tf_AppendRecord(file, record);
    });
    message.finish(std::move(file));
    return message;
}
