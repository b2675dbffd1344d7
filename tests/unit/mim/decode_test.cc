// Transfer decodings: every rule, every kind of body, cut anywhere, in blocks or in lines.
#include "mim/decode.h"

#include <algorithm>
#include <chrono>
#include <random>
#include <span>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "im/im.h"
#include "support/decoding.h"
#include "support/home.h"

namespace {

using decoding::Job;
using std::string_view_literals::operator""sv;
using enum mim_TransferEncoding;

constexpr mim_TransferEncoding kAll[] = {identity, base64, quoted_printable, uuencode};

struct NameRow {
    std::string_view field;
    mim_TransferEncoding encoding;
    const char* why;
};
constexpr NameRow kNameRows[] = {
    {"7bit", identity, "known"},
    {"8bit", identity, "known"},
    {"binary", identity, "known"},
    {"base64", base64, "known"},
    {"quoted-printable", quoted_printable, "known"},
    {"x-uuencode", uuencode, "known"},
    {"uuencode", uuencode, "known"},
    {"x-uue", uuencode, "known"},
    {"BASE64", base64, "any case"},
    {"Quoted-Printable", quoted_printable, "any case"},
    {" \tbase64\t ", base64, "blanks around"},
    {"\r\n base64\r\n", base64, "still folded"},
    {"base64 (RFC 2045)", base64, "a comment behind"},
    {"(a) base64(b)", base64, "comments around"},
    {"(a (b (c)) d) base64", base64, "comments nest"},
    {"(a \\) b) base64", base64, "an escape in a comment"},
    {"base64 (never closed", base64, "a comment that is not closed"},
    {"base64 (a\\", base64, "an escape at the end"},
    {"", identity, "nothing"},
    {"()", identity, "a comment alone"},
    {"base 64", identity, "blanks inside"},
    {"base(a)64", identity, "a comment inside"},
    {"base64)", identity, "a parenthesis that closes nothing"},
    {"base6", identity, "another word"},
    {"base644", identity, "a longer one"},
    {"\"base64\"", identity, "quoted"},
    {"uue", identity, "not known"},
    {"x-gzip64", identity, "not known"},
};

TEST(Decode, Names) {
    for (const NameRow& row : kNameRows) EXPECT_EQ(mim_transfer_encoding(row.field), row.encoding) << row.why;
}

struct BodyRow {
    std::string_view body;
    std::string_view as_text;
    std::string_view as_bytes;
    const char* why;
};

void check(mim_TransferEncoding encoding, std::span<const BodyRow> rows, bool at_boundary) {
    for (const BodyRow& row : rows) {
        EXPECT_EQ(decoding::whole({encoding, true, at_boundary}, row.body), row.as_text) << row.why << " (text)";
        EXPECT_EQ(decoding::whole({encoding, false, at_boundary}, row.body), row.as_bytes) << row.why << " (bytes)";
    }
}

constexpr BodyRow kIdentityRows[] = {
    {"", "", "", "nothing"},
    {"a", "a", "a", "no line end"},
    {"a\n", "a\n", "a\n", "a line"},
    {"a\r\n", "a\n", "a\r\n", "CR LF"},
    {"a\r\r\nb\r\n", "a\nb\n", "a\r\r\nb\r\n", "CR CR LF"},
    {"\r\n\n\r\n", "\n\n\n", "\r\n\n\r\n", "empty lines"},
    {"a\rb\r\n", "a\rb\n", "a\rb\r\n", "a CR inside a line"},
    {"a\r", "a\r", "a\r", "a CR at the end"},
    {"=41 \n", "=41 \n", "=41 \n", "nothing is decoded"},
    {"a\0b\n"sv, "a\0b\n"sv, "a\0b\n"sv, "a NUL"},
};
constexpr BodyRow kIdentityBoundaryRows[] = {
    {"", "", "", "nothing"},
    {"a\n", "a", "a", "the line end is the boundary's"},
    {"a\r\n", "a", "a", "with its CR"},
    {"a\r\r\n", "a", "a", "with all of them"},
    {"a\n\n", "a\n", "a\n", "one line end, not two"},
    {"a\r\n\r\n", "a\n", "a\r\n", "the one before it stays as it is"},
    {"\n", "", "", "an empty line"},
    {"a", "a", "a", "no line end"},
};

TEST(Decode, Identity) {
    check(identity, kIdentityRows, false);
    check(identity, kIdentityBoundaryRows, true);
}

constexpr BodyRow kBase64Rows[] = {
    {"", "", "", "nothing"},
    {"Q2F0\n", "Cat", "Cat", "three octets"},
    {"Q2F0", "Cat", "Cat", "no line end"},
    {"Q2F0Cg==\r\n", "Cat\n", "Cat\n", "padding of two"},
    {"Q2E=\n", "Ca", "Ca", "padding of one"},
    {"Q2E\n", "Ca", "Ca", "padding is missing"},
    {"Qw\n", "C", "C", "both of it"},
    {"Q2F0Q\n", "Cat", "Cat", "six bits are no octet"},
    {"Q\n", "", "", "nor alone"},
    {"Q=2F0\n", "\xD8]", "\xD8]", "padding too early drops them"},
    {"Qw==Q2F0\n", "CCat", "CCat", "data after padding goes on"},
    {"Qw=Q2F0\n", "CCat", "CCat", "after half of it too"},
    {"Qw====\n====\nQ2F0\n", "CCat", "CCat", "more padding is no more"},
    {"=\nQ2F0\n", "Cat", "Cat", "padding of nothing"},
    {"Q\n2\nF\n0\n", "Cat", "Cat", "a group over lines"},
    {"Q2 F\t0\n", "Cat", "Cat", "blanks"},
    {"Q2*F-0.\n", "Cat", "Cat", "characters of no meaning"},
    {"\xC3\xA9Q2F0\xFF\n", "Cat", "Cat", "8-bit ones"},
    {"Q2\0F0\n"sv, "Cat", "Cat", "a NUL"},
    {"!!!!\n\n \nQ2F0\n\n", "Cat", "Cat", "lines of no meaning"},
    {"DQo=\n", "\n", "\r\n", "CR LF"},
    {"YQ0KYg0K\n", "a\nb\n", "a\r\nb\r\n", "CR LF in lines"},
    {"YQ0=\nCmI=\n", "a\nb", "a\r\nb", "CR and LF in two groups"},
    {"DQ0K\n", "\r\n", "\r\r\n", "a CR alone, then CR LF"},
    {"DQ==\n", "\r", "\r", "a CR at the end"},
    {"DWE=\n", "\ra", "\ra", "a CR alone stays"},
    {"Cg0=\n", "\n\r", "\n\r", "LF CR is no line end"},
};

TEST(Decode, Base64) {
    check(base64, kBase64Rows, false);
    check(base64, kBase64Rows, true);  // line ends are no part of it
}

constexpr BodyRow kQuotedRows[] = {
    {"", "", "", "nothing"},
    {"a\r\nb\n", "a\nb\n", "a\r\nb\n", "lines"},
    {"a=41b\n", "aAb\n", "aAb\n", "an escape"},
    {"=c3=A9\n", "\xC3\xA9\n", "\xC3\xA9\n", "digits in any case"},
    {"a=\r\nb\r\n", "ab\n", "ab\r\n", "a soft line break"},
    {"a= \t\r\nb\r\n", "ab\n", "ab\r\n", "with blanks behind it"},
    {"a \t=\nb\n", "a \tb\n", "a \tb\n", "blanks before it stay"},
    {"a= =\nb\n", "a= b\n", "a= b\n", "only the last sign is one"},
    {"a==\nb\n", "a=b\n", "a=b\n", "the same without a blank"},
    {"=\n=\n=\n", "", "", "nothing but soft line breaks"},
    {"a  \nb\t\t\n", "a\nb\n", "a\nb\n", "blanks at a line's end"},
    {"a=20\nb=09 \n", "a \nb\t\n", "a \nb\t\n", "encoded ones stay"},
    {" \t \n", "\n", "\n", "nothing but blanks"},
    {" a\n", " a\n", " a\n", "blanks at its start stay"},
    {"=4\n=\n", "=4\n", "=4\n", "half an escape at a line's end"},
    {"=4 \n", "=4\n", "=4\n", "with a blank behind it"},
    {"a=ZZb=4Gc=G4\n", "a=ZZb=4Gc=G4\n", "a=ZZb=4Gc=G4\n", "bad escapes"},
    {"a=b c\n", "a=b c\n", "a=b c\n", "one digit"},
    {"caf\xC3\xA9\n", "caf\xC3\xA9\n", "caf\xC3\xA9\n", "8-bit"},
    {"a\rb\n", "a\rb\n", "a\rb\n", "a CR inside a line"},
    {"a=0D=0Ab\n", "a\nb\n", "a\r\nb\n", "an encoded CR LF"},
    {"a=0D=\n=0Ab\n", "a\nb\n", "a\r\nb\n", "with a soft line break in it"},
    {"a=0D= \r\n=0Ab\n", "a\nb\n", "a\r\nb\n", "and blanks behind that"},
    {"a=0D\nb\n", "a\nb\n", "a\r\nb\n", "an encoded CR before a line end"},
    {"a=0D \nb\n", "a\nb\n", "a\r\nb\n", "with blanks between"},
    {"a=0D\r\nb\n", "a\nb\n", "a\r\r\nb\n", "before CR LF"},
    {"a=0A=0D\nb\n", "a\n\nb\n", "a\n\r\nb\n", "LF CR is no line end"},
    {"a=0Db\n", "a\rb\n", "a\rb\n", "an encoded CR alone"},
    {"a=0D", "a\r", "a\r", "at the end"},
    {"a =", "a =", "a =", "a sign at the end of the input"},
    {"a=4", "a=4", "a=4", "half an escape there"},
    {"a  ", "a  ", "a  ", "blanks there: no line ended"},
};
constexpr BodyRow kQuotedBoundaryRows[] = {
    {"a\r\n", "a", "a", "the line end is the boundary's"},
    {"a\n\n", "a\n", "a\n", "one of two"},
    {"a=\n", "a", "a", "a soft line break before it"},
    {"a\n=\n", "a\n", "a\n", "alone on its line: the line end before it was text"},
    {"a  \n", "a", "a", "blanks at the end"},
    {"a=0D\n", "a\r", "a\r", "an encoded CR is not the boundary's"},
    {"a=0D=0A\n", "a\n", "a\r\n", "nor is an encoded line end"},
};

TEST(Decode, QuotedPrintable) {
    check(quoted_printable, kQuotedRows, false);
    check(quoted_printable, kQuotedBoundaryRows, true);
}

constexpr BodyRow kUuRows[] = {
    {"begin 644 a\n#0V%T\n`\nend\n", "Cat", "Cat", "an item"},
    {"begin 644 a\r\n#0V%T\r\n`\r\nend\r\n", "Cat", "Cat", "with CR LF"},
    {"Hello\n\nbegin 644 a\n#0V%T\n`\nend\n", "Cat", "Cat", "text before it"},
    {"begin 644 a\n#0V%T\n`\nend\nmore\n#0V%T\n", "Cat", "Cat", "text behind it"},
    {"begin 644 a\n#0V%T\nend\n", "Cat", "Cat", "no empty line at its end"},
    {"begin 644 a\n#0V%T\n", "Cat", "Cat", "no end line"},
    {"begin 644 a\n#0V%T", "Cat", "Cat", "no line end"},
    {"begin 644 a\n#0V%T\n`\n#0V%T\nend\n", "CatCat", "CatCat", "an empty line is not the end"},
    {"begin 644 a\n\n#0V%T\n\nend\n", "Cat", "Cat", "nor is a blank one"},
    {"begin 644 a\nend\n", "", "", "nothing inside"},
    {"begin 644 a\nend", "", "", "an end line that does not end"},
    {"begin 644 a\n", "", "", "nothing at all"},
    {"begin 644 a", "", "", "not even a line end"},
    {"begin 644 a\n\"0V$\nend\n", "Ca", "Ca", "a short line"},
    {"begin 644 a\nendx\nend\n", "8F\0\0\0"sv, "8F\0\0\0"sv, "a line that only begins with end is data"},
    {"begin 644 a\n$#0IA#0``\nend\n", "\na\r", "\r\na\r", "CR LF in the data"},
    {"Hello\r\n=41 \r\n", "Hello\n=41 \n", "Hello\r\n=41 \r\n", "no begin line: as it stands"},
    {"begin of a tale\n", "begin of a tale\n", "begin of a tale\n", "nor is this one"},
    {"x begin 644 a\n", "x begin 644 a\n", "x begin 644 a\n", "nor this"},
    {"", "", "", "nothing"},
};

TEST(Decode, Uuencode) {
    check(uuencode, kUuRows, false);
    EXPECT_EQ(decoding::whole({uuencode, true, true}, "Hello\r\n"), "Hello") << "the line end is the boundary's";
    EXPECT_EQ(decoding::whole({uuencode, true, true}, "begin 644 a\n#0V%T\n"), "Cat");
}

TEST(Decode, AnEmptyPieceSaysNothing) {
    for (const mim_TransferEncoding encoding : kAll) {
        im_Item item = im_CrNewDataItem();
        const auto decoder = mim_make_decoder(encoding, true, item);
        decoder->piece({"Q2F0"});
        decoder->piece({"", true, false, 0});
        decoder->finish(true);
        EXPECT_EQ(decoding::content(item), encoding == base64 ? "Cat" : "Q2F0") << "the line end is the boundary's";
    }
}

TEST(Decode, AppendsToWhatIsThere) {
    im_Item item = im_CrNewDataItem();
    item.write("before ");
    const auto decoder = mim_make_decoder(uuencode, false, item);
    decoder->piece({"some text"});
    decoder->piece({"begin 644 a"});
    decoder->piece({"#0V%T"});
    decoder->finish(false);
    EXPECT_EQ(decoding::content(item), "before Cat");
}

// ---------------------------------------------------------------------------------------------------------------
// Bodies by chance: what may be read in several ways stands in them close together.

class Bodies {
public:
    explicit Bodies(unsigned seed) : random_(seed) {}

    std::size_t below(std::size_t bound) { return random_() % bound; }
    std::string body(mim_TransferEncoding encoding, std::size_t parts) {
        std::string text;
        if (encoding == uuencode && below(4) != 0) text = "begin 644 a" + line_end();
        for (; parts > 0; --parts) text += part(encoding);
        if (below(2) == 0) text += line_end();
        return text;
    }

private:
    template <std::size_t N>
    std::string_view one_of(const std::string_view (&parts)[N]) {
        return parts[below(N)];
    }
    std::string line_end() { return below(3) == 0 ? "\n" : below(4) == 0 ? "\r\r\n" : "\r\n"; }
    std::string characters(std::string_view alphabet, std::size_t count) {
        std::string text(count, ' ');
        for (char& c : text) c = alphabet[below(alphabet.size())];
        return text;
    }
    std::string part(mim_TransferEncoding encoding) {
        static constexpr std::string_view quoted[] = {
            "=",   "=4",    "=41",  "=0D", "=0A",           "=0D=0A", "=zz", " ", "\t",  "  ",
            "=\n", "=\r\n", "= \n", "a",   "bcdefghijklmn", "\r",     "-",   ".", "\xE9"};
        static constexpr std::string_view sixty_four[] = {"=", "==", " ",  "Q2F0", "DQo=", "DQ",  "0K",
                                                          "Q", "*",  "\r", "-",    ".",    "\xE9"};
        static constexpr std::string_view uu[] = {"end", "\nend\n", "begin 644 b\n", "#0V%T", "M",   "-", ".",
                                                  " ",   "`",       "$#0IA#0``",     "\r",    "\xE9"};
        static constexpr std::string_view plain[] = {"a", "bcdefghijkl", " ", "\r", "-", ".", "=41", "\xE9"};
        const std::size_t kind = below(10);
        if (kind < 3) return line_end();
        if (kind == 3 && below(8) == 0) return std::string(1, '\0');
        switch (encoding) {
            case base64:
                if (kind < 7) return characters(kAlphabet, below(2) == 0 ? 76 : below(90)) + line_end();
                return std::string(one_of(sixty_four));
            case uuencode:
                if (kind < 6) return 'M' + characters(kUuAlphabet, 60) + line_end();
                if (kind < 7) return characters(kUuAlphabet, below(100)) + line_end();
                return std::string(one_of(uu));
            case quoted_printable: return std::string(one_of(quoted));
            case identity: break;
        }
        return std::string(one_of(plain));
    }

    static constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    static constexpr std::string_view kUuAlphabet =
        " !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`";
    std::mt19937 random_;
};

std::string shown(const Job& job, std::string_view body) {
    std::string text = std::to_string(static_cast<int>(job.encoding)) + (job.text ? " text" : " bytes") +
                       (job.at_boundary ? " at boundary: " : ": ");
    for (const char c : body) text += c == '\r' ? "\\r" : c == '\n' ? "\\n\n" : c == '\0' ? "\\0" : std::string(1, c);
    return text;
}

class DecodeBodies : public testing::TestWithParam<mim_TransferEncoding> {
protected:
    template <class Check>
    void each_job(int rounds, std::size_t parts, Check&& check) {
        Bodies bodies(static_cast<unsigned>(GetParam()) + 1);
        for (int round = 0; round < rounds && !HasFailure(); ++round) {
            const std::string body = bodies.body(GetParam(), bodies.below(parts));
            for (const bool text : {false, true})
                for (const bool at_boundary : {false, true}) check(Job{GetParam(), text, at_boundary}, body, bodies);
        }
    }
};
INSTANTIATE_TEST_SUITE_P(All, DecodeBodies, testing::ValuesIn(kAll));

TEST_P(DecodeBodies, LikeAPlainReading) {
    each_job(2000, 40, [](const Job& job, const std::string& body, Bodies&) {
        ASSERT_EQ(decoding::whole(job, body), decoding::plainly(job, body)) << shown(job, body);
    });
}

TEST_P(DecodeBodies, CutAtEveryPlace) {
    each_job(150, 20, [](const Job& job, const std::string& body, Bodies&) {
        const std::string expected = decoding::whole(job, body);
        std::size_t longest = 0;
        for (const decoding::Line& line : decoding::lines_of(body)) longest = std::max(longest, line.text.size());
        for (std::size_t place = 0; place <= longest; ++place)
            ASSERT_EQ(decoding::cut_at(job, body, place), expected) << place << ' ' << shown(job, body);
    });
}

TEST_P(DecodeBodies, InPiecesOfEveryLength) {
    each_job(150, 30, [](const Job& job, const std::string& body, Bodies& bodies) {
        const std::string expected = decoding::whole(job, body);
        for (std::size_t length = 1; length <= 12; ++length)
            ASSERT_EQ(decoding::in_pieces(job, body, [=] { return length; }), expected) << length << shown(job, body);
        ASSERT_EQ(decoding::in_pieces(job, body, [&] { return bodies.below(9); }), expected) << shown(job, body);
    });
}

TEST_P(DecodeBodies, InBlocks) {
    each_job(300, 60, [](const Job& job, const std::string& body, Bodies& bodies) {
        const std::string expected = decoding::whole(job, body);
        for (const std::size_t block : {std::size_t{1}, std::size_t{80}, bodies.below(400) + 1, body.size() + 1})
            ASSERT_EQ(decoding::in_blocks(job, body, block), expected) << block << ' ' << shown(job, body);
    });
}

// Lines that are longer than what a reader gives at once come in pieces of 1,023.
TEST_P(DecodeBodies, LongLines) {
    Bodies bodies(77);
    for (const std::size_t length : {990U, 999U, 1000U, 1001U, 1022U, 1023U, 1024U, 2046U, 2047U, 5000U}) {
        std::string line = bodies.body(GetParam(), 3000);
        std::erase_if(line, [](char c) { return c == '\r' || c == '\n'; });
        line.resize(length, 'A');
        for (const std::string_view end : {"\n", "\r\n", "  \n", "=\n", "=  \r\n", "=4\n", "=41\n"})
            for (const bool text : {false, true}) {
                const std::string body = line + std::string(end) + "next\r\n";
                const Job job{GetParam(), text, true};
                const std::string expected = decoding::plainly(job, body);
                ASSERT_EQ(decoding::whole(job, body), expected) << length;
                ASSERT_EQ(decoding::in_pieces(job, body, [] { return decoding::kReaderLimit; }), expected) << length;
                ASSERT_EQ(decoding::in_blocks(job, body, 1 << 16), expected) << length;
            }
    }
}

// ---------------------------------------------------------------------------------------------------------------
// Blocks

struct BlockRow {
    mim_TransferEncoding encoding;
    std::string_view block;
    std::size_t taken;
    const char* why;
};
constexpr BlockRow kBlockRows[] = {
    {identity, "", 0, "nothing"},
    {identity, "a", 0, "no line end"},
    {identity, "a\nb\r\n\nc", 6, "whole lines"},
    {identity, "a\n-b\nc\n", 2, "not what may be a boundary"},
    {identity, "a\n.b\nc\n", 2, "nor a dot"},
    {identity, "--x\n", 0, "not even first"},
    {identity, "a\nb-.\n", 6, "inside a line they are characters"},
    {identity, "a\nb\0c\nd\n"sv, 2, "nor a NUL"},
    {quoted_printable, "a=41\nb=\nc", 8, "whole lines, soft line breaks too"},
    {quoted_printable, "a\n.\nb\n", 2, "not a dot"},
    {uuencode, "x\nbegin 644 a\n#0V%T\nend\nrest\n", 29, "all of it"},
    {uuencode, "begin 644 a\n-0V%T\n", 12, "data may look like a boundary"},
    {base64, "Q2F0\nQ2F0\nQ2F0\n", 15, "lines of one length"},
    {base64, "Q2F0Q2F0\r\nQ2F0Q2F0\r\nQ2F0\r\n", 20, "as long as they are"},
    {base64, "Q2F0Q2F0\r\nQ2F0Q2F0\n", 10, "and end alike"},
    {base64, "Q2F0\nQ2==\nQ2F0\n", 5, "not padding"},
    {base64, "Q2F0\nQ2F-\n", 5, "nor anything else"},
    {base64, "Q2F\nQ2F\n", 0, "whole groups"},
    {base64, "\n\n", 0, "empty lines"},
    {base64, "Q2F0", 0, "no line end"},
};

TEST(DecodeBlocks, WhatIsTaken) {
    for (const BlockRow& row : kBlockRows)
        for (const bool text : {false, true}) {
            im_Item item = im_CrNewDataItem();
            EXPECT_EQ(mim_make_decoder(row.encoding, text, item)->lines(row.block), row.taken) << row.why;
        }
}

TEST(DecodeBlocks, LongestLine) {
    for (const mim_TransferEncoding encoding : kAll)
        for (const std::size_t length : {800U, 992U, 1000U, 1004U, 1020U, 5000U}) {
            im_Item item = im_CrNewDataItem();
            const std::string block = std::string(length, 'A') + '\n';
            const std::size_t taken = mim_make_decoder(encoding, false, item)->lines(block);
            EXPECT_EQ(taken, length < 1000 ? length + 1 : 0) << length;
        }
}

// NULs are looked for in many lines at once; what is taken ends before the line that holds the first.
TEST(DecodeBlocks, ANulAnywhere) {
    std::string body;
    for (int line = 0; line < 130; ++line) body += std::string(static_cast<std::size_t>(line) % 97 + 30, 'a') + "\r\n";
    ASSERT_GT(body.size(), 8300U);
    for (std::size_t at = 0; at<body.size(); at = at> 4050 && at < 4140 ? at + 1 : at + 13) {
        std::string block = body;
        block[at] = '\0';
        block.back() = '\0';  // another one
        const std::size_t line_feed = at == 0 ? std::string::npos : block.rfind('\n', at - 1);
        for (const mim_TransferEncoding encoding : {identity, quoted_printable, uuencode}) {
            im_Item item = im_CrNewDataItem();
            ASSERT_EQ(mim_make_decoder(encoding, true, item)->lines(block), line_feed + 1) << at;
        }
    }
}

// Most of a large body goes in blocks: otherwise it would be slow without being wrong.
TEST(DecodeBlocks, MostIsTaken) {
    std::string body;
    for (int line = 0; line < 1000; ++line) body += std::string(76, 'Q') + "\r\n";
    for (const bool text : {false, true}) {
        im_Item item = im_CrNewDataItem();
        EXPECT_EQ(mim_make_decoder(base64, text, item)->lines(body), body.size());
        EXPECT_EQ(item.size(), 57000U);
    }
}

// ---------------------------------------------------------------------------------------------------------------
// Damage, and size

// One bit wrong in a base64 part: what stands before the damage is right, and the rest is what the characters that are
// left say.
TEST(Decode, Base64WithOneBitWrong) {
    std::string body;
    for (int line = 0; line < 3; ++line)
        body += std::string("VGhlIHF1aWNrIGJyb3duIGZveCBqdW1wcyBvdmVyIHRoZSBs").substr(0, 48) + "\r\n";
    const std::string right = decoding::whole({base64}, body);
    for (std::size_t at = 0; at < body.size(); ++at)
        for (unsigned bit = 0; bit < 8; ++bit) {
            std::string damaged = body;
            damaged[at] = static_cast<char>(damaged[at] ^ 1 << bit);
            const std::string result = decoding::in_blocks({base64}, damaged, 1 << 12);
            ASSERT_EQ(result, decoding::plain_base64({base64}, damaged)) << at << ' ' << bit;
            const std::size_t groups = (at - at / 50 * 2 - (at % 50 >= 48 ? at % 50 - 48 : 0)) / 4;
            ASSERT_EQ(result.substr(0, groups * 3), right.substr(0, groups * 3)) << at << ' ' << bit;
        }
}

class DecodeLarge : public testing::Test {
protected:
    TestHome home_;
};

TEST_F(DecodeLarge, BeyondMemory) {
    Bodies bodies(5);
    for (const mim_TransferEncoding encoding : kAll) {
        std::string body;
        while (body.size() < 3 * kKeptInMemory) body += bodies.body(encoding, 500);
        for (const bool text : {false, true}) {
            const Job job{encoding, text, true};
            const std::string expected = decoding::plainly(job, body);
            EXPECT_TRUE(decoding::in_blocks(job, body, 1 << 16) == expected);
            EXPECT_TRUE(decoding::in_pieces(job, body, [] { return decoding::kReaderLimit; }) == expected);
        }
    }
}

// Blanks at a line's end are taken back, however many, also out of a file; or they stay, when the line goes on.
TEST_F(DecodeLarge, BlanksWithoutEnd) {
    const std::string blanks(3 * kKeptInMemory, ' ');
    for (const bool text : {false, true}) {
        const auto decoded = [&](const std::string& body) {
            return decoding::in_pieces({quoted_printable, text}, body, [] { return decoding::kReaderLimit; });
        };
        EXPECT_EQ(decoded("a" + blanks + "\nb\n"), "a\nb\n");
        EXPECT_EQ(decoded("a=" + blanks + "\nb\n"), "ab\n");
        EXPECT_TRUE(decoded("a" + blanks + "b\n") == "a" + blanks + "b\n");
        EXPECT_TRUE(decoded("a" + blanks + "=\nb\n") == "a" + blanks + "b\n");
        EXPECT_TRUE(decoded("a=" + blanks + "b\n") == "a=" + blanks + "b\n");
        EXPECT_EQ(decoded("a=0D" + blanks + "\n"), text ? "a\n" : "a\r\n");
        EXPECT_EQ(decoded("a=0D=" + blanks + "\n=0A"), text ? "a\n" : "a\r\n");
    }
    const std::string before = "text" + blanks + "\r\nbegin 644 a\r\n#0V%T\r\n";
    EXPECT_EQ(decoding::whole({uuencode}, before), "Cat") << "text before an item, out of a file too";
}

// What makes a decoder slow is no slower than what does not: a quadratic reading would take hours.
TEST_F(DecodeLarge, LinearInHostileText) {
    const std::string_view patterns[] = {
        "=",   "= ", " ", "=4",  "=0D",           "=0D \n",           "=\n",  "\r",        "A", "A=",
        "A\n", "\n", "M", "M\n", "begin 644 a\n", "Q2F0Q2F0\nQ2F0\n", "\r\n", "=0D= \n=0A"};
    for (const mim_TransferEncoding encoding : kAll)
        for (const std::string_view pattern : patterns) {
            std::string body;
            while (body.size() < (1 << 20)) body += pattern;
            const auto begin = std::chrono::steady_clock::now();
            decoding::in_blocks({encoding, true}, body, 1 << 16);
            EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20)) << pattern;
        }
}

}  // namespace
