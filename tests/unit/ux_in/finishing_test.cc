// Finishing transfer files: recipient records from the envelope list, the counts of a list file, the header item.
#include "ux_in/finishing.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "aud/aud.h"
#include "support/home.h"
#include "support/log_lines.h"
#include "support/reset.h"
#include "support/shown_records.h"
#include "ux_in/recipients.h"
#include "ux_in/records.h"

namespace {

using Lines = std::vector<std::string>;

class Finishing : public testing::Test {
protected:
    struct Recipient {
        int Category = 3;
        bool NoNDNWanted = false;
        bool DelAckWanted = false;
        std::string pOrigRecip = {};
        bool named = true;
    };
    // The records of recipients r1, r2, ... as they are, with what the message wishes.
    Lines records(const std::vector<Recipient>& recipients, const ux_RecipientWishes& wishes) {
        ux_reset_recipients();
        ux_reset_records();
        int number = 0;
        for (const Recipient& recipient : recipients) {
            const std::string name = "r" + std::to_string(++number);
            ux_InAddArpaRecipToList("<" + name + "@x>", "", recipient.NoNDNWanted, recipient.DelAckWanted);
            RecipientInfo& entry = ux_recipients().gRecipList[static_cast<std::size_t>(number) - 1];
            entry.Category = recipient.Category;
            entry.pOrigRecip = recipient.pOrigRecip;
            if (recipient.named) entry.pX400Recip = "/S=" + name;
        }
        ux_audit().AuditHandle = aud_StartTransaction(10);
        tf_File file = tf_CreateFile();
        ux_InAddRecipsToTF(file, wishes);
        aud_EndTransaction(ux_audit().AuditHandle);
        return shown(file);
    }
    // The flags of one recipient's record.
    int flags(const Recipient& recipient, const ux_RecipientWishes& wishes) {
        return std::stoi(records({recipient}, wishes).at(0).substr(6));
    }

    TestHome home_;
    LogLines log_;
    FreshGateway fresh_;
};

TEST_F(Finishing, OneRecordForEachRecipientThatHasAName) {
    EXPECT_EQ(records({{.Category = 1}, {.Category = 2, .named = false}, {.Category = 3}}, {}),
              (Lines{"40000 32 1 /S=r1", "40000 96 2 /S=r3"}));
    EXPECT_EQ(records({}, {}), Lines{});
}

TEST_F(Finishing, ACategoryThatIsNoneIsThree) {
    const struct { int category, field; } rows[] = {{0, 0}, {1, 1}, {2, 2}, {3, 3}, {-1, 3}, {4, 3}, {5, 3}, {100, 3}};
    for (const auto& row : rows) EXPECT_EQ(flags({.Category = row.category}, {}) >> 5 & 7, row.field) << row.category;
}

TEST_F(Finishing, TheAcknowledgementLevelIsTheMessagesOrWhatTheRecipientAskedFor) {
    const struct {
        std::int16_t AckReq;
        bool DelAckWanted;
        int level;
        const char* why;
    } rows[] = {
        {0, false, 0, "nobody asked"},
        {0, true, 4, "NOTIFY=SUCCESS is at least 4"},
        {3, true, 4, "and raises what is below"},
        {4, true, 4, "but not what is there"},
        {7, true, 7, "nor what is above"},
        {3, false, 3, "the message's own"},
        {7, false, 7, "the message's own"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(flags({.DelAckWanted = row.DelAckWanted}, {.AckReq = row.AckReq}) & 15, row.level) << row.why;
}

TEST_F(Finishing, NonDeliveryIsDisallowedByTheMessageOrTheRecipient) {
    EXPECT_EQ(flags({}, {}) & 0x10, 0);
    EXPECT_EQ(flags({.NoNDNWanted = true}, {}) & 0x10, 0x10);
    EXPECT_EQ(flags({}, {.DisallowNonDelivery = true}) & 0x10, 0x10);
}

TEST_F(Finishing, WishesOfTheMessageReachEveryRecipient) {
    EXPECT_EQ(flags({}, {.ReplyReq = true}) & 0x1000, 0x1000);
    EXPECT_EQ(flags({}, {.MDNWanted = true}) & 0x8000, 0x8000);
    EXPECT_EQ(flags({}, {.AckReq = 7}) & 0x2000, 0x2000) << "above 4, and no delivery notification";
    EXPECT_EQ(flags({.DelAckWanted = true}, {.AckReq = 7}) & 0x2000, 0);
}

TEST_F(Finishing, AnOriginalRecipientTakesTheNamesPlace) {
    EXPECT_EQ(records({{.pOrigRecip = "rfc822;o@y"}}, {}), Lines{"40000 96 1 rfc822;o@y"});
}

TEST_F(Finishing, NumbersRunOnFromCallToCall) {
    records({{}, {}}, {});
    tf_File file = tf_CreateFile();
    ux_InAddRecipsToTF(file, {});
    EXPECT_EQ(shown(file), (Lines{"40000 96 3 /S=r1", "40000 96 4 /S=r2"}));
}

TEST_F(Finishing, RecipientsAreAuditedByCategory) {
    records({{.Category = 0}, {.Category = 1}, {.Category = 2}, {.Category = 3}, {.Category = 9}, {.named = false}},
            {});
    const std::string trail = home_.read("logs/audit.jsonl");
    EXPECT_NE(trail.find(R"([{"code":50,"name":"/S=r1","inet":"<r1@x>"},{"code":51,"name":"/S=r2","inet":"<r2@x>"},)"
                         R"({"code":52,"name":"/S=r3","inet":"<r3@x>"},{"code":53,"name":"/S=r4","inet":"<r4@x>"},)"
                         R"({"code":53,"name":"/S=r5","inet":"<r5@x>"}])"),
              std::string::npos)
        << trail;
}

class ListCounts : public Finishing {
protected:
    // The count record of a list file with entries of these types.
    std::string counted(const std::vector<int>& types) {
        tf_File file = tf_CreateFile();
        tf_Record record;
        ux_InCreateHeaderRecord(2, 1000, true, "", record);
        tf_AppendRecord(file, record);
        ux_InCreateDLCountRec(record);
        tf_AppendRecord(file, record);
        for (const int type : types) {
            ux_InCreateDistListRec(type, "/S=x", record);
            tf_AppendRecord(file, record);
        }
        ux_InUpdateDistListCounts(file);
        const Lines lines = shown(file);
        EXPECT_EQ(lines.size(), types.size() + 2) << "counting adds and removes nothing";
        return only(lines, 20010);
    }
};

TEST_F(ListCounts, AreOfTheEntriesByTheirType) {
    const struct {
        std::vector<int> types;
        const char* counts;
    } rows[] = {
        {{}, "20010 flags 1 total 0 0 0 0 0 0 0"},
        {{22000}, "20010 flags 1 total 1 1 0 0 0 0 0"},
        {{22100, 22100}, "20010 flags 1 total 2 0 2 0 0 0 0"},
        {{22200}, "20010 flags 1 total 1 0 0 1 0 0 0"},
        {{22300}, "20010 flags 0 total 1 0 0 0 1 0 0"},
        {{22430}, "20010 flags 1 total 1 0 0 0 0 1 0"},
        {{22440}, "20010 flags 1 total 1 0 0 0 0 0 1"},
        {{22000, 22100, 22200, 22300, 22430, 22440, 22000, 15000, 11100}, "20010 flags 0 total 7 2 1 1 1 1 1"},
    };
    for (const auto& row : rows) EXPECT_EQ(counted(row.types), row.counts);
}

TEST_F(ListCounts, AFileWithoutACountRecordStaysAsItIs) {
    tf_File file = tf_CreateFile();
    tf_Record record;
    ux_InCreateDistListRec(22100, "/S=x", record);
    tf_AppendRecord(file, record);
    ux_InUpdateDistListCounts(file);
    EXPECT_EQ(shown(file), Lines{"22100 /S=x"});
}

TEST_F(ListCounts, OnlyTheFirstCountRecordIsFilled) {
    tf_File file = tf_CreateFile();
    tf_Record record;
    ux_InCreateDLCountRec(record);
    tf_AppendRecord(file, record);
    tf_AppendRecord(file, record);
    ux_InUpdateDistListCounts(file);
    EXPECT_EQ(shown(file), (Lines{"20010 flags 1 total 0 0 0 0 0 0 0", "20010 flags 0 total 0 0 0 0 0 0 0"}));
}

TEST_F(ListCounts, CountingAgainCountsAgain) {
    tf_File file = tf_CreateFile();
    tf_Record record;
    ux_InCreateDLCountRec(record);
    tf_AppendRecord(file, record);
    for (const int total : {1, 2}) {
        ux_InCreateDistListRec(22100, "/S=x", record);
        tf_AppendRecord(file, record);
        ux_InUpdateDistListCounts(file);
        EXPECT_EQ(only(shown(file), 20010),
                  "20010 flags 1 total " + std::to_string(total) + " 0 " + std::to_string(total) + " 0 0 0 0");
    }
}

TEST_F(Finishing, TheHeaderItemIsDeleted) {
    im_Item header = im_CrNewDataItem();
    header.write("Subject: x\r\n");
    header.place();
    ASSERT_EQ(home_.files("data").size(), 1U);
    ux_InTidyHeader(header);
    EXPECT_EQ(home_.files("data").size(), 0U);
    ux_InTidyHeader(header);  // there is none any more
    im_Item gone = im_CrNewDataItem();
    gone.place();
    std::filesystem::remove(home_.files("data").at(0));
    ux_InTidyHeader(gone);  // somebody else was faster
}

TEST(ListFile, BeginsWithItsHeaderAndCountsOfNothing) {
    for (const bool ROCWanted : {true, false}) {
        tf_File DLHandle = ux::create_list_file(ROCWanted);
        EXPECT_EQ(shown(DLHandle),
                  (Lines{std::string("1100 class 2 type 1000 flags ") + (ROCWanted ? "1024" : "0") + " hops 0",
                         "20010 flags 0 total 0 0 0 0 0 0 0"}));
    }
}

}  // namespace
