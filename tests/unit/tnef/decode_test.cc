// Streams expanded into records and items, in order; and nothing at all of a stream that fails.
#include "tnef/decode.h"

#include <sys/resource.h>

#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "mim/content_type.h"
#include "support/bytes.h"
#include "support/child.h"
#include "support/home.h"
#include "support/rtf_compressor.h"
#include "support/tnef_bytes.h"
#include "support/tnef_expanded.h"

namespace {

using namespace tnef_bytes;
using Lines = std::vector<std::string>;

constexpr char kTypes[] = R"(type = [
    { mime = "text/plain", code = 1167, extensions = ["txt"] },
    { mime = "text/html", code = 2133, extensions = ["html"] },
    { mime = "application/pdf", code = 77, extensions = ["pdf"] },
    { mime = "application/x-zero", code = 0, extensions = [] },
    { mime = "application/ploxen-prop", code = 3100, extensions = ["prop"] },
    { mime = "application/x-ploxen-distlist", code = 1166, extensions = [] },
    { mime = "application/ms-tnef", code = 1734, extensions = ["tnef"] },
])";

class Decode : public testing::Test {
protected:
    Decode() {
        home_.write("sys/mimetypes.toml", kTypes);
        mim_reset_types();
    }
    ~Decode() override { mim_reset_types(); }
    TestHome home_;
};

TEST_F(Decode, AnEmptyStream) {
    const Expanded out = expand(TnefBytes().str());
    EXPECT_EQ(out.records, (Lines{"30700 MAPI.ObjectProperties 1", "30710 0 0 0"}));
    EXPECT_EQ(out.texts, Lines{""});
    EXPECT_TRUE(out.items.empty());
}

TEST_F(Decode, EverythingInItsOrder) {
    const Expanded out = expand(TnefBytes()
                                    .begin_attachment()
                                    .title("a.pdf")
                                    .data("first")
                                    .begin_attachment()
                                    .title("b")
                                    .data("second!")
                                    .properties(PropertyBytes().text(0x1000, "Body"))
                                    .item_class("IPM.Microsoft Mail.Note")
                                    .subject("Subject")
                                    .str());
    EXPECT_EQ(out.records, (Lines{"11200 IPM.Note", "30700 MAPI.ObjectProperties 1", "30710 0 0 0",
                                  "30500 1167 4 [Subject]", "30500 77 5 [a.pdf]", "30500 0 7 [b]"}));
    EXPECT_EQ(out.items, (Lines{"Body", "first", "second!"}));
    EXPECT_EQ(out.texts, Lines{"PidTagSubject:unicode=Subject\nPidTagBody:unicode=Body\n"});
    EXPECT_EQ(out.ack, 0);
    EXPECT_FALSE(out.reply);
}

TEST_F(Decode, TheObjectIsAStreamOfTheMessagesProperties) {
    const Expanded out = expand(TnefBytes()
                                    .item_class("IPM.Microsoft Schedule.MtgReq")
                                    .codepage(1252)
                                    .subject("caf\xE9")
                                    .properties(PropertyBytes().number(0x00170003, 2).text8(0x0070, "t\xE9"))
                                    .begin_attachment()
                                    .data("x")
                                    .str());
    ASSERT_EQ(out.objects.size(), 1U);
    EXPECT_EQ(hex(out.objects[0]), hex(TnefBytes().str().substr(0, 4) + u16(1) +
                                       TnefBytes()
                                           .attribute(1, 0x00089006, u32(0x00010000))
                                           .item_class("IPM.Schedule.Meeting.Request")
                                           .properties(PropertyBytes()
                                                           .variable(0x0037001F, bytes("6300 6100 6600 E900 0000"))
                                                           .number(0x00170003, 2)
                                                           .variable(0x0070001F, bytes("7400 E900 0000")))
                                           .str()
                                           .substr(6)));
    const Expanded again = expand(out.objects[0]);
    EXPECT_EQ(again.texts, out.texts) << "it expands to the same properties";
    EXPECT_EQ(again.objects, out.objects) << "and to itself";
}

TEST_F(Decode, PropertiesGoBeforeTheOldAttributesThatSayTheSame) {
    const Expanded out = expand(TnefBytes()
                                    .subject("old")
                                    .attribute(1, 0x0004800D, u16(1))
                                    .properties(PropertyBytes().text(0x0037, "new"))
                                    .str());
    EXPECT_EQ(out.texts, Lines{"PidTagImportance:integer32=2\nPidTagSubject:unicode=new\n"});
}

TEST_F(Decode, AClassOfThePropertiesServesWhereTheAttributeIsMissing) {
    Expanded out = expand(TnefBytes().properties(PropertyBytes().text(0x001A, "IPM.Microsoft Mail.Note")).str());
    EXPECT_EQ(out.records.front(), "11200 IPM.Note");
    out = expand(TnefBytes().item_class("IPM.A").properties(PropertyBytes().text(0x001A, "IPM.B")).str());
    EXPECT_EQ(out.records.front(), "11200 IPM.A");
    out = expand(TnefBytes().item_class("IPM.\xE9\n").str());
    EXPECT_EQ(out.records.front(), "11200 IPM.???") << "a class is ASCII";
}

TEST_F(Decode, RequestsOfTheMessage) {
    const auto flags = [](std::uint32_t receipt, std::uint32_t reply) {
        return TnefBytes().properties(PropertyBytes().number(0x0029000B, receipt).number(0x0C17000B, reply)).str();
    };
    Expanded out = expand(flags(1, 0));
    EXPECT_EQ(out.ack, 7);
    EXPECT_FALSE(out.reply);
    out = expand(flags(0, 1));
    EXPECT_EQ(out.ack, 0);
    EXPECT_TRUE(out.reply);
    out = expand(TnefBytes().embedded(flags(1, 1)).str());
    EXPECT_EQ(out.ack, 0) << "what an embedded message asks for is its own";
    EXPECT_FALSE(out.reply);
    out = expand(flags(1, 1) + "damage");
    EXPECT_EQ(out.ack, 0) << "a stream that fails asks for nothing";
    EXPECT_FALSE(out.reply);
}

TEST_F(Decode, RequestsThatWereMadeStay) {
    im_Item item = im_CrNewDataItem();
    item.write(TnefBytes().properties(PropertyBytes().number(0x0029000B, 1).number(0x0C17000B, 0)).str());
    for (const auto& [before, after] : std::vector<std::pair<int, int>>{{0, 7}, {4, 7}, {7, 7}, {9, 9}}) {
        Msg_File message = Msg_CreateFile("");
        tf_File file = tf_CreateFile();
        auto ack = static_cast<std::int16_t>(before);
        bool reply = true;
        tnef_Decode(message, file, item, ack, reply, true, true);
        EXPECT_EQ(ack, after);
        EXPECT_TRUE(reply);
    }
}

// --- bodies ---------------------------------------------------------------------------------------------------------

const std::string kRtf = "{\\rtf1\\ansi some text}\r\n";

PropertyBytes bodies(bool html, bool rtf, bool text) {
    PropertyBytes list;
    if (text) list.text(0x1000, "plain\r\ntext\r");
    if (rtf) list.variable(0x10090102, compress_rtf(kRtf));
    if (html) list.variable(0x10130102, "<p>\r\nhtml");
    return list;
}

TEST_F(Decode, TheRichestBodyAlone) {
    const auto body = [](bool html, bool rtf, bool text) {
        return expand(TnefBytes().properties(bodies(html, rtf, text)).str());
    };
    for (const bool rtf : {false, true})
        for (const bool text : {false, true}) EXPECT_EQ(body(true, rtf, text).items, Lines{"<p>\nhtml"});
    EXPECT_EQ(body(false, true, true).items, Lines{kRtf}) << "rich text keeps its line ends";
    EXPECT_EQ(body(false, true, false).items, Lines{kRtf});
    EXPECT_EQ(body(false, false, true).items, Lines{"plain\ntext\r"});
    EXPECT_EQ(body(false, false, false).items, Lines{});
}

TEST_F(Decode, FieldsOfABody) {
    struct Row {
        PropertyBytes list;
        std::int32_t code;
        const char *set, *type, *content;
    };
    const std::vector<Row> rows = {
        {bodies(true, false, false), 2133, "IA5", "text/html; charset=US-ASCII", "<p>\nhtml"},
        {bodies(false, true, false), 2130, "", "application/rtf", kRtf.c_str()},
        {bodies(false, false, true), 1167, "IA5", "text/plain; charset=US-ASCII", "plain\ntext\r"},
        {PropertyBytes().text8(0x1000, "caf\xE9"), 1736, "UTF8", "text/plain; charset=UTF-8", "caf\xC3\xA9"},
        {PropertyBytes().variable(0x10130102, "caf\xE9"), 2133, "WIN1251", "text/html; charset=windows-1251",
         "caf\xE9"},
        {PropertyBytes().variable(0x10130102, "caf\xE9").number(0x3FDE0003, 28591), 2133, "ISO8859_1",
         "text/html; charset=ISO-8859-1", "caf\xE9"},
        {PropertyBytes().variable(0x10130102, "caf\xC3\xA9").number(0x3FDE0003, 65001), 2133, "UTF8",
         "text/html; charset=UTF-8", "caf\xC3\xA9"},
        {PropertyBytes().variable(0x10130102, wide("html")).number(0x3FDE0003, 1200), 2133, "IA5",
         "text/html; charset=US-ASCII", "html"},
        {PropertyBytes().variable(0x10130102, "\x82").number(0x3FDE0003, 850), 2133, "UTF8", "text/html; charset=UTF-8",
         "\xC3\xA9"},
        {PropertyBytes().text(0x1013, "html"), 2133, "IA5", "text/html; charset=US-ASCII", "html"},
        {PropertyBytes().text8(0x1013, "caf\xE9"), 2133, "UTF8", "text/html; charset=UTF-8", "caf\xD0\xB9"},
    };
    for (const Row& row : rows) {
        TnefBytes stream;
        if (row.list.str().find("\x10\x1E") == std::string::npos)
            stream.codepage(row.content == rows[3].content ? 1252 : 1251);
        const Expanded out = expand(stream.subject("The subject").properties(row.list).str());
        ASSERT_EQ(out.files.size(), 1U) << row.content;
        EXPECT_EQ(out.files[0].contentType, row.code) << row.content;
        EXPECT_EQ(out.files[0].origContentType, row.code) << row.content;
        EXPECT_EQ(out.files[0].contentFlags, 0U);
        EXPECT_EQ(out.files[0].pContentCharset, row.set) << row.content;
        EXPECT_EQ(out.files[0].pMIMEContentType, row.type) << row.content;
        EXPECT_EQ(out.files[0].rfc2047subject, "The subject");
        EXPECT_EQ(out.items.at(0), row.content);
        EXPECT_EQ(static_cast<std::size_t>(out.files[0].fileSize), out.items.at(0).size());
    }
}

TEST_F(Decode, ABodyOfTheOldAttribute) {
    const Expanded out = expand(TnefBytes().codepage(932).attribute(1, 0x0002800C, bytes("8365 0D0A 00")).str());
    EXPECT_EQ(out.items, Lines{"\xE3\x83\x86\n"});
    EXPECT_EQ(out.files.at(0).contentType, 1736);
    EXPECT_EQ(out.texts, Lines{"PidTagBody:unicode=\xE3\x83\x86\\r\\n\n"});
}

TEST_F(Decode, AnEmptyBodyIsNone) {
    EXPECT_TRUE(expand(TnefBytes().properties(PropertyBytes().variable(0x10130102, "").variable(0x10090102, "")).str())
                    .items.empty());
    EXPECT_TRUE(expand(TnefBytes().attribute(1, 0x0002800C, "").str()).items.empty());
}

TEST_F(Decode, LineEndsAcrossBlocks) {
    std::string text, expected;
    while (text.size() < 100'000) {
        text += "ab\r\n";
        expected += "ab\n";
    }
    for (const std::string prefix : {"", "x", "xy"}) {
        const Expanded out = expand(TnefBytes().properties(PropertyBytes().variable(0x10130102, prefix + text)).str());
        EXPECT_TRUE(out.items.at(0) == prefix + expected);
    }
}

TEST_F(Decode, DamagedRichTextFailsTheStream) {
    std::string rtf = compress_rtf(kRtf);
    rtf.back() = static_cast<char>(rtf.back() ^ 1);
    const Expanded out =
        expand(TnefBytes().item_class("IPM.Note").properties(PropertyBytes().variable(0x10090102, rtf)).str());
    EXPECT_EQ(out.failure, EBADMSG);
    EXPECT_TRUE(out.records.empty());
    const PropertyBytes both = PropertyBytes().variable(0x10090102, rtf).variable(0x10130102, "<p>");
    EXPECT_EQ(expand(TnefBytes().properties(both).str()).items, Lines{"<p>"}) << "nobody asks for it here";
}

TEST_F(Decode, LongValuesAreInTheObjectAlone) {
    const std::string html(40'000, 'h'), note(50'000, 'n');
    const Expanded out = expand(TnefBytes()
                                    .attribute(1, 0x0002800C, zero_ended(note))
                                    .properties(PropertyBytes().number(0x00170003, 1).variable(0x10130102, html))
                                    .str());
    EXPECT_EQ(out.texts, Lines{"PidTagImportance:integer32=1\n"});
    EXPECT_EQ(out.items, Lines{html});
    const Expanded again = expand(out.objects.at(0));
    EXPECT_EQ(again.items, Lines{html});
    EXPECT_EQ(again.objects, out.objects);
    EXPECT_NE(out.objects[0].find(wide(note)), std::string::npos);
}

// --- attachments ----------------------------------------------------------------------------------------------------

Expanded attached(const PropertyBytes& list, std::string_view data = "data", std::string_view title = "TITLE~1.TXT") {
    return expand(
        TnefBytes().subject("Subj").begin_attachment().title(title).data(data).attachment_properties(list).str());
}

TEST_F(Decode, NamesOfAttachments) {
    EXPECT_EQ(attached(PropertyBytes().text(0x3707, "long name.txt").text(0x3704, "short")).files.at(0).rfc2047subject,
              "long name.txt");
    EXPECT_EQ(attached(PropertyBytes().text(0x3704, "short")).files.at(0).rfc2047subject, "TITLE~1.TXT");
    EXPECT_EQ(attached(PropertyBytes().text(0x3704, "short").text(0x3001, "shown"), "", "").files.at(0).rfc2047subject,
              "short");
    EXPECT_EQ(attached(PropertyBytes().text(0x3001, "shown"), "", "").files.at(0).rfc2047subject, "shown");
    const Expanded nameless = attached(PropertyBytes(), "x", "");
    EXPECT_EQ(nameless.files.at(0).rfc2047subject, "Subj");
    EXPECT_EQ(nameless.files.at(0).pOrigFileName, "");
    EXPECT_EQ(attached(PropertyBytes().text(0x3707, "C:\\temp\\a.txt")).files.at(0).pOrigFileName, "a.txt");
    EXPECT_EQ(attached(PropertyBytes().text(0x3707, "../../etc/passwd")).files.at(0).pOrigFileName, "passwd");
    EXPECT_EQ(attached(PropertyBytes().text(0x3707, "folder/")).files.at(0).pOrigFileName, "TITLE~1.TXT");
    EXPECT_EQ(attached(PropertyBytes().variable(0x3707001F, bytes("E900 2E00 7400 7800 7400 0000")))
                  .files.at(0)
                  .rfc2047subject,
              "=?UTF-8?B?w6kudHh0?=");
}

TEST_F(Decode, TypesOfAttachments) {
    struct Row {
        const char *name, *tag, *data;
        std::int32_t code;
        const char *type, *set;
    };
    const std::vector<Row> rows = {
        {"a.pdf", "", "x", 77, "application/octet-stream", ""},
        {"a.bin", "application/pdf", "x", 77, "application/pdf", ""},
        {"a.pdf", "application/x-zero", "x", 77, "application/x-zero", ""},
        {"a", "application/x-unknown", "x", 0, "application/x-unknown", ""},
        {"a.pdf", "no type", "x", 77, "application/octet-stream", ""},
        {"a.pdf", "image/\xC3\xA9", "x", 77, "application/octet-stream", ""},
        {"a.dat", "application/x-ploxen-distlist", "x", 0, "application/x-ploxen-distlist", ""},
        {"a.prop", "", "x", 0, "application/octet-stream", ""},
        {"a.tnef", "", "x", 1734, "application/octet-stream", ""},
        {"a.txt", "", "ascii", 1167, "text/plain; charset=US-ASCII", "IA5"},
        {"a.txt", "", "caf\xC3\xA9", 1736, "text/plain; charset=UTF-8", "UTF8"},
        {"a.txt", "", "caf\xE9", 1736, "text/plain; charset=windows-1252", "WIN1252"},
        {"a.txt", "text/plain; charset=ISO-8859-1", "caf\xE9", 1167, "text/plain; charset=ISO-8859-1", "ISO8859_1"},
        {"a.html", "", "<p>", 2133, "text/html; charset=US-ASCII", "IA5"},
        {"a.html", "text/html", "caf\xC3\xA9", 2133, "text/html; charset=UTF-8", "UTF8"},
    };
    for (const Row& row : rows) {
        PropertyBytes list = PropertyBytes().text(0x3707, row.name);
        if (*row.tag != '\0') list.text8(0x370E, row.tag);
        const Expanded out = attached(list, row.data);
        ASSERT_EQ(out.files.size(), 1U);
        EXPECT_EQ(out.files[0].contentType, row.code) << row.name << ' ' << row.tag;
        EXPECT_EQ(out.files[0].pMIMEContentType, row.type) << row.name << ' ' << row.tag;
        EXPECT_EQ(out.files[0].pContentCharset, row.set) << row.name << ' ' << row.tag;
        EXPECT_EQ(out.items.at(0), row.data) << "byte for byte";
    }
}

TEST_F(Decode, FieldsOfAttachments) {
    Expanded out =
        attached(PropertyBytes().text(0x3712, "id@x").text(0x3713, "http://x.example/").number(0x37140003, 4));
    EXPECT_EQ(out.files.at(0).pContentID, "<id@x>");
    EXPECT_EQ(out.files[0].pContentLocation, "http://x.example/");
    EXPECT_EQ(out.files[0].pContentDisp, "inline");
    out = attached(PropertyBytes().text(0x3712, "<id@x>").variable(0x3713001F, bytes("6100 0A00 6200 0000")));
    EXPECT_EQ(out.files.at(0).pContentID, "<id@x>");
    EXPECT_EQ(out.files[0].pContentLocation, "") << "a line end is no part of a field";
    EXPECT_EQ(out.files[0].pContentDisp, "attachment");
}

TEST_F(Decode, WhereTheDataOfAnAttachmentIs) {
    EXPECT_EQ(attached(PropertyBytes().variable(0x37010102, "property"), "").items, Lines{"property"});
    EXPECT_EQ(attached(PropertyBytes().variable(0x37010102, "property"), "attribute").items, Lines{"attribute"});
    EXPECT_EQ(attached(PropertyBytes().variable(0x3701000D, kStorageIid + "storage"), "").items, Lines{"storage"});
    EXPECT_EQ(attached(PropertyBytes(), "").items, Lines{""}) << "an attachment without data is an empty item";
    const Expanded out = expand(TnefBytes().title("a").data("1").begin_attachment().data("2").title("b").str());
    EXPECT_EQ(out.items, (Lines{"1", "2"})) << "the first one without rendering data";
    EXPECT_EQ(out.files.at(1).rfc2047subject, "b") << "data before the name";
}

TEST_F(Decode, ManyAttachmentsKeepNoDescriptorOpen) {
    TnefBytes stream;
    for (int i = 0; i < 300; ++i) stream.begin_attachment().title("a").data(std::to_string(i));
    EXPECT_EQ(run_in_child([&] {
                  const rlimit limit{64, 64};
                  ::setrlimit(RLIMIT_NOFILE, &limit);
                  const Expanded out = expand(stream.str());
                  return out.items.size() == 300 && out.items[299] == "299" ? 0 : 1;
              }),
              0);
}

// --- embedded messages ----------------------------------------------------------------------------------------------

TEST_F(Decode, AnEmbeddedMessageIsAPackage) {
    const std::string inner = TnefBytes()
                                  .item_class("IPM.Microsoft Mail.Note")
                                  .subject("Inner")
                                  .properties(PropertyBytes().text(0x1000, "inner body"))
                                  .begin_attachment()
                                  .title("inner.pdf")
                                  .data("pdf")
                                  .str();
    const Expanded out = expand(TnefBytes()
                                    .item_class("IPM.Note")
                                    .subject("Outer")
                                    .embedded(inner)
                                    .begin_attachment()
                                    .title("after")
                                    .data("x")
                                    .str());
    EXPECT_EQ(out.records,
              (Lines{"11200 IPM.Note", "30700 MAPI.ObjectProperties 1", "30710 0 0 0", "30100 3 -100 [Inner]",
                     "wrapped 11200 IPM.Note", "wrapped 30700 MAPI.ObjectProperties 1", "wrapped 30710 0 0 0",
                     "30500 1167 10 [Inner]", "30500 77 3 [inner.pdf]", "39000", "30500 0 1 [after]"}));
    EXPECT_EQ(out.items, (Lines{"inner body", "pdf", "x"}));
    EXPECT_EQ(out.texts,
              (Lines{"PidTagSubject:unicode=Outer\n", "PidTagSubject:unicode=Inner\nPidTagBody:unicode=inner body\n"}));
}

TEST_F(Decode, AnEmbeddedMessageHasItsOwnCodePage) {
    const std::string inner = TnefBytes().codepage(1251).subject("\xCF").str();
    const Expanded out = expand(TnefBytes().codepage(1252).subject("\xCF").embedded(inner).str());
    EXPECT_EQ(out.texts, (Lines{"PidTagSubject:unicode=\xC3\x8F\n", "PidTagSubject:unicode=\xD0\x9F\n"}));
    EXPECT_EQ(out.records.at(2), "30100 3 -100 [=?UTF-8?B?0J8=?=]");
}

TEST_F(Decode, ThreeDeep) {
    const auto message = [](const char* subject) { return TnefBytes().subject(subject); };
    const std::string stream =
        message("1").embedded(message("2").embedded(message("3").str()).embedded(message("4").str()).str()).str();
    const Expanded out = expand(stream);
    Lines shape;
    for (const std::string& record : out.records)
        if (record.starts_with("30100") || record.starts_with("39000")) shape.push_back(record);
    EXPECT_EQ(shape, (Lines{"30100 3 -100 [2]", "30100 3 -100 [3]", "39000", "30100 3 -100 [4]", "39000", "39000"}));
}

TEST_F(Decode, WhatLiesTooDeepIsKeptWhole) {
    home_.set_keys("UX_MAX_DEPTH = 2\n");
    const std::string inmost = TnefBytes().subject("3").str();
    const Expanded out = expand(TnefBytes().embedded(TnefBytes().subject("2").embedded(inmost).str()).str());
    EXPECT_EQ(out.records.at(5), "30500 1734 " + std::to_string(inmost.size()) + " [2]");
    EXPECT_EQ(out.items, Lines{inmost});
    EXPECT_EQ(out.files.at(0).pMIMEContentType, "application/ms-tnef");
    EXPECT_EQ(out.records.back(), "39000");
}

TEST_F(Decode, AThousandDeepWithFilesInEach) {
    std::string stream = TnefBytes().begin_attachment().data("inmost").str();
    for (int i = 0; i < 1000; ++i)
        stream = TnefBytes().embedded(stream).begin_attachment().data(std::to_string(i)).str();
    const Expanded out = expand(stream);
    ASSERT_EQ(out.items.size(), 1001U);
    EXPECT_EQ(out.items.front(), "inmost");
    EXPECT_EQ(out.items.back(), "999");
}

// --- failures -------------------------------------------------------------------------------------------------------

std::string a_bit_of_everything() {
    const std::string inner =
        TnefBytes().item_class("IPM.Note").properties(bodies(false, true, true)).begin_attachment().data("x").str();
    return TnefBytes()
        .item_class("IPM.Note")
        .codepage(1252)
        .properties(bodies(true, true, true))
        .begin_attachment()
        .title("a.txt")
        .data("some data")
        .embedded(inner)
        .str();
}

TEST_F(Decode, CutAnywhereNothingOfItStays) {
    const std::string stream = a_bit_of_everything();
    std::size_t failed = 0;
    for (std::size_t size = 0; size < stream.size(); ++size) {
        const Expanded out = expand(stream.substr(0, size));
        if (out.failure == 0) continue;
        ++failed;
        EXPECT_EQ(out.failure, EBADMSG) << size;
        EXPECT_TRUE(out.records.empty()) << size;
        EXPECT_TRUE(out.items.empty()) << size;
    }
    EXPECT_EQ(failed, stream.size() - 8) << "between attributes a stream may end";
    EXPECT_TRUE(home_.files("data").empty()) << "no item is left behind";
}

TEST_F(Decode, ChangedAnywhereItFailsWholeOrIsWhole) {
    const std::string stream = a_bit_of_everything();
    for (std::size_t at = 0; at < stream.size(); ++at) {
        for (const int bit : {0x01, 0x80}) {
            std::string changed = stream;
            changed[at] = static_cast<char>(changed[at] ^ bit);
            const Expanded out = expand(changed);
            if (out.failure == 0) continue;
            EXPECT_EQ(out.failure, EBADMSG) << at;
            EXPECT_TRUE(out.records.empty() && out.items.empty()) << at;
        }
    }
    EXPECT_TRUE(home_.files("data").empty());
}

TEST_F(Decode, AFullDiskLeavesNothing) {
    std::string stream = TnefBytes()
                             .item_class("IPM.Note")
                             .begin_attachment()
                             .data("small")
                             .begin_attachment()
                             .data(std::string(3'000'000, 'x'))
                             .str();
    EXPECT_EQ(run_in_child([&] {
                  im_Item item = im_CrNewDataItem();
                  item.write(stream);
                  item.place();
                  limit_file_size(1'000'000);
                  Msg_File message = Msg_CreateFile("");
                  tf_File file = tf_CreateFile();
                  file.append(tf_Record(TFREC_end_package));
                  std::int16_t ack = 0;
                  bool reply = false;
                  try {
                      tnef_Decode(message, file, item, ack, reply, false, false);
                      return 1;
                  } catch (const er_Escape& escape) {
                      if (escape.reason() != EFBIG) return 2;
                  }
                  item.unlink();
                  return file.item().size() == 16 && message.attached() == 0 && home_.files("data").empty() ? 0 : 3;
              }),
              0);
}

TEST_F(Decode, MemoryDoesNotGrowWithTheStream) {
    EXPECT_EQ(run_in_child([&] {
                  im_Item item = im_CrNewDataItem();
                  const std::string large(30'000'000, 'x');
                  item.write(TnefBytes()
                                 .attribute(1, 0x0002800C, large)
                                 .properties(PropertyBytes().variable(0x10130102, large).variable(0x1000001E, large))
                                 .begin_attachment()
                                 .data(large)
                                 .str());
                  item.place();
                  rusage before{}, after{};
                  ::getrusage(RUSAGE_SELF, &before);
                  Msg_File message = Msg_CreateFile("");
                  tf_File file = tf_CreateFile();
                  std::int16_t ack = 0;
                  bool reply = false;
                  tnef_Decode(message, file, item, ack, reply, false, false);
                  ::getrusage(RUSAGE_SELF, &after);
                  return after.ru_maxrss - before.ru_maxrss < 4096 && message.attached() == 2 ? 0 : 1;
              }),
              0);
}

}  // namespace
