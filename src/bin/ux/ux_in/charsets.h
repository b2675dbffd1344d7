// Character sets of text: which set incoming text is taken to be in, into which it is turned, and whether a part is
// converted as a whole file by a converter of the steering file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ccs/ccs.h"
#include "im/im.h"

// Native file type codes that text rules look at. Every other code is no text.
inline constexpr std::int32_t kPlainText = 1167;
inline constexpr std::int32_t kOtherText = 1736;  // text whose set is expressed by an internal name
inline constexpr std::int32_t kHtmlText = 2133;

// A target set that is richer than ASCII and Latin-1; there is one when GotCharsetInfo is true.
struct CharsetInfoStruct {
    bool GotCharsetInfo = false;
    std::string CharsetExtl;   // external name of the set
    std::string CharsetInT61;  // internal name, selector 1
    std::string CharsetInO61;  // internal name, selector 2
    const ccs_Descriptor* CSDesc = nullptr;
};

// The process-wide settings. Names of sets are at most 14 characters. Filled by ux_InGetDefaultCharsets, read
// everywhere.
struct ux_CharsetState {
    std::string FromCharSet;        // the set in which unlabelled text is taken to be
    std::string ToLatinCS;          // the Latin target: ISO8859_1 or IA5
    CharsetInfoStruct ToT61CSInfo;  // the rich target
    bool GotInSteering = false;     // the steering file is asked about whole-file conversions
    std::string Converter;          // whole-file converter that the last ux_InGetFileConvDetails chose
    char DoCSAutoDetect = 'U';      // "U" until read; then "R", "Y" or "N"
    std::optional<int> Limit;       // UXI_AUTODETECT_SCAN_LIMIT, once read
};
ux_CharsetState& ux_charsets();
void ux_reset_charsets();  // for tests

namespace ux {

// Is a native file type code text: plain (1167, 1736) or HTML (2133)?
bool is_text_code(std::int32_t code);
// Bytes of a part that detection looks at (UXI_AUTODETECT_SCAN_LIMIT, read once); below 1: all of it.
int scan_limit();
// Logs a detected set of `what` ("body", "subject") and the one that it was taken to be in. `valid`: it can be read.
void log_detected(bool valid, std::string_view what, std::string_view name, std::string_view current);

}  // namespace ux

// Loads the steering file and fills FromCharSet, ToLatinCS, ToT61CSInfo and GotInSteering, at the start of a session.
// Raises the converter service's group and reason when a steering file is there and cannot be used.
void ux_InGetDefaultCharsets();

// The targets for text in the set pFromCS.
struct ux_TargetCharSets {
    std::string ToLatinCS;
    CharsetInfoStruct ToT61CSInfo;
};
ux_TargetCharSets ux_InGetTargetCharSets(std::string_view pFromCS);

struct ux_FileConvDetails {
    bool applies = false;  // a whole-file conversion applies; if not, lines are converted to OutCharSet
    std::int32_t OutType = 0;
    std::string OutCharSet;
    bool Trash = false;  // the part is to be thrown away
};
// What a part of a type and set is converted to; the converter's name is left in ux_charsets().Converter. pInCharSet is
// filled with FromCharSet when it is empty and the type is 1167 or 1736. With DoLog a change of set is logged (1526).
ux_FileConvDetails ux_InGetFileConvDetails(std::int32_t InType, std::string& pInCharSet, bool DoLog);

struct ux_ContentItem {  // in and out of ux_InConvertContentItem
    im_Item item;
    std::int32_t FileType = 0;
    std::string CharSet;  // at most 14 characters
    bool Trash = false;
};
// Converts one finished body part: finds out the set of text that is not labelled or whose label is not trusted, runs
// the whole-file converter that applies, and leaves the resulting type and set in `content`. AsciiFile: the part is
// known to be 7-bit. The item is replaced when a converter made a new one. Trash: the caller is to throw the part away.
// Raises what the item store raises; a converter that fails is no error, the part is then kept as it is, as plain text.
void ux_InConvertContentItem(ux_ContentItem& content, bool AsciiFile);

// The converted line (a view into `out`), or nothing when the line is to be written as it stands: in IA5, in the target
// set already, or not convertible. With a target of IA5 that cannot be reached, 8-bit bytes of `line` are overwritten
// with "*".
std::optional<std::string_view> ux_InTextCharConverter(std::string& line, std::string_view pFromCharSet,
                                                       std::string_view pToCharSet, std::string& out);

// The RFC 2047 form of a subject that is not encoded, taken to be in FromCharSet. An empty subject stays empty.
std::string ux_InBuildSubject(std::string_view pInSubject);

// Is the set of text detected? "R" always, "Y" when it has no label or one that means little, "N" never. The key
// UXI_MIME_CS_AUTODETECT: true "R", false "N", any other value "Y", absent "R".
char ux_InAutodetectSetting();
