// Signed messages: the signature item byte for byte, and the content that converts beside it, in both modes.
#include "ux_mimein/signed.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/mime.h"

namespace {

using namespace std::string_literals;
using Lines = std::vector<std::string>;

const std::string kHead = "Content-Type: multipart/signed;\r\n\tboundary=b\r\n\r\n\r\n--b\r\n";
const std::string kSignature = "--b\r\nContent-Type: application/pgp-signature\r\n\r\nsig\r\n--b--\r\n";
constexpr std::string_view kSignatureLines = "--b\nContent-Type: application/pgp-signature\n\nsig\n--b--\n";

std::string message(std::string_view content, std::string_view after = ".\n") {
    return "--b\n" + std::string(content) + std::string(kSignatureLines) + std::string(after);
}

class Signed : public testing::Test {
protected:
    ConvertedMime convert(std::string_view text, std::string_view type = "multipart/signed; boundary=b") {
        return process_.convert(type, text);
    }
    MimeProcess process_{"UXI_MIME_CS_AUTODETECT = false\n"};
};

TEST_F(Signed, IsKeptWholeAndConverted) {
    const ConvertedMime made = convert(message("Content-Type: text/plain; charset=utf-8\n\nText.\n"));
    ASSERT_EQ(made.items.size(), 2u);
    EXPECT_EQ(made.items[0], "Text.");
    EXPECT_EQ(made.items[1], kHead + "Content-Type: text/plain; charset=utf-8\r\n\r\nText.\r\n" + kSignature);
    EXPECT_EQ(made.records, (Lines{"30100 3,-100 flags 4 type[multipart/signed; boundary=b] subject[S]",
                                   "30500 1167 set[IA5] 5 type[text/plain; charset=US-ASCII] subject[S]",
                                   "30500 2185 " + std::to_string(made.items[1].size()) +
                                       " type[multipart/signed] subject[smime_clearsigned.txt]",
                                   "39000"}));
    EXPECT_EQ(made.objects, (Lines{"30700 0 inetContentHeader 41", "30700 0 inetContentHeader 41"}))
        << "of the content and of the signature";
    EXPECT_TRUE(made.end_read);
}

TEST_F(Signed, ParametersStandOnLinesOfTheirOwn) {
    struct Row {
        const char *type, *head, *why;
    };
    const Row rows[] = {
        {"multipart/signed; micalg=sha1; protocol=\"x/y\"; boundary=b",
         "multipart/signed;\r\n\tmicalg=sha1;\r\n\t protocol=\"x/y\";\r\n\t boundary=b\r\n\r\n\r\n--b\r\n",
         "two separators, three lines; the blanks after them stay"},
        {"multipart/signed;boundary=b;", "multipart/signed;\r\n\tboundary=b;\r\n\t\r\n\r\n\r\n--b\r\n", "at the end"},
    };
    for (const Row& row : rows) {
        const ConvertedMime made = convert(message("\nText.\n"), row.type);
        ASSERT_EQ(made.items.size(), 2u) << row.why;
        EXPECT_EQ(made.items[1], "Content-Type: "s + row.head + "\r\nText.\r\n" + kSignature) << row.why;
    }
}

TEST_F(Signed, LinesBecomeCrLfAndNothingElseChanges) {
    struct Row {
        std::string content, kept, why;
    };
    const std::string longest(5000, 'x');
    const Row rows[] = {
        {"\n..dots\n..\n...\n", "\r\n.dots\r\n.\r\n..\r\n", "dots are unstuffed"},
        {"\r\nA\r\nB\nC\r\r\n", "\r\nA\r\nB\r\nC\r\n", "whatever ended a line"},
        {"\n" + longest + "\nY\n", "\r\n" + longest + "\r\nY\r\n", "a long line stays one line"},
        {"\n" + longest + "..\nY\n", "\r\n" + longest + "..\r\nY\r\n", "and dots in it stay"},
        {"\nA\0B\n"s, "\r\nA\0B\r\n"s, "a NUL byte"},
        {"\nA\rB\n", "\r\nA\rB\r\n", "a CR that ends nothing"},
        {"\n--b \n--c\n-\n", "\r\n--b \r\n--c\r\n-\r\n", "what only looks like a boundary"},
        {"\n \t\n", "\r\n \t\r\n", "blanks at a line's end"},
    };
    for (const Row& row : rows) {
        const ConvertedMime made = convert(message(row.content));
        ASSERT_EQ(made.items.size(), 2u) << row.why;
        EXPECT_EQ(made.items[1], kHead + row.kept + kSignature) << row.why;
    }
}

// What is converted is what would have been converted without a signature.
TEST_F(Signed, TheContentIsReadFromTheCopyAsItCame) {
    const std::string content =
        "Content-Type: application/octet-stream\r\n\r\nA\r\nB\n..C\r\r\n" + std::string(3000, 'x') + "\r\n";
    const ConvertedMime made = convert(message(content));
    const ConvertedMime bare = convert("--b\n" + content + "--b--\n.\n", "multipart/mixed; boundary=b");
    ASSERT_EQ(bare.items.size(), 1u);
    ASSERT_EQ(made.items.size(), 2u);
    EXPECT_EQ(made.items[0], bare.items[0]);
}

// The copy is the signature item itself as far as both are the same; wherever they part, what is read is what came.
TEST_F(Signed, TheCopyBeginsToDifferAnywhere) {
    const std::string content =
        "Content-Type: application/octet-stream\r\n\r\nA\r\nB\r\n" + std::string(2000, 'y') + "\r\nC\r\nD\r\n";
    const std::string odd[] = {"\n", "\r\r\n", "..x\r\n", ".." + std::string(1500, 'z') + "\r\n", "--b \r\n"};
    for (std::size_t at = content.find("A\r"); at != std::string::npos; at = content.find("\r\n", at + 1)) {
        for (const std::string& line : odd) {
            std::string changed = content;
            changed.insert(at == content.find("A\r") ? at : at + 2, line);
            const ConvertedMime made = convert(message(changed));
            const ConvertedMime bare = convert("--b\n" + changed + "--b--\n.\n", "multipart/mixed; boundary=b");
            ASSERT_EQ(made.items.size(), 2u);
            ASSERT_EQ(bare.items.size(), 1u);
            EXPECT_EQ(made.items[0], bare.items[0]) << at << " " << line;
        }
    }
}

TEST_F(Signed, OnlyTheFirstPartIsConverted) {
    const ConvertedMime made = convert("--b\n\nOne.\n--b\n\nTwo.\n--b\n\nThree.\n--b--\n.\n");
    ASSERT_EQ(made.items.size(), 2u);
    EXPECT_EQ(made.items[0], "One.");
    EXPECT_EQ(made.items[1], kHead + "\r\nOne.\r\n--b\r\n\r\nTwo.\r\n--b\r\n\r\nThree.\r\n--b--\r\n");
}

TEST_F(Signed, WithoutASignaturePartThereIsNoHeaderOfOne) {
    const ConvertedMime made = convert("--b\n\nOne.\n--b--\n.\n");
    ASSERT_EQ(made.items.size(), 2u);
    EXPECT_EQ(made.objects, (Lines{"30700 0 inetContentHeader 0"}));
}

TEST_F(Signed, ABoundaryThatNeverComesKeepsNothing) {
    const ConvertedMime made = convert("preamble\n.\n");
    EXPECT_TRUE(made.items.empty());
    EXPECT_EQ(made.records.size(), 2u) << "the package opens and closes";
}

TEST_F(Signed, WhatFollowsInTheEnclosingMultipartIsRead) {
    const std::string text = "--o\nContent-Type: multipart/signed; boundary=b\n\n" + message("\nOne.\n", "epilogue\n") +
                             "--o\n\nAfter.\n--o--\n.\n";
    const ConvertedMime made = convert(text, "multipart/mixed; boundary=o");
    ASSERT_EQ(made.items.size(), 3u);
    EXPECT_EQ(made.items[2], "After.");
    EXPECT_TRUE(made.end_read);
}

TEST_F(Signed, NotClosedItEndsTheMessage) {
    const std::string text =
        "--o\nContent-Type: multipart/signed; boundary=b\n\n--b\n\nOne.\n--o\n\nAfter.\n--o--\n.\n";
    const ConvertedMime made = convert(text, "multipart/mixed; boundary=o");
    ASSERT_EQ(made.items.size(), 2u);
    EXPECT_EQ(made.items[0], "One.\n--o\n\nAfter.\n--o--\n");
    EXPECT_EQ(made.items[1], kHead + "\r\nOne.\r\n--o\r\n\r\nAfter.\r\n--o--\r\n") << "without the end line";
    EXPECT_TRUE(made.end_read) << "nothing is read after it";
}

TEST_F(Signed, InsideASignedOne) {
    const std::string inner = "Content-Type: multipart/signed; boundary=i\n\n--i\n\n..Deep.\n--i\n\nsig\n--i--\n";
    const ConvertedMime made = convert(message(inner));
    ASSERT_EQ(made.items.size(), 3u);
    EXPECT_EQ(made.items[0], ".Deep.");
    EXPECT_EQ(
        made.items[1],
        "Content-Type: multipart/signed;\r\n\tboundary=i\r\n\r\n\r\n--i\r\n\r\n.Deep.\r\n--i\r\n\r\nsig\r\n--i--\r\n");
    EXPECT_NE(made.items[2].find("\r\n.Deep.\r\n"), std::string::npos);
    EXPECT_TRUE(made.end_read);
}

TEST_F(Signed, AnInnerOneThatIsNotClosedEndsWithItsCopy) {
    const std::string inner = "Content-Type: multipart/signed; boundary=i\n\n--i\n\nDeep.\n";
    const ConvertedMime made = convert(
        "--o\nContent-Type: multipart/signed; boundary=b\n\n" + message(inner, "") + "--o\n\nAfter.\n--o--\n.\n",
        "multipart/mixed; boundary=o");
    ASSERT_EQ(made.items.size(), 4u);
    EXPECT_EQ(made.items[3], "After.") << "the end of the copy is not the end of the message";
}

TEST_F(Signed, InputThatEnds) {
    EXPECT_THROW(convert("--b\n\nOne.\n"), er_Escape);
    EXPECT_TRUE(process_.home.files("data").empty());
}

class SignedVersion2 : public Signed {
protected:
    SignedVersion2() { process_.restart_with("SMIME_V2 = true\n"); }
};

TEST_F(SignedVersion2, IsKeptAloneWithItsDots) {
    const ConvertedMime made = convert(message("\n..Text.\n", "epilogue\n.\n"));
    ASSERT_EQ(made.items.size(), 1u);
    EXPECT_EQ(made.items[0], kHead + "\r\n..Text.\r\n" + kSignature);
    EXPECT_EQ(made.records, (Lines{"30500 2185 " + std::to_string(made.items[0].size()) +
                                   " type[multipart/signed] subject[smime_clearsigned.txt]"}))
        << "no package";
    EXPECT_TRUE(made.end_read);
}

TEST_F(SignedVersion2, NotClosedItHoldsTheEndLineAndEndsTheMessage) {
    const ConvertedMime made =
        convert("--o\nContent-Type: multipart/signed; boundary=b\n\n--b\n\nOne.\n.\n", "multipart/mixed; boundary=o");
    ASSERT_EQ(made.items.size(), 1u);
    EXPECT_EQ(made.items[0], kHead + "\r\nOne.\r\n.\r\n");
    EXPECT_TRUE(made.end_read);
}

// The key is read with the first signed message of a process.
TEST_F(SignedVersion2, HoldsForTheProcess) {
    convert(message("\nOne.\n"));
    process_.home.set_keys("SMIME_V2 = false\n");
    EXPECT_EQ(convert(message("\nOne.\n")).items.size(), 1u);
}

}  // namespace
