// The item store: see im.h.
#include "im/im.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <utility>
#include <vector>

#include "er/er.h"

namespace {

constexpr std::size_t kFirstRoom = 4096;
constexpr std::int64_t kEpoch = 1'577'836'800'000;  // 2020-01-01 in milliseconds
constexpr std::string_view kIdsFile = "~/sys/ids";
constexpr std::string_view kUnnamedFolder = "~/tmp";
constexpr unsigned kIdBits = 12;  // of an id, within its block
constexpr unsigned kIdsInBlock = 1U << kIdBits;
constexpr std::uint64_t kLastBlock = (std::uint64_t{1} << (64 - kIdBits)) - 1;
constexpr std::string_view kHex = "0123456789abcdef";

// What the process holds of the store: ids that nobody else has, and the file systems to sync, opened before anything
// is written to them: errors of a device are reported to descriptors that were open when they happened.
struct Claim {
    struct FileSystem {
        dev_t device;
        os_Fd folder;
    };
    std::string home;
    pid_t process = 0;
    os_Fd ids;  // holds the locks
    std::uint64_t block = 0;
    unsigned used = kIdsInBlock;  // ids of the block that are gone
    std::vector<FileSystem> file_systems;
    std::array<bool, 512> known_folders{};  // whose file system has been looked at, by folder_number
};

Claim& claim() {
    static Claim the_claim;
    return the_claim;
}

// One of the 256 folders of each of the two domains.
std::size_t folder_number(const ITEM_REF& ref) {
    const bool temporary = ref.domain == static_cast<std::uint16_t>(im_Domain::temporary);
    return (temporary ? 256U : 0U) + (ref.file_id & 0xFF);
}

dev_t device_of(int fd) {
    struct stat info {};
    if (::fstat(fd, &info) != 0) er_SystemEscape(errno, "fstat");
    return info.st_dev;
}

bool is_synced(const Claim& c, dev_t device) {
    return std::any_of(c.file_systems.begin(), c.file_systems.end(),
                       [&](const auto& fs) { return fs.device == device; });
}

// From now on what is written to the file system of `folder` is synced.
void sync_folder(Claim& c, const std::string& folder) {
    os_Fd fd = os_open(folder, O_RDONLY | O_DIRECTORY);
    const dev_t device = device_of(fd.get());
    if (!is_synced(c, device)) c.file_systems.push_back({device, std::move(fd)});
}

// The claim of this process on this home. What a forked child inherits is its parent's.
Claim& staked_claim() {
    Claim& c = claim();
    if (c.ids && c.process == ::getpid() && c.home == os_Home()) return c;
    c = Claim{};
    sync_folder(c, os_HomePath("~/data"));
    sync_folder(c, os_HomePath("~/sys"));
    c.ids = os_open(kIdsFile, O_RDWR | O_CREAT);
    c.process = ::getpid();
    c.home = os_Home();
    return c;
}

// Locks belong to the open file, not to the process: they end when its last descriptor is closed, however that happens.
struct flock lock_of(short type, std::uint64_t byte) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = static_cast<off_t>(byte);
    lock.l_len = 1;
    return lock;
}

void set_lock(int ids, short type, std::uint64_t byte) {
    struct flock lock = lock_of(type, byte);
    while (::fcntl(ids, F_OFD_SETLKW, &lock) != 0)
        if (errno != EINTR) er_SystemEscape(errno, os_HomePath(kIdsFile));
}

bool locked(int ids, std::uint64_t byte) {
    struct flock lock = lock_of(F_WRLCK, byte);
    if (::fcntl(ids, F_OFD_SETLK, &lock) == 0) return true;
    if (errno == EAGAIN || errno == EACCES) return false;
    er_SystemEscape(errno, os_HomePath(kIdsFile));
}

// While it lives, no other process reads or writes the number of the last block.
class CounterLock {
public:
    explicit CounterLock(int ids) : ids_(ids) { set_lock(ids_, F_WRLCK, 0); }
    ~CounterLock() {
        er_TryIgnoring([this] { set_lock(ids_, F_UNLCK, 0); });
    }
    CounterLock(const CounterLock&) = delete;
    CounterLock& operator=(const CounterLock&) = delete;

private:
    int ids_;
};

std::uint64_t milliseconds_since_2020() {
    const std::int64_t milliseconds = os_now_nanoseconds() / 1'000'000 - kEpoch;
    return static_cast<std::uint64_t>(std::max<std::int64_t>(milliseconds, 1));
}

// The block taken last by whoever; 0 when there is none yet or the file is damaged: the clock then sees to it alone.
std::uint64_t last_block(int ids) {
    std::array<char, 8> bytes{};
    if (os_pread(ids, bytes.data(), bytes.size(), 0) != bytes.size()) return 0;
    std::uint64_t last = 0;
    for (const char byte : bytes) last = last << 8 | static_cast<unsigned char>(byte);
    return last < kLastBlock ? last : 0;
}

void take_block(Claim& c) {
    const CounterLock lock(c.ids.get());
    std::uint64_t block = std::max(last_block(c.ids.get()) + 1, milliseconds_since_2020());
    while (!locked(c.ids.get(), block)) ++block;  // a living process has it: sys/ids is not what it was
    std::string bytes;
    for (int shift = 56; shift >= 0; shift -= 8) bytes += static_cast<char>(block >> shift & 0xFF);
    os_pwrite_all(c.ids.get(), bytes, 0);
    c.block = block;
    c.used = 0;
}

// The next file id; see im.h for its make-up.
std::uint64_t next_id() {
    Claim& c = staked_claim();
    if (c.used == kIdsInBlock) take_block(c);
    const std::uint64_t n = c.used++;
    return c.block << kIdBits | (n & 0xF) << 8 | (((n >> 4) + c.block) & 0xFF);
}

void append_hex(std::string& out, std::uint64_t value, int digits) {
    for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) out += kHex[(value >> shift) & 15];
}

}  // namespace

std::string im_ItemRef2FName(const ITEM_REF& ref) {
    std::string path = os_Home() + "/data/" + std::to_string(ref.domain) + '/';
    append_hex(path, ref.file_id & 0xFF, 2);
    path += '/';
    append_hex(path, ref.file_id, 16);
    path += '.';
    return path.append(ref.extension.data(), ref.extension.size());
}

std::optional<ITEM_REF> im_FName2ItemRef(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
    if (name.size() != 21 || name[16] != '.') return std::nullopt;
    if (name.substr(0, 16).find_first_not_of(kHex) != std::string_view::npos) return std::nullopt;
    ITEM_REF ref;
    std::from_chars(name.data(), name.data() + 16, ref.file_id, 16);
    std::copy_n(name.data() + 17, 4, ref.extension.begin());
    const bool scratch = name.substr(17) == kScratchItem;
    ref.domain = static_cast<std::uint16_t>(scratch ? im_Domain::temporary : im_Domain::data);
    return ref;
}

bool im_maker_lives(std::uint64_t file_id) {
    const os_Fd ids = os_open_if_there(kIdsFile, O_RDONLY);
    if (!ids) return false;
    struct flock lock = lock_of(F_WRLCK, file_id >> kIdBits);
    return ::fcntl(ids.get(), F_OFD_GETLK, &lock) != 0 || lock.l_type != F_UNLCK;
}

void im_make_folders() {
    for (const im_Domain domain : {im_Domain::data, im_Domain::temporary}) {
        const std::string root = "~/data/" + std::to_string(static_cast<int>(domain)) + '/';
        for (unsigned folder = 0; folder < 256; ++folder) {
            std::string path = root;
            append_hex(path, folder, 2);
            os_mkdirs(path, 0700);
        }
    }
}

im_Item im_create(im_Domain domain, std::string_view extension) {
    im_Item item;
    item.ref_.domain = static_cast<std::uint16_t>(domain);
    std::copy_n(extension.begin(), 4, item.ref_.extension.begin());
    return item;
}

im_Item im_open(const ITEM_REF& ref) {
    im_Item item;
    item.ref_ = ref;
    item.fd_ = os_open(im_ItemRef2FName(ref), O_RDWR);
    item.size_ = os_fsize(item.fd_.get());
    item.on_disk_ = item.kept_ = true;
    return item;
}

im_Item im_create_unnamed() {
    im_Item item = im_create(im_Domain::temporary, kScratchItem);
    item.unnamed_ = true;
    return item;
}

im_Item::im_Item(im_Item&& other) noexcept { *this = std::move(other); }

im_Item& im_Item::operator=(im_Item&& other) noexcept {
    if (this == &other) return *this;
    drop();
    ref_ = std::exchange(other.ref_, ITEM_REF{});
    buffer_ = std::move(other.buffer_);
    used_ = std::exchange(other.used_, 0);
    room_ = std::exchange(other.room_, 0);
    size_ = std::exchange(other.size_, 0);
    fd_ = std::move(other.fd_);
    on_disk_ = std::exchange(other.on_disk_, false);
    kept_ = std::exchange(other.kept_, false);
    unnamed_ = std::exchange(other.unnamed_, false);
    return *this;
}

im_Item::~im_Item() { drop(); }

void im_Item::drop() noexcept {
    if (!kept_) return unlink();
    on_disk_ = false;  // it is somebody else's now
    unlink();
}

void im_Item::unlink() noexcept {
    if (on_disk_ && !unnamed_) er_TryIgnoring([this] { os_unlink(im_ItemRef2FName(ref_)); });
    fd_.reset();
    buffer_.reset();
    ref_ = ITEM_REF{};
    used_ = room_ = size_ = 0;
    on_disk_ = kept_ = unnamed_ = false;
}

const ITEM_REF& im_Item::ref() const {
    if (ref_.file_id == 0 && ref_.domain != 0) ref_.file_id = next_id();
    return ref_;
}

void im_Item::create_file() {
    if (on_disk_) return;
    if (unnamed_) {
        fd_ = os_open_unnamed(kUnnamedFolder);
        on_disk_ = true;
        return;
    }
    for (;;) {
        const std::string path = im_ItemRef2FName(ref());
        fd_ = os_Fd(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (fd_) {
            on_disk_ = true;
            Claim& c = staked_claim();
            if (bool& known = c.known_folders[folder_number(ref_)]; !known) {
                if (!is_synced(c, device_of(fd_.get()))) sync_folder(c, path.substr(0, path.rfind('/')));
                known = true;
            }
            return;
        }
        // EEXIST: ~/sys/ids was lost and the clock set back, or files were copied into the home.
        if (errno == EEXIST)
            ref_.file_id = next_id();
        else if (errno != EINTR)
            er_SystemEscape(errno, path);
    }
}

int im_Item::descriptor() const {
    if (!fd_) fd_ = os_open(im_ItemRef2FName(ref_), O_RDWR);
    return fd_.get();
}

// Appends to what the file holds; on a full disk the part that did fit is taken back.
void im_Item::append_to_file(std::string_view data) {
    try {
        os_pwrite_all(descriptor(), data, in_file());
    } catch (const er_Escape&) {
        if (fd_ && ::ftruncate(fd_.get(), static_cast<off_t>(in_file())) != 0)
            errno = 0;  // the first error is reported
        throw;
    }
}

void im_Item::flush() {
    create_file();
    if (used_ == 0) return;
    append_to_file({buffer_.get(), used_});
    used_ = 0;
}

void im_Item::grow(std::size_t wanted) {
    if (used_ + wanted > kKeptInMemory) flush();
    const std::size_t least = used_ + wanted;
    if (least <= room_) return;
    std::size_t room = std::max(room_ * 2, kFirstRoom);
    while (room < least) room *= 2;
    std::unique_ptr<char[]> larger;
    er_Translate([&] { larger = std::make_unique_for_overwrite<char[]>(room); });
    if (used_ != 0) std::memcpy(larger.get(), buffer_.get(), used_);
    buffer_ = std::move(larger);
    room_ = room;
}

void im_Item::write(std::string_view data) {
    if (data.size() > room_ - used_) {
        if (data.size() >= kKeptInMemory) {
            flush();
            append_to_file(data);
            size_ += data.size();
            return;
        }
        grow(data.size());
    }
    if (data.empty()) return;
    std::memcpy(buffer_.get() + used_, data.data(), data.size());
    used_ += data.size();
    size_ += data.size();
}

void im_Item::overwrite(std::uint64_t at, std::string_view data) {
    if (at > size_ || data.size() > size_ - at) er_SystemEscape(EINVAL, "overwrite beyond the end of an item");
    const std::uint64_t border = in_file();
    if (at < border) {
        const std::string_view part =
            data.substr(0, static_cast<std::size_t>(std::min<std::uint64_t>(border - at, data.size())));
        os_pwrite_all(descriptor(), part, at);
        data.remove_prefix(part.size());
        at += part.size();
    }
    if (!data.empty()) std::memcpy(buffer_.get() + (at - border), data.data(), data.size());
}

void im_Item::truncate(std::uint64_t size) {
    if (size >= size_) return;
    if (size < in_file()) {
        if (::ftruncate(descriptor(), static_cast<off_t>(size)) != 0) er_SystemEscape(errno, "ftruncate");
        used_ = 0;
    } else {
        used_ = static_cast<std::size_t>(size - in_file());
    }
    size_ = size;
}

std::size_t im_Item::read(std::uint64_t at, char* data, std::size_t room) const {
    if (at >= size_) return 0;
    room = static_cast<std::size_t>(std::min<std::uint64_t>(room, size_ - at));
    std::size_t have = 0;
    if (at < in_file()) {
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(room, in_file() - at));
        have = os_pread(descriptor(), data, wanted, at);
        if (have < wanted) er_SystemEscape(EIO, im_ItemRef2FName(ref_));  // somebody cut the file under us
    }
    if (have < room) std::memcpy(data + have, buffer_.get() + (at + have - in_file()), room - have);
    return room;
}

std::string_view im_Item::view(std::uint64_t at, std::size_t limit, std::string& scratch) const {
    if (at >= size_) return {};
    limit = static_cast<std::size_t>(std::min<std::uint64_t>(limit, size_ - at));
    if (at >= in_file()) return {buffer_.get() + (at - in_file()), limit};
    scratch.resize(limit);
    read(at, scratch.data(), limit);
    return scratch;
}

void im_Item::place() {
    if (unnamed_) er_SystemEscape(EINVAL, "an item without a name cannot be placed");
    flush();
    fd_.close_checked();
}

void im_Item::set_aside() {
    if (used_ > kKeptAside) place();
    if (room_ == used_) return;
    std::unique_ptr<char[]> rest;
    if (used_ != 0) {
        er_Translate([&] { rest = std::make_unique_for_overwrite<char[]>(used_); });
        std::memcpy(rest.get(), buffer_.get(), used_);
    }
    buffer_ = std::move(rest);
    room_ = used_;
}

std::string im_Item::path() {
    place();
    return im_ItemRef2FName(ref_);
}

void im_UnlinkItem(const ITEM_REF& ref) { os_unlink(im_ItemRef2FName(ref)); }

void im_sync_file_systems() {
    for (const Claim::FileSystem& file_system : claim().file_systems)
        if (::syncfs(file_system.folder.get()) != 0) er_SystemEscape(errno, "syncfs");
}

bool im_syncs_device(dev_t device) { return is_synced(claim(), device); }
