// Choosing the mail system: who wins, what is never opened, and how a bad systems file is reported.
#include "gcl/gcl.h"

#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "er/er.h"
#include "os/os.h"

namespace {

class GclTest : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/gcl_test.XXXXXX";
        folder_ = ::mkdtemp(name);
        file_ = folder_ + "/systems.toml";
        ::setenv("MORVANE_SYSTEMS", file_.c_str(), 1);
        ::unsetenv("MORVANE_HOME");
        os_SetHome("/nowhere");
    }
    void TearDown() override {
        ::unlink(file_.c_str());
        ::rmdir(folder_.c_str());
        ::unsetenv("MORVANE_SYSTEMS");
        ::unsetenv("MORVANE_HOME");
        er_Reset();
    }
    void systems(const std::string& text) { std::ofstream(file_) << text; }
    // The detail of what selecting raises; empty when it raises nothing.
    static std::string refusal() {
        try {
            gcl_setDefaultSystem();
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.group(), kSystemGroup);
            return escape.detail();
        }
        return {};
    }

    std::string folder_, file_;
};

constexpr const char* kTwo = "default = \"b\"\n[system.a]\nhome = \"/srv/a\"\n[system.b]\nhome = \"/srv/b/\"\n";

TEST_F(GclTest, NamedInstanceWinsOverEverything) {
    systems(kTwo);
    ::setenv("MORVANE_HOME", "/srv/other", 1);
    EXPECT_TRUE(gcl_setSystemByName("a"));
    EXPECT_EQ(os_Home(), "/srv/a");
}

TEST_F(GclTest, UnknownInstanceLeavesTheHomeAlone) {
    systems(kTwo);
    EXPECT_FALSE(gcl_setSystemByName("c"));
    EXPECT_FALSE(gcl_setSystemByName(""));
    EXPECT_FALSE(gcl_setSystemByName("A"));  // names are compared exactly
    EXPECT_EQ(os_Home(), "/nowhere");
}

TEST_F(GclTest, WithoutSystemsFileNoNameIsKnown) { EXPECT_FALSE(gcl_setSystemByName("a")); }

TEST_F(GclTest, HomeFromEnvironmentNeverOpensTheSystemsFile) {
    systems("this is not TOML");
    ::setenv("MORVANE_HOME", "/srv/env", 1);
    gcl_setDefaultSystem();
    EXPECT_EQ(os_Home(), "/srv/env");
}

TEST_F(GclTest, DefaultOfTheFile) {
    systems(kTwo);
    gcl_setDefaultSystem();
    EXPECT_EQ(os_Home(), "/srv/b");
}

TEST_F(GclTest, EmptyEnvironmentCountsAsAbsent) {
    systems(kTwo);
    ::setenv("MORVANE_HOME", "", 1);
    gcl_setDefaultSystem();
    EXPECT_EQ(os_Home(), "/srv/b");
}

TEST_F(GclTest, BuiltInHomeWithoutFileOrDefault) {
    gcl_setDefaultSystem();
    EXPECT_EQ(os_Home(), "/var/lib/morvane");
    systems("[system.a]\nhome = \"/srv/a\"\n");
    os_SetHome("/nowhere");
    gcl_setDefaultSystem();
    EXPECT_EQ(os_Home(), "/var/lib/morvane");
}

TEST_F(GclTest, BadFilesAreReportedWithFileLineAndKey) {
    struct Row {
        const char* text;
        const char* expected;  // after the file's name
        const char* why;
    };
    constexpr Row kRows[] = {
        {"\ndefault = 3\n", ":2: key default: a text is wanted", "a number"},
        {"default = \"\"\n", ":1: key default: a text is wanted", "an empty name names nothing"},
        {"default = \"x\"\n", ":1: key default: there is no [system.x]", "a name that nobody has"},
        {"system = 1\n", ":1: key system: a table is wanted", "not a table"},
        {"[system]\na = \"/srv/a\"\n", ":2: key system.a: a table is wanted", "a home where a table belongs"},
        {"\n\n[system.a]\n", ":3: key system.a: it has no home", "no home"},
        {"[system.a]\nhome = true\n", ":2: key system.a.home: a text is wanted", "a truth"},
        {"[system.a]\nhome = \"srv/a\"\n", ":2: key system.a.home: an absolute path is wanted", "relative"},
    };
    for (const Row& row : kRows) {
        systems(row.text);
        EXPECT_EQ(refusal(), file_ + row.expected) << row.why;
    }
    systems("a = 1\nb = = 2\n");
    EXPECT_TRUE(refusal().starts_with(file_ + ":2: ")) << "not TOML: " << refusal();
}

TEST_F(GclTest, ReportNamesTheInstances) {
    systems(kTwo);
    testing::internal::CaptureStderr();
    ext_ReportWhichQnSystem();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "mail systems in " + file_ + ":\n  a  /srv/a\n  b  /srv/b/  (default)\n");
    ::unlink(file_.c_str());
    testing::internal::CaptureStderr();
    ext_ReportWhichQnSystem();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), file_ + " does not exist: there are no named mail systems\n");
}

}  // namespace
