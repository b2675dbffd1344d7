// TNEF parts (winmail.dat): at the message's own top level they are expanded into records and items; anywhere else they
// are attached as they are.
#pragma once

#include "ux_mimein/leaf_part.h"
#include "ux_mimein/mime_part.h"

namespace ux {

inline constexpr std::int32_t kTnefCode = 1734;

// Is this part to be expanded? Warns (1545) of one that says it is encoded otherwise than in base64.
bool is_expanded_tnef(const ux_MimePart& entity, const ux_LeafPart& leaf);

// Expands a part into the message's records and items, and deletes its item: true. With the key TNEF_UPDATE_DL the
// message's list entries get their names from it; with UXI_SAVE_INCOMING_TNEF a copy of it is kept in "~/tmp". False:
// the stream is damaged, nothing of it stays, and `leaf` describes it as a text "winmail.txt" to be attached. Raises
// 102/1428 for a damaged one with UXI_NON_DELIVER_BAD_TNEF, and what the stores raise.
bool expand_tnef(ux_MimeConversion& conversion, ux_LeafPart& leaf);

}  // namespace ux

// For tests.
void ux_reset_tnef_parts();
