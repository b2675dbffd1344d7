// `morvane item cat`: the bytes of one file of the store.
#pragma once

#include <string>

#include "morvane/printer.h"

namespace morvane {

struct ItemOptions {
    std::string queue;
    std::string what;  // file id, path, or MESSAGE#k: its k-th attached file, 0 for its main transfer file
    bool raw = false;  // to a terminal, too, as they are
};
int cat_item(const ItemOptions& options, int fd, const Screen& screen);

}  // namespace morvane
