// The conversion of one message, from its text to the queue: which records, in which order, and what is left when it
// fails. The records are those of the main transfer file.
#include "ux_in/driver.h"

#include <stdlib.h>

#include <ctime>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "aud/aud.h"
#include "er/er.h"
#include "support/home.h"
#include "support/log_lines.h"
#include "support/message_text.h"
#include "support/queued.h"
#include "support/reset.h"
#include "ux_in/charsets.h"
#include "ux_in/recipients.h"

namespace {

using Lines = std::vector<std::string>;

constexpr std::string_view kShortNames = "INET_NO_IA_IN_ORN = true\n";  // names without the address itself in them

std::string far(std::string_view local) { return "/DD.RFC-822=" + std::string(local) + "(a)far.example"; }

class Driver : public testing::Test {
protected:
    Driver() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
        ux_charsets().FromCharSet = ux_charsets().ToLatinCS = "ISO8859_1";
        ux_charsets().DoCSAutoDetect = 'N';
    }

    void keys(std::string_view toml) const { home_.set_keys(std::string(kShortNames).append(toml)); }
    // Converts a message to one recipient unless others were added before.
    void convert(std::string_view text, std::string_view sender = "<sender@far.example>") {
        if (!ux_recipients().gRecipList.exists()) ux_InAddArpaRecipToList("<reader@far.example>", "", false, false);
        const MessageText input(text);
        envelope_.pArpaSender = sender;
        ux_InConvUnixMsgToMorvane(envelope_);
        EXPECT_FALSE(ux_Input().text_open());
        ux_InFreeRecipList();
    }
    // The message that the conversion queued.
    QueuedMessage message(std::string_view text, std::string_view sender = "<sender@far.example>") {
        const std::size_t before = queued_messages().size();
        convert(text, sender);
        const std::vector<QueuedMessage> queued = queued_messages();
        EXPECT_EQ(queued.size(), before + 1);
        return queued.empty() ? QueuedMessage() : queued.back();
    }
    // Group and reason of the failure that the conversion ends in.
    std::string failure(std::string_view text, std::string_view sender = "<sender@far.example>") {
        try {
            convert(text, sender);
        } catch (const er_Escape& escape) {
            ux_InFreeRecipList();
            return std::to_string(escape.group()) + "." + std::to_string(escape.reason());
        }
        return "none";
    }
    static int flags(const std::string& recipient) { return std::stoi(recipient.substr(6)); }
    Lines left() const {
        Lines files = home_.files("data");
        for (const char* folder : {"tmp", "queues/ROUTER"})
            for (const std::string& file : home_.files(folder)) files.push_back(file);
        return files;
    }

    TestHome home_{kShortNames};
    LogLines log_;
    FreshGateway fresh_;
    ux_Envelope envelope_{.pArpaSender = {}, .pEnvid = {}, .ROCWanted = true};
};

constexpr std::string_view kDate = "Date: Fri, 20 Nov 2026 10:00:00 +0000\n";

std::string mail(std::string_view header, std::string_view body = "Hello.\n") {
    return std::string(kDate).append(header).append("\n").append(body).append(".\n");
}

TEST_F(Driver, APlainMessageWhole) {
    const QueuedMessage message = this->message(
        mail("From: author@far.example\nTo: reader@far.example\nSubject: Hi\nMessage-Id: <m@far.example>\n"));
    EXPECT_EQ(message.records,
              (Lines{"1100 class 0 type 0 flags 1024 hops 0", "13000 1795168800 0", "11100 Hi",
                     "13100 m(a)far.example | m(a)far.example", "10000 " + far("sender"), "10005 " + far("author"),
                     "30700 1 inetMessageHeader 131", "30500 1166 kind 2 size 0 Hi", "30500 1167 kind 0 size 7 Hi",
                     "40000 32 1 " + far("reader")}));
    ASSERT_EQ(message.files.size(), 2U);
    EXPECT_EQ(message.list(), (Lines{"1100 class 2 type 1000 flags 1024 hops 0", "20010 flags 1 total 2 1 1 0 0 0 0",
                                     "22000 " + far("author"), "22100 " + far("reader")}));
    EXPECT_EQ(message.files[1], "Hello.\n");
    EXPECT_EQ(home_.files("data").size(), 4U) << "message, transfer, list and text file: the header item is deleted";
}

TEST_F(Driver, AHeaderThatEndsTheTextIsAMessageWithoutABody) {
    const QueuedMessage message = this->message("Subject: Hi\n" + std::string(kDate) + ".\n");
    EXPECT_EQ(of_type(message.records, 30500), Lines{"30500 1166 kind 2 size 0 Hi"});
    EXPECT_EQ(message.files.size(), 1U);
    EXPECT_EQ(only(message.records, 30700), "30700 1 inetMessageHeader 52") << "the header is in the message";
    EXPECT_EQ(home_.files("data").size(), 3U) << "its item is deleted";
}

TEST_F(Driver, ATextOfNothingIsAMessageToo) {
    const QueuedMessage message = this->message(".\n");
    EXPECT_EQ(of_type(message.records, 40000).size(), 1U);
    EXPECT_EQ(message.files.size(), 1U);
}

TEST_F(Driver, HeadersAreNotKeptWhenObjectFilesAreOff) {
    ux_driver().GenObjFiles = false;
    EXPECT_EQ(of_type(message(mail("")).records, 30700), Lines{});
}

TEST_F(Driver, FullContentIsWantedOrNot) {
    envelope_.ROCWanted = false;
    const QueuedMessage message = this->message(mail(""));
    EXPECT_EQ(message.records[0], "1100 class 0 type 0 flags 0 hops 0");
    EXPECT_EQ(message.list()[0], "1100 class 2 type 1000 flags 0 hops 0");
}

// Who the message is from: creator (10000) and P2 originator (10005).
TEST_F(Driver, TheCreatorIsTheEnvelopeSenderAndTheOriginatorIsInTheHeader) {
    const std::string from = "From: from@far.example\n", sender = "Sender: sender2@far.example\n";
    const struct {
        const char* keys;
        std::string header;
        const char* envelope;
        std::string creator, originator;
        const char* why;
    } rows[] = {
        {"", from + sender, "<e@far.example>", far("e"), far("from"), "From before Sender"},
        {"", sender, "<e@far.example>", far("e"), far("sender2"), "Sender without From"},
        {"", "From: <>\n" + sender, "<e@far.example>", far("e"), far("sender2"), "a null From is none"},
        {"", "", "<e@far.example>", far("e"), "", "neither: no originator record"},
        {"", from + "From: second@far.example\n", "<e@far.example>", far("e"), far("from"), "the first From"},
        {"UXI_DO_1327_SENDER_MAP = true", from + sender, "<e@far.example>", far("e"), far("sender2"),
         "Sender before From"},
        {"UXI_DO_1327_SENDER_MAP = true", from, "<e@far.example>", far("e"), far("from"), "From without Sender"},
        {"UXI_DO_1327_SENDER_MAP = true", "Sender: <>\n" + from, "<e@far.example>", far("e"), far("from"),
         "a null Sender"},
        {"UXI_DO_1327_SENDER_MAP = false", from + sender, "<e@far.example>", far("e"), far("from"),
         "the key is not true"},
        {"UX_USE_ARPA_SENDER = true", from + sender, "<e@far.example>", far("from"), "", "the originator creates"},
        {"UX_USE_ARPA_SENDER = true", "", "<e@far.example>", far("e"), "", "else the envelope sender"},
        {"UX_USE_ARPA_SENDER = true\nUXI_DO_1327_SENDER_MAP = true", from + sender, "<e@far.example>", far("sender2"),
         "", "both keys"},
        {"UX_USE_ARPA_SENDER = true", "", "<>", "/S=Postmaster", "", "nobody at all"},
        {"", "", "<>", "/S=Postmaster", "", "a null sender is not a creator, with the key or without"},
        {"", from, "<>", far("from"), "", "a null sender: the originator creates"},
        {"", from, "<MAILER-DAEMON@far.example>", far("MAILER-DAEMON"), far("from"), "a mailer daemon is a sender"},
    };
    for (const auto& row : rows) {
        keys(row.keys);
        const QueuedMessage message = this->message(mail(row.header), row.envelope);
        EXPECT_EQ(only(message.records, 10000), "10000 " + row.creator) << row.why;
        EXPECT_EQ(only(message.records, 10005), row.originator.empty() ? "" : "10005 " + row.originator) << row.why;
    }
}

TEST_F(Driver, APostmastersMessageIsLoggedWithSubjectAndIdentifier) {
    convert(mail("Subject: Lost\nMessage-Id: <lost@far.example>\n"), "<>");
    EXPECT_EQ(log_.first("5 102.1547"), "5 102.1547 Lost lost@far.example");
    EXPECT_EQ(envelope_.pArpaSender, "Postmaster");
}

TEST_F(Driver, NullSendersAndMailerDaemonsGetNoNonDeliveryReports) {
    const struct {
        const char* sender;
        bool disallowed;
        const char* why;
    } rows[] = {
        {"<>", true, "null"},
        {"<@far.example>", true, "an empty local part"},
        {"<MAILER-DAEMON@far.example>", true, "a daemon"},
        {"<MAILER-DAEMON-2@far.example>", true, "one that begins so"},
        {"<mailer-daemon@far.example>", false, "in capitals only"},
        {"<sender@far.example>", false, "somebody"},
    };
    for (const auto& row : rows) {
        ux_InAddArpaRecipToList("<a@far.example>", "", false, false);
        ux_InAddArpaRecipToList("<b@far.example>", "", true, true);
        const QueuedMessage message = this->message(mail("From: x@far.example\n"), row.sender);
        const Lines recipients = of_type(message.records, 40000);
        ASSERT_EQ(recipients.size(), 2U);
        EXPECT_EQ((flags(recipients[0]) & 0x10) != 0, row.disallowed) << row.why;
        EXPECT_NE(flags(recipients[1]) & 0x10, 0) << "one that asked for none gets none";
        EXPECT_EQ(message.records[0],
                  row.disallowed ? "1100 class 0 type 0 flags 41984 hops 0" : "1100 class 0 type 0 flags 1024 hops 0")
            << row.why;
    }
}

TEST_F(Driver, ADispositionNotificationRaisesEveryAcknowledgementToSeven) {
    const struct {
        const char* header;
        int plain, notified;
    } rows[] = {
        {"", 0x0060, 0x0064},
        {"Disposition-Notification-To: sender@far.example\n", 0x0060 | 0x8000 | 0x2000 | 7, 0x0060 | 0x8000 | 7},
    };
    for (const auto& row : rows) {
        ux_InAddArpaRecipToList("<a@far.example>", "", false, false);
        ux_InAddArpaRecipToList("<b@far.example>", "", false, true);
        const Lines recipients = of_type(message(mail(row.header)).records, 40000);
        ASSERT_EQ(recipients.size(), 2U);
        EXPECT_EQ(flags(recipients[0]), row.plain) << row.header;
        EXPECT_EQ(flags(recipients[1]), row.notified) << row.header;
    }
}

TEST_F(Driver, ThePriorityIsThatOfTheQueue) {
    convert(mail("Subject: low\nPriority: non-urgent\n"));
    convert(mail("Subject: normal\n"));
    convert(mail("Subject: high\nPriority: urgent\n"));
    Lines served;
    for (const QueuedMessage& message : queued_messages())
        served.push_back(only(message.records, 11100) + " " + std::to_string(message.priority));
    EXPECT_EQ(served, (Lines{"11100 high 2", "11100 normal 0", "11100 low 1"}));
}

TEST_F(Driver, TheSubjectIsThatOfTheListAndOfEveryPart) {
    const QueuedMessage message = this->message(mail("Subject: =?UTF-8?Q?Gr=C3=BC=C3=9Fe?=\n"));
    const std::string subject = only(message.records, 11100).substr(6);
    EXPECT_EQ(of_type(message.records, 30500),
              (Lines{"30500 1166 kind 2 size 0 " + subject, "30500 1167 kind 0 size 7 " + subject}));
}

TEST_F(Driver, RecipientsThatCannotBeConvertedAreLeftOutWithoutAWord) {
    ux_InAddArpaRecipToList("<" + std::string(1100, 'a') + "@far.example>", "", false, false);
    ux_InAddArpaRecipToList("<b@far.example>", "", false, false);
    EXPECT_EQ(of_type(message(mail("")).records, 40000), Lines{"40000 96 1 " + far("b")});
}

class AuditTrail : public Driver {
protected:
    std::string trail() const { return home_.exists("logs/audit.jsonl") ? home_.read("logs/audit.jsonl") : ""; }
};

TEST_F(AuditTrail, OfAMessage) {
    convert(mail("From: author@far.example\nTo: reader@far.example\nSubject: Hi\nMessage-Id: <m@far.example>\n"));
    const std::string line = trail();
    EXPECT_EQ(line.substr(0, 10), R"({"type":10)");
    const std::string expected = R"({"code":30,"text":"<sender@far.example>"},{"code":7,"text":"m@far.example"},)"
                                 R"({"code":3,"text":"m(a)far.example"},{"code":10,"text":"Hi"},{"code":51,"name":")" +
                                 far("reader") + R"(","inet":"<reader@far.example>"}]})";
    EXPECT_NE(line.find(expected), std::string::npos) << line;
    EXPECT_NE(line.find(R"("entries":[{"code":1,"time":)"), std::string::npos) << line;
    EXPECT_EQ(ux_audit().AuditHandle, kAudNone) << "it is ended";
}

TEST_F(AuditTrail, NamesTheOriginatorWhenThatCreates) {
    keys("UX_USE_ARPA_SENDER = true");
    convert(mail("From: author@far.example\n"));
    EXPECT_NE(trail().find(R"({"code":30,"text":"author@far.example"})"), std::string::npos) << trail();
    EXPECT_EQ(trail().find(R"("<sender@far.example>")"), std::string::npos) << trail();
}

TEST_F(AuditTrail, NamesNobodyForANullSender) {
    convert(mail(""), "<>");
    EXPECT_EQ(trail().find("\"code\":30"), std::string::npos) << trail();
}

TEST_F(AuditTrail, OfAFailedMessageIsNotWritten) {
    EXPECT_EQ(failure("Subject: x\n\nHello"), "102.1401");
    EXPECT_EQ(trail(), "");
    EXPECT_NE(ux_audit().AuditHandle, kAudNone) << "left for the handler of last resort to abandon";
}

TEST_F(AuditTrail, ThatCannotBeWrittenCostsNoMail) {
    std::filesystem::remove_all(home_.file("logs"));
    convert(mail(""));
    EXPECT_EQ(queued_messages().size(), 1U);
}

class DriverFailure : public Driver {};

TEST_F(DriverFailure, TextThatEndsTooEarlyLeavesNothing) {
    std::string large = "Subject: x\n\n";
    for (int i = 0; i < 5000; ++i) large += std::string(100, 'x') + "\n";
    const struct {
        std::string text;
        const char* why;
    } rows[] = {
        {"", "no text"},
        {"Subject: x\n", "in the header"},
        {"Subject: x", "in a header line"},
        {"Subject: x\n\n", "before the body"},
        {"Subject: x\n\nHello.\n", "in the body"},
        {"Subject: x\n\nHello.\n.", "in the end line"},
        {large, "in a body that has become a file"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(failure(row.text), "102.1401") << row.why;
        EXPECT_EQ(left(), Lines{}) << row.why;
    }
}

TEST_F(DriverFailure, WithoutAQueueNothingIsLeft) {
    std::filesystem::remove_all(home_.file("queues/ROUTER/tmp"));
    EXPECT_EQ(failure(mail("")), "1.2");
    EXPECT_FALSE(ux_Input().text_open()) << "the text was read before";
    EXPECT_EQ(left(), Lines{});
}

TEST_F(DriverFailure, WithoutAStoreNothingIsLeft) {
    std::filesystem::remove_all(home_.file("data"));
    EXPECT_EQ(failure(mail("")), "1.2");
    std::filesystem::create_directory(home_.file("data"));
    EXPECT_EQ(left(), Lines{});
}

TEST_F(DriverFailure, AConfigurationThatBecomesUnreadableStopsTheMessage) {
    home_.set_keys("not toml at all");
    EXPECT_EQ(failure(mail("")), "1.22");
    EXPECT_EQ(left(), Lines{});
}

TEST_F(DriverFailure, ADroppedLoopLeavesNothing) {
    EXPECT_EQ(failure(mail("X-Lucent-Syncmark: x\nAutoforwarded: TRUE\n")), "102.1544");
    EXPECT_EQ(left(), Lines{});
    EXPECT_EQ(queued_messages().size(), 0U);
}

TEST_F(DriverFailure, TheNextMessageIsWhole) {
    failure(mail("X-Lucent-Syncmark: x\nAutoforwarded: TRUE\nPriority: urgent\nSubject: loop\n"));
    const QueuedMessage message = this->message(mail(""));
    EXPECT_EQ(message.records[0], "1100 class 0 type 0 flags 1024 hops 0");
    EXPECT_EQ(only(message.records, 11100), "11100 ");
    EXPECT_EQ(message.priority, 0);
}

}  // namespace
