// Headers of messages inside messages, of both kinds: what they share and where they differ. Records are shown one a
// line, wrapped ones in parentheses.
#include "ux_in/encapsulated_header.h"

#include <stdlib.h>

#include <ctime>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "aud/aud.h"
#include "er/er.h"
#include "support/attached_files.h"
#include "support/home.h"
#include "support/log_lines.h"
#include "support/message_text.h"
#include "support/reset.h"
#include "support/shown_records.h"
#include "ux_in/addresses.h"
#include "ux_in/recipients.h"
#include "ux_mimein/mail_input.h"
#include "ux_mimein/subjects.h"
#include "ux_mimein/submessage_header.h"
#include "ux_uuin/submessage_header.h"

namespace {

using Lines = std::vector<std::string>;

std::string far(std::string_view local) { return "/DD.RFC-822=" + std::string(local) + "(a)far.example"; }

class EncapsulatedHeader : public testing::TestWithParam<bool> {
protected:
    EncapsulatedHeader() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
    }

    bool mime() const { return GetParam(); }

    // Converts a header: its lines, without the blank line. What came of it is in header_, main_ and list_.
    void convert(std::string_view header, std::string_view rest = "\nbody\n.\n") {
        const MessageText input(std::string(header).append(rest));
        tf_File TfHandle = tf_CreateFile();
        Msg_File MsgHandle = Msg_CreateFile("");
        const ux::EncapsulatedHeaderTarget target{.TfHandle = TfHandle,
                                                  .MsgHandle = MsgHandle,
                                                  .GenObjFiles = GenObjFiles_,
                                                  .pContentHdrRef = content_header_ ? &content_header_ : nullptr,
                                                  .encoding_limit = encoding_limit_};
        header_ = mime() ? ux_MimInProcessSubMsgHdr(target) : ux_UUInProcessSubMsgHdr(target);
        main_ = shown(TfHandle);
        next_ = ux_Input().text_open() ? std::string(ux_Input().text().text) : "(end)";
        const Lines files = attached_files(MsgHandle, std::move(TfHandle));
        ASSERT_EQ(files.size(), 1U);
        list_ = shown_bytes(files[0]);
    }
    // The wrapped records of a type, in order.
    Lines records(std::string_view header, int type) {
        convert(header);
        return of_type(main_, type, "(");
    }
    static Lines of_type(const Lines& lines, int type, const std::string& before = "") {
        Lines found;
        for (const std::string& line : lines)
            if (line.starts_with(before + std::to_string(type) + " ")) found.push_back(line);
        return found;
    }
    std::string record(std::string_view header, int type) {
        const Lines found = records(header, type);
        return found.size() == 1 ? found[0] : "(" + std::to_string(found.size()) + " records)";
    }
    Lines entries(std::string_view header, int type) {
        convert(header);
        return of_type(list_, type);
    }
    std::string flags(std::string_view header) {
        const std::string line = record(header, 1100);
        return line.substr(line.find("type"));
    }
    std::string package(std::string_view header) {
        convert(header);
        return main_.at(0);
    }

    TestHome home_{"INET_NO_IA_IN_ORN = true\nAUDIT = true\n"};
    LogLines log_;
    FreshGateway fresh_;
    ux::EncapsulatedHeader header_;
    Lines main_, list_;
    std::string next_;  // the line after the header
    im_Item content_header_;
    bool GenObjFiles_ = true;
    std::size_t encoding_limit_ = 1000;
};

INSTANTIATE_TEST_SUITE_P(Kinds, EncapsulatedHeader, testing::Values(true, false),
                         [](const auto& kind) { return kind.param ? "Mime" : "Rfc1154"; });

TEST_P(EncapsulatedHeader, WithoutAnyFieldHasADateOfNowAndAnEmptySubject) {
    const auto before = std::time(nullptr);
    convert("");
    const auto after = std::time(nullptr);
    ASSERT_EQ(main_.size(), 6U);
    EXPECT_EQ(main_[0], "30100 3 -100 ");
    EXPECT_EQ(main_[1], "(1100 class 0 type 0 flags 1024 hops 0)") << "no MIME type";
    const long now = std::atol(main_[2].c_str() + 7);
    EXPECT_EQ(main_[2], "(13000 " + std::to_string(now) + " 0)");
    EXPECT_TRUE(before <= now && now <= after);
    EXPECT_EQ(main_[3], "(11100 )");
    EXPECT_EQ(main_[4], "(30700 1 inetMessageHeader 0)");
    EXPECT_EQ(main_[5], "30500 1166 kind 0 size 0 ");
    EXPECT_EQ(list_, (Lines{"1100 class 2 type 1000 flags 1024 hops 0", "20010 flags 1 total 0 0 0 0 0 0 0"}));
    EXPECT_EQ(next_, "body");
    EXPECT_EQ(header_.nLinesRead, 1) << "the blank line counts";
    EXPECT_FALSE(header_.pEndOfMsg);
    EXPECT_EQ(header_.ppEncoding + header_.pszSubPartType + header_.pszSubPartEncoding + header_.pFullMIMEType, "");
}

TEST_P(EncapsulatedHeader, EndsWithTheMessage) {
    convert("Subject: x\n", ".\n");
    EXPECT_TRUE(header_.pEndOfMsg);
    EXPECT_EQ(next_, "(end)");
    EXPECT_EQ(main_[0], "30100 3 -100 x");
}

TEST_P(EncapsulatedHeader, CountsLinesNotPieces) {
    convert("A: " + std::string(5000, 'x') + "\nB: 1\n");
    EXPECT_EQ(header_.nLinesRead, 3);
    convert("A: b\r\n c\r\n", "\r\nbody\r\n.\r\n");
    EXPECT_EQ(header_.nLinesRead, 3) << "a blank line may be CR LF";
    EXPECT_EQ(next_, "body");
}

TEST_P(EncapsulatedHeader, LinesAreSavedAsTheyCame) {
    convert("..dot: x\nx-ploxen-Foo: kept\nMessage-Id: <a\xE9@b>\nno field\r\r\ncut\rhere\n");
    const std::string text = "..dot: x\r\nx-ploxen-Foo: kept\r\nMessage-Id: <a?@b>\r\nno field\r\ncut\r\n";
    EXPECT_EQ(of_type(main_, 30700, "("), Lines{"(30700 1 inetMessageHeader " + std::to_string(text.size()) + ")"});
    EXPECT_EQ(log_.count("9 102.1549"), 0U);
}

TEST_P(EncapsulatedHeader, AWhiteLineEndsItWhenConfigured) {
    convert("A: b\n \t\nC: d\n");
    EXPECT_EQ(next_, "body");
    home_.set_keys("WHITESPACE_CRLF_IS_BREAK = true\n");
    convert("A: b\n \t\nC: d\n");
    EXPECT_EQ(next_, "C: d");
}

TEST_P(EncapsulatedHeader, FoldedSubject) {
    const std::string folded = "Subject: one\n two\n\tthree\n";
    EXPECT_EQ(package(folded), "30100 3 -100 one two three");
    EXPECT_EQ(record(folded, 11100), mime() ? "(11100 one two three)" : "(11100 one)") << "RFC 1154: the first line";
    EXPECT_EQ(header_.pRfc2047subjectD, mime() ? "one two three" : "one");
    EXPECT_EQ(main_.back(), "30500 1166 kind 0 size 0 " + header_.pRfc2047subjectD);
    EXPECT_EQ(record("Subject: first\nSubject: second\n", 11100), "(11100 first)") << "only the first makes a record";
    const std::string filler(1010, 'x');
    EXPECT_EQ(package("Subject: " + filler + "\n 123456789012\n 3\n"), "30100 3 -100 " + filler + " 123456789012");
    EXPECT_EQ(package("Subject: " + filler + "\n 1234567890123\n 3\n"), "30100 3 -100 " + filler + " 3")
        << "what does not fit below 1,024 is left out";
}

TEST_P(EncapsulatedHeader, SubjectAfterMimeVersion) {
    EXPECT_EQ(package("MIME-Version: 1.0\nSubject: s\n"), mime() ? "30100 3 -100 s" : "30100 3 -100 ")
        << "RFC 1154 looks for it no further";
    EXPECT_EQ(of_type(main_, 11100, "("), Lines{"(11100 s)"}) << "but its record is made";
    EXPECT_EQ(package("Subject: s\n t\nMIME-Version: 1.0\n"), "30100 3 -100 s t");
}

TEST_P(EncapsulatedHeader, EncodedSubjectAfterMimeVersion) {
    home_.set_keys("UXI_MIME_CS_AUTODETECT = false\n");
    ux_reset_subjects();
    ux_charsets().FromCharSet = "ISO8859_1";
    ux_charsets().ToLatinCS = "ISO8859_1";
    const std::string encoded = "=?iso-8859-1?B?Y2Fm6Q==?=", subject = "Subject: " + encoded + "\n";
    EXPECT_EQ(record(subject, 11100), "(11100 " + encoded + ")");
    EXPECT_EQ(record("MIME-Version: 1.0\n" + subject, 11100),
              mime() ? "(11100 " + encoded + ")" : "(11100 =?ISO-8859-1?Q?caf=E9?=)")
        << "RFC 1154 decodes it, and encodes it anew";
    ux_charsets().FromCharSet = "IA5";
    EXPECT_EQ(record("MIME-Version: 1.0\n" + subject, 11100), "(11100 " + encoded + ")")
        << "what cannot be decoded into the set of mail stays encoded";
    ux_reset_subjects();
}

TEST_P(EncapsulatedHeader, AddressesGoToTheListLineByLine) {
    EXPECT_EQ(entries("To: a@far.example,\n b@far.example\n\tc@far.example\n", 22100),
              (Lines{"22100 " + far("a"), "22100 " + far("b"), "22100 " + far("c")}));
    EXPECT_EQ(entries("To: a@far.example\n b@far.example\n", 22100).size(), 2U) << "lines are not joined";
    const struct {
        const char* field;
        int type;
    } rows[] = {{"From", 22000}, {"To", 22100},       {"Apparently-To", 22100}, {"Cc", 22200},
                {"Bcc", 22300},  {"Reply-To", 22440}, {"Sender", 22430}};
    for (const auto& row : rows)
        EXPECT_EQ(entries(std::string(row.field) + ": x@far.example\n", row.type),
                  Lines{std::to_string(row.type) + " " + far("x")})
            << row.field;
    convert("From: a@far.example\nTo: b@far.example\nCc: c@far.example\nBcc: d@far.example\n");
    EXPECT_EQ(list_[1], "20010 flags 0 total 4 1 1 1 1 0 0");
}

TEST_P(EncapsulatedHeader, Originators) {
    const auto originators = [&](std::string_view header) {
        convert(header);
        Lines found = of_type(main_, 10000, "(");
        for (const std::string& line : of_type(main_, 10005, "(")) found.push_back(line);
        return found;
    };
    const auto creator = [](std::string_view who) { return "(10000 " + far(who) + ")"; };
    const auto p2 = [](std::string_view who) { return "(10005 " + far(who) + ")"; };
    const struct {
        const char* header;
        Lines mime;
        const char* why;
    } rows[] = {
        {"From: a@far.example\n", {p2("a")}, "From"},
        {"From: a@far.example\nSender: b@far.example\n", {creator("b"), p2("b")}, "Sender goes first"},
        {"From: a@far.example, c@far.example\n", {p2("a")}, "the first of several"},
        {"Sender: b@far.example\nSender: c@far.example\n",
         {creator("b"), creator("b"), p2("b")},
         "a second Sender makes a second record of the first"},
        {"To: a@far.example\n", {}, "nobody"},
    };
    for (const auto& row : rows) EXPECT_EQ(originators(row.header), mime() ? row.mime : Lines{}) << row.why;
    if (mime()) {
        const Lines found = originators("Sender: <>\nFrom: a@far.example\n");
        EXPECT_EQ(found.empty() ? "" : found.back(), p2("a")) << "a Sender that names nobody gives way";
    }
}

TEST_P(EncapsulatedHeader, FlagsReachTheHeaderRecordOfMimeOnly) {
    const struct {
        const char *header, *flags, *why;
    } rows[] = {
        {"Priority: urgent\n", "type 0 flags 1026 hops 0)", "priority"},
        {"X-Priority: 5\n", "type 0 flags 1025 hops 0)", "by number"},
        {"Priority: urgent\nX-MSMail-Priority: low\n", "type 0 flags 1025 hops 0)", "the last holds"},
        {"Importance: high\n", "type 0 flags 1152 hops 0)", "importance"},
        {"Sensitivity: company\n", "type 0 flags 1048 hops 0)", "sensitivity"},
        {"Autoforwarded: true\n", "type 0 flags 46080 hops 0)", "forwarded"},
        {"Autoreplied: TRUE\n", "type 0 flags 58368 hops 0)", "replied"},
        {"x-ploxen-Autoreplied: TRUE\n", "type 0 flags 58368 hops 0)", "in our own words"},
        {"x-ploxen-Hops: 7\n", "type 0 flags 1024 hops 7)", "hops"},
        {"In-Reply-To: <a@b>\n", "type 1 flags 1024 hops 0)", "a reply"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(flags(row.header), mime() ? row.flags : "type 0 flags 1024 hops 0)") << row.why;
    for (const char* header : {"Precedence: bulk\n", "X-Lucent-Syncmark: x\n", "Return-Path: <a@b>\n",
                               "Disposition-Notification-To: a@b\n", "x-ploxen-PartInfo: fc=1\n", "Priority: 3\n"})
        EXPECT_EQ(flags(header), "type 0 flags 1024 hops 0)") << header;
}

TEST_P(EncapsulatedHeader, Dates) {
    const std::string good = "Sat, 21 Nov 2026 10:00:00 +0100", at = " 1795251600 60)";
    const struct {
        const char* field;
        int type;
    } rows[] = {{"Date", 13000},
                {"Deferred-Delivery", 14100},
                {"Reply-By", 13600},
                {"Expiry-Date", 13700},
                {"Latest-Delivery-Time", 16000}};
    for (const auto& row : rows) {
        const std::string field = std::string(row.field) + ": ", record_of = "(" + std::to_string(row.type);
        EXPECT_EQ(record(field + good + "\n", row.type), record_of + at) << row.field;
        EXPECT_EQ(record(field + "never\n" + field + good + "\n" + field + "3 Feb 2004 10:20\n", row.type),
                  record_of + at)
            << row.field << ": the first that parses";
    }
}

TEST_P(EncapsulatedHeader, Identifiers) {
    EXPECT_EQ(records("Message-Id: <a@b>\nMessage-Id: <c@d>\n", 13100), Lines{"(13100 a(a)b | a(a)b)"})
        << "no envelope identifier";
    EXPECT_EQ(record("x-ploxen-Transport-Id: <AB/C>\nMessage-Id: <a@b>\n", 13100),
              "(13100 a(a)b | AB\x1D"
              "C)");
    convert("In-Reply-To: <a@b>\n <c@d>\nReferences: <e@f>\nObsoletes: <g@h>\n");
    EXPECT_EQ(of_type(main_, 13200, "("), Lines{"(13200 a(a)b)"});
    EXPECT_EQ(of_type(main_, 13800, "("), (Lines{"(13800 c(a)d)", "(13800 e(a)f)"}));
    EXPECT_EQ(of_type(main_, 13900, "("), Lines{"(13900 g(a)h)"});
}

TEST_P(EncapsulatedHeader, ReturnAddressIsOneLineAndNotAudited) {
    ux_audit().AuditHandle = aud_StartTransaction(10);
    EXPECT_EQ(records("Originator-Return-Address: a@far.example\nOriginator-Return-Address: b@far.example\n", 16100),
              Lines{"(16100 " + far("a") + ")"});
    EXPECT_EQ(record("Originator-Return-Address: a@far.example\n (comment)\n", 16100), "(16100 " + far("a") + ")");
    aud_EndTransaction(ux_audit().AuditHandle);
    EXPECT_EQ(home_.read("logs/audit.jsonl").find("\"code\":56"), std::string::npos);
}

TEST_P(EncapsulatedHeader, EncodingRepeatsItsFirstLine) {
    convert("Encoding: 1 text,\n 2 hex\n 3 hex\nEncoding: text\n");
    EXPECT_EQ(header_.ppEncoding, "1 text,1 text,1 text,text");
    encoding_limit_ = 14;
    convert("Encoding: 1 text,\n 2 hex\n 3 hex\n");
    EXPECT_EQ(header_.ppEncoding, "1 text,1 text,") << "within its bound";
    encoding_limit_ = 13;
    convert("Encoding: 1 text,\n 2 hex\n");
    EXPECT_EQ(header_.ppEncoding, "1 text,");
}

TEST_P(EncapsulatedHeader, ContentFieldsAreOfMime) {
    const std::string header =
        "Content-Type: Multipart/mixed;\n boundary=x;\n\t=?a?=\nContent-Transfer-Encoding: 8\n bit\n";
    convert(header);
    const std::string type = "Multipart/mixed;boundary=x; =?a?=";
    EXPECT_EQ(header_.pszSubPartType, mime() ? type : "");
    EXPECT_EQ(header_.pszSubPartEncoding, mime() ? "8bit" : "");
    EXPECT_EQ(header_.pFullMIMEType, mime() ? type : "");
    EXPECT_EQ(main_[1], mime() ? "(1100 class 0 type 0 flags 1024 hops 0 mime " + type + ")"
                               : "(1100 class 0 type 0 flags 1024 hops 0)");
    convert("Content-Type: text/plain;\n charset=x\n");
    EXPECT_EQ(header_.pFullMIMEType, "") << "that of a multipart only";
    EXPECT_EQ(header_.pszSubPartType, mime() ? "text/plain;charset=x" : "");
}

TEST_P(EncapsulatedHeader, Objects) {
    content_header_ = im_CrNewDataItem();
    content_header_.write("Content-Type: message/rfc822\r\n");
    convert("A: b\n");
    EXPECT_EQ(of_type(main_, 30700, "("), (Lines{"(30700 1 inetMessageHeader 6)", "(30700 1 inetContentHeader 30)"}));
    GenObjFiles_ = false;
    convert("A: b\n");
    EXPECT_EQ(of_type(main_, 30700, "("), Lines{});
}

TEST_P(EncapsulatedHeader, ThePositionIsThatOfTheContentFileRecord) {
    const MessageText input("Subject: s\n\n.\n");
    tf_File TfHandle = tf_CreateFile();
    Msg_File MsgHandle = Msg_CreateFile("");
    const ux::EncapsulatedHeaderTarget target{.TfHandle = TfHandle, .MsgHandle = MsgHandle};
    header_ = mime() ? ux_MimInProcessSubMsgHdr(target) : ux_UUInProcessSubMsgHdr(target);
    tf_Record record;
    tf_GotoRecord(TfHandle, header_.pTfDistListPos);
    ASSERT_TRUE(tf_ReadRecord(TfHandle, record));
    EXPECT_EQ(record.type(), TFREC_content_file_type);
}

// A recipient that an inner header names is named by a header.
TEST_P(EncapsulatedHeader, RecipientsGetTheirCategory) {
    ux_InAddArpaRecipToList("<r@far.example>", "", false, false);
    ux_InMakeX400RecipList();
    convert("Cc: r@far.example\n");
    EXPECT_EQ(ux_recipients().gRecipList[0].Category, 2);
}

TEST_P(EncapsulatedHeader, CutOffItLeavesNothing) {
    const std::string text = "Subject: s\nTo: a@far.example\n";
    for (std::size_t length = 0; length <= text.size(); ++length) {
        const MessageText input(text.substr(0, length));
        tf_File TfHandle = tf_CreateFile();
        Msg_File MsgHandle = Msg_CreateFile("");
        const ux::EncapsulatedHeaderTarget target{.TfHandle = TfHandle, .MsgHandle = MsgHandle};
        try {
            mime() ? ux_MimInProcessSubMsgHdr(target) : ux_UUInProcessSubMsgHdr(target);
            ADD_FAILURE() << length;
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.reason(), 1401);
        }
        EXPECT_EQ(MsgHandle.attached(), 0U);
    }
    EXPECT_TRUE(home_.files("data").empty());
}

}  // namespace
