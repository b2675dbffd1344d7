// Records: every layout that this floor owns, byte for byte against bytes written by hand.
#include "tf/record.h"

#include <string>

#include <gtest/gtest.h>

#include "support/bytes.h"

namespace {

ITEM_REF some_ref() {
    return {.domain = 1, .flags = 0, .sub_domain = 0, .file_id = 0x0123456789ABCDEF, .extension = {'i', 't', 'e', 'm'}};
}

struct TypeRow {
    std::int32_t type;
    std::int32_t number;
};
// clang-format off
constexpr TypeRow kTypes[] = {
    {TFREC_queue_file_start, 90}, {TFREC_message_file, 91}, {TFREC_queue_entry, 92}, {TFREC_header, 1100},
    {TFREC_creator, 10000}, {TFREC_p2_originator, 10005}, {TFREC_subject, 11100}, {TFREC_item_class, 11200},
    {TFREC_creation_date, 13000}, {TFREC_message_id, 13100}, {TFREC_in_reply_to, 13200}, {TFREC_reply_by, 13600},
    {TFREC_expiry_date, 13700}, {TFREC_references, 13800}, {TFREC_obsoletes, 13900}, {TFREC_deferred_delivery, 14100},
    {TFREC_reply_to, 15000}, {TFREC_latest_delivery, 16000}, {TFREC_originator_return, 16100}, {TFREC_list_counts, 20010},
    {TFREC_list_from, 22000}, {TFREC_list_to, 22100}, {TFREC_list_cc, 22200}, {TFREC_list_bcc, 22300},
    {TFREC_list_sender, 22430}, {TFREC_list_reply_to, 22440}, {TFREC_start_package_type, 30100},
    {TFREC_start_alternatives, 30200}, {TFREC_content_file_type, 30500}, {TFREC_file_creation_date, 30600},
    {TFREC_file_modification_date, 30605}, {TFREC_object_file, 30700}, {TFREC_mapi_properties, 30710},
    {TFREC_wrapped, 34500}, {TFREC_end_package, 39000}, {TFREC_end_alternatives, 39100}, {TFREC_recipient, 40000},
    {TFREC_acknowledgement, 42100}, {TFREC_non_delivery, 42200},
};
// clang-format on

TEST(Record, TypeNumbersNeverChange) {
    for (const TypeRow& row : kTypes) EXPECT_EQ(row.type, row.number);
}

TEST(Record, HeaderOfSixteenBytes) {
    EXPECT_EQ(hex(tf_Record(TFREC_end_package).bytes()),
              hex(bytes("00000010"  // size, these bytes included
                        "00009858"  // type 39000
                        "00000000"  // result
                        "0000"      // flags
                        "0000")));  // word
    EXPECT_EQ(hex(tf_Record(TFREC_start_alternatives).bytes()), hex(bytes("00000010 000075F8 00000000 0000 0000")));
    EXPECT_EQ(hex(tf_Record(TFREC_end_alternatives).bytes()), hex(bytes("00000010 000098BC 00000000 0000 0000")));
    EXPECT_EQ(hex(tf_Record(-1).bytes()), hex(bytes("00000010 FFFFFFFF 00000000 0000 0000")));
    EXPECT_EQ(tf_Record(TFREC_end_package).type(), 39000);
}

TEST(Record, WordOfListRecordsStandsInTheHeader) {
    tf_Record record(TFREC_reply_to);
    record.put16(14, 40);
    EXPECT_EQ(hex(record.bytes()), hex(bytes("00000010 00003A98 00000000 0000 0028")));
}

TEST(Record, NumbersAreBigEndianAndTheRecordGrowsWithThem) {
    tf_Record record(TFREC_header);
    record.put16(16, 3);
    EXPECT_EQ(hex(record.bytes()), hex(bytes("00000012 0000044C 00000000 0000 0000 0003")));
    record.put32(20, -2);
    EXPECT_EQ(hex(record.bytes()), hex(bytes("00000018 0000044C 00000000 0000 0000 0003 0000 FFFFFFFE")));
    record.put16(18, -32768);
    EXPECT_EQ(hex(record.bytes()), hex(bytes("00000018 0000044C 00000000 0000 0000 0003 8000 FFFFFFFE")));
    record.put64(24, 0x0102030405060708);
    EXPECT_EQ(hex(record.bytes()),
              hex(bytes("00000020 0000044C 00000000 0000 0000 0003 8000 FFFFFFFE 01020304 05060708")));
}

TEST(Record, FieldsMayBeUnalignedAndWhatNoneCoversIsZero) {
    tf_Record record(TFREC_header);
    record.put32(19, 0x11223344);
    EXPECT_EQ(hex(record.bytes()), hex(bytes("00000017 0000044C 00000000 0000 0000 000000 11223344")));
    record.put_string(25, "x");
    EXPECT_EQ(hex(record.bytes()), hex(bytes("0000001B 0000044C 00000000 0000 0000 000000 11223344 0000 'x' 00")));
}

TEST(Record, StringsStandInPlaceWithTheirNul) {
    tf_Record record(TFREC_item_class);
    EXPECT_EQ(record.put_string(16, "IPM"), 20U);
    EXPECT_EQ(hex(record.bytes()), hex(bytes("00000014 00002BC0 00000000 0000 0000 'IPM' 00")));
    EXPECT_EQ(record.put_string(20, ""), 21U);
    EXPECT_EQ(hex(record.bytes()), hex(bytes("00000015 00002BC0 00000000 0000 0000 'IPM' 00 00")));
    EXPECT_EQ(record.put_string(21, std::string_view("a\0b", 3)), 23U) << "a NUL ends it";
    EXPECT_EQ(hex(record.bytes()), hex(bytes("00000017 00002BC0 00000000 0000 0000 'IPM' 00 00 'a' 00")));
    EXPECT_EQ(record.put_string(23, "\xE9\n"), 26U);
    EXPECT_EQ(hex(record.bytes()), hex(bytes("0000001A 00002BC0 00000000 0000 0000 'IPM' 00 00 'a' 00 E90A 00")));
}

TEST(Record, AShorterStringOverALongerOneEndsWhereItEnds) {
    tf_Record record(TFREC_item_class);
    record.put_string(16, "IPM.Note");
    EXPECT_EQ(record.put_string(16, "Re"), 19U);
    EXPECT_EQ(record.get_string(16), "Re");
    EXPECT_EQ(hex(record.bytes()), hex(bytes("00000019 00002BC0 00000000 0000 0000 'Re' 00 '.Note' 00")));
}

TEST(Record, ItemReferenceOfTwentyBytes) {
    tf_Record record(TFREC_message_file);
    record.put_ref(16, some_ref());
    EXPECT_EQ(hex(record.bytes()), hex(bytes("00000024 0000005B 00000000 0000 0000"
                                             "0001"              // domain
                                             "0000"              // flags
                                             "00000000"          // sub-domain
                                             "0123456789ABCDEF"  // file id
                                             "'item'")));        // extension
    const ITEM_REF odd{.domain = 0xFFFE, .flags = 0x1234, .sub_domain = 0xABCDEF01, .file_id = ~std::uint64_t{0}};
    record.put_ref(16, odd);
    EXPECT_EQ(hex(record.bytes()),
              hex(bytes("00000024 0000005B 00000000 0000 0000 FFFE 1234 ABCDEF01 FFFFFFFF FFFFFFFF 00000000")));
    EXPECT_EQ(record.get_ref(16), odd);
}

TEST(Record, MessageFile) {
    tf_Record record(TFREC_queue_file_start);
    record.put32(16, 1);
    record.put_string(20, "");
    EXPECT_EQ(hex(record.bytes()), hex(bytes("00000015 0000005A 00000000 0000 0000 00000001 00")));
}

TEST(Record, QueueEntry) {
    tf_Record record(TFREC_queue_entry);
    record.put_ref(16, some_ref());
    record.put32(36, 2);
    record.put64(40, 1'795'209'753);
    EXPECT_EQ(hex(record.bytes()), hex(bytes("00000030 0000005C 00000000 0000 0000"
                                             "0001 0000 00000000 0123456789ABCDEF 'item'"
                                             "00000002"
                                             "00000000 6B00BA19")));
}

TEST(Record, Subject) {
    tf_Record record;
    tf_MakeSubjectRec(record, TFREC_subject, "Hi");
    EXPECT_EQ(hex(record.bytes()), hex(bytes("0000001B 00002B5C 00000000 0000 0000"
                                             "'Hi' 00"
                                             "00 00 00 00"   // four empty strings
                                             "00000000")));  // i32
    tf_MakeSubjectRec(record, TFREC_subject, "");
    EXPECT_EQ(hex(record.bytes()), hex(bytes("00000019 00002B5C 00000000 0000 0000 00 00000000 00000000")))
        << "nothing of the one before it is left";
}

TEST(Record, Wrapped) {
    tf_Record record(TFREC_item_class);
    record.put_string(16, "IPM");
    const std::string inner(record.bytes());
    tf_ChangeToWrapRec(record);
    EXPECT_EQ(hex(record.bytes()), hex(bytes("00000024 000086C4 00000000 0000 0000"
                                             "00000014 00002BC0 00000000 0000 0000 'IPM' 00")));
    EXPECT_EQ(record.type(), TFREC_wrapped);
    tf_ChangeFromWrapRec(record);
    EXPECT_EQ(hex(record.bytes()), hex(inner));
}

TEST(Record, WrappedTwice) {
    tf_Record record(TFREC_end_package);
    tf_ChangeToWrapRec(record);
    tf_ChangeToWrapRec(record);
    EXPECT_EQ(hex(record.bytes()), hex(bytes("00000030 000086C4 00000000 0000 0000"
                                             "00000020 000086C4 00000000 0000 0000"
                                             "00000010 00009858 00000000 0000 0000")));
    tf_ChangeFromWrapRec(record);
    tf_ChangeFromWrapRec(record);
    EXPECT_EQ(record.type(), TFREC_end_package);
}

TEST(Record, UnwrappingWhatIsNotWrappedChangesNothing) {
    tf_Record record(TFREC_item_class);
    record.put_string(16, "IPM");
    const std::string before(record.bytes());
    tf_ChangeFromWrapRec(record);
    EXPECT_EQ(hex(record.bytes()), hex(before));
    tf_Record empty(TFREC_wrapped);
    tf_ChangeFromWrapRec(empty);
    EXPECT_EQ(empty.type(), TFREC_wrapped) << "nothing in it";
}

// Each string carries the number of its place, so that a changed order shows.
TEST(Record, ContentFile) {
    TFREC_content_file file;
    tf_initTFREC_content_file(file, 1167);
    file.contentType = 1736;
    file.contentFlags = 0x80000002;
    file.fileSize = 4711;
    file.latinSubject = "s01";
    file.pOrigFileName = "s02";
    file.pContentLang = "s03";
    file.pContentCharset = "s04";
    file.subjLang = "s05";
    file.latinSubjCharset = "s06";
    file.pX400_DataObjectId = "s07";
    file.pX400_ParamsObjectId = "s08";
    file.t61Subject = "s09";
    file.t61SubjCharset = "s10";
    file.pOrigCharset = "s11";
    file.pApplicRef = "s12";
    file.pMIMEContentType = "s13";
    file.pContentDisp = "s14";
    file.pContentID = "s15";
    file.pContentLocation = "s16";
    file.rfc2047subject = "s17";
    tf_Record record;
    tf_ContentFileRecFromStruc(record, file);
    EXPECT_EQ(hex(record.bytes()), hex(bytes("00000064 00007724 00000000 0000 0000"
                                             "0000048F"  // origContentType
                                             "000006C8"  // contentType
                                             "80000002"  // contentFlags
                                             "00001267"  // fileSize
                                             "'s01' 00 's02' 00 's03' 00 's04' 00 's05' 00 's06' 00 's07' 00 's08' 00"
                                             "'s09' 00 's10' 00 's11' 00 's12' 00 's13' 00 's14' 00 's15' 00 's16' 00"
                                             "'s17' 00")));
    const TFREC_content_file back = tf_ContentFileRecToStruc(record);
    EXPECT_EQ(back.origContentType, 1167);
    EXPECT_EQ(back.contentType, 1736);
    EXPECT_EQ(back.contentFlags, 0x80000002);
    EXPECT_EQ(back.fileSize, 4711);
    EXPECT_EQ(back.latinSubject, "s01");
    EXPECT_EQ(back.pContentCharset, "s04");
    EXPECT_EQ(back.rfc2047subject, "s17");
    tf_Record again;
    tf_ContentFileRecFromStruc(again, back);
    EXPECT_EQ(hex(again.bytes()), hex(record.bytes()));
}

TEST(Record, ContentFileAsInitialised) {
    TFREC_content_file file;
    file.rfc2047subject = "of the one before";
    file.contentFlags = 2;
    tf_initTFREC_content_file(file, 1166);
    tf_Record record(TFREC_subject);
    record.put_string(16, std::string(200, 'x'));
    tf_ContentFileRecFromStruc(record, file);
    EXPECT_EQ(hex(record.bytes()), hex(bytes("00000031 00007724 00000000 0000 0000"
                                             "0000048E 0000048E 00000000 00000000"
                                             "00000000 00000000 00000000 00000000 00")));
}

TEST(Record, StartOfPackage) {
    TFREC_start_package package;
    tf_initTFREC_start_package(package, 3, -100);
    tf_Record record;
    tf_ST_PKG_from_Struc(record, package);
    EXPECT_EQ(hex(record.bytes()), hex(bytes("00000027 00007594 00000000 0000 0000"
                                             "00000003"   // package type
                                             "00000000"   // security
                                             "00 00 00"   // latinSubject, subjLang, latinSubjCharset
                                             "00000000"   // pkgFlags
                                             "FFFFFF9C"   // qnPkgType
                                             "0000"       // itemType
                                             "00 00")));  // pMIMEContentType, rfc2047subject
    package.security = 5;
    package.latinSubject = "p1";
    package.subjLang = "p2";
    package.latinSubjCharset = "p3";
    package.pkgFlags = 6;
    package.itemType = -7;
    package.pMIMEContentType = "p4";
    package.rfc2047subject = "p5";
    tf_ST_PKG_from_Struc(record, package);
    EXPECT_EQ(hex(record.bytes()), hex(bytes("00000031 00007594 00000000 0000 0000"
                                             "00000003 00000005"
                                             "'p1' 00 'p2' 00 'p3' 00"
                                             "00000006 FFFFFF9C FFF9"
                                             "'p4' 00 'p5' 00")));
    const TFREC_start_package back = tf_ST_PKG_to_Struc(record);
    EXPECT_EQ(back.pkgType, 3);
    EXPECT_EQ(back.security, 5);
    EXPECT_EQ(back.latinSubject, "p1");
    EXPECT_EQ(back.subjLang, "p2");
    EXPECT_EQ(back.latinSubjCharset, "p3");
    EXPECT_EQ(back.pkgFlags, 6);
    EXPECT_EQ(back.qnPkgType, -100);
    EXPECT_EQ(back.itemType, -7);
    EXPECT_EQ(back.pMIMEContentType, "p4");
    EXPECT_EQ(back.rfc2047subject, "p5");
}

TEST(Record, FieldsBeyondTheEndReadAsZeroOrEmpty) {
    tf_Record record(TFREC_header);
    record.put16(16, 7);
    EXPECT_EQ(record.get16(16), 7);
    EXPECT_EQ(record.get16(17), 0) << "half of it";
    EXPECT_EQ(record.get32(16), 0);
    EXPECT_EQ(record.get64(12), 0);
    EXPECT_EQ(record.get16(~std::size_t{0}), 0) << "an offset that wraps around";
    EXPECT_EQ(record.get_string(18), "");
    EXPECT_EQ(record.get_string(1000), "");
    EXPECT_EQ(record.get_ref(17), ITEM_REF{});
    record.assign("");
    EXPECT_EQ(record.type(), 0);
    EXPECT_EQ(record.get_string(0), "");
}

TEST(Record, AStringWithoutItsNulEndsWithTheRecord) {
    tf_Record record;
    record.assign(bytes("00000013 00002BC0 00000000 0000 0000 'IPM'"));
    EXPECT_EQ(record.get_string(16), "IPM");
    const TFREC_content_file file = tf_ContentFileRecToStruc(record);
    EXPECT_EQ(file.rfc2047subject, "");
    record.assign(bytes("00000022 00007724 00000000 0000 0000 00000001 00000002 00000003 00000004 'ab'"));
    EXPECT_EQ(tf_ContentFileRecToStruc(record).latinSubject, "ab");
    EXPECT_EQ(tf_ContentFileRecToStruc(record).pOrigFileName, "");
    EXPECT_EQ(tf_ST_PKG_to_Struc(record).rfc2047subject, "");
}

TEST(Record, AFieldPutIntoARecordThatIsCutGivesAWholeOne) {
    tf_Record record;
    record.assign("");
    record.put16(0, 1);
    EXPECT_EQ(record.size(), kTfHeaderSize);
}

TEST(Record, SizeOfARecordThatBegins) {
    EXPECT_EQ(tf_record_size(bytes("00000010")), 16U);
    EXPECT_EQ(tf_record_size(bytes("0000000F")), 0U) << "less than a record head";
    EXPECT_EQ(tf_record_size(bytes("00000000")), 0U);
    EXPECT_EQ(tf_record_size(bytes("FFFFFFFF")), 0xFFFFFFFFU);
    EXPECT_EQ(tf_record_size(bytes("000010")), 0U) << "cut";
    EXPECT_EQ(tf_record_size(""), 0U);
}

TEST(Record, FixedRoutinesDoTheSame) {
    tf_Record record;
    tf_InitRecord(record, TFREC_header);
    tf_PutINT16(record, 16, 3);
    tf_PutINT32(record, 24, 1024);
    std::size_t next = 0;
    tf_PutString(record, 54, &next, "text/plain");
    EXPECT_EQ(next, 65U);
    tf_PutString(record, next, nullptr, "x");
    EXPECT_EQ(tf_GetINT32(record, 24), 1024);
    EXPECT_EQ(hex(record.bytes()), hex(bytes("00000043 0000044C 00000000 0000 0000 0003 0000 00000000 00000400"
                                             "00000000 00000000 00000000 00000000 00000000 00000000 0000"
                                             "'text/plain' 00 'x' 00")));
}

TEST(Record, AFileSizeThatTheFieldCannotTellIsTheLargest) {
    EXPECT_EQ(tf_file_size(0), 0);
    EXPECT_EQ(tf_file_size(0x7FFFFFFF), 0x7FFFFFFF);
    EXPECT_EQ(tf_file_size(0x80000000), 0x7FFFFFFF);
    EXPECT_EQ(tf_file_size(~std::uint64_t{0}), 0x7FFFFFFF);
}

}  // namespace
