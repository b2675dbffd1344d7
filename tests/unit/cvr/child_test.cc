// Converters as child processes: what they get, what they must not get, and how they end.
#include "cvr/child.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "im/im.h"
#include "support/child.h"
#include "support/home.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using End = ChildResult::End;

class Child : public ::testing::Test {
protected:
    ChildResult run(std::vector<std::string> command, std::string_view input = {}, milliseconds timeout = seconds(20)) {
        im_Item in = im_CrNewDataItem(), out = im_CrNewDataItem();
        in.write(input);
        const ChildResult result = run_child({command, timeout, environment_}, in, out);
        std::string scratch;
        output_ = out.head(std::string_view::npos, scratch);
        return result;
    }
    ChildResult shell(const std::string& script, std::string_view input = {}, milliseconds timeout = seconds(20)) {
        return run({"/bin/sh", "-c", script}, input, timeout);
    }

    std::vector<std::pair<std::string, std::string>> environment_;
    std::string output_;
    TestHome home_;
};

TEST_F(Child, ReadsAndWrites) {
    EXPECT_EQ(run({"/bin/cat"}, "some text").end, End::exited);
    EXPECT_EQ(output_, "some text");
    EXPECT_EQ(run({"cat"}, "").end, End::exited) << "without a slash, and nothing to read";
    EXPECT_EQ(output_, "");
}

TEST_F(Child, LargeTextsGoThrough) {
    std::string text;
    while (text.size() < 3'000'000) text += "line " + std::to_string(text.size()) + '\n';
    EXPECT_EQ(run({"cat"}, text).end, End::exited);
    EXPECT_EQ(output_, text);
}

TEST_F(Child, NeedNotReadItsInput) {
    EXPECT_EQ(shell("echo done", std::string(1'000'000, 'x')).end, End::exited);
    EXPECT_EQ(output_, "done\n");
}

TEST_F(Child, MustEndWithStatusZero) {
    ChildResult result = shell("echo partly; echo why >&2; exit 7");
    EXPECT_EQ(result.end, End::failed);
    EXPECT_EQ(result.reason, 7);
    EXPECT_EQ(result.text, "why\n");
    result = shell("exit 9");
    EXPECT_EQ(result.text, "exit status 9") << "it did not say why";
    result = shell("kill -TERM $$");
    EXPECT_EQ(result.end, End::failed);
    EXPECT_EQ(result.reason, 128 + SIGTERM);
    EXPECT_EQ(result.text, "signal 15");
    EXPECT_EQ(shell("echo fine >&2").end, End::exited) << "talking is no failure";
}

TEST_F(Child, MustBeThere) {
    const ChildResult result = run({"/no/such/program"});
    EXPECT_EQ(result.end, End::not_run);
    EXPECT_EQ(result.reason, ENOENT);
    EXPECT_EQ(run({"no-such-program-anywhere"}).end, End::not_run);
    home_.write("tmp/text", "no program");
    EXPECT_EQ(run({home_.file("tmp/text")}).reason, EACCES);
}

TEST_F(Child, IsNotSoughtInOurOwnPath) {
    home_.write("tmp/only-here", "#!/bin/sh\necho here\n");
    ASSERT_EQ(::chmod(home_.file("tmp/only-here").c_str(), 0700), 0);
    const std::string before = ::getenv("PATH");
    ::setenv("PATH", (home_.file("tmp") + ':' + before).c_str(), 1);
    EXPECT_EQ(run({"only-here"}).end, End::not_run);
    ::setenv("PATH", before.c_str(), 1);
    EXPECT_EQ(run({home_.file("tmp/only-here")}).end, End::exited);
}

TEST_F(Child, GetsItsEnvironmentAndNoOther) {
    ::setenv("MORVANE_SECRET", "1", 1);
    environment_ = {
        {"SUBJECT", "two words = \"x\"\nline"}, {"NUL", std::string("a\0b", 3)}, {"LONG", std::string(100'000, 'x')}};
    EXPECT_EQ(shell("printf '%s|%s|%s|%s' \"$SUBJECT\" \"$NUL\" \"$MORVANE_SECRET\" ${#LONG}").end, End::exited);
    EXPECT_EQ(output_, "two words = \"x\"\nline|ab||32768");
    EXPECT_EQ(run({"env"}).end, End::exited);
    EXPECT_TRUE(output_.starts_with("PATH=/usr/local/bin:/usr/bin:/bin\nLANG=C.UTF-8\nSUBJECT=")) << output_;
}

TEST_F(Child, GetsNoDescriptorOfOurs) {
    const int leaked = ::open("/dev/null", O_RDONLY);  // not close-on-exec
    ASSERT_GE(leaked, 3);
    EXPECT_EQ(shell("ls /proc/self/fd | wc -l").end, End::exited);
    ::close(leaked);
    EXPECT_EQ(std::stoi(output_), 4) << "0, 1, 2 and the folder that ls reads";
}

TEST_F(Child, GetsDefaultSignals) {
    EXPECT_EQ(run_in_child([this] {
                  for (const int signal : {SIGINT, SIGQUIT, SIGPIPE, SIGXFSZ, SIGCHLD}) ::signal(signal, SIG_IGN);
                  sigset_t all;
                  sigfillset(&all);
                  ::sigprocmask(SIG_BLOCK, &all, nullptr);
                  if (shell("sed -n 's/^Sig\\(Blk\\|Ign\\):.//p' /proc/self/status").end != End::exited) return 1;
                  constexpr unsigned long long kLibrarys = 3ull << 31;  // 32 and 33 are the C library's own
                  const unsigned long long blocked = std::stoull(output_.substr(0, 16), nullptr, 16);
                  const unsigned long long ignored = std::stoull(output_.substr(17), nullptr, 16);
                  return blocked == 0 && (ignored & ~kLibrarys) == 0 ? 0 : 2;
              }),
              0);
}

TEST_F(Child, IgnoredChildrenDoNotHideItsStatus) {
    const auto before = ::signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(shell("exit 5").reason, 5);
    EXPECT_EQ(shell("exit 0").end, End::exited);
    EXPECT_EQ(::signal(SIGCHLD, before), SIG_IGN) << "as it was";
}

TEST_F(Child, HasItsTime) {
    const auto start = std::chrono::steady_clock::now();
    ChildResult result = shell("echo begun; sleep 60", {}, milliseconds(300));
    EXPECT_EQ(result.end, End::failed);
    EXPECT_EQ(result.reason, ETIMEDOUT);
    result = shell("exec >&- 2>&-; sleep 60", {}, milliseconds(300));
    EXPECT_EQ(result.reason, ETIMEDOUT) << "with its output closed";
    result = shell("while :; do echo yes; done", {}, milliseconds(300));
    EXPECT_EQ(result.reason, ETIMEDOUT) << "with output that does not end";
    EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(20));
}

TEST_F(Child, LeavesNobodyBehind) {
    const auto start = std::chrono::steady_clock::now();
    const ChildResult result = shell("sleep 60 & echo $!");
    EXPECT_EQ(result.end, End::exited) << "the program has ended, though another holds its output";
    EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(10));
    const pid_t left = std::stoi(output_);
    for (int wait = 0; wait < 100 && ::kill(left, 0) == 0; ++wait) {  // a zombie until its new parent looks
        std::string state = TestHome::read_path("/proc/" + std::to_string(left) + "/stat");
        if (state.find(") Z ") != std::string::npos) break;
        ::usleep(20000);
    }
    const bool gone = ::kill(left, 0) != 0 ||
                      TestHome::read_path("/proc/" + std::to_string(left) + "/stat").find(") Z ") != std::string::npos;
    EXPECT_TRUE(gone);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "no child is left to wait for";
}

TEST_F(Child, TalkIsBounded) {
    const ChildResult result = shell("yes complaint | head -c 100000 >&2; exit 1");
    EXPECT_EQ(result.end, End::failed);
    EXPECT_EQ(result.text.size(), 1024u);
}

TEST_F(Child, AFullDiskEscapesAndEndsIt) {
    EXPECT_EQ(run_in_child([this] {
                  limit_file_size(200'000);
                  try {
                      shell("while :; do echo yes; done");
                  } catch (const er_Escape& escape) {
                      if (escape.group() != kSystemGroup || escape.reason() != EFBIG) return 1;
                      return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD ? 0 : 2;
                  }
                  return 3;
              }),
              0);
}

}  // namespace
