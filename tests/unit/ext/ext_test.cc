// Signals and identity. Identities change in child processes only, and only root can take others.
#include "ext/ext.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/child.h"
#include "support/home.h"

namespace {

TEST(Signals, AreIgnoredOrNot) {
    const int status = run_in_child([] {
        ext_signal(SIGTERM, 1);
        ::raise(SIGTERM);
        ext_signal(SIGTERM, 0);
        ::raise(SIGTERM);
        return 0;
    });
    EXPECT_EQ(status, 128 + SIGTERM) << "the first was ignored, the second was not";
}

class Identity : public testing::Test {
protected:
    void SetUp() override {
        if (::getuid() != 0) GTEST_SKIP() << "only root can be somebody else";
    }
    void give_home(uid_t user, gid_t group) const { ASSERT_EQ(::chown(home_.path().c_str(), user, group), 0); }
    static std::vector<gid_t> groups() {
        std::vector<gid_t> all(static_cast<std::size_t>(::getgroups(0, nullptr)));
        all.resize(static_cast<std::size_t>(::getgroups(static_cast<int>(all.size()), all.data())));
        return all;
    }
    TestHome home_;
};

TEST_F(Identity, RootBecomesTheOwnerForGood) {
    give_home(54321, 54322);
    const int status = run_in_child([] {
        ext_SetUidToMorvane();
        if (::getuid() != 54321 || ::geteuid() != 54321) return 1;
        if (::getgid() != 54322 || ::getegid() != 54322) return 2;
        if (groups() != std::vector<gid_t>{54322}) return 3;
        if (::setuid(0) == 0 || ::seteuid(0) == 0 || ::setgid(0) == 0) return 4;
        ext_SetUidToMorvane();  // it is the owner already
        return 0;
    });
    EXPECT_EQ(status, 0);
}

TEST_F(Identity, AnOwnerWithAnAccountHasItsGroups) {
    const passwd* nobody = ::getpwnam("nobody");
    ASSERT_NE(nobody, nullptr);
    const gid_t own = nobody->pw_gid;
    give_home(nobody->pw_uid, own);
    const int status = run_in_child([&] {
        const gid_t foreign = 54399;
        ::setgroups(1, &foreign);
        ext_SetUidToMorvane();
        const std::vector<gid_t> all = groups();
        if (std::count(all.begin(), all.end(), foreign) != 0) return 1;
        return std::count(all.begin(), all.end(), own) == 1 ? 0 : 2;
    });
    EXPECT_EQ(status, 0) << "those of the invoker are gone";
}

TEST_F(Identity, RootStaysRootInAHomeOfItsOwn) {
    const int status = run_in_child([] {
        ext_SetUidToMorvane();
        return ::getuid() == 0 && ::geteuid() == 0 ? 0 : 1;
    });
    EXPECT_EQ(status, 0);
}

TEST_F(Identity, WhoHasTheRightsOfTheOwnerTakesThemForGood) {
    give_home(54321, 54322);
    const int status = run_in_child([] {
        if (::setresuid(54323, 54321, 54321) != 0) return 1;  // as the set-user-id bit does it
        ext_SetUidToMorvane();
        uid_t real = 0, effective = 0, saved = 0;
        ::getresuid(&real, &effective, &saved);
        return real == 54321 && effective == 54321 && saved == 54321 ? 0 : 2;
    });
    EXPECT_EQ(status, 0);
}

TEST_F(Identity, AnybodyElseStaysWhoTheyAre) {
    give_home(54321, 54322);
    const int status = run_in_child([] {
        if (::setresuid(54323, 54323, 54323) != 0) return 1;
        ::chmod(os_Home().c_str(), 0755);
        ext_SetUidToMorvane();
        return ::getuid() == 54323 ? 0 : 2;
    });
    EXPECT_EQ(status, 0);
}

TEST(HomeOwner, WithoutAHomeThereIsNone) {
    const TestHome home;
    os_SetHome(home.file("nowhere"));
    try {
        ext_SetUidToMorvane();
        ADD_FAILURE();
    } catch (const er_Escape& escape) {
        EXPECT_EQ(escape.group(), kSystemGroup);
        EXPECT_EQ(escape.reason(), ENOENT);
    }
    os_SetHome(home.path());
}

}  // namespace
