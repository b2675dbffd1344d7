// Queueing: the entry's name and bytes, the commit, and what is left when it fails.
#include "q/q.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <functional>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
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

// A finished message: a main transfer file and `attached` files of one byte.
Msg_File message(int attached = 1) {
    Msg_File file = Msg_CreateFile("");
    for (int i = 0; i < attached; ++i) {
        im_Item item = im_CrNewDataItem();
        item.write("x");
        file.attach(std::move(item));
    }
    tf_File main = tf_CreateFile();
    main.append(tf_Record(TFREC_end_package));
    file.finish(std::move(main));
    return file;
}

class Queue : public testing::Test {
protected:
    void SetUp() override { er_Reset(); }
    void TearDown() override { er_Reset(); }

    std::vector<std::string> waiting() const { return home_.files("queues/ROUTER/new"); }
    std::vector<std::string> drafts() const { return home_.files("queues/ROUTER/tmp"); }
    std::vector<std::string> items() const { return home_.files("data"); }

    TestHome home_;
};

TEST_F(Queue, AnEntryIsOneRecordForItsMessage) {
    Msg_File file = message();
    const ITEM_REF ref = file.ref();
    const std::int64_t before = std::time(nullptr);
    Q_PutMsgOnQueue("ROUTER", file, 2);
    ASSERT_EQ(waiting().size(), 1U);
    const std::string entry = home_.read_path(waiting()[0]);
    tf_Record expected(TFREC_queue_entry);
    expected.put_ref(16, ref);
    EXPECT_EQ(hex(entry.substr(0, 40)), hex(bytes("00000030 0000005C 00000000 0000 0000") +
                                            std::string(expected.bytes().substr(16)) + bytes("00000002")));
    tf_Record record;
    record.assign(entry);
    EXPECT_GE(record.get64(40), before);
    EXPECT_LE(record.get64(40), std::time(nullptr));
    EXPECT_EQ(entry.size(), 48U);
    struct stat info {};
    ASSERT_EQ(::stat(waiting()[0].c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600U);
}

TEST_F(Queue, NamesHaveRankTimeProcessAndNumber) {
    const std::regex form("([012])-([0-9]{20})-" + std::to_string(::getpid()) + "-([0-9]+)");
    struct Row {
        int priority;
        const char* rank;
        const char* why;
    };
    for (const Row& row :
         {Row{2, "0", "urgent"}, Row{0, "1", "normal"}, Row{1, "2", "non-urgent"}, Row{7, "1", "unknown"}}) {
        Msg_File file = message();
        const std::int64_t before = os_now_nanoseconds();
        Q_PutMsgOnQueue("ROUTER", file, row.priority);
        const std::string name = fs::path(waiting().at(0)).filename();
        std::smatch parts;
        ASSERT_TRUE(std::regex_match(name, parts, form)) << name;
        EXPECT_EQ(parts[1], row.rank) << row.why;
        EXPECT_GE(std::stoll(parts[2]), before);
        EXPECT_LE(std::stoll(parts[2]), os_now_nanoseconds());
        fs::remove(waiting()[0]);
    }
}

TEST_F(Queue, TheOrderOfNamesIsTheOrderOfService) {
    std::vector<ITEM_REF> expected;
    std::vector<std::pair<int, ITEM_REF>> queued;
    for (const int priority : {1, 0, 2, 0, 1, 2}) {
        Msg_File file = message(0);
        queued.emplace_back(priority, file.ref());
        Q_PutMsgOnQueue("ROUTER", file, priority);
    }
    for (const int priority : {2, 0, 1})
        for (const auto& [p, ref] : queued)
            if (p == priority) expected.push_back(ref);
    std::vector<ITEM_REF> found;
    for (const std::string& path : waiting()) {
        tf_Record record;
        record.assign(home_.read_path(path));
        found.push_back(record.get_ref(16));
    }
    EXPECT_EQ(found, expected);
}

TEST_F(Queue, TwoMessagesShareOneEntry) {
    Msg_File first = message(), second = message();
    const std::vector<ITEM_REF> refs{first.ref(), second.ref()};
    Msg_File* const both[] = {&first, &second};
    Q_PutMsgsOnQueue("ROUTER", both, 0);
    ASSERT_EQ(waiting().size(), 1U);
    const std::string entry = home_.read_path(waiting()[0]);
    ASSERT_EQ(entry.size(), 96U);
    for (int i : {0, 1}) {
        tf_Record record;
        record.assign(entry.substr(static_cast<std::size_t>(i) * 48, 48));
        EXPECT_EQ(record.type(), TFREC_queue_entry);
        EXPECT_EQ(record.get32(0), 48);
        EXPECT_EQ(record.get_ref(16), refs[static_cast<std::size_t>(i)]);
    }
}

TEST_F(Queue, WhatIsQueuedBelongsToTheQueue) {
    {
        Msg_File file = message(3);
        Q_PutMsgOnQueue("ROUTER", file, 0);
        EXPECT_TRUE(drafts().empty());
    }
    EXPECT_EQ(items().size(), 5U);
}

TEST_F(Queue, AFailureBeforeTheRenameLeavesNothing) {
    EXPECT_EQ(run_in_child([] {
                  Msg_File first = message(0), second = message(0);
                  Msg_File* const both[] = {&first, &second};
                  limit_file_size(80);  // an entry of two takes 96
                  return reason_of([&] { Q_PutMsgsOnQueue("ROUTER", both, 0); });
              }),
              EFBIG);
    EXPECT_TRUE(waiting().empty());
    EXPECT_TRUE(drafts().empty());
    EXPECT_TRUE(items().empty()) << "the messages take their files along";
}

TEST_F(Queue, AFailedRenameLeavesNothing) {
    {
        Msg_File file = message();
        Q_PutMsgOnQueue("ROUTER", file, 0);
    }
    Q_Remove("ROUTER", fs::path(waiting()[0]).filename());
    fs::remove(home_.file("queues/ROUTER/new"));
    {
        Msg_File file = message();
        EXPECT_EQ(reason_of([&] { Q_PutMsgOnQueue("ROUTER", file, 0); }), ENOENT);
    }
    EXPECT_TRUE(drafts().empty());
    EXPECT_TRUE(items().empty());
}

TEST_F(Queue, AQueueThatIsNotThereRaises) {
    Msg_File file = message();
    EXPECT_EQ(reason_of([&] { Q_PutMsgOnQueue("OTHER", file, 0); }), ENOENT);
    EXPECT_FALSE(home_.exists("queues/OTHER")) << "no folder is made during a delivery";
    EXPECT_EQ(reason_of([&] { Q_PutMsgOnQueue("OTHER", file, 0); }), ENOENT) << "and nothing is remembered of it";
}

TEST_F(Queue, ABadConfigurationRaisesBeforeAnythingIsWritten) {
    home_.set_keys("QUEUE_SYNC = [\n");
    Msg_File file = message();
    EXPECT_EQ(reason_of([&] { Q_PutMsgOnQueue("ROUTER", file, 0); }), EINVAL);
    EXPECT_TRUE(drafts().empty());
    EXPECT_TRUE(waiting().empty());
}

TEST_F(Queue, WithoutSyncingTheEntryIsTheSame) {
    home_.set_keys("QUEUE_SYNC = false\n");
    Msg_File file = message();
    Q_PutMsgOnQueue("ROUTER", file, 0);
    EXPECT_EQ(home_.read_path(waiting().at(0)).size(), 48U);
}

TEST_F(Queue, HoweverTheDiskIsAwaited) {
    for (const char* way : {"files", "filesystem", "auto", "a word that is none"}) {
        home_.set_keys("QUEUE_SYNC_BY = \"" + std::string(way) + "\"\n");
        Msg_File file = message();
        Q_PutMsgOnQueue("ROUTER", file, 0);
        EXPECT_EQ(home_.read_path(waiting().at(0)).size(), 48U) << way;
        std::filesystem::remove(waiting().at(0));
    }
}

// The queue on another file system than the item store: its entry is synced by itself.
TEST_F(Queue, OnAnotherFileSystem) {
    const std::string other = fs::current_path().string() + "/queue-" + std::to_string(::getpid());
    fs::create_directories(other);
    fs::remove_all(home_.file("queues/ROUTER"));
    fs::create_directory_symlink(other, home_.file("queues/ROUTER"));
    Q_make_folders("ROUTER");
    {
        Msg_File file = message();
        Q_PutMsgOnQueue("ROUTER", file, 0);
    }
    EXPECT_EQ(Q_List("ROUTER").size(), 1U);
    Q_CloseQueues();
    fs::remove_all(other);
}

TEST_F(Queue, ClosingAndAnotherHome) {
    Msg_File file = message();
    Q_PutMsgOnQueue("ROUTER", file, 0);
    Q_CloseQueues();
    Q_CloseQueues();
    Msg_File second = message();
    Q_PutMsgOnQueue("ROUTER", second, 0);
    EXPECT_EQ(waiting().size(), 2U);
    {
        const TestHome other;
        Msg_File third = message();
        Q_PutMsgOnQueue("ROUTER", third, 0);
        EXPECT_EQ(other.files("queues/ROUTER/new").size(), 1U);
        EXPECT_EQ(waiting().size(), 2U) << "folders of the home that was chosen before are not used";
    }
    os_SetHome(home_.path());
}

TEST_F(Queue, DescriptorsDoNotGrowWithMessages) {
    const auto open_descriptors = [] {
        const fs::directory_iterator all("/proc/self/fd");
        return std::distance(begin(all), end(all));
    };
    {
        Msg_File file = message();
        Q_PutMsgOnQueue("ROUTER", file, 0);
    }
    const auto before = open_descriptors();
    for (int i = 0; i < 50; ++i) {
        Msg_File file = message(3);
        Q_PutMsgOnQueue("ROUTER", file, 0);
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Queue, ManyProcessesQueueOnOneHome) {
    constexpr int kProcesses = 16, kMessages = 20;
    std::vector<pid_t> children;
    for (int n = 0; n < kProcesses; ++n)
        children.push_back(start_child([] {
            for (int i = 0; i < kMessages; ++i) {
                Msg_File file = message(2);
                Q_PutMsgOnQueue("ROUTER", file, i % 3);
            }
            return 0;
        }));
    for (const pid_t child : children) EXPECT_EQ(await_child(child), 0);
    EXPECT_EQ(Q_List("ROUTER").size(), std::size_t{kProcesses} * kMessages);
    EXPECT_EQ(items().size(), std::size_t{kProcesses} * kMessages * 4);
    EXPECT_TRUE(drafts().empty());
}

// Whenever the process is killed, an entry that is there is whole, and so are the files that it leads to.
TEST_F(Queue, AProcessKilledAnywhereLeavesWholeEntriesOnly) {
    home_.set_keys("QUEUE_SYNC = false\n");
    for (int round = 0; round < 40; ++round) {
        const pid_t child = start_child([] {
            for (;;) {
                Msg_File file = message(2);
                Q_PutMsgOnQueue("ROUTER", file, 0);
            }
            return 0;
        });
        ::usleep(static_cast<useconds_t>(1000 + round * 137));
        ::kill(child, SIGKILL);
        EXPECT_EQ(await_child(child), 128 + SIGKILL);
    }
    std::size_t files = 0;
    for (const Q_Entry& entry : Q_List("ROUTER")) {
        ASSERT_FALSE(entry.damaged) << entry.name;
        ASSERT_EQ(entry.messages.size(), 1U);
        const std::string content = home_.read_path(im_ItemRef2FName(entry.messages[0]));
        ASSERT_EQ(content.size(), 21U + 3 * 36);
        for (std::size_t at = 21; at < content.size(); at += 36) {
            tf_Record record;
            record.assign(content.substr(at, 36));
            EXPECT_TRUE(fs::exists(im_ItemRef2FName(record.get_ref(16))));
        }
        files += 4;
    }
    EXPECT_GT(files, 0U);
    EXPECT_GE(items().size(), files);
}

}  // namespace
