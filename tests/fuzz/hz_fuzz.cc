// HZ: a text means the same wherever it is cut, what is decoded is EUC-CN, and what is encoded decodes to itself.
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "ccs/ccs.h"
#include "cvc/hz.h"

namespace {

void must(bool holds) {
    if (!holds) std::abort();
}

std::optional<std::string> decode(std::string_view text, std::size_t cut) {
    cvc_HzDecoder decoder;
    std::string out;
    const bool good =
        decoder.decode(text.substr(0, cut), out) && decoder.decode(text.substr(cut), out) && decoder.finish();
    return good ? std::optional(out) : std::nullopt;
}

void check_euc(std::string_view euc) {
    while (!euc.empty()) {
        const std::size_t length = static_cast<unsigned char>(euc[0]) < 0x80 ? 1 : 2;
        must(euc.size() >= length && (length == 1 || (static_cast<unsigned char>(euc[0]) >= 0xA1 &&
                                                      static_cast<unsigned char>(euc[1]) >= 0xA1)));
        euc.remove_prefix(length);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    const std::optional<std::string> whole = decode(text, 0);
    must(decode(text, text.size() * data[0] / 255) == whole);
    if (whole) check_euc(*whole);

    cvc_HzEncoder encoder;
    std::string hz;
    const std::uint64_t lost = encoder.encode(text, hz);
    encoder.finish(hz);
    must(ccs_Is7BitAscii(hz));
    const std::optional<std::string> back = decode(hz, 0);
    must(text.find_first_of("\r\n") != std::string_view::npos || back.has_value());
    must(lost != 0 || back == text);
    return 0;
}
