// The reader of the dialogue: line ends, pieces of long lines, the end line, what is never read past.
#include "ux_in/lines.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"

namespace {

// A reader over text, through a file or dribbled byte by byte through a pipe.
class LinesTest : public ::testing::Test {
protected:
    ux_LineReader& over(std::string_view text) {
        fd_ = ::memfd_create("dialogue", 0);
        EXPECT_EQ(::write(fd_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        ::lseek(fd_, 0, SEEK_SET);
        ux_SetInput(fd_);
        return ux_Input();
    }
    void TearDown() override {
        if (fd_ >= 0) ::close(fd_);
        er_Reset();
    }

    // "[start text$]" for each piece: "^" at a line start, "$" after a line end, "." for the end line.
    std::string pieces(std::string_view text) {
        ux_LineReader& reader = over(text);
        reader.begin_text();
        std::string out;
        try {
            for (;;) {
                const ux_MailText piece = reader.text();
                out += piece.at_start ? '^' : '+';
                out += piece.is_end ? std::string("END") : std::string(piece.unstuffed());
                if (piece.whole) out += '$';
                if (piece.is_end) return out;
            }
        } catch (const er_Escape& escape) {
            return out + "!" + std::to_string(escape.reason());
        }
    }

    int fd_ = -1;
};

struct LineRow {
    std::string input, expected;
    const char* why;
};

TEST_F(LinesTest, LineEnds) {
    const LineRow rows[] = {
        {"a\nb\n.\n", "^a$^b$^END$", "LF"},
        {"a\r\nb\r\n.\r\n", "^a$^b$^END$", "CR LF, on the end line too"},
        {"a\r\r\r\n.\r\r\n", "^a$^END$", "any number of CRs before the LF"},
        {"a\rb\n.\n", "^a\rb$^END$", "a CR inside a line stays"},
        {"\n\r\n.\n", "^$^$^END$", "blank lines"},
        {"..\n...x\n.\n", "^.$^..x$^END$", "a leading double dot loses one"},
        {".x\n.\n", "^.x$^END$", "a single leading dot with text stays"},
        {" .\n. \n.\n", "^ .$^. $^END$", "only a line that is a dot ends the text"},
        {std::string("a\0b\n.\n", 6), "^a b$^END$", "NUL is a blank"},
        {"a\nb", "^a$^b!1401", "input that ends inside a line"},
        {"a\n.", "^a$^.!1401", "a dot without a line end is no end line"},
        {"", "!1401", "no input at all"},
    };
    for (const LineRow& row : rows) EXPECT_EQ(pieces(row.input), row.expected) << row.why;
}

TEST_F(LinesTest, PiecesOfLongLines) {
    const std::string x1021(1021, 'x'), x1022(1022, 'x'), x1023(1023, 'x'), end = ".\n";
    const LineRow rows[] = {
        {x1022 + "\n" + end, "^" + x1022 + "$^END$", "1,023 bytes with the line end: whole"},
        {x1023 + "\n" + end, "^" + x1023 + "+$^END$", "one more: the line end is a piece of its own"},
        {x1023 + "y\n" + end, "^" + x1023 + "+y$^END$", "and so is what follows"},
        {x1021 + "\r\n" + end, "^" + x1021 + "$^END$", "CR LF within the piece"},
        {x1022 + "\r\n" + end, "^" + x1022 + "+$^END$", "CR and LF in different pieces are one line end"},
        {x1021 + "\r\r\r\n" + end, "^" + x1021 + "+$^END$", "however many CRs"},
        {x1022 + "\ry\n" + end, "^" + x1022 + "+\r+y$^END$", "a CR at the cut that is text"},
        {x1023 + ".\n" + end, "^" + x1023 + "+.$^END$", "a dot in a later piece ends nothing"},
        {x1023 + "..\n" + end, "^" + x1023 + "+..$^END$", "and loses no dot"},
        {x1023 + "\n.\n", "^" + x1023 + "+$^END$", "after the line end piece a line starts"},
        {x1023 + x1023, "^" + x1023 + "+" + x1023 + "!1401", "never ended"},
    };
    for (const LineRow& row : rows) EXPECT_EQ(pieces(row.input), row.expected) << row.why;
}

TEST_F(LinesTest, RunsOfReturnsCostNothingAndLoseNothing) {
    const std::string many(1'000'000, '\r');
    EXPECT_EQ(pieces("a" + std::string(5000, '\r') + "\n.\n").substr(0, 2), "^a");
    // Before LF they are a line end.
    ux_LineReader& reader = over(many + "\n.\n");
    reader.begin_text();
    EXPECT_TRUE(reader.text().is_blank());
    EXPECT_TRUE(reader.text().is_end);
    // Before anything else they are text, every one of them.
    ux_LineReader& again = over(many + "x\n.\n");
    again.begin_text();
    std::size_t count = 0;
    for (ux_MailText piece = again.text(); !piece.is_end; piece = again.text()) count += piece.text.size();
    EXPECT_EQ(count, many.size() + 1);
}

TEST_F(LinesTest, NothingIsReadPastTheEndLine) {
    ux_LineReader& reader = over("text\n.\nQUIT\nmore\n");
    reader.begin_text();
    EXPECT_EQ(reader.text().text, "text");
    EXPECT_TRUE(reader.text_open());
    EXPECT_TRUE(reader.text().is_end);
    EXPECT_FALSE(reader.text_open());
    EXPECT_THROW(reader.text(), er_Escape);
    EXPECT_EQ(reader.command().text, "QUIT");
    EXPECT_EQ(reader.command().text, "more");
}

TEST_F(LinesTest, UnreadGivesThePieceOnceMore) {
    ux_LineReader& reader = over("a\nend\nb\n.\n");
    reader.begin_text();
    reader.text();
    EXPECT_EQ(reader.text().text, "end");
    reader.unread();
    EXPECT_EQ(reader.text().text, "end");
    EXPECT_EQ(reader.text().text, "b");
}

TEST_F(LinesTest, APieceReadAsItIsHasItsNulBytesBlankedWhenItIsGivenAgain) {
    ux_LineReader& reader = over(std::string_view("a\0b\n", 4));
    reader.begin_text();
    EXPECT_EQ(reader.raw_text().text, std::string_view("a\0b", 3));
    reader.unread();
    EXPECT_EQ(reader.text().text, "a b");
}

TEST_F(LinesTest, ATextThatLiesElsewhere) {
    std::string_view left = "a\r\nbc\n.\nd\n";
    ux_LineReader reader([&](char* data, std::size_t) {
        if (left.empty()) return std::size_t{0};
        *data = left.front();
        left.remove_prefix(1);
        return std::size_t{1};
    });
    reader.begin_text();
    EXPECT_EQ(reader.text().text, "a");
    EXPECT_EQ(reader.text().text, "bc");
    EXPECT_TRUE(reader.text().is_end);
    EXPECT_EQ(left, "d\n");
    reader.begin_text();
    EXPECT_EQ(reader.text().text, "d");
    EXPECT_EQ(reader.peek(), -1);
    EXPECT_THROW(reader.text(), er_Escape);
}

TEST_F(LinesTest, DrainReadsToTheEndLineOnly) {
    ux_LineReader& reader = over("a\n" + std::string(5000, 'x') + "\n..\n.\nNOOP\n");
    reader.begin_text();
    reader.text();
    reader.drain_text();
    EXPECT_EQ(reader.command().text, "NOOP");
    reader.drain_text();  // no text is open: nothing is read
    EXPECT_THROW(reader.command(), er_Escape);
}

TEST_F(LinesTest, DrainAtTheEndOfInputRaisesNothing) {
    ux_LineReader& reader = over("a\nb");
    reader.begin_text();
    reader.drain_text();
    EXPECT_FALSE(reader.text_open());
}

TEST_F(LinesTest, Commands) {
    const std::string longest(kCommandLineLimit, 'x');
    ux_LineReader& reader = over("QUIT\r\n" + longest + "\r\n" + longest + "y\nNOOP\n" + std::string(10 << 20, 'z') +
                                 "\nRSET\n" + std::string("A\0B\n", 4) + "last");
    EXPECT_EQ(reader.command().text, "QUIT");
    ux_CommandLine line = reader.command();
    EXPECT_EQ(line.text, longest);
    EXPECT_FALSE(line.too_long);
    line = reader.command();
    EXPECT_EQ(line.text, longest) << "cut at the limit";
    EXPECT_TRUE(line.too_long);
    EXPECT_EQ(reader.command().text, "NOOP") << "the rest of the long line was read away";
    EXPECT_TRUE(reader.command().too_long);
    EXPECT_EQ(reader.command().text, "RSET");
    EXPECT_EQ(reader.command().text, "A B");
    EXPECT_EQ(reader.command().text, "last") << "a last line without a line end counts";
    try {
        reader.command();
        FAIL() << "the end of input is never a normal end";
    } catch (const er_Escape& escape) {
        EXPECT_EQ(escape.group(), kGatewayGroup);
        EXPECT_EQ(escape.reason(), 1402);
    }
}

// Looking for more moves what is there to the front of the buffer, onto where it began when there was little before it.
TEST_F(LinesTest, ALastLineWithoutALineEndIsItselfWhateverStoodBeforeIt) {
    for (std::size_t before = 1; before < 40; ++before) {
        ux_LineReader& reader = over(std::string(before, 'b') + "\nMAIL FROM:<sender@example.com>");
        EXPECT_EQ(reader.command().text.size(), before);
        EXPECT_EQ(reader.command().text, "MAIL FROM:<sender@example.com>") << before;
        TearDown();
    }
    EXPECT_EQ(pieces("b\nlast words"), "^b$^last words!1401");
}

TEST_F(LinesTest, ReturnsAfterACommandAreItsLineEnd) {
    const std::string many(5000, '\r'), longest(kCommandLineLimit, 'x');
    ux_LineReader& reader = over("NOOP" + many + "\nRSET" + many + "x\n" + longest + many + "\nHELO x\r");
    ux_CommandLine line = reader.command();
    EXPECT_EQ(line.text, "NOOP");
    EXPECT_FALSE(line.too_long);
    EXPECT_TRUE(reader.command().too_long) << "they are text when something follows";
    line = reader.command();
    EXPECT_EQ(line.text, longest);
    EXPECT_FALSE(line.too_long);
    line = reader.command();
    EXPECT_EQ(line.text, "HELO x\r") << "without LF there is no line end";
    EXPECT_FALSE(line.too_long);
}

TEST_F(LinesTest, InputThatComesByteByByte) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    ux_LineReader reader(ends[0]);
    reader.begin_text();
    const std::string text = "ab\r\n\r\r\n.\r\nQUIT\n";
    std::vector<std::string> seen;
    for (const char c : text) ASSERT_EQ(::write(ends[1], &c, 1), 1);
    ::close(ends[1]);
    EXPECT_EQ(reader.text().text, "ab");
    EXPECT_TRUE(reader.text().is_blank());
    EXPECT_TRUE(reader.text().is_end);
    EXPECT_EQ(reader.command().text, "QUIT");
    ::close(ends[0]);
}

TEST(StripCrNl, Rows) {
    const struct {
        std::string_view text, stripped, why;
    } rows[] = {
        {"a\r\n", "a", "CR LF"},
        {"a\n", "a", "LF alone"},
        {"a", "a", "nothing to cut"},
        {"a\rb\r\n", "a", "the first CR, wherever it stands"},
        {"a\nb\rc", "a\nb", "a CR goes before a LF that stands ahead of it"},
        {"\n", "", "a blank line"},
        {"", "", "an empty text"},
    };
    for (const auto& row : rows) EXPECT_EQ(StripCrNl(row.text), row.stripped) << row.why;
}

}  // namespace
