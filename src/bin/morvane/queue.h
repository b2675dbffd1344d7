// `morvane queue`: what waits for the router, and what a consumer does with it by hand.
#pragma once

#include <string>

#include "morvane/printer.h"

namespace morvane {

struct QueueOptions {
    std::string queue;
    std::string entry;  // a name, or what one name alone begins or ends with; take: empty is the next in service
    std::string to;     // export: the folder
    bool json = false;
};
int queue_list(const QueueOptions& options, Printer& out, const Screen& screen);
int queue_take(const QueueOptions& options, Printer& out, const Screen& screen);  // moves it to cur/
int queue_done(const QueueOptions& options, Printer& out,
               const Screen& screen);  // deletes a taken entry and its messages
int queue_remove(const QueueOptions& options, Printer& out, const Screen& screen);  // the same for one that waits
// Copies the entry, its message files and every file of theirs into a folder, where `morvane show` reads them.
int queue_export(const QueueOptions& options, Printer& out, const Screen& screen);

}  // namespace morvane
