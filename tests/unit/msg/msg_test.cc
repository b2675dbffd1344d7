// Message files: what they tie together, and who deletes it.
#include "msg/msg.h"

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/bytes.h"
#include "support/child.h"
#include "support/home.h"

namespace {

class Message : public testing::Test {
protected:
    static im_Item item_of(std::string_view text) {
        im_Item item = im_CrNewDataItem();
        item.write(text);
        return item;
    }
    static tf_File main_file() {
        tf_File file = tf_CreateFile();
        file.append(tf_Record(TFREC_end_package));
        return file;
    }
    std::vector<std::string> files() const { return home_.files("data"); }
    static std::string ref_bytes(const ITEM_REF& ref) {
        tf_Record record;
        record.put_ref(16, ref);
        return std::string(record.bytes().substr(16));
    }

    TestHome home_;
};

TEST_F(Message, NamesTheMainFileThenTheAttachedFilesInOrder) {
    Msg_File message = Msg_CreateFile("");
    EXPECT_TRUE(message);
    std::vector<ITEM_REF> refs;
    for (const char* text : {"first", "second", "third"}) {
        im_Item item = item_of(text);
        refs.push_back(item.ref());
        Msg_AttachFile(message, std::move(item));
    }
    tf_File main = main_file();
    const ITEM_REF main_ref = tf_GetRef(main);
    EXPECT_EQ(message.attached(), 3U);
    message.finish(std::move(main));
    const std::string head = bytes("00000024 0000005B 00000000 0000 0000");
    EXPECT_EQ(hex(home_.read_path(im_ItemRef2FName(message.ref()))),
              hex(bytes("00000015 0000005A 00000000 0000 0000 00000001 00") + head + ref_bytes(main_ref) + head +
                  ref_bytes(refs[0]) + head + ref_bytes(refs[1]) + head + ref_bytes(refs[2])));
    EXPECT_EQ(std::string(message.ref().extension.data(), 4), "mesg");
    EXPECT_EQ(std::string(main_ref.extension.data(), 4), "tran");
    EXPECT_EQ(home_.read_path(im_ItemRef2FName(refs[1])), "second");
    EXPECT_EQ(files().size(), 5U);
}

TEST_F(Message, CarriesTheFilterRoute) {
    Msg_File message = Msg_CreateFile("route");
    message.finish(main_file());
    EXPECT_EQ(hex(home_.read_path(im_ItemRef2FName(message.ref())).substr(0, 26)),
              hex(bytes("0000001A 0000005A 00000000 0000 0000 00000001 'route' 00")));
}

TEST_F(Message, WhatIsNotQueuedIsDeletedWithEverythingAttached) {
    {
        Msg_File message = Msg_CreateFile("");
        for (int i = 0; i < 5; ++i) message.attach(item_of("x"));
        EXPECT_EQ(files().size(), 5U);
    }
    EXPECT_TRUE(files().empty()) << "not finished";
    {
        Msg_File message = Msg_CreateFile("");
        message.attach(item_of("x"));
        message.finish(main_file());
        EXPECT_EQ(files().size(), 3U);
    }
    EXPECT_TRUE(files().empty()) << "finished";
}

TEST_F(Message, WhatIsQueuedStays) {
    {
        Msg_File message = Msg_CreateFile("");
        message.attach(item_of("x"));
        message.finish(main_file());
        message.keep();
    }
    EXPECT_EQ(files().size(), 3U);
}

TEST_F(Message, MovingMovesTheDutyToDelete) {
    Msg_File first = Msg_CreateFile("");
    first.attach(item_of("x"));
    {
        Msg_File second = std::move(first);
        EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): what is left is empty
        EXPECT_EQ(second.attached(), 1U);
        Msg_File third = Msg_CreateFile("");
        third.attach(item_of("y"));
        EXPECT_EQ(files().size(), 2U);
        third = std::move(second);
        EXPECT_EQ(files().size(), 1U) << "the message that was there before is deleted";
        Msg_File& same = third;
        third = std::move(same);
        EXPECT_EQ(files().size(), 1U);
    }
    EXPECT_TRUE(files().empty());
}

TEST_F(Message, AFailureWhileFinishingLeavesNothing) {
    EXPECT_EQ(run_in_child([] {
                  Msg_File message = Msg_CreateFile("");
                  for (int i = 0; i < 10; ++i) message.attach(item_of("x"));
                  limit_file_size(100);  // the message file takes 21 + 11 * 36 bytes
                  try {
                      message.finish(main_file());
                  } catch (const er_Escape& escape) {
                      return escape.reason();
                  }
                  return 0;
              }),
              EFBIG);
    EXPECT_TRUE(files().empty());
}

TEST_F(Message, AnItemThatCannotBePlacedIsNotAttached) {
    std::filesystem::remove_all(home_.file("data/1"));
    Msg_File message = Msg_CreateFile("");
    EXPECT_THROW(message.attach(item_of("x")), er_Escape);
    EXPECT_EQ(message.attached(), 0U);
}

TEST_F(Message, AFileThatIsGoneAlreadyDoesNotMatter) {
    {
        Msg_File message = Msg_CreateFile("");
        for (int i = 0; i < 3; ++i) message.attach(item_of("x"));
        std::filesystem::remove(files()[1]);
    }
    EXPECT_TRUE(files().empty());
}

}  // namespace
