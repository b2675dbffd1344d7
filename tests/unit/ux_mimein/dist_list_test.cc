// Distribution-list parts: which lines give which entries, and what ends the reading.
#include "ux_mimein/dist_list.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/attached_files.h"
#include "support/home.h"
#include "support/reset.h"
#include "support/shown_records.h"

namespace {

using Lines = std::vector<std::string>;

class DistList : public testing::Test {
protected:
    // The records of the list: "22100 a" for a To entry a@far.example.
    Lines list(std::string_view text, const ux_PartMarkers* markers = nullptr) {
        im_Item part = im_CrNewDataItem();
        part.write(text);
        tf_File TfHandle = tf_CreateFile();
        Msg_File MsgHandle = Msg_CreateFile("");
        ux_InSpecialDistList(part, markers, TfHandle, MsgHandle);
        EXPECT_EQ(TfHandle.end(), 0) << "nothing in the message's own file";
        const Lines files = attached_files(MsgHandle, std::move(TfHandle));
        EXPECT_EQ(files.size(), 1U);
        Lines lines = shown_bytes(files.at(0));
        EXPECT_EQ(lines.at(0), "1100 class 2 type 1000 flags 1024 hops 0");
        counts_ = lines.at(1);
        lines.erase(lines.begin(), lines.begin() + 2);
        for (std::string& line : lines) {
            const std::size_t name = line.find("/DD.RFC-822="), end = line.find("(a)far.example");
            if (end != std::string::npos) line = line.substr(0, name) + line.substr(name + 12, end - name - 12);
        }
        return lines;
    }

    TestHome home_{"INET_NO_IA_IN_ORN = true\n"};
    FreshGateway fresh_;
    std::string counts_;
};

TEST_F(DistList, Fields) {
    const struct {
        const char *text, *entry, *why;
    } rows[] = {
        {"From: a@far.example\n", "22000 a", "From"},
        {"TO: a@far.example\n", "22100 a", "in any case"},
        {"Apparently-To: a@far.example\n", "22100 a", "Apparently-To is To"},
        {"Cc: a@far.example\n", "22200 a", "Cc"},
        {"Bcc: a@far.example\n", "22300 a", "Bcc"},
        {"Reply-To: a@far.example\n", "22440 a", "Reply-To"},
        {"Sender: a@far.example\n", "22430 a", "Sender"},
        {"Subject: a@far.example\n", "", "no address field"},
        {"Priority: urgent\n", "", "nor this"},
        {"To a@far.example\n", "", "no field at all"},
        {"\n", "", "a blank line is no end"},
        {"To: a@far.example", "22100 a", "a last line without its end"},
        {"To:a@far.example\r\n", "22100 a", "CR LF"},
        {"..To: a@far.example\n", "", "a dot goes, what is left is no field name"},
        {"..\nTo: a@far.example\n", "22100 a", "two dots are not one"},
        {"", "", "an empty part"},
    };
    for (const auto& row : rows) EXPECT_EQ(list(row.text), *row.entry ? Lines{row.entry} : Lines{}) << row.why;
}

TEST_F(DistList, LinesFold) {
    EXPECT_EQ(list("To: a@far.example, b@far.example,\n c@far.example\n\td@far.example\nCc: e@far.example\n"),
              (Lines{"22100 a", "22100 b", "22100 c", "22100 d", "22200 e"}));
    EXPECT_EQ(counts_, "20010 flags 1 total 5 0 4 1 0 0 0");
    EXPECT_EQ(list("Subject: x\n To: a@far.example\n"), Lines{}) << "those of other fields are no fields";
}

TEST_F(DistList, LinesOfAnyLength) {
    for (std::size_t length = 90; length < 140; ++length) {
        const std::string before(length, ' ');
        EXPECT_EQ(list("To: a@far.example," + before + "b@far.example, c@far.example\nCc: d@far.example\n"),
                  (Lines{"22100 a", "22100 b", "22100 c", "22200 d"}))
            << length;
        EXPECT_EQ(list("Subject: " + before + "To: a@far.example\nCc: d@far.example\n"), Lines{"22200 d"}) << length;
        EXPECT_EQ(list("To: a@far.example,\n " + before + "b@far.example\r\nCc: d@far.example\r\n"),
                  (Lines{"22100 a", "22100 b", "22200 d"}))
            << length;
    }
}

TEST_F(DistList, Ends) {
    const ux_PartMarkers markers{"--b", "--b--"};
    for (const char* end : {".\n", ".\r\n", "--b\n", "--b--\n", "--b\r\n"})
        EXPECT_EQ(list(std::string("To: a@far.example\n") + end + "To: b@far.example\n", &markers), Lines{"22100 a"})
            << end;
    for (const char* line : {". \n", "--b \n", "--B\n", "--c\n", "--b-\n"})
        EXPECT_EQ(list(std::string(line) + "To: b@far.example\n", &markers), Lines{"22100 b"}) << line;
    const ux_PartMarkers none;
    EXPECT_EQ(list("\nTo: b@far.example\n", &none), Lines{"22100 b"}) << "an empty marker matches no line";
    EXPECT_EQ(list("Subject: " + std::string(118, 'x') + ".\nTo: b@far.example\n"), Lines{"22100 b"})
        << "the end of a long line is none";
}

TEST_F(DistList, HundredThousandAddresses) {
    std::string text = "To: a@far.example";
    for (int i = 0; i < 100'000; ++i) text += ",\n u" + std::to_string(i) + "@far.example";
    EXPECT_EQ(list(text).size(), 100'001U);
}

TEST_F(DistList, AStoreThatFailsLeavesNothing) {
    im_Item part = im_CrNewDataItem();
    part.write("To: a@far.example\n");
    tf_File TfHandle = tf_CreateFile();
    Msg_File MsgHandle = Msg_CreateFile("");
    std::filesystem::remove_all(home_.file("data"));
    home_.write("data", "");
    EXPECT_THROW(ux_InSpecialDistList(part, nullptr, TfHandle, MsgHandle), er_Escape);
    EXPECT_EQ(MsgHandle.attached(), 0U);
    std::filesystem::remove(home_.file("data"));
}

}  // namespace
