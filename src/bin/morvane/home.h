// The home the tool works on, and the files of its own installation.
#pragma once

#include <string>

namespace morvane {

struct HomeChoice {
    std::string home;    // --home
    std::string system;  // -s
};
// Selects the home: --home, else -s, else as every program does (gcl.h). A Failure for an unknown system, after the
// known ones have been told.
void choose_home(const HomeChoice& choice);
// A Failure unless a home was laid down there.
void require_home();

// The folder that holds gateway.toml, mimetypes.toml and the catalogs: near the program, or where it was installed.
std::string find_share();
// The gateway's program: beside this one, or where it was installed.
std::string find_gateway();

}  // namespace morvane
