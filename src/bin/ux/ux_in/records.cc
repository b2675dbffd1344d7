// Builders of the records that describe a message, one routine per record; layouts in the header.
#include "ux_in/records.h"

#include "er/er.h"
#include "os/catalog.h"

namespace {

using namespace ux;

// Creator and P2 originator share one layout.
void put_creator(std::int32_t type, std::string_view name, tf_Record& record) {
    tf_InitRecord(record, type);
    record.put32(CreatorLayout::zero32, 0);
    record.put16(CreatorLayout::zero16, 0);
    record.put_string(CreatorLayout::name, name);
}

void start_list_record(std::int32_t type, tf_Record& record) {
    tf_InitRecord(record, type);
    record.put16(kRecordWordAt, kListRecordWord);
}

std::int16_t recipient_flags(const ux_RecipientFields& recipient) {
    std::uint32_t flags = static_cast<std::uint32_t>(recipient.AckReq) & RecipRecFlags::ack_mask;
    if (recipient.DisallowNonDelivery) flags |= RecipRecFlags::no_non_delivery;
    flags |= (static_cast<std::uint32_t>(recipient.Category) & RecipRecFlags::category_mask)
             << RecipRecFlags::category_shift;
    if (recipient.ReplyReq) flags |= RecipRecFlags::reply_requested;
    if (recipient.AckReq > 4 && !recipient.DelAckWanted) flags |= RecipRecFlags::no_delivery_ack;
    if (recipient.MDNWanted) flags |= RecipRecFlags::mdn_wanted;
    return static_cast<std::int16_t>(flags);
}

void replace_three_bits(std::uint32_t& flags, unsigned shift, int value) {
    flags &= ~(HeaderFlags::three_bits << shift);
    flags |= (static_cast<std::uint32_t>(value) & HeaderFlags::three_bits) << shift;
}

// The second byte's flags are added, never assigned: they share bits, and content_wanted lies among them.
std::uint32_t updated_flags(std::uint32_t flags, const ux_HeaderUpdate& update) {
    replace_three_bits(flags, HeaderFlags::priority_shift, update.Priority);
    replace_three_bits(flags, HeaderFlags::sensitivity_shift, update.Sensitivity);
    replace_three_bits(flags, HeaderFlags::importance_shift, update.Importance);
    if (update.Autoforwarded != 0) flags |= HeaderFlags::autoforwarded;
    if (update.Autoreplied != 0) flags |= HeaderFlags::autoreplied;
    if (update.NoReplyBulkMsg != 0) flags |= HeaderFlags::no_reply_to_bulk;
    if (update.FromMailerDaemon) flags |= HeaderFlags::from_mailer_daemon;
    return flags;
}

}  // namespace

namespace ux {

std::int32_t file_size_field(std::uint64_t bytes) { return tf_file_size(bytes); }

}  // namespace ux

ux_RecordState& ux_records() {
    static ux_RecordState state;
    return state;
}

void ux_reset_records() { ux_records() = {}; }

void ux_InCreateHeaderRecord(std::int16_t TfClass, std::int16_t TfType, bool ROCWanted, std::string_view pMIMEType,
                             tf_Record& pHeaderRec) {
    const er_Trace trace("ux_InCreateHeaderRecord");
    tf_InitRecord(pHeaderRec, TFREC_header);
    pHeaderRec.put16(HeaderLayout::version, 3);
    pHeaderRec.put16(HeaderLayout::zero, 0);
    pHeaderRec.put16(HeaderLayout::tf_class, TfClass);
    pHeaderRec.put16(HeaderLayout::message_type, TfType);
    pHeaderRec.put32(HeaderLayout::flags, ROCWanted ? static_cast<std::int32_t>(HeaderFlags::content_wanted) : 0);
    pHeaderRec.put32(HeaderLayout::one, 1);
    pHeaderRec.put32(HeaderLayout::hop_count, 0);
    pHeaderRec.put32(HeaderLayout::two, 2);
    if (!pMIMEType.empty()) pHeaderRec.put_string(HeaderLayout::mime_type, pMIMEType);
}

void ux_InCreateCreatorRecord(std::string_view pORN, tf_Record& pCreatorRec) {
    const er_Trace trace("ux_InCreateCreatorRecord");
    put_creator(TFREC_creator, pORN, pCreatorRec);
}

void ux_InCreateP2OriginatorRecord(std::string_view pORN, tf_Record& pP2OrigRecord) {
    // Traces have always shown this builder under the name of its neighbour; whoever reads them expects that.
    const er_Trace trace("ux_InCreateOrigRetRecord");
    put_creator(TFREC_p2_originator, pORN, pP2OrigRecord);
}

void ux_InCreateOrigRetRecord(std::string_view pORN, tf_Record& pOrigRetRecord) {
    const er_Trace trace("ux_InCreateOrigRetRecord");
    tf_InitRecord(pOrigRetRecord, TFREC_originator_return);
    pOrigRetRecord.put_string(OriginatorReturnLayout::name, pORN);
}

void ux_InCreateDateRecord(std::int32_t RecType, std::int32_t GMTTime, std::int16_t TimeZone, tf_Record& pDateRec) {
    const er_Trace trace("ux_InCreateDateRecord");
    tf_InitRecord(pDateRec, RecType);
    pDateRec.put32(DateLayout::seconds, GMTTime);
    pDateRec.put16(DateLayout::zone, TimeZone);
}

void ux_InCreateRecipientRecord(const ux_RecipientFields& recipient, tf_Record& pRecipientRec) {
    const er_Trace trace("ux_InCreateRecipientRecord");
    tf_InitRecord(pRecipientRec, TFREC_recipient);
    pRecipientRec.put16(RecipientLayout::flags, recipient_flags(recipient));
    pRecipientRec.put16(RecipientLayout::id, static_cast<std::int16_t>(ux_records().RecipientId++));
    const std::size_t second = pRecipientRec.put_string(RecipientLayout::strings, {});
    const std::size_t name = pRecipientRec.put_string(second, {});
    pRecipientRec.put_string(name, recipient.pOrigRecip.empty() ? recipient.pRecipient : recipient.pOrigRecip);
}

void ux_InCreateDLCountRec(tf_Record& pDLRecord) {
    const er_Trace trace("ux_InCreateDLCountRec");
    start_list_record(TFREC_list_counts, pDLRecord);
    pDLRecord.put32(ListCountsLayout::flags, 0);
    for (const std::size_t count : {ListCountsLayout::total, ListCountsLayout::from, ListCountsLayout::to,
                                    ListCountsLayout::cc, ListCountsLayout::bcc, ListCountsLayout::zero16})
        pDLRecord.put16(count, 0);
    pDLRecord.put32(ListCountsLayout::zero32, 0);
    pDLRecord.put16(ListCountsLayout::sender, 0);
    pDLRecord.put16(ListCountsLayout::reply_to, 0);
}

void ux_InCreateDistListRec(std::int32_t RecType, std::string_view pORName, tf_Record& pDLRecord) {
    const er_Trace trace("ux_InCreateDistListRec");
    start_list_record(RecType, pDLRecord);
    pDLRecord.put32(ListEntryLayout::zero32, 0);
    pDLRecord.put16(ListEntryLayout::zero16a, 0);
    pDLRecord.put16(ListEntryLayout::zero16b, 0);
    pDLRecord.put_string(ListEntryLayout::name, pORName);
}

void ux_InCreateReplyToRec(std::string_view pORName, tf_Record& pDLRecord) {
    const er_Trace trace("ux_InCreateReplyToRec");
    start_list_record(TFREC_reply_to, pDLRecord);
    pDLRecord.put_string(ReplyToLayout::name, pORName);
}

void ux_InUpdateHeaderRecord(tf_File& TfHandle, const ux_HeaderUpdate& update) {
    const er_Trace trace("ux_InUpdateHeaderRecord");
    tf_Record record;
    tf_GotoRecord(TfHandle, update.HeaderPos);
    if (!tf_ReadRecord(TfHandle, record)) return;
    const bool wrapped = record.type() == TFREC_wrapped;
    if (wrapped) tf_ChangeFromWrapRec(record);
    if (record.type() != TFREC_header || record.size() < HeaderLayout::size) return;

    const auto flags = static_cast<std::uint32_t>(tf_GetINT32(record, HeaderLayout::flags));
    record.put32(HeaderLayout::flags, static_cast<std::int32_t>(updated_flags(flags, update)));
    record.put32(HeaderLayout::hop_count, update.HopCount);
    record.put16(HeaderLayout::message_type, update.MsgType);
    if (wrapped) tf_ChangeToWrapRec(record);
    tf_OverwriteRecord(TfHandle, record);
}

void ux_InAppendToORN(std::string& pORN, NM_PARSE_STATUS& pNameStatus, int FieldNum, int MessNum) {
    const er_Trace trace("ux_InAppendToORN");
    nm_PutFieldStr(pORN, pNameStatus, FieldNum, os_MCGetMessage(MessNum));
}
