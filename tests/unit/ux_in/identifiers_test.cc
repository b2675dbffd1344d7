// Message identifiers and transport identifiers.
#include "ux_in/identifiers.h"

#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "aud/aud.h"
#include "inet/address.h"
#include "support/home.h"
#include "support/log_lines.h"
#include "ux_in/recipients.h"

namespace {

class IdentifiersTest : public testing::Test {
protected:
    void SetUp() override { reset(); }
    void TearDown() override { reset(); }
    static void reset() {
        ux_reset_identifiers();
        ux_reset_recipients();
        ux_reset_directory();
        ux_reset_audit();
        inet_reset();
    }

    // One line per record: "13100 first|second"; a wrapped one in parentheses.
    std::string records() {
        std::string text;
        tf_Record record;
        tf_UnreadFile(file_);
        while (tf_ReadRecord(file_, record)) {
            const bool wrapped = record.type() == TFREC_wrapped;
            if (wrapped) tf_ChangeFromWrapRec(record);
            const std::string_view first = record.get_string(18);
            std::string line = std::to_string(record.type()) + ' ' + std::string(first);
            const std::size_t next = 18 + first.size() + 1;
            if (next < record.size()) line += '|' + std::string(record.get_string(next));
            text += (text.empty() ? "" : "\n") + (wrapped ? '(' + line + ')' : line);
        }
        return text;
    }
    void parse(std::string_view list, std::int32_t type, std::string_view transport = {}, std::string_view envid = {},
               bool wrap = false) {
        ux_InParseMsgIdList(list, {file_, type, had_id_, had_reply_, transport, wrap, envid});
    }

    TestHome home_{"INET_LOCAL_DOMAINS = \"home.example\"\n"};
    tf_File file_ = tf_CreateFile();
    bool had_id_ = false, had_reply_ = false;
};

TEST_F(IdentifiersTest, OnlyTheFirstMessageIdentifierCounts) {
    parse("<a> <b>", TFREC_message_id);
    EXPECT_TRUE(had_id_);
    EXPECT_FALSE(had_reply_);
    parse("<c>", TFREC_message_id);
    EXPECT_EQ(records(), "13100 a|a");
    EXPECT_EQ(ux_identifiers().pLogArpaMsgId, "c") << "logged all the same";
}

TEST_F(IdentifiersTest, FurtherRepliesAreReferences) {
    parse("<a> <b>", TFREC_in_reply_to);
    EXPECT_TRUE(had_reply_);
    EXPECT_FALSE(had_id_);
    parse("<c> <d>", TFREC_in_reply_to);
    EXPECT_EQ(records(), "13200 a\n13800 b\n13800 c\n13800 d");
}

TEST_F(IdentifiersTest, ReferencesAndObsoletesAreAllKept) {
    parse("<a> <b>", TFREC_references);
    parse("<c><d>", TFREC_obsoletes);
    EXPECT_EQ(records(), "13800 a\n13800 b\n13900 c\n13900 d");
    EXPECT_FALSE(had_id_);
    EXPECT_FALSE(had_reply_);
}

TEST_F(IdentifiersTest, TheSecondTextOfAMessageIdentifier) {
    parse("<a>", TFREC_message_id, "T", "E");
    had_id_ = false;
    parse("<a>", TFREC_message_id, "", "E");
    had_id_ = false;
    parse("<a@x>", TFREC_message_id);
    EXPECT_EQ(records(), "13100 a|T\n13100 a|E\n13100 a(a)x|a(a)x");
}

TEST_F(IdentifiersTest, WhatStandsAroundTheBracketsIsNothing) {
    parse("", TFREC_references);
    parse("no identifier", TFREC_references);
    parse("Your message of Monday <a> and <b", TFREC_references);
    parse("<>", TFREC_references);
    parse("> <c> <", TFREC_references);
    EXPECT_EQ(records(), "13800 a\n13800 b\n13800 \n13800 c\n13800 ");
}

TEST_F(IdentifiersTest, RecordsAreWrappedWhenAsked) {
    parse("<a>", TFREC_message_id, "", "", true);
    parse("<b>", TFREC_references, "", "", true);
    EXPECT_EQ(records(), "(13100 a|a)\n(13800 b)");
}

TEST_F(IdentifiersTest, IdentifiersAreAudited) {
    aud_GetSetLogConfig(4);
    ux_audit().AuditHandle = aud_StartTransaction(10);
    parse("<a@x> <b>", TFREC_message_id);
    aud_EndTransaction(ux_audit().AuditHandle);
    const std::string line = home_.read("logs/audit.jsonl");
    EXPECT_NE(line.find(R"([{"code":7,"text":"a@x"},{"code":3,"text":"a(a)x"},{"code":7,"text":"b"}])"),
              std::string::npos)
        << line;
}

TEST_F(IdentifiersTest, OwnIdentifiersComeBack) {
    struct Row {
        std::string text;
        std::string result;
        const char* why;
    };
    const Row rows[] = {
        {"ABC123@MHS", "ABC123", "an own one"},
        {"ABC123@mhs", "ABC123", "any case"},
        {"ABC123@MHS.example", "ABC123", "the beginning counts"},
        {"\"ABC 123\"@MHS", "ABC 123", "quotes go"},
        {"ABC123*/S=Babbage/O=engine/@MHS", "ABC123\x1D/O=engine/S=Babbage", "with a name, and no address in it"},
        {"\"ABC*/S=Babbage/\"@MHS", "ABC\x1D/S=Babbage", "quoted"},
        {"ABC*u@MHS", "ABC\x1D/S=u", "a name that is a local part"},
        {"ABC*a b c,@MHS", "ABC", "a name that cannot be read"},
        {"ABC*@MHS", "ABC", "no name"},
        {"ABC*~*/S=x/@MHS", "ABC\x1D/S=~*\\/S=x\\/", "the first star counts; behind it anything goes"},
        {"A '()+-/:=?.,9z@MHS", "A '()+-/:=?.,9z", "all printable characters"},
        {"@MHS", "", "nothing before"},
        {std::string(64, 'a') + "@MHS", std::string(64, 'a'), "64 characters"},
        {std::string(65, 'a') + "@MHS", std::string(65, 'a') + "(a)MHS", "65 are none of ours"},
        {"A_B@MHS", "A(u)B(a)MHS", "a character that ours do not have"},
        {"A\"B@MHS", "A(q)B(a)MHS", "one quote alone"},
        {"ABC@MH", "ABC(a)MH", "too short"},
        {"ABC@x@MHS", "ABC(a)x(a)MHS", "looked for at the first at sign"},
        {"ABC", "ABC", "no at sign"},
    };
    for (const Row& row : rows) EXPECT_EQ(ux_InConvMsgId(row.text), row.result) << row.why;
}

TEST_F(IdentifiersTest, OthersAreMadePrintable) {
    struct Row {
        std::string_view text;
        std::string_view result;
        const char* why;
    };
    const Row rows[] = {
        {"x_y@z", "x(u)y(a)z", "letters"},
        {"@%!\"_", "(a)(p)(b)(q)(u)", "all of them"},
        {"(x)", "(x)", "parentheses are printable"},
        {"~", "(126)", "digits"},
        {"\xE9", "(273)", "a byte taken as signed"},
        {"\x80\xFF", "(168)(295)", "the ends of the range"},
        {std::string_view("\0\x01\x7F", 3), "(000)(001)(127)", "controls"},
        {"a b", "a b", "a blank"},
        {"", "", "nothing"},
    };
    for (const Row& row : rows) EXPECT_EQ(ux_InConvMsgId(row.text), row.result) << row.why;
}

TEST_F(IdentifiersTest, OutputIsBounded) {
    struct Row {
        std::size_t before;  // printable characters
        char next;
        std::size_t length;
        const char* why;
    };
    const Row rows[] = {
        {1063, 'a', 1064, "a character more"},
        {1064, 'a', 1064, "no room"},
        {2000, 'a', 1064, "none at all"},
        {1059, '~', 1064, "three digits just fit"},
        {1060, '~', 1060, "they do not: it ends there"},
        {1061, '@', 1064, "a letter just fits"},
        {1062, '@', 1062, "it does not"},
    };
    for (const Row& row : rows) {
        const std::string text = std::string(row.before, 'x') + row.next;
        EXPECT_EQ(ux_InConvMsgId(text).size(), row.length) << row.why;
        const std::size_t longer = ux_InConvMsgId(text + "aaa").size();
        EXPECT_EQ(longer, row.next == 'a' && row.before < 1064 ? 1064 : row.length) << "nothing follows: " << row.why;
    }
}

TEST_F(IdentifiersTest, NamesInIdentifiers) {
    std::string address = "Bob <u@far.example>", name;
    EXPECT_EQ(ux_getMsgIdORN(address, name), 1);
    EXPECT_EQ(name, "/CN=Bob/DD.RFC-822=u(a)far.example");
    address = "u@";
    EXPECT_EQ(ux_getMsgIdORN(address, name), 0);
    EXPECT_EQ(name, "");
    LogLines log(7);
    address.assign(1024, 'a');
    EXPECT_EQ(ux_getMsgIdORN(address, name), 1);
    EXPECT_TRUE(log.all().empty());
    address.assign(1025, 'a');
    EXPECT_EQ(ux_getMsgIdORN(address, name), 0);
    EXPECT_EQ(address, "");
    EXPECT_EQ(name, "");
    EXPECT_EQ(log.count("7 102.1505"), 1U);
    EXPECT_EQ(log.count("7 102.1418"), 1U);
}

TEST_F(IdentifiersTest, TransportIdentifiers) {
    struct Row {
        const char* text;
        const char* result;  // null: malformed
        const char* why;
    };
    const Row rows[] = {
        {"AB/C{065}",
         "AB\x1D"
         "CA",
         "a slash and a code"},
        {"", "", "nothing"},
        {"{255}", "\xFF", "the greatest byte"},
        {"{321}", "A", "modulo 256"},
        {"{999}", "\xE7", "the greatest number"},
        {"A{000}B", "A", "a byte 0 ends it"},
        {"A{256}B", "A", "this one too"},
        {"A}B", "A}B", "a closing brace alone"},
        {"AB{6}", nullptr, "one digit"},
        {"AB{0655}", nullptr, "four digits"},
        {"AB{06x}", nullptr, "no digit"},
        {"AB{065", nullptr, "not closed"},
        {"AB{", nullptr, "cut off"},
        {"A{000}B{", nullptr, "malformed behind its end"},
    };
    for (const Row& row : rows) {
        const auto result = ux_InDecodeXportID(row.text);
        EXPECT_EQ(result.value_or("malformed"), row.result != nullptr ? row.result : "malformed") << row.why;
    }
}

TEST_F(IdentifiersTest, TransportIdentifierOfAField) {
    EXPECT_EQ(ux_InParseTransportIDList("<AB/C{065}>"),
              "AB\x1D"
              "CA");
    EXPECT_EQ(ux_InParseTransportIDList("x <A> <B>"), "A") << "only the first";
    EXPECT_EQ(ux_InParseTransportIDList("<A"), "A") << "to the end";
    EXPECT_EQ(ux_InParseTransportIDList("<AB{6}>"), "");
    EXPECT_EQ(ux_InParseTransportIDList("A"), "");
    EXPECT_EQ(ux_InParseTransportIDList(""), "");
}

TEST_F(IdentifiersTest, IdentifiersOfThisMailSystem) {
    struct Row {
        std::string_view text;
        bool own;
    };
    const Row rows[] = {
        {"MV0123456789ABCDEF", true},
        {"MV0123456789ABCDEF\x1D/S=x", true},
        {"MV0123456789ABCDEF\x1D", false},
        {"MV0123456789ABCDEF/S=x", false},
        {"MV0123456789ABCDEF0", false},
        {"MV0123456789ABCDE", false},
        {"MV0123456789abcdef", false},
        {"mv0123456789ABCDEF", false},
        {"MV", false},
        {"", false},
        {"MV0123456789ABCDEG", false},
        {" MV0123456789ABCDEF", false},
    };
    for (const Row& row : rows) EXPECT_EQ(im_IsQuillnetMsgId(row.text), row.own) << row.text;
}

}  // namespace
