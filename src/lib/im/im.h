// The item store: every body part, transfer file, message file and scratch file is an item, named by an ITEM_REF.
//
//   ~/data/<domain>/<hh>/<id>.<ext>    <id>: 16 lower-case hex digits, <hh>: its last two
//
// An item is a handle (im_Item) that owns what it made: destroyed without having been kept, it leaves nothing
// behind. While an item is small it is memory only; it becomes a file when it outgrows kKeptInMemory or is placed
// (attached to a message, or its path is really needed). An item that is deleted first never reaches the disk.
//
// File ids are unique for the life of the home, across processes and restarts. Neither process ids, which come again,
// nor the clock, which can be set back, are enough for that, so ids are handed out in blocks of 4096: [52 bits
// block][12 bits within it, turned so that sixteen items in a row share a folder and blocks begin in different ones].
// ~/sys/ids holds the block taken last, u64 big-endian; the next one is the greater of the one after it and the
// milliseconds since 2020, so that a lost file repeats no id either: it is not synced with each message. An id is taken
// when it is first asked for; one whose file is there already is passed over.
//
// A process holds a lock on byte number <block> of ~/sys/ids for each block that it has taken, until it ends: so
// `morvane fsck` tells the leavings of a dead process from the work of a living one (im_maker_lives), in whatever
// process namespace that runs.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "os/os.h"

inline constexpr std::size_t kKeptInMemory = std::size_t{128} << 10;  // an item of so many bytes needs no file

inline constexpr std::size_t kKeptAside = 512;  // of an item that was set aside

enum class im_Domain : std::uint16_t { data = 1, temporary = 4 };

// Reference to an item. All zero: no item.
struct ITEM_REF {
    std::uint16_t domain = 0;
    std::uint16_t flags = 0;
    std::uint32_t sub_domain = 0;
    std::uint64_t file_id = 0;
    std::array<char, 4> extension{};

    bool is_null() const { return file_id == 0; }
    bool operator==(const ITEM_REF&) const = default;
};

inline constexpr std::string_view kDataItem = "item";
inline constexpr std::string_view kTransferFile = "tran";
inline constexpr std::string_view kMessageFile = "mesg";
inline constexpr std::string_view kScratchItem = "temp";

// Path of an item below the home, for example "/home/data/1/3f/00000000000a513f.item".
std::string im_ItemRef2FName(const ITEM_REF& ref);
// The other way: the reference that a path of the store names; nothing when it names none.
std::optional<ITEM_REF> im_FName2ItemRef(std::string_view path);
// Whether the process that took this id still runs (or, where locks cannot be asked, may run).
bool im_maker_lives(std::uint64_t file_id);
void im_make_folders();  // lays down data/1 and data/4 (for `morvane init`)

class im_Item {
public:
    im_Item() = default;
    im_Item(im_Item&&) noexcept;
    im_Item& operator=(im_Item&&) noexcept;
    ~im_Item();  // unlinks what was not kept; swallows failures

    explicit operator bool() const { return ref_.domain != 0; }
    const ITEM_REF& ref() const;  // takes the item's id when it has none yet, which raises where there is no home
    std::uint64_t size() const { return size_; }

    // Appends: everything, or nothing and an escape. Writes reach the file in large blocks.
    void write(std::string_view data);
    void write(char byte) {
        if (used_ == room_) grow(1);
        buffer_[used_++] = byte;
        ++size_;
    }
    // Room for `bytes` more, at most a block, for whoever decodes in place; advance() appends what was filled of it.
    char* room(std::size_t bytes) {
        if (room_ - used_ < bytes) grow(bytes);
        return buffer_.get() + used_;
    }
    void advance(std::size_t bytes) {
        used_ += bytes;
        size_ += bytes;
    }
    // Overwrites bytes that are there already, in place; EINVAL beyond the end.
    void overwrite(std::uint64_t at, std::string_view data);
    // Cuts the item to `size` bytes.
    void truncate(std::uint64_t size);
    // Reads up to `room` bytes from position `at`; fewer only at the end.
    std::size_t read(std::uint64_t at, char* data, std::size_t room) const;
    // The bytes from `at`, at most `limit`: a view into memory where they are there, else into `scratch`.
    std::string_view view(std::uint64_t at, std::size_t limit, std::string& scratch) const;
    std::string_view head(std::size_t limit, std::string& scratch) const { return view(0, limit, scratch); }
    bool in_memory() const { return size_ == used_; }

    // Makes it a file with everything written, and closes its descriptor. Writing may go on afterwards.
    void place();
    std::string path();  // places it and names it
    // Gives back the memory that it can do without, for an item that will not be written for long: up to
    // kKeptAside bytes stay in memory, more go to its file.
    void set_aside();
    void keep() { kept_ = true; }  // the destructor leaves the file alone from now on
    void unlink() noexcept;        // deletes it now, kept or not; the handle is empty afterwards

private:
    friend im_Item im_create(im_Domain, std::string_view);
    friend im_Item im_open(const ITEM_REF&);
    friend im_Item im_create_unnamed();
    std::uint64_t in_file() const { return size_ - used_; }
    void drop() noexcept;
    void grow(std::size_t wanted);
    void flush();
    void append_to_file(std::string_view data);
    void create_file();
    int descriptor() const;  // opened again when the item was placed

    mutable ITEM_REF ref_;            // its file id is 0 until somebody asks for it
    std::unique_ptr<char[]> buffer_;  // the tail that is not in the file yet
    std::size_t used_ = 0, room_ = 0;
    std::uint64_t size_ = 0;  // of the whole item; size_ - used_ bytes are in the file
    mutable os_Fd fd_;
    bool on_disk_ = false;
    bool kept_ = false;
    bool unnamed_ = false;
};

// A new, empty item. Nothing is created on disk yet.
im_Item im_create(im_Domain domain, std::string_view extension);
// One that is only read again by whoever made it: the store never sees it, and what outgrows memory is a file without
// a name. It cannot be placed (EINVAL).
im_Item im_create_unnamed();
// An item that is a file already and belongs to somebody else (a message that it is attached to): the handle leaves it
// there when it ends. What is written to it is in the file once it has been placed. Raises when there is no such file.
im_Item im_open(const ITEM_REF& ref);
inline im_Item im_CrNewDataItem() { return im_create(im_Domain::data, kDataItem); }

// Makes placed items and the folders that name them durable, and what `others` (open descriptors) hold, with one wait:
// for the files, all started before any is awaited, or for their whole file systems (syncfs(2)), which is quicker while
// little data of anybody waits to be written; `choose` looks. Very many items, and a kernel without asynchronous
// syncing, always go by file systems. Raises when the system reports that data was lost.
enum class im_SyncBy { choose, files, file_systems };
void im_SyncItems(std::span<const ITEM_REF> items, std::span<const int> others, im_SyncBy way = im_SyncBy::choose);
void im_sync_file_systems();         // every file system that took an item of this process, whole
bool im_syncs_device(dev_t device);  // is this one of them?

// Deletes an item by reference; a missing file is no failure.
void im_UnlinkItem(const ITEM_REF& ref);

// Reads an item front to back in lines or blocks without holding it: works on memory and on files.
class im_Reader {
public:
    explicit im_Reader(const im_Item& item);  // the item must outlive the reader and not be written meanwhile
    im_Reader(const im_Item&&) = delete;
    // The next line, at most `limit` bytes, its LF included when it has one; nothing at the end. The view is good until
    // the next call.
    std::optional<std::string_view> line(std::size_t limit);
    int peek();  // the next byte, or -1
    void skip(std::size_t bytes) { position_ += bytes; }
    std::uint64_t position() const { return position_; }
    void seek(std::uint64_t position) { position_ = position; }

private:
    std::string_view ahead(std::size_t wanted);  // at least `wanted` bytes from position_, as far as there are
    const im_Item& item_;
    std::string scratch_;
    std::string_view block_;
    std::uint64_t start_ = 0;  // where block_ begins
    std::uint64_t position_ = 0;
};
