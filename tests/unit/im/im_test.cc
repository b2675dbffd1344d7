// The item store: items in memory and in files, their ids, and what is left when something fails.
#include "im/im.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
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

std::string content(const im_Item& item) {
    std::string data(item.size(), '\0');
    data.resize(item.read(0, data.data(), data.size()));
    return data;
}

// A text whose every part differs from every other.
std::string pattern(std::size_t size) {
    std::string text;
    while (text.size() < size) text += std::to_string(text.size()) + ' ';
    text.resize(size);
    return text;
}

std::size_t open_descriptors() {
    const fs::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

class Im : public testing::Test {
protected:
    std::vector<std::string> files() const { return home_.files("data"); }
    TestHome home_;
};

// --- references and paths -------------------------------------------------------------------------------------------

TEST_F(Im, AReferenceNamesAPath) {
    const ITEM_REF item{.domain = 1, .file_id = 0x0123456789ABCDEF, .extension = {'i', 't', 'e', 'm'}};
    EXPECT_EQ(im_ItemRef2FName(item), home_.file("data/1/ef/0123456789abcdef.item"));
    const ITEM_REF scratch{.domain = 4, .file_id = 0xA, .extension = {'t', 'e', 'm', 'p'}};
    EXPECT_EQ(im_ItemRef2FName(scratch), home_.file("data/4/0a/000000000000000a.temp"));
}

TEST_F(Im, APathNamesAReference) {
    for (const auto& [extension, domain] :
         std::map<std::string, int>{{"item", 1}, {"tran", 1}, {"mesg", 1}, {"temp", 4}}) {
        ITEM_REF ref;
        ref.domain = static_cast<std::uint16_t>(domain);
        ref.file_id = 0xFEDCBA9876543210;
        std::copy_n(extension.begin(), 4, ref.extension.begin());
        EXPECT_EQ(im_FName2ItemRef(im_ItemRef2FName(ref)), ref) << extension;
        EXPECT_EQ(im_FName2ItemRef("fedcba9876543210." + extension), ref) << "the name alone";
    }
}

TEST_F(Im, WhatIsNoItemsPathNamesNothing) {
    for (const char* path :
         {"", "/", "0123456789abcdef", "0123456789abcdef.", "0123456789abcdef.ite", "0123456789abcdef.items",
          "0123456789ABCDEF.item", "0123456789abcdeg.item", "123456789abcdef.item", "00123456789abcdef.item",
          "0x23456789abcdef.item", "+123456789abcdef.item", "0123456789abcdef-item", "/0123456789abcdef.item/"})
        EXPECT_EQ(im_FName2ItemRef(path), std::nullopt) << path;
}

TEST_F(Im, FoldersAreLaidDownForEachDomain) {
    for (const char* folder : {"data/1/00", "data/1/ff", "data/4/00", "data/4/ff"}) EXPECT_TRUE(home_.exists(folder));
    im_make_folders();  // again: nothing happens
}

TEST_F(Im, ItemsHaveTheirDomainAndExtension) {
    struct Row {
        im_Item item;
        const char* folder;
        const char* extension;
    };
    Row rows[] = {
        {im_CrNewDataItem(), "data/1/", ".item"},
        {im_create(im_Domain::data, kTransferFile), "data/1/", ".tran"},
        {im_create(im_Domain::data, kMessageFile), "data/1/", ".mesg"},
        {im_create(im_Domain::temporary, kScratchItem), "data/4/", ".temp"},
    };
    for (Row& row : rows) {
        EXPECT_EQ(row.item.ref().flags, 0);
        EXPECT_EQ(row.item.ref().sub_domain, 0U);
        const std::string path = row.item.path();
        EXPECT_TRUE(path.starts_with(home_.file(row.folder))) << path;
        EXPECT_TRUE(path.ends_with(row.extension)) << path;
        struct stat info {};
        ASSERT_EQ(::stat(path.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0600U) << "it holds mail";
    }
}

TEST_F(Im, AnItemWithoutANameIsReadAgainAndNeverSeen) {
    const std::string text = pattern(5 * kKeptInMemory);
    im_Item item = im_create_unnamed();
    for (std::size_t at = 0; at < text.size(); at += 1000) item.write(std::string_view(text).substr(at, 1000));
    EXPECT_TRUE(files().empty() && home_.files("tmp").empty());
    im_Item moved = std::move(item);
    EXPECT_EQ(content(moved), text);
    EXPECT_EQ(reason_of([&] { moved.place(); }), EINVAL) << "it cannot become a file of the store";
    moved.overwrite(10, "xyz");
    moved.truncate(20);
    EXPECT_EQ(content(moved).substr(8, 7), text.substr(8, 2) + "xyz" + text.substr(13, 2));
    const std::size_t open = open_descriptors();
    moved.unlink();
    EXPECT_EQ(open_descriptors(), open - 1);
    moved = im_CrNewDataItem();
    moved.place();
    EXPECT_EQ(files().size(), 1U) << "what takes its place has a name again";
}

// --- memory and file ------------------------------------------------------------------------------------------------

TEST_F(Im, NothingReachesTheDiskUpToTheBound) {
    im_Item item = im_CrNewDataItem();
    const std::string text = pattern(kKeptInMemory);
    item.write(std::string_view(text).substr(0, 1));
    item.write(std::string_view(text).substr(1));
    EXPECT_TRUE(item.in_memory());
    EXPECT_EQ(item.size(), kKeptInMemory);
    EXPECT_TRUE(files().empty());
    EXPECT_EQ(content(item), text);
}

TEST_F(Im, OneByteMoreMakesAFile) {
    im_Item item = im_CrNewDataItem();
    const std::string text = pattern(kKeptInMemory + 1);
    item.write(std::string_view(text).substr(0, 1));
    item.write(std::string_view(text).substr(1, kKeptInMemory - 1));
    EXPECT_TRUE(files().empty());
    item.write(text.back());
    EXPECT_FALSE(item.in_memory());
    EXPECT_EQ(files().size(), 1U);
    EXPECT_EQ(content(item), text);
}

TEST_F(Im, BytesAndPiecesOfEverySizeArriveInOrder) {
    for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, std::size_t{4095}, std::size_t{4097},
                                    kKeptInMemory - 1, kKeptInMemory, kKeptInMemory + 1, 3 * kKeptInMemory}) {
        im_Item item = im_CrNewDataItem();
        const std::string text = pattern(2 * kKeptInMemory + 3 * piece + 5);
        for (std::size_t at = 0; at < text.size(); at += piece) item.write(std::string_view(text).substr(at, piece));
        item.write('!');
        EXPECT_EQ(item.size(), text.size() + 1) << piece;
        EXPECT_TRUE(content(item) == text + '!') << piece;
        EXPECT_TRUE(home_.read_path(item.path()) == text + '!') << piece;
    }
    EXPECT_TRUE(files().empty());
}

TEST_F(Im, SingleBytesCrossTheBound) {
    im_Item item = im_CrNewDataItem();
    const std::string text = pattern(2 * kKeptInMemory + 100);
    for (const char byte : text) item.write(byte);
    EXPECT_TRUE(content(item) == text);
}

TEST_F(Im, DecodingInPlaceAppends) {
    im_Item item = im_CrNewDataItem();
    const std::string text = pattern(5 * kKeptInMemory / 2);
    for (std::size_t at = 0; at < text.size(); at += 1000) {
        const std::string_view part = std::string_view(text).substr(at, 1000);
        std::copy(part.begin(), part.end(), item.room(1500));
        item.advance(part.size());
    }
    EXPECT_TRUE(content(item) == text);
}

TEST_F(Im, AnEmptyItemIsAnEmptyFile) {
    im_Item item = im_CrNewDataItem();
    item.write("");
    EXPECT_EQ(item.size(), 0U);
    EXPECT_TRUE(files().empty());
    EXPECT_EQ(home_.read_path(item.path()), "");
    char byte = 0;
    EXPECT_EQ(item.read(0, &byte, 1), 0U);
    std::string scratch;
    EXPECT_EQ(item.head(10, scratch), "");
}

TEST_F(Im, PlacingMakesAFileAndWritingGoesOn) {
    im_Item item = im_CrNewDataItem();
    item.write("one ");
    item.place();
    ASSERT_EQ(files().size(), 1U);
    EXPECT_EQ(home_.read_path(files()[0]), "one ");
    item.write("two ");
    EXPECT_EQ(home_.read_path(files()[0]), "one ") << "not written yet";
    EXPECT_EQ(content(item), "one two ");
    item.place();
    item.place();
    item.write(std::string(kKeptInMemory, 'x'));
    EXPECT_EQ(home_.read_path(item.path()), "one two " + std::string(kKeptInMemory, 'x'));
    EXPECT_EQ(files().size(), 1U);
}

TEST_F(Im, SetAsideItKeepsItsBytesAndCanBeWritten) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, kKeptAside, kKeptAside + 1, kKeptInMemory + 1}) {
        im_Item item = im_CrNewDataItem();
        const std::string text = pattern(size);
        item.write(text);
        item.set_aside();
        item.set_aside();
        EXPECT_EQ(files().size(), size > kKeptAside ? 1U : 0U) << size;
        EXPECT_EQ(content(item), text) << size;
        item.write("more");
        item.write('!');
        EXPECT_EQ(content(item), text + "more!") << size;
        item.truncate(size);
        EXPECT_EQ(home_.read_path(item.path()), text) << size;
    }
}

TEST_F(Im, ReadingAndViewingAcrossTheBorder) {
    im_Item item = im_CrNewDataItem();
    const std::string text = pattern(kKeptInMemory + 1000);
    item.write(std::string_view(text).substr(0, kKeptInMemory));
    item.place();
    item.write(std::string_view(text).substr(kKeptInMemory));
    std::string scratch;
    struct Row {
        std::size_t at, limit;
        const char* why;
    };
    for (const Row& row : {Row{0, 10, "in the file"}, Row{kKeptInMemory - 5, 10, "half and half"},
                           Row{kKeptInMemory, 10, "at the border"}, Row{kKeptInMemory + 5, 10, "in memory"},
                           Row{kKeptInMemory - 5, 5, "up to the border"}, Row{text.size() - 3, 10, "at the end"},
                           Row{text.size(), 10, "behind it"}, Row{text.size() + 99, 10, "far behind it"},
                           Row{0, text.size() + 1, "all of it"}, Row{3, 0, "nothing"}}) {
        const std::string expected = row.at < text.size() ? text.substr(row.at, row.limit) : "";
        EXPECT_TRUE(item.view(row.at, row.limit, scratch) == expected) << row.why;
        std::string data(row.limit, '\0');
        data.resize(item.read(row.at, data.data(), data.size()));
        EXPECT_TRUE(data == expected) << row.why;
    }
}

TEST_F(Im, OverwritingInPlace) {
    im_Item item = im_CrNewDataItem();
    std::string text = pattern(kKeptInMemory + 1000);
    item.write(std::string_view(text).substr(0, kKeptInMemory));
    item.place();
    item.write(std::string_view(text).substr(kKeptInMemory));
    const auto overwrite = [&](std::size_t at, std::string_view data) {
        item.overwrite(at, data);
        text.replace(at, data.size(), data);
        return content(item) == text;
    };
    EXPECT_TRUE(overwrite(0, "first"));
    EXPECT_TRUE(overwrite(kKeptInMemory - 3, "border")) << "half in the file, half in memory";
    EXPECT_TRUE(overwrite(kKeptInMemory - 4, "upto")) << "ends at the border";
    EXPECT_TRUE(overwrite(kKeptInMemory, "from")) << "begins at it";
    EXPECT_TRUE(overwrite(text.size() - 4, "last"));
    EXPECT_TRUE(overwrite(text.size(), ""));
    EXPECT_TRUE(home_.read_path(item.path()) == text);
    EXPECT_TRUE(overwrite(kKeptInMemory - 3, "closed")) << "the file is opened again";
}

TEST_F(Im, NothingIsOverwrittenBeyondTheEnd) {
    im_Item item = im_CrNewDataItem();
    item.write("12345");
    EXPECT_EQ(reason_of([&] { item.overwrite(3, "abc"); }), EINVAL);
    EXPECT_EQ(reason_of([&] { item.overwrite(6, ""); }), EINVAL);
    EXPECT_EQ(reason_of([&] { item.overwrite(~std::uint64_t{0}, "abc"); }), EINVAL) << "a sum that wraps around";
    EXPECT_EQ(content(item), "12345");
    item.place();
    EXPECT_EQ(reason_of([&] { item.overwrite(3, "abc"); }), EINVAL);
    EXPECT_EQ(content(item), "12345");
}

TEST_F(Im, Truncating) {
    const std::string text = pattern(kKeptInMemory + 1000);
    struct Row {
        std::size_t size;
        const char* why;
    };
    for (const Row& row : {Row{text.size() + 1, "longer than it is: nothing happens"}, Row{text.size(), "as it is"},
                           Row{kKeptInMemory + 10, "in memory"}, Row{kKeptInMemory, "at the border"},
                           Row{kKeptInMemory - 10, "in the file"}, Row{0, "to nothing"}}) {
        im_Item item = im_CrNewDataItem();
        item.write(std::string_view(text).substr(0, kKeptInMemory));
        item.place();
        item.write(std::string_view(text).substr(kKeptInMemory));
        item.truncate(row.size);
        std::string expected = text.substr(0, row.size);
        EXPECT_EQ(item.size(), expected.size()) << row.why;
        item.write("more");
        expected += "more";
        EXPECT_TRUE(content(item) == expected) << row.why;
        EXPECT_TRUE(home_.read_path(item.path()) == expected) << row.why;
    }
    im_Item small = im_CrNewDataItem();
    small.write("12345");
    small.truncate(2);
    EXPECT_EQ(content(small), "12");
    EXPECT_TRUE(small.in_memory());
}

TEST_F(Im, AFileThatSomebodyCutIsAReadError) {
    im_Item item = im_CrNewDataItem();
    item.write("0123456789");
    fs::resize_file(item.path(), 5);
    char data[10];
    EXPECT_EQ(reason_of([&] { item.read(0, data, 10); }), EIO);
}

// --- ownership ------------------------------------------------------------------------------------------------------

TEST_F(Im, WhatIsNotKeptIsGone) {
    {
        im_Item item = im_CrNewDataItem();
        item.write("x");
        item.place();
        EXPECT_EQ(files().size(), 1U);
    }
    EXPECT_TRUE(files().empty());
}

TEST_F(Im, WhatIsKeptStays) {
    std::string path;
    {
        im_Item item = im_CrNewDataItem();
        item.write("kept");
        path = item.path();
        item.keep();
    }
    EXPECT_EQ(home_.read_path(path), "kept");
}

TEST_F(Im, UnlinkingDeletesNowAndEmptiesTheHandle) {
    im_Item item = im_CrNewDataItem();
    item.write("x");
    item.place();
    item.unlink();
    EXPECT_TRUE(files().empty());
    EXPECT_FALSE(item);
    EXPECT_TRUE(item.ref().is_null());
    EXPECT_EQ(item.size(), 0U);
    item.unlink();
    im_Item kept = im_CrNewDataItem();
    kept.place();
    kept.keep();
    kept.unlink();
    EXPECT_TRUE(files().empty()) << "asked for, it is deleted, kept or not";
}

TEST_F(Im, AFailedUnlinkIsSwallowed) {
    im_Item item = im_CrNewDataItem();
    item.write("x");
    const std::string path = item.path();
    fs::remove(path);
    fs::create_directory(path);
    EXPECT_THROW(er_TracedEscape(102, 1401), er_Escape);
    EXPECT_NO_THROW(item.unlink());
    EXPECT_EQ(er_GetReason(), 1401) << "the status is what it was";
}

TEST_F(Im, AnEscapeTakesItsItemsAlong) {
    EXPECT_EQ(reason_of([] {
                  im_Item item = im_CrNewDataItem();
                  item.write("x");
                  item.place();
                  er_SystemEscape(EIO, "");
              }),
              EIO);
    EXPECT_TRUE(files().empty());
}

TEST_F(Im, MovingMovesTheDutyToDelete) {
    im_Item first = im_CrNewDataItem();
    first.write("first");
    const std::string path = first.path();
    {
        im_Item second(std::move(first));
        EXPECT_EQ(content(second), "first");
        EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): what is left is empty, and may be used again
        first = im_CrNewDataItem();
        first.write("new");
        EXPECT_EQ(content(first), "new");
        im_Item third = im_CrNewDataItem();
        third.place();
        EXPECT_EQ(files().size(), 2U);
        third = std::move(second);
        EXPECT_EQ(files(), std::vector<std::string>{path}) << "what was there before is deleted";
    }
    EXPECT_TRUE(files().empty());
}

TEST_F(Im, AKeptItemThatIsReplacedStays) {
    im_Item item = im_CrNewDataItem();
    item.write("kept");
    const std::string path = item.path();
    item.keep();
    item = im_CrNewDataItem();
    EXPECT_EQ(home_.read_path(path), "kept");
    item.place();
    item = im_Item();
    EXPECT_EQ(files(), std::vector<std::string>{path}) << "the new one was not kept";
}

TEST_F(Im, UnlinkingByReference) {
    im_Item item = im_CrNewDataItem();
    item.place();
    im_UnlinkItem(item.ref());
    EXPECT_TRUE(files().empty());
    im_UnlinkItem(item.ref());
    im_UnlinkItem(ITEM_REF{});
}

TEST_F(Im, NoDescriptorStaysOpenForAPlacedItem) {
    std::vector<im_Item> items;
    items.push_back(im_CrNewDataItem());
    items.back().place();
    const std::size_t before = open_descriptors();
    for (int i = 0; i < 300; ++i) {
        items.push_back(im_CrNewDataItem());
        items.back().write(std::string(static_cast<std::size_t>(i), 'x'));
        items.back().place();
    }
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(content(items.back()).size(), 299U);
    EXPECT_LE(open_descriptors(), before + 1) << "one that is read again has one";
}

// --- failures -------------------------------------------------------------------------------------------------------

TEST_F(Im, AFullDiskRaisesAndLeavesNothing) {
    EXPECT_EQ(run_in_child([] {
                  limit_file_size(kKeptInMemory);
                  return reason_of([] {
                      im_Item item = im_CrNewDataItem();
                      for (int i = 0; i < 100; ++i) item.write(std::string(10'000, 'x'));
                  });
              }),
              EFBIG);
    EXPECT_TRUE(files().empty());
}

TEST_F(Im, AFailedWriteLeavesTheItemAsItWas) {
    EXPECT_EQ(run_in_child([this] {
                  im_Item item = im_CrNewDataItem();
                  item.write("before ");
                  item.place();
                  limit_file_size(100);
                  if (reason_of([&] { item.write(std::string(2 * kKeptInMemory, 'x')); }) != EFBIG) return 1;
                  if (item.size() != 7) return 2;
                  item.write("after");
                  return home_.read_path(item.path()) == "before after" ? 0 : 3;
              }),
              0);
}

TEST_F(Im, AFailedPlacementCanBeTriedAgain) {
    EXPECT_EQ(run_in_child([this] {
                  im_Item item = im_CrNewDataItem();
                  item.write("0123456789");
                  std::signal(SIGXFSZ, SIG_IGN);
                  rlimit limit{};
                  ::getrlimit(RLIMIT_FSIZE, &limit);
                  const rlimit little{8, limit.rlim_max};
                  ::setrlimit(RLIMIT_FSIZE, &little);
                  if (reason_of([&] { item.place(); }) != EFBIG) return 1;
                  ::setrlimit(RLIMIT_FSIZE, &limit);
                  return home_.read_path(item.path()) == "0123456789" ? 0 : 2;
              }),
              0);
}

TEST_F(Im, AMissingFolderRaisesAndNothingIsMade) {
    fs::remove_all(home_.file("data/1"));
    im_Item item = im_CrNewDataItem();
    item.write("x");
    EXPECT_EQ(reason_of([&] { item.place(); }), ENOENT);
    EXPECT_FALSE(home_.exists("data/1")) << "no folder is made during a delivery";
    EXPECT_EQ(content(item), "x");
}

TEST_F(Im, WithoutAHomeItemsLiveInMemoryOnly) {
    os_SetHome("/no/such/home");
    im_Item item = im_CrNewDataItem();
    item.write("x");
    EXPECT_EQ(content(item), "x");
    EXPECT_TRUE(item);
    EXPECT_EQ(reason_of([&] { item.place(); }), ENOENT);
    EXPECT_EQ(reason_of([&] { item.ref(); }), ENOENT);
    os_SetHome(home_.path());
    item.place();
    EXPECT_EQ(files().size(), 1U);
}

// --- ids ------------------------------------------------------------------------------------------------------------

TEST_F(Im, AnIdIsTakenOnceAndStays) {
    im_Item item = im_CrNewDataItem();
    const ITEM_REF told = item.ref();
    EXPECT_FALSE(told.is_null());
    EXPECT_EQ(item.ref(), told);
    item.write(std::string(2 * kKeptInMemory, 'x'));
    item.place();
    EXPECT_EQ(item.ref(), told);
    EXPECT_TRUE(im_Item().ref().is_null());
}

TEST_F(Im, IdsOfOneProcessDifferAndFillTheFoldersEvenly) {
    std::set<std::uint64_t> ids;
    std::map<std::uint64_t, int> folders;
    for (int i = 0; i < 3 * 4096; ++i) {
        const im_Item item = im_CrNewDataItem();
        EXPECT_TRUE(ids.insert(item.ref().file_id).second);
        ++folders[item.ref().file_id & 0xFF];
    }
    EXPECT_EQ(folders.size(), 256U);
    for (const auto& [folder, count] : folders) EXPECT_LE(count, 4 * 16) << folder;
}

TEST_F(Im, SixteenItemsInARowShareAFolder) {
    std::set<std::uint64_t> folders;
    for (int i = 0; i < 16; ++i) folders.insert(im_CrNewDataItem().ref().file_id & 0xFF);
    EXPECT_LE(folders.size(), 2U) << "two when the row began before";
}

TEST_F(Im, IdsOfManyProcessesDiffer) {
    constexpr int kProcesses = 16, kItems = 300;
    std::vector<pid_t> children;
    for (int n = 0; n < kProcesses; ++n)
        children.push_back(start_child([] {
            for (int i = 0; i < kItems; ++i) {
                im_Item item = im_create(im_Domain::data, i % 2 == 0 ? kDataItem : kTransferFile);
                item.place();
                item.keep();
            }
            return 0;
        }));
    for (const pid_t child : children) EXPECT_EQ(await_child(child), 0);
    std::set<std::uint64_t> ids;
    for (const std::string& path : files()) EXPECT_TRUE(ids.insert(im_FName2ItemRef(path)->file_id).second) << path;
    EXPECT_EQ(ids.size(), std::size_t{kProcesses} * kItems);
}

// All at once, each for block after block, and gone at once, so that its locks protect nothing.
TEST_F(Im, BlocksOfManyProcessesDiffer) {
    constexpr int kProcesses = 16, kBlocks = 60;
    int start[2];
    ASSERT_EQ(::pipe(start), 0);
    std::vector<pid_t> children;
    for (int n = 0; n < kProcesses; ++n)
        children.push_back(start_child([&] {
            ::close(start[1]);
            char byte;
            os_read(start[0], &byte, 1);  // until the parent lets go
            const os_Fd found = os_open("~/tmp/blocks", O_WRONLY | O_CREAT | O_APPEND);
            for (int i = 0; i < kBlocks; ++i) {
                os_SetHome(home_.path() + (i % 2 == 0 ? "/." : ""));  // another home: the claim is given up
                const std::uint64_t block = im_CrNewDataItem().ref().file_id >> 12;
                os_write_all(found.get(), std::to_string(block) + '\n');
            }
            return 0;
        }));
    ::close(start[0]);
    ::close(start[1]);
    for (const pid_t child : children) EXPECT_EQ(await_child(child), 0);
    std::set<std::string> blocks;
    std::istringstream lines(home_.read("tmp/blocks"));
    for (std::string line; std::getline(lines, line);) EXPECT_TRUE(blocks.insert(line).second) << line;
    EXPECT_EQ(blocks.size(), std::size_t{kProcesses} * kBlocks);
}

// A child that goes on without a new program has its parent's memory, but not its ids.
TEST_F(Im, AForkedChildTakesOtherIds) {
    const std::uint64_t parent = im_CrNewDataItem().ref().file_id;
    im_Item next = im_CrNewDataItem();
    EXPECT_EQ(run_in_child([&] {
                  im_Item item = im_CrNewDataItem();
                  item.place();
                  item.keep();
                  return item.ref().file_id >> 12 == parent >> 12 ? 1 : 0;
              }),
              0);
    next.place();
    EXPECT_EQ(next.ref().file_id >> 12, parent >> 12) << "the parent goes on in its block";
}

TEST_F(Im, TheBlockTakenLastIsKeptInTheHome) {
    const std::uint64_t block = im_CrNewDataItem().ref().file_id >> 12;
    std::string expected;
    for (int shift = 56; shift >= 0; shift -= 8) expected += static_cast<char>(block >> shift & 0xFF);
    EXPECT_EQ(hex(home_.read("sys/ids")), hex(expected));
}

// What the block's number is after sys/ids held `stored`.
std::uint64_t block_after(const TestHome& home, const std::string& stored) {
    home.write("sys/ids", stored);
    std::uint64_t block = 0;
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    EXPECT_EQ(run_in_child([&] {
                  const std::uint64_t taken = im_CrNewDataItem().ref().file_id >> 12;
                  os_write_all(ends[1], {reinterpret_cast<const char*>(&taken), sizeof taken});
                  return 0;
              }),
              0);
    EXPECT_EQ(os_read(ends[0], reinterpret_cast<char*>(&block), sizeof block), sizeof block);
    ::close(ends[0]);
    ::close(ends[1]);
    return block;
}

TEST_F(Im, NeitherAClockThatIsSetBackNorALostFileRepeatsAnId) {
    const auto now = static_cast<std::uint64_t>(os_now_nanoseconds() / 1'000'000 - 1'577'836'800'000);
    EXPECT_EQ(block_after(home_, bytes("00000FFF FFFFFFF0")), 0x00000FFFFFFFFFF1U) << "beyond the clock: the next one";
    EXPECT_NEAR(static_cast<double>(block_after(home_, "")), static_cast<double>(now), 60'000) << "lost: the clock";
    EXPECT_NEAR(static_cast<double>(block_after(home_, bytes("00000000 00000001"))), static_cast<double>(now), 60'000)
        << "long ago: the clock";
    EXPECT_NEAR(static_cast<double>(block_after(home_, bytes("FF"))), static_cast<double>(now), 60'000) << "cut";
    EXPECT_NEAR(static_cast<double>(block_after(home_, bytes("FFFFFFFF FFFFFFFF"))), static_cast<double>(now), 60'000)
        << "damaged: no id could hold it";
}

TEST_F(Im, ABlockOfALivingProcessIsPassedOver) {
    const std::string stored = bytes("00000FFF 00000000");  // far ahead of the clock
    home_.write("sys/ids", stored);
    const std::uint64_t own = im_CrNewDataItem().ref().file_id >> 12;
    EXPECT_EQ(own, 0x00000FFF00000001U);
    EXPECT_EQ(block_after(home_, stored), own + 1) << "sys/ids was put back, from a copy say";
}

TEST_F(Im, AnIdWhoseFileIsThereIsPassedOver) {
    im_Item first = im_CrNewDataItem();
    const std::uint64_t id = first.ref().file_id;
    const auto next_in_block = [](std::uint64_t n) {
        const std::uint64_t block = n >> 12, index = (n >> 8 & 0xF) | ((n - block) & 0xFF) << 4;
        return block << 12 | ((index + 1) & 0xF) << 8 | ((((index + 1) >> 4) + block) & 0xFF);
    };
    const ITEM_REF taken{.domain = 1, .file_id = next_in_block(id), .extension = {'i', 't', 'e', 'm'}};
    os_write_all(os_open(im_ItemRef2FName(taken), O_WRONLY | O_CREAT).get(), "somebody else's");
    im_Item second = im_CrNewDataItem();
    second.write("ours");
    const std::string path = second.path();
    EXPECT_NE(second.ref().file_id, taken.file_id);
    EXPECT_EQ(home_.read_path(im_ItemRef2FName(taken)), "somebody else's");
    EXPECT_EQ(home_.read_path(path), "ours");
}

TEST_F(Im, TheMakerOfAnIdLivesUntilItsProcessEnds) {
    EXPECT_FALSE(im_maker_lives(4711)) << "nobody took an id yet";
    const im_Item own = im_CrNewDataItem();
    EXPECT_TRUE(im_maker_lives(own.ref().file_id));

    int ready[2], go[2];
    ASSERT_EQ(::pipe(ready), 0);
    ASSERT_EQ(::pipe(go), 0);
    const pid_t child = start_child([&] {
        im_Item item = im_CrNewDataItem();
        item.place();
        const std::uint64_t id = item.ref().file_id;
        os_write_all(ready[1], {reinterpret_cast<const char*>(&id), sizeof id});
        char byte;
        os_read(go[0], &byte, 1);
        ::kill(::getpid(), SIGKILL);
        return 0;
    });
    std::uint64_t id = 0;
    ASSERT_EQ(os_read(ready[0], reinterpret_cast<char*>(&id), sizeof id), sizeof id);
    EXPECT_TRUE(im_maker_lives(id));
    os_write_all(go[1], "x");
    EXPECT_EQ(await_child(child), 128 + SIGKILL);
    EXPECT_FALSE(im_maker_lives(id));
    EXPECT_EQ(files().size(), 1U) << "its leavings";
    EXPECT_TRUE(im_maker_lives(own.ref().file_id));
    for (const int fd : {ready[0], ready[1], go[0], go[1]}) ::close(fd);
}

TEST_F(Im, AllBlocksOfAProcessAreItsOwn) {
    const std::uint64_t first = im_CrNewDataItem().ref().file_id;
    for (int i = 0; i < 4096; ++i) im_CrNewDataItem().ref();
    EXPECT_NE(im_CrNewDataItem().ref().file_id >> 12, first >> 12);
    EXPECT_TRUE(im_maker_lives(first));
}

// --- durability -----------------------------------------------------------------------------------------------------

TEST_F(Im, TheStoresFileSystemIsSynced) {
    struct stat info {};
    im_Item item = im_CrNewDataItem();
    item.place();
    ASSERT_EQ(::stat(item.path().c_str(), &info), 0);
    EXPECT_TRUE(im_syncs_device(info.st_dev));
    EXPECT_FALSE(im_syncs_device(~info.st_dev));
    im_sync_file_systems();
}

TEST_F(Im, ItemsAreSyncedTogetherWithWhatElseIsOpen) {
    std::vector<im_Item> items;
    std::vector<ITEM_REF> refs;
    const os_Fd other(::memfd_create("other", 0));
    const int others[] = {other.get()};
    for (const std::size_t count : {0U, 1U, 31U, 32U, 100U}) {  // on both sides of what goes at once
        while (items.size() < count) {
            items.push_back(im_CrNewDataItem());
            items.back().write("x");
            items.back().place();
            refs.push_back(items.back().ref());
        }
        EXPECT_NO_THROW(im_SyncItems(refs, others)) << count;
    }
}

TEST_F(Im, AnItemThatIsNotThereCannotBeSynced) {
    im_Item item = im_CrNewDataItem();
    item.place();
    const ITEM_REF refs[] = {item.ref()};
    ASSERT_EQ(::unlink(item.path().c_str()), 0);
    EXPECT_THROW(im_SyncItems(refs, {}), er_Escape);
}

// data/1 may be a mount or a link: what counts is where the files are.
TEST_F(Im, ADomainOnAnotherFileSystemIsSyncedToo) {
    struct stat here {
    }, there{};
    const std::string other = fs::current_path().string() + "/store-" + std::to_string(::getpid());
    fs::create_directories(other);
    ASSERT_EQ(::stat(home_.path().c_str(), &here), 0);
    ASSERT_EQ(::stat(other.c_str(), &there), 0);
    if (here.st_dev != there.st_dev) {
        fs::remove_all(home_.file("data/1"));
        fs::create_directory_symlink(other, home_.file("data/1"));
        im_make_folders();
        im_Item item = im_CrNewDataItem();
        item.ref();
        EXPECT_FALSE(im_syncs_device(there.st_dev)) << "nothing was written there yet";
        item.place();
        EXPECT_TRUE(im_syncs_device(there.st_dev));
        const ITEM_REF refs[] = {item.ref()};
        im_SyncItems(refs, {});
        im_sync_file_systems();
    }
    fs::remove_all(other);
    if (here.st_dev == there.st_dev) GTEST_SKIP() << "one file system only";
}

// --- items of others ------------------------------------------------------------------------------------------------

TEST_F(Im, AnItemThatIsThereIsReadAndRewrittenAndLeft) {
    im_Item made = im_CrNewDataItem();
    made.write("old content");
    made.place();
    const ITEM_REF ref = made.ref();
    {
        im_Item opened = im_open(ref);
        EXPECT_EQ(opened.ref(), ref);
        EXPECT_EQ(content(opened), "old content");
        opened.truncate(4);
        const std::string more = pattern(3 * kKeptInMemory);
        opened.write(more);
        opened.place();
        EXPECT_TRUE(home_.read_path(im_ItemRef2FName(ref)) == "old " + more);
    }
    { const im_Item again = im_open(ref); }
    EXPECT_EQ(files().size(), 1U) << "it is its maker's to delete";
    made.unlink();
    EXPECT_EQ(reason_of([&] { im_open(ref); }), ENOENT);
}

}  // namespace
