// The body of a leaf part: where it ends, what of it is decoded, lines of every length.
#include "ux_mimein/part_body.h"

#include <string>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/home.h"
#include "support/message_text.h"
#include "ux_mimein/mail_input.h"

namespace {

using namespace std::string_literals;

const char* name_of(ux_BodyEnd end) {
    switch (end) {
        case ux_BodyEnd::message: return "message";
        case ux_BodyEnd::next_part: return "next";
        case ux_BodyEnd::last_part: return "last";
    }
    return "?";
}

class PartBody : public testing::Test {
protected:
    PartBody() { ux_reset_mime_input(); }
    ~PartBody() override { ux_reset_mime_input(); }

    // How the body ended, and what it is: "next:abc".
    static std::string decode(std::string_view text, std::string_view encoding = "", bool binary = false,
                              const ux_PartMarkers* markers = &kMarkers) {
        const MessageText input(text);
        im_Item item = im_CrNewDataItem();
        const ux_BodyEnd end = mim_DecodeMimeFile(item, encoding, markers, binary);
        std::string scratch;
        return std::string(name_of(end)) + ":" + std::string(item.head(std::string::npos, scratch));
    }
    static const ux_PartMarkers kMarkers;
    TestHome home_;
};
const ux_PartMarkers PartBody::kMarkers{"--b", "--b--"};

TEST_F(PartBody, Ends) {
    struct Row {
        const char *text, *expected, *why;
    };
    const Row rows[] = {
        {"a\n--b\n", "next:a", "at the boundary"},
        {"a\n--b--\n", "last:a", "at the closing line"},
        {"a\n.\n", "message:a\n", "at the end of the message, whose line end is text"},
        {"--b\n", "next:", "at once"},
        {"\n--b\n", "next:", "the line end before a boundary belongs to it"},
        {"\n\n--b\n", "next:\n", "only one does"},
        {"a\r\n--b\r\n", "next:a", "CR LF"},
        {"a\n--b\r\r\n", "next:a", "any CRs"},
        {"a\n--b \t \n", "next:a", "blanks and tabs behind it"},
        {"a\n--b--\t \r\n", "last:a", "and behind the closing line"},
        {"a\n--b x\n--b\n", "next:a\n--b x", "nothing else"},
        {"a\n--b-\n--b--x\n--b---\n--b\n", "next:a\n--b-\n--b--x\n--b---", "no other hyphens"},
        {"a\n --b\n--b\n", "next:a\n --b", "from the line start"},
        {"a\n--B\n--b\n", "next:a\n--B", "the boundary in its own case"},
        {"a\n--B--\n", "last:a", "the closing line in any"},
        {"a\n--B-- \n", "last:a", "with blanks too"},
        {"a\n--B--x\n--b\n", "next:a\n--B--x", "and nothing else"},
        {"a\n-b\n--\n-\n--b\n", "next:a\n-b\n--\n-", "lines that begin like it"},
        {"a\n--bb\n--b\n", "next:a\n--bb", "a longer word"},
        {"a\n..\n...\n.x\n--b\n", "next:a\n.\n..\n.x", "dots are unstuffed"},
        {"a\n.--b\n--b\n", "next:a\n.--b", "a dot before it makes it text"},
        {"a\n. \n--b\n", "next:a\n. ", "a dot and a blank are not the end"},
    };
    for (const Row& row : rows) EXPECT_EQ(decode(row.text), row.expected) << row.why;
}

TEST_F(PartBody, WithoutMarkersOnlyTheMessageEnds) {
    EXPECT_EQ(decode("a\n--b\n--\n\n.\n", "", false, nullptr), "message:a\n--b\n--\n\n");
    const ux_PartMarkers none{};
    EXPECT_EQ(decode("a\n\n.\n", "", false, &none), "message:a\n\n") << "empty markers match no empty line";
    const ux_PartMarkers bare{"--", "----"};
    EXPECT_EQ(decode("a\n-- x\n-- \n", "", false, &bare), "next:a\n-- x") << "the line of a multipart without boundary";
    EXPECT_EQ(decode("a\n---\n----\n", "", false, &bare), "last:a\n---");
}

TEST_F(PartBody, NothingIsReadBehindTheEnd) {
    const MessageText input("a\n--b\nnext\n.\nQUIT\n");
    im_Item item = im_CrNewDataItem();
    mim_DecodeMimeFile(item, "", &kMarkers, false);
    EXPECT_EQ(GetMailText().text, "next");
    EXPECT_TRUE(GetMailText().is_end);
    EXPECT_EQ(ux_Input().command().text, "QUIT");
}

TEST_F(PartBody, InputThatEnds) {
    for (const char* text : {"", "a", "a\n", "--", "--b", ".", "a\n--b"}) {
        try {
            decode(text);
            FAIL() << text;
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.reason(), 1401) << text;
        }
    }
}

TEST_F(PartBody, Encodings) {
    struct Row {
        const char *encoding, *text, *expected, *why;
    };
    const Row rows[] = {
        {"", "=41\n--b\n", "next:=41", "none"},
        {"7bit", "=41\n--b\n", "next:=41", "7bit"},
        {"8BIT", "\xe4\n--b\n", "next:\xe4", "8bit"},
        {"Binary", "QQ==\n--b\n", "next:QQ==", "binary"},
        {"base64", "QQ==\n--b\n", "next:A", "base64"},
        {" BASE64 (all of it) ", "QQ==\n--b\n", "next:A", "any case, blanks, comments"},
        {"base64", "Q\nQ\n--b\n", "next:A", "missing padding, groups across lines"},
        {"base64", "QQ==QQ==\n--b\n", "next:AA", "data behind padding"},
        {"base64", "*Q Q\x01=\xff=\n--b\n", "next:A", "junk is skipped"},
        {"base64", "QUJD\nRA\n.\n", "message:ABCD", "at the end of the message"},
        {"base64", "\n\n--b\n", "next:", "nothing"},
        {"quoted-printable", "=41=\nB=\n=20\n--b\n", "next:AB ", "quoted-printable"},
        {"quoted-printable", "a=4\n=4x=\n--b\n", "next:a=4\n=4x", "bad escapes as they stand"},
        {"quoted-printable", "a \t\nb= \nc\n--b\n", "next:a\nbc", "blanks at line ends go"},
        {"quoted-printable", "a=\n--b\n", "next:a", "a soft break before a boundary"},
        {"quoted-printable", "=2D-b\n--b\n", "next:--b", "what is decoded is no boundary"},
        {"quoted-printable", "=2E\n--b\n", "next:.", "nor an end line"},
        {"base64", "LS1iCi4K\n--b\n", "next:--b\n.\n", "whatever the encoding"},
        {"x-uuencode", "junk\nbegin 644 x\n#04)#\n`\nend\njunk\n--b\n", "next:ABC", "uuencode, the rest goes"},
        {"uuencode", "begin 644 x\n#04)#\n--b\n", "next:ABC", "without an end"},
        {"X-UUE", "begin 644 x\n#04)#\nend\n.\n", "message:ABC", "by its third name"},
        {"x-uuencode", "no begin\n#04)#\n--b\n", "next:no begin\n#04)#", "as it stands without a begin line"},
        {"base-64", "QQ==\n--b\n", "next:QQ==", "not known: as it stands"},
        {"x-unknown", "a\n--b\n", "next:a", "not known: as it stands"},
        {"base64 7bit", "QQ==\n--b\n", "next:QQ==", "two words are neither"},
    };
    for (const Row& row : rows) EXPECT_EQ(decode(row.text, row.encoding), row.expected) << row.encoding << row.why;
}

TEST_F(PartBody, LineEndsOfTextAndOfOtherParts) {
    EXPECT_EQ(decode("a\r\nb\r\r\nc\rd\n--b\r\n"), "next:a\nb\nc\rd");
    EXPECT_EQ(decode("a\r\nb\r\r\nc\rd\r\n--b\r\n", "", true), "next:a\r\nb\r\r\nc\rd");
    EXPECT_EQ(decode("a\nb\n.\n", "", true), "message:a\nb\n");
    EXPECT_EQ(decode("a\r\n.\r\n", "", true), "message:a\r\n");
    EXPECT_EQ(decode("a\0b\n\0\n--b\n"s, "", true), "next:a\0b\n\0"s) << "NUL bytes are content";
    EXPECT_EQ(decode("a\0b\n--b\n"s), "next:a\0b"s) << "of text too";
}

TEST_F(PartBody, LinesOfAnyLength) {
    for (const std::size_t length : {998U, 1000U, 1021U, 1022U, 1023U, 1024U, 2045U, 2046U, 2047U, 300'000U}) {
        const std::string line(length, 'x');
        EXPECT_TRUE(decode(line + "\n--b\n") == "next:" + line) << length;
        EXPECT_TRUE(decode(line + "\r\n--b\r\n", "", true) == "next:" + line) << length;
        EXPECT_TRUE(decode(line + "--b\n--b\n") == "next:" + line + "--b") << length << ": no boundary inside a line";
        EXPECT_TRUE(decode(line + ".\n--b\n") == "next:" + line + ".") << length << ": nor an end line";
        EXPECT_TRUE(decode(line + "..\n--b\n") == "next:" + line + "..") << length << ": nor a stuffed dot";
        EXPECT_TRUE(decode(line + "\n.\n") == "message:" + line + "\n") << length;
        EXPECT_TRUE(decode(line + "=41=\nB\n--b\n", "quoted-printable") == "next:" + line + "AB") << length;
    }
    const std::string octets(3000, 'A');
    std::string encoded;
    for (int i = 0; i < 1000; ++i) encoded += "QUFB";
    EXPECT_EQ(decode(encoded + "\n--b\n", "base64"), "next:" + octets) << "base64 in one line";
    EXPECT_EQ(decode("Q" + encoded.substr(0, 1023) + "\n--b\n", "base64").size(), 5U + 768) << "cut inside a group";
}

TEST_F(PartBody, BoundariesAsLongAsALine) {
    const ux_PartMarkers longest{"--" + std::string(1020, 'x'), "--" + std::string(1020, 'x') + "--"};
    EXPECT_EQ(decode("a\n" + longest.pszPartMarker + "\n", "", false, &longest), "next:a") << "1,023 with its line end";
    EXPECT_EQ(decode("a\n" + longest.pszLastPartMarker + "\n.\n", "", false, &longest).substr(0, 8), "message:")
        << "longer than a piece: not recognised";
}

TEST_F(PartBody, AReportCopySeesEveryLine) {
    const std::string body = "QUJD\r\nQUJD\n-\n\n";
    im_Item copy = im_CrNewDataItem();
    ux_mime_input().Reportfp = &copy;
    ux_mime_input().gCopyForReport = true;
    EXPECT_EQ(decode(body + "--b\n", "base64"), "next:ABCABC");
    ux_reset_mime_input();
    std::string scratch;
    EXPECT_EQ(copy.head(std::string::npos, scratch), body + "--b\n") << "with the line ends as they came";
}

}  // namespace
