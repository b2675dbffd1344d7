// Uuencoded items: begin lines, lines of every count, and how an item ends.
#include "ux_in/uudecode.h"

#include <random>
#include <string>

#include <gtest/gtest.h>

#include "support/home.h"
#include "support/log_lines.h"
#include "support/message_text.h"

namespace {

char encoded(unsigned value, char zero) { return value == 0 ? zero : static_cast<char>(value + 0x20); }

std::string encode_line(std::string_view bytes, char zero = '`') {
    std::string line(1, encoded(static_cast<unsigned>(bytes.size()), zero));
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        unsigned group = 0;
        for (std::size_t i = 0; i < 3; ++i)
            group = group << 8 | (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0U);
        for (const int shift : {18, 12, 6, 0}) line += encoded(group >> shift & 63, zero);
    }
    return line;
}

// An item's lines as they stand in message text: full lines of 45 bytes, dots doubled.
std::string encode(std::string_view bytes, std::string_view line_end = "\n", char zero = '`') {
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 45) {
        const std::string line = encode_line(bytes.substr(at, 45), zero);
        if (line.starts_with('.')) text += '.';
        text.append(line).append(line_end);
    }
    return text;
}

std::string random_bytes(std::size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

class Uudecode : public testing::Test {
protected:
    // Decodes the item at the front of `text`.
    void decode(std::string_view text) {
        const MessageText input(text);
        end_ = false;
        const im_Item item = ux_InUudecodeItem(ux_Input(), end_);
        std::string scratch;
        item_ = item.view(0, static_cast<std::size_t>(item.size()), scratch);
        next_.clear();
        if (!end_) {
            const ux_MailText line = ux_InReadMailText();
            next_ = line.is_end ? "(end)" : std::string(line.text);
        }
    }

    TestHome home_;
    std::string item_;
    std::string next_;  // the line after the item
    bool end_ = false;
};

TEST(Marker, Lines) {
    const struct {
        const char* line;
        bool found;
        const char *name, *why;
    } rows[] = {
        {"begin 644 name.txt", true, "name.txt", "the usual one"},
        {"begin 0644 name", true, "name", "four digits of mode"},
        {"begin 644 two words ", true, "two words ", "a name with blanks"},
        {"begin 644", true, "", "no name"},
        {"begin 644 ", true, "", "an empty name"},
        {"begin 644  x", true, " x", "one blank is skipped"},
        {"begin 644abc x", true, "x", "whatever clings to the mode is skipped"},
        {"begin 777 x", true, "x", "the largest digits"},
        {"begin 844 x", false, "", "no octal digit, first"},
        {"begin 684 x", false, "", "no octal digit, second"},
        {"begin 648 x", false, "", "no octal digit, third"},
        {"begin 64 x", false, "", "two digits"},
        {"begin 64", false, "", "too short"},
        {"begin ", false, "", "too short"},
        {"begin", false, "", "too short"},
        {"", false, "", "nothing"},
        {"begin  644 x", false, "", "two blanks"},
        {"begin\t644 x", false, "", "a tab"},
        {"Begin 644 x", false, "", "in lower case"},
        {" begin 644 x", false, "", "at the start"},
        {"begin-base64 644 x", false, "", "another encoding"},
    };
    for (const auto& row : rows) {
        const auto name = ux_InIsUuencodeMarker(row.line);
        EXPECT_EQ(name.has_value(), row.found) << row.line << ": " << row.why;
        EXPECT_EQ(name.value_or(""), row.name) << row.line << ": " << row.why;
    }
}

TEST(Marker, NameAndLogAreCut) {
    const LogLines log;
    EXPECT_EQ(ux_InIsUuencodeMarker("begin 644 " + std::string(256, 'n')), std::string(256, 'n'));
    EXPECT_EQ(ux_InIsUuencodeMarker("begin 644 " + std::string(257, 'n')), std::string(256, 'n'));
    EXPECT_EQ(log.count("11 102.1519"), 2U);
    EXPECT_EQ(log.first("11 102.1519"), "11 102.1519 begin 644 " + std::string(256, 'n'));
    ux_InIsUuencodeMarker("begin 644 " + std::string(2000, 'n'));
    EXPECT_EQ(log.all().back(), "11 102.1519 begin 644 " + std::string(1014, 'n'));
    ux_InIsUuencodeMarker("begin 99");
    EXPECT_EQ(log.all().size(), 3U) << "only what is a begin line is logged";
}

TEST_F(Uudecode, EverySize) {
    for (std::size_t size = 1; size <= 200; ++size) {
        const std::string bytes = random_bytes(size, static_cast<unsigned>(size));
        decode(encode(bytes) + "`\nend\n.\n");
        EXPECT_EQ(item_, bytes) << size;
        EXPECT_EQ(next_, size % 45 == 0 ? "end" : "`") << size;
    }
}

TEST_F(Uudecode, EveryValueOfEveryCharacter) {
    // Four characters, the others zero: bytes are exactly the six bits, for codes below 0x20 and above 0x7F too.
    for (int place = 0; place < 4; ++place)
        for (int code = 1; code < 256; ++code) {
            if (code == '\n' || (code == '\r' && place == 3)) continue;
            std::string line = "#    ";
            line[static_cast<std::size_t>(place) + 1] = static_cast<char>(code);
            decode(line + "\n.\n");
            const unsigned group = (static_cast<unsigned>(code - 0x20) & 63U) << (18 - 6 * place);
            const std::string expected{static_cast<char>(group >> 16), static_cast<char>(group >> 8),
                                       static_cast<char>(group)};
            EXPECT_EQ(item_, expected) << place << ' ' << code;
        }
}

TEST_F(Uudecode, FullLinesTakeEveryCharacter) {
    for (int code = 0x21; code < 256; ++code) {
        const std::string characters(60, static_cast<char>(code));
        decode("M" + characters + "\n`\n.\n");
        const unsigned value = static_cast<unsigned>(code - 0x20) & 63U;
        const unsigned group = value << 18 | value << 12 | value << 6 | value;
        std::string expected;
        for (int i = 0; i < 15; ++i)
            for (const int shift : {16, 8, 0}) expected += static_cast<char>(group >> shift);
        EXPECT_EQ(item_, expected) << code;
    }
}

// What a line of count 45 with these characters stands for: missing ones are zero bits.
std::string meaning_of(std::string characters) {
    characters.resize(60, ' ');
    std::string bytes;
    for (std::size_t at = 0; at < characters.size(); at += 4) {
        unsigned group = 0;
        for (std::size_t i = 0; i < 4; ++i)
            group = group << 6 | ((static_cast<unsigned char>(characters[at + i]) - 0x20U) & 63U);
        for (const int shift : {16, 8, 0}) bytes += static_cast<char>(group >> shift & 0xFF);
    }
    return bytes;
}

// Lines that look full to a hurried eye: sixty bytes after the "M" are not always sixty characters of one line.
TEST_F(Uudecode, LinesThatOnlyLookFull) {
    const std::string x59(59, 'X'), x30(30, 'X'), x60(60, 'X');
    const struct {
        std::string text, bytes;
        const char* why;
    } rows[] = {
        {"M" + x60 + "\n", meaning_of(x60), "a full one"},
        {"M" + x60 + "\r\n", meaning_of(x60), "with CR LF"},
        {"M" + x60 + "\r\r\n", meaning_of(x60), "with more CRs"},
        {"M" + x30 + "\nM" + std::string(28, 'Y') + "\n", meaning_of(x30) + meaning_of(std::string(28, 'Y')),
         "a line end inside"},
        {"M" + x59 + "\r\n", meaning_of(x59), "the sixtieth is a CR of the line end"},
        {"M" + x30 + '\0' + std::string(29, 'X') + "\n", meaning_of(x30 + ' ' + std::string(29, 'X')),
         "a NUL is a blank"},
        {"M" + x60 + "Z\n", meaning_of(x60), "one character more"},
        {"M" + x60 + "\rZ\n", meaning_of(x60), "a CR that ends nothing"},
    };
    for (const auto& row : rows) {
        const std::string full = encode_line(random_bytes(45, 1));
        decode(full + "\n" + row.text + "`\nend\n.\n");
        EXPECT_EQ(item_, random_bytes(45, 1) + row.bytes) << row.why;
    }
}

TEST_F(Uudecode, EndsAfterTheFirstCountThatIsNot45) {
    const std::string full = encode(std::string(45, 'x'));
    const std::string bytes(45, 'x');
    const struct {
        std::string text, item, next;
        bool end;
        const char* why;
    } rows[] = {
        {full + "#86)C\n`\nend\n.\n", bytes + "abc", "`", false, "a short line; the empty one stays"},
        {full + "`\nend\n.\n", bytes, "end", false, "a line of count 0, as a grave accent"},
        {full + " \nend\n.\n", bytes, "end", false, "a line of count 0, as a blank"},
        {full + "\nend\n.\n", bytes, "end", false, "a line that lost its blank"},
        {full + "end\n\ntext\n.\n", bytes, "end", false, "the closing line is no data, and stays"},
        {"end\n.\n", "", "end", false, "even at once"},
        {full + "end of it\n.\n", bytes + std::string("\x38\x40\x0F\x18\x02", 5), "(end)", false,
         "a longer line that begins so is data: count 5"},
        {full + full + "#86)C\nmore\n.\n", bytes + bytes + "abc", "more", false, "several full lines"},
        {full + ".\n", bytes, "", true, "the end of the message"},
        {".\n", "", "", true, "the end of the message at once"},
        {"`\nx\n.\n", "", "x", false, "an empty item"},
        {"#86)C\r\nend\r\n.\r\n", "abc", "end", false, "lines that end in CR LF"},
        {full + "end\r\n.\n", bytes, "end", false, "a closing line that ends in CR LF"},
    };
    for (const auto& row : rows) {
        decode(row.text);
        EXPECT_EQ(item_, row.item) << row.why;
        EXPECT_EQ(next_, row.next) << row.why;
        EXPECT_EQ(end_, row.end) << row.why;
    }
}

TEST_F(Uudecode, LinesShorterThanTheirCountAreFilledWithZeroBits) {
    const std::string full = encode_line(std::string(45, '\xFF'));
    for (std::size_t length = 1; length < full.size(); ++length) {
        decode(full.substr(0, length) + "\n`\n.\n");
        std::string expected;
        unsigned bits = 0, held = 0;
        for (std::size_t at = 0; at < 60; ++at) {
            held = held << 6 | (at + 1 < length ? 63U : 0U);
            bits += 6;
            if (bits >= 8) expected += static_cast<char>(held >> (bits -= 8));
        }
        EXPECT_EQ(item_, expected) << length;
    }
    decode("_\n.\n");
    EXPECT_EQ(item_, std::string(63, '\0')) << "the largest count, no character";
}

TEST_F(Uudecode, CountsAbove45EndTheItem) {
    for (std::size_t count = 46; count <= 57; ++count) {
        const std::string bytes = random_bytes(count, 7);
        const std::string line = encode_line(bytes);
        ASSERT_LE(line.size() + 1, 79U);
        decode(line + "\nM\n.\n");
        EXPECT_EQ(item_, bytes) << count;
        EXPECT_EQ(next_, "M") << count;
    }
}

TEST_F(Uudecode, WhatStandsBeyondTheCountIsIgnored) {
    decode("#86)Cxyz and more\n`\n.\n");
    EXPECT_EQ(item_, "abc");
    decode("M" + encode_line(std::string(45, 'q')).substr(1) + "checksum\n#86)C\n.\n");
    EXPECT_EQ(item_, std::string(45, 'q') + "abc");
}

// A line of more than 79 bytes is several: each piece has a count of its own, and what is left when a piece ends the
// item is text.
TEST_F(Uudecode, LongLinesComeInPieces) {
    const std::string line = encode_line(std::string(45, 'q'));
    const std::string padding(79 - line.size(), ' ');
    decode(line + padding + "#86)C and this\n.\n");
    EXPECT_EQ(item_, std::string(45, 'q') + "abc");
    EXPECT_EQ(next_, "(end)") << "the piece ends with its line";

    decode(line + padding + "`" + std::string(78, 'x') + "left over\nnext\n.\n");
    EXPECT_EQ(item_, std::string(45, 'q'));
    EXPECT_EQ(next_, "left over");

    decode(line + padding + "\n#86)C\n.\n");
    EXPECT_EQ(item_, std::string(45, 'q')) << "the line end alone is a piece too, an empty one";
    EXPECT_EQ(next_, "#86)C");

    decode(line + padding.substr(1) + "\n#86)C\n.\n");
    EXPECT_EQ(item_, std::string(45, 'q') + "abc") << "78 characters and the line end are one piece";
}

TEST_F(Uudecode, PiecesOfALongLineNeverEndTheMessage) {
    const std::string line = encode_line(std::string(45, 'q'));
    const std::string padding(79 - line.size(), ' ');
    decode(line + padding + ".\nnext\n.\n");
    EXPECT_EQ(item_, std::string(45, 'q') + std::string(14, '\0')) << "a dot as a count is 14";
    EXPECT_EQ(next_, "next");
    decode(line + padding + "..45\nnext\n.\n");
    EXPECT_EQ(item_.size(), 45U + 14U);
    EXPECT_EQ(item_.substr(45, 3), std::string("\x39\x45\x40", 3)) << "and loses no dot";
    decode(line + padding + "end\nnext\n.\n");
    EXPECT_EQ(item_.size(), 45U + 5U) << "nor is it a closing line";
    EXPECT_EQ(next_, "next");
}

TEST_F(Uudecode, DotsAreUnstuffed) {
    const std::string bytes = random_bytes(14, 3);  // count 14 is a dot
    const std::string line = encode_line(bytes);
    ASSERT_EQ(line[0], '.');
    decode("." + line + "\n.\n");
    EXPECT_EQ(item_, bytes);
    decode(line + "\n.\n");
    EXPECT_EQ(item_, bytes) << "a single dot before other characters stays";
}

TEST_F(Uudecode, LargeItemsInAnyLineEnd) {
    const std::string bytes = random_bytes(3'000'000, 11);
    for (const char* line_end : {"\n", "\r\n", "\r\r\n"})
        for (const char zero : {'`', ' '}) {
            decode(encode(bytes, line_end, zero) + "`\nend\n.\n");
            EXPECT_TRUE(item_ == bytes) << (line_end[0] == '\r') << zero;
        }
}

TEST_F(Uudecode, EndOfInputEscapesAndLeavesNothing) {
    for (const std::string& text : {std::string(), encode(std::string(45, 'x')), encode(std::string(900'000, 'x'))}) {
        const MessageText input(text);
        bool end = false;
        try {
            ux_InUudecodeItem(ux_Input(), end);
            ADD_FAILURE();
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.group(), kGatewayGroup);
            EXPECT_EQ(escape.reason(), 1401);
        }
        EXPECT_FALSE(end);
        EXPECT_EQ(home_.files("data").size(), 0U);
    }
}

TEST_F(Uudecode, FullLinesByNumber) {
    const std::string line = encode_line(std::string(45, 'q')) + "\n";
    const MessageText input(line + line + line + "#86)C\n.\n");
    im_Item item = im_CrNewDataItem();
    ux_Input().peek();
    EXPECT_EQ(ux::append_full_uu_lines(ux_Input(), item, 0), 0U);
    EXPECT_EQ(ux::append_full_uu_lines(ux_Input(), item, 2), 2U);
    EXPECT_EQ(item.size(), 90U);
    EXPECT_EQ(ux::append_full_uu_lines(ux_Input(), item, 9), 1U) << "what is no full line stays";
    EXPECT_EQ(ux_InReadMailText().text, "#86)C");
}

}  // namespace
