// The conversion of one message: see driver.h. Handles own what they made, so that an escape anywhere leaves nothing
// behind: an item that was not attached, a transfer file that was not queued and all that a message holds go with
// their handles.
#include "ux_in/driver.h"

#include <vector>

#include "aud/aud.h"
#include "cust/cust.h"
#include "er/er.h"
#include "msg/msg.h"
#include "q/q.h"
#include "tf/file.h"
#include "ux_in/body_part.h"
#include "ux_in/charsets.h"
#include "ux_in/finishing.h"
#include "ux_in/header.h"
#include "ux_in/identifiers.h"
#include "ux_in/lines.h"
#include "ux_in/plain_body.h"
#include "ux_in/recipients.h"
#include "ux_in/records.h"
#include "ux_mimein/entity.h"
#include "ux_uuin/rfc1154.h"

namespace {

constexpr std::string_view kQueueName = "ROUTER";
constexpr std::string_view kFilterRoute = "";
constexpr std::string_view kPostmaster = "Postmaster";
constexpr std::int32_t kListFileType = 1166;
constexpr std::uint32_t kListFileKind = 2;
constexpr std::int32_t kHeaderFileType = 1168;
constexpr std::int16_t kDispositionAck = 7;  // a disposition notification is the strongest acknowledgement
constexpr int kReportPriority = 0;
constexpr int kAuditMessage = 10;
constexpr int kAuditTime = 1;
constexpr int kAuditOriginator = 30;
constexpr int kNoOriginator = 1547;
constexpr int kTextNotEnded = 1401;

class Conversion {
public:
    explicit Conversion(ux_Envelope& envelope);
    void run();

private:
    void start_files();
    void parse_header();
    std::string chosen_originator() const;
    void write_creator();
    void write_envelope_creator(const std::string& CreatorORN);
    void write_chosen_creator(const std::string& chosen, std::string CreatorORN);
    void attach_list();
    void attach_header(std::string_view name);
    void convert_body();
    void convert_mime();
    void convert_rfc1154();
    void finish();
    void queue_reports();

    ux_Envelope& envelope_;
    bool FromMailerDaemon_ = false;
    bool UseArpaSender_;
    bool DoRFC1327SenderMap_;
    tf_File TFHandle_, DLHandle_;
    std::int64_t HeaderPos_ = -1;
    std::int64_t ListPos_ = -1;  // of the content-file record of the address lists
    ux_UnixMsgHeader header_;
    Msg_File MsgHandle_;
    Msg_File AckMsgHandle_, NDNMsgHandle_;  // reports that the message was turned into
    ux_RecipientWishes wishes_;
};

Conversion::Conversion(ux_Envelope& envelope)
    : envelope_(envelope),
      UseArpaSender_(cust_PresentAndTrue("UX_USE_ARPA_SENDER")),
      DoRFC1327SenderMap_(cust_PresentAndTrue("UXI_DO_1327_SENDER_MAP")) {
    bool IsMailerDaemon = false;
    FromMailerDaemon_ = ux_IsNullName(envelope.pArpaSender, &IsMailerDaemon) || IsMailerDaemon;
    wishes_.DisallowNonDelivery = FromMailerDaemon_;
}

void Conversion::run() {
    ux_begin_mime_message();
    start_files();
    parse_header();
    write_creator();
    if (ux_driver().GenObjFiles) mp_PutObjectFile("inetMessageHeader", header_.pHeaderRef, TFHandle_, 1, false);
    attach_list();
    convert_body();
    finish();
}

void Conversion::start_files() {
    TFHandle_ = tf_CreateFile();
    int& AuditHandle = ux_audit().AuditHandle;
    AuditHandle = aud_StartTransaction(kAuditMessage);
    aud_LogCurrentTime(AuditHandle, kAuditTime);
    if (!UseArpaSender_) {
        if (ux_IsNullName(envelope_.pArpaSender, nullptr))
            UseArpaSender_ = true;
        else
            aud_LogStr(AuditHandle, kAuditOriginator, envelope_.pArpaSender);
    }
    tf_Record record;
    ux_InCreateHeaderRecord(0, 0, envelope_.ROCWanted, "", record);
    tf_AppendRecord(TFHandle_, record);
    HeaderPos_ = tf_MarkPrevRecord(TFHandle_);

    DLHandle_ = ux::create_list_file(envelope_.ROCWanted);
}

void Conversion::parse_header() {
    header_ = ux_InParseUnixMsgHeader({.pTfHandle = TFHandle_,
                                       .DLHandle = DLHandle_,
                                       .HeaderPos = HeaderPos_,
                                       .FromMailerDaemon = FromMailerDaemon_,
                                       .pArpaSender = envelope_.pArpaSender,
                                       .pEnvid = envelope_.pEnvid});
}

// Sender before From, or From before Sender; empty when neither names anybody.
std::string Conversion::chosen_originator() const {
    const std::string& first = DoRFC1327SenderMap_ ? header_.pSender822 : header_.pFirstFrom;
    const std::string& second = DoRFC1327SenderMap_ ? header_.pFirstFrom : header_.pSender822;
    for (const std::string* address : {&first, &second})
        if (!ux_IsNullName(*address, nullptr)) return *address;
    return {};
}

std::string native_name(std::string address) {
    std::string name;
    ux_InConvArpaORNToORN(address, name, false);
    return name;
}

void Conversion::write_creator() {
    const std::string chosen = chosen_originator();
    std::string CreatorORN = chosen.empty() ? std::string() : native_name(chosen);
    if (UseArpaSender_)
        write_chosen_creator(chosen, std::move(CreatorORN));
    else
        write_envelope_creator(CreatorORN);
}

void Conversion::write_envelope_creator(const std::string& CreatorORN) {
    tf_Record record;
    ux_InCreateCreatorRecord(native_name(envelope_.pArpaSender), record);
    tf_AppendRecord(TFHandle_, record);
    if (CreatorORN.empty()) return;
    ux_InCreateP2OriginatorRecord(CreatorORN, record);
    tf_AppendRecord(TFHandle_, record);
}

// A message that nobody can be named for goes in the Postmaster's name; it is not refused.
void Conversion::write_chosen_creator(const std::string& chosen, std::string CreatorORN) {
    if (CreatorORN.empty()) CreatorORN = native_name(envelope_.pArpaSender);
    if (CreatorORN.empty()) {
        er_LogMsg(5, kGatewayGroup, kNoOriginator, header_.pRfc2047subjectD, ux_identifiers().pLogArpaMsgId);
        envelope_.pArpaSender = kPostmaster;
        CreatorORN = native_name(envelope_.pArpaSender);
    } else if (!chosen.empty()) {
        aud_LogStr(ux_audit().AuditHandle, kAuditOriginator, chosen);
    }
    tf_Record record;
    ux_InCreateCreatorRecord(CreatorORN, record);
    tf_AppendRecord(TFHandle_, record);
}

// The address lists of the header are the message's first attached file.
void Conversion::attach_list() {
    MsgHandle_ = Msg_CreateFile(kFilterRoute);
    TFREC_content_file file;
    tf_initTFREC_content_file(file, kListFileType);
    file.contentFlags = kListFileKind;
    file.rfc2047subject = header_.pRfc2047subjectD;
    tf_Record record;
    tf_ContentFileRecFromStruc(record, file);
    tf_AppendRecord(TFHandle_, record);
    ListPos_ = tf_MarkPrevRecord(TFHandle_);
    Msg_AttachFile(MsgHandle_, DLHandle_.release_item());
}

void Conversion::convert_body() {
    if (header_.pEndOfMsg) return ux_InTidyHeader(header_.pHeaderRef);
    if (header_.pMimeMsg) return convert_mime();
    if (header_.pRfc1154) return convert_rfc1154();
    ux_InTidyHeader(header_.pHeaderRef);
    ux_InParseUnixMsgContent({.TfHandle = TFHandle_,
                              .pParentRfc2047subject = header_.pRfc2047subjectD,
                              .UudecodeMsg = header_.pUudecodeMsg,
                              .pEncoding = header_.ppEncoding,
                              .MsgHandle = MsgHandle_,
                              .EndOfMsg = header_.pEndOfMsg});
}

void Conversion::convert_mime() {
    ux_MimeConversion conversion{.TfHandle = TFHandle_,
                                 .MsgHandle = MsgHandle_,
                                 .pbEndOfMsg = header_.pEndOfMsg,
                                 .GenObjFiles = ux_driver().GenObjFiles,
                                 .pAckReq = wishes_.AckReq,
                                 .pReplyReq = wishes_.ReplyReq,
                                 .CreateGMTTime = header_.pCreateGMTTime,
                                 .CreateTimeZone = header_.pCreateTimeZone,
                                 .pAckMsgHandle = &AckMsgHandle_,
                                 .pNDNMsgHandle = &NDNMsgHandle_};
    ux_MimePart body;
    body.pRfc2047subject = header_.pRfc2047subjectD;
    body.header.pszSubPartType = header_.pMIMEContentType;
    body.header.pszSubPartEncoding = header_.ppEncoding;
    body.header.pszContentDisposition = header_.pMIMEContentDisposition;
    body.bInImmediateMsg = true;
    body.pHeaderRef = &header_.pHeaderRef;
    body.ContentTypePos = header_.pContentTypePos;
    body.AtTopLevel = true;
    body.tfDistListPos = ListPos_;
    ux_InParseMimeContent(conversion, body);
}

// The header itself as an attached file.
void Conversion::attach_header(std::string_view name) {
    ux_ContentItem file;
    file.item = std::move(header_.pHeaderRef);
    file.FileType = kHeaderFileType;
    ux::attach_part(TFHandle_, MsgHandle_, file, name);
}

// The list may describe less than there is: what is left is read away.
void Conversion::convert_rfc1154() {
    const bool keep = cust_PresentAndTrue("UXI_KEEP_UUENC_ARPA_HEADER");
    const bool behind = cust_PresentAndTrue("UXI_USE_REVERSE_ARPA_HEADER");
    if (!keep) ux_InTidyHeader(header_.pHeaderRef);
    if (keep && !behind) attach_header(header_.pRfc2047subjectD);
    ux_InParseRfc1154Content({.TfHandle = TFHandle_,
                              .pRfc2047subject = header_.pRfc2047subjectD,
                              .pFromCharSet = ux_charsets().FromCharSet,
                              .pEncoding = header_.ppEncoding,
                              .MsgHandle = MsgHandle_,
                              .pEndOfMsg = header_.pEndOfMsg,
                              .GenObjFiles = ux_driver().GenObjFiles});
    while (!header_.pEndOfMsg) header_.pEndOfMsg = ux_InReadMailText().is_end;
    if (keep && behind) attach_header("INVISIBLE_ATTACH");
}

void Conversion::finish() {
    if (!header_.pEndOfMsg) er_TracedEscape(kGatewayGroup, kTextNotEnded);
    wishes_.MDNWanted = header_.pMDNWanted;
    if (wishes_.MDNWanted && wishes_.AckReq < kDispositionAck) wishes_.AckReq = kDispositionAck;
    ux_InAddRecipsToTF(TFHandle_, wishes_);
    if (AckMsgHandle_ || NDNMsgHandle_) {
        queue_reports();
    } else {
        MsgHandle_.finish(std::move(TFHandle_));
        Q_PutMsgOnQueue(kQueueName, MsgHandle_, header_.Priority);
    }
    aud_EndTransaction(ux_audit().AuditHandle);
}

// What the report said goes in place of the message, whose files go with their handles: the acknowledgement first, both
// by one entry, so that neither is ever there without the other.
void Conversion::queue_reports() {
    std::vector<Msg_File*> reports;
    for (Msg_File* report : {&AckMsgHandle_, &NDNMsgHandle_})
        if (*report) reports.push_back(report);
    Q_PutMsgsOnQueue(kQueueName, reports, kReportPriority);
}

}  // namespace

ux_DriverState& ux_driver() {
    static ux_DriverState state;
    return state;
}

void ux_reset_driver() { ux_driver() = ux_DriverState(); }

void ux_InConvUnixMsgToMorvane(ux_Envelope& envelope) {
    const er_Trace trace("ux_InConvUnixMsgToMorvane");
    Conversion(envelope).run();
}
