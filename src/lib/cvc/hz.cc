// HZ: see hz.h.
#include "cvc/hz.h"

#include "ccs/ccs.h"

namespace {

char with_high_bit(char c) { return static_cast<char>(c | 0x80); }
char without_high_bit(char c) { return static_cast<char>(c & 0x7F); }

bool is_first(char c) { return c >= 0x21 && c <= 0x77; }
bool is_second(char c) { return c >= 0x21 && c <= 0x7E; }

}  // namespace

bool cvc_HzDecoder::after_tilde(char c, std::string& out) {
    first_ = '\0';
    if (c == '~') {
        out += '~';
        return true;
    }
    if (c == '{') pairs_ = true;
    return c == '{' || c == '\n';
}

bool cvc_HzDecoder::in_pairs(char c, std::string& out) {
    if (first_ == '~') {
        first_ = '\0';
        pairs_ = false;
        return c == '}';
    }
    if (first_ != '\0') {
        if (!is_second(c)) return false;
        out += with_high_bit(first_);
        out += with_high_bit(c);
        first_ = '\0';
        return true;
    }
    if (c == '\n' || c == '\r') {
        pairs_ = false;
        out += c;
        return true;
    }
    first_ = c;
    return c == '~' || is_first(c);
}

bool cvc_HzDecoder::step(char c, std::string& out) {
    if (static_cast<unsigned char>(c) >= 0x80) return false;
    if (pairs_) return in_pairs(c, out);
    if (first_ == '~') return after_tilde(c, out);
    if (c == '~')
        first_ = c;
    else
        out += c;
    return true;
}

bool cvc_HzDecoder::decode(std::string_view input, std::string& out) {
    while (!input.empty()) {
        if (!pairs_ && first_ == '\0') {  // plain text up to the next tilde goes over at once
            const std::string_view plain = input.substr(0, input.find('~'));
            if (!ccs_Is7BitAscii(plain)) return false;
            out += plain;
            input.remove_prefix(plain.size());
            if (input.empty()) break;
        }
        if (!step(input.front(), out)) return false;
        input.remove_prefix(1);
    }
    return true;
}

void cvc_HzEncoder::leave_pairs(std::string& out) {
    if (pairs_) out += "~}";
    pairs_ = false;
}

void cvc_HzEncoder::put_ascii(char c, std::string& out) {
    leave_pairs(out);
    if (c == '~') out += '~';
    out += c;
}

void cvc_HzEncoder::put_pair(char first, char second, std::string& out) {
    if (!pairs_) out += "~{";
    pairs_ = true;
    out += without_high_bit(first);
    out += without_high_bit(second);
}

std::uint64_t cvc_HzEncoder::encode(std::string_view euc, std::string& out) {
    std::uint64_t lost = 0;
    while (!euc.empty()) {
        const std::size_t length = ccs_character_length(ccs_Shape::lead81, euc);
        const std::string_view character = euc.substr(0, length);
        const bool is_pair = length == 2 && static_cast<unsigned char>(character[0]) > 0x80 &&
                             static_cast<unsigned char>(character[1]) > 0x80 &&
                             is_first(without_high_bit(character[0])) && is_second(without_high_bit(character[1]));
        if (is_pair) {
            put_pair(character[0], character[1], out);
        } else if (length == 1 && ccs_Is7BitAscii(character)) {
            put_ascii(character[0], out);
        } else {
            put_ascii('?', out);
            ++lost;
        }
        euc.remove_prefix(length);
    }
    return lost;
}
