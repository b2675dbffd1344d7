// Uuencoded items inside plain bodies.
//
//   begin <mode> <name>        mode: three octal digits, or more
//   M<60 characters>           first character: count of bytes; each further one six bits; code - 0x20, modulo 64
//   ...
//   <count><characters>        the first count other than 45 ends the item
//   `                          a line without bytes; often there, left in the text
//   end
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "im/im.h"
#include "ux_in/lines.h"

inline constexpr std::size_t kUuencodedNameLimit = 256;
inline constexpr std::size_t kUuencodedLineLimit = 79;  // bytes, line end included; a longer line is several

// Does a line (or the first piece of a long one, without line end) open a uuencoded item? Then the item's file name,
// cut to 256 characters and empty when there is none. Logs 1519.
std::optional<std::string> ux_InIsUuencodeMarker(std::string_view pTextLine);

namespace ux {
// Full lines that lie ready in the reader's buffer go straight into the item, as far as they are nothing but that, at
// most `most` of them. Returns how many.
std::size_t append_full_uu_lines(ux_LineReader& input, im_Item& item, std::size_t most);
}  // namespace ux

// Decodes one item from pEncodedMsg into a new data item. Malformed data is decoded as it stands: bits that a line
// lacks are zero. The end line of the message ends the item and sets pEndOfMsg; so does a line "end", which stays in
// the input. Raises 102/1401 when the input ends, and what the item store raises.
im_Item ux_InUudecodeItem(ux_LineReader& pEncodedMsg, bool& pEndOfMsg);
