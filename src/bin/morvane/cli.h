// The command line: which command, on which home, with which options.
#pragma once

namespace morvane {

// Runs one command. The result is the exit status: 0 done, 1 a failure that was told on standard error (or damage, or a
// refused message), 2 a command line that is not understood.
int run(int argc, char** argv);

}  // namespace morvane
