// Body parts: text as it is collected, and the record of a finished part.
#include "ux_in/body_part.h"

#include <gtest/gtest.h>

#include "support/home.h"
#include "support/log_lines.h"
#include "support/message_text.h"

namespace {

TEST(TextPart, IsANewEmptyItem) {
    const LogLines log;
    const im_Item item = ux_InCreateTextPart();
    EXPECT_TRUE(item);
    EXPECT_EQ(item.size(), 0U);
    EXPECT_EQ(log.all().size(), 1U);
    EXPECT_EQ(log.count("11 102.1520"), 1U);
}

TEST(TextPart, TakesNoMoreReadyLinesThanAsked) {
    const MessageText input("one\r\ntwo\n.dot\nthree\n.\n");
    ux::TextPart part;
    EXPECT_FALSE(part.is_open());
    part.open("ISO8859_1", "IA5", false);
    EXPECT_TRUE(part.is_open());
    ux_Input().peek();  // so that there is something in the buffer
    const auto no_dot = [](std::string_view line) { return !line.starts_with('.'); };
    EXPECT_EQ(part.append_ready(ux_Input(), 1, no_dot), 1U);
    EXPECT_EQ(part.append_ready(ux_Input(), 9, no_dot), 1U) << "the line that means something stays";
    part.append(ux_InReadMailText());
    EXPECT_EQ(part.append_ready(ux_Input(), 0, no_dot), 0U);
    EXPECT_EQ(part.append_ready(ux_Input(), ux::kAnyNumber, no_dot), 1U);
    EXPECT_TRUE(part.ascii());
    const im_Item item = part.close();
    EXPECT_FALSE(part.is_open());
    std::string scratch;
    EXPECT_EQ(item.head(99, scratch), "one\ntwo\n.dot\nthree\n");
}

TEST(AttachPart, SaysWhatThePartIs) {
    const TestHome home;
    tf_File TfHandle = tf_CreateFile();
    Msg_File MsgHandle = Msg_CreateFile("");
    ux_ContentItem part;
    part.item = im_CrNewDataItem();
    part.item.write("12345");
    part.FileType = 1736;
    part.CharSet = "UTF8";
    ux::attach_part(TfHandle, MsgHandle, part, "subject", "name");
    EXPECT_EQ(MsgHandle.attached(), 1U);
    tf_Record record;
    tf_UnreadFile(TfHandle);
    ASSERT_TRUE(tf_ReadRecord(TfHandle, record));
    const TFREC_content_file file = tf_ContentFileRecToStruc(record);
    EXPECT_EQ(file.contentType, 1736);
    EXPECT_EQ(file.fileSize, 5);
    EXPECT_EQ(file.pContentCharset, "UTF8");
    EXPECT_EQ(file.rfc2047subject, "subject");
    EXPECT_EQ(file.pOrigFileName, "name");
    EXPECT_EQ(file.contentFlags, 0U);
}

}  // namespace
