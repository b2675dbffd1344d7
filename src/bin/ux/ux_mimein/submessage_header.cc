// Encapsulated headers of MIME: see submessage_header.h.
#include "ux_mimein/submessage_header.h"

#include "er/er.h"
#include "ux_mimein/mail_input.h"

namespace {

constexpr ux::EncapsulatedHeaderKind kKind{.read = GetMailText,
                                           .originators = true,
                                           .flags_written = true,
                                           .content_fields = true,
                                           .first_line_subject = false};

}  // namespace

ux::EncapsulatedHeader ux_MimInProcessSubMsgHdr(const ux::EncapsulatedHeaderTarget& target) {
    const er_Trace trace("ux_MimInProcessSubMsgHdr");
    try {
        return ux::convert_encapsulated_header(kKind, target);
    } catch (const er_Escape&) {
        if (er_GetLive()) throw;
        return {};
    }
}
