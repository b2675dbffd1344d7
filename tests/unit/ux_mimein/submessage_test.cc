// Encapsulated messages of MIME: packages, what is handed to the body, and the state of the message around it. Records
// are shown one a line, wrapped ones left out.
#include "ux_mimein/submessage.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/attached_files.h"
#include "support/home.h"
#include "support/log_lines.h"
#include "support/message_text.h"
#include "support/reset.h"
#include "support/shown_records.h"
#include "ux_mimein/entity.h"
#include "ux_mimein/mail_input.h"

namespace {

using Lines = std::vector<std::string>;

std::size_t packages_in(const Lines& lines) {
    std::size_t count = 0;
    for (const std::string& line : lines) count += line.starts_with("30100") ? 1 : 0;
    return count;
}

class SubMessage : public testing::Test {
protected:
    explicit SubMessage(std::string_view keys = {}) : home_(keys) {
        ux_reset_mime_state();
        ux_reset_mime_input();
        TfHandle_ = tf_CreateFile();
        MsgHandle_ = Msg_CreateFile("");
        part_.header.pszSubPartType = "message/rfc822";
    }
    ~SubMessage() override {
        ux_reset_mime_state();
        ux_reset_mime_input();
    }

    ux_MimeConversion conversion() {
        return {.TfHandle = TfHandle_,
                .MsgHandle = MsgHandle_,
                .pbEndOfMsg = EndOfMsg_,
                .pAckReq = AckReq_,
                .pReplyReq = ReplyReq_};
    }
    Lines records() {
        Lines lines;
        for (const std::string& line : shown(TfHandle_))
            if (!line.starts_with('(') && !line.starts_with("30700")) lines.push_back(line);
        return lines;
    }
    // Converts a message/rfc822 entity.
    Lines converted(std::string_view text) {
        const MessageText input(text);
        ux_MimeConversion message = conversion();
        ux_InParseMimeContent(message, part_);
        EXPECT_TRUE(EndOfMsg_);
        EXPECT_EQ(ux_mime_state().msgNestLevel, 0);
        return records();
    }

    TestHome home_;
    LogLines log_;
    FreshGateway fresh_;
    tf_File TfHandle_;
    Msg_File MsgHandle_;
    ux_MimePart part_;
    bool EndOfMsg_ = false, ReplyReq_ = false;
    std::int16_t AckReq_ = 0;
};

TEST_F(SubMessage, HandsOutItsBodyOnceAndClosesItsPackage) {
    const MessageText input("Subject: inner\nContent-Type: text/html\nContent-Transfer-Encoding: base64\n\nPGE+\n.\n");
    ux_MimeConversion message = conversion();
    const ux_PartMarkers markers{"--b", "--b--"};
    bool last = false;
    part_.markers = &markers;
    part_.pbLastPart = &last;
    part_.AtTopLevel = true;
    part_.tfDistListPos = 7;
    part_.partNumber = 3;
    ux_mime_state().havePnPropsForMsg = true;
    ux_mime_state().msgNestLevel = 1;
    const auto frame = ux_InParseMimeSubMsg(message, part_);
    EXPECT_EQ(ux_mime_state().msgNestLevel, 1) << "nothing happens before it is asked";

    ux_MimePart* const body = frame->next();
    ASSERT_NE(body, nullptr);
    EXPECT_EQ(ux_mime_state().msgNestLevel, 2);
    EXPECT_FALSE(ux_mime_state().havePnPropsForMsg);
    EXPECT_EQ(body->pRfc2047subject, "inner");
    EXPECT_EQ(body->header.pszSubPartType, "text/html");
    EXPECT_EQ(body->header.pszSubPartEncoding, "base64");
    EXPECT_TRUE(body->bInImmediateMsg);
    EXPECT_EQ(body->markers, &markers);
    EXPECT_EQ(body->pbLastPart, &last);
    EXPECT_FALSE(body->AtTopLevel);
    EXPECT_EQ(body->tfDistListPos, -1);
    EXPECT_EQ(body->partNumber, 1);
    EXPECT_EQ(body->pHeaderRef, nullptr);
    EXPECT_EQ(body->pContentHdrRef, nullptr);
    EXPECT_EQ(body->ContentTypePos, -1);
    EXPECT_EQ(body->header.pszContentDisposition + body->header.szContentID + body->header.szContentLocation, "");

    ux_mime_state().havePnPropsForMsg = false;
    EXPECT_EQ(frame->next(), nullptr);
    EXPECT_EQ(ux_mime_state().msgNestLevel, 1);
    EXPECT_TRUE(ux_mime_state().havePnPropsForMsg) << "as it was";
    EXPECT_EQ(records(), (Lines{"30100 3 -100 inner", "30500 1166 kind 0 size 0 inner", "39000"}));
}

TEST_F(SubMessage, OneThatIsLeftByAnEscapeRestoresToo) {
    const MessageText input("Subject: inner\n\nx\n.\n");
    ux_MimeConversion message = conversion();
    ux_mime_state().havePnPropsForMsg = true;
    {
        const auto frame = ux_InParseMimeSubMsg(message, part_);
        ASSERT_NE(frame->next(), nullptr);
    }
    EXPECT_EQ(ux_mime_state().msgNestLevel, 0);
    EXPECT_TRUE(ux_mime_state().havePnPropsForMsg);
}

TEST_F(SubMessage, AHeaderThatEndsTheMessageHasNoBody) {
    EXPECT_EQ(converted("Subject: inner\n.\n"),
              (Lines{"30100 3 -100 inner", "30500 1166 kind 0 size 0 inner", "39000"}));
}

TEST_F(SubMessage, AMultipartBodyIsNoPackageOfItsOwn) {
    EXPECT_EQ(
        converted("Subject: inner\nContent-Type: multipart/mixed; boundary=b\n\n--b\n\none\n--b--\n.\n"),
        (Lines{"30100 3 -100 inner", "30500 1166 kind 0 size 0 inner", "30500 1167 kind 0 size 3 inner", "39000"}));
}

TEST_F(SubMessage, InsideAnother) {
    EXPECT_EQ(converted("Subject: 1\nContent-Type: Message/RFC822; x=y\n\nSubject: 2\n\nbody\n.\n"),
              (Lines{"30100 3 -100 1", "30500 1166 kind 0 size 0 1", "30100 3 -100 2", "30500 1166 kind 0 size 0 2",
                     "30500 1167 kind 0 size 5 2", "39000", "39000"}));
}

TEST_F(SubMessage, OtherMessageTypesAreLeaves) {
    for (const char* type : {"message/partial", "message/delivery-status", "message/global", "message"}) {
        part_.header.pszSubPartType = type;
        EndOfMsg_ = false;
        TfHandle_ = tf_CreateFile();
        MsgHandle_ = Msg_CreateFile("");
        EXPECT_EQ(Lines{converted("Subject: 1\n\nbody\n.\n").front().substr(0, 5)}, Lines{"30500"}) << type;
        EXPECT_EQ(records().size(), 1U) << type;
    }
}

// A header that the boundary cuts off: what follows belongs to the multipart around it.
TEST_F(SubMessage, AHeaderEndsAtABoundary) {
    const auto digest = [&](std::string_view parts) {
        part_.header.pszSubPartType = "multipart/digest; boundary=b";
        EndOfMsg_ = false;
        TfHandle_ = tf_CreateFile();
        MsgHandle_ = Msg_CreateFile("");
        return converted("--b\n\n" + std::string(parts) + ".\n");
    };
    const auto messages = [](int count) {  // in the digest's package, none with a body
        Lines lines{"30100 3 -100 "};
        for (int i = 0; i < count; ++i)
            for (const char* line : {"30100 3 -100 s", "30500 1166 kind 0 size 0 s", "39000"}) lines.emplace_back(line);
        lines.emplace_back("39000");
        return lines;
    };
    const struct {
        std::string header;
        const char* why;
    } rows[] = {
        {"Subject: s\n", "without a blank line"},
        {"Subject: s\nContent-Type: multipart/mixed; boundary=c\n", "a body that is not there is not looked for"},
        {"Subject: s\nContent-Type: message/rfc822\n", "nor a message in it"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(digest(row.header + "--b--\nepilogue\n"), messages(1)) << row.why;
        EXPECT_EQ(digest(row.header + "--b \t\n\n" + row.header + "--b--\n"), messages(2)) << row.why;
    }
    EXPECT_EQ(digest("Subject: s\n--c\n--bb\n\n--b--\n").size(), 6U) << "other lines that begin so do not end it";
}

TEST_F(SubMessage, AnEncodedMessageIsKeptDecoded) {
    for (const char* encoding : {"base64", "Quoted-Printable", "x-uuencode"}) {
        part_.header.pszSubPartEncoding = encoding;
        EndOfMsg_ = false;
        TfHandle_ = tf_CreateFile();
        MsgHandle_ = Msg_CreateFile("");
        EXPECT_EQ(packages_in(converted("U3ViamVjdDogcwoKYm9keQo=\n.\n")), 0U) << encoding;
        const Lines files = attached_files(MsgHandle_, std::move(TfHandle_));
        ASSERT_EQ(files.size(), 1U);
        EXPECT_TRUE(encoding != std::string_view("base64") || files[0] == "Subject: s\n\nbody\n") << files[0];
    }
    for (const char* encoding : {"7bit", "8bit", "binary", "", "x-unknown"}) {
        part_.header.pszSubPartEncoding = encoding;
        EndOfMsg_ = false;
        TfHandle_ = tf_CreateFile();
        MsgHandle_ = Msg_CreateFile("");
        EXPECT_EQ(packages_in(converted("Subject: s\n\nbody\n.\n")), 1U) << encoding;
    }
}

std::string nested(int levels) {
    std::string text;
    for (int i = 1; i < levels; ++i) text += "Content-Type: message/rfc822\n\n";
    return text + "Subject: last\n\nbody\n.\n";
}

class Bounded : public SubMessage {
protected:
    Bounded() : SubMessage("UX_MAX_DEPTH = 3\n") {}
};

TEST_F(Bounded, AtTheBound) {
    const Lines lines = converted(nested(3));
    EXPECT_EQ(packages_in(lines), 3U);
    EXPECT_EQ(lines[lines.size() - 4], "30500 1167 kind 0 size 5 last");
    EXPECT_EQ(log_.count("5 100.24071"), 0U);
}

TEST_F(Bounded, BeyondItIsKeptWhole) {
    const Lines lines = converted(nested(4));
    EXPECT_EQ(packages_in(lines), 3U);
    const std::string kept = "Subject: last\n\nbody\n";
    EXPECT_EQ(lines[lines.size() - 4], "30500 0 kind 0 size " + std::to_string(kept.size()) + " ");
    EXPECT_EQ(attached_files(MsgHandle_, std::move(TfHandle_)).back(), kept);
    EXPECT_EQ(log_.count("5 100.24071"), 1U);
}

TEST_F(SubMessage, TenThousandLevels) { EXPECT_EQ(packages_in(converted(nested(10'000))), 10'000U); }

TEST_F(SubMessage, OneLevelMore) { EXPECT_EQ(packages_in(converted(nested(10'001))), 10'000U); }

TEST_F(SubMessage, CutOffItLeavesNothing) {
    const std::string text = "Content-Type: multipart/digest; boundary=b\n\n--b\n\nSubject: 2\n\nbody\n--b--\n";
    for (std::size_t length = 0; length <= text.size(); ++length) {
        const MessageText input(text.substr(0, length));
        ux_MimeConversion message = conversion();
        try {
            ux_InParseMimeContent(message, part_);
            ADD_FAILURE() << length;
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.reason(), 1401) << length;
        }
        EXPECT_EQ(ux_mime_state().msgNestLevel, 0);
        ux_begin_mime_message();
        MsgHandle_ = Msg_CreateFile("");
        TfHandle_ = tf_CreateFile();
    }
    EXPECT_TRUE(home_.files("data").empty());
}

}  // namespace
