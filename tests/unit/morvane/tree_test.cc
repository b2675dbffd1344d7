// Trees, as they look.
#include "morvane/tree.h"

#include <string>

#include <gtest/gtest.h>

namespace morvane {
namespace {

std::string drawn(const Screen& screen) {
    std::string text;
    Printer out(text);
    Tree tree(out, screen);
    tree.root("root");
    tree.node(0, false, true, Ink::label, "one", "1");
    tree.note("about one");
    tree.node(1, true, false, Ink::label, "in one", "");
    tree.note("about in one");
    tree.node(0, true, true, Ink::label, "two", "2");
    tree.node(1, true, false, Ink::label, "a label that is long", "3");
    tree.note("end");
    out.flush();
    return text;
}

TEST(TreeTest, IsDrawnInLines) {
    EXPECT_EQ(drawn({true, false}),
              "root\n"
              "├─ one             1\n"
              "│  │  about one\n"
              "│  └─ in one\n"
              "│        about in one\n"
              "└─ two             2\n"
              "   └─ a label that is long 3\n"
              "         end\n");
}

TEST(TreeTest, HasAnAsciiForm) {
    EXPECT_EQ(drawn({false, false}),
              "root\n"
              "|- one             1\n"
              "|  |  about one\n"
              "|  `- in one\n"
              "|        about in one\n"
              "`- two             2\n"
              "   `- a label that is long 3\n"
              "         end\n");
}

TEST(TreeTest, DeepNodesCostNoMoreThanOthers) {
    std::string text;
    const Screen screen{true, false};
    Printer out(text);
    Tree tree(out, screen);
    for (std::size_t depth = 0; depth < 10'000; ++depth) tree.node(depth, true, true, Ink::label, "x", "y");
    out.flush();
    const std::size_t last = text.rfind('\n', text.size() - 2) + 1;
    EXPECT_EQ(text.substr(last), std::string(kDeepestRail * 3, ' ') + "[9999] └─ x               y\n");
    EXPECT_LT(text.size(), 10'000U * 130);
}

}  // namespace
}  // namespace morvane
