// Reading MIME text: the state of its input.
#pragma once

// Process-wide values of MIME input.
struct ux_MimeInputState {
    // The alternative steering files have been looked for, or an encoded subject came first: then they never are, and
    // the steering that was loaded at start-up stays alone for the life of the process.
    bool GotMimeSteering = false;
};

inline ux_MimeInputState& ux_mime_input() {
    static ux_MimeInputState state;
    return state;
}

inline void ux_reset_mime_input() { ux_mime_input() = ux_MimeInputState{}; }  // for tests
