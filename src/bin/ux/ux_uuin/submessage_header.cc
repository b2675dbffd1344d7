// Encapsulated headers of RFC 1154: see submessage_header.h.
#include "ux_uuin/submessage_header.h"

#include "er/er.h"
#include "ux_in/lines.h"

namespace {

constexpr ux::EncapsulatedHeaderKind kKind{.read = ux_InReadMailText,
                                           .originators = false,
                                           .flags_written = false,
                                           .content_fields = false,
                                           .first_line_subject = true};

}  // namespace

ux::EncapsulatedHeader ux_UUInProcessSubMsgHdr(const ux::EncapsulatedHeaderTarget& target) {
    const er_Trace trace("ux_UUInProcessSubMsgHdr");
    return ux::convert_encapsulated_header(kKind, target);
}
