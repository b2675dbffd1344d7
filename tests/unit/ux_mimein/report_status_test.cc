// Delivery status notifications: which recipients of which message a report tells about, row by row.
#include "ux_mimein/report_status.h"

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/home.h"
#include "support/message_text.h"
#include "support/reset.h"
#include "ux_mimein/mail_input.h"
#include "ux_mimein/report_recipients.h"

namespace {

using Lines = std::vector<std::string>;

constexpr std::string_view kOwnId = "MV0123456789ABCDEF";

Lines listed(ux_AckNameList& list) {
    Lines lines;
    list.for_each([&](const AckNameInfo& entry) {
        lines.push_back(entry.pArpaRecip + " [" + entry.pOrigRecip + "] " + std::to_string(entry.AckLevel) + "." +
                        std::to_string(entry.SubAckLevel) + " " + std::to_string(entry.Reason));
    });
    EXPECT_EQ(lines.size(), list.count());
    return lines;
}
Lines failed() { return listed(ux_report().gNDNNameList); }
Lines acknowledged() { return listed(ux_report().gAckNameList); }

class Status : public testing::Test {
protected:
    Status() { ux_reset_mime_input(); }
    ~Status() override {
        ux_reset_report();
        ux_reset_mime_input();
    }

    // The part between its header and what ends it.
    bool parse_info(const std::string& text) {
        ux_reset_report();
        const MessageText input(text);
        end_of_message_ = last_part_ = false;
        ux::ReportReader reader({"--b", "--b--", end_of_message_, last_part_});
        MsgId_.clear();
        return ux_InParseDSNInfo(reader, MsgId_);
    }
    bool parse_blocks(const std::string& blocks) {
        return parse_info("Original-Envelope-Id: " + std::string(kOwnId) + "\n\n" + blocks);
    }
    ux_ReportedMessage parse(const std::string& text) {
        ux_reset_report();
        const MessageText input(text);
        end_of_message_ = last_part_ = false;
        return ux_InParseDSN({"--b", "--b--", end_of_message_, last_part_});
    }

    TestHome home_{"INET_NO_IA_IN_ORN = true\n"};
    FreshGateway fresh_;
    std::string MsgId_;
    bool end_of_message_ = false, last_part_ = false;
};

// --- the reason -----------------------------------------------------------------------------------------------------

TEST(Reason, OfEveryClassSubjectAndDetail) {
    for (int klass = 0; klass <= 9; ++klass)
        for (int subject = 0; subject <= 99; ++subject)
            for (int detail = 0; detail <= 99; ++detail) {
                const std::string status =
                    std::to_string(klass) + "." + std::to_string(subject) + "." + std::to_string(detail);
                const int sum = 500 + 10 * subject + detail;
                ASSERT_EQ(ux::reason_of_status(status), sum == 500 ? 300 : sum) << status;
            }
}

TEST(Reason, Rows) {
    struct Row {
        const char* status;
        int reason;
        const char* why;
    };
    const Row rows[] = {
        {"5.1.1", 511, "bad mailbox"},
        {"5.7.1", 571, "not authorised"},
        {"4.4.7", 547, "expired; the class does not matter"},
        {"4.2.2", 522, "mailbox full"},
        {"5.0.0", 300, "nothing said"},
        {"2.0.0", 300, "nothing said, whatever the class"},
        {"5.1.1 (bad mailbox)", 511, "a comment behind"},
        {"5.1.1foo", 511, "anything behind"},
        {"5.1.1.9", 511, "a fourth number"},
        {" \t5. 1. 1", 511, "white space before a number"},
        {"+5.+1.+1", 511, "signs"},
        {"5.-1.10", 300, "500, in whatever way"},
        {"5.-1.2", 492, "a negative subject is not checked"},
        {"99.1.1", 511, "no range check when there are three numbers"},
        {"5.12.34", 654, "subject and detail of two digits"},
        {"5.7.999", 1569, "a detail of three"},
        {"5.1", 300, "two numbers"},
        {"5.1.", 300, "two numbers and a dot"},
        {"5", 300, "one number"},
        {"10", 300, "one number above nine"},
        {"5.1.x", 300, "no number"},
        {"5.x.1", 300, "no number in the middle"},
        {"x5.1.1", 300, "no number at the start"},
        {"5 .1.1", 300, "a blank before a dot"},
        {"5..1", 300, "no number between the dots"},
        {"", 300, "nothing"},
        {"5.1-1", 300, "no dot"},
        {"5.1.99999999999999999999", static_cast<std::int16_t>(510LL + 0x7FFFFFFF),
         "the largest number, 16 bits of it"},
        {"5.6554.0", static_cast<std::int16_t>(65540 + 500), "16 bits are kept"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(ux::reason_of_status(row.status), row.reason) << row.status << ": " << row.why;
}

// --- one block ------------------------------------------------------------------------------------------------------

TEST_F(Status, ActionsAreKnownByTheirFirstLetters) {
    struct Row {
        const char* action;
        const char* filed;  // "" nowhere
        const char* why;
    };
    const Row rows[] = {
        {"failed", "a@x [] 0.0 511", "non-delivery"},
        {"FAILED", "a@x [] 0.0 511", "in any case"},
        {" failed (user unknown)", "a@x [] 0.0 511", "trimmed, and with a comment"},
        {"failedxyz", "a@x [] 0.0 511", "six letters count"},
        {"faile", "", "five do not"},
        {"delivered", "a@x [] 4.0 0", "acknowledgement"},
        {"Delivered-somewhere", "a@x [] 4.0 0", "nine letters count"},
        {"delivere", "", "eight do not"},
        {"expanded", "a@x [] 4.1 0", "a list was expanded"},
        {"expande", "", "seven letters are not enough"},
        {"delayed", "", "not told"},
        {"relayed", "", "not told"},
        {"x failed", "", "the word comes first"},
        {"  ", "", "no word at all"},
    };
    for (const Row& row : rows) {
        ux_reset_report();
        const bool filed = ux_InProcessDSNName({.FinalRecip = "a@x", .Status = "5.1.1", .Action = row.action});
        EXPECT_EQ(filed, *row.filed != '\0') << row.action << ": " << row.why;
        Lines all = failed();
        for (const std::string& line : acknowledged()) all.push_back(line);
        EXPECT_EQ(all, filed ? Lines{row.filed} : Lines{}) << row.action << ": " << row.why;
    }
}

TEST_F(Status, ABlockNeedsRecipientActionAndStatus) {
    EXPECT_FALSE(ux_InProcessDSNName({.FinalRecip = "", .Status = "5.1.1", .Action = "failed"}));
    EXPECT_FALSE(ux_InProcessDSNName({.FinalRecip = "a@x", .Status = "", .Action = "failed"}));
    EXPECT_FALSE(ux_InProcessDSNName({.FinalRecip = "a@x", .Status = "5.1.1", .Action = ""}));
    EXPECT_TRUE(failed().empty() && acknowledged().empty());
    EXPECT_TRUE(
        ux_InProcessDSNName({.OrigRecip = "rfc822;o@x", .FinalRecip = "a@x", .Status = "?", .Action = "failed"}));
    EXPECT_EQ(failed(), Lines{"a@x [rfc822;o@x] 0.0 300"}) << "a status that says nothing is one";
}

TEST_F(Status, TheReasonCodeOfASystemLikeOursCountsMoreThanTheStatus) {
    EXPECT_TRUE(ux_InProcessDSNName({.FinalRecip = "a@x", .Status = "5.2.2", .Action = "failed", .Reason = 1234}));
    EXPECT_TRUE(ux_InProcessDSNName({.FinalRecip = "b@x", .Status = "2.0.0", .Action = "delivered", .Reason = 1234}));
    EXPECT_EQ(failed(), Lines{"a@x [] 0.0 1234"});
    EXPECT_EQ(acknowledged(), Lines{"b@x [] 4.0 0"});
}

// --- the fields of a part -------------------------------------------------------------------------------------------

TEST_F(Status, BlockRows) {
    struct Row {
        const char* block;
        bool filed;
        const char* entry;
        const char* why;
    };
    const Row rows[] = {
        {"Final-Recipient: rfc822;a@x\nAction: failed\nStatus: 5.1.1\n\n", true, "a@x [] 0.0 511", "the usual"},
        {"FINAL-RECIPIENT:RFC822;a@x\naction:failed\nSTATUS:5.1.1\n\n", true, "a@x [] 0.0 511", "names in any case"},
        {"Original-Recipient: rfc822;o@x\nFinal-Recipient: rfc822; a@x \nAction: failed\nStatus: 5.1.1\n\n", true,
         "a@x [rfc822;o@x] 0.0 511", "an original recipient is kept with its type"},
        {"Final-Recipient: rfc822;\n\ta@x\nAction:\n failed\nStatus:\n 5.1.1\n\n", true, "a@x [] 0.0 511",
         "folded fields"},
        {"Final-Recipient: rfc822;a@x;b@x\nAction: failed\nStatus: 5.1.1\n\n", true, "a@x [] 0.0 511",
         "the second piece is the address"},
        {"Final-Recipient: rfc822;a@x\nFinal-Recipient: rfc822;b@x\nAction: failed\nStatus: 5.1.1\n\n", true,
         "b@x [] 0.0 511", "the last one holds"},
        {"Final-Recipient: x400;a@x\nFinal-Recipient: rfc822;b@x\nAction: failed\nStatus: 5.1.1\n\n", true,
         "b@x [] 0.0 511", "an Internet address behind another one"},
        {"Final-Recipient: rfc822;b@x\nFinal-Recipient: x400;a@x\nAction: failed\nStatus: 5.1.1\n\n", true,
         "b@x [] 0.0 511", "... and before it"},
        {"Final-Recipient: x400;a@x\nAction: failed\nStatus: 5.1.1\n\n", false, "", "another type of address"},
        {"Final-Recipient: rfc822\nAction: failed\nStatus: 5.1.1\n\n", false, "", "a type without an address"},
        {"Final-Recipient: rfc822;\nAction: failed\nStatus: 5.1.1\n\n", false, "", "an empty address"},
        {"Final-Recipient: a@x\nAction: failed\nStatus: 5.1.1\n\n", false, "", "an address without a type"},
        {"Final-Recipient: rfc822;a@x\nStatus: 5.1.1\n\n", false, "", "no action"},
        {"Final-Recipient: rfc822;a@x\nAction: failed\n\n", false, "", "no status"},
        {"Final-Recipient : rfc822;a@x\nAction: failed\nStatus: 5.1.1\n\n", false, "", "a blank makes another name"},
        {"x-ploxen-Reason-Code: 1234\nFinal-Recipient: rfc822;a@x\nAction: failed\nStatus: 5.2.2\n\n", true,
         "a@x [] 0.0 1234", "a reason code before the action"},
        {"Final-Recipient: rfc822;a@x\nAction: failed\nx-ploxen-Reason-Code: 1234\nStatus: 5.2.2\n\n", false, "",
         "behind the action it takes its place"},
        {"x-ploxen-Reason-Code: 1234\nFinal-Recipient: rfc822;a@x\nStatus: 5.2.2\n\n", false, "",
         "without an action it is the action"},
        {"x-ploxen-Reason-Code: many\nFinal-Recipient: rfc822;a@x\nAction: failed\nStatus: 5.2.2\n\n", true,
         "a@x [] 0.0 522", "no number: the status decides"},
        {"x-ploxen-Reason-Code: 7 lives\nFinal-Recipient: rfc822;a@x\nAction: failed\nStatus: 5.2.2\n\n", true,
         "a@x [] 0.0 7", "a number and more"},
        {"X-PLOXEN-REASON-CODE: -5\nFinal-Recipient: rfc822;a@x\nAction: failed\nStatus: 5.2.2\n\n", true,
         "a@x [] 0.0 -5", "a negative one"},
        {"x-ploxen-Reason-Code: 65536\nFinal-Recipient: rfc822;a@x\nAction: failed\nStatus: 5.2.2\n\n", true,
         "a@x [] 0.0 522", "16 bits are kept, and those are 0"},
        {"Diagnostic-Code: smtp; 550\nRemote-MTA: dns; m\nReporting-MTA: dns; n\n\n"
         "Final-Recipient: rfc822;a@x\nAction: failed\nStatus: 5.1.1\n\n",
         true, "a@x [] 0.0 511", "a block of other fields is none"},
        {"no field\nFinal-Recipient: rfc822;a@x\nAction: failed\nStatus: 5.1.1\n: nothing\n \t \n", true,
         "a@x [] 0.0 511", "other lines do not matter, and a line of white space is blank"},
        {"Final-Recipient: rfc822;a@x\nAction: failed\nStatus: 5.1.1\n \t \n\n", true, "a@x [] 0.0 511",
         "behind a field that is kept it continues that"},
        {"Diagnostic-Code: smtp; 550\n Action: delivered\nFinal-Recipient: rfc822;a@x\nAction: failed\nStatus: "
         "5.1.1\n\n",
         true, "a@x [] 0.0 511", "a folded line of a field that is not kept is no field"},
        {"Final-Recipient: rfc822;a@x\r\nAction: failed\r\nStatus: 5.1.1\r\r\n\r\n", true, "a@x [] 0.0 511",
         "CRs of line ends"},
        {"Final-Recipient: rfc822;a@x\nAction: failed\nStatus: 5.1.1\r 4.2.2\n\n", true, "a@x [] 0.0 511",
         "a bare CR ends no line"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(parse_blocks(row.block + std::string("--b--\n.\n")), row.filed) << row.why;
        Lines expected;
        if (row.filed) expected.emplace_back(row.entry);
        EXPECT_EQ(failed(), expected) << row.why;
        EXPECT_TRUE(acknowledged().empty()) << row.why;
    }
}

std::string block(const std::string& name, const std::string& action, const std::string& status) {
    return "Final-Recipient: rfc822;" + name + "@x\nAction: " + action + "\nStatus: " + status + "\n\n";
}

TEST_F(Status, ManyBlocks) {
    EXPECT_TRUE(parse_blocks(block("a", "failed", "5.1.1") + block("b", "delivered", "2.0.0") + "\n\n" +
                             block("c", "failed", "4.4.7") + block("d", "expanded", "2.0.0") + "--b\nrest\n.\n"));
    EXPECT_EQ(failed(), (Lines{"a@x [] 0.0 511", "c@x [] 0.0 547"}));
    EXPECT_EQ(acknowledged(), (Lines{"b@x [] 4.0 0", "d@x [] 4.1 0"}));
    EXPECT_EQ(MsgId_, kOwnId);
    EXPECT_FALSE(last_part_ || end_of_message_);
    EXPECT_EQ(GetMailText().text, "rest") << "nothing is read past the boundary";
}

TEST_F(Status, ABlockThatIsNotFiledEndsIt) {
    EXPECT_FALSE(parse_blocks(block("a", "delayed", "4.0.0") + block("b", "failed", "5.1.1") + "--b--\n.\n"));
    EXPECT_TRUE(failed().empty());
    EXPECT_EQ(GetMailText().text, "Final-Recipient: rfc822;b@x") << "the blocks behind it are not read";
    EXPECT_FALSE(parse_blocks(block("a", "failed", "5.1.1") + block("b", "relayed", "2.0.0") + "--b--\n.\n"));
    EXPECT_EQ(failed(), Lines{"a@x [] 0.0 511"}) << "what was filed before stays in the list";
}

TEST_F(Status, ABlockWithoutItsBlankLineIsDropped) {
    const std::string cut = "Final-Recipient: rfc822;b@x\nAction: failed\nStatus: 5.1.1\n";
    EXPECT_TRUE(parse_blocks(block("a", "failed", "5.1.1") + cut + "--b--\n.\n"));
    EXPECT_EQ(failed(), Lines{"a@x [] 0.0 511"});
    EXPECT_TRUE(last_part_);
    EXPECT_TRUE(parse_blocks(cut + ".\n")) << "the message may end there too";
    EXPECT_TRUE(failed().empty());
    EXPECT_TRUE(end_of_message_);
}

TEST_F(Status, WhatABlockSaidIsForgottenWithIt) {
    EXPECT_FALSE(parse_blocks("Original-Recipient: rfc822;o@x\nx-ploxen-Reason-Code: 9\n" +
                              block("a", "failed", "5.1.1") +
                              "Final-Recipient: rfc822;b@x\nAction: failed\n\n--b--\n.\n"));
    EXPECT_EQ(failed(), Lines{"a@x [rfc822;o@x] 0.0 9"}) << "the status of the first is not the second's";
}

TEST_F(Status, TheEnvelopeIdentifierDecides) {
    const std::string tail = "\n\n" + block("a", "failed", "5.1.1") + "--b--\n.\n";
    struct Row {
        const char* head;
        const char* id;  // nullptr: not converted
        const char* why;
    };
    const Row rows[] = {
        {"Original-Envelope-Id: MV0123456789ABCDEF", "MV0123456789ABCDEF", "as it is"},
        {"\n \nORIGINAL-ENVELOPE-ID:<MV0123456789ABCDEF>", "MV0123456789ABCDEF", "blank lines before, angle brackets"},
        {"Original-Envelope-Id: < MV0123456789ABCDEF >", "MV0123456789ABCDEF", "blanks between the brackets"},
        {"Original-Envelope-Id:\n MV0123456789ABCDEF\nReporting-MTA: dns; m", "MV0123456789ABCDEF", "folded"},
        {"Original-Envelope-Id: <MV0123456789ABCDEF@MHS>", "MV0123456789ABCDEF", "as an identifier of ours goes out"},
        {"Original-Envelope-Id: foreign\nOriginal-Envelope-Id: MV0123456789ABCDEF", "MV0123456789ABCDEF",
         "the last one holds"},
        {"Original-Envelope-Id: MV0123456789ABCDEF\nOriginal-Envelope-Id: foreign", nullptr, "... whatever it is"},
        {"Original-Envelope-Id: <abc@far.example>", nullptr, "a stranger's"},
        {"Original-Envelope-Id: MV0123456789abcdef", nullptr, "lower-case digits are not ours"},
        {"Original-Envelope-Id: MV0123456789ABCDE", nullptr, "a digit too few"},
        {"Original-Envelope-Id: MV0123456789ABCDEF0", nullptr, "a digit too many"},
        {"Original-Envelope-Id:", nullptr, "an empty one"},
        {"Original-Message-Id: MV0123456789ABCDEF", nullptr, "another field"},
        {"Reporting-MTA: dns; m", nullptr, "none"},
        {"Original-Envelope-Id : MV0123456789ABCDEF", nullptr, "a blank makes another name of it"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(parse_info(row.head + tail), row.id != nullptr) << row.why;
        EXPECT_EQ(MsgId_, row.id == nullptr ? "" : row.id) << row.why;
        EXPECT_EQ(failed().size(), row.id == nullptr ? 0U : 1U) << row.why;
    }
}

TEST_F(Status, AnIdentifierBehindABlankLineIsARecipientsField) {
    EXPECT_FALSE(parse_info("Reporting-MTA: dns; m\n\nOriginal-Envelope-Id: MV0123456789ABCDEF\n\n--b--\n.\n"));
}

TEST_F(Status, WhileRelayingNothingIsOurs) {
    ux_recipients().G_Relaying = true;
    EXPECT_FALSE(parse_blocks(block("a", "failed", "5.1.1") + "--b--\n.\n"));
    EXPECT_TRUE(failed().empty() && MsgId_.empty());
}

TEST_F(Status, APartThatEndsInItsFirstFieldsNamesNobody) {
    EXPECT_TRUE(parse_info("Original-Envelope-Id: MV0123456789ABCDEF\n--b--\n.\n"));
    EXPECT_TRUE(last_part_);
    EXPECT_TRUE(parse_info("Original-Envelope-Id: MV0123456789ABCDEF\n.\n"));
    EXPECT_TRUE(end_of_message_);
    EXPECT_TRUE(parse_info("Original-Envelope-Id: MV0123456789ABCDEF\n\n--b\n"));
    EXPECT_TRUE(failed().empty() && acknowledged().empty());
}

TEST_F(Status, BoundaryLinesMayHaveWhiteSpaceAtTheirEnds) {
    EXPECT_TRUE(parse_blocks(block("a", "failed", "5.1.1") + "--b-- \t\n.\n"));
    EXPECT_TRUE(last_part_);
    EXPECT_TRUE(parse_blocks(block("a", "failed", "5.1.1") + "--b \t\nrest\n.\n"));
    EXPECT_EQ(GetMailText().text, "rest");
    EXPECT_TRUE(parse_blocks("--B--\n--bb\n --b\n" + block("a", "failed", "5.1.1") + "--b--\n.\n"))
        << "another case, another boundary, not at the start: no boundary";
    EXPECT_EQ(failed().size(), 1U);
}

TEST_F(Status, LongFieldsAreBounded) {
    const std::string long_text(100'000, 'x');
    EXPECT_TRUE(parse_blocks("Original-Recipient: rfc822;" + long_text +
                             "\nFinal-Recipient: rfc822;a@x\nAction: failed\n" + "Diagnostic-Code: " + long_text +
                             "\nStatus: 5.1.1\n\n--b--\n.\n"));
    const Lines entries = failed();
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_LT(entries[0].size(), 1100U);
    EXPECT_TRUE(entries[0].starts_with("a@x [rfc822;xxx")) << entries[0];
}

TEST_F(Status, ManyFoldedLinesAreBounded) {
    std::string folded = "Original-Recipient: rfc822;\n";
    for (int i = 0; i < 2000; ++i) folded += " 0123456789012345678901234567890123456789012345678\n";
    EXPECT_TRUE(parse_blocks(folded + block("a", "failed", "5.1.1") + "--b--\n.\n"));
    ASSERT_EQ(failed().size(), 1U);
    EXPECT_LT(failed()[0].size(), 1100U);
}

TEST_F(Status, TheMiddleOfALongLineIsNoField) {
    const std::string fill(1023 - std::string_view("Diagnostic-Code: ").size(), 'x');
    EXPECT_TRUE(parse_blocks("Final-Recipient: rfc822;a@x\nAction: failed\nStatus: 5.1.1\nDiagnostic-Code: " + fill +
                             "Action: delayed\nDiagnostic-Code: " + fill + "--b--\n\n--b--\n.\n"));
    EXPECT_EQ(failed(), Lines{"a@x [] 0.0 511"}) << "and no boundary";
}

TEST_F(Status, ALineEndByItselfIsABlankLineAlsoBehindALongLine) {
    const std::string full =
        "Diagnostic-Code: " + std::string(1023 - std::string_view("Diagnostic-Code: ").size(), 'x');
    EXPECT_TRUE(parse_blocks("Final-Recipient: rfc822;a@x\nAction: failed\nStatus: 5.1.1\n" + full + "\n--b--\n.\n"));
    EXPECT_EQ(failed(), Lines{"a@x [] 0.0 511"});
}

TEST_F(Status, ADotIsTheEndOnlyAtALineStart) {
    EXPECT_TRUE(parse_blocks(block("a", "failed", "5.1.1") + ".\nafter\n"));
    EXPECT_TRUE(end_of_message_);
    EXPECT_FALSE(ux_Input().text_open()) << "and nothing behind it is message text";
    EXPECT_TRUE(parse_blocks(std::string(1023, 'x') + ".\n" + block("a", "failed", "5.1.1") + "--b--\n.\n"));
    EXPECT_EQ(failed().size(), 1U);
}

TEST_F(Status, NulBytesAreBlanks) {
    using namespace std::string_literals;
    EXPECT_TRUE(parse_blocks("Final-Recipient:\0rfc822;a@x\0\nAction: failed\0now\nStatus: 5.1.1\n\0\n--b--\n.\n"s));
    EXPECT_EQ(failed(), Lines{"a@x [] 0.0 511"});
}

// --- the parts of the report ----------------------------------------------------------------------------------------

const std::string kText = "preamble\n--b\nContent-Type: text/plain\n\nSorry.\n\n";
const std::string kStatus =
    "--b\nContent-Type: message/delivery-status\n\nOriginal-Envelope-Id: MV0123456789ABCDEF\n\n";
const std::string kReturned = "--b\nContent-Type: message/rfc822\n\nSubject: back\n\nHello.\n";
const std::string kEnd = "--b--\nepilogue\n.\n";

TEST_F(Status, AReportOfThreeParts) {
    const ux_ReportedMessage found = parse(kText + kStatus + block("a", "failed", "5.1.1") + kReturned + kEnd);
    EXPECT_TRUE(found.converted);
    EXPECT_EQ(found.MsgId, kOwnId);
    EXPECT_EQ(failed().size(), 1U);
    EXPECT_TRUE(end_of_message_) << "with a third part, the text is read to its end";
    EXPECT_FALSE(last_part_);
}

TEST_F(Status, WhereTheReturnedMessageBegins) {
    ux_ReportCopy copy;
    const std::string before = kText + kStatus + block("a", "failed", "5.1.1");
    const ux_ReportedMessage found = parse(before + kReturned + kEnd);
    EXPECT_EQ(found.pROCOffset, (before + "--b\nContent-Type: message/rfc822\n\n").size());
    copy.read_again(found.pROCOffset);
    EXPECT_EQ(GetMailText().text, "Subject: back");
}

TEST_F(Status, WhatComesBackOtherwiseIsNoMessage) {
    ux_ReportCopy copy;
    const std::string before = kText + kStatus + block("a", "failed", "5.1.1");
    EXPECT_EQ(parse(before + "--b\nContent-Type: text/rfc822-headers\n\nSubject: back\n" + kEnd).pROCOffset, 0U);
    EXPECT_EQ(parse(before + "--b\n\nSubject: back\n" + kEnd).pROCOffset, 0U) << "a part without a type";
    EXPECT_EQ(parse(before + kEnd).pROCOffset, 0U) << "no third part";
    EXPECT_NE(parse(before + "--b\nContent-Type: MESSAGE/RFC822; x=y\n\nSubject: back\n" + kEnd).pROCOffset, 0U);
}

TEST_F(Status, PartRows) {
    const std::string status = kStatus + block("a", "failed", "5.1.1");
    const std::string text = "--b\nContent-Type: text/plain\n\nSorry.\n";
    struct Row {
        std::string report;
        bool converted;
        const char* why;
    };
    const Row rows[] = {
        {text + status + kEnd, true, "two parts"},
        {status + kEnd, true, "the notification alone"},
        {status + kReturned + kEnd, true, "no text for people"},
        {status + text + text + kEnd, true, "whatever comes behind it"},
        {text + text + status + kEnd, false, "as the third part it is not looked at"},
        {text + text + text + status + kEnd, false, "nor as the fourth"},
        {text + kEnd, false, "no notification"},
        {"no part at all\n.\n", false, "no boundary"},
        {"--b--\n" + text + status + kEnd, true, "a closing line before the first part closes nothing"},
        {text + "--b--\n" + status + kEnd, false, "what comes behind the closing line is no part"},
        {".\n", false, "nothing"},
        {"--b\n.\n", false, "the message ends in a part's header"},
        {"--b\nContent-Type: message/delivery-status\n.\n", false, "... of the notification"},
        {text + "--b\nContent-Type: Message/DELIVERY-Status; x=y\n\nOriginal-Envelope-Id: MV0123456789ABCDEF\n\n" +
             block("a", "failed", "5.1.1") + kEnd,
         true, "a type in any case, with parameters"},
        {text + "--b\nContent-Type: message/delivery-statu\n\nOriginal-Envelope-Id: MV0123456789ABCDEF\n\n" +
             block("a", "failed", "5.1.1") + kEnd,
         false, "another type"},
        {text + status + status + kEnd, true, "a second notification is what came back"},
        {text +
             "--b\nContent-Type: message/delivery-status\nContent-Transfer-Encoding: base64\n\n"
             "T3JpZ2luYWwtRW52ZWxvcGUtSWQ6IE1WMDEyMzQ1Njc4OUFCQ0RFRgoK\n" +
             kEnd,
         false, "an encoded notification is not decoded"},
        {text +
             "--b\nContent-Type: message/delivery-status\nContent-Transfer-Encoding: quoted-printable\n\n"
             "Original-Envelope-Id: MV0123456789ABCDEF\n\n" +
             block("a", "failed", "5.1.1") + kEnd,
         true, "quoted-printable is read as it stands"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(parse(row.report).converted, row.converted) << row.why;
        EXPECT_EQ(failed().size(), row.converted ? 1U : 0U) << row.why;
    }
}

TEST_F(Status, AReportCutAnywhereRaisesOrEnds) {
    const std::string report = kText + kStatus + block("a", "failed", "5.1.1") + kReturned + kEnd;
    for (std::size_t length = 0; length + 2 < report.size(); ++length) {
        ux_reset_report();
        const MessageText input(report.substr(0, length));
        end_of_message_ = last_part_ = false;
        try {
            ux_InParseDSN({"--b", "--b--", end_of_message_, last_part_});
            ADD_FAILURE() << "the text cut at " << length << " has no end";
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.reason(), 1401) << length;
        }
    }
}

TEST_F(Status, FiftyThousandBlocks) {
    std::string blocks;
    for (int i = 0; i < 50'000; ++i)
        blocks += block("user" + std::to_string(i), i % 2 == 0 ? "failed" : "delivered", "5.1.1");
    EXPECT_TRUE(parse_blocks(blocks + "--b--\n.\n"));
    EXPECT_EQ(ux_report().gNDNNameList.count(), 25'000U);
    const Lines names = acknowledged();
    ASSERT_EQ(names.size(), 25'000U);
    EXPECT_EQ(names.front(), "user1@x [] 4.0 0");
    EXPECT_EQ(names.back(), "user49999@x [] 4.0 0");
}

}  // namespace
