// The dialogue: what is answered to what, what a transaction is, and what one message leaves to the next. Replies are
// "220 1403": a code and their own number.
#include "ux_in/session.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>

#include <csignal>
#include <ctime>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "os/catalog.h"
#include "support/captured_output.h"
#include "support/catalog.h"
#include "support/home.h"
#include "support/log_lines.h"
#include "support/queued.h"
#include "support/reset.h"
#include "ux_in/lines.h"
#include "ux_in/recipients.h"

namespace {

using Lines = std::vector<std::string>;

constexpr std::string_view kKeys = "UXI_MIME_CS_AUTODETECT = \"N\"\n";
constexpr std::string_view kMail = "Date: Fri, 20 Nov 2026 10:00:00 +0000\nSubject: x\n\nHello.\n.\n";

std::string data(std::string_view header, std::string_view body = "Hello.\n") {
    return "DATA\nDate: Fri, 20 Nov 2026 10:00:00 +0000\n" + std::string(header) + "\n" + std::string(body) + ".\n";
}

class Session : public testing::Test {
protected:
    Session() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
        ::setenv("LANG", "C", 1);
        write_catalog(home_, kReplyTexts);
        os_MCOpen(102);
    }
    ~Session() override { os_MCClose(); }

    // Runs a session over what the agent writes; gives the numbers of the replies, "!group.reason" when it escapes, and
    // whether there was a protocol error, "error".
    std::string run(std::string_view dialogue, std::string_view actual_sender = "") {
        input_ = os_Fd(::memfd_create("dialogue", MFD_CLOEXEC));
        os_write_all(input_.get(), dialogue);
        ::lseek(input_.get(), 0, SEEK_SET);
        ux_SetInput(input_.get());
        const CapturedOutput output;
        std::string end;
        try {
            end = ux_InUnixToMorvaneMapper(actual_sender) ? " error" : "";
        } catch (const er_Escape& escape) {
            end = " !" + std::to_string(escape.group()) + "." + std::to_string(escape.reason());
        }
        return numbers(output.text()) + end;
    }
    static std::string numbers(std::string_view replies) {
        std::string out;
        while (!replies.empty()) {
            const std::string_view line = replies.substr(0, replies.find('\n'));
            if (!out.empty()) out += ' ';
            out += line.substr(4, 4);
            replies.remove_prefix(line.size() + 1);
        }
        return out;
    }
    // Recipients as they were accepted.
    Lines accepted() const {
        Lines found;
        for (const std::string& line : log_.all())
            if (line.starts_with("9 102.1505 ")) found.push_back(line.substr(11));
        return found;
    }
    static std::string at_host(std::string_view local) { return std::string(local) + "@" + localHostName(); }

    TestHome home_{kKeys};
    LogLines log_;
    FreshGateway fresh_;
    os_Fd input_;
};

TEST_F(Session, RepliesToEachCommand) {
    const struct {
        std::string dialogue, replies;
        const char* why;
    } rows[] = {
        {"QUIT\n", "1403 1409", "a greeting and a goodbye"},
        {"HELO\nHELO host\nHELO\thost\nQUIT\n", "1403 1404 1404 1404 1409", "HELO"},
        {"EHLO host\nHELO host\nQUIT\n", "1403 1426 1404 1409", "EHLO is refused, and is no error"},
        {"NOOP\nRSET\nnoop  \nQUIT  \n", "1403 1406 1406 1406 1409", ""},
        {"HELOX\nQUIT\n", "1403 1408 1409 error", "white space only after four letters"},
        {"VRFY a\nEXPN a\nHELP\n\nQUIT now\nQUIT\n", "1403 1408 1408 1408 1408 1408 1409 error", "not recognised"},
        {"RCPT TO:<a@x>\nMAIL FROM:<s@x>\nRCPT TO:<a@x>\nQUIT\n", "1403 1405 1406 1406 1409 error",
         "RCPT before MAIL, and the session goes on"},
        {"DATA\nMAIL FROM:<s@x>\nDATA\nNOOP\nQUIT\n", "1403 1405 1406 1405 1406 1409 error",
         "DATA without a recipient"},
        {"MAIL FROM:<s@x>\nRCPT TO:<a@x>\nRSET\nDATA\nQUIT\n", "1403 1406 1406 1406 1405 1409 error", "after RSET"},
        {"MAIL FROM:<s@x>\nRCPT TO:<a@x>\nRSET\nRCPT TO:<a@x>\nQUIT\n", "1403 1406 1406 1406 1405 1409 error",
         "the sender is gone too"},
        {"MAIL FROM <s@x>\nRCPT TO <a@x>\nQUIT\n", "1403 1408 1408 1409 error", "no colon"},
        {"MAIL FROM:\nRCPT TO:\nQUIT\n", "1403 1406 1406 1409", "empty paths are paths"},
        {"MAIL FROM:<s@x>\nRCPT TO:<a@x>\nDATA\n" + std::string(kMail) + "QUIT\n", "1403 1406 1406 1407 1406 1409",
         "a message"},
        {"MAIL FROM:<s@x>\nRCPT TO:<a@x>\nDATA\n" + std::string(kMail) + "DATA\nQUIT\n",
         "1403 1406 1406 1407 1406 1405 1409 error", "DATA ends the transaction"},
        {"MAIL FROM:<s@x>\nRCPT TO:<a@x>\nDATA\n" + std::string(kMail) + "RCPT TO:<a@x>\nQUIT\n",
         "1403 1406 1406 1407 1406 1405 1409 error", "and its sender"},
    };
    for (const auto& row : rows) EXPECT_EQ(run(row.dialogue), row.replies) << row.dialogue << row.why;
}

TEST_F(Session, EndOfInputIsNeverANormalEnd) {
    const std::string begun = "MAIL FROM:<s@x>\nRCPT TO:<a@x>\nDATA\n";
    const struct {
        std::string dialogue, replies;
    } rows[] = {
        {"", "1403 !102.1402"},
        {"NOOP\n", "1403 1406 !102.1402"},
        {"NOOP", "1403 1406 !102.1402"},
        {begun, "1403 1406 1406 1407 !102.1401"},
        {begun + "Subject: x\n", "1403 1406 1406 1407 !102.1401"},
        {begun + "Subject: x\n\nHello.\n.", "1403 1406 1406 1407 !102.1401"},
        {begun + std::string(kMail), "1403 1406 1406 1407 1406 !102.1402"},
    };
    for (const auto& row : rows) EXPECT_EQ(run(row.dialogue), row.replies) << row.dialogue;
    EXPECT_EQ(queued_messages().size(), 1U) << "the one that was accepted";
}

TEST_F(Session, NothingIsSaidBeforeTheConfigurationIsRead) {
    home_.write("sys/config", "");
    EXPECT_EQ(run("QUIT\n"), " !102.1420");
}

TEST_F(Session, BeginningAndEndAreLogged) {
    run("QUIT\n");
    EXPECT_EQ(log_.count("11 102.1501"), 1U);
    EXPECT_EQ(log_.count("11 102.1502"), 1U);
    run("");
    EXPECT_EQ(log_.count("11 102.1501"), 2U);
    EXPECT_EQ(log_.count("11 102.1502"), 1U);
}

TEST_F(Session, PathsWithoutAHostGetThisOne) {
    const std::string host = localHostName();
    const struct {
        std::string path, qualified;
    } rows[] = {
        {"<postmaster>", "<postmaster@" + host + ">"},
        {"postmaster", "postmaster@" + host},
        {"<u@far.example>", "<u@far.example>"},
        {"<>", "<@" + host + ">"},
        {"", "@" + host},
        {"<a>b>", "<a@" + host + ">"},
        {"<@hop:u>", "<@hop:u>"},
        {"\"a@b\"", "\"a@b\""},
    };
    std::string dialogue = "MAIL FROM:<s@x>\n";
    Lines expected;
    for (const auto& row : rows) {
        dialogue += "RCPT TO:" + row.path + "\n";
        expected.push_back(row.qualified);
    }
    run(dialogue + "QUIT\n");
    EXPECT_EQ(accepted(), expected);
}

TEST_F(Session, AQualifiedPathStaysWithinItsBound) {
    const std::string host = localHostName(), a(1024, 'a');
    const std::size_t room = 1024 - host.size() - 1;  // beside "@host"
    run("MAIL FROM:<s@x>\nRCPT TO:" + a.substr(0, room) + "\nRCPT TO:" + a.substr(0, room + 1) + "\nRCPT TO:" + a +
        "\nQUIT\n");
    EXPECT_EQ(accepted(),
              (Lines{a.substr(0, room) + "@" + host, (a.substr(0, room + 1) + "@" + host).substr(0, 1024), a}));
}

TEST_F(Session, SendersAreQualifiedButTheNullPathIsNot) {
    const struct {
        std::string path, creator;
    } rows[] = {
        {"<local>", at_host("local") + ">"},
        {"local", at_host("local")},
        {"<u@far.example>", "<u@far.example>"},
    };
    for (const auto& row : rows) {
        run("MAIL FROM:" + row.path + "\nRCPT TO:<a@x>\n" + data("") + "QUIT\n");
        const std::string creator = only(queued_messages().back().records, 10000);
        EXPECT_TRUE(creator.ends_with(row.creator)) << creator;
    }
    run("MAIL FROM:<>\nRCPT TO:<a@x>\n" + data("From: f@far.example\n") + "QUIT\n");
    const QueuedMessage message = queued_messages().back();
    EXPECT_EQ(message.records[0], "1100 class 0 type 0 flags 41984 hops 0") << "from a mailer daemon";
    EXPECT_EQ(only(message.records, 10000), "10000 /DD.RFC-822=f(a)far.example/IA=f@far.example");
}

TEST_F(Session, AnActualSenderTakesThePlaceOfEverySender) {
    for (const char* path : {"<president@far.example>", "<>", "", "joe"}) {
        EXPECT_EQ(run("MAIL FROM:" + std::string(path) + "\nRCPT TO:<a@x>\n" + data("") + "QUIT\n", "joe"),
                  "1403 1406 1406 1407 1406 1409");
        const std::string creator = only(queued_messages().back().records, 10000);
        EXPECT_TRUE(creator.ends_with("/IA=" + at_host("joe"))) << creator;
    }
}

TEST_F(Session, AnActualSenderKeepsTheOtherParameters) {
    run("MAIL FROM:<president@far.example> RET=HDRS\nRCPT TO:<a@x>\n" + data("") + "QUIT\n", "joe");
    EXPECT_EQ(queued_messages().back().records[0], "1100 class 0 type 0 flags 0 hops 0");
}

TEST_F(Session, ASecondSenderReplacesTheFirstAndKeepsTheRecipients) {
    run("MAIL FROM:<first@far.example>\nRCPT TO:<a@far.example>\nMAIL FROM:<second@far.example>\nRCPT "
        "TO:<b@far.example>\n" +
        data("") + "QUIT\n");
    const QueuedMessage message = queued_messages().back();
    EXPECT_TRUE(only(message.records, 10000).ends_with("<second@far.example>"));
    EXPECT_EQ(of_type(message.records, 40000).size(), 2U);
}

TEST_F(Session, NotifyIsOfOneRecipient) {
    run("MAIL FROM:<s@x>\nRCPT TO:<a@x> NOTIFY=NEVER\nRCPT TO:<b@x>\nRCPT TO:<c@x> NOTIFY=SUCCESS\nRCPT TO:<d@x>\n" +
        data("") + "QUIT\n");
    const Lines recipients = of_type(queued_messages().back().records, 40000);
    ASSERT_EQ(recipients.size(), 4U);
    const int flags[] = {0x70, 0x60, 0x64, 0x60};
    for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(std::stoi(recipients[i].substr(6)), flags[i]) << i;
}

TEST_F(Session, ReturnOfContentAndEnvelopeIdentifierAreOfTheSession) {
    const std::string mail = "RCPT TO:<a@x>\n" + data("Message-Id: <m@x>\n");
    run("MAIL FROM:<s@x>\n" + mail + "MAIL FROM:<s@x> RET=HDRS ENVID=one\n" + mail + "MAIL FROM:<s@x>\n" + mail +
        "RSET\n" + "MAIL FROM:<s@x>\n" + mail + "MAIL FROM:<s@x> RET=FULL\n" + mail + "MAIL FROM:<s@x> ENVID=two\n" +
        mail + "QUIT\n");
    Lines seen;
    for (const QueuedMessage& message : queued_messages())
        seen.push_back(message.records[0].substr(20) + only(message.records, 13100).substr(5));
    EXPECT_EQ(seen,
              (Lines{"flags 1024 hops 0 m(a)x | m(a)x", "flags 0 hops 0 m(a)x | one", "flags 0 hops 0 m(a)x | one",
                     "flags 0 hops 0 m(a)x | one", "flags 1024 hops 0 m(a)x | one", "flags 1024 hops 0 m(a)x | two"}));
    run("MAIL FROM:<s@x>\n" + mail + "QUIT\n");
    EXPECT_EQ(only(queued_messages().back().records, 13100), "13100 m(a)x | m(a)x")
        << "of this session, not of the process";
}

TEST_F(Session, RecipientNumbersRunOn) {
    const std::string two = "MAIL FROM:<s@x>\nRCPT TO:<a@x>\nRCPT TO:<b@x>\n" + data("");
    run(two + two + "QUIT\n");
    Lines numbers;
    for (const QueuedMessage& message : queued_messages())
        for (const std::string& line : of_type(message.records, 40000)) numbers.push_back(line.substr(9, 1));
    EXPECT_EQ(numbers, (Lines{"1", "2", "3", "4"}));
}

// Everything that a message can set, then a message that sets nothing: what is converted of it is what would have been
// converted of it alone.
TEST_F(Session, AMessageLeavesNothingBehindForTheNext) {
    const std::string everything =
        "MAIL FROM:<>\nRCPT TO:<a@far.example> NOTIFY=NEVER\nRCPT TO:<b> NOTIFY=SUCCESS\n" +
        data(
            "Return-Path: <r@far.example>\nFrom: Author <from@far.example>\nSender: sender@far.example\nTo: "
            "a@far.example, b\n"
            "Cc: c@far.example\nBcc: b\nReply-To: d@far.example\nSubject: =?UTF-8?Q?=C3=A9?=\nMessage-Id: "
            "<one@far.example>\n"
            "In-Reply-To: <zero@far.example>\nReferences: <zero@far.example>\nx-ploxen-Transport-Id: <t>\n"
            "Reply-By: Sat, 21 Nov 2026 10:00:00 +0000\nOriginator-Return-Address: o@far.example\nx-ploxen-Hops: 9\n"
            "Autoforwarded: TRUE\nAutoreplied: TRUE\nPriority: urgent\nImportance: high\nSensitivity: private\n"
            "Precedence: bulk\nDisposition-Notification-To: r@far.example\nx-ploxen-PartInfo: fc=2133.UTF8, fc=1734\n",
            "caf\xC3\xA9\nbegin 644 x\n#86)C\n`\nend\n\nmore\n");
    const std::string dropped =
        "MAIL FROM:<s@x>\nRCPT TO:<a@x>\n" +
        data("X-Lucent-Syncmark: x\nAutoforwarded: TRUE\nPriority: urgent\nMessage-Id: <l@x>\n");
    const std::string plain[] = {
        "MAIL FROM:<s@x>\nRCPT TO:<p@far.example>\n" + data("Subject: plain\n"),
        "MAIL FROM:<s@x>\nRCPT TO:<p>\n" + data("To: p\nMessage-Id: <p@x>\n"),
        "MAIL FROM:<s@x>\nRCPT TO:<p@x>\n" + data("From: f@x\n", "text\nbegin 644 y\n#86)C\n`\nend\n"),
        "MAIL FROM:<>\nRCPT TO:<p@x>\n" + data("From: f@x\nAutoforwarded: TRUE\n", "caf\xE9\n"),
    };
    const auto last = [&](const std::string& before, const std::string& mail) {
        const FreshGateway fresh;
        run(before + mail + "QUIT\n");
        QueuedMessage
            message;  // of the run's messages the last one in time is that of the lowest rank: look it up by hand
        for (const QueuedMessage& candidate : queued_messages())
            if (candidate.priority == 0) message = candidate;
        for (std::string& line : message.records)
            if (line.starts_with("40000 "))
                line.erase(line.find(' ', 6), line.find(' ', line.find(' ', 6) + 1) - line.find(' ', 6));
        return message;
    };
    for (const std::string& mail : plain) {
        const QueuedMessage alone = last("", mail);
        ASSERT_FALSE(alone.records.empty());
        for (const std::string& before : {everything, dropped, everything + dropped}) {
            const QueuedMessage after = last(before, mail);
            EXPECT_EQ(after.records, alone.records) << mail;
            EXPECT_EQ(after.files, alone.files) << mail;
        }
    }
}

TEST_F(Session, TheListOfRecipientsIsGoneAfterwards) {
    const std::string begun = "MAIL FROM:<s@x>\nRCPT TO:<a@x>\n";
    for (const std::string& end :
         {std::string("RSET\n"), data(""), std::string(), data("X-Lucent-Syncmark:\nAutoforwarded: TRUE\n")}) {
        run(begun + end + "QUIT\n");
        EXPECT_FALSE(ux_recipients().gRecipList.exists()) << end;
    }
}

TEST_F(Session, ADroppedLoopIsAnsweredOk) {
    EXPECT_EQ(
        run("MAIL FROM:<s@x>\nRCPT TO:<a@x>\n" + data("X-Lucent-Syncmark: x\nAutoforwarded: TRUE\n", "QUIT\n..\n") +
            "MAIL FROM:<s@x>\nRCPT TO:<a@x>\n" + data("") + "QUIT\n"),
        "1403 1406 1406 1407 1406 1406 1406 1407 1406 1409");
    EXPECT_EQ(queued_messages().size(), 1U) << "only the second";
    EXPECT_FALSE(er_GetLive());
    EXPECT_EQ(run("MAIL FROM:<s@x>\nRCPT TO:<a@x>\nDATA\nX-Lucent-Syncmark: x\nAutoforwarded: TRUE\n\nHello.\n"),
              "1403 1406 1406 1407 !102.1401")
        << "one that is cut off was not read to its end";
}

// A failure before the end line has been read: the rest is read away, to its end line and no further.
TEST_F(Session, ARefusedTextIsReadAwayOnce) {
    std::string body;
    for (int i = 0; i < 5000; ++i) body += "QUIT\n" + std::string(96, 'x') + "\nRSET\n";
    const std::string begun = "MAIL FROM:<s@x>\nRCPT TO:<a@x>\n";
    std::filesystem::remove_all(home_.file("data"));
    EXPECT_EQ(run(begun + data("", body + "..\n" + std::string(2000, 'y') + ".\n") + "NOOP\nQUIT\n"),
              "1403 1406 1406 1407 !1.2");
    EXPECT_TRUE(er_GetLive());
    EXPECT_EQ(ux_Input().command().text, "NOOP") << "the next line is a command";
    EXPECT_EQ(run(begun + "DATA\n\n" + body), "1403 1406 1406 1407 !1.2")
        << "input that ends meanwhile leaves the refusal's own number";
    EXPECT_EQ(er_GetReason(), 2) << "that is the error on record, too";
}

TEST_F(Session, ATextThatFailedInTheMiddleIsReadAwayToo) {
    std::string body;
    for (int i = 0; i < 5000; ++i) body += "QUIT\n" + std::string(96, 'x') + "\n";  // more than memory takes
    const int result = run_in_child([&] {
        const std::string dialogue = "MAIL FROM:<s@x>\nRCPT TO:<a@x>\n" + data("", body) + "NOOP\n";
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) return 2;
        const pid_t agent = start_child([&] {
            os_write_all(ends[1], dialogue);
            return 0;
        });
        ::close(ends[1]);
        ux_SetInput(ends[0]);
        const CapturedOutput output;
        limit_file_size(50'000);
        try {
            ux_InUnixToMorvaneMapper("");
            return 3;
        } catch (const er_Escape& escape) {
            if (escape.group() != kGatewayGroup || escape.reason() != 1412) return 4;
        }
        if (ux_Input().command().text != "NOOP") return 5;
        return await_child(agent);
    });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(home_.files("data"), Lines{});
}

TEST_F(Session, AFailureAfterTheEndLineReadsNothingAway) {
    std::filesystem::remove_all(home_.file("queues/ROUTER"));
    EXPECT_EQ(run("MAIL FROM:<s@x>\nRCPT TO:<a@x>\n" + data("") + "NOOP\nQUIT\n"), "1403 1406 1406 1407 !1.2");
    EXPECT_EQ(ux_Input().command().text, "NOOP");
}

TEST_F(Session, AMessageIsQueuedEvenIfItsReplyIsLost) {
    std::signal(SIGPIPE, SIG_IGN);
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const os_Fd reading(ends[0]), writing(ends[1]);
    // Room for four replies of eight to nine bytes; the fifth, to the text, finds the pipe gone.
    const pid_t session = start_child([&] {
        ::dup2(writing.get(), STDOUT_FILENO);
        ::close(reading.get());
        int input[2];
        if (::pipe2(input, O_CLOEXEC) != 0) return 2;
        ux_SetInput(input[0]);
        os_write_all(input[1], "MAIL FROM:<s@x>\nRCPT TO:<a@x>\nDATA\n");
        const pid_t agent = start_child([&] {
            ::close(STDOUT_FILENO);
            ::usleep(100'000);
            os_write_all(input[1], std::string(kMail));
            return 0;
        });
        ::close(input[1]);
        int result = 3;
        try {
            ux_InUnixToMorvaneMapper("");
        } catch (const er_Escape& escape) {
            result = escape.reason() == 1024 ? 1 : 4;
        }
        await_child(agent);
        return result;
    });
    std::string replies(9 * 4, '\0');
    std::size_t have = 0;
    while (have < 36) have += os_read(reading.get(), replies.data() + have, replies.size() - have);
    EXPECT_EQ(numbers(replies), "1403 1406 1406 1407");
    os_Fd gone(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    ::dup2(gone.get(), reading.get());  // the agent goes
    EXPECT_EQ(await_child(session), 1);
    EXPECT_EQ(queued_messages().size(), 1U);
    std::signal(SIGPIPE, SIG_DFL);
}

TEST_F(Session, HostNamesAreLookedUpOnce) {
    EXPECT_FALSE(localHostName().empty());
    EXPECT_LE(localHostName().size(), 256U);
    EXPECT_EQ(&localHostName(), &localHostName());
}

}  // namespace
