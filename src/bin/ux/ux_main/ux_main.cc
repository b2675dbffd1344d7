// The program: its entry table and main.
#include <array>
#include <cstdlib>

#include "cl/cl.h"
#include "ux_in/startup.h"

namespace {

constexpr std::array ProcTable = {
    cl_Process{"unix.in", ux_InMain, ""},
};

}  // namespace

int main(int argc, char** argv) { std::exit(cl_CallProc(ProcTable, argc, argv)); }
