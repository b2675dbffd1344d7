// The item store: see im.h.
#include "im/im.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <utility>

#include "er/er.h"

namespace {

constexpr std::size_t kFirstRoom = 4096;
constexpr std::size_t kBlock = std::size_t{128} << 10;  // an item below it is kept in memory; larger ones are written in such blocks
constexpr std::int64_t kEpoch = 1'577'836'800'000;      // 2020-01-01 in milliseconds
constexpr std::uint64_t kClockBits = 42;
constexpr std::uint64_t kProcessMask = (std::uint64_t{1} << 22) - 1;
constexpr std::string_view kLockFile = "~/sys/config";
constexpr std::int64_t kLockBase = std::int64_t{1} << 32;
constexpr std::string_view kHex = "0123456789abcdef";

// What the process holds of the store: the lock that says it lives, and the file systems to sync. Opened before
// anything is written, so that no write error of the device goes unseen (errors are reported to descriptors that were open).
struct Claim {
    os_Fd lock;
    os_Fd data;  // only when data/ lies on another file system than sys/
    dev_t lock_device = 0, data_device = 0;
    std::string home;
};

Claim& claim() {
    static Claim the_claim;
    return the_claim;
}

dev_t device_of(int fd) {
    struct stat info {};
    return ::fstat(fd, &info) == 0 ? info.st_dev : 0;
}

// Says that this process has files in the making: a read lock on its own byte, which ends with the process.
void stake_claim() {
    Claim& c = claim();
    if (c.home == os_Home() && !c.home.empty()) return;
    c = Claim{};
    c.lock = os_open_if_there(kLockFile, O_RDONLY);
    if (c.lock) {
        struct flock lock {};
        lock.l_type = F_RDLCK;
        lock.l_whence = SEEK_SET;
        lock.l_start = kLockBase + ::getpid();
        lock.l_len = 1;
        ::fcntl(c.lock.get(), F_OFD_SETLK, &lock);  // a file system without locks: fsck then sees the process id alone
        c.lock_device = device_of(c.lock.get());
    }
    os_Fd data = os_open("~/data", O_RDONLY | O_DIRECTORY);
    c.data_device = device_of(data.get());
    if (!c.lock || c.data_device != c.lock_device) c.data = std::move(data);
    c.home = os_Home();
}

// The next file id; see im.h for its make-up. Milliseconds run ahead of the clock while ids are taken faster.
std::uint64_t next_id() {
    static std::uint64_t last = 0;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const auto clock = static_cast<std::uint64_t>(std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000 - kEpoch);
    last = std::max(last + 1, clock);
    const std::uint64_t turned = (last & ~std::uint64_t{0xFFF}) | ((last & 0xF) << 8) | ((last >> 4) & 0xFF);
    const std::uint64_t process = static_cast<std::uint64_t>(::getpid()) & kProcessMask;
    return (process << kClockBits) | (turned & ((std::uint64_t{1} << kClockBits) - 1));
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

std::uint32_t im_process_of(std::uint64_t file_id) { return static_cast<std::uint32_t>(file_id >> kClockBits); }

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
    item.ref_.file_id = next_id();
    std::copy_n(extension.begin(), 4, item.ref_.extension.begin());
    return item;
}

im_Item::im_Item(im_Item&& other) noexcept { *this = std::move(other); }

im_Item& im_Item::operator=(im_Item&& other) noexcept {
    if (this == &other) return *this;
    unlink();
    ref_ = std::exchange(other.ref_, ITEM_REF{});
    buffer_ = std::move(other.buffer_);
    used_ = std::exchange(other.used_, 0);
    room_ = std::exchange(other.room_, 0);
    size_ = std::exchange(other.size_, 0);
    fd_ = std::move(other.fd_);
    on_disk_ = std::exchange(other.on_disk_, false);
    kept_ = std::exchange(other.kept_, false);
    return *this;
}

im_Item::~im_Item() { unlink(); }

void im_Item::unlink() noexcept {
    if (on_disk_ && !kept_) er_TryIgnoring([this] { os_unlink(im_ItemRef2FName(ref_)); });
    fd_.reset();
    buffer_.reset();
    ref_ = ITEM_REF{};
    used_ = room_ = size_ = 0;
    on_disk_ = kept_ = false;
}

void im_Item::create_file() {
    if (on_disk_) return;
    stake_claim();
    for (;;) {
        const std::string path = im_ItemRef2FName(ref_);
        fd_ = os_Fd(::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (fd_) break;
        if (errno != EEXIST) er_SystemEscape(errno, path);
        ref_.file_id = next_id();  // a clock that was set back; nobody has been told the id yet
    }
    on_disk_ = true;
}

int im_Item::descriptor() const {
    if (!fd_) fd_ = os_open(im_ItemRef2FName(ref_), O_RDWR);
    return fd_.get();
}

void im_Item::flush() {
    create_file();
    if (used_ == 0) return;
    os_pwrite_all(descriptor(), {buffer_.get(), used_}, in_file());
    used_ = 0;
}

void im_Item::grow(std::size_t wanted) {
    if (used_ + wanted > kBlock) flush();
    const std::size_t least = used_ + wanted;
    if (least <= room_) return;
    std::size_t room = std::max(room_ * 2, kFirstRoom);
    while (room < least) room *= 2;
    auto larger = std::make_unique_for_overwrite<char[]>(room);
    if (used_ != 0) std::memcpy(larger.get(), buffer_.get(), used_);
    buffer_ = std::move(larger);
    room_ = room;
}

void im_Item::write(std::string_view data) {
    if (data.size() > room_ - used_) {
        if (data.size() >= kBlock) {
            flush();
            os_pwrite_all(descriptor(), data, size_);
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
    const std::uint64_t border = in_file();
    if (at < border) {
        const std::string_view part = data.substr(0, static_cast<std::size_t>(std::min<std::uint64_t>(data.size(), border - at)));
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
    flush();
    fd_.close_checked();
}

std::string im_Item::path() {
    place();
    return im_ItemRef2FName(ref_);
}

void im_UnlinkItem(const ITEM_REF& ref) { os_unlink(im_ItemRef2FName(ref)); }

void im_SyncItems() {
    Claim& c = claim();
    for (const os_Fd* fd : {&c.lock, &c.data})
        if (*fd && ::syncfs(fd->get()) != 0) er_SystemEscape(errno, "syncfs");
}

bool im_syncs_device(dev_t device) { return device != 0 && (device == claim().lock_device || device == claim().data_device); }
