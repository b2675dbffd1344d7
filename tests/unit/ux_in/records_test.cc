// Native records, byte for byte, and the update of the header record.
#include "ux_in/records.h"

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "er/er.h"
#include "os/catalog.h"
#include "support/child.h"
#include "support/home.h"

namespace {

// The bytes a record should have, put together without the service that writes them.
class Bytes {
public:
    Bytes(std::int32_t type, std::size_t size, std::int16_t word = 0) : bytes_(size, '\0') {
        number(0, size, 4).number(4, static_cast<std::uint32_t>(type), 4).i16(14, word);
    }
    Bytes& i16(std::size_t at, int value) { return number(at, static_cast<std::uint16_t>(value), 2); }
    Bytes& i32(std::size_t at, std::int64_t value) { return number(at, static_cast<std::uint32_t>(value), 4); }
    Bytes& text(std::size_t at, std::string_view text) {
        bytes_.replace(at, text.size(), text);
        return *this;
    }
    operator std::string_view() const { return bytes_; }

private:
    Bytes& number(std::size_t at, std::uint64_t value, int width) {
        for (int i = 0; i < width; ++i) bytes_[at + i] = static_cast<char>(value >> (8 * (width - 1 - i)));
        return *this;
    }
    std::string bytes_;
};

// A record that was used before: builders must start afresh.
tf_Record used_record() {
    tf_Record record(TFREC_subject);
    record.put_string(16, std::string(200, 'x'));
    return record;
}

template <class Builder, class... Args>
tf_Record built(Builder builder, const Args&... args) {
    tf_Record record = used_record();
    builder(args..., record);
    return record;
}

tf_Record header_record(std::int16_t TfClass, std::int16_t TfType, bool ROCWanted, std::string_view pMIMEType) {
    return built(ux_InCreateHeaderRecord, TfClass, TfType, ROCWanted, pMIMEType);
}

tf_Record date_record(std::int32_t RecType, std::int32_t GMTTime, std::int16_t TimeZone) {
    return built(ux_InCreateDateRecord, RecType, GMTTime, TimeZone);
}

class Records : public testing::Test {
protected:
    Records() { ux_reset_records(); }
};

TEST_F(Records, Header) {
    const auto fields = [](Bytes bytes, int tf_class, int type, int flags) {
        return bytes.i16(16, 3).i16(20, tf_class).i16(22, type).i32(24, flags).i32(28, 1).i32(42, 2);
    };
    EXPECT_EQ(header_record(0, 0, false, "").bytes(), fields(Bytes(1100, 46), 0, 0, 0));
    EXPECT_EQ(header_record(0, 0, true, "").bytes(), fields(Bytes(1100, 46), 0, 0, 1024));
    EXPECT_EQ(header_record(2, 1000, true, "").bytes(), fields(Bytes(1100, 46), 2, 1000, 1024));
    EXPECT_EQ(header_record(0, 0, false, "multipart/mixed").bytes(),
              fields(Bytes(1100, 54 + 16), 0, 0, 0).text(54, "multipart/mixed"));
}

TEST_F(Records, NamesOfTheOriginator) {
    EXPECT_EQ(built(ux_InCreateCreatorRecord, "/S=a").bytes(), Bytes(10000, 41).text(36, "/S=a"));
    EXPECT_EQ(built(ux_InCreateP2OriginatorRecord, "/S=a").bytes(), Bytes(10005, 41).text(36, "/S=a"));
    EXPECT_EQ(built(ux_InCreateOrigRetRecord, "/S=a").bytes(), Bytes(16100, 29).text(24, "/S=a"));
    EXPECT_EQ(built(ux_InCreateCreatorRecord, "").bytes(), Bytes(10000, 37));
}

TEST_F(Records, Dates) {
    for (const int type : {13000, 13600, 13700, 14100, 16000, 30600, 30605})
        EXPECT_EQ(date_record(type, 1075800030, -300).bytes(), Bytes(type, 22).i32(16, 1075800030).i16(20, -300));
    EXPECT_EQ(date_record(13000, std::numeric_limits<std::int32_t>::min(), 0).bytes(),
              Bytes(13000, 22).i32(16, 0x80000000));
}

TEST_F(Records, ListRecords) {
    EXPECT_EQ(built(ux_InCreateDLCountRec).bytes(), Bytes(20010, 40, 40));
    for (const int type : {22000, 22100, 22200, 22300, 22430, 22440})
        EXPECT_EQ(built(ux_InCreateDistListRec, type, "/S=b").bytes(), Bytes(type, 29, 40).text(24, "/S=b"));
    EXPECT_EQ(built(ux_InCreateReplyToRec, "/S=c").bytes(), Bytes(15000, 29, 40).text(24, "/S=c"));
}

TEST_F(Records, RecipientFlags) {
    const struct {
        ux_RecipientFields fields;
        unsigned flags;
        const char* why;
    } rows[] = {
        {{}, 0x0000, "nothing asked for"},
        {{.Category = 3}, 0x0060, "blind copy"},
        {{.Category = 7}, 0x00E0, "the largest category"},
        {{.Category = 9}, 0x0020, "only three bits of it"},
        {{.Category = -1}, 0x00E0, "only three bits of it"},
        {{.DisallowNonDelivery = true}, 0x0010, "bit 4"},
        {{.AckReq = 4}, 0x0004, "up to 4 no further bit"},
        {{.AckReq = 5}, 0x2005, "above 4 without a delivery notification"},
        {{.AckReq = 5, .DelAckWanted = true}, 0x0005, "above 4 with one"},
        {{.AckReq = 4, .DelAckWanted = true}, 0x0004, "a delivery notification has no bit of its own"},
        {{.AckReq = 15}, 0x200F, "the largest level"},
        {{.AckReq = 18}, 0x2002, "only four bits of it, but it is above 4"},
        {{.AckReq = -1}, 0x000F, "only four bits of it, and it is not above 4"},
        {{.ReplyReq = true}, 0x1000, "bit 12"},
        {{.MDNWanted = true}, 0x8000, "bit 15"},
        {{.Category = 7, .DisallowNonDelivery = true, .AckReq = 7, .ReplyReq = true, .MDNWanted = true},
         0xB0F7,
         "all together"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(static_cast<std::uint16_t>(built(ux_InCreateRecipientRecord, row.fields).get16(16)), row.flags)
            << row.why;
}

TEST_F(Records, RecipientNamesAndNumbers) {
    const ux_RecipientFields recipient{.Category = 1, .pRecipient = "/S=a"};
    EXPECT_EQ(built(ux_InCreateRecipientRecord, recipient).bytes(),
              Bytes(40000, 29).i16(16, 0x20).i16(20, 1).text(24, "/S=a"));
    ux_RecipientFields original = recipient;
    original.pOrigRecip = "rfc822;b@c";
    EXPECT_EQ(built(ux_InCreateRecipientRecord, original).bytes(),
              Bytes(40000, 35).i16(16, 0x20).i16(20, 2).text(24, "rfc822;b@c"));
    EXPECT_EQ(ux_records().RecipientId, 3) << "the number goes on from record to record";
}

TEST_F(Records, RecipientNumberWraps) {
    ux_records().RecipientId = 0x7FFF;
    EXPECT_EQ(built(ux_InCreateRecipientRecord, ux_RecipientFields{}).get16(20), 0x7FFF);
    EXPECT_EQ(built(ux_InCreateRecipientRecord, ux_RecipientFields{}).get16(20), -0x8000);
    ux_records().RecipientId = 0xFFFF;
    EXPECT_EQ(built(ux_InCreateRecipientRecord, ux_RecipientFields{}).get16(20), -1);
    EXPECT_EQ(built(ux_InCreateRecipientRecord, ux_RecipientFields{}).get16(20), 0);
}

TEST_F(Records, StringsEndAtTheirFirstNul) {
    EXPECT_EQ(built(ux_InCreateReplyToRec, std::string_view("ab\0cd", 5)).bytes(), Bytes(15000, 27, 40).text(24, "ab"));
}

TEST_F(Records, FileSizeStopsAtTheLargestNumber) {
    EXPECT_EQ(ux::file_size_field(0), 0);
    EXPECT_EQ(ux::file_size_field(0x7FFFFFFF), 0x7FFFFFFF);
    EXPECT_EQ(ux::file_size_field(0x80000000), 0x7FFFFFFF);
    EXPECT_EQ(ux::file_size_field(std::numeric_limits<std::uint64_t>::max()), 0x7FFFFFFF);
}

TEST_F(Records, HeaderUpdateKnowsWhetherItSaysAnything) {
    EXPECT_FALSE(ux_HeaderUpdate{}.any());
    EXPECT_FALSE(ux_HeaderUpdate{.HeaderPos = 100}.any());
    const ux_HeaderUpdate updates[] = {{.HopCount = 1},       {.Priority = 1},      {.Importance = 1},
                                       {.Sensitivity = 1},    {.Autoforwarded = 1}, {.Autoreplied = 1},
                                       {.NoReplyBulkMsg = 1}, {.MsgType = 1},       {.FromMailerDaemon = true}};
    for (const ux_HeaderUpdate& update : updates) EXPECT_TRUE(update.any());
}

class HeaderUpdate : public testing::Test {
protected:
    // A transfer file of three records; the one in the middle is the header.
    void fill(std::uint32_t flags, bool wrapped = false) {
        file_ = tf_CreateFile();
        tf_AppendRecord(file_, built(ux_InCreateCreatorRecord, "/S=before"));
        tf_Record header = header_record(0, 7, false, "");
        header.put32(24, static_cast<std::int32_t>(flags));
        if (wrapped) tf_ChangeToWrapRec(header);
        position_ = file_.append(header);
        tf_AppendRecord(file_, built(ux_InCreateCreatorRecord, "/S=after"));
    }
    std::string bytes() const {
        std::string scratch;
        return std::string(file_.item().view(0, 10000, scratch));
    }
    tf_Record header() {
        tf_Record record;
        tf_GotoRecord(file_, position_);
        EXPECT_TRUE(tf_ReadRecord(file_, record));
        return record;
    }
    std::uint32_t updated(std::uint32_t flags, ux_HeaderUpdate update) {
        fill(flags);
        update.HeaderPos = position_;
        ux_InUpdateHeaderRecord(file_, update);
        return static_cast<std::uint32_t>(header().get32(24));
    }

    TestHome home_;
    tf_File file_;
    std::int64_t position_ = 0;
};

TEST_F(HeaderUpdate, Flags) {
    const struct {
        std::uint32_t before;
        ux_HeaderUpdate update;
        std::uint32_t after;
        const char* why;
    } rows[] = {
        {0, {}, 0, "nothing"},
        {0, {.Priority = 2}, 0x0002, "bits 0-2"},
        {0, {.Priority = 9}, 0x0001, "three bits of it"},
        {0, {.Priority = -1}, 0x0007, "three bits of it"},
        {0, {.Sensitivity = 3}, 0x0018, "bits 3-5"},
        {0, {.Sensitivity = 8}, 0x0000, "three bits of it"},
        {0, {.Importance = 2}, 0x0080, "bits 6-8"},
        {0, {.Importance = 7}, 0x01C0, "bits 6-8, across the byte"},
        {0, {.Autoforwarded = 1}, 0xB000, "second byte 0xB0"},
        {0, {.Autoreplied = 1}, 0xE000, "second byte 0xE0"},
        {0, {.NoReplyBulkMsg = 1}, 0x8000, "second byte 0x80"},
        {0, {.FromMailerDaemon = true}, 0xA000, "second byte 0xA0"},
        {0, {.Autoforwarded = 1, .Autoreplied = 1}, 0xF000, "they combine"},
        {0x0400, {}, 0x0400, "the wish for content stays"},
        {0x0400, {.Autoreplied = 1}, 0xE400, "beside the others of its byte"},
        {0x01FF, {}, 0x0000, "old values of the three go"},
        {0xFFFFFFFF, {}, 0xFFFFFE00, "every other bit stays"},
        {0xFFFFFFFF, {.Priority = 1, .Importance = 2, .Sensitivity = 3}, 0xFFFFFE99, "every other bit stays"},
    };
    for (const auto& row : rows) EXPECT_EQ(updated(row.before, row.update), row.after) << row.why;
}

TEST_F(HeaderUpdate, NumbersAndNothingElse) {
    fill(1024);
    std::string expected = bytes();
    ux_InUpdateHeaderRecord(file_, {.HopCount = 0x01020304, .MsgType = -2, .HeaderPos = position_});
    const auto at = static_cast<std::size_t>(position_);
    expected.replace(at + 32, 4, "\x01\x02\x03\x04");
    expected.replace(at + 22, 2, "\xFF\xFE");
    EXPECT_EQ(bytes(), expected);
}

TEST_F(HeaderUpdate, WrappedRecord) {
    fill(1024, true);
    ux_InUpdateHeaderRecord(file_, {.HopCount = 3, .Priority = 2, .MsgType = 1, .HeaderPos = position_});
    tf_Record record = header();
    EXPECT_EQ(record.type(), TFREC_wrapped);
    EXPECT_EQ(record.size(), 46U + 16U);
    tf_ChangeFromWrapRec(record);
    EXPECT_EQ(record.type(), TFREC_header);
    EXPECT_EQ(record.get32(24), 1026);
    EXPECT_EQ(record.get32(32), 3);
    EXPECT_EQ(record.get16(22), 1);
}

TEST_F(HeaderUpdate, LeavesEverythingElseAlone) {
    fill(0);
    const std::string before = bytes();
    ux_InUpdateHeaderRecord(file_, {.HopCount = 3, .HeaderPos = 0});
    EXPECT_EQ(bytes(), before) << "a record of another type";
    ux_InUpdateHeaderRecord(file_, {.HopCount = 3, .HeaderPos = static_cast<std::int64_t>(before.size())});
    EXPECT_EQ(bytes(), before) << "no record there";

    file_ = tf_CreateFile();
    tf_AppendRecord(file_, tf_Record(TFREC_header));
    tf_AppendRecord(file_, built(ux_InCreateCreatorRecord, "/S=after"));
    const std::string short_header = bytes();
    ux_InUpdateHeaderRecord(file_, {.HopCount = 3, .HeaderPos = 0});
    EXPECT_EQ(bytes(), short_header) << "a header record without fields";

    file_ = tf_CreateFile();
    tf_Record wrapped = built(ux_InCreateCreatorRecord, "/S=inside");
    tf_ChangeToWrapRec(wrapped);
    tf_AppendRecord(file_, wrapped);
    const std::string creator = bytes();
    ux_InUpdateHeaderRecord(file_, {.HopCount = 3, .HeaderPos = 0});
    EXPECT_EQ(bytes(), creator) << "a wrapped record of another type";
}

TEST(AppendToORN, TakesTheCatalogText) {
    const TestHome home;
    home.write("tmp/unix.msg", "$set 102\n1 Post/master\n");
    const std::string from = home.file("tmp/unix.msg"), to = home.file("nls/C/unix.cat");
    ASSERT_EQ(run_in_child([&] { return ::execlp("gencat", "gencat", to.c_str(), from.c_str(), nullptr); }), 0);
    ::setenv("LANG", "C", 1);
    os_MCOpen(kGatewayGroup);
    std::string name = "/O=here/S=a";
    NM_PARSE_STATUS status = nm_ParseORN(name);
    ux_InAppendToORN(name, status, kNmCommonName, 1);
    EXPECT_EQ(name, "/O=here/S=a/CN=Post\\/master");
    ux_InAppendToORN(name, status, kNmGivenName, 2);
    EXPECT_EQ(name, "/O=here/S=a/CN=Post\\/master") << "no such text, no such field";
    os_MCClose();
}

}  // namespace
