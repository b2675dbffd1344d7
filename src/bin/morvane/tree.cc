// Drawing trees: see tree.h.
#include "morvane/tree.h"

#include <algorithm>

namespace morvane {
namespace {
constexpr std::size_t kLabelWidth = 16;
}

void Tree::rails(std::size_t depth) {
    std::string text;
    for (std::size_t i = 0; i < std::min(depth, kDeepestRail); ++i) {
        if (!more_[i]) {
            text += "   ";
        } else {
            text += screen_.utf8 ? "│  " : "|  ";
        }
    }
    if (depth > kDeepestRail) text += "[" + std::to_string(depth) + "] ";
    out_ << screen_.paint(Ink::faint, text);
}

void Tree::node(std::size_t depth, bool last, bool parent, Ink ink, std::string_view label, std::string_view text) {
    more_.resize(depth + 1);
    more_[depth] = !last;
    parent_ = parent;
    rails(depth);
    const std::string_view branch = screen_.utf8 ? (last ? "└─ " : "├─ ") : (last ? "`- " : "|- ");
    out_ << screen_.paint(Ink::faint, branch) << screen_.paint(ink, label);
    if (!text.empty()) {
        const std::size_t width = width_of(label);
        out_ << std::string(width < kLabelWidth ? kLabelWidth - width : 1, ' ') << text;
    }
    out_ << '\n';
}

void Tree::note(std::string_view text) {
    rails(more_.size());
    const std::string_view stem = !parent_ ? "   " : screen_.utf8 ? "│  " : "|  ";
    out_ << screen_.paint(Ink::faint, stem) << text << '\n';
}

}  // namespace morvane
