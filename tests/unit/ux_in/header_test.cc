// The header of a message: from its fields to records, flags and decisions.
#include "ux_in/header.h"

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
#include "support/reset.h"
#include "support/shown_records.h"
#include "ux_in/addresses.h"
#include "ux_in/recipients.h"
#include "ux_in/records.h"

namespace {

using Lines = std::vector<std::string>;

constexpr std::string_view kShortNames = "INET_NO_IA_IN_ORN = true\n";  // names without the address itself in them

std::string far(std::string_view local) { return "/DD.RFC-822=" + std::string(local) + "(a)far.example"; }

class Header : public testing::Test {
protected:
    Header() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
    }

    // Converts a header: its lines, without the blank line. What came of it is in header_, main_ and list_.
    void convert(std::string_view header, std::string_view rest = "\nbody\n.\n") {
        const MessageText input(std::string(header).append(rest));
        TfHandle_ = tf_CreateFile();
        DLHandle_ = tf_CreateFile();
        tf_Record record;
        ux_InCreateHeaderRecord(0, 0, true, "", record);
        tf_AppendRecord(TfHandle_, record);
        ux_InCreateHeaderRecord(2, 1000, true, "", record);
        tf_AppendRecord(DLHandle_, record);
        ux_InCreateDLCountRec(record);
        tf_AppendRecord(DLHandle_, record);
        ux_audit().AuditHandle = aud_StartTransaction(10);
        header_ = ux_InParseUnixMsgHeader({.pTfHandle = TfHandle_,
                                           .DLHandle = DLHandle_,
                                           .HeaderPos = 0,
                                           .FromMailerDaemon = FromMailerDaemon_,
                                           .pArpaSender = "<sender@far.example>",
                                           .pEnvid = Envid_});
        aud_EndTransaction(ux_audit().AuditHandle);
        main_ = shown(TfHandle_);
        list_ = shown(DLHandle_);
    }
    std::string record(std::string_view header, int type) {
        convert(header);
        return only(main_, type);
    }
    Lines records(std::string_view header, int type) {
        convert(header);
        return of_type(main_, type);
    }
    Lines entries(std::string_view header, int type) {
        convert(header);
        return of_type(list_, type);
    }
    // The second byte and the first of the header record's flags, and its hops: "flags 1024 hops 0".
    std::string flags(std::string_view header) {
        const std::string line = record(header, 1100);
        return line.substr(line.find("flags"));
    }
    std::string subject(std::string_view header) { return record(header, 11100).substr(6); }
    std::string saved() {
        std::string scratch;
        return std::string(header_.pHeaderRef.view(0, header_.pHeaderRef.size(), scratch));
    }
    std::string audited(std::string_view header) {
        std::filesystem::remove(home_.file("logs/audit.jsonl"));
        convert(header);
        return home_.read("logs/audit.jsonl");
    }
    bool mdn_wanted(std::string_view header) {
        convert(header);
        return header_.pMDNWanted;
    }

    TestHome home_{kShortNames};
    LogLines log_;
    FreshGateway fresh_;
    tf_File TfHandle_, DLHandle_;
    ux_UnixMsgHeader header_;
    Lines main_, list_;
    bool FromMailerDaemon_ = false;
    std::string Envid_;
};

TEST_F(Header, WithoutAnyFieldHasADateOfNowAndAnEmptySubject) {
    const auto before = static_cast<std::int32_t>(std::time(nullptr));
    convert("");
    const auto after = static_cast<std::int32_t>(std::time(nullptr));
    ASSERT_EQ(main_.size(), 3U);
    EXPECT_EQ(main_[0], "1100 class 0 type 0 flags 1024 hops 0") << "nothing to update: as it was made";
    EXPECT_EQ(main_[1].substr(0, 6), "13000 ");
    EXPECT_EQ(main_[2], "11100 ");
    EXPECT_GE(header_.pCreateGMTTime, before);
    EXPECT_LE(header_.pCreateGMTTime, after);
    EXPECT_EQ(header_.pCreateTimeZone, 0);
    EXPECT_EQ(main_[1], "13000 " + std::to_string(header_.pCreateGMTTime) + " 0");
    EXPECT_EQ(list_.back(), "20010 flags 1 total 0 0 0 0 0 0 0");
    EXPECT_EQ(header_.pFirstFrom + header_.pSender822 + header_.pRfc2047subjectD, "");
    EXPECT_EQ(header_.pContentTypePos, -1);
    EXPECT_FALSE(header_.pMDNWanted);
    EXPECT_EQ(header_.Priority, 0);
    EXPECT_EQ(ux_InReadMailText().text, "body") << "the input stands at the body";
}

TEST_F(Header, ThatTheEndLineEndsIsTheWholeMessage) {
    convert("Subject: x\nTo: to@far.example\n", ".\n");
    EXPECT_TRUE(header_.pEndOfMsg);
    EXPECT_FALSE(ux_Input().text_open());
    EXPECT_EQ(saved(), "Subject: x\r\nTo: to@far.example\r\n");
    EXPECT_EQ(only(list_, 22100), "22100 " + far("to"));
    convert("Subject: x\n");
    EXPECT_FALSE(header_.pEndOfMsg);
}

TEST_F(Header, TheKindsExcludeEachOther) {
    const struct {
        const char* header;
        bool mime, rfc1154, uudecode;
        int node;
        const char* why;
    } rows[] = {
        {"", false, false, true, 3, "no marker is configured: every plain message is a candidate"},
        {"Encoding: text\n", false, true, false, 2, "RFC 1154 goes before uuencode"},
        {"Content-Type: text/plain\n", true, false, false, 1, "any of three fields makes it MIME"},
        {"Content-Type: text/plain\nEncoding: text\n", true, false, false, 1, "and MIME goes before RFC 1154"},
        {"Content-Transfer-Encoding: 7bit\n", true, false, false, 1, ""},
        {"Encoding: text\nMIME-Version: 1.0\n", true, false, false, 1, ""},
    };
    for (const auto& row : rows) {
        convert(row.header);
        EXPECT_EQ(header_.pMimeMsg, row.mime) << row.header << row.why;
        EXPECT_EQ(header_.pRfc1154, row.rfc1154) << row.header << row.why;
        EXPECT_EQ(header_.pUudecodeMsg, row.uudecode) << row.header << row.why;
        EXPECT_EQ(ux_header_state().inet_DefMailNodeNum, row.node) << row.header << row.why;
    }
    home_.set_keys("UXI_UUDECODE_ARPA_TOKEN = \"X-UU\"");
    convert("");
    EXPECT_FALSE(header_.pUudecodeMsg);
    convert("x-uu: yes\n");
    EXPECT_TRUE(header_.pUudecodeMsg);
}

TEST_F(Header, OnlyTheFirstSubjectCounts) {
    EXPECT_EQ(records("Subject: first\nSubject: second\n", 11100), Lines{"11100 first"});
    EXPECT_EQ(header_.pRfc2047subjectD, "first");
    EXPECT_EQ(records("SUBJECT:\t one \t\n", 11100), Lines{"11100 one"}) << "any case, trimmed";
    EXPECT_EQ(records("Subject:\nSubject: second\n", 11100), Lines{"11100 "}) << "an empty one is one";
    EXPECT_EQ(records("Subject : x\n", 11100), Lines{"11100 "}) << "a name is compared as it stands";
}

TEST_F(Header, ASubjectIsJoinedBySpaces) {
    EXPECT_EQ(subject("Subject: one\n two\n\tthree\n"), "one two three");
    EXPECT_EQ(subject("Subject: one\n  two \n three\n"), "one  two  three") << "continuations stay as they are";
    EXPECT_EQ(subject("Subject: one\nno field\n two\n"), "one") << "only what follows at once";
    EXPECT_EQ(subject("Subject: one\n\rtwo\n three\n"), "one");
}

TEST_F(Header, ASubjectOf1023CharactersTakesNoMore) {
    const std::string a(1000, 'a');
    EXPECT_EQ(subject("Subject: " + a + "\n " + std::string(22, 'b') + "\n"), a + " " + std::string(22, 'b'))
        << "1,023 together";
    EXPECT_EQ(subject("Subject: " + a + "\n " + std::string(23, 'b') + "\n"), a) << "1,024";
    EXPECT_EQ(subject("Subject: " + a + "\n " + std::string(23, 'b') + "\n c\n"), a + " c")
        << "what fits is still joined";
    EXPECT_EQ(subject("Subject: " + a + "\n " + std::string(21, 'b') + "\n c\n"), a + " " + std::string(21, 'b'));
}

TEST_F(Header, SubjectsAreDecodedUnlessThatIsSwitchedOffForPlainMessages) {
    const std::string header = "Subject: =?UTF-8?Q?a?=\n";
    EXPECT_EQ(subject(header), "a");
    home_.set_keys("UXI_TREAT_AS_MIME_SUBJECT = false");
    EXPECT_NE(subject(header), "a");
    EXPECT_EQ(subject(header + "MIME-Version: 1.0\n"), "a") << "MIME messages do not ask";
}

TEST_F(Header, AddressFieldsBecomeListEntries) {
    const struct {
        const char* field;
        int type;
    } rows[] = {{"From", 22000}, {"To", 22100},     {"Apparently-To", 22100}, {"Cc", 22200},
                {"Bcc", 22300},  {"Sender", 22430}, {"Reply-To", 22440}};
    for (const auto& row : rows) {
        const std::string name = row.field;
        EXPECT_EQ(entries(name + ": a@far.example, b@far.example\nX: y\n" + name + ": c@far.example\n", row.type),
                  (Lines{std::to_string(row.type) + " " + far("a"), std::to_string(row.type) + " " + far("b"),
                         std::to_string(row.type) + " " + far("c")}))
            << name << ": every occurrence";
    }
}

TEST_F(Header, AFoldedListOfAnyLengthIsConvertedWhole) {
    std::string text = "To: a0@far.example";
    for (int i = 1; i < 2000; ++i) text += (i % 3 == 0 ? ",\n\ta" : ", a") + std::to_string(i) + "@far.example";
    const Lines all = entries(text + "\n", 22100);
    ASSERT_EQ(all.size(), 2000U);
    EXPECT_EQ(all.front(), "22100 " + far("a0"));
    EXPECT_EQ(all.back(), "22100 " + far("a1999"));
    EXPECT_EQ(only(list_, 20010), "20010 flags 1 total 2000 0 2000 0 0 0 0");
}

TEST_F(Header, AnAddressMayBeFolded) {
    EXPECT_EQ(entries("To: Reader\n <a@far.example>,\n b@far.example\n", 22100),
              (Lines{"22100 /CN=Reader" + far("a"), "22100 " + far("b")}));
}

TEST_F(Header, TheFirstFromAndTheFirstSenderAreGivenBack) {
    convert(
        "From: A <a@far.example>, b@far.example\nFrom: c@far.example\nSender: s@far.example\nSender: t@far.example\n");
    EXPECT_EQ(header_.pFirstFrom, "A <a@far.example>");
    EXPECT_EQ(header_.pSender822, "s@far.example");
    convert("To: x@far.example\n");
    EXPECT_EQ(header_.pFirstFrom + header_.pSender822, "") << "of the message before there is nothing left";
}

TEST_F(Header, RecipientsGetTheCategoryOfTheFieldThatNamesThem) {
    for (const char* name : {"to", "cc", "bcc", "unnamed"})
        ux_InAddArpaRecipToList("<" + std::string(name) + "@far.example>", "", false, false);
    convert("Cc: cc@far.example\nTo: to@far.example, cc@far.example\nBcc: bcc@far.example\n");
    const int categories[] = {1, 2, 3, 3};
    for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(ux_recipients().gRecipList[i].Category, categories[i]) << i;
    EXPECT_TRUE(ux_recipients().G_Relaying) << "every recipient is on the Internet";
    ux_InAddArpaRecipToList("<local>", "", false, false);
    convert("");
    EXPECT_FALSE(ux_recipients().G_Relaying);
    ux_InFreeRecipList();
    convert("");
    EXPECT_TRUE(ux_recipients().G_Relaying) << "each message begins anew";
}

TEST_F(Header, TheEnvelopeSenderIsConverted) {
    convert("");
    EXPECT_EQ(ux_addresses().ArpaSenderORN, far("sender"));
}

TEST_F(Header, FlagsOfTheHeaderRecord) {
    const struct {
        const char* header;
        const char* flags;
        const char* why;
    } rows[] = {
        {"x-ploxen-Hops: 7\n", "flags 1024 hops 7", "hops"},
        {"x-ploxen-Hops: 7\nX-Ploxen-Hops: 3\n", "flags 1024 hops 3", "the last one"},
        {"x-ploxen-Hops: 1234567890123\n", "flags 1024 hops 2147483647", "twelve characters of it"},
        {"x-ploxen-Hops: many\n", "flags 1024 hops 0", "no number"},
        {"Autoforwarded: TRUE\n", "flags 46080 hops 0", "0xB0 of the second byte"},
        {"Autoforwarded: true\n", "flags 46080 hops 0", "any case"},
        {"Autoforwarded: yes\n", "flags 1024 hops 0", "only that word"},
        {"Autoreplied: True\n", "flags 58368 hops 0", "0xE0 of the second byte"},
        {"x-ploxen-Autoreplied: TRUE\n", "flags 58368 hops 0", "the field's other name"},
        {"Autoreplied: FALSE\n", "flags 1024 hops 0", "only that word"},
        {"Autoforwarded: TRUE\nAutoforwarded: FALSE\n", "flags 46080 hops 0", "nothing takes it back"},
        {"Autoforwarded: TRUE\nAutoreplied: TRUE\n", "flags 62464 hops 0", "they combine"},
        {"Importance: High\n", "flags 1152 hops 0", "2 at bit 6"},
        {"Importance: LOW\n", "flags 1088 hops 0", "1 at bit 6"},
        {"Importance: High\nImportance: Normal\n", "flags 1152 hops 0", "what says nothing changes nothing"},
        {"Sensitivity: Personal\n", "flags 1032 hops 0", "1 at bit 3"},
        {"Sensitivity: private\n", "flags 1040 hops 0", "2 at bit 3"},
        {"Sensitivity: Company-Confidential\n", "flags 1048 hops 0", "3 at bit 3"},
        {"Sensitivity: Company\n", "flags 1048 hops 0", "3 at bit 3"},
        {"Sensitivity: secret\n", "flags 1024 hops 0", "no such word"},
        {"Precedence: Bulk\n", "flags 33792 hops 0", "0x80 of the second byte"},
        {"Precedence: LIST\n", "flags 33792 hops 0", ""},
        {"Precedence: junk\n", "flags 33792 hops 0", ""},
        {"Precedence: first-class\n", "flags 1024 hops 0", ""},
        {"X-Lucent-Syncmark: x\n", "flags 46080 hops 0", "marked and not forwarded before: forwarded now"},
    };
    for (const auto& row : rows) EXPECT_EQ(flags(row.header), row.flags) << row.header << row.why;
}

TEST_F(Header, TheLastPriorityThatSaysSomethingHolds) {
    const struct {
        const char* header;
        int priority;
    } rows[] = {
        {"Priority: urgent\n", 2},
        {"Priority: Non-Urgent\n", 1},
        {"Priority: normal\n", 0},
        {"X-Priority: 1 (Highest)\n", 2},
        {"X-Priority: 2\n", 2},
        {"X-Priority: 3\n", 0},
        {"X-Priority: 4\n", 1},
        {"X-Priority: 5 (Lowest)\n", 1},
        {"X-MSMail-Priority: High\n", 2},
        {"X-MSMail-Priority: Low\n", 1},
        {"Priority: urgent\nX-Priority: 5\n", 1},
        {"X-Priority: 5\nPriority: urgent\n", 2},
        {"Priority: urgent\nX-Priority: 3\nX-MSMail-Priority: Normal\n", 2},
        {"Priority: ur\n gent\n", 0},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(flags(row.header), "flags " + std::to_string(1024 + row.priority) + " hops 0") << row.header;
        EXPECT_EQ(header_.Priority, row.priority) << row.header;
    }
}

TEST_F(Header, BulkMailMayBeRepliedToWhenThatIsConfigured) {
    home_.set_keys("UXI_AUTO_REPLY_BULK_MAIL = true");
    EXPECT_EQ(flags("Precedence: bulk\n"), "flags 1024 hops 0");
    home_.set_keys("UXI_AUTO_REPLY_BULK_MAIL = false");
    EXPECT_EQ(flags("Precedence: bulk\n"), "flags 33792 hops 0");
}

TEST_F(Header, AMailerDaemonIsMarked) {
    FromMailerDaemon_ = true;
    EXPECT_EQ(flags(""), "flags 41984 hops 0") << "0xA0 of the second byte";
}

TEST_F(Header, TheDateIsTheFirstThatIsOne) {
    EXPECT_EQ(records("Date: Fri, 20 Nov 2026 10:00:00 +0100\nDate: Sat, 21 Nov 2026 10:00:00 +0000\n", 13000),
              Lines{"13000 1795165200 60"});
    EXPECT_EQ(header_.pCreateGMTTime, 1795165200);
    EXPECT_EQ(header_.pCreateTimeZone, 60);
    EXPECT_EQ(records("Date: tomorrow\nDate: Fri, 20 Nov 2026 10:00:00 -0530\n", 13000),
              Lines{"13000 1795188600 -330"});
    EXPECT_EQ(records("Date: Fri, 20 Nov 2026\n 10:00:00 +0100\n", 13000).size(), 1U);
    EXPECT_NE(header_.pCreateTimeZone, 60) << "a folded date loses what was folded";
}

TEST_F(Header, ADateWithoutAZoneIsLocal) {
    ::setenv("TZ", "XXX-02:30", 1);
    ::tzset();
    EXPECT_EQ(record("Date: Fri, 20 Nov 2026 10:00:00\n", 13000), "13000 1795159800 150");
    convert("");
    EXPECT_EQ(header_.pCreateTimeZone, 150) << "so is the date of a message that has none";
}

TEST_F(Header, OtherDatesHaveRecordsOfTheirOwn) {
    const struct {
        const char* field;
        int type;
    } rows[] = {
        {"Deferred-Delivery", 14100}, {"Reply-By", 13600}, {"Expiry-Date", 13700}, {"Latest-Delivery-Time", 16000}};
    for (const auto& row : rows) {
        const std::string name = row.field, type = std::to_string(row.type);
        EXPECT_EQ(records(name + ": never\n" + name + ": Fri, 20 Nov 2026 10:00:00 +0100\n" + name +
                              ": Sat, 21 Nov 2026 10:00:00 +0100\n",
                          row.type),
                  Lines{type + " 1795165200 60"})
            << name;
        EXPECT_EQ(records(name + ": never\n", row.type), Lines{}) << name << ": there is no default";
        EXPECT_NE(header_.pCreateGMTTime, 1795165200) << name << ": it is not the date of the message";
    }
}

TEST_F(Header, IdentifiersOfEachLine) {
    EXPECT_EQ(records("Message-Id: <a@x>\nMessage-Id: <b@x>\n", 13100), Lines{"13100 a(a)x | a(a)x"});
    EXPECT_EQ(records("References: <a@x> <b@x>\n\t<c@x>\n <d@\n x>\n", 13800),
              (Lines{"13800 a(a)x", "13800 b(a)x", "13800 c(a)x", "13800 d(a)"}))
        << "each line by itself: an identifier does not fold";
    EXPECT_EQ(records("Obsoletes: <a@x>\n", 13900), Lines{"13900 a(a)x"});
    EXPECT_EQ(records("In-Reply-To: <a@x> <b@x>\n", 13200), Lines{"13200 a(a)x"});
    EXPECT_EQ(of_type(main_, 13800), Lines{"13800 b(a)x"}) << "a second one is a reference";
}

TEST_F(Header, AReplyIsAReply) {
    EXPECT_EQ(record("In-Reply-To: <a@x>\n", 1100), "1100 class 0 type 1 flags 1024 hops 0");
    EXPECT_EQ(record("References: <a@x>\n", 1100), "1100 class 0 type 0 flags 1024 hops 0");
    EXPECT_EQ(record("In-Reply-To: your letter\n", 1100), "1100 class 0 type 0 flags 1024 hops 0");
}

TEST_F(Header, TheMessageIdentifierGoesWithATransportOrEnvelopeIdentifier) {
    Envid_ = "env";
    EXPECT_EQ(record("Message-Id: <a@x>\n", 13100), "13100 a(a)x | env");
    EXPECT_EQ(record("x-ploxen-Transport-Id: <t{065}>\nMessage-Id: <a@x>\n", 13100), "13100 a(a)x | tA");
    EXPECT_EQ(record("Message-Id: <a@x>\nx-ploxen-Transport-Id: <t>\n", 13100), "13100 a(a)x | env")
        << "fields take effect where they stand";
    Envid_.clear();
    EXPECT_EQ(record("Message-Id: <a@x>\n", 13100), "13100 a(a)x | a(a)x");
}

TEST_F(Header, OnlyTheFirstOriginatorReturnAddressCounts) {
    EXPECT_EQ(records("Originator-Return-Address: r@far.example\nOriginator-Return-Address: s@far.example\n", 16100),
              Lines{"16100 " + far("r")});
    EXPECT_EQ(record("Originator-Return-Address:  The\n\t Returns  \n  <r@far.example>\n", 16100),
              "16100 /CN=The Returns" + far("r"))
        << "trimmed and joined by a space";
    EXPECT_NE(audited("Originator-Return-Address: r@far.example\n").find(R"({"code":56,"text":")" + far("r")),
              std::string::npos);
}

TEST_F(Header, TheEncodingListIsThatOfTheMessagesKind) {
    const struct {
        const char* header;
        const char* list;
        const char* why;
    } rows[] = {
        {"", "", "nothing to list"},
        {"Encoding: 1 text,\n\t2 hex\n", "1 text,2 hex", "lines are joined as they stand"},
        {"Encoding: 1 text\nEncoding: 2 hex\n", "2 hex", "a later field begins the list anew"},
        {"Encoding: 1 text\nx-ploxen-PartInfo: fc=1\n", "1 text", "of an RFC 1154 message"},
        {"x-ploxen-PartInfo: fc=1.IA5,\n fc=2\n", "fc=1.IA5,fc=2", "of a uuencode candidate"},
        {"Content-Transfer-Encoding: base\n 64\n", "base64", "of a MIME message"},
        {"Content-Transfer-Encoding: base64\nEncoding: 1 text\nx-ploxen-PartInfo: fc=1\n", "base64", "and of no other"},
    };
    for (const auto& row : rows) {
        convert(row.header);
        EXPECT_EQ(header_.ppEncoding, row.list) << row.header << row.why;
    }
    home_.set_keys("UXI_UUDECODE_ARPA_TOKEN = \"X-UU\"");
    convert("x-ploxen-PartInfo: fc=1\n");
    EXPECT_EQ(header_.ppEncoding, "") << "no candidate, no list";
}

TEST_F(Header, TheEncodingListOfAnEarlierMessageIsGone) {
    convert("x-ploxen-PartInfo: fc=1\n");
    convert("Subject: x\n");
    EXPECT_EQ(header_.ppEncoding, "");
}

TEST_F(Header, ContentTypeAndDispositionOfAMimeMessage) {
    convert("Subject: x\nContent-Type: text/plain;\n\tcharset=\n  UTF-8\nContent-Disposition: inline;\n filename=x\n");
    EXPECT_EQ(header_.pMIMEContentType, "text/plain;charset= UTF-8") << "appended without a separator";
    EXPECT_EQ(header_.pMIMEContentDisposition, "inline;filename=x");
    EXPECT_EQ(header_.pContentTypePos, 12) << "where its line starts in the saved header";
    EXPECT_EQ(saved().substr(12, 13), "Content-Type:");
    convert("Content-Type: text/plain\nContent-Type: text/html\n");
    EXPECT_EQ(header_.pMIMEContentType, "text/html") << "the last one";
    EXPECT_EQ(header_.pContentTypePos, 26);
    convert("Content-Disposition: inline\n");
    EXPECT_EQ(header_.pMIMEContentDisposition, "") << "that field alone makes no MIME message";
}

TEST_F(Header, ContentTypesAreBounded) {
    const std::string a(1000, 'a');
    convert("Content-Type: " + a + "\n " + std::string(23, 'b') + "\n");
    EXPECT_EQ(header_.pMIMEContentType.size(), 1023U);
    convert("Content-Type: " + a + "\n " + std::string(24, 'b') + "\n c\n");
    EXPECT_EQ(header_.pMIMEContentType, a + "c") << "what does not fit is left out, what fits is added";
    convert("Content-Type: x\nContent-Disposition: " + a.substr(0, 980) + "\n " + std::string(44, 'b') + "\n");
    EXPECT_EQ(header_.pMIMEContentDisposition.size(), 980U);
}

TEST_F(Header, AMultipartTypeGoesIntoTheHeaderRecord) {
    EXPECT_EQ(record("Content-Type: multipart/mixed; boundary=x\n", 1100),
              "1100 class 0 type 0 flags 1024 hops 0 mime multipart/mixed; boundary=x");
    EXPECT_EQ(record("Content-Type: MULTIPART/x\nPriority: urgent\n", 1100),
              "1100 class 0 type 0 flags 1026 hops 0 mime MULTIPART/x")
        << "and the update finds the record that has it";
    EXPECT_EQ(record("Content-Type: text/plain\n", 1100), "1100 class 0 type 0 flags 1024 hops 0");
    EXPECT_EQ(record("Content-Type: multipart\n", 1100), "1100 class 0 type 0 flags 1024 hops 0");
}

TEST_F(Header, AddingTheContentTypeCopiesEveryRecordIntoANewFile) {
    tf_File file = tf_CreateFile();
    tf_Record record;
    ux_InCreateHeaderRecord(0, 0, false, "", record);
    tf_AppendRecord(file, record);
    tf_MakeSubjectRec(record, 11100, "subject");
    tf_AppendRecord(file, record);
    ux_InCreateHeaderRecord(1, 5, true, "old", record);
    tf_AppendRecord(file, record);
    file.item().place();
    const ITEM_REF old = tf_GetRef(file);
    ux_InAddCTToHeader(file, "multipart/x");
    EXPECT_EQ(shown(file), (Lines{"1100 class 0 type 0 flags 0 hops 0 mime multipart/x", "11100 subject",
                                  "1100 class 1 type 5 flags 1024 hops 0 mime multipart/x"}));
    EXPECT_FALSE(tf_GetRef(file) == old);
    EXPECT_FALSE(os_fexists(im_ItemRef2FName(old))) << "the old file is deleted";
}

TEST_F(Header, ADispositionNotificationGoesToTheReturnPathOrNowhere) {
    const struct {
        std::string header;
        bool wanted;
        const char* why;
    } rows[] = {
        {"", false, "nobody asked"},
        {"Disposition-Notification-To: a@x\n", true, "without a return path it is honoured"},
        {"Disposition-Notification-To:\n", false, "an empty address is none"},
        {"Disposition-Notification-To: a@x\nReturn-Path: <A@X>\n", true, "equal but for case and brackets"},
        {"Return-Path: <a@x>\nDisposition-Notification-To: [a@x]\n", true, "square brackets, either order of fields"},
        {"Return-Path: < a@x >\nDisposition-Notification-To: a@x\n", true, "blanks inside the brackets"},
        {"Return-Path: <b@x>\nDisposition-Notification-To: a@x\n", false, "somewhere else"},
        {"Return-Path: <>\nDisposition-Notification-To: a@x\n", false, "nowhere"},
        {"Return-Path:\nDisposition-Notification-To: a@x\n", false, "an empty field was seen all the same"},
        {"Return-Path: <a@x>\nReturn-Path: <b@x>\nDisposition-Notification-To: b@x\n", false, "the first return path"},
        {"Disposition-Notification-To: b@x\nDisposition-Notification-To: a@x\nReturn-Path: <a@x>\n", false,
         "the first address"},
        {"Disposition-Notification-To:\nDisposition-Notification-To: a@x\n", false, "even if it is empty"},
        {"Disposition-Notification-To: A\n <a@x>\nReturn-Path: <a@x>\n", true, "between its brackets"},
        {"Disposition-Notification-To: a\n @x\nReturn-Path: a\n  @x\n", true, "folded lines are joined by one space"},
        {"Return-Receipt-To: a@x\n", false, "the other field needs a key"},
    };
    for (const auto& row : rows) EXPECT_EQ(mdn_wanted(row.header), row.wanted) << row.header << row.why;
}

TEST_F(Header, AReturnReceiptIsADispositionNotificationWhenThatIsConfigured) {
    home_.set_keys("INET_ADD_RRT_HDR = true");
    const struct {
        const char* header;
        bool wanted;
        const char* why;
    } rows[] = {
        {"Return-Receipt-To: a@x\n", true, ""},
        {"Return-Receipt-To: a@x\nReturn-Path: <a@x>\n", true, ""},
        {"Return-Receipt-To: b@x\nReturn-Receipt-To: a@x\nReturn-Path: <a@x>\n", true, "a later one replaces it"},
        {"Return-Receipt-To: b@x\nDisposition-Notification-To: a@x\nReturn-Path: <a@x>\n", true,
         "the real field overrides it"},
        {"Disposition-Notification-To: a@x\nReturn-Receipt-To: b@x\nReturn-Path: <a@x>\n", true,
         "and is not overridden"},
        {"Disposition-Notification-To: b@x\nReturn-Receipt-To: a@x\nReturn-Path: <a@x>\n", false,
         "and is not overridden"},
    };
    for (const auto& row : rows) EXPECT_EQ(mdn_wanted(row.header), row.wanted) << row.header << row.why;
}

TEST_F(Header, ASensitiveSubjectStaysOutOfTheAuditTrail) {
    EXPECT_NE(audited("Subject: merger\n").find(R"({"code":10,"text":"merger"})"), std::string::npos);
    for (const char* word : {"Personal", "Private", "Company", "Company-Confidential"})
        EXPECT_EQ(audited("Subject: merger\nSensitivity: " + std::string(word) + "\n").find("merger"),
                  std::string::npos)
            << word;
    EXPECT_EQ(audited("Sensitivity: private\nSubject: merger\n").find("\"code\":10"), std::string::npos)
        << "whichever field comes first";
    EXPECT_NE(audited("Subject: merger\nSensitivity: none\n").find("merger"), std::string::npos);
    EXPECT_NE(audited("Sensitivity: private\n").find(R"({"code":10,"text":""})"), std::string::npos)
        << "no subject is no secret";
}

TEST_F(Header, AMailLoopIsReadToItsEndAndDropped) {
    for (const char* header :
         {"X-Lucent-Syncmark: x\nAutoforwarded: TRUE\n", "autoforwarded: true\nx-lucent-syncmark:\n"}) {
        try {
            convert(header, "\nbody\n..\n" + std::string(3000, 'x') + ".\n.\n");
            ADD_FAILURE() << header;
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.group(), kGatewayGroup);
            EXPECT_EQ(escape.reason(), 1544);
            EXPECT_FALSE(ux_Input().text_open()) << "the end line has been read";
        }
    }
    try {
        convert("X-Lucent-Syncmark: x\nAutoforwarded: TRUE\n", ".\n");
        ADD_FAILURE();
    } catch (const er_Escape& escape) {
        EXPECT_EQ(escape.reason(), 1544) << "one without a body, too";
    }
}

TEST_F(Header, AMailLoopThatIsCutOffIsNoWholeMessage) {
    try {
        convert("X-Lucent-Syncmark: x\nAutoforwarded: TRUE\n", "\nbody\n");
        ADD_FAILURE();
    } catch (const er_Escape& escape) {
        EXPECT_EQ(escape.reason(), 1401) << "what the agent still has is not dropped";
    }
}

TEST_F(Header, AFailureLeavesNothingBehind) {
    std::string text;
    for (int i = 0; i < 5000; ++i) text += "X: " + std::string(100, 'x') + "\n";  // becomes a file
    EXPECT_THROW(convert(text, ""), er_Escape);
    TfHandle_ = {};
    DLHandle_ = {};
    EXPECT_EQ(home_.files("data"), Lines{});
}

TEST_F(Header, FieldsWithoutContinuationsLeaveTheirsAlone) {
    convert("x-ploxen-Hops: 1\n 2\nImportance: high\n Subject: no\nSubject: yes\n");
    EXPECT_EQ(only(main_, 11100), "11100 yes") << "a continuation line is never a field";
    EXPECT_EQ(only(main_, 1100), "1100 class 0 type 0 flags 1152 hops 1");
}

TEST_F(Header, LinesThatAreNoFieldsAndUnknownFieldsAreSkipped) {
    convert("From sender Mon Jan  1\n: empty\nX-Foo: TRUE\nno colon\nSubject: x\n.Sensitivity: private\n");
    EXPECT_EQ(main_.size(), 3U);
    EXPECT_EQ(only(main_, 1100), "1100 class 0 type 0 flags 1024 hops 0");
}

TEST_F(Header, AValueEndsAtItsFirstReturn) {
    EXPECT_EQ(subject("Subject: one\rtwo\n"), "one");
    EXPECT_EQ(saved(), "Subject: one\rtwo\r\n") << "the saved header has it all";
}

TEST_F(Header, ALineOf1022CharactersHidesItsContinuation) {
    // Read back it fills the buffer without its line end; what follows is a line of its own, and nothing is joined.
    const std::string a(1022 - 9, 'a');
    EXPECT_EQ(subject("Subject: " + a + "\n b\n"), a);
    EXPECT_EQ(subject("Subject: " + a.substr(0, 1000) + "\n b\n"), a.substr(0, 1000) + " b");
}

TEST_F(Header, FieldsOfALongLinesLaterPieceAreFields) {
    const std::string filler(1023 - 3, 'x');
    EXPECT_EQ(subject("X: " + filler + "Subject: hidden\nSubject: seen\n"), "hidden");
}

}  // namespace
