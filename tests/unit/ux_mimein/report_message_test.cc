// Native reports, record by record and byte by byte.
#include "ux_mimein/report_message.h"

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "os/os.h"
#include "q/q.h"
#include "support/bytes.h"
#include "support/home.h"
#include "support/queued.h"
#include "support/reset.h"
#include "ux_in/recipients.h"
#include "ux_mimein/report_recipients.h"

namespace {

using Lines = std::vector<std::string>;

class ReportMessage : public testing::Test {
protected:
    ReportMessage() {
        ux_InAddArpaRecipToList("<sender@here>", "", false, true);
        ux_InMakeX400RecipList();
    }
    ~ReportMessage() override {
        ux_reset_report();
        ux_InFreeRecipList();
    }

    Msg_File acknowledgement(const ux_ReportFields& fields = {.MsgId = "MV0123456789ABCDEF"}, bool by_hand = false) {
        return ux_InGenerateAck(fields, by_hand);
    }
    Msg_File non_delivery(const ux_ReturnedMessage& returned = {}) {
        return ux_InGenerateNDN({.MsgId = "MV0123456789ABCDEF", .CreateGMTTime = 0, .CreateTimeZone = 60}, "Failed: Hi",
                                returned);
    }
    // The main transfer file of a message that is ready to be queued.
    static std::string transfer_file(const Msg_File& message) {
        std::vector<ITEM_REF> files;
        message.list_files(files);
        return os_read_file(im_ItemRef2FName(files[1]), 100'000);
    }
    static std::vector<std::string> records_of(const Msg_File& message, std::int32_t type) {
        im_Item item = im_CrNewDataItem();
        item.write(transfer_file(message));
        tf_File file = tf_open(std::move(item));
        std::vector<std::string> found;
        tf_Record record;
        while (tf_ReadRecord(file, record))
            if (record.type() == type) found.push_back(hex(record.bytes()));
        return found;
    }

    TestHome home_{"INET_LOCAL_DOMAINS = \"here\"\nINET_NO_IA_IN_ORN = true\n"};
    FreshGateway fresh_;
};

TEST_F(ReportMessage, TheRecordsOfAnAcknowledgement) {
    ux_InAddAckNameInfo("a@here", "", 4, 0);
    const Msg_File message =
        acknowledgement({.MsgId = "MV0123456789ABCDEF", .CreateGMTTime = 1795168800, .CreateTimeZone = 60});
    EXPECT_EQ(shown_bytes(transfer_file(message)),
              (Lines{"1100 class 1 type 110 flags 0 hops 0", "13000 1795168800 60", "13200 MV0123456789ABCDEF",
                     "40000 116 1 /O=here/S=sender", "42100 /O=here/S=a"}))
        << "116: non-delivery disallowed, category 3, and the acknowledgement that its envelope asked for";
}

TEST_F(ReportMessage, TheRecordsOfANonDelivery) {
    ux_InAddNDNNameInfo("a@here", "", 511);
    ux_InAddNDNNameInfo("b@here", "rfc822;o@here", 522);
    const Msg_File message = non_delivery();
    EXPECT_EQ(shown_bytes(transfer_file(message)),
              (Lines{"1100 class 1 type 100 flags 0 hops 0", "13000 0 60", "13200 MV0123456789ABCDEF",
                     "11100 Failed: Hi", "40000 116 1 /O=here/S=sender", "42200 /O=here/S=a", "42200 /O=here/S=b"}));
}

TEST_F(ReportMessage, ADateIsWrittenWhenThereIsTimeOrZone) {
    ux_InAddAckNameInfo("a@here", "", 4, 0);
    EXPECT_EQ(records_of(acknowledgement(), TFREC_creation_date).size(), 0U);
    EXPECT_EQ(records_of(acknowledgement({.MsgId = "m", .CreateGMTTime = 1}), TFREC_creation_date).size(), 1U);
    EXPECT_EQ(records_of(acknowledgement({.MsgId = "m", .CreateTimeZone = -60}), TFREC_creation_date).size(), 1U);
}

TEST_F(ReportMessage, TheBytesOfAnAcknowledgement) {
    ux_InAddAckNameInfo("a@here", "", 7, 0);
    ux_InAddAckNameInfo("b@here", "rfc822;o", 6, 2);
    const auto plain = records_of(acknowledgement(), TFREC_acknowledgement);
    ASSERT_EQ(plain.size(), 2U);
    EXPECT_EQ(plain[0], hex(bytes("00000024 0000A474 00000000 0000 0000 0007 000000000000 '/O=here/S=a' 00")).c_str());
    EXPECT_EQ(plain[1], hex(bytes("00000031 0000A474 00000000 0000 0000 0026 000000000000 '/O=here/S=b' 00"
                                  "00 00 00 00 'rfc822;o' 00")));
    const auto by_hand = records_of(acknowledgement({.MsgId = "m"}, true), TFREC_acknowledgement);
    EXPECT_EQ(by_hand[1], hex(bytes("00000031 0000A474 00000000 0000 0000 00A6 000000000000 '/O=here/S=b' 00"
                                    "00 00 00 00 'rfc822;o' 00")))
        << "166 = 2 x 16 + 6 + 128";
}

TEST_F(ReportMessage, TheBytesOfANonDelivery) {
    ux_InAddNDNNameInfo("a@here", "", 511);
    ux_InAddNDNNameInfo("b@here", "rfc822;o", -1);
    const auto entries = records_of(non_delivery(), TFREC_non_delivery);
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0], hex(bytes("00000024 0000A4D8 00000000 0000 0000 000000000000 01FF '/O=here/S=a' 00")));
    EXPECT_EQ(entries[1], hex(bytes("00000031 0000A4D8 00000000 0000 0000 000000000000 FFFF '/O=here/S=b' 00"
                                    "0000 0000 'rfc822;o' 00")));
}

TEST_F(ReportMessage, WhoHasNoNativeNameGetsNoRecord) {
    ux_InAddNDNNameInfo("a@here", "", 511);
    ux_InAddNDNNameInfo("@@", "", 511);
    ux_InAddNDNNameInfo("c@here", "", 511);
    EXPECT_EQ(records_of(non_delivery(), TFREC_non_delivery).size(), 2U);
    ux_InAddAckNameInfo("@@", "", 4, 0);
    EXPECT_EQ(records_of(acknowledgement(), TFREC_acknowledgement).size(), 0U);
}

TEST_F(ReportMessage, ReturnedContentStandsBetweenTheSubjectAndTheRecipients) {
    ux_InAddNDNNameInfo("a@here", "", 511);
    const Msg_File message = non_delivery([](tf_File& file, Msg_File& report) {
        tf_AppendRecord(file, tf_Record(TFREC_end_package));
        im_Item item = im_CrNewDataItem();
        item.write("returned");
        Msg_AttachFile(report, std::move(item));
    });
    Lines types;
    for (const std::string& line : shown_bytes(transfer_file(message))) types.push_back(line.substr(0, 5));
    EXPECT_EQ(types, (Lines{"1100 ", "13000", "13200", "11100", "39000", "40000", "42200"}));
    EXPECT_EQ(message.attached(), 1U);
}

TEST_F(ReportMessage, WhatIsNotQueuedLeavesNothing) {
    ux_InAddNDNNameInfo("a@here", "", 511);
    ux_InAddAckNameInfo("a@here", "", 4, 0);
    {
        const Msg_File first = non_delivery(), second = acknowledgement();
        EXPECT_EQ(home_.files("data").size(), 4U);
    }
    EXPECT_TRUE(home_.files("data").empty());
}

TEST_F(ReportMessage, AnEscapeLeavesNothing) {
    ux_InAddNDNNameInfo("a@here", "", 511);
    EXPECT_THROW(non_delivery([](tf_File&, Msg_File& report) {
                     im_Item item = im_CrNewDataItem();
                     item.write("returned");
                     Msg_AttachFile(report, std::move(item));
                     er_TracedEscape(kGatewayGroup, 1401);
                 }),
                 er_Escape);
    EXPECT_TRUE(home_.files("data").empty());
}

}  // namespace
