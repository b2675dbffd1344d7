// Making items durable. That bytes reach the disk cannot be seen from here; that every file is asked for, and what
// happens when one fails, can.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "im/im.h"
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

class SyncedItems : public testing::Test {
protected:
    // Items that are placed, and their references.
    void place(std::size_t count) {
        for (std::size_t n = 0; n < count; ++n) {
            items_.push_back(im_CrNewDataItem());
            items_.back().write("x");
            items_.back().place();
            refs_.push_back(items_.back().ref());
        }
    }

    TestHome home_;
    std::vector<im_Item> items_;
    std::vector<ITEM_REF> refs_;
};

class Sync : public SyncedItems, public testing::WithParamInterface<im_SyncBy> {};
using SyncByFiles = SyncedItems;

TEST_P(Sync, AnyNumberOfItems) {
    im_SyncItems({}, {}, GetParam());
    for (const std::size_t more : {1, 30, 1, 1, 100}) {  // few together, and many by whole file systems
        place(more);
        EXPECT_EQ(reason_of([&] { im_SyncItems(refs_, {}, GetParam()); }), 0) << refs_.size();
    }
}

TEST_F(SyncByFiles, AnItemThatIsGoneIsAFailure) {
    place(3);
    std::filesystem::remove(im_ItemRef2FName(refs_[1]));
    EXPECT_EQ(reason_of([&] { im_SyncItems(refs_, {}, im_SyncBy::files); }), ENOENT);
}

// A failure belongs to its own message: the next one is asked for anew, whichever of the answers came first.
TEST_P(Sync, AFailureDoesNotReachTheNextMessage) {
    place(5);
    const os_Fd sound = os_open("~/tmp/entry", O_WRONLY | O_CREAT);
    const int bad[] = {sound.get(), -1}, good[] = {sound.get()};
    for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(reason_of([&] { im_SyncItems(refs_, bad, GetParam()); }), EBADF);
        EXPECT_EQ(reason_of([&] { im_SyncItems(refs_, good, GetParam()); }), 0);
    }
}

TEST_P(Sync, OthersAreSyncedHoweverManyItemsThereAre) {
    place(100);
    const int bad[] = {-1};
    EXPECT_EQ(reason_of([&] { im_SyncItems(refs_, bad, GetParam()); }), EBADF);
}

TEST_P(Sync, AForkedChildSyncsToo) {
    place(2);
    im_SyncItems(refs_, {}, GetParam());
    EXPECT_EQ(run_in_child([&] { return reason_of([&] { im_SyncItems(refs_, {}, GetParam()); }); }), 0);
    EXPECT_EQ(reason_of([&] { im_SyncItems(refs_, {}, GetParam()); }), 0) << "and leaves its parent's means alone";
}

TEST_F(SyncByFiles, WithoutDescriptorsLeftItIsAFailure) {
    place(10);
    im_SyncItems(refs_, {}, im_SyncBy::files);
    EXPECT_EQ(run_in_child([&] {
                  const os_Fd next = os_open("/dev/null", O_RDONLY);
                  const rlimit limit{static_cast<rlim_t>(next.get()) + 2, static_cast<rlim_t>(next.get()) + 2};
                  ::setrlimit(RLIMIT_NOFILE, &limit);
                  return reason_of([&] { im_SyncItems(refs_, {}, im_SyncBy::files); });
              }),
              EMFILE);
}

INSTANTIATE_TEST_SUITE_P(EveryWay, Sync, testing::Values(im_SyncBy::choose, im_SyncBy::files, im_SyncBy::file_systems));

}  // namespace
