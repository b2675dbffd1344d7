// Process launcher: see cl.h.
#include "cl/cl.h"

#include <cstdio>

int cl_CallProc(std::span<const cl_Process> table, int argc, char** argv) {
    std::string_view name = argc > 0 && argv[0] != nullptr ? argv[0] : "";
    name = name.substr(name.rfind('/') + 1);  // npos + 1 is 0: no slash, the whole name
    for (const cl_Process& process : table)
        if (process.name == name) return process.entry(argc, argv);
    if (table.size() == 1) return table.front().entry(argc, argv);
    std::fprintf(stderr, "%.*s: no such process\n", static_cast<int>(name.size()), name.data());
    return 1;
}
