// Plain bodies: which lines become which parts. A message's parts are shown one a line: file type, character set,
// subject, content.
#include "ux_in/plain_body.h"

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/attached_files.h"
#include "support/home.h"
#include "support/log_lines.h"
#include "support/message_text.h"
#include "ux_in/charsets.h"
#include "ux_in/part_info.h"

namespace {

std::string shown(std::string_view content) {
    std::string text;
    for (const char c : content) {
        if (c == '\n')
            text += "\\n";
        else
            text += c;
    }
    return text;
}

// A uuencoded item whose lines have the counts that the letters say: F full, S the three bytes "abc", 0 none.
std::string item(std::string_view lines, std::string_view name = "x") {
    std::string text = "begin 644 " + std::string(name) + "\n";
    for (const char line : lines)
        text += line == 'F' ? "M" + std::string(60, ' ') + "\n" : line == 'S' ? "#86)C\n" : "`\n";
    return text;
}

const std::string kFull(45, '\0');

class PlainBody : public testing::Test {
protected:
    PlainBody() {
        ux_reset_charsets();
        ux_reset_part_info();
        ux_charsets().FromCharSet = "ISO8859_1";
        ux_charsets().ToLatinCS = "ISO8859_1";
        ux_charsets().DoCSAutoDetect = 'N';  // what a set is called must not depend on a guess here
    }
    ~PlainBody() override {
        ux_reset_charsets();
        ux_reset_part_info();
    }

    // Converts a body and shows its parts.
    std::vector<std::string> parts(std::string_view text, bool UudecodeMsg = true, std::string_view pEncoding = {}) {
        const MessageText input(text);
        convert(UudecodeMsg, pEncoding);
        EXPECT_TRUE(EndOfMsg_);
        return show();
    }

    void convert(bool UudecodeMsg, std::string_view pEncoding, bool at_end = false) {
        TfHandle_ = tf_CreateFile();
        MsgHandle_ = Msg_CreateFile("");
        EndOfMsg_ = at_end;
        ux_InParseUnixMsgContent({.TfHandle = TfHandle_,
                                  .pParentRfc2047subject = "subject",
                                  .UudecodeMsg = UudecodeMsg,
                                  .pEncoding = pEncoding,
                                  .MsgHandle = MsgHandle_,
                                  .EndOfMsg = EndOfMsg_});
    }

    std::vector<std::string> show() {
        std::vector<TFREC_content_file> records;
        tf_Record record;
        for (tf_UnreadFile(TfHandle_); tf_ReadRecord(TfHandle_, record);) {
            EXPECT_EQ(record.type(), TFREC_content_file_type);
            records.push_back(tf_ContentFileRecToStruc(record));
        }
        EXPECT_EQ(records.size(), MsgHandle_.attached());
        const std::vector<std::string> contents = attached_files(MsgHandle_, std::move(TfHandle_));
        std::vector<std::string> lines;
        for (std::size_t i = 0; i < records.size() && i < contents.size(); ++i) {
            const TFREC_content_file& file = records[i];
            EXPECT_EQ(file.fileSize, static_cast<std::int32_t>(contents[i].size()));
            EXPECT_EQ(file.origContentType, file.contentType);
            lines.push_back(std::to_string(file.contentType) + "|" + file.pContentCharset + "|" + file.rfc2047subject +
                            "|" + shown(contents[i]));
        }
        return lines;
    }

    using Parts = std::vector<std::string>;
    TestHome home_;
    LogLines log_;
    tf_File TfHandle_;
    Msg_File MsgHandle_;
    bool EndOfMsg_ = false;
};

TEST_F(PlainBody, TextAndItems) {
    const std::string full = kFull;
    const struct {
        std::string text;
        Parts parts;
        const char* why;
    } rows[] = {
        {".\n", {"1167|IA5|subject|"}, "an empty body is one empty part"},
        {"one\ntwo\n.\n", {"1167|IA5|subject|one\\ntwo\\n"}, "lines"},
        {"one\r\n\r\ntwo\r\r\n.\r\n", {"1167|IA5|subject|one\\n\\ntwo\\n"}, "line ends become LF"},
        {"caf\xE9\n.\n", {"1167|ISO8859_1|subject|caf\xE9\\n"}, "8-bit text has a set"},
        {"..dot\n...\n.x\n.\n", {"1167|IA5|subject|.dot\\n..\\n.x\\n"}, "a doubled dot at a line start loses one"},
        {"begin 844 x\n.\n", {"1167|IA5|subject|begin 844 x\\n"}, "no begin line"},
        {item("S") + ".\n", {"0||x|abc"}, "an item alone"},
        {"begin 644 x\n.\n", {"0||x|"}, "an item that the end line ends"},
        {item("F") + ".\n", {"0||x|" + full}, "and one that it ends after a full line"},
        {"text\n" + item("S") + "more\n.\n",
         {"1167|IA5|subject|text\\n", "0||x|abc", "1167|IA5|subject|more\\n"},
         "text around an item"},
        {item("S", "a") + item("S", "b") + ".\n", {"0||a|abc", "0||b|abc"}, "two items"},
        {item("FS0") + "end\n.\n",
         {"0||x|" + full + "abc", "1167|IA5|subject|`\\nend\\n"},
         "after a short line the empty line and the end are text"},
        {item("FF") + "end\n\ntext\n.\n",
         {"0||x|" + full + full, "1167|IA5|subject|text\\n"},
         "end and a blank line go"},
        {item("FF0") + "end\n\ntext\n.\n", {"0||x|" + full + full, "1167|IA5|subject|text\\n"}, "an empty line before"},
        {item("F0") + "end\n\n\ntext\n.\n", {"0||x|" + full, "1167|IA5|subject|\\ntext\\n"}, "one blank line only"},
        {item("F0") + "end\ntext\n\n.\n", {"0||x|" + full, "1167|IA5|subject|text\\n\\n"}, "right after it only"},
        {item("S") + "text\n\nmore\n.\n",
         {"0||x|abc", "1167|IA5|subject|text\\nmore\\n"},
         "a blank line goes without end too"},
        {item("S") + "\ntext\n.\n", {"0||x|abc", "1167|IA5|subject|\\ntext\\n"}, "but not in the place of end"},
        {item("S") + "\n\ntext\n.\n", {"0||x|abc", "1167|IA5|subject|\\ntext\\n"}, "the second goes"},
        {item("S") + "end \n.\n", {"0||x|abc", "1167|IA5|subject|end \\n"}, "exactly end"},
        {item("S") + "end\n" + item("S", "y") + ".\n", {"0||x|abc", "0||y|abc"}, "items with end between them"},
        {item("S") + "end\n" + item("S", "y") + "end\n\n.\n", {"0||x|abc", "0||y|abc"}, "each has its own"},
        {item("S") + "end\nend\n.\n", {"0||x|abc", "1167|IA5|subject|end\\n"}, "one end only"},
    };
    for (const auto& row : rows) EXPECT_EQ(parts(row.text), row.parts) << row.why << '\n' << row.text;
}

TEST_F(PlainBody, WithoutUudecoding) {
    EXPECT_EQ(parts(item("S") + "end\n.\n", false), Parts{"1167|IA5|subject|begin 644 x\\n#86)C\\nend\\n"});
    EXPECT_EQ(parts("a\n.\n", false, "fc=2133"), Parts{"1167|IA5|subject|a\\n"}) << "the list is not read";
}

TEST_F(PlainBody, TheEndLineMayHaveBeenRead) {
    convert(true, {}, true);
    EXPECT_EQ(show(), Parts{"1167|IA5|subject|"});
}

TEST_F(PlainBody, LongLines) {
    const std::string piece(1023, 'x');
    EXPECT_EQ(parts(piece + ".\nend\n.\n"), Parts{"1167|IA5|subject|" + piece + ".\\nend\\n"}) << "no end line";
    EXPECT_EQ(parts(piece + "..y\n.\n"), Parts{"1167|IA5|subject|" + piece + "..y\\n"}) << "no doubled dot";
    EXPECT_EQ(parts(piece + "begin 644 x\n.\n"), Parts{"1167|IA5|subject|" + piece + "begin 644 x\\n"})
        << "no begin line";
    EXPECT_EQ(parts(piece + "\n.\n"), Parts{"1167|IA5|subject|" + piece + "\\n"}) << "no line of its own";
    const std::string line(5'000'000, 'y');
    EXPECT_TRUE(parts(line + "\n.\n") == Parts{"1167|IA5|subject|" + line + "\\n"});
}

// What is left of a long line after an item is no line: only the lines after it may be dropped.
TEST_F(PlainBody, DroppedLinesAreWholeLines) {
    const std::string full = "M" + std::string(78, ' ');  // 79 bytes and no line end
    EXPECT_EQ(parts("begin 644 x\n" + full + "`" + std::string(78, 'x') + "left\nend\n\ntext\n.\n"),
              (Parts{"0||x|" + kFull, "1167|IA5|subject|left\\ntext\\n"}));
}

TEST_F(PlainBody, ABeginLineOfAnyLengthIsOneLine) {
    const std::string name(5000, 'n');
    EXPECT_EQ(parts("begin 644 " + name + "\n#86)C\n.\n"), (Parts{"0||" + name.substr(0, 256) + "|abc"}));
}

TEST_F(PlainBody, UudecodingIsSwitchedOff) {
    home_.set_keys("UXI_NO_UUDECODE_STRING = \"-----BEGIN\"\n");
    EXPECT_EQ(parts(item("S") + "-----BEGIN X\n" + item("S") + ".\n"),
              (Parts{"0||x|abc", "1167|IA5|subject|-----BEGIN X\\nbegin 644 x\\n#86)C\\n"}));
    EXPECT_EQ(parts(" -----BEGIN\n" + item("S") + ".\n"), (Parts{"1167|IA5|subject| -----BEGIN\\n", "0||x|abc"}))
        << "at a line's start";
    EXPECT_EQ(parts(std::string(1023, 'x') + "-----BEGIN\n" + item("S") + ".\n").size(), 2U) << "not within a line";
    EXPECT_EQ(parts("text\n" + item("S") + ".\n").size(), 2U) << "the next message starts anew";
    home_.set_keys("UXI_NO_UUDECODE_STRING = \"\"\n");
    EXPECT_EQ(parts(item("S") + ".\n").size(), 1U) << "an empty text marks no line";
    home_.set_keys("UXI_NO_UUDECODE_STRING = \"begin 6\"\n");
    EXPECT_EQ(parts(item("S") + ".\n"), Parts{"1167|IA5|subject|begin 644 x\\n#86)C\\n"})
        << "it goes before begin lines";
}

TEST_F(PlainBody, PartInformation) {
    const struct {
        std::string text;
        const char* list;
        Parts parts;
        const char* why;
    } rows[] = {
        {"a\xE9\n" + item("S") + "b\xE9\n.\n",
         "fc=1167.ISO8859_1 (first), fc=2130",
         {"1167|ISO8859_1|subject|a\xE9\\n", "2130||x|abc", "1167|ISO8859_1|subject|b\xE9\\n"},
         "in order of appearance; the third has the defaults"},
        {item("S") + "b\n.\n", "fc=2130,fc=2133", {"2130||x|abc", "2133||subject|b\\n"}, "the first part is an item"},
        {item("S") + ".\n", "fc=12345", {"0||x|abc"}, "a code out of range"},
        {item("S", "a") + item("S", "b") + ".\n",
         ",fc=2130",
         {"0||a|abc", "2130||b|abc"},
         "an entry that says nothing ..."},
        {item("S", "a") + item("S", "b") + ".\n", "fc=7", {"7||a|abc", "0||b|abc"}, "the list is used up"},
    };
    for (const auto& row : rows) EXPECT_EQ(parts(row.text, true, row.list), row.parts) << row.why;
}

TEST_F(PlainBody, Log) {
    parts("text\n" + item("S") + "more\n" + item("S") + ".\n");
    EXPECT_EQ(log_.count("9 102.1513"), 1U) << "once a message";
    EXPECT_EQ(log_.count("11 102.1519"), 2U);
    EXPECT_EQ(log_.count("11 102.1520"), 2U);
    EXPECT_EQ(log_.count("11 102.1512"), 1U) << "no list: asked once";
    parts(item("S") + ".\n");
    EXPECT_EQ(log_.count("9 102.1513"), 2U);
}

TEST_F(PlainBody, EndOfInputEscapesAndLeavesNothing) {
    const std::string large(500'000, 'x');
    for (const std::string& text : {std::string(), "text" + large, item("F"), "text\n" + item("S") + large}) {
        const MessageText input(text);
        try {
            convert(true, {});
            ADD_FAILURE();
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.group(), kGatewayGroup);
            EXPECT_EQ(escape.reason(), 1401);
        }
        EXPECT_FALSE(EndOfMsg_);
        MsgHandle_ = Msg_File();
        TfHandle_ = tf_File();
        EXPECT_EQ(home_.files("data").size(), 0U) << text.substr(0, 20);
    }
}

TEST_F(PlainBody, ManyItems) {
    std::string text;
    for (int i = 0; i < 300; ++i) text += item("S") + "`\nend\n";
    EXPECT_EQ(parts(text + ".\n").size(), 600U) << "every item is followed by the lines that its short line left over";
}

// Text that cannot be written is the reason of its own, not the system's.
TEST_F(PlainBody, TextThatCannotBeWritten) {
    const MessageText input(std::string(1'000'000, 'x') + "\n.\n");
    std::filesystem::remove_all(home_.file("data"));
    home_.write("data", "no folder");
    try {
        convert(true, {});
        ADD_FAILURE();
    } catch (const er_Escape& escape) {
        EXPECT_EQ(escape.group(), kGatewayGroup);
        EXPECT_EQ(escape.reason(), 1412);
    }
    std::filesystem::remove(home_.file("data"));
}

// With a steering file: text in the set that mail is said to have becomes the set that the file names.
class Steered : public PlainBody {
protected:
    void steer(std::string_view set, std::string_view rules) {
        home_.set_keys("UXI_UNIX_MAIL_CHARSET = \"" + std::string(set) + "\"\n");
        home_.write("sys/unixin.str", rules);
        ux_reset_charsets();
        ux_InGetDefaultCharsets();
        ux_charsets().DoCSAutoDetect = 'N';
    }
};

TEST_F(Steered, LinesAreConverted) {
    steer("UTF8", "[[target]]\nfrom = \"UTF8\"\ntype = 1167\nto = \"ISO8859_1\"\n");
    EXPECT_EQ(parts("caf\xC3\xA9\nplain\n.\n", false), Parts{"1167|ISO8859_1|subject|caf\xE9\\nplain\\n"});
    EXPECT_EQ(parts("plain\n.\n"), Parts{"1167|IA5|subject|plain\\n"});
    EXPECT_EQ(parts("a\xC3\xA9\n" + item("S") + "b\xC3\xA9\n.\n"),
              (Parts{"1167|ISO8859_1|subject|a\xE9\\n", "0||x|abc", "1167|ISO8859_1|subject|b\xE9\\n"}));
    EXPECT_EQ(parts("bad \xFF byte\n.\n"), Parts{"1167|ISO8859_1|subject|bad \xFF byte\\n"}) << "kept as it stands";
}

TEST_F(Steered, PartsAreThrownAway) {
    steer("ISO8859_1", "[[discard]]\ntype = 9999\nfrom = \"*\"\n");
    EXPECT_EQ(parts("text\n" + item("S") + "more\n.\n", true, ",fc=9999"),
              (Parts{"1167|IA5|subject|text\\n", "1167|IA5|subject|more\\n"}));
    EXPECT_EQ(log_.first("9 102.1527"), "9 102.1527 9999");
    EXPECT_EQ(parts("text\n" + item("S") + ".\n", true, "fc=9999"), Parts{"0||x|abc"}) << "text parts too";
    EXPECT_EQ(parts(item("S") + ".\n", true, "fc=9999"), Parts{"1167|IA5|subject|"}) << "one part there always is";
}

// A set that the part information names labels the text when a whole-file conversion is to see it as it arrived.
TEST_F(Steered, WholeFileConversion) {
    steer("ISO8859_1",
          "[[convert]]\ntype = 2133\nfrom = \"KOI8_R\"\nto_type = 1167\nto = \"UTF8\"\nconverter = \"upper\"\n"
          "[converter.upper]\ncommand = [\"/usr/bin/tr\", \"a-z\", \"A-Z\"]\n");
    EXPECT_EQ(parts("t\xE9xt\n.\n", true, "fc=2133.KOI8_R"), Parts{"1167|UTF8|subject|T\xE9XT\\n"});
    EXPECT_EQ(parts("text\n.\n", true, "fc=2133.KOI8_R"), Parts{"1167|IA5|subject|text\\n"}) << "7-bit text needs none";
    EXPECT_EQ(parts(item("S") + ".\n", true, "fc=2133.KOI8_R"), Parts{"1167|UTF8|x|ABC"});
}

}  // namespace
