// `morvane fsck`: is the home whole? Every queue entry leads to its messages, every message to its files, every record
// file parses, content-file records and attached files match in number, order and size, and no file is claimed twice. A
// file that no entry leads to is a leaving: reclaimable when the process that made it is gone, its own business while
// it lives.
//
// It may run while gateways and consumers work. The store is listed first, then who lives, then the queues: what a
// process that was dead by then had queued is seen in them, and what was queued later than the list cannot be missed by
// it.
#pragma once

#include <cstdint>
#include <string>

#include "morvane/printer.h"

namespace morvane {

struct FsckOptions {
    bool repair = false;   // deletes what is reclaimable; touches nothing else
    bool verbose = false;  // names every reclaimable file
};

struct FsckResult {
    std::uint64_t entries = 0, messages = 0, files = 0;  // that were checked
    std::uint64_t damage = 0;
    std::uint64_t reclaimable = 0, reclaimable_bytes = 0, reclaimed = 0;
    std::uint64_t living = 0;   // files of processes at work
    std::uint64_t unclear = 0;  // files that nothing leads to while damage hides what leads where
    std::uint64_t foreign = 0;  // files that are none of the store's
};

// Tells the damage line by line, the leavings and a summary. Cost is linear in the files of the home, memory 16 bytes
// for each of them.
FsckResult check_home(const FsckOptions& options, Printer& out, const Screen& screen);
int fsck(const FsckOptions& options, Printer& out, const Screen& screen);  // 1 when there is damage

}  // namespace morvane
