// The MIME entity dispatcher: content types taken apart, who converts what, steering, depth.
#include "ux_mimein/entity.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/log_lines.h"
#include "support/mime.h"

namespace {

using Lines = std::vector<std::string>;

TEST(SplitContentType, Rows) {
    struct Row {
        const char *text, *type, *subtype, *parameters, *why;
    };
    const Row rows[] = {
        {"text/plain", "text", "plain", nullptr, "plain"},
        {"", "text", "plain", nullptr, "none"},
        {"text", "text", "plain", nullptr, "no slash"},
        {"text; charset=x", "text", "plain", nullptr, "then its parameters are none either"},
        {"multipart", "text", "plain", nullptr, "whatever it says"},
        {"multipart/mixed ; boundary=x", "multipart", "mixed", "boundary=x", "a blank before the semicolon"},
        {" Multipart / Mixed;boundary=x ", "Multipart", "Mixed", "boundary=x", "trimmed"},
        {"multipart/mixed boundary=x", "multipart", "mixed", nullptr, "a blank ends the subtype"},
        {"multipart/mixed\tx; boundary=x", "multipart", "mixed", "boundary=x", "a tab too"},
        {"multipart/mixed\rx; boundary=x", "multipart", "mixed", "boundary=x", "and a CR"},
        {"multipart/mixed;", "multipart", "mixed", "", "a semicolon alone is parameters"},
        {"multipart/mixed; ", "multipart", "mixed", "", "with blanks too"},
        {"multipart/mixed;a;b", "multipart", "mixed", "a;b", "the first semicolon counts"},
        {"multipart/", "multipart", "", nullptr, "no subtype"},
        {"/mixed", "", "mixed", nullptr, "no type"},
        {"a/b/c;d", "a", "b/c", "d", "the first slash counts"},
        {"a;b/c", "a;b", "c", nullptr, "even behind a semicolon"},
    };
    for (const Row& row : rows) {
        const ux_ContentTypeParts parts = ux_split_content_type(row.text);
        EXPECT_EQ(parts.type, row.type) << row.why;
        EXPECT_EQ(parts.subtype, row.subtype) << row.why;
        EXPECT_EQ(parts.parameters.value_or("(none)"), row.parameters == nullptr ? "(none)" : row.parameters)
            << row.why;
    }
}

class Entity : public testing::Test {
protected:
    // What became of one part of a multipart/mixed.
    ConvertedMime part(const std::string& type) {
        return process_.convert("multipart/mixed; boundary=b",
                                "--b\nContent-Type: " + type + "\n\n--c\n\n1\n--c--\n--b--\n.\n");
    }
    static std::string nested(int levels) {
        std::string text;
        for (int level = 1; level <= levels; ++level) {
            const std::string name = std::to_string(level);
            text += "--b" + std::to_string(level - 1) + "\nContent-Type: multipart/mixed; boundary=b" + name + "\n\n";
        }
        return text + "--b" + std::to_string(levels) + "\n\ndeep\n.\n";
    }
    MimeProcess process_;
};

TEST_F(Entity, WhoConvertsWhat) {
    struct Row {
        const char* type;
        Lines items;
        const char* why;
    };
    const Row rows[] = {
        {"multipart/mixed; boundary=c", {"1"}, "a multipart"},
        {"MULTIPART/x; boundary=c", {"1"}, "in any case"},
        {" multipart / mixed ; boundary=c", {"1"}, "with blanks"},
        {"multipart; boundary=c", {"--c\n\n1\n--c--"}, "without a slash it is text"},
        {"multiparts/mixed; boundary=c", {"--c\n\n1\n--c--"}, "another type is a leaf"},
        {"message/partial; boundary=c", {"--c\n\n1\n--c--"}, "so are other messages"},
        {"message/delivery-status", {"--c\n\n1\n--c--"}, "and reports"},
        {"message/rfc822x", {"--c\n\n1\n--c--"}, "and what only looks like one"},
        {"text/rfc822", {"--c\n\n1\n--c--"}, "of whatever type"},
    };
    for (const Row& row : rows) EXPECT_EQ(part(row.type).items, row.items) << row.why;
}

TEST_F(Entity, AMessageThatHasEndedConvertsNothing) {
    const MessageText input("text\n.\n");
    tf_File records = tf_CreateFile();
    Msg_File message = Msg_CreateFile("");
    bool end = true;
    std::int16_t ack = 0;
    bool reply = false;
    ux_MimeConversion conversion{
        .TfHandle = records, .MsgHandle = message, .pbEndOfMsg = end, .pAckReq = ack, .pReplyReq = reply};
    ux_MimePart part;
    im_Item header = im_CrNewDataItem();
    part.pHeaderRef = &header;
    ux_InParseMimeContent(conversion, part);
    EXPECT_EQ(records.end(), 0);
    EXPECT_EQ(GetMailText().text, "text");
    EXPECT_FALSE(ux_mime_input().GotMimeSteering);
}

TEST_F(Entity, TheMessagesHeaderGoesWhenItIsDone) {
    im_Item header = im_CrNewDataItem();
    header.write("Subject: x\r\n");
    const std::string file = header.path();
    ux_MimePart part;
    part.bInImmediateMsg = true;
    part.AtTopLevel = true;
    part.pHeaderRef = &header;
    process_.convert(part, "text\n.\n");
    EXPECT_FALSE(os_fexists(file));
}

TEST_F(Entity, PropertiesOfTheMessageBeforeAreForgotten) {
    ux_mime_state().havePnPropsForMsg = true;
    process_.convert("text/plain", ".\n");
    EXPECT_FALSE(ux_mime_state().havePnPropsForMsg);
}

TEST_F(Entity, CallsAreNotNested) {
    const int depth = 10'000;
    const ConvertedMime made = process_.convert("multipart/mixed; boundary=b0", nested(depth - 1));
    EXPECT_EQ(made.items, Lines{"deep\n"});
    EXPECT_EQ(made.records.size(), 2U * (depth - 1) + 1);
    EXPECT_EQ(ux_mime_state().nestLevel, 0);
}

TEST_F(Entity, WhatIsTooDeepIsKeptWhole) {
    process_.restart_with("UX_MAX_DEPTH = 3\n");
    {
        const LogLines log(5);
        EXPECT_EQ(process_.convert("multipart/mixed; boundary=b0", nested(2)).items, Lines{"deep\n"}) << "3 levels";
        EXPECT_EQ(log.all().size(), 0U);
    }
    const LogLines log(5);
    const ConvertedMime made = process_.convert("multipart/mixed; boundary=b0", nested(3));
    EXPECT_EQ(made.items, Lines{"--b3\n\ndeep\n"}) << "4";
    EXPECT_EQ(made.records[2], "30500 0 11 type[multipart/mixed; boundary=b3] subject[S]");
    EXPECT_EQ(log.count("5 100.24071 Entity kept whole: it is nested deeper than  3"), 1U);
    process_.restart_with("UX_MAX_DEPTH = 0\n");
    EXPECT_EQ(process_.convert("multipart/mixed; boundary=b0", "--b0\n\nx\n.\n").items, Lines{"--b0\n\nx\n"});
}

// Text in UTF-8, and where a steering file wants it to be.
class Steering : public Entity {
protected:
    static std::string target(std::string_view set) {
        return "[[target]]\nfrom = \"UTF8\"\ntype = 0\nto = \"" + std::string(set) + "\"\n";
    }
    std::string converted() {
        const ConvertedMime made = process_.convert("text/plain; charset=utf-8", "gr\xc3\xbcn\n.\n");
        return made.items.empty() ? "" : made.items[0];
    }
    static constexpr std::string_view kUtf8 = "gr\xc3\xbcn\n";
    static constexpr std::string_view kLatin1 = "gr\xfcn\n";
};

TEST_F(Steering, OfMimeTextGoesBeforeThatOfAllText) {
    EXPECT_EQ(converted(), kUtf8) << "no steering";
    process_.home.write("sys/unixin.str", target("ISO8859_1"));
    EXPECT_EQ(converted(), kUtf8) << "it was looked for already";
    process_.restart();
    EXPECT_EQ(converted(), kLatin1) << "unixin.str alone";
    process_.home.write("sys/mimein.str", target("ISO8859_15"));
    process_.restart();
    EXPECT_EQ(process_.convert("text/plain; charset=utf-8", "gr\xc3\xbcn\n.\n").records[0],
              "30500 1736 set[ISO8859_15] 5 type[text/plain; charset=ISO-8859-15] subject[S]")
        << "both";
}

TEST_F(Steering, IsLookedForOnce) {
    converted();
    EXPECT_TRUE(ux_mime_input().GotMimeSteering) << "whether or not there was any";
    process_.home.write("sys/mimein.str", target("ISO8859_1"));
    EXPECT_EQ(converted(), kUtf8);
    process_.restart();
    EXPECT_EQ(converted(), kLatin1);
}

TEST_F(Steering, IsNeverLookedForWhenAnEncodedSubjectCameFirst) {
    process_.home.write("sys/mimein.str", target("ISO8859_1"));
    process_.restart();
    ux_InBuildMimeSubject("=?utf-8?q?=C3=BC?=");
    EXPECT_EQ(converted(), kUtf8);
    EXPECT_EQ(converted(), kUtf8) << "nor for the next message";
    process_.restart();
    ux_InBuildMimeSubject("plain");
    EXPECT_EQ(converted(), kLatin1) << "one that is not encoded changes nothing";
    ux_InBuildMimeSubject("=?utf-8?q?=C3=BC?=");
    EXPECT_EQ(converted(), kLatin1) << "nor does one that comes later";
}

TEST_F(Steering, ThatCannotBeUsedRefusesAndIsAskedAgain) {
    process_.home.write("sys/mimein.str", "[[target]\n");
    process_.restart();
    EXPECT_THROW(converted(), er_Escape);
    EXPECT_FALSE(ux_mime_input().GotMimeSteering);
    process_.home.write("sys/mimein.str", target("ISO8859_1"));
    EXPECT_EQ(converted(), kLatin1);
}

TEST_F(Steering, ASubjectIsSteeredByThePlainOne) {
    process_.home.write("sys/unixin.str", target("ISO8859_1"));
    process_.home.write("sys/mimein.str", "[[target]]\nfrom = \"*\"\nto = \"WIN1252\"\n");
    process_.restart_with("UXI_UNIX_MAIL_CHARSET = \"UTF8\"\nUXI_MIME_CS_AUTODETECT = false\n");
    const ConvertedMime made = process_.convert("x/y; name=\"gr\xc3\xbcn\"", ".\n");
    EXPECT_EQ(made.records[0].substr(made.records[0].find("subject[")), "subject[=?windows-1252?Q?gr=FCn?=]")
        << "the set is found by the plain rules, its target by those of MIME";
    EXPECT_EQ(cvr_GetSteeringFile(), 6) << "which stay in force";
}

}  // namespace
