// The lists of a report's recipients: growing, order, and what happens when there is no room.
#include "ux_mimein/report_recipients.h"

#include <malloc.h>

#include <string>

#include <gtest/gtest.h>

#include "support/child.h"
#include "support/home.h"

namespace {

class Recipients : public testing::Test {
protected:
    Recipients() { ux_reset_report(); }
    ~Recipients() override { ux_reset_report(); }
    TestHome home_;
};

TEST_F(Recipients, BothListsKeepWhatTheyAreGivenInOrder) {
    EXPECT_TRUE(ux_report().gAckNameList.empty());
    EXPECT_TRUE(ux_InAddAckNameInfo("a@x", "rfc822;o@x", 6, 4));
    EXPECT_TRUE(ux_InAddAckNameInfo("b@x", "", 7, 0));
    EXPECT_TRUE(ux_InAddNDNNameInfo("c@x", "", -5));
    std::string seen;
    const auto show = [&](const AckNameInfo& entry) {
        seen += entry.pArpaRecip + "|" + entry.pOrigRecip + "|" + std::to_string(entry.AckLevel) + "|" +
                std::to_string(entry.SubAckLevel) + "|" + std::to_string(entry.Reason) + " ";
    };
    ux_report().gAckNameList.for_each(show);
    EXPECT_EQ(seen, "a@x|rfc822;o@x|6|4|0 b@x||7|0|0 ");
    seen.clear();
    ux_report().gNDNNameList.for_each(show);
    EXPECT_EQ(seen, "c@x||0|0|-5 ");
}

TEST_F(Recipients, RoomIsMadeForFourWhenOneIsLeft) {
    const ux_AckNameList& list = ux_report().gAckNameList;
    std::string sizes;
    for (int i = 0; i < 9; ++i) {
        EXPECT_TRUE(ux_InAddAckNameInfo("a@x", "", 4, 0));
        sizes += std::to_string(list.count()) + "/" + std::to_string(list.size()) + " ";
    }
    EXPECT_EQ(sizes, "1/4 2/4 3/4 4/8 5/8 6/8 7/8 8/12 9/12 ");
    EXPECT_TRUE(ux_InGrowAckList(10));
    EXPECT_EQ(list.size(), 22U);
    EXPECT_TRUE(ux_InGrowNDNList(1));
    EXPECT_EQ(ux_report().gNDNNameList.size(), 1U);
}

TEST_F(Recipients, ManyNeedNoMoreMemoryThanAFew) {
    const std::string address(200, 'a');
    for (int i = 0; i < 2000; ++i) ASSERT_TRUE(ux_InAddNDNNameInfo(address, address, 511));
    const std::size_t few = ::mallinfo2().uordblks;
    for (int i = 0; i < 48'000; ++i) ASSERT_TRUE(ux_InAddNDNNameInfo(address, address, 511));
    EXPECT_LT(::mallinfo2().uordblks, few + 200'000);
    std::size_t seen = 0;
    ux_report().gNDNNameList.for_each([&](const AckNameInfo& entry) { seen += entry.pArpaRecip == address ? 1 : 0; });
    EXPECT_EQ(seen, 50'000U);
    EXPECT_EQ(home_.files("data").size() + home_.files("tmp").size(), 0U) << "and are in no file with a name";
}

TEST_F(Recipients, AnEntryThatCannotBeKeptIsNotThere) {
    const int status = run_in_child([] {
        limit_file_size(kKeptInMemory);
        const std::string address(1000, 'a');
        std::size_t count = 0;
        while (count < 1000 && ux_InAddNDNNameInfo(address, address, 511)) ++count;
        if (count < 10 || count == 1000) return 1;
        if (ux_report().gNDNNameList.count() != count) return 2;
        std::size_t seen = 0;
        ux_report().gNDNNameList.for_each(
            [&](const AckNameInfo& entry) { seen += entry.pOrigRecip == address ? 1 : 0; });
        return seen == count ? 0 : 3;
    });
    EXPECT_EQ(status, 0);
}

}  // namespace
