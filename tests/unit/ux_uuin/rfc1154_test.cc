// RFC 1154 bodies: which lines become which parts. A body's records are shown one a line: content files with file type,
// set, name and subject and their content, packages with what is in them.
#include "ux_uuin/rfc1154.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "os/catalog.h"
#include "support/attached_files.h"
#include "support/catalog.h"
#include "support/home.h"
#include "support/log_lines.h"
#include "support/message_text.h"
#include "support/reset.h"
#include "support/shown_records.h"
#include "ux_in/charsets.h"
#include "ux_in/lines.h"

namespace {

using Lines = std::vector<std::string>;

// Line ends as \n and \r, and long runs of a character as "x*1000".
std::string escaped(std::string_view content) {
    std::string text;
    for (std::size_t at = 0; at < content.size(); ++at) {
        const char c = content[at];
        const std::size_t run = std::min(content.find_first_not_of(c, at), content.size()) - at;
        if (run > 99) {
            text += c + ("*" + std::to_string(run));
            at += run - 1;
            continue;
        }
        if (c == '\n')
            text += "\\n";
        else if (c == '\r')
            text += "\\r";
        else
            text += c;
    }
    return text;
}

class Rfc1154 : public testing::Test {
protected:
    explicit Rfc1154(std::string_view keys = {}) : home_(keys) {
        ux_charsets().FromCharSet = "ISO8859_1";
        ux_charsets().ToLatinCS = "ISO8859_1";
        ux_charsets().DoCSAutoDetect = 'N';  // what a set is called must not depend on a guess here
        write_catalog(home_, "$set 102\n$quote \"\n1543 \"The rest is lost.\\n\"\n");
        os_MCOpen(102);
    }
    ~Rfc1154() override { os_MCClose(); }

    // Converts a body; what is left of the text is in rest_, each line in brackets.
    Lines parts(std::string_view list, std::string_view text) {
        const MessageText input(text);
        convert(list);
        rest_.clear();
        while (!EndOfMsg_) {
            const ux_MailText line = ux_InReadMailText();
            EndOfMsg_ = line.is_end;
            if (!EndOfMsg_) rest_ += "[" + std::string(line.text) + "]";
        }
        return show();
    }

    void convert(std::string_view list) {
        TfHandle_ = tf_CreateFile();
        MsgHandle_ = Msg_CreateFile("");
        EndOfMsg_ = false;
        ux_InParseRfc1154Content({.TfHandle = TfHandle_,
                                  .pRfc2047subject = "subject",
                                  .pFromCharSet = ux_charsets().FromCharSet,
                                  .pEncoding = list,
                                  .MsgHandle = MsgHandle_,
                                  .pEndOfMsg = EndOfMsg_,
                                  .GenObjFiles = GenObjFiles_});
    }

    Lines show() {
        std::vector<tf_Record> records;
        tf_Record record;
        for (tf_UnreadFile(TfHandle_); tf_ReadRecord(TfHandle_, record);) records.push_back(record);
        const Lines contents = attached_files(MsgHandle_, std::move(TfHandle_));
        Lines lines;
        std::size_t file_number = 0;
        for (const tf_Record& each : records) {
            if (each.type() != TFREC_content_file_type) {
                if (wrapped_ || each.type() != TFREC_wrapped) lines.push_back(::shown(each));
                continue;
            }
            const TFREC_content_file file = tf_ContentFileRecToStruc(each);
            const std::string content = file_number < contents.size() ? contents[file_number] : "(none)";
            ++file_number;
            if (file.contentType == 1166) {
                lines.push_back("list|" + file.rfc2047subject);
                EXPECT_EQ(file.fileSize, 0);
                continue;
            }
            EXPECT_EQ(file.fileSize, static_cast<std::int32_t>(content.size()));
            EXPECT_EQ(file.origContentType, file.contentType);
            EXPECT_EQ(file.contentFlags, 0U);
            lines.push_back(std::to_string(file.contentType) + "|" + file.pContentCharset + "|" + file.pOrigFileName +
                            "|" + file.rfc2047subject + "|" + escaped(content));
        }
        EXPECT_EQ(file_number, contents.size()) << "a record for each file";
        return lines;
    }

    TestHome home_;
    LogLines log_;
    FreshGateway fresh_;
    tf_File TfHandle_;
    Msg_File MsgHandle_;
    bool EndOfMsg_ = false;
    bool GenObjFiles_ = true;
    bool wrapped_ = false;  // show wrapped records
    std::string rest_;
};

std::string text_part(std::string_view content) { return "1167|IA5||subject|" + std::string(content); }
std::string hex_part(std::string_view content) { return "0|||subject|" + std::string(content); }
std::string uu_part(std::string_view name, std::string_view content) {
    return "0||" + std::string(name) + "|" + std::string(name.empty() ? "subject" : name) + "|" + std::string(content);
}
const std::string kNotice = "1167|IA5||subject|The rest is lost.\\n";

TEST_F(Rfc1154, TextByCount) {
    const struct {
        std::string list, text;
        Lines parts;
        const char* why;
    } rows[] = {
        {"text", "a\nb\n.\n", {text_part("a\\nb\\n")}, "without a count to the end"},
        {"2 text", "a\nb\n.\n", {text_part("a\\nb\\n")}, "all that there is"},
        {"1 text, text", "a\nb\nc\n.\n", {text_part("a\\n"), text_part("b\\nc\\n")}, "no separator"},
        {"1 text, text", "a\n\nb\n.\n", {text_part("a\\n"), text_part("b\\n")}, "a blank line between two parts"},
        {"1 text, text", "a\n\n\nb\n.\n", {text_part("a\\n"), text_part("\\nb\\n")}, "only one of two"},
        {"1 text, text", "a\n -- x\nb\n.\n", {text_part("a\\n"), text_part("b\\n")}, "one that begins with a blank"},
        {"1 text, text", "a\n\tx\n.\n", {text_part("a\\n"), text_part("\tx\\n")}, "a tab is no blank here"},
        {"1 text, text", "a\r\n\r\nb\r\n.\r\n", {text_part("a\\n"), text_part("b\\n")}, "CR LF is a line feed"},
        {"1 text, text", "a\n\r\r\nb\n.\n", {text_part("a\\n"), text_part("b\\n")}, "with more CRs too"},
        {"1 text, text", "a\n\rx\n.\n", {text_part("a\\n"), text_part("\\rx\\n")}, "a CR that begins a line is text"},
        {"0 text, text", "\na\n.\n", {text_part("a\\n")}, "no part, but a separator behind it"},
        {"0 text, 0 hex, 0 uuencode, 0 message, text", "a\n.\n", {text_part("a\\n")}, "nothing of any kind"},
        {"9 text, text", "a\nb\n.\n", {text_part("a\\nb\\n")}, "a count too large ends with the message"},
        {"99999999999999999999 text", "a\n.\n", {text_part("a\\n")}, "or much too large"},
        {"1 text, 1 text, 1 text",
         "a\n\nb\n.\n",
         {text_part("a\\n"), text_part("b\\n"), text_part("")},
         "the end line is found by the part behind it"},
        {"1 text", "..a\n.\n", {text_part(".a\\n")}, "a doubled dot"},
        {"2 text", "a\n..\n.\n", {text_part("a\\n.\\n")}, "alone on its line"},
        {"text", ".\n", {text_part("")}, "nothing is a part too"},
        {"1 text", "caf\xE9\n.\n", {"1167|ISO8859_1||subject|caf\xE9\\n"}, "8-bit text has a set"},
        {"1 text, 1 text",
         "caf\xE9\n\na\n.\n",
         {"1167|ISO8859_1||subject|caf\xE9\\n", text_part("a\\n")},
         "each part its own"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(parts(row.list, row.text), row.parts) << row.list << ": " << row.why;
        EXPECT_EQ(rest_, "") << row.why;
    }
}

TEST_F(Rfc1154, ALineOfAnyLengthIsOneLine) {
    const std::string line(5000, 'x');
    EXPECT_EQ(parts("1 text, 1 text, text", line + "\n" + line + "\nlast\n.\n"),
              (Lines{text_part("x*5000\\n"), text_part("x*5000\\n"), text_part("last\\n")}));
    const std::string piece(1023, 'x');  // what follows is no line start
    EXPECT_EQ(parts("1 text, text", piece + ".\nb\n.\n"), (Lines{text_part("x*1023.\\n"), text_part("b\\n")}));
    EXPECT_EQ(parts("1 text, text", "a\n " + line + "\nb\n.\n"), (Lines{text_part("a\\n"), text_part("b\\n")}))
        << "a long separator";
}

TEST_F(Rfc1154, WhatTheListDoesNotDescribeIsLeft) {
    EXPECT_EQ(parts("1 text", "a\nb\nc\n.\n"), Lines{text_part("a\\n")});
    EXPECT_EQ(rest_, "[b][c]");
    EXPECT_EQ(parts("1 text", "a\n\nb\n.\n"), Lines{text_part("a\\n")});
    EXPECT_EQ(rest_, "[b]") << "but for a separator";
    EXPECT_EQ(parts("1 text, -1 text", "a\nb\n.\n"), Lines{text_part("a\\n")}) << "a malformed entry ends the list";
    EXPECT_EQ(parts("", "a\n.\n"), Lines{});
    EXPECT_EQ(rest_, "[a]");
    EXPECT_EQ(log_.count("3 102.1531"), 0U) << "none of this is a failure";
}

TEST_F(Rfc1154, NothingIsReadOfAnEndedMessage) {
    const MessageText input("a\n.\n");
    TfHandle_ = tf_CreateFile();
    MsgHandle_ = Msg_CreateFile("");
    EndOfMsg_ = true;
    ux_InParseRfc1154Content({.TfHandle = TfHandle_,
                              .pRfc2047subject = "subject",
                              .pFromCharSet = "IA5",
                              .pEncoding = "text",
                              .MsgHandle = MsgHandle_,
                              .pEndOfMsg = EndOfMsg_});
    EXPECT_EQ(TfHandle_.end(), 0);
    EXPECT_EQ(ux_InReadMailText().text, "a");
}

TEST_F(Rfc1154, HexByCount) {
    const std::string long_line(30'000, '4');
    const struct {
        std::string list, text;
        Lines parts;
        const char* why;
    } rows[] = {
        {"1 hex", "414243\n.\n", {hex_part("ABC")}, "digits"},
        {"hex", "41\n42\n\n43\n.\n", {hex_part("ABC")}, "lines of any length, also none"},
        {"1 hex", "4a4B\n.\n", {hex_part("AB")}, "letters have their low four bits: a is 1, B is 2"},
        {"1 hex", "..1\n.\n", {hex_part("\xE1")}, "a dot too many goes, the other is a character"},
        {"2 hex, text", "41\n42\n\nx\n.\n", {hex_part("AB"), text_part("x\\n")}, "text behind it"},
        {"hex", ".\n", {hex_part("")}, "nothing"},
        {"1 hex", "414\n.\n", {hex_part(""), kNotice}, "an odd line fails"},
        {"hex", "41\n414\n42\n.\n", {hex_part("A"), kNotice}, "what came before it stays"},
        {"1 hex, text", "414\nx\n.\n", {hex_part(""), kNotice}, "and the rest is not converted"},
        {"1 hex", long_line + "\n.\n", {hex_part("D*15000")}, "a line longer than a piece"},
        {"1 hex", long_line + "4\n.\n", {hex_part(""), kNotice}, "an odd one fails at its end"},
        {"1 hex", "41\r\n.\r\n", {hex_part("A")}, "CR is no digit at a line end"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(parts(row.list, row.text), row.parts) << row.text.substr(0, 20) << ": " << row.why;
    }
    EXPECT_EQ(log_.count("7 102.1533"), 4U);
    EXPECT_EQ(log_.count("3 102.1531"), 4U);
}

TEST_F(Rfc1154, UuencodeByCount) {
    const std::string full = "M" + std::string(60, '!') + "\n";
    std::string full_bytes;
    for (int i = 0; i < 15; ++i) full_bytes += "\x04\x10\x41";
    const struct {
        std::string list, text;
        Lines parts;
        const char* why;
    } rows[] = {
        {"4 uuencode", "begin 644 x\n#86)C\n`\nend\n.\n", {uu_part("x", "abc")}, "an item"},
        {"uuencode", "begin 644 x\n#86)C\n`\nend\n.\n", {uu_part("x", "abc")}, "without a count"},
        {"3 uuencode, text", "begin\n#86)C\nend\n\nx\n.\n", {uu_part("", "abc"), text_part("x\\n")}, "without a name"},
        {"3 uuencode", "begin 644\n#86)C\nend\n.\n", {uu_part("", "abc")}, "or with two words"},
        {"3 uuencode", "begin  644   a b\n#86)C\nend\n.\n", {uu_part("a", "abc")}, "words may stand apart"},
        {"3 uuencode", "beginner of x\n#86)C\nending\n.\n", {uu_part("x", "abc")}, "begin and end are how lines begin"},
        {"5 uuencode", "words\n\nbegin 644 x\n#86)C\nend\n.\n", {uu_part("x", "abc")}, "lines before count"},
        {"2 uuencode, text",
         "words\nbegin 644 x\n#86)C\n.\n",
         {uu_part("x", ""), text_part("#86)C\\n")},
         "an item cut"},
        {"2 uuencode", "words\nmore\n.\n", {uu_part("", "")}, "without a begin line there is nothing"},
        {"9 uuencode, text",
         "begin 644 x\n#86)C\nend\nleft\nx\n.\n",
         {uu_part("x", "abc"), text_part("left\\nx\\n")},
         "the end line ends the part, whatever its count"},
        {"4 uuencode", "begin 644 x\n" + full + "#86)C\nend\n.\n", {uu_part("x", full_bytes + "abc")}, "full lines"},
        {"2 uuencode, text",
         "begin 644 x\n" + full + full + ".\n",
         {uu_part("x", full_bytes), text_part("M" + std::string(60, '!') + "\\n")},
         "by count too"},
        {"4 uuencode", "begin 644 x\n\n#86)C\nend\n.\n", {uu_part("x", "abc")}, "a blank line stands for nothing"},
        {"4 uuencode",
         "begin 644 x\n#86)C" + std::string(3000, 'x') + "\n#86)C\nend\n.\n",
         {uu_part("x", "abcabc")},
         "what a line has beyond its count means nothing"},
        {"4 uuencode", "begin 644 x\n#86\n#86)C\nend\n.\n", {uu_part("x", ""), kNotice}, "a line too short fails"},
        {"4 uuencode",
         "begin 644 x\n#86)\nend\n.\n",
         {uu_part("x", "ab@")},
         "one that has as many as it counts does not"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(parts(row.list, row.text), row.parts) << row.text.substr(0, 40) << ": " << row.why;
    }
    EXPECT_EQ(log_.count("7 102.1532"), 1U);
}

TEST_F(Rfc1154, InputThatEndsIsAnEscape) {
    for (const char* list : {"text", "2 text", "hex", "9 hex", "uuencode", "message", "1 text, text", "1 hex"}) {
        const MessageText input("41\n");
        try {
            convert(list);
            while (!EndOfMsg_) EndOfMsg_ = ux_InReadMailText().is_end;
            ADD_FAILURE() << list;
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.group(), kGatewayGroup);
            EXPECT_EQ(escape.reason(), 1401) << list;
        }
        MsgHandle_ = Msg_File();
        TfHandle_ = tf_File();
    }
    EXPECT_TRUE(home_.files("data").empty()) << "nothing is left";
}

TEST_F(Rfc1154, AMessageIsAPackage) {
    EXPECT_EQ(parts("message", "Subject: inner\n\na\nb\n.\n"),
              (Lines{"30100 3 -100 inner", "list|inner", "1167|IA5|||a\\nb\\n", "39000"}));
    EXPECT_EQ(parts("4 message, text", "Subject: inner\n\na\nb\n\nx\n.\n"),
              (Lines{"30100 3 -100 inner", "list|inner", "1167|IA5|||a\\nb\\n", "39000", text_part("x\\n")}))
        << "its header and blank line are in its count";
    EXPECT_EQ(parts("2 message, text", "Subject: inner\n\nx\n.\n"),
              (Lines{"30100 3 -100 inner", "list|inner", "39000", text_part("x\\n")}))
        << "a header alone";
    EXPECT_EQ(parts("1 message, text", "Subject: inner\n\nx\n.\n"),
              (Lines{"30100 3 -100 inner", "list|inner", "39000", text_part("x\\n")}))
        << "a count less than its header: the header is whole, a body there is not";
    EXPECT_EQ(parts("message, text", "Subject: inner\n.\n"), (Lines{"30100 3 -100 inner", "list|inner", "39000"}))
        << "the end line in its header";
    EXPECT_EQ(parts("message", "\na\n.\n"), (Lines{"30100 3 -100 ", "list|", "1167|IA5|||a\\n", "39000"}))
        << "no header at all";
}

TEST_F(Rfc1154, AMessageHasAListOfItsOwn) {
    EXPECT_EQ(parts("9 message, text", "Encoding: 1 text, 1 hex\n\na\n\n41\n\nx\n.\n"),
              (Lines{"30100 3 -100 ", "list|", "1167|IA5|||a\\n", "0||||A", "39000", text_part("x\\n")}));
    EXPECT_EQ(parts("99 message, text", "Encoding: 1 text\n\na\nx\n.\n"),
              (Lines{"30100 3 -100 ", "list|", "1167|IA5|||a\\n", "39000", text_part("x\\n")}))
        << "which says where it ends";
    EXPECT_EQ(parts("message", "Encoding:\n\na\n.\n"), (Lines{"30100 3 -100 ", "list|", "1167|IA5|||a\\n", "39000"}))
        << "an empty one is none";
    EXPECT_EQ(parts("message, text", "Encoding: -1 text\n\na\n.\n"),
              (Lines{"30100 3 -100 ", "list|", "39000", text_part("a\\n")}))
        << "a malformed one describes nothing";
}

TEST_F(Rfc1154, AFailureEndsItsOwnMessageOnly) {
    EXPECT_EQ(
        parts("message, text", "Encoding: 1 hex, 1 text\n\n414\nx\n.\n"),
        (Lines{"30100 3 -100 ", "list|", "0||||", "1167|IA5|||The rest is lost.\\n", "39000", text_part("x\\n")}));
    EXPECT_EQ(log_.count("3 102.1531"), 1U);
}

TEST_F(Rfc1154, MessagesInMessages) {
    EXPECT_EQ(parts("message, text",
                    "Subject: 1\nEncoding: message, 1 text\n\nSubject: 2\nEncoding: 1 text\n\nb\n\na\n\nx\n.\n"),
              (Lines{"30100 3 -100 1", "list|1", "30100 3 -100 2", "list|2", "1167|IA5|||b\\n", "39000",
                     "1167|IA5|||a\\n", "39000", text_part("x\\n")}));
}

TEST_F(Rfc1154, FieldsOfAnEncapsulatedHeaderAreWrapped) {
    wrapped_ = true;
    const Lines lines =
        parts("message", "Subject: inner\nDate: Sat, 21 Nov 2026 10:00:00 +0100\nPriority: urgent\n\n.\n");
    EXPECT_EQ(lines,
              (Lines{"30100 3 -100 inner", "(1100 class 0 type 0 flags 1024 hops 0)", "(11100 inner)",
                     "(13000 1795251600 60)", "(30700 1 inetMessageHeader 73)", "list|inner", "1167|IA5|||", "39000"}))
        << "no flags";
    GenObjFiles_ = false;
    EXPECT_EQ(of_type(parts("message", "Subject: inner\n\n.\n"), 30700), Lines{});
}

TEST_F(Rfc1154, BeginningAMessage) {
    const auto list_of = [&](std::int32_t NumLines, std::string_view text, std::size_t limit = 100) {
        const MessageText input(text);
        TfHandle_ = tf_CreateFile();
        MsgHandle_ = Msg_CreateFile("");
        EndOfMsg_ = false;
        const auto list = ux_InParseRfc1154SubMsg({.TfHandle = TfHandle_,
                                                   .pRfc2047subject = "subject",
                                                   .pFromCharSet = "IA5",
                                                   .pEncoding = "",
                                                   .MsgHandle = MsgHandle_,
                                                   .pEndOfMsg = EndOfMsg_},
                                                  NumLines, limit);
        return list.value_or("(none)");
    };
    EXPECT_EQ(list_of(0, "A: b\n\n.\n"), "(none)");
    EXPECT_EQ(TfHandle_.end(), 0) << "nothing is done for a count of 0";
    EXPECT_EQ(list_of(5, "A: b\n\n.\n"), "3 text");
    EXPECT_EQ(list_of(2, "A: b\n\n.\n"), "0 text");
    EXPECT_EQ(list_of(1, "A: b\n\n.\n"), "-1 text");
    EXPECT_EQ(list_of(2147483647, "A: b\n\n.\n"), "2147483645 text");
    EXPECT_EQ(list_of(-1, "A: b\n\n.\n"), "text");
    EXPECT_EQ(list_of(5, "Encoding: 1 hex\n\n.\n"), "1 hex");
    EXPECT_EQ(list_of(5, "Encoding: 1 hex\n\n.\n", 4), "3 text") << "a list that is left out is none";
    EXPECT_FALSE(EndOfMsg_);
    EXPECT_EQ(list_of(5, "Encoding: 1 hex\n.\n"), "");
    EXPECT_TRUE(EndOfMsg_);
}

// The catalog's texts are UTF-8.
TEST_F(Rfc1154, TheNoticeIsInTheReadersLanguage) {
    write_catalog(home_, "$set 102\n$quote \"\n1543 \"Der Rest ist f\xC3\xBCr immer fort.\\n\"\n");
    os_MCOpen(102);
    EXPECT_EQ(parts("1 hex", "4\n.\n"),
              (Lines{hex_part(""), "1167|ISO8859_1||subject|Der Rest ist f\xFCr immer fort.\\n"}));
    os_MCClose();
    EXPECT_EQ(parts("1 hex", "4\n.\n"), (Lines{hex_part(""), text_part("")})) << "without a catalog it says nothing";
}

std::string nested(int levels) {
    std::string text;
    for (int i = 1; i < levels; ++i) text += "Encoding: message\n\n";
    return text + "Subject: last\n\nbody\n.\n";
}

class Bounded : public Rfc1154 {
protected:
    Bounded() : Rfc1154("UX_MAX_DEPTH = 3\n") {}
};

TEST_F(Bounded, DeeperMessagesAreKeptWhole) {
    Lines lines = parts("message", nested(3));
    EXPECT_EQ(of_type(lines, 30100).size(), 3U);
    EXPECT_EQ(lines[lines.size() - 4], "1167|IA5|||body\\n");
    EXPECT_EQ(log_.count("5 100.24071"), 0U);

    lines = parts("message", nested(4));
    EXPECT_EQ(of_type(lines, 30100).size(), 3U);
    EXPECT_EQ(lines[lines.size() - 4], "0||||Subject: last\\n\\nbody\\n");
    EXPECT_EQ(log_.count("5 100.24071"), 1U);
}

TEST_F(Bounded, WhatIsKeptIsKeptByteForByte) {
    const std::string outer = "Encoding: message\n\nEncoding: message\n\nEncoding: 3 message, text\n\n";
    const Lines lines = parts("message", outer + "A: b\r\n\r\n..x\r\ntext\r\n.\r\n");
    EXPECT_EQ(lines[lines.size() - 5], "0||||A: b\\r\\n\\r\\n.x\\r\\n") << "by its count, with its line ends";
    EXPECT_EQ(lines[lines.size() - 4], "1167|IA5|||text\\n");
}

TEST_F(Rfc1154, TenThousandLevels) {
    Lines lines = parts("message", nested(10'000));
    EXPECT_EQ(of_type(lines, 30100).size(), 10'000U);
    lines = parts("message", nested(10'001));
    EXPECT_EQ(of_type(lines, 30100).size(), 10'000U);
}

// Continuation lines repeat a list's first line: what an encapsulated message's list holds is bounded, and what all
// open lists hold together.
std::string growing(int continuation_lines, const std::string& first) {
    std::string value = first;
    while (value.size() < 1000) value += "0 text,";
    std::string header = "Encoding: " + value + "\n";
    for (int i = 0; i < continuation_lines; ++i) header += " x\n";
    return header + "\n";
}

TEST_F(Rfc1154, AListThatGrowsIsBounded) {
    // Sixteen repetitions fit; each takes one line of text.
    for (const int repetitions : {10, 16, 2000}) {
        std::string text = growing(repetitions - 1, "1 text,");
        for (int i = 0; i < 20; ++i) text += "line\n";
        const Lines lines = parts("message", text + ".\n");
        EXPECT_EQ(std::ranges::count(lines, "1167|IA5|||line\\n"), std::min(repetitions, 16)) << repetitions;
    }
}

TEST_F(Rfc1154, ListsOfOpenMessagesAreBoundedTogether) {
    std::string text;
    for (int i = 0; i < 100; ++i) text += growing(15, "message,");  // of each all but its first entry stays open
    const Lines lines = parts("message", text + "last\n.\n");
    const std::size_t open = of_type(lines, 30100).size();
    EXPECT_TRUE(open > 60 && open < 70) << open << ": of 16 KB each";
    EXPECT_TRUE(std::ranges::any_of(lines, [](const std::string& line) { return line.ends_with("\\nlast\\n"); }))
        << "the first that has no list left is text, with all that is in it";
}

}  // namespace
