// Distribution-list parts (application/x-ploxen-distlist): address fields as a header has them, one list for all.
//
//   From: a@example.org
//   To: b@example.org, c@example.org,
//    d@example.org
//
// From, To, Apparently-To, Cc, Bcc, Reply-To and Sender are taken, every line by itself; all else is passed over.
#pragma once

#include "im/im.h"
#include "msg/msg.h"
#include "tf/file.h"
#include "ux_mimein/mime_part.h"

// Reads a decoded part into a distribution-list file of its own and attaches that; the content-file record is the
// caller's to write. A line that is a single dot, or one of the markers (none: there are none), ends the reading of the
// part and nothing else. Raises what reading the item, converting names and the stores raise; nothing is attached then.
void ux_InSpecialDistList(const im_Item& part, const ux_PartMarkers* markers, tf_File& TfHandle, Msg_File& MsgHandle);
