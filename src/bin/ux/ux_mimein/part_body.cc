// Reading a body: see part_body.h.
#include "ux_mimein/part_body.h"

#include <memory>
#include <optional>

#include "er/er.h"
#include "mim/decode.h"
#include "ux_mimein/mail_input.h"

namespace {

// Most of a body is looked at by nobody but its decoder, which takes it from the reader's buffer.
void take_ordinary_lines(mim_Decoder& decoder) {
    while (const std::size_t taken = decoder.lines(MailLinesAhead())) TakeMailLines(taken);
}

// How the body ends with this piece, when it does.
std::optional<ux_BodyEnd> end_of(const ux_MailText& piece, const ux_PartMarkers* markers) {
    if (piece.is_end) return ux_BodyEnd::message;
    if (markers == nullptr || !piece.text.starts_with("--")) return std::nullopt;
    if (ux::is_boundary_line(piece, markers->pszPartMarker)) return ux_BodyEnd::next_part;
    if (ux::is_closing_line(piece, markers->pszLastPartMarker)) return ux_BodyEnd::last_part;
    return std::nullopt;
}

}  // namespace

ux_BodyEnd mim_DecodeMimeFile(im_Item& item, std::string_view pszEncoding, const ux_PartMarkers* markers,
                              bool nonTextType) {
    const er_Trace trace("mim_DecodeMimeFile");
    const auto decoder = mim_make_decoder(mim_transfer_encoding(pszEncoding), !nonTextType, item);
    for (;;) {
        take_ordinary_lines(*decoder);
        const ux_MailText piece = GetRawMailText();
        if (const std::optional<ux_BodyEnd> end = end_of(piece, markers)) {
            decoder->finish(*end != ux_BodyEnd::message);
            return *end;
        }
        decoder->piece({piece.unstuffed(), piece.at_start, piece.whole, piece.returns});
    }
}
