// Bodies that are neither MIME nor RFC 1154: plain text, with uuencoded items in it where the message is a candidate
// for them. Every run of text and every item becomes a body part of its own.
#pragma once

#include <string_view>

#include "im/im.h"
#include "msg/msg.h"
#include "tf/file.h"

struct ux_UnixMsgContent {
    tf_File& TfHandle;                       // gets one content-file record a part
    std::string_view pParentRfc2047subject;  // subject of every text part
    bool UudecodeMsg = false;                // recognise uuencoded items
    std::string_view pEncoding;              // part-information list, may be empty; read only with UudecodeMsg
    Msg_File& MsgHandle;                     // gets the parts' items
    bool& EndOfMsg;                          // in and out: the end line has been read
};

// Reads the message's text to its end line and makes body parts of it; at least one, empty when there is no text.
// Raises 102/1401 when the input ends before, 102/1412 when text cannot be written, and what attaching raises.
void ux_InParseUnixMsgContent(const ux_UnixMsgContent& content);
