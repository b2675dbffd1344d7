// Process-wide values of the MIME converter: see mime_part.h.
#include "ux_mimein/mail_input.h"
#include "ux_mimein/mime_part.h"

ux_MimeState& ux_mime_state() {
    static ux_MimeState state;
    return state;
}

// What a message before left must not decide over this one; that calendars are only stored from now on is of the
// process.
void ux_begin_mime_message() {
    ux_MimeState& state = ux_mime_state();
    const bool calendars_are_stored = state.IcalNowAttachment;
    state = ux_MimeState{};
    state.IcalNowAttachment = calendars_are_stored;
    ux_begin_mime_input();
}

void ux_reset_mime_state() { ux_mime_state() = ux_MimeState{}; }
