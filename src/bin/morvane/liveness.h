// Does the process that made an item still live? Its id is in the item's id; while it lives, a process that has made items
// holds a read lock on byte 2^32 + process id of ~/sys/config (im/im.h), which is seen from every container that shares
// the home.
#pragma once

#include <cstdint>
#include <unordered_map>

#include "os/os.h"

namespace morvane {

class Liveness {
public:
    Liveness();  // opens ~/sys/config; without it, or without locks on its file system, /proc alone decides
    // In doubt a process lives: what it left is then left alone, and reclaimed another day.
    bool lives(std::uint32_t process);

private:
    bool probe(std::uint32_t process) const;

    os_Fd config_;
    std::unordered_map<std::uint32_t, bool> known_;  // an answer holds for the whole check
};

}  // namespace morvane
