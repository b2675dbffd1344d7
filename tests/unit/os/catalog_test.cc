// Message catalogs: which one a LANG chooses, and what is in it. The catalogs are made with gencat(1).
#include "os/catalog.h"

#include <unistd.h>

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "support/child.h"
#include "support/home.h"

namespace {

class Catalog : public testing::Test {
protected:
    void SetUp() override {
        if (const char* lang = std::getenv("LANG")) lang_ = lang;
    }
    void TearDown() override {
        os_MCClose();
        ::setenv("LANG", lang_.c_str(), 1);
    }

    // nls/<language>/unix.cat from the source text of a catalog.
    void make(const std::string& language, std::string_view source) const {
        os_mkdirs("~/nls/" + language, 0700);
        home_.write("tmp/unix.msg", source);
        const std::string to = home_.file("nls/" + language + "/unix.cat");
        const std::string from = home_.file("tmp/unix.msg");
        ASSERT_EQ(run_in_child([&] { return ::execlp("gencat", "gencat", to.c_str(), from.c_str(), nullptr); }), 0);
    }
    // The text of number 1 of set 102 in the language that LANG chooses.
    static std::string greeting(const char* lang) {
        ::setenv("LANG", lang, 1);
        os_MCOpen(102);
        return std::string(os_MCGetMessage(1));
    }

    TestHome home_;
    std::string lang_ = "C";
};

TEST_F(Catalog, TheLanguageIsChosenByLang) {
    make("C", "$set 102\n1 hello\n");
    make("de", "$set 102\n1 hallo\n");
    make("de_AT", "$set 102\n1 servus\n");
    make("fr_CA.UTF-8", "$set 102\n1 allo\n");
    make(".", "$set 102\n1 not a language\n");
    make("..", "$set 102\n1 not a language\n");
    struct Row {
        const char* lang;
        const char* folder;
        const char* text;
        const char* why;
    };
    const Row rows[] = {
        {"C", "C", "hello", "itself"},
        {"", "C", "hello", "no language"},
        {"POSIX", "C", "hello", "no such folder"},
        {"de", "de", "hallo", "itself"},
        {"de_DE", "de", "hallo", "without its territory"},
        {"de_DE.UTF-8", "de", "hallo", "without its codeset and territory"},
        {"de_AT.ISO8859-1", "de_AT", "servus", "without its codeset"},
        {"de_AT@euro", "de_AT", "servus", "without its modifier"},
        {"de.UTF-8", "de", "hallo", "a codeset but no territory"},
        {"fr_CA.UTF-8", "fr_CA.UTF-8", "allo", "with its codeset"},
        {"fr_CA", "C", "hello", "not without it"},
        {"ja_JP.eucJP", "C", "hello", "a language that is not there"},
        {"../nls/de", "C", "hello", "a path is no language"},
        {"/etc", "C", "hello", "nor is an absolute one"},
        {"..", "C", "hello", "nor the folder above"},
        {".", "C", "hello", "nor the folder itself"},
        {"_DE", "C", "hello", "an empty language"},
        {"de_DE/../../x.y", "de", "hallo", "no part with a slash is used"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(ext_langtodir(row.lang), row.folder) << row.lang << ": " << row.why;
        EXPECT_EQ(greeting(row.lang), row.text) << row.lang << ": " << row.why;
    }
}

TEST_F(Catalog, TextsAreFoundBySetAndNumber) {
    make("C", "$quote \"\n$set 100\n24070 \"%s%s\"\n$set 102\n1403 \"220 ready\"\n1404 \"250 line\\n\"\n1405 \"\"\n");
    ::setenv("LANG", "C", 1);
    os_MCOpen(102);
    EXPECT_EQ(os_MCGetMessage(1403), "220 ready");
    EXPECT_EQ(os_MCGetMessage(1404), "250 line\n");
    EXPECT_EQ(os_MCGetMessage(100, 24070), "%s%s");
    EXPECT_EQ(os_MCGetMessage(102, 1403), "220 ready");
}

TEST_F(Catalog, AMissingEntryIsEmpty) {
    make("C", "$set 102\n1403 220 ready\n");
    ::setenv("LANG", "C", 1);
    os_MCOpen(102);
    EXPECT_EQ(os_MCGetMessage(1402), "");
    EXPECT_EQ(os_MCGetMessage(0), "");
    EXPECT_EQ(os_MCGetMessage(-1), "");
    EXPECT_EQ(os_MCGetMessage(1 << 30), "");
    EXPECT_EQ(os_MCGetMessage(100, 1403), "") << "another set";
    EXPECT_EQ(os_MCGetMessage(-1, 1403), "") << "no set";
}

TEST_F(Catalog, ACatalogThatCannotBeReadHasNoTexts) {
    EXPECT_EQ(greeting("C"), "") << "there is none";
    home_.write("nls/C/unix.cat", "");
    EXPECT_EQ(greeting("C"), "") << "an empty file";
    home_.write("nls/C/unix.cat", std::string(5000, 'x'));
    EXPECT_EQ(greeting("C"), "") << "no catalog";
    make("de", "$set 102\n1 hallo\n");
    const std::string whole = home_.read("nls/de/unix.cat");
    home_.write("nls/de/unix.cat", whole.substr(0, whole.size() / 2));
    EXPECT_EQ(greeting("de"), "") << "half a catalog";
}

TEST_F(Catalog, ClosedThereAreNoTexts) {
    make("C", "$set 102\n1 hello\n");
    EXPECT_EQ(os_MCGetMessage(1), "") << "not opened yet";
    EXPECT_EQ(greeting("C"), "hello");
    os_MCClose();
    EXPECT_EQ(os_MCGetMessage(1), "");
    os_MCClose();
    EXPECT_EQ(greeting("C"), "hello") << "opened again";
}

}  // namespace
