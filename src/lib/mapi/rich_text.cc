// Rich text from plain text: see rich_text.h.
#include "mapi/rich_text.h"

#include <algorithm>
#include <cstdint>

#include "er/er.h"
#include "os/os.h"

namespace {

constexpr std::string_view kHead =
    "{\\rtf1\\ansi\\ansicpg1252\\deff0{\\fonttbl{\\f0\\fswiss\\fcharset0 Arial;}}\r\n"
    "\\uc1\\pard\\plain\\f0\\fs20 ";
constexpr std::string_view kParagraph = "\\par\r\n";
constexpr int kMostAttachments = 10'000;

// The character that well-formed UTF-8 of `length` bytes stands for.
std::uint32_t character(std::string_view bytes, std::size_t length) {
    const auto at = [bytes](std::size_t i) { return static_cast<std::uint32_t>(static_cast<unsigned char>(bytes[i])); };
    if (length == 1) return at(0);
    std::uint32_t code = at(0) & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) code = code << 6 | (at(i) & 0x3F);
    return code;
}

void append_unit(std::string& out, std::uint32_t unit) {
    out.append("\\u").append(std::to_string(static_cast<std::int16_t>(unit))).append("?");
}

void append_character(std::string& out, std::uint32_t code) {
    if (code == '\\' || code == '{' || code == '}') out += '\\';
    if (code == '\t') {
        out.append("\\tab ");
    } else if (code >= 0x20 && code < 0x7F) {
        out += static_cast<char>(code);
    } else if (code >= 0x10000) {
        append_unit(out, 0xD800 + ((code - 0x10000) >> 10));
        append_unit(out, 0xDC00 + ((code - 0x10000) & 0x3FF));
    } else if (code >= 0xA0) {
        append_unit(out, code);
    }
}

}  // namespace

std::string mapi_makeRtfFromUtf8Description(std::string_view utf8Description, int attachCount) {
    std::string out(kHead);
    for (std::string_view rest = utf8Description; !rest.empty();) {
        const std::size_t length = er_utf8_length(rest);
        if (length == 0)
            append_unit(out, 0xFFFD);
        else if (rest.front() == '\n')
            out.append(kParagraph);
        else
            append_character(out, character(rest, length));
        rest.remove_prefix(std::max<std::size_t>(length, 1));
    }
    if (!out.ends_with('\n')) out.append(kParagraph);
    for (int i = 0; i < std::min(attachCount, kMostAttachments); ++i) out.append("\\objattph ").append(kParagraph);
    return out.append("}\r\n");
}

std::string mapi_makeRtfFromUtf8Desc_dstring(std::string_view utf8Description, int attachCount) {
    return mapi_makeRtfFromUtf8Description(utf8Description, attachCount);
}

std::optional<std::string> mapi_FileToString(std::string_view path) {
    try {
        return os_read_file(path, kLargestTextFile);
    } catch (const er_Escape&) {
        er_Accept(5);
        return std::nullopt;
    }
}
