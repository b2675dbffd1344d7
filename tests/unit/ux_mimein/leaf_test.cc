// Leaf parts: types and names that are missing, what the record says, where the bytes go.
#include "ux_mimein/leaf.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/mime.h"

namespace {

using Lines = std::vector<std::string>;

ux_ContentHeader header(std::string_view type, std::string_view disposition = {}, std::string_view encoding = {}) {
    ux_ContentHeader made;
    made.pszSubPartType = type;
    made.pszContentDisposition = disposition;
    made.pszSubPartEncoding = encoding;
    return made;
}

class Leaf : public testing::Test {
protected:
    Leaf() {
        process_.home.write("sys/mimetypes.toml",
                            "type = [\n"
                            "{ mime = \"text/plain\", code = 1167, extensions = [\"txt\"] },\n"
                            "{ mime = \"text/html\", code = 2133, extensions = [\"html\", \"htm\"] },\n"
                            "{ mime = \"application/pdf\", code = 4711, extensions = [\"pdf\"] },\n"
                            "]\n");
    }
    // The only part of a message.
    ConvertedMime leaf(ux_ContentHeader header, std::string_view text = "body\n.\n") {
        ux_MimePart part;
        part.header = std::move(header);
        part.bInImmediateMsg = true;
        part.AtTopLevel = true;
        return process_.convert(std::move(part), text);
    }
    std::string record(ux_ContentHeader header, std::string_view text = "body\n.\n") {
        const ConvertedMime made = leaf(std::move(header), text);
        return made.records.size() == 1 ? made.records[0] : std::to_string(made.records.size()) + " records";
    }
    MimeProcess process_{"UXI_MIME_CS_AUTODETECT = \"unlabelled\"\n"};
};

TEST_F(Leaf, TypesThatAreMissing) {
    struct Row {
        const char *keys, *type, *disposition, *record, *why;
    };
    const Row rows[] = {
        {"", "", "", "1167 set[IA5] 5 type[text/plain; charset=US-ASCII]", "none at all"},
        {"", "text", "", "1167 set[IA5] 5 type[text/plain; charset=US-ASCII]", "one without a slash"},
        {"", "html; charset=utf-8", "", "1167 set[IA5] 5 type[text/plain; charset=US-ASCII]", "its parameters go too"},
        {"", "", "inline; filename=a.html", "2133 set[IA5] 5 type[text/html; charset=US-ASCII]", "HTML by its name"},
        {"", "", "inline; filename=A.HTM", "2133 set[IA5] 5 type[text/html; charset=US-ASCII]", "in any case"},
        {"", "x; name=a.html", "", "2133 set[IA5] 5 type[text/html; charset=US-ASCII]", "a name that the type gives"},
        {"", "", "inline; filename=\"=?utf-8?q?=C3=A4.htm?=\"", "2133 set[IA5] 5 type[text/html; charset=US-ASCII]",
         "an encoded name"},
        {"", "", "inline; filename=a.pdf", "1167 set[IA5] 5 type[text/plain; charset=US-ASCII]",
         "any other name makes it text all the same"},
        {"", "", "inline; filename=html", "1167 set[IA5] 5 type[text/plain; charset=US-ASCII]", "no extension"},
        {"UXI_UNIX_MAIL_CHARSET = \"ISO8859_15\"", "", "",
         "1736 set[ISO8859_15] 5 type[text/plain; charset=ISO-8859-15]", "the default set"},
        {"UXI_UNIX_MAIL_CHARSET = \"ISO8859_15\"", "", "inline; filename=a.htm",
         "2133 set[ISO8859_15] 5 type[text/html; charset=ISO-8859-15]", "of HTML too"},
        {"UXI_UNIX_MAIL_CHARSET = \"\"", "", "", "1167 set[IA5] 5 type[text/plain; charset=US-ASCII]", "an empty one"},
        {"UXI_UNIX_MAIL_CHARSET = \"\"", "", "inline; filename=a.htm",
         "2133 set[IA5] 5 type[text/html; charset=US-ASCII]", "of HTML"},
    };
    for (const Row& row : rows) {
        // Without detection the set that is supplied shows.
        process_.restart_with("UXI_MIME_CS_AUTODETECT = false\n" + std::string(row.keys) + "\n");
        const std::string text = std::string(row.keys).find("15") != std::string::npos ? "caf\xa4\n.\n" : "body\n.\n";
        const std::string made = record(header(row.type, row.disposition), text);
        EXPECT_TRUE(made.starts_with("30500 " + std::string(row.record))) << row.why << ": " << made;
    }
}

TEST_F(Leaf, TypesAndTheirCodes) {
    struct Row {
        const char *type, *record;
    };
    const Row rows[] = {
        {"text/plain", "1167 set[IA5] 5 type[text/plain; charset=US-ASCII]"},
        {"TEXT/PLAIN", "1167 set[IA5] 5 type[TEXT/PLAIN; charset=US-ASCII]"},
        {"text/enriched", "1167 set[IA5] 5 type[text/enriched; charset=US-ASCII]"},
        {"text/plain; charset=us-ascii; format=flowed",
         "1167 set[IA5] 5 type[text/plain; charset=us-ascii; format=flowed]"},
        {"text/html; charset=us-ascii", "2133 set[IA5] 5 type[text/html; charset=us-ascii]"},
        {"application/pdf", "4711 5 type[application/pdf]"},
        {"application/pdf; charset=utf-8", "4711 set[UTF8] 5 type[application/pdf; charset=utf-8]"},
        {"application/octet-stream", "0 5 type[application/octet-stream]"},
        {"application/octet-stream; name=a.pdf", "4711 5 type[application/octet-stream; name=a.pdf]"},
        {"application/octet-stream; name=a.txt",
         "1167 set[IA5] 5 type[application/octet-stream; name=a.txt; charset=US-ASCII]"},
        {"image/png; name=a.pdf", "0 5 type[image/png; name=a.pdf]"},
        {"message/partial; id=x", "0 5 type[message/partial; id=x]"},
        {"message/delivery-status", "0 5 type[message/delivery-status]"},
        {"x/", "0 5 type[x/]"},
        {"/", "0 5 type[/]"},
    };
    for (const Row& row : rows) {
        const std::string made = record(header(row.type));
        EXPECT_TRUE(made.starts_with("30500 " + std::string(row.record))) << row.type << ": " << made;
    }
}

TEST_F(Leaf, EveryFieldOfTheRecord) {
    ux_ContentHeader all = header("application/pdf",
                                  "attachment; filename=a.pdf; modification-date=\"1 Jan 2004 00:00:02 GMT\"; "
                                  "creation-date=\"1 Jan 2004 01:00:01 +0100\"",
                                  "base64");
    all.szContentID = "i@d";
    all.szContentLocation = "l";
    const ConvertedMime made = leaf(all, "AAEC\n.\n");
    EXPECT_EQ(made.records, (Lines{"30600 1072915201 60", "30605 1072915202 0",
                                   "30500 4711 3 type[application/pdf] disp[attachment] id[i@d] at[l] file[a.pdf] "
                                   "subject[a.pdf]"}))
        << "the dates before it";
    EXPECT_EQ(made.items, Lines{std::string("\0\1\2", 3)});
    EXPECT_EQ(made.objects, Lines{}) << "a message's own body has no header of its own";
}

TEST_F(Leaf, SubjectIsTheNameElseThatOfWhatEnclosesIt) {
    EXPECT_EQ(record(header("x/y")), "30500 0 5 type[x/y] subject[S]");
    EXPECT_EQ(record(header("x/y; name=n")), "30500 0 5 type[x/y; name=n] file[n] subject[n]");
    EXPECT_EQ(record(header("x/y; name=\"\"", "inline")), "30500 0 5 type[x/y; name=\"\"] disp[inline] subject[S]")
        << "an empty name is none";
    EXPECT_EQ(record(header("x/y; name=\"gr\xc3\xbcn\"")),
              "30500 0 5 type[x/y; name=\"gr\xc3\xbcn\"] file[gr\xc3\xbcn] subject[=?UTF-8?B?Z3LDvG4=?=]")
        << "in the form of RFC 2047";
    EXPECT_EQ(record(header("x/y; name*=utf-8''gr%C3%BCn")),
              "30500 0 5 type[x/y; name*=utf-8''gr%C3%BCn] file[=?UTF-8?B?Z3LDvG4=?=] subject[=?UTF-8?B?Z3LDvG4=?=]");
}

TEST_F(Leaf, WhetherItIsTextIsAskedInLowerCase) {
    struct Row {
        const char *type, *encoding, *body, *item, *why;
    };
    const Row rows[] = {
        {"text/plain", "8bit", "a\r\nb\r\n.\r\n", "a\nb\n", "text"},
        {"text/x", "8bit", "a\r\nb\r\n.\r\n", "a\nb\n", "any text"},
        {"textual/x", "8bit", "a\r\nb\r\n.\r\n", "a\nb\n", "whatever begins so"},
        {"", "8bit", "a\r\nb\r\n.\r\n", "a\nb\n", "no type"},
        {"x", "8bit", "a\r\nb\r\n.\r\n", "a\nb\n", "one that is none"},
        {"Text/plain", "8bit", "a\r\nb\r\n.\r\n", "a\r\nb\r\n", "but not this one"},
        {"TEXT/PLAIN", "8bit", "a\r\nb\r\n.\r\n", "a\r\nb\r\n", "nor this"},
        {"x/y", "8bit", "a\r\nb\r\n.\r\n", "a\r\nb\r\n", "nor others"},
        {"text/plain", "base64", "YQ0KYg0K\n.\n", "a\nb\n", "decoded line ends too"},
        {"Text/plain", "base64", "YQ0KYg0K\n.\n", "a\r\nb\r\n", "or not"},
        {"text/plain", "base64", "YQ1i\n.\n", "a\rb", "a CR alone stays"},
        {"x/y", "quoted-printable", "a=0D=0Ab\n.\n", "a\r\nb\n", "the line ends of the mail are as they came"},
    };
    for (const Row& row : rows) {
        const ConvertedMime made = leaf(header(row.type, "", row.encoding), row.body);
        EXPECT_EQ(made.items, Lines{row.item}) << row.why;
    }
}

TEST_F(Leaf, EmptyBodies) {
    EXPECT_EQ(record(header("x/y"), ".\n"), "30500 0 0 type[x/y] subject[S]");
    EXPECT_EQ(record({}, ".\n"), "30500 1167 set[IA5] 0 type[text/plain; charset=US-ASCII] subject[S]");
}

TEST_F(Leaf, WhatFollowsTheEndLineIsNotItsText) {
    EXPECT_EQ(leaf({}, "a\n.\nQUIT\n").items, Lines{"a\n"});
    EXPECT_THROW(leaf({}, "a\n"), er_Escape);
    EXPECT_EQ(process_.home.files("data"), Lines{}) << "nothing stays of it";
}

TEST_F(Leaf, TheHeaderOfAPartIsKept) {
    const std::string text = "--b\nX: 1\n\na\n--b--\n.\n";
    EXPECT_EQ(process_.convert("multipart/mixed; boundary=b", text).objects, Lines{"30700 0 inetContentHeader 6"});
    process_.GenObjFiles = false;
    EXPECT_EQ(process_.convert("multipart/mixed; boundary=b", text).objects, Lines{});
}

TEST_F(Leaf, TheFirstTextIsRememberedForTheSecondPart) {
    struct Row {
        std::vector<std::string> types;
        bool remembered;
        const char* why;
    };
    const Row rows[] = {
        {{"text/plain"}, true, "part 1"},
        {{"TEXT/Plain; charset=utf-8"}, true, "in any case"},
        {{""}, true, "text by default"},
        {{"text/plainly"}, true, "whatever begins so"},
        {{"text/enriched"}, false, "another text, even when it turns out to be plain"},
        {{"x/y"}, false, "no text"},
        {{"text/plain", "x/y"}, true, "part 2 still finds it"},
        {{"text/plain", "x/y", "x/y"}, false, "part 3 does not"},
        {{"x/y", "text/plain"}, false, "part 2 is none itself"},
    };
    for (const Row& row : rows) {
        std::string text;
        for (const std::string& type : row.types) text += "--b\nContent-Type: " + type + "\n\na\n";
        process_.convert("multipart/mixed; boundary=b", text + "--b--\n.\n");
        EXPECT_EQ(ux_mime_state().pFirstTxtPartFName.domain != 0, row.remembered) << row.why;
    }
}

}  // namespace
