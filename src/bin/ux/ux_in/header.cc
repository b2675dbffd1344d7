// The header of a message: see header.h. Its first pass is in header_save, what it shares with the headers of messages
// inside it in header_fields; here is what only the message's own header says.
#include "ux_in/header.h"

#include <optional>

#include "aud/aud.h"
#include "cust/cust.h"
#include "dstring/ascii.h"
#include "er/er.h"
#include "inet/address.h"
#include "mim/mim.h"
#include "os/os.h"
#include "ux_in/addresses.h"
#include "ux_in/charsets.h"
#include "ux_in/finishing.h"
#include "ux_in/header_fields.h"
#include "ux_in/header_save.h"
#include "ux_in/lines.h"
#include "ux_in/part_info.h"
#include "ux_in/recipients.h"
#include "ux_mimein/subjects.h"

namespace {

constexpr int kMailLoop = 1544;
constexpr int kAuditSubject = 10;
constexpr std::string_view kMultipart = "multipart/";

// Default mail nodes.
constexpr int kMimeNode = 1;
constexpr int kRfc1154Node = 2;
constexpr int kPlainNode = 3;

constexpr ux::HeaderRules kMessageRules{.wrapped = false,
                                        .joined_lists = true,
                                        .joined_return = true,
                                        .audited_return = true,
                                        .creator_from_sender = false};

// The message's own header on its way into records.
class MessageHeader : public ux::HeaderFields {
public:
    MessageHeader(const ux_UnixMsgHeaderTarget& target, ux_UnixMsgHeader& header, os_Moment now);
    void finish();

private:
    std::string take_subject() override;
    void take_other(int token) override;

    void take_encoding_list();
    void take_content_type();
    void take_precedence();

    void drop_loop();
    void decide_disposition_notification();

    const ux_UnixMsgHeaderTarget& message_;
    ux_UnixMsgHeader& header_;
    bool lucent_autoforwarded_ = false;
    std::string DNRecip_;
    std::optional<std::string> ReturnPath_;
};

MessageHeader::MessageHeader(const ux_UnixMsgHeaderTarget& target, ux_UnixMsgHeader& header, os_Moment now)
    : HeaderFields(kMessageRules, {target.pTfHandle, target.DLHandle, target.pEnvid, now}, header.pHeaderRef),
      message_(target),
      header_(header) {
    update_.HeaderPos = target.HeaderPos;
    update_.FromMailerDaemon = target.FromMailerDaemon;
}

std::string MessageHeader::take_subject() {
    const std::string value = in_.space_joined();
    const bool encoded = header_.pMimeMsg || cust_GetBoolean("UXI_TREAT_AS_MIME_SUBJECT", true);
    return encoded ? ux_InBuildMimeSubject(value) : ux_InBuildSubject(value);
}

// Of the encoding and part-information lists only the one that belongs to the kind of the message is collected.
// MIME-Version and our own informational fields say nothing here.
void MessageHeader::take_other(int token) {
    switch (token) {
        case kTokenEncoding:
            if (header_.pRfc1154) take_encoding_list();
            break;
        case kTokenPartInfo:
            if (header_.pUudecodeMsg) take_encoding_list();
            break;
        case kTokenTransferEncoding:
            if (header_.pMimeMsg) take_encoding_list();
            break;
        case kTokenContentType: take_content_type(); break;
        case kTokenDisposition:
            if (header_.pMimeMsg) header_.pMIMEContentDisposition = in_.appended();
            break;
        case kTokenPrecedence: take_precedence(); break;
        case kTokenSyncmark: lucent_autoforwarded_ = true; break;
        case kTokenReturnPath:
            if (!ReturnPath_) ReturnPath_ = in_.space_joined_trimmed();
            break;
        case kTokenDispositionTo:
            if (once(kTokenDispositionTo)) DNRecip_ = in_.space_joined_trimmed();
            break;
        // Not marked as taken: a later one replaces it, and a Disposition-Notification-To overrides it.
        case kTokenReturnReceiptTo:
            if (!taken(kTokenDispositionTo) && cust_PresentAndTrue("INET_ADD_RRT_HDR"))
                DNRecip_ = in_.space_joined_trimmed();
            break;
        default: break;
    }
}

void MessageHeader::take_encoding_list() {
    const std::string* list = &ux_InAppendEncodingInfo(in_.value(), true);
    while (const auto more = in_.continuation()) list = &ux_InAppendEncodingInfo(*more, false);
    header_.ppEncoding = *list;
}

void MessageHeader::take_content_type() {
    header_.pContentTypePos = static_cast<std::int64_t>(in_.start());
    if (header_.pMimeMsg) header_.pMIMEContentType = in_.appended();
}

void MessageHeader::take_precedence() {
    if (cust_PresentAndTrue("UXI_AUTO_REPLY_BULK_MAIL")) return;
    for (const std::string_view bulk : {"bulk", "list", "junk"})
        if (dstring_equal_ignoring_case(in_.value(), bulk)) update_.NoReplyBulkMsg = 1;
}

void MessageHeader::finish() {
    if (lucent_autoforwarded_) {
        if (update_.Autoforwarded != 0) drop_loop();
        update_.Autoforwarded = 1;
    }
    if ((header_.pUudecodeMsg || header_.pRfc1154 || header_.pMimeMsg) && header_.ppEncoding.empty())
        header_.ppEncoding = ux_InAppendEncodingInfo("", true);
    add_default_date();
    // The subject of a message that calls itself sensitive stays out of the audit trail.
    if (add_default_subject() || update_.Sensitivity == 0) aud_LogStr(ux_audit().AuditHandle, kAuditSubject, subject_);
    if (ReplyIdFound_) update_.MsgType = 1;
    decide_disposition_notification();
    if (header_.pMimeMsg && dstring_starts_ignoring_case(header_.pMIMEContentType, kMultipart))
        ux_InAddCTToHeader(message_.pTfHandle, header_.pMIMEContentType);
    if (update_.any()) ux_InUpdateHeaderRecord(message_.pTfHandle, update_);
    ux_InUpdateDistListCounts(message_.DLHandle);
    header_.Priority = update_.Priority;
    header_.pRfc2047subjectD = std::move(subject_);
    header_.pFirstFrom = std::move(FirstFrom_);
    header_.pSender822 = std::move(Sender822_);
    header_.pCreateGMTTime = created_.GMTTime;
    header_.pCreateTimeZone = created_.TimeZone;
}

// A message that was forwarded automatically and comes back marked: it is read to its end and dropped, and the agent
// hears that all is well, or the two would send it to each other for ever.
void MessageHeader::drop_loop() {
    for (bool ended = header_.pEndOfMsg; !ended;) ended = ux_InReadMailText().is_end;  // a text that is cut off raises
    header_.pHeaderRef.unlink();
    er_TracedEscape(kGatewayGroup, kMailLoop);
}

std::string bare_address(std::string_view address) {
    return std::string(mim_SpaceTrimming(inet_RemoveAngleBrackets(inet_RemoveBrackets(address))));
}

// A notification goes to where the mail came from, or not at all (RFC 8098, section 2.1).
void MessageHeader::decide_disposition_notification() {
    if (DNRecip_.empty()) return;
    header_.pMDNWanted =
        !ReturnPath_ || dstring_equal_ignoring_case(bare_address(*ReturnPath_), bare_address(DNRecip_));
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
    MessageHeader conversion(target, header, now);
    conversion.convert();
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
