// Mail files: where messages begin and end, what is sent of them, and to whom.
#include "morvane/mail_source.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace morvane {
namespace {

class MailSourceTest : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/mail_source_test.XXXXXX";
        folder_ = ::mkdtemp(name);
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }
    std::string file(const std::string& name, const std::string& content) {
        const std::string path = folder_ + "/" + name;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }
    // "[text]" of each message of an mbox, as it stands in the file.
    std::string pieces(const std::string& mbox) {
        MboxSplitter splitter(file("mbox", mbox));
        std::string out;
        while (const auto piece = splitter.next())
            out += "[" + mbox.substr(piece->begin, piece->end - piece->begin) + "]" + piece->from_line + ";";
        return out;
    }
    std::string sent(const std::string& text, bool quoted) {
        MailPiece piece;
        piece.path = file("piece", text);
        piece.end = text.size();
        piece.quoted = quoted;
        PieceReader reader(piece);
        std::string out;
        while (reader.next(out)) {}
        EXPECT_EQ(reader.done(), text.size());
        return out;
    }
    Envelope envelope(const std::string& text, const std::string& from_line = {}) {
        MailPiece piece;
        piece.path = file("piece", text);
        piece.end = text.size();
        piece.from_line = from_line;
        return guess_envelope(piece);
    }
    // Names of the files that the arguments lead to, below the folder, a "#n" after those of an mbox.
    std::string walked(const std::vector<std::string>& arguments) {
        MailSource source(arguments);
        std::string out;
        while (const auto piece = source.next()) {
            out += piece->path.substr(folder_.size() + 1);
            if (piece->number > 0) out += "#" + std::to_string(piece->number);
            out += ' ';
        }
        return out + std::to_string(source.skipped()) + " skipped";
    }
    std::string folder_;
};

constexpr const char* kFrom1 = "From a@x Fri Nov 20 10:00:00 2026\n";
constexpr const char* kFrom2 = "From b@x Fri Nov 20 10:00:01 2026\n";

TEST_F(MailSourceTest, MboxesAreSplitAtFromLines) {
    const std::string one = kFrom1, two = kFrom2;
    struct Row {
        std::string mbox, expected, why;
    };
    const Row kRows[] = {
        {one + "A: 1\n\nx\n", "[A: 1\n\nx\n]a@x;", "one message"},
        {one + "A: 1\n\nx\n\n", "[A: 1\n\nx\n]a@x;", "the blank line at the end is the file's"},
        {one + "A: 1\n\nx\n\n" + two + "B: 2\n\ny\n", "[A: 1\n\nx\n]a@x;[B: 2\n\ny\n]b@x;", "two"},
        {one + "A: 1\n\nx\n" + two + "y\n", "[A: 1\n\nx\n" + two + "y\n]a@x;", "no blank line before it: text"},
        {one + "A: 1\n\nFrom here on\n", "[A: 1\n\nFrom here on\n]a@x;", "no time in it: text"},
        {one + "A: 1\r\n\r\n" + two + "B: 2\r\n", "[A: 1\r\n]a@x;[B: 2\r\n]b@x;", "CR LF"},
        {one, "[]a@x;", "nothing but the line"},
        {one + "\n" + two + "\n", "[]a@x;[\n]b@x;", "empty messages"},
        {"From - Fri Nov 20 10:00:00 2026\nA: 1\n", "[A: 1\n]", "a mail reader's line knows no sender"},
        {"From a@x", "[]a@x;", "a line without an end"},
        {one + "A: 1\n\nx", "[A: 1\n\nx]a@x;", "no line end at the end"},
        {"A: 1\n\n" + two, "", "no mbox"},
        {"", "", "empty"},
    };
    for (const Row& row : kRows) {
        std::string expected = row.expected;
        if (expected == "[A: 1\n]") expected += ";";
        EXPECT_EQ(pieces(row.mbox), expected) << row.why;
    }
}

TEST_F(MailSourceTest, FromLinesAreFoundAcrossBlocks) {
    for (const std::size_t text : {262'100U, 262'110U, 262'120U, 262'130U, 262'140U, 262'143U, 262'144U, 262'145U}) {
        const std::string body(text - std::string(kFrom1).size(), 'x');
        const std::string mbox = kFrom1 + body + "\n\n" + kFrom2 + "B: 2\n";
        MboxSplitter splitter(file("mbox", mbox));
        const auto first = splitter.next(), second = splitter.next();
        ASSERT_TRUE(first && second) << text;
        EXPECT_EQ(first->end - first->begin, body.size() + 1) << text;
        EXPECT_EQ(second->from_line, "b@x");
        EXPECT_FALSE(splitter.next());
    }
}

TEST_F(MailSourceTest, TextGoesThroughTheDialogueUnchanged) {
    struct Row {
        std::string text;
        bool quoted;
        std::string expected, why;
    };
    const Row kRows[] = {
        {"a\nb\n", false, "a\nb\n.\r\n", "plain"},
        {"", false, ".\r\n", "nothing"},
        {"a", false, "a\r\n.\r\n", "no line end at the end"},
        {".\n..\n.a\n", false, "..\n...\n..a\n.\r\n", "leading dots"},
        {"a.b\n", false, "a.b\n.\r\n", "a dot inside"},
        {std::string("a\0b\rc\n", 6), false, std::string("a\0b\rc\n.\r\n", 9),
         "NUL and a lone CR are passed as they are"},
        {"a\r.\n", false, "a\r.\n.\r\n", "a CR begins no line"},
        {"a\r\n.\r\n", false, "a\r\n..\r\n.\r\n", "CR LF"},
        {">From x\n", false, ">From x\n.\r\n", "no mbox: no quoting"},
        {">From x\n>>From y\n", true, "From x\n>From y\n.\r\n", "one > is lost"},
        {"> From x\n>Fromx\n>>>\n>\n", true, "> From x\n>Fromx\n>>>\n>\n.\r\n", "what only looks like it"},
        {"a >From b\n", true, "a >From b\n.\r\n", "inside a line"},
        {">From", true, ">From\r\n.\r\n", "cut off"},
        {">From ", true, "From \r\n.\r\n", "cut off after it"},
        {">", true, ">\r\n.\r\n", "cut off before it"},
        {">.\n.>From x\n", true, ">.\n..>From x\n.\r\n", "dots and quotes"},
        {"\n\n", true, "\n\n.\r\n", "blank lines"},
    };
    for (const Row& row : kRows) EXPECT_EQ(sent(row.text, row.quoted), row.expected) << row.why;
}

TEST_F(MailSourceTest, LineStartsAreSeenAcrossBlocks) {
    constexpr std::size_t kBlock = 128 << 10;
    for (std::size_t before = kBlock - 8; before <= kBlock + 1; ++before) {
        const std::string filler = std::string(before - 1, 'x') + "\n";
        EXPECT_EQ(sent(filler + ".a\n", false), filler + "..a\n.\r\n") << before;
        EXPECT_EQ(sent(filler + ">>From a\n", true), filler + ">From a\n.\r\n") << before;
        EXPECT_EQ(sent(filler + ">Frog\n", true), filler + ">Frog\n.\r\n") << before;
    }
}

TEST_F(MailSourceTest, QuotesWithoutEndAreText) {
    const std::string quotes(10'000, '>');
    EXPECT_EQ(sent(quotes + "From x\n", true), quotes + "From x\n.\r\n");
    EXPECT_EQ(sent(std::string(100, '>') + "From x\n", true), std::string(99, '>') + "From x\n.\r\n");
}

TEST_F(MailSourceTest, EnvelopesComeFromTheMessage) {
    struct Row {
        std::string text, from_line, from, to, why;
    };
    const Row kRows[] = {
        {"Return-Path: <a@x>\nTo: b@y\n\n", "c@z", "a@x", "b@y", "Return-Path before the From_ line"},
        {"Return-Path: <>\nTo: b@y\n\n", "c@z", "", "b@y", "the null path"},
        {"To: b@y\n\n", "c@z", "c@z", "b@y", "the From_ line"},
        {"To: b@y\n\n", "root", "root", "b@y", "a local name"},
        {"To: b@y\n\n", "MAILER-DAEMON", "", "b@y", "nobody"},
        {"To: b@y\n\n", "", "", "b@y", "none"},
        {"From: x@y\n\n", "", "", "postmaster", "nobody to send it to"},
        {"To: b@y\nX-Original-To: c@y\nDelivered-To: d@y\n\n", "", "", "d@y", "the surest recipient"},
        {"To: b@y\nX-Original-To: c@y\n\n", "", "", "c@y", "the next"},
        {"To: \"Doe, Jane\" <jane@y> (a, b), other@y\n\n", "", "", "jane@y", "commas that part nothing"},
        {"to:\n  Jane\n\t<jane@y>\n\n", "", "", "jane@y", "folded, in small letters"},
        {"To: Team: a@x, b@x;\n\n", "", "", "a@x", "a group's first member"},
        {"To: undisclosed-recipients:;\nCc: c@x\n\n", "", "", "postmaster", "an empty group"},
        {"To: just words, b@x\n\n", "", "", "b@x", "words are no address"},
        {"Subject: x\n\nTo: b@y\n", "", "", "postmaster", "text is no header"},
        {"To : b@y\n\n", "", "", "b@y", "a blank before the colon"},
        {"To: <b\x01@y>\n\n", "", "", "postmaster", "what cannot stand in a command"},
        {"", "", "", "postmaster", "nothing"},
    };
    for (const Row& row : kRows) {
        const Envelope found = envelope(row.text, row.from_line);
        EXPECT_EQ(found.from, row.from) << row.why;
        ASSERT_EQ(found.to.size(), 1U);
        EXPECT_EQ(found.to.front(), row.to) << row.why;
    }
}

TEST_F(MailSourceTest, OnlyWhatFitsACommandIsSent) {
    EXPECT_TRUE(is_sendable("a@b"));
    EXPECT_TRUE(is_sendable(std::string(1000, 'a')));
    EXPECT_FALSE(is_sendable(std::string(1001, 'a')));
    for (const char* text : {"", "a b@c", "a@b>", "<a@b", "a\r@b", "a\n@b", "a\x7F@b"})
        EXPECT_FALSE(is_sendable(text)) << text;
}

TEST_F(MailSourceTest, FoldersAreWalkedByName) {
    file("d/b.eml", "no header at all");
    file("d/a.eml", "From: x\n\n");
    file("d/c.mbox", std::string(kFrom1) + "A: 1\n\n" + kFrom2 + "B: 2\n");
    file("d/notes.txt", "just words");
    file("d/looks.txt", "Subject: mail\n\n");
    file("d/.hidden.eml", "A: 1\n\n");
    file("d/sub/x.eml", "A: 1\n\n");
    EXPECT_EQ(walked({folder_ + "/d"}), "d/a.eml d/b.eml d/c.mbox#1 d/c.mbox#2 d/looks.txt d/sub/x.eml 1 skipped");
    EXPECT_EQ(walked({folder_ + "/d/notes.txt", folder_ + "/d/a.eml"}), "d/notes.txt d/a.eml 0 skipped")
        << "named: taken";
}

TEST_F(MailSourceTest, MaildirsAreMessagesOnly) {
    file("m/new/2", "From a@x Fri Nov 20 10:00:00 2026\nA: 1\n\n");  // one message all the same
    file("m/new/1", "anything");
    file("m/cur/3:2,S", "A: 1\n\n");
    file("m/tmp/4", "A: 1\n\n");
    file("m/dovecot.index", "A: 1\n\n");
    file("m/.Sent/cur/5", "A: 1\n\n");
    std::filesystem::create_directories(folder_ + "/m/.Sent/new");
    EXPECT_EQ(walked({folder_ + "/m"}), "m/.Sent/cur/5 m/cur/3:2,S m/new/1 m/new/2 0 skipped");
}

TEST_F(MailSourceTest, LinksInACircleEnd) {
    file("d/a.eml", "A: 1\n\n");
    std::filesystem::create_directory_symlink(folder_ + "/d", folder_ + "/d/loop");
    std::filesystem::create_symlink(folder_ + "/nowhere", folder_ + "/d/dangling.eml");
    EXPECT_EQ(walked({folder_ + "/d"}), "d/a.eml 0 skipped");
    EXPECT_EQ(count_bytes({folder_ + "/d"}), 6U);
}

TEST_F(MailSourceTest, MissingArgumentsAreToldAndTheRestGoesOn) {
    file("a.eml", "A: 1\n\n");
    MailSource source({folder_ + "/missing", folder_ + "/a.eml"});
    EXPECT_ANY_THROW(source.next());
    EXPECT_TRUE(source.next());
    EXPECT_FALSE(source.next());
}

}  // namespace
}  // namespace morvane
