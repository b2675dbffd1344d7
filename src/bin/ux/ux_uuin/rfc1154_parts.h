// The parts of an RFC 1154 body that hold no others: text, hexadecimal data, uuencoded data. A part has as many lines
// as its entry says, or runs to the end line of the message; a line of any length is one line.
#pragma once

#include <cstdint>
#include <string_view>

#include "im/im.h"
#include "msg/msg.h"
#include "tf/file.h"

struct ux_Rfc1154Part {
    tf_File& TfHandle;                 // gets the part's content-file record
    std::string_view pRfc2047subject;  // the message's
    Msg_File& MsgHandle;               // gets the part's item
    bool& EndOfMsg;                    // out: the end line has been read
    std::int32_t MaxLines = -1;        // above 0: lines of the part; below: to the end of the message
};

// Each reads one part and attaches it. False: a line could not be decoded; the part ends with it, and what came before
// is attached. All raise 102/1401 when the input ends, and what the stores raise.

// Pairs of characters, each giving a byte: the low four bits of the first and of the second. That is right for digits
// alone ("A" gives 1, as "a" does): what peers of this gateway write is decoded so.
bool ux_InParseRfc1154HexFile(const ux_Rfc1154Part& part);
// From the line that begins "begin" to the one that begins "end". The third word of the first is the file's name.
bool ux_InParseRfc1154UUEncode(const ux_Rfc1154Part& part);
// Text in pFromCharSet, converted as the steering file says. Always true; raises 102/1412 when it cannot be written.
bool ux_InParseRfc1154Text(const ux_Rfc1154Part& part, std::string_view pFromCharSet);

// Decode one line, without its line end, and append its bytes. False: an odd number of characters (1533), fewer
// characters than the line's count (1532). A dot too many goes first.
bool ux_InDecodeHexLine(std::string_view pTextLine, im_Item& pStream);
bool ux_InDecodeUUEncodedLine(std::string_view pTextLine, im_Item& pStream);

namespace ux {

// An encapsulated message that is not taken apart: its lines as one binary item, line ends as they arrived.
void keep_rfc1154_message(const ux_Rfc1154Part& part);

}  // namespace ux
