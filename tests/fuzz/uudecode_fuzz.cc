// Uuencoded items. What an encoder wrote comes back byte for byte; and any text at all decodes to what a plain reading
// of the rules, character by character, makes of the same lines, and leaves the same line behind.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "er/er.h"
#include "os/os.h"
#include "ux_in/lines.h"
#include "ux_in/uudecode.h"

namespace {

void require(bool held) {
    if (!held) std::abort();
}

// The text on a descriptor of its own, read by the process's reader from its start.
void give(std::string_view text) {
    static const int fd = ::memfd_create("text", MFD_CLOEXEC);
    if (fd < 0 || ::ftruncate(fd, 0) != 0) std::abort();
    os_pwrite_all(fd, text, 0);
    ::lseek(fd, 0, SEEK_SET);
    ux_SetInput(fd);
    ux_Input().begin_text();
}

struct Decoded {
    std::string bytes;
    bool end = false;
    bool cut_off = false;  // the input ended
    std::string next;      // the line behind the item
    bool operator==(const Decoded&) const = default;
};

template <class Decoder>
Decoded decode(std::string_view text, Decoder decoder) {
    Decoded decoded;
    give(text);
    try {
        decoder(decoded);
        if (!decoded.end) decoded.next = ux_InReadMailText().text;
    } catch (const er_Escape& escape) {
        require(escape.group() == kGatewayGroup && escape.reason() == 1401);
        decoded.bytes.clear();
        decoded.cut_off = true;
    }
    return decoded;
}

void by_gateway(Decoded& decoded) {
    const im_Item item = ux_InUudecodeItem(ux_Input(), decoded.end);
    std::string scratch;
    decoded.bytes = item.view(0, static_cast<std::size_t>(item.size()), scratch);
}

// A line's bytes, six bits at a time.
std::string plain_line(std::string_view line, unsigned count) {
    std::string bytes;
    unsigned held = 0, bits = 0;
    for (std::size_t at = 1; bytes.size() < count; ++at) {
        const unsigned value = at < line.size() ? (static_cast<unsigned char>(line[at]) - 0x20U) & 63U : 0;
        held = (held << 6 | value) & 0xFFFFFF;
        bits += 6;
        if (bits >= 8) bytes += static_cast<char>(held >> (bits -= 8));
    }
    return bytes;
}

void by_the_rules(Decoded& decoded) {
    for (unsigned count = 45; count == 45;) {
        const ux_MailText line = ux_Input().text(79);
        decoded.end = line.is_end;
        if (line.is_end) return;
        if (line.at_start && line.whole && line.text == "end") return ux_Input().unread();
        const std::string_view text = line.unstuffed();
        count = text.empty() ? 0 : (static_cast<unsigned char>(text.front()) - 0x20U) & 63U;
        decoded.bytes += plain_line(text, count);
    }
}

std::string encode(std::string_view bytes, char zero) {
    const auto character = [zero](unsigned value) { return value == 0 ? zero : static_cast<char>(value + 0x20); };
    std::string text;
    for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(bytes.size(), 45))) {
        const std::string_view line = bytes.substr(0, 45);
        if (line.size() == '.' - 0x20) text += '.';
        text += character(static_cast<unsigned>(line.size()));
        for (std::size_t at = 0; at < line.size(); at += 3) {
            unsigned group = 0;
            for (std::size_t i = at; i < at + 3; ++i)
                group = group << 8 | (i < line.size() ? static_cast<unsigned char>(line[i]) : 0U);
            for (const int shift : {18, 12, 6, 0}) text += character(group >> shift & 63U);
        }
        text += '\n';
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > 60000) return 0;  // larger items become files
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    require(decode(text, by_gateway) == decode(text, by_the_rules));
    ux_InIsUuencodeMarker(text);

    for (const char zero : {' ', '`'}) {
        const Decoded decoded = decode(encode(text, zero) + "`\nend\n.\n", by_gateway);
        require(decoded.bytes == text && !decoded.end && !decoded.cut_off);
        require(decoded.next == (size % 45 == 0 ? "end" : "`"));
    }
    return 0;
}
