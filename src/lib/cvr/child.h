// A converter as a child process: reads an item, writes an item, and has a limit to its time.
#pragma once

#include <chrono>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class im_Item;  // im/im.h

struct ChildCommand {
    std::span<const std::string>
        command;  // program (searched in /usr/local/bin, /usr/bin, /bin when it has no slash), arguments
    std::chrono::milliseconds timeout;
    std::vector<std::pair<std::string, std::string>> environment;  // beside PATH and LANG
};

struct ChildResult {
    enum class End { exited, failed, not_run } end = End::exited;  // exited: with status 0
    int reason = 0;    // errno when it could not be run, else the exit status, or 128 and the signal
    std::string text;  // what it said on standard error (its first kilobyte), or what was wrong
};

// Runs a program on `in`, its standard output appended to `out`. No shell; default signals, nothing blocked; a process
// group of its own, which is killed when the time is over and when the program has ended; no descriptor but 0, 1 and 2.
// Raises only what writing `out` raises (the child is gone then).
ChildResult run_child(const ChildCommand& command, im_Item& in, im_Item& out);
