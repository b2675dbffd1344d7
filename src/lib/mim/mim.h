// Small rules of header text.
#pragma once

#include <string>
#include <string_view>

// The text without the blanks, tabs and line ends (any of codes 9 to 13 and 32) at both ends, or at its end only.
std::string_view mim_SpaceTrimming(std::string_view text);
std::string_view mim_trim_trailing_space(std::string_view text);

// The text without the one pair of double quotes that surrounds it; other text stays as it is.
std::string_view mim_RemoveQuotes(std::string_view text);

// Decodes xtext (RFC 3461, section 4): "+" and two hexadecimal digits, in any case, stand for one byte. Whatever else
// stands there stays. A byte 0 ends the result.
std::string mim_DecodeXtextString(std::string_view text);
