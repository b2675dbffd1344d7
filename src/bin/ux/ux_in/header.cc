// The header of a message: see header.h. The second pass is a table of actions by token number.
#include "ux_in/header.h"

#include <array>
#include <optional>

#include "aud/aud.h"
#include "cust/cust.h"
#include "er/er.h"
#include "inet/address.h"
#include "mim/mim.h"
#include "os/os.h"
#include "ux_in/addresses.h"
#include "ux_in/charsets.h"
#include "ux_in/dates.h"
#include "ux_in/finishing.h"
#include "ux_in/header_save.h"
#include "ux_in/header_table.h"
#include "ux_in/identifiers.h"
#include "ux_in/lines.h"
#include "ux_in/part_info.h"
#include "ux_in/recipients.h"
#include "ux_in/records.h"
#include "ux_in/saved_header.h"
#include "ux_mimein/subjects.h"

namespace {

constexpr int kMailLoop = 1544;
constexpr int kAuditSubject = 10;
constexpr int kAuditReturnAddress = 56;
constexpr std::size_t kHopDigits = 12;
constexpr std::string_view kMultipart = "multipart/";

// Default mail nodes.
constexpr int kMimeNode = 1;
constexpr int kRfc1154Node = 2;
constexpr int kPlainNode = 3;

// One header on its way into records.
class HeaderConversion {
public:
    HeaderConversion(const ux_UnixMsgHeaderTarget& target, ux_UnixMsgHeader& header, os_Moment now);
    void convert_fields();
    void finish();

private:
    using Action = void (HeaderConversion::*)();
    static const std::array<Action, kTokenKept + 1> kActions;

    void take_subject();
    void take_addresses();
    void take_hops();
    void take_autoforwarded();
    void take_autoreplied();
    void take_priority();
    void take_importance();
    void take_sensitivity();
    void take_date();
    void take_identifiers();
    void take_return_address();
    void take_encoding();
    void take_part_info();
    void take_transfer_encoding();
    void take_content_type();
    void take_disposition();
    void take_precedence();
    void take_syncmark();
    void take_return_path();
    void take_transport_id();
    void take_disposition_to();
    void take_return_receipt_to();

    void take_encoding_list();
    void drop_loop();
    void add_default_date();
    void add_default_subject();
    void decide_disposition_notification();

    const ux_UnixMsgHeaderTarget& target_;
    ux_UnixMsgHeader& header_;
    ux::SavedHeader in_;
    const ArpaTokenRow* row_ = nullptr;  // of the field in hand
    os_Moment now_;  // when the message came: its date when it has none; the zone of dates that carry none
    tf_Record record_;
    ux_HeaderUpdate update_;
    std::array<bool, kTokenKept + 1> done_{};  // once-only fields that have been taken, by token
    bool lucent_autoforwarded_ = false;
    bool MsgIdFound_ = false, ReplyIdFound_ = false;
    std::string TransportID_;
    std::string DNRecip_;
    std::optional<std::string> ReturnPath_;
};

const std::array<HeaderConversion::Action, kTokenKept + 1> HeaderConversion::kActions = [] {
    std::array<Action, kTokenKept + 1> actions{};
    actions[kTokenSubject] = &HeaderConversion::take_subject;
    for (const int token : {kTokenFrom, kTokenTo, kTokenCc, kTokenBcc, kTokenReplyTo, kTokenSender})
        actions[token] = &HeaderConversion::take_addresses;
    actions[kTokenHops] = &HeaderConversion::take_hops;
    actions[kTokenAutoforwarded] = &HeaderConversion::take_autoforwarded;
    actions[kTokenPriority] = &HeaderConversion::take_priority;
    actions[kTokenImportance] = &HeaderConversion::take_importance;
    actions[kTokenSensitivity] = &HeaderConversion::take_sensitivity;
    for (const int token : {kTokenDate, kTokenDeferredDelivery, kTokenReplyBy, kTokenExpiryDate, kTokenLatestDelivery})
        actions[token] = &HeaderConversion::take_date;
    for (const int token : {kTokenMessageId, kTokenInReplyTo, kTokenReferences, kTokenObsoletes})
        actions[token] = &HeaderConversion::take_identifiers;
    actions[kTokenAutoreplied] = &HeaderConversion::take_autoreplied;
    actions[kTokenReturnAddress] = &HeaderConversion::take_return_address;
    actions[kTokenEncoding] = &HeaderConversion::take_encoding;
    actions[kTokenPartInfo] = &HeaderConversion::take_part_info;
    actions[kTokenContentType] = &HeaderConversion::take_content_type;
    actions[kTokenTransferEncoding] = &HeaderConversion::take_transfer_encoding;
    actions[kTokenPrecedence] = &HeaderConversion::take_precedence;
    actions[kTokenSyncmark] = &HeaderConversion::take_syncmark;
    actions[kTokenReturnPath] = &HeaderConversion::take_return_path;
    actions[kTokenTransportId] = &HeaderConversion::take_transport_id;
    actions[kTokenDispositionTo] = &HeaderConversion::take_disposition_to;
    actions[kTokenReturnReceiptTo] = &HeaderConversion::take_return_receipt_to;
    actions[kTokenDisposition] = &HeaderConversion::take_disposition;
    return actions;  // MIME-Version and our own informational fields have none
}();

HeaderConversion::HeaderConversion(const ux_UnixMsgHeaderTarget& target, ux_UnixMsgHeader& header, os_Moment now)
    : target_(target), header_(header), in_(header.pHeaderRef), now_(now) {
    update_.HeaderPos = target.HeaderPos;
    update_.FromMailerDaemon = target.FromMailerDaemon;
}

void HeaderConversion::convert_fields() {
    while (in_.next()) {
        row_ = &find_arpa_token(in_.name());
        if (row_->Num == kTokenNone) continue;
        if (const Action action = kActions[row_->Num]) (this->*action)();
    }
}

void HeaderConversion::take_subject() {
    if (std::exchange(done_[kTokenSubject], true)) return;
    const std::string value = in_.space_joined();
    const bool encoded = header_.pMimeMsg || cust_GetBoolean("UXI_TREAT_AS_MIME_SUBJECT", true);
    header_.pRfc2047subjectD = encoded ? ux_InBuildMimeSubject(value) : ux_InBuildSubject(value);
    tf_MakeSubjectRec(record_, row_->TFRec, header_.pRfc2047subjectD);
    tf_AppendRecord(target_.pTfHandle, record_);
}

// A list may be folded over any number of lines: it is handed on line by line and never held whole.
void HeaderConversion::take_addresses() {
    ux_ArpaListParser list({.TfHandle = target_.pTfHandle,
                            .DLHandle = target_.DLHandle,
                            .NameTFRec = row_->TFRec,
                            .WrapMainTfRecs = false,
                            .pFirstFrom = header_.pFirstFrom,
                            .pSender = header_.pSender822});
    list.feed(in_.value());
    while (const auto more = in_.continuation()) {
        list.feed(" ");
        list.feed(*more);
    }
    list.finish();
}

void HeaderConversion::take_hops() { update_.HopCount = os_StringToInt(in_.value(), kHopDigits); }

void HeaderConversion::take_autoforwarded() {
    if (equal_ignoring_case(in_.value(), "TRUE")) update_.Autoforwarded = 1;
}

void HeaderConversion::take_autoreplied() {
    if (equal_ignoring_case(in_.value(), "TRUE")) update_.Autoreplied = 1;
}

void set_unless_unchanged(int& field, int value) {
    if (value != kUnchanged) field = value;
}

void HeaderConversion::take_priority() { set_unless_unchanged(update_.Priority, priority_of(in_.value())); }
void HeaderConversion::take_importance() { set_unless_unchanged(update_.Importance, importance_of(in_.value())); }
void HeaderConversion::take_sensitivity() { set_unless_unchanged(update_.Sensitivity, sensitivity_of(in_.value())); }

// Until one parses: a date that is none lets a later field of the same kind be tried.
void HeaderConversion::take_date() {
    if (done_[row_->Num]) return;
    const std::optional<ux_Date> date = ux_InParseDate(in_.value(), now_.zone);
    if (!date) return;
    done_[row_->Num] = true;
    if (row_->Num == kTokenDate) {
        header_.pCreateGMTTime = date->GMTTime;
        header_.pCreateTimeZone = date->TimeZone;
    }
    ux_InCreateDateRecord(row_->TFRec, date->GMTTime, date->TimeZone, record_);
    tf_AppendRecord(target_.pTfHandle, record_);
}

// Each line by itself: an identifier does not fold.
void HeaderConversion::take_identifiers() {
    const ux_MsgIdTarget ids{.TfHandle = target_.pTfHandle,
                             .MsgIdTFRec = row_->TFRec,
                             .pHadMsgId = MsgIdFound_,
                             .pHadReplyId = ReplyIdFound_,
                             .TransportID = TransportID_,
                             .WrapTfRecs = false,
                             .Envid = target_.pEnvid};
    ux_InParseMsgIdList(in_.value(), ids);
    while (const auto more = in_.continuation()) ux_InParseMsgIdList(*more, ids);
}

void HeaderConversion::take_return_address() {
    if (std::exchange(done_[kTokenReturnAddress], true)) return;
    std::string address = in_.space_joined_trimmed();
    std::string OrigRetAddr;
    ux_InConvArpaORNToORN(address, OrigRetAddr, false);
    ux_InCreateOrigRetRecord(OrigRetAddr, record_);
    aud_LogStr(ux_audit().AuditHandle, kAuditReturnAddress, OrigRetAddr);
    tf_AppendRecord(target_.pTfHandle, record_);
}

// Only the field that belongs to the kind of the message reaches the list.
void HeaderConversion::take_encoding() {
    if (header_.pRfc1154) take_encoding_list();
}
void HeaderConversion::take_part_info() {
    if (header_.pUudecodeMsg) take_encoding_list();
}
void HeaderConversion::take_transfer_encoding() {
    if (header_.pMimeMsg) take_encoding_list();
}

void HeaderConversion::take_encoding_list() {
    const std::string* list = &ux_InAppendEncodingInfo(in_.value(), true);
    while (const auto more = in_.continuation()) list = &ux_InAppendEncodingInfo(*more, false);
    header_.ppEncoding = *list;
}

void HeaderConversion::take_content_type() {
    header_.pContentTypePos = static_cast<std::int64_t>(in_.start());
    if (header_.pMimeMsg) header_.pMIMEContentType = in_.appended();
}

void HeaderConversion::take_disposition() {
    if (header_.pMimeMsg) header_.pMIMEContentDisposition = in_.appended();
}

void HeaderConversion::take_precedence() {
    if (cust_PresentAndTrue("UXI_AUTO_REPLY_BULK_MAIL")) return;
    for (const std::string_view bulk : {"bulk", "list", "junk"})
        if (equal_ignoring_case(in_.value(), bulk)) update_.NoReplyBulkMsg = 1;
}

void HeaderConversion::take_syncmark() { lucent_autoforwarded_ = true; }

void HeaderConversion::take_return_path() {
    if (!ReturnPath_) ReturnPath_ = in_.space_joined_trimmed();
}

void HeaderConversion::take_transport_id() { TransportID_ = ux_InParseTransportIDList(in_.value()); }

void HeaderConversion::take_disposition_to() {
    if (std::exchange(done_[kTokenDispositionTo], true)) return;
    DNRecip_ = in_.space_joined_trimmed();
}

// Not marked as taken: a later one replaces it, and a Disposition-Notification-To overrides it.
void HeaderConversion::take_return_receipt_to() {
    if (done_[kTokenDispositionTo] || !cust_PresentAndTrue("INET_ADD_RRT_HDR")) return;
    DNRecip_ = in_.space_joined_trimmed();
}

void HeaderConversion::finish() {
    if (lucent_autoforwarded_) {
        if (update_.Autoforwarded != 0) drop_loop();
        update_.Autoforwarded = 1;
    }
    if ((header_.pUudecodeMsg || header_.pRfc1154 || header_.pMimeMsg) && header_.ppEncoding.empty())
        header_.ppEncoding = ux_InAppendEncodingInfo("", true);
    if (!done_[kTokenDate]) add_default_date();
    if (!done_[kTokenSubject]) add_default_subject();
    // The subject of a message that calls itself sensitive stays out of the audit trail.
    else if (update_.Sensitivity == 0)
        aud_LogStr(ux_audit().AuditHandle, kAuditSubject, header_.pRfc2047subjectD);
    if (ReplyIdFound_) update_.MsgType = 1;
    decide_disposition_notification();
    if (header_.pMimeMsg && starts_ignoring_case(header_.pMIMEContentType, kMultipart))
        ux_InAddCTToHeader(target_.pTfHandle, header_.pMIMEContentType);
    if (update_.any()) ux_InUpdateHeaderRecord(target_.pTfHandle, update_);
    ux_InUpdateDistListCounts(target_.DLHandle);
    header_.Priority = update_.Priority;
}

// A message that was forwarded automatically and comes back marked: it is read to its end and dropped, and the agent
// hears that all is well, or the two would send it to each other for ever.
void HeaderConversion::drop_loop() {
    for (bool ended = header_.pEndOfMsg; !ended;) ended = ux_InReadMailText().is_end;  // a text that is cut off raises
    header_.pHeaderRef.unlink();
    er_TracedEscape(kGatewayGroup, kMailLoop);
}

void HeaderConversion::add_default_date() {
    header_.pCreateGMTTime = static_cast<std::int32_t>(now_.seconds);
    header_.pCreateTimeZone = now_.zone;
    ux_InCreateDateRecord(TFREC_creation_date, header_.pCreateGMTTime, header_.pCreateTimeZone, record_);
    tf_AppendRecord(target_.pTfHandle, record_);
}

void HeaderConversion::add_default_subject() {
    tf_MakeSubjectRec(record_, TFREC_subject, "");
    tf_AppendRecord(target_.pTfHandle, record_);
    aud_LogStr(ux_audit().AuditHandle, kAuditSubject, "");
}

std::string bare_address(std::string_view address) {
    return std::string(mim_SpaceTrimming(inet_RemoveAngleBrackets(inet_RemoveBrackets(address))));
}

// A notification goes to where the mail came from, or not at all (RFC 8098, section 2.1).
void HeaderConversion::decide_disposition_notification() {
    if (DNRecip_.empty()) return;
    header_.pMDNWanted = !ReturnPath_ || equal_ignoring_case(bare_address(*ReturnPath_), bare_address(DNRecip_));
}

// What the two passes leave for each other: MIME goes before RFC 1154, and both before uuencode.
void decide_kind(const ux::SavedHeaderKind& kind, ux_UnixMsgHeader& header) {
    header.pEndOfMsg = kind.end_of_message;
    header.pMimeMsg = kind.mime;
    header.pRfc1154 = kind.rfc1154 && !kind.mime;
    header.pUudecodeMsg = kind.uudecode && !kind.mime && !kind.rfc1154;
    ux_header_state().inet_DefMailNodeNum = header.pMimeMsg ? kMimeNode : header.pRfc1154 ? kRfc1154Node : kPlainNode;
}

}  // namespace

ux_HeaderState& ux_header_state() {
    static ux_HeaderState state;
    return state;
}

void ux_reset_header() { ux_header_state() = ux_HeaderState(); }

ux_UnixMsgHeader ux_InParseUnixMsgHeader(const ux_UnixMsgHeaderTarget& target) {
    const er_Trace trace("ux_InParseUnixMsgHeader");
    const os_Moment now = os_Date();
    ux_UnixMsgHeader header;
    std::string sender(target.pArpaSender);
    ux_InConvArpaORNToORN(sender, ux_addresses().ArpaSenderORN, false);
    header.pHeaderRef = im_CrNewDataItem();
    decide_kind(ux::save_header(header.pHeaderRef), header);

    ux_recipients().G_Relaying = true;
    ux_InMakeX400RecipList();
    HeaderConversion conversion(target, header, now);
    conversion.convert_fields();
    conversion.finish();
    return header;
}

void ux_InAddCTToHeader(tf_File& pTfHandle, std::string_view pMIMEContentType) {
    const er_Trace trace("ux_InAddCTToHeader");
    tf_File CopyTFHandle = tf_CreateFile();
    tf_Record record;
    tf_UnreadFile(pTfHandle);
    while (tf_ReadRecord(pTfHandle, record)) {
        if (record.type() == TFREC_header) record.put_string(ux::HeaderLayout::mime_type, pMIMEContentType);
        tf_AppendRecord(CopyTFHandle, record);
    }
    pTfHandle = std::move(CopyTFHandle);  // the old file goes with its handle
}
