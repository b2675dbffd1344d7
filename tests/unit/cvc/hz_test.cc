// HZ: decoding and encoding in pieces.
#include "cvc/hz.h"

#include <optional>
#include <string>

#include <gtest/gtest.h>

namespace {

struct DecodeRow {
    std::string_view hz;
    std::optional<std::string_view> euc;  // nothing: it is not HZ
    const char* why;
};

constexpr DecodeRow kDecodeRows[] = {
    {"", "", "nothing"},
    {"plain text\n", "plain text\n", "no escapes"},
    {"~~", "~", "a tilde"},
    {"a~\nb", "ab", "a soft line end"},
    {"a~", "a", "a soft line end whose line feed is elsewhere"},
    {"~{!!w~~}", "\xa1\xa1\xf7\xfe", "the corners of the table"},
    {"~{~}", "", "no pairs"},
    {"~{VP~}~{ND~}", "\xd6\xd0\xce\xc4", "closed and opened"},
    {"~{VP\r\nx", "\xd6\xd0\r\nx", "a line end closes"},
    {"~{VPND", "\xd6\xd0\xce\xc4", "not closed"},
    {"~{VPN", std::nullopt, "ends inside a pair"},
    {"~{x!~}", std::nullopt, "no such row"},
    {"~{ !~}", std::nullopt, "a blank is no first byte"},
    {"~{V ~}", std::nullopt, "nor a second"},
    {"~{V\n~}", std::nullopt, "a line end inside a pair"},
    {"~{~{", std::nullopt, "opened twice"},
    {"~}", std::nullopt, "closed without being open"},
    {"~user", std::nullopt, "no such escape"},
    {"caf\xe9", std::nullopt, "an 8-bit byte"},
    {"~{V\xd0~}", std::nullopt, "an 8-bit byte inside a pair"},
};

std::optional<std::string> decode(std::string_view hz, std::size_t cut) {
    cvc_HzDecoder decoder;
    std::string out;
    const bool good = decoder.decode(hz.substr(0, cut), out) && decoder.decode(hz.substr(cut), out) && decoder.finish();
    return good ? std::optional(out) : std::nullopt;
}

TEST(HzDecoder, TextCutAnywhere) {
    for (const DecodeRow& row : kDecodeRows)
        for (std::size_t cut = 0; cut <= row.hz.size(); ++cut)
            EXPECT_EQ(decode(row.hz, cut), row.euc) << row.why << ", cut at " << cut;
}

struct EncodeRow {
    std::string_view euc, hz;
    std::uint64_t lost;
    const char* why;
};

constexpr EncodeRow kEncodeRows[] = {
    {"", "", 0, "nothing"},
    {"a~b\n", "a~~b\n", 0, "tildes"},
    {"\xd6\xd0\xce\xc4", "~{VPND~}", 0, "pairs together"},
    {"\xd6\xd0\n\xce\xc4", "~{VP~}\n~{ND~}", 0, "no line end inside"},
    {"\xa1\xa1\xf7\xfe", "~{!!w~~}", 0, "the corners of the table"},
    {"\xf8\xa1", "?", 1, "a row beyond it"},
    {"\x81\x40", "?", 1, "GBK"},
    {"\xd6\x40", "?", 1, "GBK with a second byte that is ASCII"},
    {"\x80", "?", 1, "a euro sign of its own"},
};

TEST(HzEncoder, WhatItWritesIsReadAgain) {
    for (const EncodeRow& row : kEncodeRows) {
        cvc_HzEncoder encoder;
        std::string out;
        EXPECT_EQ(encoder.encode(row.euc, out), row.lost) << row.why;
        encoder.finish(out);
        EXPECT_EQ(out, row.hz) << row.why;
        EXPECT_TRUE(row.lost != 0 || decode(out, 0) == row.euc) << row.why;
    }
}

TEST(HzEncoder, PairsOfTwoPiecesStayTogether) {
    cvc_HzEncoder encoder;
    std::string out;
    encoder.encode("\xd6\xd0", out);
    encoder.encode("\xce\xc4", out);
    encoder.finish(out);
    EXPECT_EQ(out, "~{VPND~}");
}

}  // namespace
