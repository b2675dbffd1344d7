// Multiparts (RFC 2046, section 5.1): boundaries, packages and alternative groups. A multipart is a frame on the entity
// dispatcher's stack: it hands out its body parts one by one and is asked again when the one before is done.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tf/record.h"
#include "ux_mimein/mime_frame.h"
#include "ux_mimein/mime_part.h"

// What a multipart's parameters say; a parameter that is not there has none.
struct ux_MultipartParameters {
    std::optional<std::string> pszBoundary;
    std::optional<std::string> pszName;
    std::optional<std::string> pszReportType;
};
// Takes BOUNDARY, NAME and report-type out of the text after the first ";". A name runs to the next "=" (over a ";"
// too) and a value to the next ";", neither is empty: "=" before a name and ";" before a value are passed over. A value
// loses one leading double quote and what begins with the next one. The last of several holds.
ux_MultipartParameters ux_InParseMPParams(std::string_view pszParams);

// What a multipart's subtype makes of it.
struct ux_MultipartKind {
    bool bStartGrp = false;     // an alternative group
    bool bAlternative = false;  // superseded alternatives are hidden
    bool bParallel = false;     // the package is marked parallel
    bool bSigned = false;
    bool bStartPkg = false;  // a package
    bool bReport = false;
    std::int32_t PackageFlags = 0;
};
// smime_v2 (the key SMIME_V2) is read with the first multipart/signed of the process.
ux_MultipartKind ux_InParseMPSubtype(std::string_view pszContentSubType, bool bInImmediateMsg);

// Empty records around an alternative group.
void ux_GenerateStartAltGroup(tf_Record& TfRecord);
void ux_GenerateAltGroup(tf_Record& TfRecord);

// A multipart. `part` and `conversion` outlive the frame; pszParameters: the text after the first ";" of the content
// type, none when there is no ";". Raises 102/1428 for a boundary that is the enclosing multipart's too, unless
// UXI_CHECK_UNIQUE_BOUNDARY is false.
std::unique_ptr<ux_MimeFrame> ux_InParseMimeMultiPart(ux_MimeConversion& conversion, ux_MimePart& part,
                                                      std::string_view pszContentSubType,
                                                      std::optional<std::string_view> pszParameters);
