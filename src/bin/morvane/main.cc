// The operator's tool.
#include "morvane/cli.h"

int main(int argc, char** argv) { return morvane::run(argc, argv); }
