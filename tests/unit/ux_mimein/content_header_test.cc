// The header block of a body part: what is taken out of it, what is kept, how its lines are joined.
#include "ux_mimein/content_header.h"

#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/home.h"
#include "support/message_text.h"
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

TEST_F(ContentHeader, ValuesAreCutAtTheirBound) {
    const std::string piece(500, 'x');
    const Parsed parsed = parse("Content-Type: " + piece + "\n " + piece + "\n " + piece + "\n y\n\n.\n");
    EXPECT_EQ(parsed.header.pszSubPartType, piece + piece + std::string(23, 'x')) << "at 1,023 characters";
    EXPECT_EQ(parsed.item.size(), 14 + 500 + 2 + 2 * (1 + 500 + 2) + 4) << "what was cut off is kept";

    const std::string most(1000 - 14, 'x');  // a line of 1,000 characters
    const std::string rest(1023 - most.size() - 1, 'y');
    const auto value = [&](const std::string& more) {
        return parse("Content-Type: " + most + "\n " + rest + more + "\n\n.\n").header.pszSubPartType;
    };
    EXPECT_EQ(value(""), most + rest) << "1,022";
    EXPECT_EQ(value("z"), most + rest + "z") << "1,023";
    EXPECT_EQ(value("zz"), most + rest + "z") << "1,024";
    EXPECT_EQ(value("z\n =?a?="), most + rest + "z") << "not even the blank before an encoded word";
    EXPECT_EQ(parse("Content-Type: " + most + "\n =?a?=\n\n.\n").header.pszSubPartType, most + " =?a?=");
    EXPECT_EQ(parse("Content-Type: " + most + "\n =?" + rest + "?=\n\n.\n").header.pszSubPartType,
              most + " =?" + rest.substr(2))
        << "an encoded word that is cut off";
    EXPECT_EQ(parse("Content-ID: <" + most + "\n " + rest + "zz>\n\n.\n").header.szContentID, most + rest + "z")
        << "an identifier whose end was cut off";
    EXPECT_EQ(parse("Content-ID: <" + most + "\n " + rest + ">z\n\n.\n").header.szContentID, most + rest);
}

TEST_F(ContentHeader, LongLines) {
    const std::string name = "Content-Type: ";
    const std::string fits(1022 - name.size(), 'x');
    EXPECT_EQ(parse(name + fits + "\n\n.\n").header.pszSubPartType, fits) << "1,023 bytes with the line end";
    EXPECT_EQ(parse(name + fits + "\r\n\n.\n").header.pszSubPartType, fits) << "a CR at the cut is not text";

    const Parsed parsed = parse(name + fits + "yContent-ID: <z>\n\n.\n");
    EXPECT_EQ(parsed.header.pszSubPartType, fits + "y") << "more is a line of its own";
    EXPECT_EQ(parsed.header.szContentID, "z") << "and may be a field";
    EXPECT_EQ(parsed.item, name + fits + "y\r\nContent-ID: <z>\r\n");

    const Parsed blank = parse(name + fits + "y\nX: 1\n\n.\n");
    EXPECT_EQ(blank.item, name + fits + "y\r\n") << "a line end alone behind 1,023 bytes is a blank line";
    EXPECT_EQ(parse(name + fits + "y.\n\n.\n").end, false) << "a dot there is not the end";
}

TEST_F(ContentHeader, LongContinuationLines) {
    const Parsed parsed = parse("Content-Type: a/b;\n " + std::string(1022, 'x') + " name=y\n\n.\n");
    EXPECT_EQ(parsed.header.pszSubPartType, "a/b;" + std::string(1019, 'x'));
    EXPECT_EQ(parsed.item, "Content-Type: a/b;\r\n " + std::string(1022, 'x') + "\r\n name=y\r\n")
        << "a rest that begins with a blank goes on";
}

TEST_F(ContentHeader, BytesThatTextDoesNotHold) {
    using namespace std::string_literals;
    const Parsed parsed = parse("Content-Type: a/b\0c\0\n \0d\nContent-Location: \xff\n\n.\n"s);
    EXPECT_EQ(parsed.header.pszSubPartType, "a/b cd") << "a NUL is a blank";
    EXPECT_EQ(parsed.header.szContentLocation, "\xff");
    EXPECT_EQ(parsed.item, "Content-Type: a/b c \r\n  d\r\nContent-Location: \xff\r\n");
    EXPECT_EQ(parse("Content-Type\0: a/b\n\n.\n"s).item, "Content-Type : a/b\r\n");
}

TEST_F(ContentHeader, JoinsOfFoldedLines) {
    struct Row {
        const char *text, *value, *why;
    };
    const Row rows[] = {
        {"attachment;\n filename=x", "attachment;filename=x", "by nothing"},
        {"attachment\n filename=x", "attachmentfilename=x", "even where a blank is missed"},
        {"=?a?q?b?=\n =?a?q?c?=", "=?a?q?b?= =?a?q?c?=", "an encoded word by a blank"},
        {"a;\n\t \t=?a?q?c?=  \n x", "a; =?a?q?c?=x", "whatever it stands behind; the others still by nothing"},
        {"a\n =?b", "a=?b", "a beginning without an end is no word"},
        {"a\n b=?c?q?d?=", "ab=?c?q?d?=", "nor one that begins later"},
        {"a\n =?=", "a =?=", "where both marks are one"},
        {"\n a", "a", "a value that begins on the next line"},
        {"a\n \t \n b", "ab", "a line of blanks"},
        {"  a  \r\n  b  \r\n", "ab", "trimmed, CR LF"},
    };
    for (const Row& row : rows) {
        const Parsed parsed = parse("Content-Disposition: " + std::string(row.text) + "\nX: 1\n\n.\n");
        EXPECT_EQ(parsed.header.pszContentDisposition, row.value) << row.why;
    }
}

TEST_F(ContentHeader, Identifiers) {
    struct Row {
        const char *text, *id, *why;
    };
    const Row rows[] = {
        {"<abc>", "abc", "plain"},
        {"abc", "", "no bracket"},
        {"abc>", "", "the wrong one"},
        {"<abc", "abc", "not closed"},
        {"< abc >", "abc ", "trimmed before it is cut"},
        {"<a<b>>", "a<b", "from the first opening to the first closing one"},
        {"x\n <abc>", "", "an opening one on a continuation line is too late"},
        {"<>", "", "empty"},
        {"<a>\n <b>", "a", "the first"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(parse("Content-ID: " + std::string(row.text) + "\n\n.\n").header.szContentID, row.id) << row.why;
}

TEST_F(ContentHeader, TheLastOfRepeatedFieldsHolds) {
    const Parsed parsed = parse("Content-Type: a/b\nContent-ID: <1>\nContent-Type: c/d\nContent-ID: none\n\n.\n");
    EXPECT_EQ(parsed.header.pszSubPartType, "c/d");
    EXPECT_EQ(parsed.header.szContentID, "1") << "one without brackets is passed over";
    EXPECT_EQ(parse("Content-Type: a/b\nContent-Type:\n\n.\n").header.pszSubPartType, "");
}

TEST_F(ContentHeader, EndLines) {
    EXPECT_FALSE(parse("X: y\n.x\n\n.\n").end) << "a dot and more is text";
    EXPECT_TRUE(parse("Content-Type: a/b\n x\n.\n").end) << "behind a continuation line";
    EXPECT_TRUE(parse(".\n").end) << "at once";
    EXPECT_EQ(parse("Content-Type: a/b\n .\n\n.\n").header.pszSubPartType, "a/b.") << "a folded dot is text";
}

// An item that outgrows memory in a home that has gone.
class FullStore : public ContentHeader {
protected:
    static int reason_of(std::size_t room, std::string_view text) {
        im_Item item;
        {
            TestHome home;
            item = im_CrNewDataItem();
            item.write(std::string(kKeptInMemory - 1000, 'x'));
            item.write(std::string(1000 - room, 'x'));
        }
        const MessageText input(text);
        bool end = false;
        ux_ContentHeader header;
        try {
            ux_InParseContentHeader(item, end, header);
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.group(), kGatewayGroup);
            return escape.reason();
        }
        return 0;
    }
};

TEST_F(FullStore, IsARefusalByWhatCouldNotBeWritten) {
    const std::string text = "Content-Type: a/b;\n c=d\n\n.\n";
    constexpr std::size_t line = 18;         // "Content-Type: a/b;"
    constexpr std::size_t continuation = 4;  // " c=d"
    EXPECT_EQ(reason_of(0, text), 1411) << "a line";
    EXPECT_EQ(reason_of(line, text), 1411) << "its line end";
    EXPECT_EQ(reason_of(line + 2, text), 1412) << "a continuation line";
    EXPECT_EQ(reason_of(line + 2 + continuation, text), 1411) << "its line end";
    EXPECT_EQ(reason_of(line + 2 + continuation + 2, text), 0) << "nothing";
}

}  // namespace
