// Detection of the character set of text.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

class im_Item;  // im/im.h

inline constexpr std::size_t kDetectedNameLimit = 39;  // characters of a detected set's name

// The set of `pData`, at most `cLen` characters of its name; nothing when there is no data or no set was recognised. A
// sample of less than 64 bytes is repeated until it has 64: the detector is unreliable below that.
std::optional<std::string> ux_InAutodetectCharset(std::string_view pData, std::size_t cLen = kDetectedNameLimit);

// The same for the first `Limit` bytes of an item (all of it when that is below 1), which is read in blocks.
std::optional<std::string> ux_InAutodetectCharset(const im_Item& item, int Limit);
