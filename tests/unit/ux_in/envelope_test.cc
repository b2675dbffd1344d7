// Envelope parameters: paths, words, values, and what is left alone.
#include "ux_in/envelope.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

ux_MailFrom mail_from(std::string_view arguments, bool ROCWanted = true, std::string Envid = {}) {
    ux_MailFrom sender{.ArpaSender = "before", .Envid = std::move(Envid), .ROCWanted = ROCWanted};
    ux_InParseMAILFROM(arguments, sender);
    return sender;
}

ux_RcptTo rcpt_to(std::string_view arguments, bool NoNDNWanted = false, bool DelAckWanted = false) {
    ux_RcptTo recipient{"before", "old;rcpt", NoNDNWanted, DelAckWanted};
    ux_InParseRCPTTO(arguments, recipient);
    return recipient;
}

TEST(Path, EndsAfterTheFirstBracket) {
    const struct {
        const char *arguments, *path, *why;
    } rows[] = {
        {"<a@b>", "<a@b>", "the usual one"},
        {"<>", "<>", "the null path"},
        {"", "", "nothing"},
        {"a@b", "a@b", "no brackets"},
        {"<a>b>", "<a>", "the first bracket ends it"},
        {"\"x>y\"@z", "\"x>", "nothing else is interpreted"},
        {"a@b RET=HDRS NOTIFY=NEVER", "a@b RET=HDRS NOTIFY=NEVER", "without a bracket all of it is path"},
        {"Name <a@b> RET=FULL", "Name <a@b>", "what stands before the address belongs to it"},
        {"<a@b>RET=HDRS", "<a@b>", "no blank is needed after it"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(mail_from(row.arguments).ArpaSender, row.path) << row.why;
        EXPECT_EQ(rcpt_to(row.arguments).ArpaORName, row.path) << row.why;
    }
}

TEST(Path, IsCutAtItsBoundAndParametersAreStillRead) {
    const auto path = [](std::size_t size) { return "<" + std::string(size - 2, 'x') + ">"; };
    EXPECT_EQ(mail_from(path(4096)).ArpaSender, path(4096));
    EXPECT_EQ(mail_from(path(4097)).ArpaSender, path(4097).substr(0, 4096));
    EXPECT_EQ(rcpt_to(path(1024)).ArpaORName, path(1024));
    EXPECT_EQ(rcpt_to(path(1025)).ArpaORName, path(1025).substr(0, 1024));
    EXPECT_FALSE(mail_from(path(5000) + " RET=HDRS").ROCWanted);
    EXPECT_TRUE(rcpt_to(path(2000) + " NOTIFY=NEVER").NoNDNWanted);
}

TEST(Token, WordsAreSeparatedByBlanksOnly) {
    const struct {
        const char* text;
        bool found;
        const char *tag, *value, *rest, *why;
    } rows[] = {
        {"A=1", true, "A", "1", "", "one word"},
        {"  A=1 B=2", true, "A", "1", "B=2", "blanks before it are skipped"},
        {"A=1  B=2", true, "A", "1", " B=2", "one blank after it is taken"},
        {"A=b=c", true, "A", "b=c", "", "the first equals sign divides"},
        {"=x", true, "", "x", "", "an empty keyword"},
        {"A=", true, "A", "", "", "an empty value"},
        {"=", true, "", "", "", "both empty"},
        {"WORD B=2", false, "", "", "B=2", "a bare word is taken all the same"},
        {"WORD", false, "", "", "", "a bare word at the end"},
        {"", false, "", "", "", "the end"},
        {"   ", false, "", "", "", "only blanks"},
        {"\tA=1", true, "\tA", "1", "", "a tab is a character like any other"},
        {"A=1\tB=2", true, "A", "1\tB=2", "", "and separates nothing"},
    };
    for (const auto& row : rows) {
        std::string_view text = row.text;
        const auto parameter = ux_InGetNextToken(text);
        ASSERT_EQ(parameter.has_value(), row.found) << row.why;
        EXPECT_EQ(text, row.rest) << row.why;
        if (!parameter) continue;
        EXPECT_EQ(parameter->Tag, row.tag) << row.why;
        EXPECT_EQ(parameter->Value, row.value) << row.why;
    }
}

TEST(Token, IsCutAtItsBounds) {
    const auto token = [](std::string text) {
        std::string_view rest = text;
        const auto parameter = ux_InGetNextToken(rest);
        return std::pair(parameter->Tag.size(), parameter->Value.size());
    };
    EXPECT_EQ(token(std::string(79, 'k') + "=" + std::string(1024, 'v')),
              std::pair(std::size_t{79}, std::size_t{1024}));
    EXPECT_EQ(token(std::string(80, 'k') + "=" + std::string(1025, 'v')),
              std::pair(std::size_t{79}, std::size_t{1024}));
}

TEST(MailFrom, Parameters) {
    const struct {
        const char* arguments;
        bool ROCWanted;
        const char *Envid, *why;
    } rows[] = {
        {"<a@b> RET=HDRS ENVID=QQ+2B1", false, "QQ+1", "both"},
        {"<a@b> ENVID=QQ+2B1 RET=HDRS", false, "QQ+1", "in any order"},
        {"<a@b>", true, "old", "what is not named stays"},
        {"a@b RET=HDRS", true, "old", "no parameters without a bracket"},
        {"<a@b> RET=full", true, "old", "values are in capitals"},
        {"<a@b> RET=hdrs", true, "old", "values are in capitals"},
        {"<a@b> RET=", true, "old", "an empty value"},
        {"<a@b> ret=HDRS", false, "old", "keywords are in any case"},
        {"<a@b> rEt=HDRS eNvId=x", false, "x", "keywords are in any case"},
        {"<a@b> SIZE=100 RET=HDRS", false, "old", "an unknown keyword is skipped"},
        {"<a@b> SIZE=100 BODY=8BITMIME RET=HDRS", false, "old", "an unknown keyword is skipped"},
        {"<a@b> XYZ RET=HDRS", true, "old", "a bare word stops everything"},
        {"<a@b> RET=HDRS XYZ ENVID=x", false, "old", "what stands before it holds"},
        {"<a@b> RET=HDRS RET=FULL", true, "old", "the last one holds"},
        {"<a@b> RET=HDRS RET=NONE", false, "old", "an unknown value changes nothing"},
        {"<a@b>RET=HDRS", false, "old", "right after the path"},
        {"<a@b> RETX=HDRS", true, "old", "keywords match whole"},
        {"<a@b> RE=HDRS", true, "old", "keywords match whole"},
        {"<a@b> ENVID=", true, "", "an identifier may be emptied"},
        {"<a@b> ENVID=a=b", true, "a=b", "an equals sign in a value"},
        {"<a@b> NOTIFY=NEVER ORCPT=x", true, "old", "a recipient's parameters say nothing here"},
    };
    for (const auto& row : rows) {
        const ux_MailFrom sender = mail_from(row.arguments, true, "old");
        EXPECT_EQ(sender.ROCWanted, row.ROCWanted) << row.arguments << ": " << row.why;
        EXPECT_EQ(sender.Envid, row.Envid) << row.arguments << ": " << row.why;
    }
    EXPECT_TRUE(mail_from("<a@b> ret=FULL", false).ROCWanted);
    EXPECT_FALSE(mail_from("<a@b> RET=full", false).ROCWanted);
}

TEST(MailFrom, EnvelopeIdentifierKeepsTheWholeValue) {
    const std::string value(1024, 'e');
    EXPECT_EQ(mail_from("<a@b> ENVID=" + value).Envid, value);
    EXPECT_EQ(mail_from("<a@b> ENVID=" + value + "x").Envid, value);
}

TEST(RcptTo, Notify) {
    const struct {
        const char* value;
        bool NoNDNWanted, DelAckWanted;
        const char* why;
    } rows[] = {
        {"NEVER", true, false, "neither"},
        {"SUCCESS", false, true, "a delivery notification"},
        {"FAILURE", false, false, "the usual"},
        {"FAILURE,DELAY", false, false, "DELAY says nothing"},
        {"DELAY", false, false, "DELAY says nothing"},
        {"SUCCESS,FAILURE", false, true, "both"},
        {"NEVER,SUCCESS", true, true, "later items override earlier ones, each what it names"},
        {"SUCCESS,NEVER", true, false, "later items override earlier ones"},
        {"NEVER,FAILURE", false, false, "later items override earlier ones"},
        {"never,Success", true, true, "any case"},
        {",,SUCCESS,", false, true, "empty items"},
        {"", false, false, "nothing"},
        {"NEVERMORE", false, false, "items match whole"},
        {"SUCCESS;NEVER", false, false, "only commas separate"},
    };
    for (const auto& row : rows) {
        const ux_RcptTo recipient = rcpt_to("<a@b> NOTIFY=" + std::string(row.value));
        EXPECT_EQ(recipient.NoNDNWanted, row.NoNDNWanted) << row.value << ": " << row.why;
        EXPECT_EQ(recipient.DelAckWanted, row.DelAckWanted) << row.value << ": " << row.why;
        EXPECT_EQ(recipient.OrigRcpt, "old;rcpt");
    }
    EXPECT_FALSE(rcpt_to("<a@b> NOTIFY=FAILURE", true).NoNDNWanted);
    EXPECT_TRUE(rcpt_to("<a@b> NOTIFY=DELAY", true, true).NoNDNWanted);
    EXPECT_TRUE(rcpt_to("<a@b> NOTIFY=DELAY", true, true).DelAckWanted);
    EXPECT_TRUE(rcpt_to("a@b NOTIFY=FAILURE", true).NoNDNWanted);
}

TEST(RcptTo, OriginalRecipient) {
    const struct {
        const char *value, *expected, *why;
    } rows[] = {
        {"rfc822;user+40host", "rfc822;user@host", "xtext is decoded"},
        {"rfc822", "rfc822;", "an address that is missing is empty"},
        {"rfc822;", "rfc822;", "an address that is missing is empty"},
        {";;rfc822;;user", "rfc822;user", "runs count as one, leading ones are skipped"},
        {"rfc822;a;b", "rfc822;a", "what follows a further separator is dropped"},
        {"", "old;rcpt", "nothing changes nothing"},
        {";;;", "old;rcpt", "no piece at all"},
        {"x+41;y", "x+41;y", "the type is not xtext"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(rcpt_to("<a@b> ORCPT=" + std::string(row.value)).OrigRcpt, row.expected) << row.value << row.why;
        EXPECT_EQ(rcpt_to("<a@b> SIZE=1 orcpt=" + std::string(row.value)).OrigRcpt, row.expected) << row.why;
    }
    EXPECT_EQ(rcpt_to("<a@b> BARE ORCPT=rfc822;x").OrigRcpt, "old;rcpt");
    EXPECT_EQ(rcpt_to("<a@b> ORCPT=" + std::string(1023, 't')).OrigRcpt, std::string(1023, 't') + ";");
    EXPECT_EQ(rcpt_to("<a@b> ORCPT=" + std::string(1024, 't')).OrigRcpt, std::string(1024, 't'));
}

}  // namespace
