// Compressed RTF ([MS-OXRTFCP]).
//
//   compressed = size of what follows this field (u32) raw size (u32) kind (u32) CRC of the contents (u32) contents
//   kind       = "LZFu" compressed / "MELA" as it is, CRC 0
//   contents   = *( control (u8) 8( literal (u8) / reference (u16) ) )     bit n of the control, from the lowest, is 1
//                                                                           for a reference
//   reference  = big-endian: 12 bits place in the dictionary, 4 bits length less 2; the place where the dictionary is
//                written next ends the contents
//
// The dictionary is a ring of 4096 bytes that begins with 207 bytes of common RTF; what is put out is written to it.
#pragma once

#include "im/im.h"
#include "tnef/source.h"

// Writes what the span holds in its plain form to `out`. Contents that end without an end reference are taken as they
// are when they give as many bytes as the raw size says. EBADMSG: another kind, a wrong size or CRC. What was written
// until then stays in `out`. One byte of contents gives at most nine bytes, whatever the sizes say.
void tnef_DecompressRtf(tnef_Source& source, tnef_Span compressed, im_Item& out);
