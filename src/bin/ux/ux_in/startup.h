// Start-up and end of the gateway process: options, identity, services, the handler of last resort.
#pragma once

#include <string_view>

// The whole gateway run; the result is the exit status.
//   -s <system>   the mail system instance to serve; an unknown one gives 1 before anything is answered
//   -a <file>     detect the character set of a file and say it: 0 detected, 1 not, 2 a warning was logged
// A session gives 0, or 1 after a protocol error or a fatal error.
int ux_InMain(int argc, char** argv);

// Is the user listed in "~/sys/unixin.trust" (the first word of a line; "#" begins a comment)? Any failure means no.
bool ux_InTrustedUser(std::string_view pUserName);

// A broken-pipe handler that raises group 1, reason 32. Not installed: SIGPIPE is ignored, a vanished agent is a failed
// write.
void ux_InSigPipeTrap(int dummy);
