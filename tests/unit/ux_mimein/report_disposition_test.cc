// Disposition notifications: which acknowledgement a notification is, row by row.
#include "ux_mimein/report_disposition.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/home.h"
#include "support/message_text.h"
#include "support/reset.h"
#include "ux_in/recipients.h"
#include "ux_mimein/mail_input.h"
#include "ux_mimein/report_recipients.h"

namespace {

TEST(Disposition, Rows) {
    struct Row {
        const char* text;
        bool accepted;
        int level, sub_level;
        bool by_hand;
        const char* why;
    };
    const Row rows[] = {
        {"manual-action/MDN-sent-manually; displayed", true, 7, 0, true, "read, and a person said so"},
        {"automatic-action/MDN-sent-automatically; deleted/expired", true, 6, 2, false, "deleted because too old"},
        {"automatic-action/MDN-sent-automatically; deleted/superseded", true, 6, 3, false, "a newer one came"},
        {"automatic-action/MDN-sent-automatically; deleted/mailbox-terminated", true, 6, 4, false, "mailbox closed"},
        {"manual-action/MDN-sent-manually; deleted", true, 6, 0, true, "deleted, no reason given"},
        {"a/b;deleted/expired,superseded", true, 6, 3, false, "the last modifier that is known wins"},
        {"a/b;deleted/superseded , expired", true, 6, 2, false, "... whichever it is, and blanks do not matter"},
        {"a/b;deleted/expired,x-other", true, 6, 2, false, "others are passed over"},
        {"a/b;deleted/,,expired,", true, 6, 2, false, "empty ones too"},
        {"a/b;deleted/error", true, 6, 0, false, "only others"},
        {"a/b;displayed/expired", true, 7, 0, false, "modifiers of a message that was read are not looked at"},
        {"MANUAL-ACTION/mdn-SENT-manually;DISPLAYED", true, 7, 0, true, "any case"},
        {"A/B;Deleted/EXPIRED", true, 6, 2, false, "any case"},
        {" a / MDN-sent-manually ; displayed ", true, 7, 0, true, "blanks around words"},
        {"a/MDN-sent-manually-not;displayed", true, 7, 0, false, "another mode"},
        {"a/b;processed", false, 0, 0, false, "not told"},
        {"a/b;dispatched", false, 0, 0, false, "not told"},
        {"a/MDN-sent-manually;denied", false, 0, 0, true, "the mode was said before"},
        {"a/b;failed", false, 0, 0, false, "not told"},
        {"a/b;display", false, 0, 0, false, "a whole word"},
        {"a/b;displayedx", false, 0, 0, false, "a whole word"},
        {"a/b;", false, 0, 0, false, "no type"},
        {"a/b", false, 0, 0, false, "no type"},
        {"displayed", false, 0, 0, false, "that is an action mode"},
        {"a;displayed", false, 0, 0, false, "no sending mode: all of it is the action mode"},
        {"a/displayed", false, 0, 0, false, "that is a sending mode"},
        {"", false, 0, 0, false, "nothing"},
        {"/;displayed", true, 7, 0, false, "empty modes"},
        {"a/b;displayed;more", false, 0, 0, false, "a type runs to the next slash"},
    };
    for (const Row& row : rows) {
        ux_DispositionLevels levels;
        EXPECT_EQ(ux_InParseDisposition(row.text, levels), row.accepted) << row.text << ": " << row.why;
        EXPECT_EQ(levels.pAckLevel, row.level) << row.text << ": " << row.why;
        EXPECT_EQ(levels.pSubAckLevel, row.sub_level) << row.text << ": " << row.why;
        EXPECT_EQ(levels.pManualAck, row.by_hand) << row.text << ": " << row.why;
    }
}

TEST(Disposition, TheFlagIsSetAndNeverCleared) {
    ux_DispositionLevels levels{.pManualAck = true};
    EXPECT_TRUE(ux_InParseDisposition("a/MDN-sent-automatically;displayed", levels));
    EXPECT_TRUE(levels.pManualAck);
}

class Notification : public testing::Test {
protected:
    Notification() { ux_reset_mime_input(); }
    ~Notification() override {
        ux_reset_report();
        ux_reset_mime_input();
    }

    static std::string filed() {
        std::string all;
        EXPECT_TRUE(ux_report().gNDNNameList.empty());
        ux_report().gAckNameList.for_each([&](const AckNameInfo& entry) {
            all += entry.pArpaRecip + " [" + entry.pOrigRecip + "] " + std::to_string(entry.AckLevel) + "." +
                   std::to_string(entry.SubAckLevel);
        });
        return all;
    }
    ux_AcknowledgedMessage parse(const std::string& text) {
        ux_reset_report();
        const MessageText input(text);
        end_of_message_ = last_part_ = false;
        return ux_InParseMDN({"--b", "--b--", end_of_message_, last_part_});
    }
    ux_AcknowledgedMessage parse_fields(const std::string& fields) {
        return parse("--b\n\nRead.\n--b\nContent-Type: message/disposition-notification\n\n" + fields + "--b--\n.\n");
    }

    TestHome home_{"INET_NO_IA_IN_ORN = true\n"};
    FreshGateway fresh_;
    bool end_of_message_ = false, last_part_ = false;
};

const std::string kId = "Original-Message-ID: <MV0123456789ABCDEF@MHS>\n";
const std::string kRecipient = "Final-Recipient: rfc822;a@x\n";
const std::string kDisplayed = "Disposition: manual-action/MDN-sent-manually; displayed\n";

TEST_F(Notification, FieldRows) {
    struct Row {
        std::string fields;
        std::string entry;  // "" nothing is filed
        const char* why;
    };
    const Row rows[] = {
        {kRecipient + kId + kDisplayed, "a@x [] 7.0", "what it needs"},
        {kDisplayed + "\n \n" + kId + "\n" + kRecipient, "a@x [] 7.0", "in any order, blank lines between them"},
        {"Reporting-UA: m\nOriginal-Recipient: rfc822;o@x\n" + kRecipient + kId + kDisplayed, "a@x [rfc822;o@x] 7.0",
         "with an original recipient"},
        {"no field\n" + kRecipient + kId + "x: y\n" + kDisplayed, "a@x [] 7.0", "other lines"},
        {"FINAL-recipient: RFC822 ; a@x\noriginal-MESSAGE-id:<MV0123456789ABCDEF@mhs>\n" + kDisplayed, "a@x [] 7.0",
         "any case"},
        {"Final-Recipient: rfc822;\n a@x\n" + kId +
             "Disposition: automatic-action/\n MDN-sent-automatically;\n\tdeleted/\n "
             "expired\n",
         "a@x [] 6.2", "folded"},
        {kRecipient + kRecipient + kId + "Disposition: a/b;deleted\n" + kDisplayed, "a@x [] 7.0", "the last one holds"},
        {kRecipient + "Original-Message-ID: MV0123456789ABCDEF\n" + kDisplayed, "a@x [] 7.0", "no angle brackets"},
        {kId + kDisplayed, "", "no recipient"},
        {kRecipient + kDisplayed, "", "no identifier"},
        {kRecipient + kId, "", "no disposition"},
        {"Final-Recipient: x400;a@x\n" + kId + kDisplayed, "", "another type of address"},
        {kRecipient + "Final-Recipient: x400;b@x\n" + kId + kDisplayed, "a@x [] 7.0", "... beside ours"},
        {kRecipient + kId + "Disposition: a/b;processed\n", "", "a disposition that is not told"},
        {kRecipient + kId + "Disposition: a/b;dispatched\n", "", "a disposition that is not told"},
        {kRecipient + "Original-Message-ID: <abc@far.example>\n" + kDisplayed, "", "a stranger's message"},
        {kRecipient + "Original-Message-ID:\n" + kDisplayed, "", "an empty identifier"},
        {"", "", "nothing"},
    };
    for (const Row& row : rows) {
        const ux_AcknowledgedMessage found = parse_fields(row.fields);
        EXPECT_EQ(found.converted, !row.entry.empty()) << row.why;
        EXPECT_EQ(filed(), row.entry) << row.why;
        EXPECT_EQ(found.MsgId, row.entry.empty() ? "" : "MV0123456789ABCDEF") << row.why;
    }
}

TEST_F(Notification, ByHand) {
    EXPECT_TRUE(parse_fields(kRecipient + kId + kDisplayed).pManualAck);
    EXPECT_FALSE(parse_fields(kRecipient + kId + "Disposition: a/MDN-sent-automatically;displayed\n").pManualAck);
}

TEST_F(Notification, WhileRelayingNothingIsOurs) {
    ux_recipients().G_Relaying = true;
    EXPECT_FALSE(parse_fields(kRecipient + kId + kDisplayed).converted);
    EXPECT_EQ(filed(), "");
}

TEST_F(Notification, PartRows) {
    const std::string text = "--b\nContent-Type: text/plain\n\nRead.\n\n";
    const std::string header = "--b\nContent-Type: message/disposition-notification\n\n";
    const std::string fields = kRecipient + kId + kDisplayed;
    const std::string end = "--b--\nepilogue\n.\n";
    struct Row {
        std::string report;
        bool converted;
        const char* why;
    };
    const Row rows[] = {
        {"preamble\n" + text + header + fields + end, true, "the usual"},
        {text + header + fields + "--b\nContent-Type: message/rfc822\n\nSubject: s\n" + end, true,
         "and what came back"},
        {text + "--b\nContent-Type: MESSAGE/Disposition-NOTIFICATION; x=y\n\n" + fields + end, true, "any case"},
        {header + fields + end, false, "as the first part it is the text for people"},
        {text + text + header + fields + end, false, "as the third part it is not looked at"},
        {text + "--b\nContent-Type: message/disposition\n\n" + fields + end, false, "another type"},
        {text + end, false, "one part"},
        {text + header + ".\n", false, "the message ends before the first field"},
        {text + header + fields + ".\n", true, "the message ends the part"},
        {text + "--b\n.\n", false, "the message ends in the header"},
        {text + ".\n", false, "the message ends in the first part"},
        {".\n", false, "nothing"},
        {"--b--\n" + text + header + fields + end, true, "a closing line before the first part closes nothing"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(parse(row.report).converted, row.converted) << row.why;
        EXPECT_EQ(filed().empty(), !row.converted) << row.why;
        EXPECT_TRUE(end_of_message_ || last_part_) << row.why;
    }
}

TEST_F(Notification, LongFieldsAreBounded) {
    const std::string long_text(100'000, 'x');
    EXPECT_TRUE(parse_fields("Reporting-UA: " + long_text + "\nOriginal-Recipient: " + long_text + "\n" + kRecipient +
                             kId + kDisplayed)
                    .converted);
    EXPECT_LT(filed().size(), 1100U);
}

TEST_F(Notification, CutAnywhereItRaisesOrEnds) {
    const std::string report = "--b\n\nRead.\n--b\nContent-Type: message/disposition-notification\n\n" + kRecipient +
                               kId + kDisplayed + "--b\n\nSubject: s\n--b--\n.\n";
    for (std::size_t length = 0; length + 2 < report.size(); ++length) {
        ux_reset_report();
        const MessageText input(report.substr(0, length));
        end_of_message_ = last_part_ = false;
        try {
            ux_InParseMDN({"--b", "--b--", end_of_message_, last_part_});
            ADD_FAILURE() << "the text cut at " << length << " has no end";
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.reason(), 1401) << length;
        }
    }
}

}  // namespace
