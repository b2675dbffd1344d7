// Compressed RTF: any bytes are damaged or give exactly as many bytes as they say; what a compressor made of any bytes
// comes back. The CRC, which stops most inputs at once, is put right first.
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "../unit/support/rtf_compressor.h"
#include "er/er.h"
#include "tnef/rtf.h"

namespace {

constexpr std::size_t kLongest = 1000;  // of which at most 9,000 bytes come

void must(bool holds) {
    if (!holds) std::abort();
}

std::optional<std::string> plain(std::string_view compressed) {
    im_Item in = im_CrNewDataItem(), out = im_CrNewDataItem();
    in.write(compressed);
    tnef_Source source(in);
    try {
        tnef_DecompressRtf(source, {0, in.size()}, out);
    } catch (const er_Escape& escape) {
        must(escape.reason() == EBADMSG);
        return std::nullopt;
    }
    std::string scratch;
    return std::string(out.view(0, static_cast<std::size_t>(out.size()), scratch));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2 || size > kLongest) return 0;
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    plain(bytes);
    must(plain(compress_rtf(bytes)) == bytes);

    const std::string contents = bytes.substr(2);
    const std::size_t said = static_cast<std::size_t>(data[0]) | static_cast<std::size_t>(data[1]) << 8;
    const auto text = plain(with_rtf_head(contents, said));
    must(!text || text->size() == said);
    // The size that makes it right, if any does.
    if (contents.size() > 16) return 0;
    for (std::size_t raw = 0; raw < 40 && !text; ++raw)
        if (const auto other = plain(with_rtf_head(contents, raw))) must(other->size() == raw);
    return 0;
}
