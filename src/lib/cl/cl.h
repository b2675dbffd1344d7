// Process launcher: one program may hold several processes; the name it is invoked under chooses.
#pragma once

#include <span>
#include <string_view>

struct cl_Process {
    std::string_view name;
    int (*entry)(int argc, char** argv);
    std::string_view description;
};

// Runs the row whose name is the last component of argv[0]; a table of one row runs whatever it is called. An unknown
// name is said on standard error and gives 1.
int cl_CallProc(std::span<const cl_Process> table, int argc, char** argv);
