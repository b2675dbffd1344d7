// First pass over a message's header: read it from the dialogue, save it, find out what kind of body follows.
#pragma once

#include "im/im.h"

namespace ux {

struct SavedHeaderKind {
    bool end_of_message = false;  // the end line came inside the header
    bool mime = false;            // MIME-Version, Content-Type or Content-Transfer-Encoding was there
    bool rfc1154 = false;         // Encoding was there
    bool uudecode = false;        // the marker field was there, or no marker is configured
};

// Reads to the blank line, which is not saved, or to the end line. Raises 102/1411 when the item cannot be written,
// 102/1401 when input ends.
SavedHeaderKind save_header(im_Item& item);

}  // namespace ux
