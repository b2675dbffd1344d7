// The part-information list: the value of "x-ploxen-PartInfo", by which a sending gateway states the native file code
// and the character set of each body part, in order of appearance (text parts and uuencoded items alike).
//
//   list   = entry *( "," entry )
//   entry  = *word                                    words are separated by white space
//   word   = "fc=" digits [ *any "." charset ]        other words say nothing; the last "fc=" word holds
//   (text) anywhere in the list is a comment, up to the next ")"; comments do not nest
//
// The same buffer collects the value of "Encoding" of an RFC 1154 message and of a MIME message's
// "Content-Transfer-Encoding".
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Bound of a collected list: more than any header states, little enough to hold. What is appended beyond is dropped.
inline constexpr std::size_t kEncodingListLimit = 1 << 20;
inline constexpr std::size_t kPartCharsetLimit = 14;

// Process-wide: the list of the message in hand, and the copy, without comments, that its entries are taken from.
struct ux_PartInfoState {
    std::string pEncodingList;
    std::string pSavedArg;
    std::size_t pSavedNextPartPtr = std::string::npos;  // of the next unread entry in pSavedArg; npos: used up
};
ux_PartInfoState& ux_part_info();
void ux_reset_part_info();

// Appends pArgument as it stands to the list, which is emptied first when Reset; returns the list, good until
// the next call.
const std::string& ux_InAppendEncodingInfo(std::string_view pArgument, bool Reset);

struct ux_PartInfo {
    bool listed = false;        // the list has a place for this part,
    bool found = false;         // and an entry there
    std::string Keyword;        // always empty; entries of other kinds of list have one
    std::int16_t Filecode = 0;  // 0 to 9999
    std::string CharSet;        // at most 14 characters
    bool DoConv = true;         // text of the part is converted line by line,
    std::string ToTextCS;       // into this set
};

// The entry for the next part: of a new list pArg, or, without one, of the list loaded last. An empty entry between
// commas keeps its place and says nothing. An entry without a usable "fc=" word is found, with file code 0, and logged
// at level 5. Without an entry the conversion settings are those of plain text.
ux_PartInfo ux_InGetNextPartInfo(std::optional<std::string_view> pArg);
