// Beginning and finishing transfer files: recipient records, distribution-list files and their counts, the header item.
#pragma once

#include <cstdint>

#include "im/im.h"
#include "tf/file.h"

// What the message as a whole asks for its recipients.
struct ux_RecipientWishes {
    bool DisallowNonDelivery = false;
    std::int16_t AckReq = 0;  // acknowledgement level
    bool ReplyReq = false;
    bool MDNWanted = false;
};

// Writes and audits one recipient record per entry of the envelope list that has a native name.
void ux_InAddRecipsToTF(tf_File& TFHandle, const ux_RecipientWishes& wishes);

namespace ux {
// A new distribution-list file, with its header record and counts of nothing yet.
tf_File create_list_file(bool ROCWanted);
}  // namespace ux

// Counts the list entries of a distribution-list file into its count record, in place.
void ux_InUpdateDistListCounts(tf_File& DLHandle);

// Deletes the stored header. A failure is accepted.
void ux_InTidyHeader(im_Item& pHeaderRef);
