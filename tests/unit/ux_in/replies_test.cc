// Replies: what the agent reads for a number, with a catalog and without, and what happens when it does not read.
#include "ux_in/replies.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "er/er.h"
#include "os/catalog.h"
#include "support/captured_output.h"
#include "support/catalog.h"
#include "support/home.h"
#include "support/log_lines.h"

namespace {

class Replies : public testing::Test {
protected:
    Replies() { ::setenv("LANG", "C", 1); }
    ~Replies() override { os_MCClose(); }

    void open(std::string_view source) {
        write_catalog(home_, source);
        os_MCOpen(102);
    }
    static std::string reply(int MessNum) {
        const CapturedOutput output;
        ux_InWriteMailReply(MessNum);
        return output.text();
    }
    static std::string host() { return os_gethostname(64); }
    // The reason of the escape that a reply to `fd` ends in; 0: none.
    static int reason_when_written_to(int fd) {
        const os_Fd saved(::dup(STDOUT_FILENO));
        ::dup2(fd, STDOUT_FILENO);
        int reason = 0;
        try {
            ux_InWriteMailReply(kReplyOk);
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.group(), kGatewayGroup);
            reason = escape.reason();
        }
        ::dup2(saved.get(), STDOUT_FILENO);
        return reason;
    }

    TestHome home_;
    LogLines log_;
};

TEST_F(Replies, ComeFromTheCatalog) {
    open(
        "$set 102\n1403 220 ready\n1406 250 a 100%% %s %d\n1405 503 out of order (%s)\n1424 451 (%s), %%\n1407 no "
        "code\n");
    struct Row {
        int number;
        std::string text;
        const char* why;
    };
    const Row rows[] = {
        {kReplyGreeting, "220 ready\n", "a line end is added"},
        {kReplyOk, "250 a 100%% %s %d\n", "what is no refusal is no format: it is copied as it stands"},
        {kReplyBadSequence, "503 out of order (" + host() + ")\n", "5...: the host's name"},
        {kReplyLocalError, "451 (" + host() + "), %\n", "4...: the host's name"},
        {kReplyStartInput, "no code\n", "the text says what it is, nobody checks"},
    };
    for (const Row& row : rows) EXPECT_EQ(reply(row.number), row.text) << row.why;
}

TEST_F(Replies, ATextWithALineEndGetsNoOther) {
    open("$set 102\n1406 250-one\\n250 two\\n\n1407 354 inside\\nand no more\n");
    EXPECT_EQ(reply(kReplyOk), "250-one\n250 two\n");
    EXPECT_EQ(reply(kReplyStartInput), "354 inside\nand no more");
    EXPECT_EQ(log_.all().back(), "11 102.1504 354 inside\\x0Aand no more") << "the log has every character of it";
}

TEST_F(Replies, AreCutAt2049Characters) {
    const std::string x(3000, 'x');
    open("$set 102\n1403 2" + x.substr(0, 2048) + "\n1406 2" + x.substr(0, 2049) + "\n1424 4" + x + "\n");
    EXPECT_EQ(reply(kReplyGreeting), "2" + x.substr(0, 2048) + "\n") << "2049: whole";
    EXPECT_EQ(reply(kReplyOk), "2" + x.substr(0, 2048) + "\n") << "2050: cut";
    EXPECT_EQ(reply(kReplyLocalError), "4" + x.substr(0, 2048) + "\n") << "a refusal too";
}

TEST_F(Replies, WithoutACatalogAreTextsOfLastResort) {
    os_MCOpen(102);  // nls/C is empty
    EXPECT_EQ(reply(kReplyClosing), "221 Closing connection\n");
    const std::string other = "451 QN.UX Gateway on '" + host() + "': Error accessing 'C' catalog\n";
    for (const int number : {kReplyGreeting, kReplyOk, kReplyHello, kReplyLocalError}) EXPECT_EQ(reply(number), other);
}

TEST_F(Replies, OfLastResortNameTheFolderOfTheLanguage) {
    os_mkdirs("~/nls/de", 0700);
    home_.write("nls/de/unix.cat", "no catalog");
    ::setenv("LANG", "de_AT.UTF-8", 1);
    os_MCOpen(102);
    EXPECT_EQ(reply(kReplyOk), "451 QN.UX Gateway on '" + host() + "': Error accessing 'de' catalog\n");
    ::unsetenv("LANG");
    EXPECT_EQ(reply(kReplyOk), "451 QN.UX Gateway on '" + host() + "': Error accessing 'C' catalog\n");
    ::setenv("LANG", "C", 1);
}

TEST_F(Replies, ANumberThatTheCatalogLacksIsAsWithoutCatalog) {
    open("$set 102\n1403 220 ready\n");
    EXPECT_EQ(reply(kReplyOk).substr(0, 4), "451 ");
    EXPECT_EQ(reply(kReplyClosing), "221 Closing connection\n");
    EXPECT_EQ(reply(kReplyGreeting), "220 ready\n");
}

TEST_F(Replies, AreLoggedWithoutTheirLineEnd) {
    open("$set 102\n1406 250 fine\n");
    reply(kReplyOk);
    EXPECT_EQ(log_.all(), std::vector<std::string>{"11 102.1504 250 fine"});
}

TEST_F(Replies, AnAgentThatHasGoneIsAFailedWrite) {
    open(kReplyTexts);
    std::signal(SIGPIPE, SIG_IGN);
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const os_Fd writing(ends[1]);
    ::close(ends[0]);
    EXPECT_EQ(reason_when_written_to(writing.get()), 1024);
    const os_Fd full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
    EXPECT_EQ(reason_when_written_to(full.get()), 1024);
    const os_Fd unwritable(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(reason_when_written_to(unwritable.get()), 1024);
    EXPECT_EQ(log_.count("11 102.1504"), 0U) << "what was not written is not logged as written";
    std::signal(SIGPIPE, SIG_DFL);
}

TEST_F(Replies, ASlowAgentIsWaitedFor) {
    open(kReplyTexts);
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    const os_Fd reading(ends[0]), writing(ends[1]);
    while (::write(writing.get(), "x", 1) == 1) {}
    const pid_t reader = start_child([&] {
        ::usleep(50'000);
        std::string block(1 << 20, '\0');
        return ::read(reading.get(), block.data(), block.size()) > 0 ? 0 : 1;
    });
    EXPECT_EQ(reason_when_written_to(writing.get()), 0);
    EXPECT_EQ(await_child(reader), 0);
}

}  // namespace
