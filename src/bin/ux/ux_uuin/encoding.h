// The value of an "Encoding" field (RFC 1154, section 3): what the parts of a body are, in order.
//
//   list    = entry *( "," entry )
//   entry   = [ count blank ] method *any
//   count   = digits                 lines of the part; without it the part runs to the end of the message
//   method  = letter *79(any)        in any case of its letters; ends at a blank, a comma or a comment
//   comment = "(" *( any / comment ) ")"    anywhere; what stands behind the method is not looked at
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

enum ux_EncodingMethod : std::int16_t {
    kMethodHex = 1,       // a word that begins "hex"
    kMethodText = 2,      // every other word
    kMethodUuencode = 3,  // a word with "uuencode" in it
    kMethodMessage = 4,   // "message"
};

inline constexpr std::int32_t kToTheEnd = -1;  // no count
inline constexpr std::size_t kMethodLimit = 79;

struct ux_EncodingEntry {
    std::int32_t pNumLines = kToTheEnd;  // a count too large to be held is the largest number
    std::int16_t pMethod = kMethodText;
    std::string_view next;  // what follows the entry and its comma
};

// The first entry of a list; nothing when there is none or it is malformed: a count without a blank behind it, a method
// that begins with no letter or is 80 characters or more, comments that do not pair.
std::optional<ux_EncodingEntry> ux_InParseEncodingStr(std::string_view pInStr);

// The text from its first character outside blanks and comments; nothing when there is none, or when a comment is
// closed that was never opened (logged, 1530).
std::optional<std::string_view> ux_InStripBlankAndComment(std::string_view pInStr);

// The text from its next "," outside comments, empty when there is none; nothing when comments do not pair.
std::optional<std::string_view> ux_InSkipToComma(std::string_view pInStr);
