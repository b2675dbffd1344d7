// Transfer decodings: any body at all decodes to what a plain reading of the rules makes of it as one text, and so it
// does when its lines are cut anywhere and when they go in blocks. What an encoder wrote comes back byte for byte.
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>

#include "../unit/support/decoding.h"
#include "mim/decode.h"

namespace {

constexpr std::size_t kLongest = 3000;  // uuencoded lines can grow much: larger items become files

void must(bool holds) {
    if (!holds) std::abort();
}

void check(const decoding::Job& job, std::string_view body, std::uint32_t seed) {
    std::mt19937 random(seed);
    const std::string expected = decoding::plainly(job, body);
    must(decoding::whole(job, body) == expected);
    must(decoding::cut_at(job, body, random() % 100) == expected);
    const std::size_t longest = random() % 80 + 2;
    must(decoding::in_pieces(job, body, [&] { return random() % longest; }) == expected);
    must(decoding::in_blocks(job, body, body.size() + 1) == expected);
    must(decoding::in_blocks(job, body, random() % 300 + 1) == expected);
}

std::string in_base64(std::string_view bytes, std::size_t line_length) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    std::size_t in_line = 0;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        unsigned group = 0;
        for (std::size_t i = at; i < at + 3; ++i)
            group = group << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
        for (std::size_t i = 0; i < 4; ++i) {
            text += at + i <= bytes.size() ? digits[group >> (18 - 6 * i) & 63] : '=';
            if (++in_line % line_length == 0) text += "\r\n";
        }
    }
    return text + "\r\n";
}

std::string in_quoted_printable(std::string_view bytes, std::size_t line_length) {
    constexpr std::string_view hex = "0123456789ABCDEF";
    std::string text;
    std::size_t in_line = 0;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = byte > 0x20 && byte < 0x7F && c != '=';
        text += plain ? std::string(1, c) : std::string{'=', hex[byte >> 4], hex[byte & 15]};
        if (++in_line % line_length == 0) text += "=\r\n";
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2 || size > kLongest) return 0;
    const std::string_view body(reinterpret_cast<const char*>(data) + 2, size - 2);
    const auto encoding = static_cast<mim_TransferEncoding>(data[0] & 3);
    check({encoding, (data[0] & 4) != 0, (data[0] & 8) != 0}, body, data[1]);

    const std::size_t line_length = data[1] % 80 + 1U;
    must(decoding::in_blocks({mim_TransferEncoding::base64}, in_base64(body, line_length), 1 << 12) == body);
    const decoding::Job quoted{mim_TransferEncoding::quoted_printable};
    must(decoding::in_blocks(quoted, in_quoted_printable(body, line_length), 1 << 12) == body);
    mim_transfer_encoding(body);
    return 0;
}
