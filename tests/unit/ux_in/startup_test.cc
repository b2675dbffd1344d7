// The process from its options to its exit status: identity, start-up order, the handler of last resort. Each run is
// that of a child process of its own.
#include "ux_in/startup.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/catalog.h"
#include "support/child.h"
#include "support/home.h"
#include "support/queued.h"

namespace {

constexpr uid_t kStranger = 54321;  // no such account
const std::string kBegun = "MAIL FROM:<s@far.example>\nRCPT TO:<a@far.example>\nDATA\n";
const std::string kMail = kBegun + "Date: Fri, 20 Nov 2026 10:00:00 +0000\nSubject: x\n\nHello.\n.\n";

class Startup : public testing::Test {
protected:
    Startup() {
        ::setenv("LANG", "C", 1);
        ::setenv("MORVANE_HOME", home_.path().c_str(), 1);
        ::setenv("MORVANE_SYSTEMS", home_.file("systems.toml").c_str(), 1);
        write_catalog(home_, kReplyTexts);
    }
    ~Startup() override {
        ::unsetenv("MORVANE_HOME");
        ::unsetenv("MORVANE_SYSTEMS");
    }

    struct Run {
        int status = 0;
        std::string out, err;
    };
    // Runs the gateway over what the agent writes. `before` and `after` run in its process; `after` can change the
    // status.
    static Run run(const std::string& dialogue, std::vector<std::string> arguments = {},
                   const std::function<void()>& before = {}, const std::function<int(int)>& after = {}) {
        const os_Fd input(::memfd_create("in", 0)), out(::memfd_create("out", 0)), err(::memfd_create("err", 0));
        os_write_all(input.get(), dialogue);
        ::lseek(input.get(), 0, SEEK_SET);
        arguments.insert(arguments.begin(), "unix.in");
        Run run;
        run.status = run_in_child([&] {
            ::dup2(input.get(), STDIN_FILENO);
            ::dup2(out.get(), STDOUT_FILENO);
            ::dup2(err.get(), STDERR_FILENO);
            std::vector<char*> argv;
            for (std::string& argument : arguments) argv.push_back(argument.data());
            argv.push_back(nullptr);
            if (before) before();
            const int status = ux_InMain(static_cast<int>(arguments.size()), argv.data());
            std::fflush(nullptr);
            return after ? after(status) : status;
        });
        run.out = content(out.get());
        run.err = content(err.get());
        return run;
    }
    // The numbers of the replies and the exit status: "1403 1409 =0".
    static std::string replies(const std::string& dialogue, const std::vector<std::string>& arguments = {},
                               const std::function<void()>& before = {}) {
        const Run run = Startup::run(dialogue, arguments, before);
        std::string shown;
        for (std::size_t at = 0; at < run.out.size(); at = run.out.find('\n', at) + 1)
            shown += run.out.substr(at + 4, 4) + " ";
        return shown + "=" + std::to_string(run.status);
    }
    static std::string content(int fd) {
        std::string text(os_fsize(fd), '\0');
        os_pread(fd, text.data(), text.size(), 0);
        return text;
    }
    std::string log() const { return home_.exists("logs/gateway.log") ? home_.read("logs/gateway.log") : ""; }
    // The home and all in it belongs to this user from now on.
    void give_home(uid_t user, gid_t group) const {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(home_.path()))
            ASSERT_EQ(::lchown(entry.path().c_str(), user, group), 0);
        ASSERT_EQ(::lchown(home_.path().c_str(), user, group), 0);
    }
    static std::function<void()> as(uid_t user) {
        return [user] {
            if (::setgroups(0, nullptr) != 0 || ::setresgid(user, user, user) != 0 ||
                ::setresuid(user, user, user) != 0)
                ::_exit(98);
        };
    }

    TestHome home_;
};

TEST_F(Startup, ACleanSessionIsZeroAndAProtocolErrorOne) {
    EXPECT_EQ(replies("QUIT\n"), "1403 1409 =0");
    EXPECT_EQ(replies("XYZZY\nQUIT\n"), "1403 1408 1409 =1");
    EXPECT_EQ(replies("DATA\nNOOP\nQUIT\n"), "1403 1405 1406 1409 =1");
    EXPECT_EQ(replies(kMail + "QUIT\n"), "1403 1406 1406 1407 1406 1409 =0");
}

TEST_F(Startup, OtherOptionsAreIgnored) {
    EXPECT_EQ(replies("QUIT\n", {"-x", "-s"}), "1403 1409 =0") << "an unknown letter, and one without its argument";
    EXPECT_EQ(run("QUIT\n", {"-x"}).err, "") << "nothing is said about it";
    EXPECT_EQ(replies("QUIT\n", {"word"}), "1403 1409 =0");
}

TEST_F(Startup, ASystemIsChosenByName) {
    home_.write("systems.toml", "[system.test]\nhome = \"" + home_.path() + "\"\n");
    EXPECT_EQ(replies("QUIT\n", {"-s", "test"}, [] { ::setenv("MORVANE_HOME", "/nowhere", 1); }), "1403 1409 =0");
    const Run unknown = run("QUIT\n", {"-s", "other"});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(unknown.out, "") << "before any reply";
    EXPECT_NE(unknown.err.find("test"), std::string::npos) << "the systems there are";
    EXPECT_EQ(run("QUIT\n", {"-s", "test", "-s", "other"}).status, 1) << "options are acted on as they come";
}

class Autodetect : public Startup {
protected:
    std::string file(std::string_view content) const {
        home_.write("tmp/text", content);
        return home_.file("tmp/text");
    }
};

TEST_F(Autodetect, SaysWhatASetIs) {
    const Run found = run("QUIT\n", {"-a", file("Gr\xC3\xBC\xC3\x9F"
                                                "e aus K\xC3\xB6ln, M\xC3\xBCnchen und D\xC3\xBCsseldorf\n")});
    EXPECT_EQ(found.out, "Result from test autodetect charset: UTF8\n");
    EXPECT_EQ(found.status, 0);
    const Run none = run("QUIT\n", {"-a", file("")});
    EXPECT_EQ(none.out, "No result from test autodetect charset.\n");
    EXPECT_EQ(none.status, 1);
    const Run missing = run("QUIT\n", {"-a", home_.file("nothing")});
    EXPECT_EQ(missing.out, "Warning logged for test autodetect charset.\n");
    EXPECT_EQ(missing.status, 2);
    EXPECT_NE(missing.err.find(" 5 1.2 No such file or directory: " + home_.file("nothing")), std::string::npos)
        << missing.err;
    EXPECT_EQ(log(), "") << "the home is left alone";
}

TEST_F(Autodetect, EndsTheProcess) {
    home_.write("systems.toml", "[system.test]\nhome = \"" + home_.path() + "\"\n");
    const std::string empty = file("");
    EXPECT_EQ(run("", {"-a", empty, "-s", "other"}).status, 1);
    EXPECT_EQ(run("", {"-a", empty, "-s", "other"}).out, "No result from test autodetect charset.\n")
        << "options after it are not read";
    const Run refused = run("", {"-s", "other", "-a", empty});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "") << "those before it are";
    EXPECT_EQ(run("", {"-s", "test", "-a", empty}).out, "No result from test autodetect charset.\n");
}

// After a failure every command is answered with its number until QUIT, and the status is 1.
TEST_F(Startup, AFailureEndsInARefusalLoop) {
    const struct {
        std::string dialogue, replies;
        const char* why;
    } rows[] = {
        {"", "1403 1402 =1", "input ended in commands: there is nobody left to refuse"},
        {"NOOP\n", "1403 1406 1402 =1", ""},
        {kBegun, "1403 1406 1406 1407 1401 =1", "input ended in the text"},
        {kBegun + "Subject: x\n\nHello.\n.", "1403 1406 1406 1407 1401 =1", ""},
        {kMail, "1403 1406 1406 1407 1406 1402 =1", ""},
    };
    for (const auto& row : rows) EXPECT_EQ(replies(row.dialogue), row.replies) << row.dialogue << row.why;
    std::filesystem::remove_all(home_.file("queues/ROUTER"));
    EXPECT_EQ(replies(kMail + "NOOP\nXYZZY\nHELO\nMAIL FROM:<s@x>\nDATA\nQUIT\nNOOP\n"),
              "1403 1406 1406 1407 1424 1424 1424 1424 1424 1424 1409 =1");
    EXPECT_EQ(replies(kMail + "NOOP\n"), "1403 1406 1406 1407 1424 1424 =1") << "end of input ends the loop, too";
    EXPECT_EQ(replies(kMail + "QUIT now\nQUIT\n"), "1403 1406 1406 1407 1424 1424 1409 =1");
    EXPECT_EQ(home_.files("data").size(), 4U) << "of the one message that was accepted";
}

TEST_F(Startup, AFailedMessageIsLoggedAndItsAuditTransactionAbandoned) {
    run(kBegun + "Subject: x\n");
    EXPECT_NE(log().find(" 5 102.1401 "), std::string::npos) << "the gateway's own answers are dealt with: " << log();
    EXPECT_FALSE(home_.exists("logs/audit.jsonl"));
    std::filesystem::remove_all(home_.file("queues/ROUTER"));
    run(kMail + "QUIT\n");
    EXPECT_NE(log().find(" 1 1.2 No such file or directory: "), std::string::npos)
        << "others are unexpected: " << log();
    EXPECT_FALSE(home_.exists("logs/audit.jsonl"));
}

TEST_F(Startup, WhatFailsBeforeTheGreetingIsTheFirstReply) {
    home_.write("sys/config", "");
    EXPECT_EQ(replies("HELO\nQUIT\n"), "1424 1424 1409 =1");
    home_.write("sys/config", std::string(512, '\0'));
    home_.set_keys("not toml at all");
    EXPECT_EQ(replies("HELO\nQUIT\n"), "1424 1424 1409 =1");
    EXPECT_NE(log().find("gateway.toml:1"), std::string::npos) << "the log says where it is wrong: " << log();
}

TEST_F(Startup, WithoutAHomeThereIsAnAnswerToo) {
    const Run run = Startup::run("HELO\nQUIT\n", {}, [] { ::setenv("MORVANE_HOME", "/nowhere", 1); });
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out.substr(0, 4), "451 ");
    EXPECT_TRUE(run.out.ends_with("221 Closing connection\n")) << run.out;
}

TEST_F(Startup, DescriptorsThatAreClosedAreNotTakenByFiles) {
    home_.set_keys("LOG_LEVEL = 11");
    EXPECT_EQ(run(kMail + "QUIT\n", {}, [] { ::close(STDIN_FILENO); }).out,
              "220 1403\n451 1402 " + os_gethostname(64) + "\n")
        << "no input";
    std::filesystem::remove(home_.file("logs/gateway.log"));
    const Run run = Startup::run(kMail + "QUIT\n", {}, [] {
        ::close(STDOUT_FILENO);
        ::close(STDERR_FILENO);
    });
    EXPECT_EQ(run.status, 1) << "nobody to reply to";
    EXPECT_EQ(log().find("220 1403\n220"), std::string::npos) << log();
    EXPECT_EQ(log().rfind("220 1403", 0), std::string::npos) << log();
}

TEST_F(Startup, SignalsOfAgentsAndTerminalsAreIgnored) {
    const auto ignored = [](int) {
        for (const int signal : {SIGINT, SIGQUIT, SIGPIPE, SIGXFSZ}) {
            struct sigaction action {};
            ::sigaction(signal, nullptr, &action);
            if (action.sa_handler != SIG_IGN) return signal;
        }
        return 0;
    };
    EXPECT_EQ(run("QUIT\n", {}, {}, ignored).status, 0);
}

TEST_F(Startup, AgentsThatGoAreNoSignal) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    ::close(ends[0]);
    const Run run = Startup::run(kMail + "QUIT\n", {}, [&] { ::dup2(ends[1], STDOUT_FILENO); });
    ::close(ends[1]);
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(log().find("102.1024"), std::string::npos) << log();
}

TEST_F(Startup, FilesHaveTheirOwnModes) {
    run(kMail + "QUIT\n", {}, [] { ::umask(0777); });
    std::vector<std::string> files = home_.files("data");
    for (const std::string& file : home_.files("queues")) files.push_back(file);
    for (const std::string& file : home_.files("logs")) files.push_back(file);
    EXPECT_GE(files.size(), 5U);
    for (const std::string& file : files) {
        struct stat info {};
        ASSERT_EQ(::stat(file.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0600U) << file;
    }
    EXPECT_EQ(run("QUIT\n", {}, {}, [](int) { return static_cast<int>(::umask(0)); }).status, 0);
}

TEST_F(Startup, ObjectFilesCanBeSwitchedOff) {
    run(kMail + "QUIT\n");
    home_.set_keys("UXI_NO_INET_OBJFILES = true");
    run(kMail + "QUIT\n");
    home_.set_keys("UXI_NO_INET_OBJFILES = false");
    run(kMail + "QUIT\n");
    std::vector<std::size_t> objects;
    for (const QueuedMessage& message : queued_messages()) objects.push_back(of_type(message.records, 30700).size());
    EXPECT_EQ(objects, (std::vector<std::size_t>{1, 0, 1}));
}

TEST_F(Startup, NameMappingIsAnnounced) {
    home_.set_keys("LOG_LEVEL = 11\nUXI_NAME_MAPPING = \"people:mail\"\n");
    EXPECT_EQ(replies(kMail + "QUIT\n"), "1403 1406 1406 1407 1406 1409 =0")
        << "a directory that does not exist maps nothing";
    EXPECT_NE(log().find(" 11 102.1540 people mail\n"), std::string::npos) << log();
    std::filesystem::remove(home_.file("logs/gateway.log"));
    home_.set_keys("LOG_LEVEL = 11\n");
    run("QUIT\n");
    EXPECT_EQ(log().find("102.1540"), std::string::npos);
}

TEST_F(Startup, ADirectoryThatIsDamagedFailsTheMessageNotTheStart) {
    home_.set_keys("UXI_NAME_MAPPING = \"people:mail\"\n");
    home_.write("sys/directory.db", "this is no database");
    EXPECT_EQ(replies(kMail + "NOOP\nQUIT\n"), "1403 1406 1406 1407 1424 1424 1409 =1");
    EXPECT_EQ(home_.files("data").size(), 0U);
}

TEST_F(Startup, AProcessCanBeHeldForADebugger) {
    home_.set_keys("UXI_UUDECODE_DEBUG_LOOP = true");
    const os_Fd out(::memfd_create("out", 0));
    const pid_t held = start_child([&] {
        ::dup2(out.get(), STDOUT_FILENO);
        std::string name = "unix.in";
        char* argv[] = {name.data(), nullptr};
        return ux_InMain(1, argv);
    });
    ::usleep(100'000);
    int status = 0;
    EXPECT_EQ(::waitpid(held, &status, WNOHANG), 0) << "it never returns";
    EXPECT_EQ(content(out.get()), "") << "and says nothing";
    ::kill(held, SIGKILL);
    EXPECT_EQ(await_child(held), 128 + SIGKILL);
}

TEST_F(Startup, BrokenPipesCanBeRaised) {
    try {
        ux_InSigPipeTrap(SIGPIPE);
        ADD_FAILURE();
    } catch (const er_Escape& escape) {
        EXPECT_EQ(escape.group(), 1);
        EXPECT_EQ(escape.reason(), 32);
    }
}

class TrustFile : public Startup {
protected:
    TrustFile() { er_Reset(); }
    bool trusted(std::string_view user) const { return ux_InTrustedUser(user); }
};

TEST_F(TrustFile, NamesOneUserALine) {
    const std::string x80(80, 'x'), x81(81, 'x');
    const struct {
        std::string file;
        const char* user;
        bool trusted;
        const char* why;
    } rows[] = {
        {"", "joe", false, "nobody"},
        {"joe\n", "joe", true, "a name"},
        {"joe", "joe", true, "without a line end"},
        {"ann\njoe\nbob\n", "joe", true, "in any line"},
        {"Joe\n", "joe", false, "case counts"},
        {"joel\n", "joe", false, "the whole name"},
        {"jo\n", "joe", false, "the whole name"},
        {" \tjoe\t the postmaster\n", "joe", true, "the first word of the line"},
        {"the joe\n", "joe", false, "the first word only"},
        {"#joe\n", "joe", false, "a comment"},
        {"#joe\n", "#joe", false, "even of that name"},
        {"  # joe\n", "joe", false, "a comment"},
        {"\n \t\n\njoe\n", "joe", true, "empty lines"},
        {"\n", "", false, "nobody is not somebody"},
        {"joe\r\n", "joe", false, "a CR is part of the word"},
        {x80 + "\njoe\n", "joe", true, "a line of 81 bytes"},
        {x81 + "joe\n", "joe", true, "what is beyond 81 is a line of its own"},
        {std::string(81, ' ') + "joe\n", "joe", true, "what is beyond 81 is a line of its own"},
        {"#" + std::string(80, ' ') + "joe\n", "joe", true, "in a comment, too"},
        {"#" + std::string(79, ' ') + "joe\n", "joe", false, "in a comment, too"},
    };
    EXPECT_FALSE(trusted("joe")) << "a missing file trusts nobody";
    for (const auto& row : rows) {
        home_.write("sys/unixin.trust", row.file);
        EXPECT_EQ(trusted(row.user), row.trusted) << row.file << row.why;
    }
    std::filesystem::remove(home_.file("sys/unixin.trust"));
    std::filesystem::create_directory(home_.file("sys/unixin.trust"));
    EXPECT_FALSE(trusted("joe")) << "any failure";
    EXPECT_FALSE(er_GetLive()) << "and it is swallowed";
}

class Identity : public Startup {
protected:
    void SetUp() override {
        if (::getuid() != 0) GTEST_SKIP() << "only root can be somebody else";
    }
    // The native name of the creator of the message that was queued last.
    static std::string creator() {
        const std::vector<QueuedMessage> queued = queued_messages();
        return queued.empty() ? "" : only(queued.back().records, 10000);
    }
};

TEST_F(Identity, RootMaySendAsAnybody) {
    run(kMail + "QUIT\n");
    EXPECT_TRUE(creator().ends_with("/IA=<s@far.example>")) << creator();
}

TEST_F(Identity, AnInvokerWithoutAnAccountSendsAsItsNumber) {
    give_home(kStranger, kStranger);
    EXPECT_EQ(replies(kMail + "QUIT\n", {}, as(kStranger)), "1403 1406 1406 1407 1406 1409 =0");
    EXPECT_TRUE(creator().ends_with("/IA=54321@" + os_canonical_host_name())) << creator();
}

TEST_F(Identity, AnInvokerThatIsNotTrustedSendsAsItself) {
    const passwd* nobody = ::getpwnam("nobody");
    ASSERT_NE(nobody, nullptr);
    const uid_t user = nobody->pw_uid;
    home_.write("sys/unixin.trust", "somebody\n#nobody\n");
    give_home(user, user);
    run(kMail + "QUIT\n", {}, as(user));
    EXPECT_TRUE(creator().ends_with("/IA=nobody@" + os_canonical_host_name())) << creator();
    home_.write("sys/unixin.trust", "somebody\nnobody\n");
    run(kMail + "QUIT\n", {}, as(user));
    EXPECT_TRUE(creator().ends_with("/IA=<s@far.example>")) << "trusted now: " << creator();
}

TEST_F(Identity, RootBecomesTheOwnerOfTheHome) {
    give_home(kStranger, kStranger + 1);
    const auto identity = [](int status) {
        uid_t users[3];
        gid_t groups[3];
        ::getresuid(&users[0], &users[1], &users[2]);
        ::getresgid(&groups[0], &groups[1], &groups[2]);
        for (const uid_t user : users)
            if (user != kStranger) return 90;
        for (const gid_t group : groups)
            if (group != kStranger + 1) return 91;
        gid_t all[64];
        const int count = ::getgroups(64, all);
        if (count != 1 || all[0] != kStranger + 1) return 92;
        return status;
    };
    EXPECT_EQ(run(kMail + "QUIT\n", {}, {}, identity).status, 0);
    for (const char* folder : {"data", "queues", "logs"})
        for (const std::string& file : home_.files(folder)) {
            struct stat info {};
            ASSERT_EQ(::stat(file.c_str(), &info), 0);
            EXPECT_EQ(info.st_uid, kStranger) << file;
            EXPECT_EQ(info.st_gid, kStranger + 1) << file;
        }
    EXPECT_TRUE(creator().ends_with("/IA=<s@far.example>")) << "it is root that started it: " << creator();
}

TEST_F(Identity, ThePriorityIsTakenWhileItMayBe) {
    if (::setpriority(PRIO_PROCESS, 0, -1) != 0) GTEST_SKIP() << "priorities cannot be raised here";
    ::setpriority(PRIO_PROCESS, 0, 0);
    home_.set_keys("UX_NICE = -5");
    give_home(kStranger, kStranger);
    const auto raised = [](int) { return -::getpriority(PRIO_PROCESS, 0); };
    EXPECT_EQ(run("QUIT\n", {}, {}, raised).status, 5);
}

TEST_F(Identity, APriorityThatIsNotAllowedChangesNothing) {
    home_.set_keys("UX_NICE = -5");
    give_home(kStranger, kStranger);
    EXPECT_EQ(replies("QUIT\n", {}, as(kStranger)), "1403 1409 =0");
}

TEST_F(Identity, AnInvokerThatMayNotEnterTheHomeIsAnswered) {
    const Run run = Startup::run("HELO\nQUIT\n", {}, as(kStranger));
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out.substr(0, 4), "451 ") << run.out;
}

}  // namespace
