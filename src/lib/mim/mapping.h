// Name mapping: which directory turns Internet addresses into native names, and whether a name comes back to us.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// The directory session of a process and its mapping directory. Handles are 0 where there is none.
struct mim_Mapping {
    std::int16_t DirHandle = 0;     // directory session
    bool MapConfigOn = false;       // name mapping is configured
    std::string MapDirName;         // the mapping directory, at most 64 bytes
    std::int16_t MapDirHandle = 0;  // open while mapping is on
    std::string MapAttribId;        // the attribute that holds the Internet address, at most 20 bytes
};

// Reads the mapping from configuration key `key`, "<directory>:<attribute>", into `mapping` and opens the directory in
// its session. The result is whether mapping is on; it is off without a session, when the key is not set, and, with a
// warning (100/24071, level 5), when its value is not of that form. A directory that does not exist maps nothing.
// Raises what the configuration raises.
bool mim_ChkMappingConfig(std::string_view key, mim_Mapping& mapping);

// Closes the mapping directory (0: nothing) and gives the new handle, 0.
std::int16_t mim_CloseMapDir(std::int16_t MapDirHandle, std::int16_t DirHandle);

// Does a native name route back to this gateway? It does exactly when it has DD.RFC-822.
bool mim_RoutableToUnix(std::string_view pORN);
