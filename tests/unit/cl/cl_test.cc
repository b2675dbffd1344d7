// The process launcher: the name a program is invoked under chooses its row.
#include "cl/cl.h"

#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/captured_output.h"

namespace {

int first(int argc, char**) { return 10 + argc; }
int second(int argc, char**) { return 20 + argc; }

constexpr cl_Process kBoth[] = {{"first", first, ""}, {"second", second, ""}};
constexpr cl_Process kOne[] = {{"first", first, ""}};

int call(std::span<const cl_Process> table, std::vector<std::string> words) {
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    return cl_CallProc(table, static_cast<int>(words.size()), argv.data());
}

TEST(Launcher, TheLastComponentOfTheNameChooses) {
    EXPECT_EQ(call(kBoth, {"first"}), 11);
    EXPECT_EQ(call(kBoth, {"/usr/sbin/second", "-s", "x"}), 23) << "its result is the result";
    EXPECT_EQ(call(kBoth, {"./first/second"}), 21);
}

TEST(Launcher, ATableOfOneRowRunsWhateverItIsCalled) {
    EXPECT_EQ(call(kOne, {"something"}), 11);
    EXPECT_EQ(call(kOne, {}), 10) << "even without a name";
}

TEST(Launcher, AnUnknownNameIsSaid) {
    const CapturedOutput error(STDERR_FILENO);
    EXPECT_EQ(call(kBoth, {"/bin/third"}), 1);
    EXPECT_EQ(call(kBoth, {"first/"}), 1);
    EXPECT_EQ(error.text(), "third: no such process\n: no such process\n");
}

}  // namespace
