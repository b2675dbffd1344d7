// The recipients that a report names: two lists, filled while it is parsed, written into native reports afterwards.
//
// How many there are is up to whoever wrote the report. So a list is a file of records, in memory while it is small,
// and a report of any length needs no more memory than a short one:
//
//   i16@16 AckLevel, i16@18 SubAckLevel, i16@20 Reason, string@22 pArpaRecip, string pOrigRecip
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "tf/file.h"

// One of them.
struct AckNameInfo {
    std::string pArpaRecip;        // the final recipient's Internet address
    std::string pOrigRecip;        // the original recipient as it was reported; may be empty
    std::int16_t AckLevel = 0;     // of an acknowledgement: 4 delivered, 6 deleted, 7 read
    std::int16_t SubAckLevel = 0;  // 1 list expanded, 2 expired, 3 superseded, 4 mailbox terminated
    std::int16_t Reason = 0;       // of a non-delivery
};

class ux_AckNameList {
public:
    static constexpr std::size_t kStep = 4;

    std::size_t count() const { return count_; }  // gAckListCount, gNDNListCount
    std::size_t size() const { return size_; }    // gAckListSize, gNDNListSize: so many have room
    bool empty() const { return count_ == 0; }

    void grow(std::size_t entries);         // room for so many more; raises when there is none, and is as it was
    void append(const AckNameInfo& entry);  // raises when it cannot be kept, and is as it was
    void clear();
    void for_each(const std::function<void(const AckNameInfo&)>& take);  // in the order they were appended

private:
    tf_File entries_;
    std::size_t count_ = 0, size_ = 0;
};

// Process-wide: the recipients of the report in hand.
struct ux_ReportState {
    ux_AckNameList gAckNameList;  // of the acknowledgement
    ux_AckNameList gNDNNameList;  // of the non-delivery report
};
ux_ReportState& ux_report();
void ux_reset_report();

// Appends to the list of acknowledged and of failed recipients. False: there was no room, and nothing has changed.
bool ux_InAddAckNameInfo(std::string_view pFinalRecip, std::string_view pOrigRecip, std::int16_t AckLevel,
                         std::int16_t SubAckLevel);
bool ux_InAddNDNNameInfo(std::string_view pFinalRecip, std::string_view pOrigRecip, std::int16_t Reason);

// Makes room for ExtraItems more. False: there is none, and nothing has changed.
bool ux_InGrowAckList(std::size_t ExtraItems);
bool ux_InGrowNDNList(std::size_t ExtraItems);
