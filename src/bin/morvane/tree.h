// A tree drawn line by line: every node says how deep it stands and whether it is the last there.
//
//   root
//   ├─ label   text
//   │     a note
//   └─ label   text
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/printer.h"

namespace morvane {

// Deeper nodes stand at this depth with their number, so that the cost of a line stays bounded.
inline constexpr std::size_t kDeepestRail = 24;

class Tree {
public:
    Tree(Printer& out, const Screen& screen) : out_(out), screen_(screen) {}

    void root(std::string_view text) { out_ << text << '\n'; }
    // `parent`: nodes that stand in this one follow. Depth 0 is directly below the root.
    void node(std::size_t depth, bool last, bool parent, Ink ink, std::string_view label, std::string_view text);
    // A line below the node drawn last.
    void note(std::string_view text);

private:
    void rails(std::size_t depth);

    Printer& out_;
    const Screen& screen_;
    std::vector<bool> more_;  // does something follow at this depth?
    bool parent_ = false;
};

}  // namespace morvane
