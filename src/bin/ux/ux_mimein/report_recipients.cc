// The recipients that a report names: see report_recipients.h.
#include "ux_mimein/report_recipients.h"

#include "er/er.h"

namespace {

constexpr std::size_t kAckLevelAt = 16;
constexpr std::size_t kSubAckLevelAt = 18;
constexpr std::size_t kReasonAt = 20;
constexpr std::size_t kStringsAt = 22;
constexpr std::size_t kUsualEntry = 128;  // bytes of an entry, as mail addresses go

// Runs what needs memory or disk; false when there was none. A report that asks for too much is ordinary mail.
bool has_room(const std::function<void()>& work) {
    try {
        er_Translate(work);
    } catch (const er_Escape&) {
        er_Accept(5);
        return false;
    }
    return true;
}

// Room is made for a step at a time; an entry must be left over.
bool add(ux_AckNameList& list, const AckNameInfo& entry, bool (*grow)(std::size_t)) {
    if (list.count() + 1 >= list.size() && !grow(ux_AckNameList::kStep)) return false;
    return has_room([&] { list.append(entry); });
}

}  // namespace

void ux_AckNameList::grow(std::size_t entries) {
    if (!entries_) entries_ = tf_open(im_create_unnamed());
    entries_.item().room(entries * kUsualEntry);
    size_ += entries;
}

void ux_AckNameList::append(const AckNameInfo& entry) {
    if (!entries_) entries_ = tf_open(im_create_unnamed());
    tf_Record record;
    record.put16(kAckLevelAt, entry.AckLevel);
    record.put16(kSubAckLevelAt, entry.SubAckLevel);
    record.put16(kReasonAt, entry.Reason);
    record.put_string(record.put_string(kStringsAt, entry.pArpaRecip), entry.pOrigRecip);
    tf_AppendRecord(entries_, record);
    ++count_;
}

void ux_AckNameList::clear() { *this = ux_AckNameList(); }

void ux_AckNameList::for_each(const std::function<void(const AckNameInfo&)>& take) {
    if (!entries_) return;
    tf_Record record;
    AckNameInfo entry;
    tf_UnreadFile(entries_);
    while (tf_ReadRecord(entries_, record)) {
        entry.AckLevel = record.get16(kAckLevelAt);
        entry.SubAckLevel = record.get16(kSubAckLevelAt);
        entry.Reason = record.get16(kReasonAt);
        entry.pArpaRecip = record.get_string(kStringsAt);
        entry.pOrigRecip = record.get_string(kStringsAt + entry.pArpaRecip.size() + 1);
        take(entry);
    }
}

ux_ReportState& ux_report() {
    static ux_ReportState state;
    return state;
}

void ux_reset_report() { ux_report() = ux_ReportState(); }

bool ux_InAddAckNameInfo(std::string_view pFinalRecip, std::string_view pOrigRecip, std::int16_t AckLevel,
                         std::int16_t SubAckLevel) {
    const er_Trace trace("ux_InAddAckNameInfo");
    return add(ux_report().gAckNameList,
               {.pArpaRecip = std::string(pFinalRecip),
                .pOrigRecip = std::string(pOrigRecip),
                .AckLevel = AckLevel,
                .SubAckLevel = SubAckLevel},
               ux_InGrowAckList);
}

bool ux_InAddNDNNameInfo(std::string_view pFinalRecip, std::string_view pOrigRecip, std::int16_t Reason) {
    const er_Trace trace("ux_InAddNDNNameInfo");
    return add(ux_report().gNDNNameList,
               {.pArpaRecip = std::string(pFinalRecip), .pOrigRecip = std::string(pOrigRecip), .Reason = Reason},
               ux_InGrowNDNList);
}

bool ux_InGrowAckList(std::size_t ExtraItems) {
    const er_Trace trace("ux_InGrowAckList");
    return has_room([&] { ux_report().gAckNameList.grow(ExtraItems); });
}

bool ux_InGrowNDNList(std::size_t ExtraItems) {
    const er_Trace trace("ux_InGrowNDNList");
    return has_room([&] { ux_report().gNDNNameList.grow(ExtraItems); });
}
