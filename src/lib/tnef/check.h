// The check of a whole TNEF stream before anything is made of it.
#pragma once

#include <cstddef>

#include "im/im.h"

// Reads the stream once, front to back, and raises EBADMSG unless every signature, length, count and checksum in it is
// right, in the messages embedded in it too, as far as `depth` (the stream itself is 1) goes: what lies deeper is
// bytes. The checksum of a message class counts for nothing: old writers get it wrong ([MS-OXTNEF], section 2.3.3.4).
// Memory is a few words for each level of embedding; time is linear, whatever the counts say.
void tnef_check(const im_Item& stream, std::size_t depth);
