// Bodies of MIME messages: whatever they are, the conversion ends with the text read to its end line or with a refusal;
// the records nest, each content-file record has its attached file, and what comes of it does not depend on how the
// text was cut on its way.
#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

#include "mime_room.h"

using namespace mime_room;

namespace {

Outcome convert_in_pieces(std::string_view type, std::string_view text, std::size_t piece, char detection) {
    ux_LineReader reader = reader_of(text, piece);
    return convert(type, reader, detection);
}

}  // namespace

// The first byte chooses detection and how the text is cut, the first line is the content type.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const FuzzHome home("UX_MAX_DEPTH = 200\n");
    if (size < 2) return 0;
    const std::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
    const std::string type(input.substr(0, std::min<std::size_t>(input.find('\n'), 1000)));
    const std::string text =
        std::string(input.substr(std::min(input.find('\n') + 1, input.size()))) + (data[0] & 0x80 ? "" : "\n.\n");
    const char detection = "RYNR"[data[0] >> 5 & 3];
    const Outcome whole = convert_in_pieces(type, text, text.size(), detection);
    require(whole == convert_in_pieces(type, text, 1 + data[0] % 29 + text.size() / 512, detection));
    return 0;
}
