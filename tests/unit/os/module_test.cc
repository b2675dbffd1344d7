// Modules: found beside the program, refused when others may write them, and a clear word when they are missing.
#include "os/module.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "support/home.h"
#include "support/log_lines.h"

namespace {

namespace fs = std::filesystem;

fs::path built_module() {
    return fs::read_symlink("/proc/self/exe").parent_path() / "../libexec/morvane/morvane-sqlite.so";
}

class Modules : public testing::Test {
protected:
    ~Modules() override { os_set_module_folder(std::nullopt); }
};

TEST_F(Modules, AreFoundBesideTheProgram) {
    const os_Module module = os_load_module("morvane-sqlite");
    ASSERT_TRUE(module);
    EXPECT_NE(module.function<int()>("sqlite3_step"), nullptr);
    EXPECT_EQ(module.function<int()>("sqlite3_libversion_number"), nullptr) << "what is not exported stays inside";
    EXPECT_EQ(module.function<int()>("no_such_function"), nullptr);
}

TEST_F(Modules, WhatOthersMayWriteIsNotRun) {
    const TestHome home;
    const fs::path folder = home.path();
    const fs::path copy = folder / "m.so";
    fs::copy_file(built_module(), copy);
    os_set_module_folder(folder.string());
    ASSERT_EQ(::chmod(copy.c_str(), 0755), 0);
    EXPECT_TRUE(os_load_module("m"));
    ASSERT_EQ(::chmod(copy.c_str(), 0777), 0);
    EXPECT_FALSE(os_load_module("m"));
}

TEST_F(Modules, OneThatIsMissingOrBrokenIsLogged) {
    const TestHome home;
    const fs::path folder = home.path();
    os_set_module_folder(folder.string());
    LogLines log(3);
    EXPECT_FALSE(os_load_module("absent"));
    std::ofstream(folder / "broken.so") << "no module";
    ASSERT_EQ(::chmod((folder / "broken.so").c_str(), 0755), 0);
    EXPECT_FALSE(os_load_module("broken"));
    ASSERT_EQ(log.all().size(), 2u);
    EXPECT_NE(log.all()[0].find("absent"), std::string::npos) << log.all()[0];
    EXPECT_NE(log.all()[1].find("broken"), std::string::npos) << log.all()[1];
}

TEST_F(Modules, NoHandleHasNoFunctions) { EXPECT_EQ(os_Module().function<int()>("sqlite3_step"), nullptr); }

}  // namespace
