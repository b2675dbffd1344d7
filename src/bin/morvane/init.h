// `morvane init`: lays down the home of a mail system.
#pragma once

#include <string>

#include "morvane/printer.h"

namespace morvane {

struct InitOptions {
    std::string delimiter;  // empty: "/"
};
// Makes what is missing and never writes over what is there. Raises a Failure for a delimiter that cannot be one, or
// that differs from the one that the home has already.
int init(const InitOptions& options, Printer& out, const Screen& screen);

}  // namespace morvane
