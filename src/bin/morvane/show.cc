// `morvane show`: see show.h.
#include "morvane/show.h"

#include <cstdio>

#include "morvane/failure.h"

namespace morvane {

int show(const ShowOptions& options, Printer& out, const Screen& screen) {
    const Subject subject = find_subject(options.queue, options.what);
    ShowContext context{out, screen, options.all, {}};
    switch (options.form) {
        case Form::tree: show_tree(context, subject); break;
        case Form::json: show_json(context, subject); break;
        case Form::hex: show_hex(context, subject); break;
    }
    out.flush();
    if (!context.damage.empty()) throw Failure(context.damage);
    return 0;
}

}  // namespace morvane
