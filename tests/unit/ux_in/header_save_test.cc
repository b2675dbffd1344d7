// First pass over a header: what is saved, what ends it, what kind of message it is found to be.
#include "ux_in/header_save.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/child.h"
#include "support/home.h"
#include "support/log_lines.h"
#include "support/message_text.h"

namespace {

class HeaderSave : public testing::Test {
protected:
    // The saved header; what kind it was is in kind_.
    std::string saved(std::string_view text) {
        const MessageText input(text);
        im_Item item = im_CrNewDataItem();
        kind_ = ux::save_header(item);
        std::string scratch;
        return std::string(item.view(0, item.size(), scratch));
    }
    // The same, then the lines that are left for the body, each in brackets.
    std::string saved_and_rest(std::string_view text) {
        const MessageText input(text);
        im_Item item = im_CrNewDataItem();
        kind_ = ux::save_header(item);
        std::string scratch, out(item.view(0, item.size(), scratch));
        while (ux_Input().text_open()) {
            const ux_MailText line = ux_InReadMailText();
            if (!line.is_end) out += "[" + std::string(line.text) + "]";
        }
        return out;
    }
    // "mime", "rfc1154" and "uudecode" as found.
    std::string kind() const {
        std::string out;
        if (kind_.mime) out += " mime";
        if (kind_.rfc1154) out += " rfc1154";
        if (kind_.uudecode) out += " uudecode";
        return out;
    }

    TestHome home_;
    LogLines log_;
    ux::SavedHeaderKind kind_;
};

TEST_F(HeaderSave, LinesHaveCrLfAndTheBlankLineIsNotSaved) {
    EXPECT_EQ(saved_and_rest("A: 1\nB: 2\r\n\nbody\n.\n"), "A: 1\r\nB: 2\r\n[body]");
    EXPECT_FALSE(kind_.end_of_message);
    EXPECT_EQ(saved_and_rest("A: 1\r\n\r\nbody\r\n.\r\n"), "A: 1\r\n[body]") << "a blank line may be CR LF";
    EXPECT_EQ(saved_and_rest("A: 1\n\r\r\r\nbody\n.\n"), "A: 1\r\n[body]") << "or have more CRs";
    EXPECT_EQ(saved_and_rest("\nbody\n.\n"), "[body]") << "no header at all";
}

TEST_F(HeaderSave, TheEndLineEndsHeaderAndMessageAndEveryLineIsSaved) {
    EXPECT_EQ(saved("A: 1\n folded\nno field\n.\n"), "A: 1\r\n folded\r\nno field\r\n");
    EXPECT_TRUE(kind_.end_of_message);
    EXPECT_EQ(saved(".\r\n"), "");
    EXPECT_TRUE(kind_.end_of_message);
    EXPECT_EQ(saved_and_rest("A: 1\n. \n .\n\n.\n"), "A: 1\r\n. \r\n .\r\n") << "only a dot alone ends it";
    EXPECT_FALSE(kind_.end_of_message);
}

TEST_F(HeaderSave, DotsAreUnstuffedAtALineStartOnly) {
    const std::string x1023(1023, 'x');
    EXPECT_EQ(saved("..A: 1\n...\n.B\na..b\n.\n"), ".A: 1\r\n..\r\n.B\r\na..b\r\n");
    EXPECT_EQ(saved(x1023 + "..y\n.\n"), x1023 + "\r\n..y\r\n") << "a later piece of a long line keeps both";
    EXPECT_EQ(saved_and_rest(x1023 + ".\nB: 1\n\n.\n"), x1023 + "\r\n.\r\nB: 1\r\n") << "and ends nothing";
}

TEST_F(HeaderSave, ALongLineIsSavedInPieces) {
    const std::string x1022(1022, 'x'), x1023(1023, 'x');
    EXPECT_EQ(saved_and_rest(x1022 + "\nB: 1\n\nbody\n.\n"), x1022 + "\r\nB: 1\r\n[body]") << "1,022 characters: whole";
    EXPECT_EQ(saved_and_rest(x1023 + "y\nB: 1\n\nbody\n.\n"), x1023 + "\r\ny\r\nB: 1\r\n[body]");
    // What is left of a line of 1,023 characters is its line end alone: a blank line, whatever came before it.
    EXPECT_EQ(saved_and_rest(x1023 + "\nB: 1\n\nbody\n.\n"), x1023 + "\r\n[B: 1][][body]");
    EXPECT_EQ(saved_and_rest(x1022 + "\r\nB: 1\n\nbody\n.\n"), x1022 + "\r\n[B: 1][][body]")
        << "so with CR LF one before";
}

TEST_F(HeaderSave, WhiteLinesEndTheHeaderWhenTheyAreConfiguredTo) {
    const struct {
        std::string text, without, with;
    } rows[] = {
        {"A: 1\n \t\nB: 2\n\n.\n", "A: 1\r\n \t\r\nB: 2\r\n", "A: 1\r\n[B: 2][]"},
        {"A: 1\n \r \nB: 2\n\n.\n", "A: 1\r\n \r \r\nB: 2\r\n", "A: 1\r\n[B: 2][]"},
        {"A: 1\n folded\n\n.\n", "A: 1\r\n folded\r\n", "A: 1\r\n folded\r\n"},
        {"A: 1\n\vx\n\n.\n", "A: 1\r\n\vx\r\n", "A: 1\r\n\vx\r\n"},
        {"A: 1\n.\n", "A: 1\r\n", "A: 1\r\n"},
    };
    for (const auto& row : rows) EXPECT_EQ(saved_and_rest(row.text), row.without) << row.text;
    home_.set_keys("WHITESPACE_CRLF_IS_BREAK = true");
    for (const auto& row : rows) EXPECT_EQ(saved_and_rest(row.text), row.with) << row.text;
    saved("A: 1\n.\n");
    EXPECT_TRUE(kind_.end_of_message);
}

TEST_F(HeaderSave, TheKindFollowsFromTheFieldsThatAreThere) {
    const struct {
        const char* header;
        const char* kind;
    } rows[] = {
        {"", " uudecode"},
        {"Subject: x\n", " uudecode"},
        {"MIME-Version: 1.0\n", " mime uudecode"},
        {"content-type: text/plain\n", " mime uudecode"},
        {"CONTENT-TRANSFER-ENCODING: 7bit\n", " mime uudecode"},
        {"Content-Disposition: inline\n", " uudecode"},
        {"Content-Type : text/plain\n", " uudecode"},
        {" Content-Type: text/plain\n", " uudecode"},
        {"Encoding: text\n", " rfc1154 uudecode"},
        {"Encoding: text\nMIME-Version: 1.0\n", " mime rfc1154 uudecode"},
    };
    for (const auto& row : rows) {
        saved(row.header + std::string("\n.\n"));
        EXPECT_EQ(kind(), row.kind) << row.header;
    }
    EXPECT_EQ(log_.count("11 102.1518"), 2U) << "every Encoding field is logged";
}

TEST_F(HeaderSave, WithAMarkerFieldOnlyMessagesThatHaveItAreCandidates) {
    home_.set_keys("UXI_UUDECODE_ARPA_TOKEN = \"X-Uuencoded\"");
    const struct {
        const char* header;
        const char* kind;
    } rows[] = {
        {"Subject: x\n", ""},
        {"X-Uuencoded: anything\n", " uudecode"},
        {"x-uuENCODED:\n", " uudecode"},
        {"X-Uuencoded-Not: x\n", ""},
        {"X-Uuencoded : x\n", ""},
        {" X-Uuencoded: x\n", ""},
    };
    for (const auto& row : rows) {
        saved(row.header + std::string("\n.\n"));
        EXPECT_EQ(kind(), row.kind) << row.header;
    }
    home_.set_keys("UXI_UUDECODE_ARPA_TOKEN = \"Subject\"");
    saved("Subject: x\n\n.\n");
    EXPECT_EQ(kind(), " uudecode") << "a field that means something else as well";
    home_.set_keys("UXI_UUDECODE_ARPA_TOKEN = \"x-ploxen-uu\"");
    EXPECT_EQ(saved("x-ploxen-UU: x\n\n.\n"), "") << "as an unknown field of ours it is removed";
    EXPECT_EQ(kind(), " uudecode") << "after it has said what it says";
    home_.set_keys("UXI_UUDECODE_ARPA_TOKEN = \"\"");
    saved(": x\n\n.\n");
    EXPECT_EQ(kind(), "") << "an empty marker is set, and marks nothing";
}

TEST_F(HeaderSave, UnknownFieldsOfOursAreRemoved) {
    EXPECT_EQ(saved("A: 1\nx-ploxen-Foo: 1\nB: 2\n.\n"), "A: 1\r\nB: 2\r\n");
    EXPECT_EQ(log_.all().back(), "9 102.1549 x-ploxen-Foo");
    EXPECT_EQ(saved("X-PLOXENFoo: 1\nx-ploxen: 2\n.\n"), "") << "any case; eight characters decide";
    EXPECT_EQ(saved("x-ploxen-Foo: 1\n continued\nB: 2\n.\n"), " continued\r\nB: 2\r\n")
        << "its continuation lines stay";
    EXPECT_EQ(saved("x-ploxen-Foo 1\nx-ploxe: 1\nx-xploxen: 1\n.\n"),
              "x-ploxen-Foo 1\r\nx-ploxe: 1\r\nx-xploxen: 1\r\n")
        << "no field, and fields of others";
}

TEST_F(HeaderSave, KnownFieldsOfOursAreKept) {
    for (const char* name :
         {"Recipient", "ehlo", "Anonymous-Message", "Authenticated-Sender", "Authentication-Mismatch", "Originator",
          "Submission-Host", "Hops", "Autoreplied", "Transport-Id", "PartInfo"}) {
        const std::string line = std::string("x-PLOXEN-") + name + ": x";
        EXPECT_EQ(saved(line + "\n.\n"), line + "\r\n");
    }
    EXPECT_EQ(log_.count("9 102.1549"), 0U);
}

TEST_F(HeaderSave, MessageIdLinesAreCleaned) {
    const struct {
        const char* line;
        const char* saved;
        const char* why;
    } rows[] = {
        {"Message-Id: <a\xE9\x01\x7F\x62@c>", "Message-Id: <a???b@c>", "8-bit bytes and control characters"},
        {"MESSAGE-ID: <\xFF>", "MESSAGE-ID: <?>", "any case"},
        {"Message-Id:\t<a>", "Message-Id:?<a>", "a tab is a control character"},
        {"Message-Idx: <\xE9>", "Message-Idx: <\xE9>", "another field"},
        {"References: <\xE9>", "References: <\xE9>", "another field"},
        {"Message-Id <\xE9>", "Message-Id <\xE9>", "no field"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(saved(std::string(row.line) + "\n.\n"), std::string(row.saved) + "\r\n") << row.why;
    EXPECT_EQ(saved("Message-Id: <a>\n\xE9\n.\n"), "Message-Id: <a>\r\n\xE9\r\n") << "only the line with the name";
}

TEST_F(HeaderSave, NulBytesAreBlanks) { EXPECT_EQ(saved(std::string("A:\0 1\n\0\n\n.\n", 12)), "A:  1\r\n \r\n"); }

TEST_F(HeaderSave, InputThatEndsIsNoHeader) {
    for (const char* text : {"", "A: 1\n", "A: 1", "A: 1\n."}) {
        try {
            saved(text);
            ADD_FAILURE() << text;
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.group(), kGatewayGroup);
            EXPECT_EQ(escape.reason(), 1401) << text;
        }
    }
}

TEST_F(HeaderSave, AHeaderThatCannotBeWrittenSaysSo) {
    std::string text;
    for (int line = 0; line < 3000; ++line) text += "X: " + std::string(100, 'x') + "\n";  // more than memory takes
    EXPECT_EQ(saved(text + ".\n").size(), 3000 * 105U);
    const MessageText input(text + ".\n");
    const int reason = run_in_child([&] {
        limit_file_size(1000);
        im_Item item = im_CrNewDataItem();
        try {
            ux::save_header(item);
        } catch (const er_Escape& escape) {
            return escape.group() == kGatewayGroup && escape.reason() == 1411 ? 1 : 2;
        }
        return 0;
    });
    EXPECT_EQ(reason, 1);
}

TEST_F(HeaderSave, FieldsAreRemovedFromALongHeaderToo) {
    std::string text, kept;
    for (int line = 0; line < 3000; ++line) {
        text += "X: " + std::string(100, 'x') + "\nx-ploxen-Foo: " + std::to_string(line) + "\n";
        kept += "X: " + std::string(100, 'x') + "\r\n";
    }
    EXPECT_EQ(saved(text + ".\n"), kept);
}

}  // namespace
