// Character sets of text: which set incoming text is taken to be in, into which it is turned, and whether a part is
// converted as a whole file by a converter of the steering file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ccs/ccs.h"
#include "im/im.h"

// Native file type codes that text rules look at.
inline constexpr std::int32_t kPlainText = 1167;
inline constexpr std::int32_t kOtherText = 1736;   // text whose set is expressed by an internal name
inline constexpr std::int32_t kHtmlText = 2133;

struct CharsetInfoStruct {
    bool GotCharsetInfo = false;
    std::string CharsetExtl;     // external name of the target set
    std::string CharsetInT61;    // internal name, selector 1
    std::string CharsetInO61;    // internal name, selector 2
    const ccs_Descriptor* CSDesc = nullptr;
};

// The process-wide settings. Filled by ux_InGetDefaultCharsets, read everywhere.
struct ux_CharsetState {
    std::string FromCharSet;
    std::string ToLatinCS;
    CharsetInfoStruct ToT61CSInfo;
    bool GotInSteering = false;
    std::string Converter;                 // whole-file converter that the last ux_InGetFileConvDetails chose
    char DoCSAutoDetect = 'U';             // "U" until read; then "R", "Y" or "N"
    std::optional<int> Limit;              // UXI_AUTODETECT_SCAN_LIMIT, once read
};
ux_CharsetState& ux_charsets();
void ux_reset_charsets();

void ux_InGetDefaultCharsets();            // fills FromCharSet, ToLatinCS, ToT61CSInfo, GotInSteering
struct ux_TargetCharSets { std::string ToLatinCS; CharsetInfoStruct ToT61CSInfo; };
ux_TargetCharSets ux_InGetTargetCharSets(std::string_view pFromCS);

struct ux_FileConvDetails {
    bool applies = false;                  // a whole-file conversion applies
    std::int32_t OutType = 0;
    std::string OutCharSet;
    bool Trash = false;                    // the part is to be thrown away
};
// pInCharSet is filled with FromCharSet when it is empty and the type is 1167 or 1736.
ux_FileConvDetails ux_InGetFileConvDetails(std::int32_t InType, std::string& pInCharSet, bool DoLog);

struct ux_ContentItem {                    // in and out of ux_InConvertContentItem
    im_Item item;
    std::int32_t FileType = 0;
    std::string CharSet;                   // at most 14 characters
    bool Trash = false;
};
// AsciiFile: the part is known to be 7-bit. The item is replaced when a converter made a new one.
void ux_InConvertContentItem(ux_ContentItem& content, bool AsciiFile);

// The converted line, or nothing when the line is to be written as it stands. With a target of IA5 that cannot
// be reached, 8-bit bytes of `line` are overwritten with "*".
std::optional<std::string_view> ux_InTextCharConverter(std::string& line, std::string_view pFromCharSet, std::string_view pToCharSet, std::string& out);

std::string ux_InBuildSubject(std::string_view pInSubject);
char ux_InAutodetectSetting();
