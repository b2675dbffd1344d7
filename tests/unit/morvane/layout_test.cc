// The table of record types against the byte table of the native format: each field is where the format says.
#include "morvane/layout.h"

#include <map>
#include <string>

#include <gtest/gtest.h>

#include "tf/record.h"

namespace morvane {
namespace {

FieldList fields_of(const tf_Record& record) {
    const RecordRow* row = find_record(record.type());
    EXPECT_NE(row, nullptr) << record.type();
    return read_fields(*row, record.bytes(), record.size());
}

// Where a field of a record stands, told by its value: the record is filled with the numbers of its bytes.
TEST(Layout, NumbersStandWhereTheFormatHasThem) {
    struct Row {
        std::int32_t type;
        const char* key;
        std::size_t at;
        std::size_t width;
    };
    const Row kRows[] = {
        {90, "formatVersion", 16, 4},  {91, "item", 16, 20},
        {92, "item", 16, 20},          {92, "priority", 36, 4},
        {92, "queued", 40, 8},         {1100, "reserved16", 16, 2},
        {1100, "reserved18", 18, 2},   {1100, "class", 20, 2},
        {1100, "messageType", 22, 2},  {1100, "flags", 24, 4},
        {1100, "reserved28", 28, 4},   {1100, "hops", 32, 4},
        {1100, "reserved42", 42, 4},   {10000, "reserved20", 20, 4},
        {10000, "reserved24", 24, 2},  {10005, "reserved20", 20, 4},
        {13000, "seconds", 16, 4},     {13000, "zone", 20, 2},
        {13600, "seconds", 16, 4},     {13700, "zone", 20, 2},
        {14100, "seconds", 16, 4},     {16000, "zone", 20, 2},
        {30600, "seconds", 16, 4},     {30605, "seconds", 16, 4},
        {20010, "flags", 16, 4},       {20010, "total", 20, 2},
        {20010, "from", 22, 2},        {20010, "to", 24, 2},
        {20010, "cc", 26, 2},          {20010, "bcc", 28, 2},
        {20010, "reserved30", 30, 2},  {20010, "reserved32", 32, 4},
        {20010, "sender", 36, 2},      {20010, "replyTo", 38, 2},
        {22000, "reserved16", 16, 4},  {22100, "reserved20", 20, 2},
        {22440, "reserved22", 22, 2},  {30100, "pkgType", 16, 4},
        {30100, "pkgSecurity", 20, 4}, {30500, "origContentType", 16, 4},
        {30500, "contentType", 20, 4}, {30500, "contentFlags", 24, 4},
        {30500, "fileSize", 28, 4},    {30700, "number", 16, 4},
        {30700, "length", 20, 4},      {30710, "flags1", 16, 4},
        {30710, "flags2", 20, 4},      {30710, "relations", 24, 2},
        {40000, "flags", 16, 2},       {40000, "recipientId", 20, 2},
        {42100, "flags", 16, 2},       {42200, "reason", 22, 2},
    };
    for (const Row& row : kRows) {
        tf_Record record(row.type);
        std::string bytes(record.bytes());
        for (std::size_t i = bytes.size(); i < 80; ++i) bytes += static_cast<char>(i);
        record.assign(bytes);
        const FieldList list = fields_of(record);
        const FieldValue* field = list.find(row.key);
        ASSERT_NE(field, nullptr) << row.type << ' ' << row.key;
        EXPECT_EQ(field->at, row.at) << row.type << ' ' << row.key;
        EXPECT_EQ(field->width, row.width) << row.type << ' ' << row.key;
        std::int64_t expected = 0;
        for (std::size_t i = 0; i < row.width && row.width <= 8; ++i)
            expected = expected << 8 | static_cast<int>(row.at + i);
        EXPECT_EQ(field->number, expected) << row.type << ' ' << row.key;
    }
}

TEST(Layout, StringsStandWhereTheFormatHasThem) {
    struct Row {
        std::int32_t type;
        const char* key;
        std::size_t at;
    };
    const Row kRows[] = {
        {90, "filterRoute", 20},     {1100, "mimeType", 54},    {10000, "name", 36},       {10005, "name", 36},
        {11100, "subject", 16},      {11200, "itemClass", 16},  {13100, "identifier", 18}, {13200, "identifier", 18},
        {13800, "identifier", 18},   {13900, "identifier", 18}, {15000, "name", 24},       {16100, "name", 24},
        {22000, "name", 24},         {22300, "name", 24},       {22430, "name", 24},       {30100, "latinSubject", 24},
        {30500, "latinSubject", 32}, {30700, "objectName", 24}, {30710, "properties", 26}, {40000, "reserved1", 22},
        {42100, "name", 24},         {42200, "name", 24},
    };
    for (const Row& row : kRows) {
        tf_Record record(row.type);
        record.put_string(row.at, "here");
        const FieldList list = fields_of(record);
        ASSERT_NE(list.find(row.key), nullptr) << row.type << ' ' << row.key;
        EXPECT_EQ(list.text(row.key), "here") << row.type << ' ' << row.key;
        EXPECT_EQ(list.find(row.key)->at, row.at);
        EXPECT_EQ(list.find(row.key)->width, 5U) << "its NUL is part of it";
    }
}

TEST(Layout, ContentFileReadsBackWhatTheServiceWrites) {
    TFREC_content_file file;
    tf_initTFREC_content_file(file, 1167);
    file.contentFlags = 0x21;
    file.fileSize = 4711;
    file.latinSubject = "a";
    file.pOrigFileName = "b";
    file.pX400_ParamsObjectId = "h";
    file.pApplicRef = "l";
    file.rfc2047subject = "q";
    tf_Record record;
    tf_ContentFileRecFromStruc(record, file);
    const FieldList list = fields_of(record);
    EXPECT_EQ(list.missing, nullptr);
    EXPECT_EQ(list.number("contentFlags"), 0x21);
    EXPECT_EQ(list.number("fileSize"), 4711);
    EXPECT_EQ(list.text("latinSubject"), "a");
    EXPECT_EQ(list.text("pOrigFileName"), "b");
    EXPECT_EQ(list.text("pX400_ParamsObjectId"), "h");
    EXPECT_EQ(list.text("pApplicRef"), "l");
    EXPECT_EQ(list.text("rfc2047subject"), "q");
    EXPECT_EQ(list.values.size(), 4U + 17U);
}

TEST(Layout, StartOfPackageReadsBackWhatTheServiceWrites) {
    TFREC_start_package package;
    tf_initTFREC_start_package(package, 3, -100);
    package.subjLang = "de";
    package.pkgFlags = 6;
    package.itemType = 9;
    package.pMIMEContentType = "multipart/mixed";
    package.rfc2047subject = "s";
    tf_Record record;
    tf_ST_PKG_from_Struc(record, package);
    const FieldList list = fields_of(record);
    EXPECT_EQ(list.missing, nullptr);
    EXPECT_EQ(list.text("subjLang"), "de");
    EXPECT_EQ(list.number("pkgFlags"), 6);
    EXPECT_EQ(list.number("qnPkgType"), -100);
    EXPECT_EQ(list.number("itemType"), 9);
    EXPECT_EQ(list.text("pMIMEContentType"), "multipart/mixed");
    EXPECT_EQ(list.text("rfc2047subject"), "s");
}

TEST(Layout, OriginalRecipientsAreOptional) {
    tf_Record plain(42200);
    plain.put16(22, 511);
    const std::size_t end = plain.put_string(24, "/S=x");
    FieldList list = fields_of(plain);
    EXPECT_EQ(list.missing, nullptr);
    EXPECT_EQ(list.find("originalRecipient"), nullptr);
    plain.put16(end, 0);
    plain.put16(end + 2, 0);
    plain.put_string(end + 4, "orig");
    list = fields_of(plain);
    EXPECT_EQ(list.text("originalRecipient"), "orig");
}

TEST(Layout, ShortRecordsSayWhatIsMissing) {
    tf_Record record(1100);
    record.put16(22, 1);  // ends after the message type
    const FieldList list = fields_of(record);
    ASSERT_NE(list.missing, nullptr);
    EXPECT_EQ(list.missing->key, "flags");
    EXPECT_EQ(list.number("messageType"), 1);
    for (const RecordRow& row : all_records()) {
        const tf_Record empty(row.type);
        EXPECT_EQ(fields_of(empty).missing != nullptr, !row.fields.empty()) << row.name;
    }
}

TEST(Layout, TextWithoutItsNulEndsWithTheRecord) {
    tf_Record record(11200);
    record.put_string(16, "IPM.Note");
    record.assign(std::string(record.bytes().substr(0, record.size() - 1)));
    const FieldList list = fields_of(record);
    EXPECT_EQ(list.text("itemClass"), "IPM.Note");
    EXPECT_TRUE(list.find("itemClass")->cut);
}

TEST(Layout, ObjectsSayWhenTheirLengthIsWrong) {
    for (const int off : {-1, 0, 1}) {
        tf_Record record(30700);
        record.put32(20, 3 + off);
        const std::size_t end = record.put_string(24, "name");
        record.put16(end, 0x4142);
        record.assign(std::string(record.bytes()) + "C");
        const FieldList list = fields_of(record);
        ASSERT_NE(list.find("content"), nullptr);
        EXPECT_EQ(list.find("content")->cut, off != 0) << off;
        EXPECT_EQ(list.find("content")->text, off < 0 ? "AB" : "ABC");
    }
}

TEST(Layout, FieldsBeyondTheBytesLookedAtAreNotMissing) {
    tf_Record record(13100);
    record.put_string(18, std::string(100, 'x'));
    const FieldList list = read_fields(*find_record(13100), record.bytes().substr(0, 50), record.size());
    EXPECT_EQ(list.missing, nullptr);
    EXPECT_TRUE(list.find("identifier")->cut);
    EXPECT_EQ(list.text("identifier").size(), 32U);
}

TEST(Layout, EveryTypeIsNamedOnce) {
    std::map<std::string_view, int> names;
    for (const RecordRow& row : all_records()) {
        EXPECT_EQ(++names[row.name], 1) << row.name;
        EXPECT_FALSE(row.label.empty());
        EXPECT_EQ(find_record(row.type), &row);
    }
    EXPECT_EQ(find_record(0), nullptr);
    EXPECT_EQ(find_record(-1), nullptr);
    EXPECT_EQ(find_record(99999), nullptr);
}

}  // namespace
}  // namespace morvane
