// Content transfer decodings (RFC 2045, section 6; uuencode as mailers write it). A decoder is fed the lines of a body
// as they arrive, long ones in pieces cut anywhere, and writes what they stand for into an item.
//
// In a text part every line end becomes LF, a decoded CR LF too; a lone CR stays. Any other part keeps its bytes. The
// line end before a boundary line belongs to the boundary.
//
//   identity           7bit, 8bit, binary, nothing, and whatever is not known
//   base64             characters of no meaning are skipped; missing padding yields the octets there are; data after
//                      padding goes on
//   quoted-printable   a bad escape stays as it stands; blanks at a line's end are dropped, also those behind the "="
//                      of a soft line break
//   uuencode           x-uuencode, uuencode, x-uue: from its "begin" line to its "end" line; without a "begin" line the
//                      body is as it stands
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "im/im.h"

enum class mim_TransferEncoding { identity, base64, quoted_printable, uuencode };

// What a Content-Transfer-Encoding field says: any case, blanks and comments around it ignored.
mim_TransferEncoding mim_transfer_encoding(std::string_view field);

// A line of a body, or a piece of a long one; dots are unstuffed already.
struct mim_LinePiece {
    std::string_view text;    // without its line end
    bool at_start = true;     // it begins a line
    bool whole = true;        // a line end followed
    std::size_t returns = 0;  // CRs of that line end
};

class mim_Decoder {
public:
    virtual ~mim_Decoder() = default;
    virtual void piece(const mim_LinePiece& line) = 0;
    // Decodes lines at the start of `block`, which begins a line, as far as they are ordinary; returns how many bytes
    // it took, whole lines only. 0: feed piece() next. Never taken is a line that is not the decoder's alone to judge:
    // one that begins with "-" (a boundary?) or "." (a stuffed dot, or the end?), that holds a NUL byte, or that is too
    // long to come in one piece.
    virtual std::size_t lines(std::string_view block) = 0;
    // The body has ended. `at_boundary`: a boundary line follows, to which the last line end belongs.
    virtual void finish(bool at_boundary) = 0;
};

// A decoder that writes into `out`, which must outlive it. `text`: the part is text.
std::unique_ptr<mim_Decoder> mim_make_decoder(mim_TransferEncoding encoding, bool text, im_Item& out);
