// Finishing transfer files: see finishing.h.
#include "ux_in/finishing.h"

#include <algorithm>
#include <array>

#include "aud/aud.h"
#include "er/er.h"
#include "ux_in/recipients.h"
#include "ux_in/records.h"

namespace {

constexpr int kUnnamedCategory = 3;
constexpr std::int16_t kDeliveryAck = 4;  // NOTIFY=SUCCESS asks for at least this much
constexpr int kAuditCategory0 = 50;
constexpr std::int16_t kListClass = 2;
constexpr std::int16_t kListMessageType = 1000;

// Which count of the list-count record a list entry's type adds to.
struct CountRow {
    std::int32_t type;
    std::size_t at;
};
constexpr auto kCounts = std::to_array<CountRow>({
    {TFREC_list_from, ux::ListCountsLayout::from},
    {TFREC_list_to, ux::ListCountsLayout::to},
    {TFREC_list_cc, ux::ListCountsLayout::cc},
    {TFREC_list_bcc, ux::ListCountsLayout::bcc},
    {TFREC_list_sender, ux::ListCountsLayout::sender},
    {TFREC_list_reply_to, ux::ListCountsLayout::reply_to},
});

using Counts = std::array<unsigned, kCounts.size()>;

Counts count_entries(tf_File& DLHandle) {
    Counts counts{};
    tf_Record record;
    tf_UnreadFile(DLHandle);
    while (tf_ReadRecord(DLHandle, record))
        for (std::size_t i = 0; i < kCounts.size(); ++i)
            if (record.type() == kCounts[i].type) ++counts[i];
    return counts;
}

void fill_counts(tf_Record& record, const Counts& counts) {
    unsigned total = 0;
    for (std::size_t i = 0; i < kCounts.size(); ++i) {
        record.put16(kCounts[i].at, static_cast<std::int16_t>(counts[i]));
        total += counts[i];
        if (kCounts[i].type == TFREC_list_bcc && counts[i] == 0)
            record.put32(ux::ListCountsLayout::flags, record.get32(ux::ListCountsLayout::flags) | ux::kNoBlindCopies);
    }
    record.put16(ux::ListCountsLayout::total, static_cast<std::int16_t>(total));
}

}  // namespace

void ux_InAddRecipsToTF(tf_File& TFHandle, const ux_RecipientWishes& wishes) {
    const er_Trace trace("ux_InAddRecipsToTF");
    tf_Record record;
    for (const RecipientInfo& entry : ux_recipients().gRecipList) {
        if (!entry.pX400Recip) continue;
        const int category = entry.Category < 0 || entry.Category > 3 ? kUnnamedCategory : entry.Category;
        const bool more = entry.DelAckWanted && wishes.AckReq < kDeliveryAck;
        ux_InCreateRecipientRecord({.Category = category,
                                    .pRecipient = *entry.pX400Recip,
                                    .DisallowNonDelivery = wishes.DisallowNonDelivery || entry.NoNDNWanted,
                                    .AckReq = more ? kDeliveryAck : wishes.AckReq,
                                    .ReplyReq = wishes.ReplyReq,
                                    .MDNWanted = wishes.MDNWanted,
                                    .DelAckWanted = entry.DelAckWanted,
                                    .pOrigRecip = entry.pOrigRecip},
                                   record);
        aud_LogORNandInet(ux_audit().AuditHandle, kAuditCategory0 + category, *entry.pX400Recip, entry.pArpaRecip);
        tf_AppendRecord(TFHandle, record);
    }
}

tf_File ux::create_list_file(bool ROCWanted) {
    tf_File DLHandle = tf_CreateFile();
    tf_Record record;
    ux_InCreateHeaderRecord(kListClass, kListMessageType, ROCWanted, "", record);
    tf_AppendRecord(DLHandle, record);
    ux_InCreateDLCountRec(record);
    tf_AppendRecord(DLHandle, record);
    return DLHandle;
}

void ux_InUpdateDistListCounts(tf_File& DLHandle) {
    const er_Trace trace("ux_InUpdateDistListCounts");
    const Counts counts = count_entries(DLHandle);
    tf_Record record;
    tf_UnreadFile(DLHandle);
    while (tf_ReadRecord(DLHandle, record)) {
        if (record.type() != TFREC_list_counts) continue;
        fill_counts(record, counts);
        tf_OverwriteRecord(DLHandle, record);
        return;
    }
}

void ux_InTidyHeader(im_Item& pHeaderRef) {
    const er_Trace trace("ux_InTidyHeader");
    pHeaderRef.unlink();
}
