// `morvane convert`: mail files through the gateway.
#pragma once

#include <string>
#include <vector>

#include "morvane/printer.h"

namespace morvane {

struct ConvertOptions {
    std::vector<std::string> files;
    std::string from;             // empty: after the message; "<>" the null sender
    std::vector<std::string> to;  // empty: after the message
    unsigned jobs = 1;
    std::string system;   // -s, passed on to the gateway
    std::string gateway;  // its program; empty: the one installed with this
};
// Tells each refusal with its reply, then a summary. The exit status is 1 when a message was refused.
int convert(const ConvertOptions& options, Printer& out, const Screen& screen);

}  // namespace morvane
