// Base64 at the speed of memory: whole runs of characters of the alphabet (RFC 4648, section 4), nothing else among
// them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

// The value of each character; kBase64Skip for those of no meaning, kBase64Pad for "=".
inline constexpr std::uint8_t kBase64Skip = 0xFF;
inline constexpr std::uint8_t kBase64Pad = 0xFE;
extern const std::array<std::uint8_t, 256> kBase64Values;

// Decodes `in`, whose length is a multiple of four, into `out`: three bytes for four characters, and up to
// kBase64Slack more bytes are written to. False when a character is not of the alphabet; what was written is void then.
inline constexpr std::size_t kBase64Slack = 16;
bool mim_base64_run(std::string_view in, char* out);
// The same without the wide instructions: for processors that lack them, and for comparison.
bool mim_base64_run_by_table(std::string_view in, char* out);
