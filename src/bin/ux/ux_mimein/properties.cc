// Property parts: see properties.h.
#include "ux_mimein/properties.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "dstring/ascii.h"
#include "er/er.h"
#include "mim/decode.h"

namespace {

constexpr std::string_view kSignatureInBase64 = "eJ8+";
constexpr std::string_view kPartMarker = "--Dummy1";
constexpr std::string_view kLastMarker = "--Dummy1--";
constexpr std::size_t kPieceLimit = 1024;

bool is_marker(std::string_view line) {
    line = line.substr(0, line.find_last_not_of(" \t") + 1);
    return line == kPartMarker || line == kLastMarker;
}

im_Item decode_base64(const im_Item& item) {
    im_Item decoded = im_CrNewDataItem();
    const std::unique_ptr<mim_Decoder> decoder = mim_make_decoder(mim_TransferEncoding::base64, false, decoded);
    im_Reader reader(item);
    bool at_start = true;
    while (std::optional<std::string_view> line = reader.line(kPieceLimit)) {
        mim_LinePiece piece{.text = *line, .at_start = at_start, .whole = line->ends_with('\n')};
        if (piece.whole) piece.text.remove_suffix(1);
        for (; piece.whole && piece.text.ends_with('\r'); ++piece.returns) piece.text.remove_suffix(1);
        if (at_start && is_marker(piece.text)) break;
        decoder->piece(piece);
        at_start = piece.whole;
    }
    decoder->finish(true);
    return decoded;
}

}  // namespace

bool ux_IsPotentialMapiPropsSrcBP(std::string_view pPartType) {
    const er_Trace trace("ux_IsPotentialMapiPropsSrcBP");
    return dstring_starts_ignoring_case(pPartType, "text/calendar") ||
           dstring_starts_ignoring_case(pPartType, "application/ploxen-prop");
}

void ux_TryDecodeTnefContent(im_Item& item) {
    const er_Trace trace("ux_TryDecodeTnefContent");
    try {
        std::string scratch;
        if (item.head(kSignatureInBase64.size(), scratch) != kSignatureInBase64) return;
        im_Item decoded;
        er_Translate([&] { decoded = decode_base64(item); });
        item = std::move(decoded);
    } catch (const er_Escape&) {
        er_Accept(5);
    }
}
