// The header block of a body part: what is taken out of it, what is kept, how its lines are joined.
#include "ux_mimein/content_header.h"

#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "er/er.h"
#include "ux_in/lines.h"
#include "ux_mimein/mail_input.h"

namespace {

struct Parsed {
    ux_ContentHeader header;
    std::string item;
    bool end = false;
};

class ContentHeader : public testing::Test {
protected:
    Parsed parse(std::string_view text, ux_ContentHeader before = {}) {
        const int fd = ::memfd_create("text", 0);
        EXPECT_EQ(::write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        ::lseek(fd, 0, SEEK_SET);
        ux_reset_mime_input();
        ux_SetInput(fd);
        ux_Input().begin_text();
        Parsed parsed;
        parsed.header = std::move(before);
        im_Item item = im_CrNewDataItem();
        ux_InParseContentHeader(item, parsed.end, parsed.header);
        std::string scratch;
        parsed.item = item.head(std::string::npos, scratch);
        ::close(fd);
        return parsed;
    }
};

TEST_F(ContentHeader, EveryField) {
    const Parsed parsed = parse(
        "content-TYPE: text/plain; charset=utf-8\r\nContent-Transfer-Encoding:  base64 \r\n"
        "Content-Disposition: attachment; filename=x\nContent-ID: junk <abc@x> more\nContent-Description: d\n"
        "Content-MD5: m\nContent-Location: l\nX-Other: o\nno colon\n\nbody\n.\n");
    EXPECT_EQ(parsed.header.pszSubPartType, "text/plain; charset=utf-8");
    EXPECT_EQ(parsed.header.pszSubPartEncoding, "base64");
    EXPECT_EQ(parsed.header.pszContentDisposition, "attachment; filename=x");
    EXPECT_EQ(parsed.header.szContentID, "abc@x");
    EXPECT_EQ(parsed.header.szContentLocation, "l");
    EXPECT_FALSE(parsed.end);
    EXPECT_EQ(
        parsed.item,
        "content-TYPE: text/plain; charset=utf-8\r\nContent-Transfer-Encoding:  base64 \r\n"
        "Content-Disposition: attachment; filename=x\r\nContent-ID: junk <abc@x> more\r\nContent-Description: d\r\n"
        "Content-MD5: m\r\nContent-Location: l\r\nX-Other: o\r\nno colon\r\n");
    EXPECT_EQ(ux_InReadMailText().text, "body") << "nothing is read past the blank line";
}

TEST_F(ContentHeader, FoldedFields) {
    const Parsed parsed = parse(
        "Content-Type: multipart/mixed;\n\tboundary=x;\n  name==?utf-8?q?a?=\n =?utf-8?q?b?=\nContent-ID: <a\n b>c\nX: "
        "1\n 2: y\n\n.\n");
    EXPECT_EQ(parsed.header.pszSubPartType, "multipart/mixed;boundary=x;name==?utf-8?q?a?= =?utf-8?q?b?=")
        << "an encoded word is joined by a blank, anything else by nothing";
    EXPECT_EQ(parsed.header.szContentID, "ab");
    EXPECT_TRUE(parsed.item.ends_with("X: 1\r\n 2: y\r\n")) << "an unknown field's continuation is a line of its own";
}

TEST_F(ContentHeader, WhatIsNotThereStaysAsItWas) {
    ux_ContentHeader before;
    before.szContentLocation = "before";
    before.pszSubPartType = "message/rfc822";
    const Parsed parsed = parse("Content-ID: no brackets\n\n.\n", before);
    EXPECT_EQ(parsed.header.szContentLocation, "before");
    EXPECT_EQ(parsed.header.pszSubPartType, "message/rfc822");
    EXPECT_EQ(parsed.header.szContentID, "");
}

TEST_F(ContentHeader, EndsOfTheBlock) {
    EXPECT_TRUE(parse("Content-Type: a/b\n.\n").end) << "the end line of the message";
    EXPECT_EQ(parse("\n.\n").item, "") << "no field at all";
    EXPECT_THROW(parse("Content-Type: a/b\n"), er_Escape) << "input that ends";
    EXPECT_EQ(parse("Content-Type: a/b\n..x\n\n.\n").item, "Content-Type: a/b\r\n.x\r\n") << "dots are unstuffed";
}

TEST_F(ContentHeader, ValuesAreBounded) {
    const std::string piece(500, 'x');
    const Parsed parsed = parse("Content-Type: " + piece + "\n " + piece + "\n " + piece + "\n y\n\n.\n");
    EXPECT_EQ(parsed.header.pszSubPartType, piece + piece + "y") << "what does not fit below 1,024 is left out";
    EXPECT_EQ(parsed.item.size(), 14 + 500 + 2 + 2 * (1 + 500 + 2) + 4) << "but kept";
}

}  // namespace
