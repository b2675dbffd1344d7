// Transfer files: sequences of records, in memory and in files, and streamed object records.
#include "tf/file.h"

#include <cerrno>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/bytes.h"
#include "support/child.h"
#include "support/home.h"

namespace {

int reason_of(const std::function<void()>& work) {
    try {
        work();
    } catch (const er_Escape& escape) {
        EXPECT_EQ(escape.group(), kSystemGroup);
        return escape.reason();
    }
    return 0;
}

tf_Record item_class(std::string_view text) {
    tf_Record record(TFREC_item_class);
    record.put_string(16, text);
    return record;
}

std::string content(const tf_File& file) {
    std::string data(file.item().size(), '\0');
    file.item().read(0, data.data(), data.size());
    return data;
}

im_Item item_of(std::string_view text) {
    im_Item item = im_CrNewDataItem();
    item.write(text);
    return item;
}

class File : public testing::Test {
protected:
    // The strings of all records from where the file stands.
    static std::vector<std::string> rest(tf_File& file) {
        std::vector<std::string> found;
        tf_Record record;
        while (tf_ReadRecord(file, record)) found.emplace_back(record.get_string(16));
        return found;
    }

    TestHome home_;
};

TEST_F(File, IsItsRecordsAndNothingElse) {
    tf_File file = tf_CreateFile();
    EXPECT_TRUE(file);
    EXPECT_FALSE(tf_File());
    EXPECT_EQ(tf_MarkPrevRecord(file), -1);
    tf_AppendRecord(file, item_class("a"));
    EXPECT_EQ(tf_MarkPrevRecord(file), 0);
    tf_AppendRecord(file, tf_Record(TFREC_end_package));
    EXPECT_EQ(tf_MarkPrevRecord(file), 18);
    EXPECT_EQ(file.append(item_class("bc")), 34);
    EXPECT_EQ(hex(content(file)), hex(bytes("00000012 00002BC0 00000000 0000 0000 'a' 00"
                                            "00000010 00009858 00000000 0000 0000"
                                            "00000013 00002BC0 00000000 0000 0000 'bc' 00")));
    EXPECT_TRUE(home_.files("data").empty()) << "a small one lives in memory";
    EXPECT_TRUE(file.item().path().ends_with(".tran"));
}

TEST_F(File, RecordsAreReadFromAnyPosition) {
    tf_File file = tf_CreateFile();
    std::vector<std::int64_t> positions;
    for (const char* text : {"one", "two", "three"}) positions.push_back(file.append(item_class(text)));
    for (const bool placed : {false, true}) {
        if (placed) file.item().place();
        tf_UnreadFile(file);
        EXPECT_EQ(rest(file), (std::vector<std::string>{"one", "two", "three"}));
        tf_GotoRecord(file, positions[1]);
        EXPECT_EQ(rest(file), (std::vector<std::string>{"two", "three"}));
        tf_GotoRecord(file, positions[2]);
        EXPECT_EQ(rest(file), (std::vector<std::string>{"three"}));
        tf_GotoRecord(file, static_cast<std::int64_t>(file.item().size()));
        EXPECT_TRUE(rest(file).empty());
        tf_GotoRecord(file, -1);
        EXPECT_TRUE(rest(file).empty()) << "no position";
    }
}

TEST_F(File, ReadingGoesOnBehindWhatIsAppended) {
    tf_File file = tf_CreateFile();
    file.append(item_class("one"));
    for (const bool placed : {false, true}) {
        if (placed) file.item().place();
        EXPECT_FALSE(rest(file).empty());
        file.append(item_class("more"));
        EXPECT_EQ(rest(file), (std::vector<std::string>{"more"}));
        file.append(item_class("again"));
    }
}

TEST_F(File, LargeFilesAreReadInPieces) {
    tf_File file = tf_CreateFile();
    std::vector<std::string> expected;
    for (std::size_t n = 0; file.item().size() < 4 * kKeptInMemory; ++n) {
        expected.push_back(std::string(n * 7919 % 3000, 'x') + std::to_string(n));
        file.append(item_class(expected.back()));
    }
    expected.push_back(std::string(2 * kKeptInMemory, 'y'));
    file.append(item_class(expected.back()));
    expected.emplace_back("end");
    file.append(item_class("end"));
    EXPECT_FALSE(file.item().in_memory());
    EXPECT_TRUE(rest(file) == expected);
    tf_UnreadFile(file);
    EXPECT_TRUE(rest(file) == expected);
}

TEST_F(File, TheRecordJustReadIsOverwritten) {
    for (const bool placed : {false, true}) {
        tf_File file = tf_CreateFile();
        for (const char* text : {"one", "two", "six"}) file.append(item_class(text));
        if (placed) file.item().place();
        tf_Record record;
        tf_ReadRecord(file, record);
        tf_ReadRecord(file, record);
        record.put_string(16, "TWO");
        tf_OverwriteRecord(file, record);
        EXPECT_EQ(rest(file), (std::vector<std::string>{"six"})) << "reading goes on behind it";
        tf_UnreadFile(file);
        EXPECT_EQ(rest(file), (std::vector<std::string>{"one", "TWO", "six"}));
    }
}

TEST_F(File, OnlyARecordOfTheSameLengthOverwrites) {
    tf_File file = tf_CreateFile();
    file.append(item_class("one"));
    file.append(item_class("two"));
    EXPECT_EQ(reason_of([&] { tf_OverwriteRecord(file, item_class("one")); }), EINVAL) << "nothing was read";
    tf_Record record;
    tf_ReadRecord(file, record);
    EXPECT_EQ(reason_of([&] { tf_OverwriteRecord(file, item_class("longer")); }), EINVAL);
    EXPECT_EQ(reason_of([&] { tf_OverwriteRecord(file, item_class("")); }), EINVAL);
    tf_UnreadFile(file);
    EXPECT_EQ(rest(file), (std::vector<std::string>{"one", "two"}));
}

struct DamagedRow {
    const char* bytes;
    const char* why;
};
constexpr DamagedRow kDamagedRows[] = {
    {"00", "not even a size"},
    {"000000", "three bytes"},
    {"0000000F 00002BC0 00000000 0000 0000", "a size below the head's"},
    {"00000000 00002BC0 00000000 0000 0000", "no size: reading would never end"},
    {"00000011 00002BC0 00000000 0000 0000", "a size beyond the end"},
    {"FFFFFFFF 00002BC0 00000000 0000 0000", "a size far beyond the end"},
    {"00000010 00002BC0", "a head that is cut"},
};

TEST_F(File, ADamagedSizeRaises) {
    for (const DamagedRow& row : kDamagedRows)
        for (const bool placed : {false, true}) {
            im_Item item = item_of(bytes("00000010 00009858 00000000 0000 0000") + bytes(row.bytes));
            if (placed) item.place();
            tf_File file = tf_open(std::move(item));
            tf_Record record;
            EXPECT_TRUE(tf_ReadRecord(file, record)) << row.why;
            EXPECT_EQ(reason_of([&] { tf_ReadRecord(file, record); }), EILSEQ) << row.why;
            EXPECT_EQ(reason_of([&] { tf_ReadRecord(file, record); }), EILSEQ) << row.why << ", again";
        }
}

TEST_F(File, WhatWasCutAndWrittenAnewIsReadAnew) {
    tf_File file = tf_CreateFile();
    file.append(item_class("one"));
    file.item().place();
    tf_UnreadFile(file);
    EXPECT_EQ(rest(file), (std::vector<std::string>{"one"}));
    file.item().truncate(0);
    file.append(item_class("two"));
    file.item().place();
    tf_UnreadFile(file);
    EXPECT_EQ(rest(file), (std::vector<std::string>{"two"}));
}

TEST_F(File, AReleasedItemLeavesAnEmptyHandle) {
    tf_File file = tf_CreateFile();
    file.append(item_class("one"));
    const im_Item item = file.release_item();
    EXPECT_FALSE(file);
    EXPECT_EQ(item.size(), 20U);
}

TEST_F(File, AFileThatIsNotReleasedIsDeleted) {
    {
        tf_File file = tf_CreateFile();
        file.append(item_class("one"));
        file.item().place();
        EXPECT_EQ(home_.files("data").size(), 1U);
    }
    EXPECT_TRUE(home_.files("data").empty());
}

// --- object files ---------------------------------------------------------------------------------------------------

TEST_F(File, AnObjectIsStreamedIntoItsRecord) {
    tf_File file = tf_CreateFile();
    file.append(tf_Record(TFREC_end_package));
    mp_PutObjectFile("inetMessageHeader", item_of("To: x\r\n"), file, 1, false);
    EXPECT_EQ(tf_MarkPrevRecord(file), 16);
    file.append(tf_Record(TFREC_end_package));
    EXPECT_EQ(hex(content(file)), hex(bytes("00000010 00009858 00000000 0000 0000"
                                            "00000031 000077EC 00000000 0000 0000"
                                            "00000001"                // the first number
                                            "00000007"                // length
                                            "'inetMessageHeader' 00"  // name
                                            "'To: x' 0D0A"            // exactly that many bytes
                                            "00000010 00009858 00000000 0000 0000")));
}

TEST_F(File, AnObjectInAWrappedRecord) {
    tf_File file = tf_CreateFile();
    mp_PutObjectFile("o", item_of("abc"), file, -2, true);
    file.append(tf_Record(TFREC_end_package));
    EXPECT_EQ(hex(content(file)), hex(bytes("0000002D 000086C4 00000000 0000 0000"
                                            "0000001D 000077EC 00000000 0000 0000"
                                            "FFFFFFFE 00000003 'o' 00 'abc'"
                                            "00000010 00009858 00000000 0000 0000")));
    tf_Record record;
    ASSERT_TRUE(tf_ReadRecord(file, record));
    tf_ChangeFromWrapRec(record);
    EXPECT_EQ(record.type(), TFREC_object_file);
    EXPECT_EQ(record.bytes().substr(26), "abc");
    EXPECT_TRUE(tf_ReadRecord(file, record)) << "what follows is found";
}

TEST_F(File, AnEmptyObject) {
    tf_File file = tf_CreateFile();
    mp_PutObjectFile("", item_of(""), file, 0, false);
    EXPECT_EQ(hex(content(file)), hex(bytes("00000019 000077EC 00000000 0000 0000 00000000 00000000 00")));
}

TEST_F(File, ALargeObjectIsWhollyThereAndItsItemUnchanged) {
    std::string text;
    while (text.size() < 3 * kKeptInMemory) text += std::to_string(text.size()) + ' ';
    for (const bool wrap : {false, true}) {
        im_Item object = item_of(text);
        tf_File file = tf_CreateFile();
        mp_PutObjectFile("big", object, file, 1, wrap);
        EXPECT_EQ(object.size(), text.size());
        tf_Record record;
        ASSERT_TRUE(tf_ReadRecord(file, record));
        EXPECT_FALSE(tf_ReadRecord(file, record));
        if (wrap) tf_ChangeFromWrapRec(record);
        EXPECT_EQ(static_cast<std::size_t>(record.get32(20)), text.size());
        EXPECT_TRUE(record.bytes().substr(28) == text);
    }
}

TEST_F(File, AnObjectThatDoesNotFitLeavesTheFileAsItWas) {
    EXPECT_EQ(run_in_child([] {
                  im_Item object = im_CrNewDataItem();
                  for (int i = 0; i < 1000; ++i) object.write(std::string(1000, 'x'));
                  object.place();
                  limit_file_size(500'000);
                  tf_File file = tf_CreateFile();
                  file.append(tf_Record(TFREC_end_package));
                  if (reason_of([&] { mp_PutObjectFile("o", object, file, 1, false); }) != EFBIG) return 1;
                  file.append(tf_Record(TFREC_end_alternatives));
                  return content(file) == bytes(
                                              "00000010 00009858 00000000 0000 0000"
                                              "00000010 000098BC 00000000 0000 0000")
                             ? 0
                             : 2;
              }),
              0);
}

TEST_F(File, PropertiesAreTwoFlagWordsAWordForRelationsAndTheText) {
    tf_File file = tf_CreateFile();
    mp_PutMAPIPropsData(7, -2, "PidTagBody:unicode=x\n", file, 1, false, false);
    mp_PutMAPIPropsData(1, 0, "", file, 1, false, true);
    EXPECT_EQ(hex(content(file)), hex(bytes("00000030 000077F6 00000000 0000 0000"
                                            "00000007 FFFFFFFE 0000 'PidTagBody:unicode=x' 0A 00"
                                            "0000001B 000077F6 00000000 0000 0000"
                                            "00000001 00000000 0001 00")));
}

TEST_F(File, PropertiesOfAnItemAreTheSameRecordWrappedOrNot) {
    std::string text;
    while (text.size() < 3 * kKeptInMemory) text += "PidTagSubject:unicode=" + std::to_string(text.size()) + '\n';
    for (const bool wrap : {false, true}) {
        tf_File from_text = tf_CreateFile(), from_item = tf_CreateFile();
        mp_PutMAPIPropsData(1, 2, text, from_text, 1, wrap, true);
        mp_PutMAPIPropsData(1, 2, item_of(text), from_item, 1, wrap, true);
        EXPECT_TRUE(content(from_text) == content(from_item));
        tf_Record record;
        ASSERT_TRUE(tf_ReadRecord(from_item, record));
        EXPECT_FALSE(tf_ReadRecord(from_item, record));
        EXPECT_EQ(record.type(), wrap ? TFREC_wrapped : TFREC_mapi_properties);
        if (wrap) tf_ChangeFromWrapRec(record);
        EXPECT_EQ(record.type(), TFREC_mapi_properties);
        EXPECT_TRUE(record.get_string(26) == text);
    }
}

TEST_F(File, RecordsPutInFrontOfOthers) {
    for (const std::size_t filler : {std::size_t{10}, kKeptInMemory * 2}) {  // in memory, and in a file
        tf_File file = tf_CreateFile(), records = tf_CreateFile();
        file.append(item_class("first"));
        const std::int64_t position = file.append(item_class("second"));
        file.append(item_class(std::string(filler, 'x')));
        const std::int64_t last = file.append(item_class("last"));
        records.append(item_class("new"));
        records.append(item_class("newer"));
        const std::int64_t moved = tf_InsertRecords(file, position, records);
        EXPECT_EQ(moved, records.end());
        EXPECT_EQ(tf_MarkPrevRecord(file), last + moved) << "the last one is still the last";
        tf_UnreadFile(file);
        EXPECT_EQ(rest(file),
                  (std::vector<std::string>{"first", "new", "newer", "second", std::string(filler, 'x'), "last"}));
        file.append(item_class("more"));
        tf_GotoRecord(file, last + moved);
        EXPECT_EQ(rest(file), (std::vector<std::string>{"last", "more"}));
    }
}

TEST_F(File, RecordsPutInAtTheEnds) {
    tf_File file = tf_CreateFile(), records = tf_CreateFile();
    records.append(item_class("a"));
    const std::int64_t b = records.append(item_class("b"));
    EXPECT_EQ(tf_InsertRecords(file, 0, records), records.end());
    EXPECT_EQ(tf_MarkPrevRecord(file), b) << "of what was put at the end, the last";
    EXPECT_EQ(tf_InsertRecords(file, 0, tf_CreateFile()), 0);
    EXPECT_EQ(content(file), content(records));
    EXPECT_EQ(reason_of([&] { tf_InsertRecords(file, file.end() + 1, records); }), EINVAL);
    EXPECT_EQ(reason_of([&] { tf_InsertRecords(file, -1, records); }), EINVAL);
    EXPECT_EQ(content(file), content(records));
}

TEST_F(File, IsCutWhereItStands) {
    tf_File file = tf_CreateFile();
    file.append(item_class("a"));
    const std::int64_t b = file.append(item_class("b"));
    tf_GotoRecord(file, b);
    tf_Trunc2NextRec(file);
    file.append(item_class("c"));
    tf_UnreadFile(file);
    EXPECT_EQ(rest(file), (std::vector<std::string>{"a", "c"}));
}

}  // namespace
