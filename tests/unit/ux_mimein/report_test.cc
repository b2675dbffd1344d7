// Reports as whole messages: native reports or ordinary mail, never neither and never both.
#include "ux_mimein/report.h"

#include <stdlib.h>

#include <ctime>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/child.h"
#include "support/home.h"
#include "support/log_lines.h"
#include "support/message_text.h"
#include "support/queued.h"
#include "support/reset.h"
#include "ux_in/charsets.h"
#include "ux_in/driver.h"
#include "ux_in/recipients.h"
#include "ux_mimein/mime_part.h"
#include "ux_mimein/report_recipients.h"

namespace {

using namespace std::string_literals;
using Lines = std::vector<std::string>;

constexpr std::string_view kKeys = "INET_NO_IA_IN_ORN = true\nINET_LOCAL_DOMAINS = \"here\"\n";

std::string block(const std::string& name, const std::string& action, const std::string& status) {
    return "Final-Recipient: rfc822;" + name + "@x\nAction: " + action + "\nStatus: " + status + "\n\n";
}
const std::string kText = "preamble\n--b\nContent-Type: text/plain\n\nSorry.\n\n";
const std::string kNotification = "--b\nContent-Type: message/delivery-status\n\n";
const std::string kOwnId = "Reporting-MTA: dns; m\nOriginal-Envelope-Id: MV0123456789ABCDEF\n\n";
const std::string kForeignId = "Reporting-MTA: dns; m\nOriginal-Envelope-Id: abc\n\n";
const std::string kReturned = "--b\nContent-Type: text/rfc822-headers\n\nSubject: back\n";
const std::string kMessageBack =
    "--b\nContent-Type: message/rfc822\n\nDate: Fri, 20 Nov 2026 10:00:00 +0000\nSubject: back\n"
    "Content-Type: multipart/mixed; boundary=i\n\n--i\n\nHello.\n--i\nContent-Type: image/x\n\na\r\nb\n--i--\n\n";
const std::string kSigned =
    "--b\nContent-Type: multipart/signed; boundary=s\n\n--s\nContent-Type: text/plain\n\nSigned.\r\n--s\n"
    "Content-Type: application/x-signature\n\nxyz\n--s--\n";
const std::string kEnd = "--b--\nepilogue\n.\n";

std::string header(const std::string& type) {
    return "Date: Fri, 20 Nov 2026 10:00:00 +0000\nFrom: <mailer@far.example>\nSubject: Failed\nMIME-Version: 1.0\n"
           "Content-Type: multipart/report" +
           type + "; boundary=b\n\n";
}
const std::string kStatusHeader = header("; report-type=delivery-status");
const std::string kDispositionHeader = header("; report-type=disposition-notification");

std::string status_report(const std::string& blocks) {
    return kStatusHeader + kText + kNotification + kOwnId + blocks + kReturned + kEnd;
}
std::string disposition_report(const std::string& fields) {
    return kDispositionHeader + kText + "--b\nContent-Type: message/disposition-notification\n\n" + fields + kReturned +
           kEnd;
}
const std::string kRead =
    "Final-Recipient: rfc822;a@x\nOriginal-Message-ID: <MV0123456789ABCDEF@MHS>\n"
    "Disposition: manual-action/MDN-sent-manually; displayed\n\n";

class Reports : public testing::Test {
protected:
    Reports() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
        begin();
    }
    ~Reports() override {
        ux_reset_report();
        ux_reset_mime_state();
        ux_begin_mime_input();
    }
    static void begin() {
        ux_reset_mime_state();
        ux_reset_mime_input();
        ux_charsets().FromCharSet = ux_charsets().ToLatinCS = "ISO8859_1";
        ux_charsets().DoCSAutoDetect = 'N';
    }

    // Takes what is queued off the queue.
    static std::vector<QueuedMessage> take() {
        std::vector<QueuedMessage> queued = queued_messages();
        for (const Q_Entry& entry : Q_List("ROUTER")) Q_Remove("ROUTER", entry.name);
        return queued;
    }
    std::vector<QueuedMessage> convert(const std::string& text, const std::string& sender = "") {
        ux_InAddArpaRecipToList("<r@here>", "", false, false);
        const MessageText input(text);
        ux_Envelope envelope{.pArpaSender = sender, .pEnvid = {}, .ROCWanted = true};
        ux_InConvUnixMsgToMorvane(envelope);
        EXPECT_FALSE(ux_Input().text_open()) << "read to the end line";
        EXPECT_EQ(ux_mime_input().mimfp, nullptr);
        EXPECT_EQ(ux_mime_input().Reportfp, nullptr);
        EXPECT_FALSE(ux_mime_input().gCopyForReport);
        EXPECT_EQ(ux_mime_state().nestLevel, 0);
        EXPECT_TRUE(ux_report().gAckNameList.empty() && ux_report().gNDNNameList.empty());
        ux_InFreeRecipList();
        return take();
    }
    std::vector<QueuedMessage> convert_without(const std::string& text) {
        home_.set_keys(std::string(kKeys) + "UXI_NO_CONVERT_REPORTS = true\n");
        std::vector<QueuedMessage> queued = convert(text);
        home_.set_keys(kKeys);
        return queued;
    }
    // The types of the messages: "100", "110", or "mail" for what is no report.
    static std::string types(const std::vector<QueuedMessage>& queued) {
        std::string types;
        for (const QueuedMessage& message : queued) {
            const std::string& first = message.records.front();
            types += first.starts_with("1100 class 1 type 100 ")   ? "100 "
                     : first.starts_with("1100 class 1 type 110 ") ? "110 "
                                                                   : "mail ";
        }
        return types;
    }
    // What the reader of ordinary mail sees: records without the running numbers, and all files.
    static Lines content(const QueuedMessage& message) {
        Lines all;
        for (const std::string& record : message.records) all.push_back(record.starts_with("40000") ? "40000" : record);
        all.insert(all.end(), message.files.begin(), message.files.end());
        return all;
    }
    void expect_ordinary(const std::string& text, const std::string& why) {
        const auto without = convert_without(text), with = convert(text);
        ASSERT_EQ(types(with), "mail ") << why;
        ASSERT_EQ(types(without), "mail ") << why;
        EXPECT_EQ(content(with[0]), content(without[0])) << why;
    }

    TestHome home_{kKeys};
    LogLines log_;
    FreshGateway fresh_;
};

TEST_F(Reports, TwoFailedAndOneDeliveredAreTwoReportsInOneEntry) {
    ux_InAddArpaRecipToList("<r@here>", "", false, false);
    const MessageText input(status_report(block("a", "failed", "5.1.1") + block("b", "delivered", "2.0.0") +
                                          block("c", "failed", "5.2.2")));
    ux_Envelope envelope{.pArpaSender = "", .pEnvid = {}, .ROCWanted = true};
    ux_InConvUnixMsgToMorvane(envelope);
    ux_InFreeRecipList();
    EXPECT_EQ(Q_List("ROUTER").size(), 1U) << "one entry";
    const auto queued = queued_messages();
    ASSERT_EQ(types(queued), "110 100 ") << "the acknowledgement first";
    EXPECT_EQ(of_type(queued[0].records, 42100).size(), 1U);
    EXPECT_EQ(of_type(queued[1].records, 42200).size(), 2U);
    EXPECT_EQ(queued[0].records,
              (Lines{"1100 class 1 type 110 flags 0 hops 0", "13000 1795168800 0", "13200 MV0123456789ABCDEF",
                     "40000 112 1 /O=here/S=r", "42100 /DD.RFC-822=b(a)x"}));
    EXPECT_EQ(queued[1].records,
              (Lines{"1100 class 1 type 100 flags 0 hops 0", "13000 1795168800 0", "13200 MV0123456789ABCDEF",
                     "11100 Failed", "40000 112 2 /O=here/S=r", "42200 /DD.RFC-822=a(a)x", "42200 /DD.RFC-822=c(a)x"}));
    EXPECT_EQ(queued[0].priority, 0);
    EXPECT_EQ(home_.files("data").size(), 4U) << "two messages of two files; the mail's own files are gone";
}

std::string joined_types(const std::vector<std::string>& records) {
    std::string types;
    for (const std::string& record : records) types += record.substr(0, record.find(' ')) + " ";
    return types;
}

TEST_F(Reports, TheMessageThatCameBackIsAPackageInTheNonDeliveryReport) {
    const std::string before = kStatusHeader + kText + kNotification + kOwnId + block("a", "failed", "5.1.1");
    const auto queued = convert(before + block("b", "delivered", "2.0.0") + kMessageBack + kEnd);
    ASSERT_EQ(types(queued), "110 100 ");
    EXPECT_TRUE(queued[0].files.empty()) << "the acknowledgement has none";
    const std::string shape = joined_types(queued[1].records);
    EXPECT_TRUE(shape.starts_with("1100 13000 13200 11100 30100 ")) << shape;
    EXPECT_TRUE(shape.ends_with("39000 40000 42200 ")) << shape;
    ASSERT_EQ(queued[1].files.size(), 3U) << "the names of its header, its text, its image";
    EXPECT_EQ(queued[1].files[1], "Hello.");
    EXPECT_EQ(queued[1].files[2], "a\r\nb") << "its line ends as they came";
}

TEST_F(Reports, ReturnedMessagesOfAllKinds) {
    const std::string before = kStatusHeader + kText + kNotification + kOwnId + block("a", "failed", "5.1.1");
    const std::string part = "--b\nContent-Type: message/rfc822\n\n";
    struct Row {
        std::string back;
        std::size_t packages;
        const char* why;
    };
    const Row rows[] = {
        {part + kEnd, 1, "nothing at all"},
        {part + ".\n", 1, "the message ends where it begins"},
        {part + "Subject: s\n.\n", 1, "... in its header"},
        {part + "Subject: s\n\nbody\n.\n", 1, "... in its body"},
        {part +
             "Content-Type: multipart/report; report-type=delivery-status; boundary=r\n\n--r\n"
             "Content-Type: message/delivery-status\n\n" +
             kOwnId + block("z", "failed", "5.1.1") + "--r--\n" + kEnd,
         1, "a report is no report there"},
        {part + "Content-Type: message/rfc822\n\nContent-Type: message/rfc822\n\nSubject: s\n\n" + kEnd, 3,
         "messages in messages"},
        {"--b\nContent-Type: text/rfc822-headers\n\nSubject: s\n" + kEnd, 0, "only its header came back"},
        {kEnd, 0, "nothing came back"},
    };
    for (const Row& row : rows) {
        const auto queued = convert(before + row.back);
        ASSERT_EQ(types(queued), "100 ") << row.why;
        EXPECT_EQ(of_type(queued[0].records, 42200).size(), 1U) << row.why;
        std::size_t begun = 0, ended = 0;
        for (const std::string& record : queued[0].records) {
            begun += record.starts_with("30100") ? 1 : 0;
            ended += record.starts_with("39000") ? 1 : 0;
        }
        EXPECT_EQ(begun, row.packages) << row.why;
        EXPECT_EQ(ended, row.packages) << row.why;
    }
}

TEST_F(Reports, ARefusedMessageThatCameBackRefusesTheReport) {
    const std::string back =
        "--b\nContent-Type: message/rfc822\n\nContent-Type: multipart/mixed; boundary=i\n\n--i\n"
        "Content-Type: multipart/mixed; boundary=i\n\n--i\n\nx\n--i--\n";
    ux_InAddArpaRecipToList("<r@here>", "", false, false);
    const MessageText input(kStatusHeader + kText + kNotification + kOwnId + block("a", "failed", "5.1.1") +
                            block("b", "delivered", "2.0.0") + back + kEnd);
    ux_Envelope envelope{.pArpaSender = "", .pEnvid = {}, .ROCWanted = true};
    try {
        ux_InConvUnixMsgToMorvane(envelope);
        ADD_FAILURE() << "a boundary that is not unique was accepted";
    } catch (const er_Escape& escape) {
        EXPECT_EQ(escape.reason(), 1428);
    }
    ux_InFreeRecipList();
    EXPECT_TRUE(Q_List("ROUTER").empty());
    EXPECT_TRUE(home_.files("data").empty()) << "not even the acknowledgement that was finished before";
    EXPECT_EQ(ux_mime_input().mimfp, nullptr);
    ux_reset_mime_state();
}

TEST_F(Reports, OneKindIsOneReport) {
    EXPECT_EQ(types(convert(status_report(block("a", "failed", "5.1.1")))), "100 ");
    EXPECT_EQ(types(convert(status_report(block("a", "expanded", "2.0.0")))), "110 ");
    EXPECT_EQ(types(convert(disposition_report(kRead))), "110 ");
    EXPECT_TRUE(home_.files("data").empty());
}

TEST_F(Reports, TheRunningNumberGoesOnOverTheMailThatWasNotQueued) {
    EXPECT_EQ(only(convert(disposition_report(kRead))[0].records, 40000), "40000 112 1 /O=here/S=r");
    EXPECT_EQ(only(convert(disposition_report(kRead))[0].records, 40000), "40000 112 3 /O=here/S=r")
        << "2 was the recipient of the mail";
}

TEST_F(Reports, WhatIsNotConvertedIsOrdinaryMailJustAsWithoutReports) {
    const std::string failed = block("a", "failed", "5.1.1");
    const std::string mixed =
        "--b\r\nContent-Type: text/plain; charset=x\r\n\r\nline\r\r\nbare\rCR\r\n..\r\n.. \r\n"
        "--b\nContent-Type: application/octet-stream\n\na\r\nb\rc\r\r\n..d\n--b\n"
        "Content-Transfer-Encoding: base64\nContent-Type: application/x\n\nAAECAw==\n";
    struct Row {
        std::string text;
        const char* why;
    };
    const Row rows[] = {
        {kStatusHeader + kText + kNotification + kForeignId + failed + kReturned + kEnd, "a stranger's message"},
        {kStatusHeader + kText + kNotification + "Reporting-MTA: dns; m\n\n" + failed + kReturned + kEnd,
         "no identifier"},
        {status_report(block("a", "delayed", "4.0.0") + failed), "a first block that is not told"},
        {status_report(failed + block("b", "delayed", "4.0.0")), "a second one"},
        {status_report("Final-Recipient: x400;a\nAction: failed\nStatus: 5.0.0\n\n"), "another type of address"},
        {status_report(""), "nobody is named"},
        {kStatusHeader + kText + kNotification + kOwnId +
             "Final-Recipient: rfc822;a@x\nAction: failed\nStatus: 5.1.1\n" + kEnd,
         "the only block has no blank line behind it"},
        {header("") + kText + kNotification + kOwnId + failed + kEnd, "no report type"},
        {header("; report-type=x-other") + kText + kNotification + kOwnId + failed + kEnd, "another report type"},
        {kDispositionHeader + kText + kNotification + kOwnId + failed + kEnd, "the wrong report type"},
        {kStatusHeader + kText + kText + kNotification + kOwnId + failed + kEnd, "a notification as the third part"},
        {kStatusHeader + kText + kEnd, "no notification"},
        {kStatusHeader + "no boundary\n.\n", "no boundary"},
        {kStatusHeader + ".\n", "no body"},
        {kStatusHeader + mixed + kEnd, "line ends and bytes of all kinds"},
        {kStatusHeader + "--b\n\na\0b\n--b\nContent-Type: image/x\n\nc\0d\n"s + kEnd, "NUL bytes"},
        {kStatusHeader + "--b\n\n" + std::string(5000, 'x') + "\n" + std::string(3000, '\r') + "\n" + kEnd,
         "long lines"},
        {kStatusHeader + kText + kNotification + kForeignId + failed + kMessageBack + kEnd,
         "with the message that came back"},
        {kStatusHeader + kText + kNotification + kForeignId + failed + kMessageBack + ".\n", "... and no closing line"},
        {kStatusHeader + kText + kNotification + kForeignId + kSigned + kEnd, "with a signed part"},
        {kStatusHeader + kText + kNotification + kForeignId + kSigned.substr(0, kSigned.find("--s--")) + ".\n",
         "with a signed part that the end line ends"},
        {kStatusHeader + kText + kNotification + kOwnId + failed + block("a", "failed", "") + kMessageBack + kEnd,
         "a block without a status behind a good one"},
        {disposition_report("Final-Recipient: rfc822;a@x\nOriginal-Message-ID: <x@y>\nDisposition: a/b;displayed\n\n"),
         "a notification about a stranger's message"},
        {disposition_report("Final-Recipient: rfc822;a@x\n\n"), "a notification that does not say enough"},
    };
    for (const Row& row : rows) expect_ordinary(row.text, row.why);
}

TEST_F(Reports, WithTheKeyEveryReportIsOrdinaryMail) {
    EXPECT_EQ(types(convert_without(status_report(block("a", "failed", "5.1.1")))), "mail ");
    EXPECT_EQ(types(convert_without(disposition_report(kRead))), "mail ");
}

TEST_F(Reports, OnlyTheOutermostMultipartIsAReportToUs) {
    const std::string inner = kText + kNotification + kOwnId + block("a", "failed", "5.1.1") + "--b--\n";
    const std::string outer =
        "Content-Type: multipart/mixed; boundary=o\n\n--o\n"
        "Content-Type: multipart/report; report-type=delivery-status; boundary=b\n\n" +
        inner + "--o--\n.\n";
    EXPECT_EQ(types(convert(outer)), "mail ");
    EXPECT_EQ(types(convert("Content-Type: message/rfc822\n\n" + kStatusHeader + inner + ".\n")), "mail ");
    const std::string nested = kStatusHeader +
                               "--b\n\nSorry.\n--b\n"
                               "Content-Type: multipart/report; report-type=delivery-status; boundary=i\n\n"
                               "--i\nContent-Type: message/delivery-status\n\n" +
                               kOwnId + block("a", "failed", "5.1.1") + "--i--\n--b--\n.\n";
    EXPECT_EQ(types(convert(nested)), "mail ") << "a report inside a report";
}

TEST_F(Reports, AReportWhoseNotificationIsFirstAndAlone) {
    EXPECT_EQ(types(convert(kStatusHeader + kNotification + kOwnId + block("a", "failed", "5.1.1") + "--b--\n.\n")),
              "100 ");
    EXPECT_EQ(types(convert(kStatusHeader + kNotification + kOwnId + block("a", "failed", "5.1.1") + ".\n")), "100 ")
        << "without a closing line";
}

TEST_F(Reports, TheNameParameterIsTheSubject) {
    const std::string report = header("; report-type=delivery-status; name=Other") + kText + kNotification + kOwnId +
                               block("a", "failed", "5.1.1") + kEnd;
    EXPECT_EQ(only(convert(report)[0].records, 11100), "11100 Other");
}

TEST_F(Reports, CutAnywhereNothingIsQueuedAndNothingLeft) {
    const std::string reports[] = {status_report(block("a", "failed", "5.1.1")),
                                   kStatusHeader + kText + kNotification + kOwnId + block("a", "failed", "5.1.1") +
                                       block("b", "delivered", "2.0.0") + kMessageBack + kEnd,
                                   kStatusHeader + kText + kNotification + kForeignId + kMessageBack + kEnd,
                                   disposition_report(kRead)};
    for (const std::string& report : reports)
        for (std::size_t length = 0; length + 2 < report.size(); ++length) {
            ux_InAddArpaRecipToList("<r@here>", "", false, false);
            const MessageText input(report.substr(0, length));
            ux_Envelope envelope{.pArpaSender = "", .pEnvid = {}, .ROCWanted = true};
            try {
                ux_InConvUnixMsgToMorvane(envelope);
                ADD_FAILURE() << "cut at " << length << " it was accepted";
            } catch (const er_Escape& escape) {
                EXPECT_EQ(escape.reason(), 1401) << length;
            }
            ux_InFreeRecipList();
        }
    EXPECT_TRUE(home_.files("queues/ROUTER").empty());
    EXPECT_TRUE(home_.files("data").empty() && home_.files("tmp").empty());
}

TEST_F(Reports, ACopyThatDoesNotFitLeavesNothing) {
    std::string parts;
    for (int i = 0; i < 40'000; ++i) parts += "text of a part that is not told\n";
    const std::string report = kStatusHeader + kText + kNotification + kForeignId + "--b\n\n" + parts + kEnd;
    ux_InAddArpaRecipToList("<r@here>", "", false, false);
    const int status = run_in_child([&] {
        const MessageText input(report);
        limit_file_size(std::size_t{2} * kKeptInMemory);
        ux_Envelope envelope{.pArpaSender = "", .pEnvid = {}, .ROCWanted = true};
        try {
            ux_InConvUnixMsgToMorvane(envelope);
            return 1;
        } catch (const er_Escape& escape) {
            return escape.reason() == 1412 && home_.files("data").empty() && Q_List("ROUTER").empty() ? 0 : 2;
        }
    });
    ux_InFreeRecipList();
    EXPECT_EQ(status, 0);
    expect_ordinary(report, "with room it is ordinary mail");
}

TEST_F(Reports, FiftyThousandRecipients) {
    std::string blocks;
    for (int i = 0; i < 50'000; ++i) blocks += block("user" + std::to_string(i), "failed", "5.1.1");
    const auto queued = convert(status_report(blocks));
    ASSERT_EQ(types(queued), "100 ");
    const Lines entries = of_type(queued[0].records, 42200);
    ASSERT_EQ(entries.size(), 50'000U);
    EXPECT_EQ(entries.back(), "42200 /DD.RFC-822=user49999(a)x");
    expect_ordinary(status_report(blocks + block("z", "delayed", "4.0.0")), "the last one is not told: none is");
}

TEST_F(Reports, WhatComesNextIsNotTouched) {
    expect_ordinary(kStatusHeader + kText + kNotification + kForeignId + kEnd, "first");
    EXPECT_EQ(types(convert(disposition_report(kRead))), "110 ");
    EXPECT_EQ(types(convert("Subject: plain\n\nHello.\n.\n")), "mail ");
    EXPECT_EQ(types(convert(status_report(block("a", "failed", "5.1.1")))), "100 ");
}

}  // namespace
