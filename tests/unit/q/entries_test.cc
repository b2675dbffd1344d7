// Queues as a consumer sees them: listing, taking, finishing, and who wins when several try.
#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "q/q.h"
#include "support/bytes.h"
#include "support/child.h"
#include "support/home.h"

namespace {

namespace fs = std::filesystem;

int reason_of(const std::function<void()>& work) {
    try {
        work();
    } catch (const er_Escape& escape) {
        EXPECT_EQ(escape.group(), kSystemGroup);
        return escape.reason();
    }
    return 0;
}

class Entries : public testing::Test {
protected:
    void SetUp() override {
        home_.set_keys("QUEUE_SYNC = false\n");
        er_Reset();
        er_SetSink([this](std::string_view line) { log_.emplace_back(line); });
    }
    void TearDown() override { er_Reset(); }

    static Msg_File message(int attached) {
        Msg_File file = Msg_CreateFile("");
        for (int i = 0; i < attached; ++i) file.attach(im_CrNewDataItem());
        tf_File main = tf_CreateFile();
        file.finish(std::move(main));
        return file;
    }
    struct Queued {
        std::string name;  // of the entry
        ITEM_REF ref;      // the message file
    };
    // Queues a message with one attached file (three files in all).
    static Queued queue(int priority = 0) {
        Msg_File file = message(1);
        Q_PutMsgOnQueue("ROUTER", file, priority);
        for (const Q_Entry& entry : Q_List("ROUTER"))
            if (entry.messages.at(0) == file.ref()) return {entry.name, file.ref()};
        return {};
    }
    static std::vector<std::string> listed() {
        std::vector<std::string> names;
        for (const Q_Entry& entry : Q_List("ROUTER")) names.push_back((entry.taken ? "cur " : "new ") + entry.name);
        return names;
    }
    std::vector<std::string> items() const { return home_.files("data"); }

    TestHome home_;
    std::vector<std::string> log_;
};

TEST_F(Entries, AnEmptyQueueListsNothing) { EXPECT_TRUE(Q_List("ROUTER").empty()); }

TEST_F(Entries, AQueueThatIsNotThereRaises) {
    EXPECT_EQ(reason_of([] { Q_List("OTHER"); }), ENOENT);
}

TEST_F(Entries, AreListedWithWhatTheyHold) {
    const auto [name, ref] = queue(2);
    const std::vector<Q_Entry> entries = Q_List("ROUTER");
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].name, name);
    EXPECT_FALSE(entries[0].taken);
    EXPECT_FALSE(entries[0].damaged);
    EXPECT_EQ(entries[0].priority, 2);
    EXPECT_NEAR(static_cast<double>(entries[0].seconds), static_cast<double>(os_Date().seconds), 2);
    EXPECT_EQ(entries[0].messages, std::vector<ITEM_REF>{ref});
}

TEST_F(Entries, AreListedInOrderOfServiceWaitingBeforeTaken) {
    const std::string late = queue(1).name, normal = queue(0).name, urgent = queue(2).name, taken = queue(2).name;
    Q_Take("ROUTER", taken);
    EXPECT_EQ(listed(), (std::vector<std::string>{"new " + urgent, "new " + normal, "new " + late, "cur " + taken}));
}

TEST_F(Entries, TakingMovesAnEntry) {
    const Queued queued = queue();
    const std::string& name = queued.name;
    const ITEM_REF& ref = queued.ref;
    const Q_Entry entry = Q_Take("ROUTER", name);
    EXPECT_EQ(entry.name, name);
    EXPECT_TRUE(entry.taken);
    EXPECT_EQ(entry.messages, std::vector<ITEM_REF>{ref});
    EXPECT_TRUE(home_.exists("queues/ROUTER/cur/" + name));
    EXPECT_FALSE(home_.exists("queues/ROUTER/new/" + name));
    EXPECT_EQ(reason_of([&] { Q_Take("ROUTER", name); }), ENOENT) << "it is taken";
}

TEST_F(Entries, BeingDoneDeletesTheEntryAndAllFiles) {
    const std::string name = queue().name;
    const auto [other, other_ref] = queue();
    EXPECT_EQ(reason_of([&] { Q_Done("ROUTER", name); }), ENOENT) << "it was not taken";
    EXPECT_EQ(items().size(), 6U);
    Q_Take("ROUTER", name);
    Q_Done("ROUTER", name);
    EXPECT_EQ(listed(), std::vector<std::string>{"new " + other});
    EXPECT_EQ(items().size(), 3U);
    EXPECT_TRUE(fs::exists(im_ItemRef2FName(other_ref)));
    EXPECT_EQ(reason_of([&] { Q_Done("ROUTER", name); }), ENOENT) << "twice";
}

TEST_F(Entries, AllMessagesOfAnEntryGo) {
    Msg_File first = message(2), second = message(0);
    Msg_File* const both[] = {&first, &second};
    Q_PutMsgsOnQueue("ROUTER", both, 0);
    EXPECT_EQ(items().size(), 6U);
    const Q_Entry entry = Q_List("ROUTER").at(0);
    EXPECT_EQ(entry.messages, (std::vector<ITEM_REF>{first.ref(), second.ref()}));
    Q_Remove("ROUTER", entry.name);
    EXPECT_TRUE(items().empty());
}

TEST_F(Entries, RemovingIsForEntriesThatWait) {
    const std::string name = queue().name;
    Q_Take("ROUTER", name);
    EXPECT_EQ(reason_of([&] { Q_Remove("ROUTER", name); }), ENOENT) << "somebody works on it";
    EXPECT_EQ(items().size(), 3U) << "and needs its files";
    const std::string waiting = queue().name;
    Q_Remove("ROUTER", waiting);
    EXPECT_EQ(listed(), std::vector<std::string>{"cur " + name});
    EXPECT_EQ(items().size(), 3U);
}

TEST_F(Entries, NamesThatAreNoFileNamesAreRefused) {
    const std::string name = queue().name;
    fs::create_directory(home_.file("queues/ROUTER/new/d"));
    for (const std::string& bad : {std::string(), std::string("."), std::string(".."), "../new/" + name, "d/../" + name,
                                   home_.file("queues/ROUTER/new/" + name)}) {
        EXPECT_EQ(reason_of([&] { Q_Take("ROUTER", bad); }), EINVAL) << bad;
        EXPECT_EQ(reason_of([&] { Q_Done("ROUTER", bad); }), EINVAL) << bad;
        EXPECT_EQ(reason_of([&] { Q_Remove("ROUTER", bad); }), EINVAL) << bad;
    }
}

struct DamagedRow {
    const char* bytes;
    const char* why;
};
constexpr DamagedRow kDamagedRows[] = {
    {"", "empty: a disk that lost it"},
    {"00000030 0000005C 0000", "cut"},
    {"0000000F 0000005C 00000000 0000 0000", "a size below a record head's"},
    {"00000000 0000005C 00000000 0000 0000", "no size"},
    {"FFFFFFFF 0000005C 00000000 0000 0000", "a size beyond the end"},
    {"00000010 00009858 00000000 0000 0000", "records, but no message"},
};

TEST_F(Entries, DamagedEntriesAreListedAndDoNotHideOthers) {
    const std::string sound = queue().name;
    for (const DamagedRow& row : kDamagedRows) {
        home_.write("queues/ROUTER/new/0-damaged", bytes(row.bytes));
        const std::vector<Q_Entry> entries = Q_List("ROUTER");
        ASSERT_EQ(entries.size(), 2U) << row.why;
        EXPECT_EQ(entries[0].name, "0-damaged") << row.why;
        EXPECT_TRUE(entries[0].damaged) << row.why;
        EXPECT_TRUE(entries[0].messages.empty()) << row.why;
        EXPECT_EQ(entries[1].name, sound) << row.why;
        EXPECT_EQ(reason_of([] { Q_Take("ROUTER", "0-damaged"); }), EILSEQ) << row.why;
        EXPECT_TRUE(home_.exists("queues/ROUTER/new/0-damaged")) << row.why;
    }
    Q_Remove("ROUTER", "0-damaged");
    EXPECT_EQ(listed(), std::vector<std::string>{"new " + sound});
    EXPECT_EQ(items().size(), 3U);
}

TEST_F(Entries, FilesThatAreGoneDoNotMatter) {
    const Queued queued = queue();
    const std::string& name = queued.name;
    const ITEM_REF& ref = queued.ref;
    fs::remove(im_ItemRef2FName(ref));
    Q_Remove("ROUTER", name);
    EXPECT_TRUE(listed().empty());
    EXPECT_EQ(items().size(), 2U) << "what only the message file knew is left to be reclaimed";
}

TEST_F(Entries, ADamagedMessageFileDoesNotKeepItsEntry) {
    const Queued queued = queue();
    const std::string& name = queued.name;
    const ITEM_REF& ref = queued.ref;
    const std::string path = im_ItemRef2FName(ref);
    fs::resize_file(path, fs::file_size(path) - 1);  // the second of its two files cannot be read any more
    Q_Remove("ROUTER", name);
    EXPECT_TRUE(listed().empty());
    EXPECT_EQ(items().size(), 1U);
    ASSERT_EQ(log_.size(), 1U);
    EXPECT_NE(log_[0].find("5 102.0 message file damaged " + path), std::string::npos) << log_[0];
}

TEST_F(Entries, OtherFilesInTheFolder) {
    home_.write("queues/ROUTER/new/.hidden", "x");
    EXPECT_TRUE(listed().empty()) << "a dot file is nobody's entry";
}

// Sixteen consumers, each of which takes whatever it sees: every entry is taken by exactly one of them.
TEST_F(Entries, EachEntryIsTakenOnce) {
    constexpr int kConsumers = 16, kEntries = 60;
    for (int i = 0; i < kEntries; ++i) queue();
    std::vector<pid_t> children;
    for (int n = 0; n < kConsumers; ++n)
        children.push_back(start_child([] {
            int taken = 0;
            for (std::vector<Q_Entry> entries = Q_List("ROUTER"); !entries.empty(); entries = Q_List("ROUTER"))
                for (const Q_Entry& entry : entries) {
                    if (entry.taken) continue;
                    try {
                        Q_Take("ROUTER", entry.name);
                        ++taken;
                        Q_Done("ROUTER", entry.name);
                    } catch (const er_Escape& escape) {
                        if (escape.reason() != ENOENT) return 100;
                    }
                }
            return taken;
        }));
    int taken = 0;
    for (const pid_t child : children) {
        const int status = await_child(child);
        EXPECT_LT(status, 99);
        taken += status;
    }
    EXPECT_EQ(taken, kEntries);
    EXPECT_TRUE(items().empty());
    EXPECT_TRUE(home_.files("queues").empty());
}

// An operator removes what a consumer takes at the same time: the files live as long as the consumer works on them.
TEST_F(Entries, RemovingNeverDeletesTheFilesOfATakenEntry) {
    for (int round = 0; round < 100; ++round) {
        const Queued queued = queue();
        const std::string& name = queued.name;
        const ITEM_REF& ref = queued.ref;
        const pid_t remover = start_child([&] { return reason_of([&] { Q_Remove("ROUTER", name); }); });
        bool taken = false;
        try {
            Q_Take("ROUTER", name);
            taken = true;
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.reason(), ENOENT);
        }
        const int removed = await_child(remover);
        EXPECT_EQ(removed, taken ? ENOENT : 0);
        EXPECT_EQ(fs::exists(im_ItemRef2FName(ref)), taken);
        if (taken) Q_Done("ROUTER", name);
        EXPECT_TRUE(items().empty());
    }
}

// While entries are queued and taken, a listing has each of them once.
TEST_F(Entries, AListingHasEachEntryOnce) {
    const pid_t worker = start_child([] {
        for (int i = 0; i < 300; ++i) Q_Take("ROUTER", queue().name);
        return 0;
    });
    for (int round = 0; round < 200; ++round) {
        std::vector<std::string> names;
        for (const Q_Entry& entry : Q_List("ROUTER")) names.push_back(entry.name);
        std::sort(names.begin(), names.end());
        EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
    }
    EXPECT_EQ(await_child(worker), 0);
    EXPECT_EQ(Q_List("ROUTER").size(), 300U);
}

}  // namespace
