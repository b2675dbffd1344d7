// UTF-8: see utf8.h.
#include "cvc/utf8.h"

#include "ccs/ccs.h"

namespace {

unsigned char byte_at(std::string_view text, std::size_t at) { return static_cast<unsigned char>(text[at]); }

// What may follow a lead byte: the length of the character and the bounds of its second byte. Overlong forms,
// surrogates and codes above U+10FFFF fall out by the bounds.
struct Lead {
    std::size_t length = 0;
    unsigned char low = 0x80, high = 0xBF;
};

Lead lead_of(unsigned char byte) {
    if (byte >= 0xC2 && byte <= 0xDF) return {2};
    if (byte == 0xE0) return {3, 0xA0, 0xBF};
    if (byte == 0xED) return {3, 0x80, 0x9F};
    if (byte >= 0xE1 && byte <= 0xEF) return {3};
    if (byte == 0xF0) return {4, 0x90, 0xBF};
    if (byte >= 0xF1 && byte <= 0xF3) return {4};
    if (byte == 0xF4) return {4, 0x80, 0x8F};
    return {};
}

enum class Verdict { whole, cut, wrong };

Verdict judge(std::string_view rest, const Lead& lead) {
    if (lead.length == 0) return Verdict::wrong;
    for (std::size_t at = 1; at < lead.length; ++at) {
        if (at == rest.size()) return Verdict::cut;
        const unsigned char low = at == 1 ? lead.low : 0x80, high = at == 1 ? lead.high : 0xBF;
        if (byte_at(rest, at) < low || byte_at(rest, at) > high) return Verdict::wrong;
    }
    return Verdict::whole;
}

}  // namespace

Utf8Prefix check_utf8(std::string_view text) {
    std::size_t at = 0;
    for (;;) {
        at += ccs_ascii_prefix(text.substr(at));
        if (at == text.size()) return {at, false};
        while (at < text.size() && byte_at(text, at) >= 0x80) {
            const Lead lead = lead_of(byte_at(text, at));
            const Verdict verdict = judge(text.substr(at), lead);
            if (verdict != Verdict::whole) return {at, verdict == Verdict::cut};
            at += lead.length;
        }
    }
}

Utf8Character first_character(std::string_view valid_text) {
    const unsigned char lead = byte_at(valid_text, 0);
    if (lead < 0x80) return {lead, 1};
    const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    char32_t code = lead & (0x7Fu >> length);
    for (std::size_t at = 1; at < length; ++at) code = code << 6 | (byte_at(valid_text, at) & 0x3Fu);
    return {code, length};
}

void append_utf8(std::string& out, char32_t code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
        return;
    }
    if (code < 0x800) {
        out += static_cast<char>(0xC0 | code >> 6);
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | code >> 12);
        out += static_cast<char>(0x80 | (code >> 6 & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | code >> 18);
        out += static_cast<char>(0x80 | (code >> 12 & 0x3F));
        out += static_cast<char>(0x80 | (code >> 6 & 0x3F));
    }
    out += static_cast<char>(0x80 | (code & 0x3F));
}
