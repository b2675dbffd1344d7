// The priority of a server process.
#include "ml/ml.h"

#include <sys/resource.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/child.h"
#include "support/home.h"

namespace {

// The priority that a process has afterwards, as an exit status.
int nice_with(std::string_view keys, uid_t user = 0) {
    const TestHome home(keys);
    return run_in_child([&] {
        cust_PresentAndTrue("UX_NICE");  // read while the home can be entered
        if (user != 0 && ::setresuid(user, user, user) != 0) return 99;
        ml_SetSSNiceValue(4);
        return 50 + ::getpriority(PRIO_PROCESS, 0);
    });
}

TEST(Priority, IsThatOfTheKey) {
    const int given = 50 + ::getpriority(PRIO_PROCESS, 0);
    EXPECT_EQ(nice_with(""), given) << "without the key: what the agent gave";
    EXPECT_EQ(nice_with("UX_NICE = 0"), given);
    EXPECT_EQ(nice_with("UX_NICE = 7"), 57);
    EXPECT_EQ(nice_with("UX_NICE = 99"), 69) << "the lowest there is";
    EXPECT_EQ(nice_with("UX_NICE = \"low\""), given) << "no number";
}

TEST(Priority, ThatIsNotAllowedChangesNothing) {
    if (::getuid() != 0) GTEST_SKIP() << "only root can be somebody else";
    EXPECT_EQ(nice_with("UX_NICE = -5", 54321), 50 + ::getpriority(PRIO_PROCESS, 0));
}

}  // namespace
