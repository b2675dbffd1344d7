// `morvane show`: a message, or any record file, as a tree, as JSON or as an annotated dump.
#pragma once

#include <string>

#include "morvane/printer.h"
#include "morvane/record_file.h"
#include "morvane/store.h"

namespace morvane {

enum class Form : std::uint8_t { tree, json, hex };

struct ShowOptions {
    Form form = Form::tree;
    bool all = false;  // also the hundredth recipient, and all of an object's bytes
    std::string queue = std::string(kRouterQueue);
    std::string what;  // ID or FILE, empty: queued last
};

// The exit status: 1 when something of what is shown is damaged (the damage is told where it stands, and the first of
// it on standard error).
int show(const ShowOptions& options, Printer& out, const Screen& screen);

// What the three forms have in common: what they show, and the damage they met.
struct ShowContext {
    Printer& out;
    const Screen& screen;
    bool all = false;
    std::string damage;  // the first that was met

    void note_damage(const std::string& text) {
        if (damage.empty()) damage = text;
    }
};
void show_tree(ShowContext& context, const Subject& subject);
void show_json(ShowContext& context, const Subject& subject);
void show_hex(ShowContext& context, const Subject& subject);

// One record file by itself.
void show_tree(ShowContext& context, ByteFile& file);
void show_json(ShowContext& context, ByteFile& file);
void show_hex(ShowContext& context, ByteFile& file);

}  // namespace morvane
