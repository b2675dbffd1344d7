// Process-wide values of the MIME converter: see mime_part.h.
#include "ux_mimein/mail_input.h"
#include "ux_mimein/mime_part.h"

ux_MimeState& ux_mime_state() {
    static ux_MimeState state;
    return state;
}

bool ux_IncrementNesting() { return ++ux_mime_state().nestLevel == 1; }
bool ux_DecrementNesting() { return --ux_mime_state().nestLevel == 1; }

// What a message before left must not decide over this one; some values are the process's.
void ux_begin_mime_message() {
    ux_MimeState& state = ux_mime_state();
    ux_MimeState fresh;
    fresh.IcalNowAttachment = state.IcalNowAttachment;
    fresh.smime_v2 = state.smime_v2;
    state = fresh;
    ux_begin_mime_input();
}

void ux_reset_mime_state() { ux_mime_state() = ux_MimeState{}; }

void ux_MimeConversion::moved(std::int64_t position, std::int64_t bytes) {
    std::int64_t& alternative = ux_mime_state().icalPartAlternativePos;
    if (alternative >= position) alternative += bytes;
    hidden.moved(position, bytes);
    moved_back += bytes;
}
