// MIME text, and the copy of a report: what is read again is what was read, byte for byte.
#include "ux_mimein/mail_input.h"

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/child.h"
#include "support/home.h"
#include "support/message_text.h"

namespace {

using namespace std::string_literals;

class MailInput : public testing::Test {
protected:
    MailInput() { ux_reset_mime_input(); }
    ~MailInput() override { ux_reset_mime_input(); }
    TestHome home_;
};

// One way to read a text to its end line; every way must copy the same.
void by_pieces() {
    while (!GetMailText().is_end) {}
}
void by_raw_pieces() {
    while (!GetRawMailText().is_end) {}
}
void by_fields() {
    std::string value;
    for (;;) {
        if (GetMailText().is_end) return;
        GetContinuation(value, nullptr);
    }
}
// Whole lines without a dot in front, as they lie ready, and what stops them piece by piece.
void by_blocks() {
    for (;;) {
        const std::string_view ahead = MailLinesAhead();
        std::size_t taken = 0;
        for (std::size_t end = ahead.find('\n'); end != std::string_view::npos && ahead[taken] != '.';
             end = ahead.find('\n', taken))
            taken = end + 1;
        TakeMailLines(taken);
        if (taken == 0 && GetMailText().is_end) return;
    }
}

struct Seen {
    std::string text;
    bool whole, at_start, is_end;
    std::size_t returns;
    bool operator==(const Seen&) const = default;
};

std::vector<Seen> read_raw(ux_LineReader& reader) {
    std::vector<Seen> pieces;
    do {
        const ux_MailText piece = reader.raw_text();
        pieces.push_back({std::string(piece.text), piece.whole, piece.at_start, piece.is_end, piece.returns});
    } while (!pieces.back().is_end);
    return pieces;
}

const std::string kTexts[] = {
    ".\n",
    "a\nb\n.\n",
    "a\r\nb\r\n.\r\n",
    "a\r\r\r\nb\rc\n\r\n\r\r\n.\n",
    "..stuffed\n...\n..\n.x\n.\n",
    "a\0b\n\0\n.\n"s,
    "f: a\n b\n\tc\r\n d \n.\n",
    std::string(1023, 'x') + "\n.\n",
    std::string(1022, 'x') + "\r\n" + std::string(1023, 'y') + ".\n.\n",
    std::string(5000, '\r') + "\n" + std::string(3000, '\r') + "x\n.\r\n",
    "\x80\xff\n.\n",
    std::string(100'000, 'z') + "\r\n \r\n.\n",
};

TEST_F(MailInput, WhatIsReadAgainIsWhatWasRead) {
    const std::function<void()> ways[] = {by_pieces, by_raw_pieces, by_fields, by_blocks};
    for (const std::string& text : kTexts) {
        const MessageText first(text);
        const std::vector<Seen> expected = read_raw(ux_Input());
        for (const auto& read : ways) {
            const MessageText again(text);
            ux_ReportCopy copy;
            read();
            EXPECT_EQ(copy.offset(), text.size()) << text.substr(0, 40);
            copy.read_again();
            EXPECT_EQ(read_raw(ux_MimeInput()), expected) << text.substr(0, 40);
        }
    }
}

TEST_F(MailInput, NulBytesAreBlanksToWhoReadsLinesAlsoWhileTheyAreCopied) {
    const MessageText input("a\0b\n.\n"s);
    ux_ReportCopy copy;
    EXPECT_EQ(GetMailText().text, "a b");
    copy.read_again();
    EXPECT_EQ(GetRawMailText().text, "a\0b"s);
}

TEST_F(MailInput, ReadingAgainBeginsWhereOneLikes) {
    const MessageText input("one\ntwo\nthree\n.\n");
    ux_ReportCopy copy;
    GetMailText();
    const std::uint64_t offset = copy.offset();
    by_pieces();
    copy.read_again(offset);
    EXPECT_EQ(GetMailText().text, "two");
    EXPECT_EQ(GetMailText().text, "three");
    EXPECT_TRUE(GetMailText().is_end);
    EXPECT_THROW(GetMailText(), er_Escape) << "nothing is read past the end line";
    EXPECT_FALSE(ux_mime_input().gCopyForReport) << "and nothing is copied twice";
}

TEST_F(MailInput, ACopyWithoutItsEndLineEndsAsInputDoes) {
    const MessageText input("one\ntwo\n.\n");
    ux_ReportCopy copy;
    GetMailText();
    copy.read_again();
    EXPECT_EQ(GetMailText().text, "one");
    try {
        GetMailText();
        ADD_FAILURE() << "read past the end of the copy";
    } catch (const er_Escape& escape) {
        EXPECT_EQ(escape.reason(), 1401);
    }
}

TEST_F(MailInput, WithTheCopyEverythingGoes) {
    const MessageText input("one\ntwo\nthree\n.\n");
    {
        ux_ReportCopy copy;
        GetMailText();
        copy.stop();
        GetMailText();
        EXPECT_EQ(copy.offset(), 4U) << "what is read after it was stopped is not copied";
        copy.read_again();
        EXPECT_EQ(GetMailText().text, "one");
        EXPECT_NE(ux_mime_input().Reportfp, nullptr);
    }
    EXPECT_EQ(ux_mime_input().Reportfp, nullptr);
    EXPECT_FALSE(ux_mime_input().gCopyForReport);
    EXPECT_EQ(GetMailText().text, "three") << "the dialogue is in force again, where it was";
}

TEST_F(MailInput, AnEscapeTakesTheCopyWithIt) {
    const MessageText input("one\n");
    try {
        ux_ReportCopy copy;
        by_pieces();
    } catch (const er_Escape& escape) {
        EXPECT_EQ(escape.reason(), 1401);
    }
    EXPECT_EQ(ux_mime_input().Reportfp, nullptr);
    EXPECT_FALSE(ux_mime_input().gCopyForReport);
    EXPECT_EQ(ux_mime_input().mimfp, nullptr);
}

TEST_F(MailInput, ALargeCopyIsNeverSeen) {
    std::string text;
    for (int i = 0; i < 100'000; ++i) text += "line " + std::to_string(i) + "\r\n";
    const MessageText input(text + ".\r\n");
    ux_ReportCopy copy;
    by_blocks();
    EXPECT_TRUE(home_.files("data").empty());
    EXPECT_TRUE(home_.files("tmp").empty());
    copy.read_again();
    for (int i = 0; i < 100'000; ++i) {
        const ux_MailText piece = GetMailText();
        ASSERT_EQ(piece.text, "line " + std::to_string(i));
        ASSERT_EQ(piece.returns, 1U);
    }
    EXPECT_TRUE(GetMailText().is_end);
}

int reason_of(const std::function<void()>& work) {
    try {
        work();
    } catch (const er_Escape& escape) {
        return escape.group() == kGatewayGroup ? escape.reason() - 1400 : 98;
    }
    return 0;
}

std::string long_text() {
    std::string text;
    while (text.size() < 4 * kKeptInMemory) text += std::string(70, 'x') + "\n";
    return text + ".\n";
}

TEST_F(MailInput, ACopyThatGetsNoFileIsRefused) {
    std::filesystem::remove(home_.file("tmp"));
    const MessageText input(long_text());
    ux_ReportCopy copy;
    EXPECT_EQ(reason_of(by_pieces), 27);
}

TEST_F(MailInput, ACopyThatDoesNotFitIsRefused) {
    for (void (*const read)() : {by_pieces, by_blocks}) {
        const std::string text = long_text();
        EXPECT_EQ(run_in_child([&] {
                      const MessageText input(text);
                      limit_file_size(2 * kKeptInMemory);
                      ux_ReportCopy copy;
                      return reason_of(read);
                  }),
                  12);
    }
}

TEST_F(MailInput, AMessageBeginsWithTheDialogueAndNoCopy) {
    const MessageText input("one\n.\n");
    ux_LineReader other(-1);
    ux_mime_input().mimfp = &other;
    ux_mime_input().gCopyForReport = true;
    ux_mime_input().GotMimeSteering = true;
    ux_begin_mime_input();
    EXPECT_EQ(GetMailText().text, "one");
    EXPECT_FALSE(ux_mime_input().gCopyForReport);
    EXPECT_TRUE(ux_mime_input().GotMimeSteering) << "that is of the process";
}

}  // namespace
