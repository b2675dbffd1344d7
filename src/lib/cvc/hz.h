// HZ (RFC 1843): GB 2312 in 7-bit text. Decoded to and encoded from EUC-CN (every byte of a pair with the high bit
// set).
//
//   "~{" ... "~}"   pairs of bytes 0x21-0x77, 0x21-0x7E        "~~"   a tilde        "~" LF   nothing
//
// A line end inside "~{" ends it, as if "~}" stood before it: writers that forget "~}" break no more than a line.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Decodes text that comes in pieces cut anywhere.
class cvc_HzDecoder {
public:
    // Appends what `input` means to `out`. False: it is not HZ; nothing more can be decoded.
    bool decode(std::string_view input, std::string& out);
    // At the end of the text. False: it ends inside a pair. A missing "~}" and a trailing "~" are forgiven.
    bool finish() const { return first_ == '\0' || first_ == '~'; }

private:
    bool step(char c, std::string& out);
    bool after_tilde(char c, std::string& out);
    bool in_pairs(char c, std::string& out);

    bool pairs_ = false;
    char first_ = '\0';  // a byte that waits for its second: "~", or the first of a pair
};

// Encodes EUC-CN text that comes in pieces of whole characters.
class cvc_HzEncoder {
public:
    // Characters that GB 2312 does not have become "?". Returns how many there were.
    std::uint64_t encode(std::string_view euc, std::string& out);
    void finish(std::string& out) { leave_pairs(out); }  // ends "~{"

private:
    void leave_pairs(std::string& out);
    void put_ascii(char c, std::string& out);
    void put_pair(char first, char second, std::string& out);

    bool pairs_ = false;
};
