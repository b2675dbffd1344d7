// Expanding a TNEF part (winmail.dat) into native records and items.
//
// In this order: the item class (11200); the object "MAPI.ObjectProperties", a TNEF stream of the message's properties;
// the properties as text (30710); the body, the richest form alone: HTML, else RTF, else text; each attachment. An
// embedded message is a package (30100 with 3, -100 and its subject), the same again with 11200, 30700 and 30710
// wrapped, and the package's end (39000). A value that takes more than 32,768 bytes in the stream is in the object
// alone.
#pragma once

#include <cstdint>

#include "im/im.h"
#include "mim/mapping.h"
#include "msg/msg.h"
#include "tf/file.h"

// Appends the records of `stream` to the transfer file and attaches its items to the message, in the same order. A
// read-receipt request raises pAckReq to 7, a reply request sets pReplyReq. EBADMSG (group 1): the stream is damaged;
// any other escape: the system's. Whatever is raised, nothing of the stream stays: no record, no item, no request.
//
// Messages are expanded to the depth of the key UX_MAX_DEPTH (10,000); what is embedded deeper is an attached item of
// code 1734. Memory is bounded, whatever the stream says, and time is linear. `update_flag` and `SplitTNEF` are the
// service's interface and change nothing: the recipient table is read by tnef_UpdateDL.
void tnef_Decode(Msg_File& MsgHandle, tf_File& TfHandle, const im_Item& stream, std::int16_t& pAckReq, bool& pReplyReq,
                 bool update_flag, bool SplitTNEF);

// Gives the entries of a distribution list (22000 to 22440) whose address the recipient table of `stream` names its
// display name as CN. An address is an entry's when it becomes the same native name, or is its Internet address (field
// 130). The first row that names an entry holds. The list is rewritten in place: one that is attached already is opened
// with im_open and placed afterwards. Raises as above; the list then is as it was, unless the system failed while it
// was rewritten.
void tnef_UpdateDL(im_Item& list, const im_Item& stream, const mim_Mapping& mapping);
