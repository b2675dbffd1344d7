// Making items durable: see im_SyncItems in im.h.
//
// A disk takes about as long for one wait as for many that overlap, and each file waited for by itself costs a flush of
// its own. There are two ways to have one wait for a message's files. syncfs(2) is the quicker one (350 us a message of
// five files on a quiet disk), but it waits for the data of every process. Handing the kernel all files at once
// (io_uring) and then asking for all answers takes 350 to 600 us whoever else writes, where syncfs took 1,300 and more.
// So we look how much data waits to be written, which costs two microseconds, and choose. Asynchronous requests of the
// older kind (io_submit) are as quick, but hold up the end of the process for 20 ms.
#include <fcntl.h>
#include <liburing.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "er/er.h"
#include "im/im.h"

namespace {

constexpr long kQuietKib = 1024;  // of data that waits to be written, or is being
constexpr unsigned kAtOnce = 64;  // files and folders; a message of more is as well off with syncfs

// The kernel's queue of requests; made with the first message, good for the process.
class SyncRing {
public:
    SyncRing() : process_(::getpid()), usable_(::io_uring_queue_init(kAtOnce, &ring_, 0) == 0) {}
    ~SyncRing() { give_up(); }
    SyncRing(const SyncRing&) = delete;
    SyncRing& operator=(const SyncRing&) = delete;

    // Syncs all descriptors. False when the kernel does not offer this: nothing has happened then.
    bool sync(std::span<const int> files);

private:
    int await(unsigned count);
    void give_up();

    io_uring ring_{};
    pid_t process_;  // a forked child must not use its parent's
    bool usable_;
};

bool SyncRing::sync(std::span<const int> files) {
    if (!usable_ || files.size() > kAtOnce || process_ != ::getpid()) return false;
    for (const int file : files) ::io_uring_prep_fsync(::io_uring_get_sqe(&ring_), file, 0);
    const int submitted = ::io_uring_submit_and_wait(&ring_, static_cast<unsigned>(files.size()));
    const int failure = submitted > 0 ? await(static_cast<unsigned>(submitted)) : 0;
    const bool all = submitted == static_cast<int>(files.size());
    if (!all) give_up();
    if (failure != 0) er_SystemEscape(failure, "fsync");
    return all;
}

// Fetches every answer, because one that is left would count for the next message; the last failure, or 0.
int SyncRing::await(unsigned count) {
    int failure = 0;
    while (count > 0) {
        io_uring_cqe* answer = nullptr;
        const int result = ::io_uring_wait_cqe(&ring_, &answer);
        if (result == -EINTR) continue;
        if (result < 0) {
            give_up();
            return -result;
        }
        if (answer->res < 0) failure = -answer->res;
        ::io_uring_cqe_seen(&ring_, answer);
        --count;
    }
    return failure;
}

// What the ring did not take, or has not answered, must not come back with a later message.
void SyncRing::give_up() {
    if (std::exchange(usable_, false)) ::io_uring_queue_exit(&ring_);
}

// The items' files and the folders that they stand in, each once.
class OpenFiles {
public:
    explicit OpenFiles(std::span<const ITEM_REF> items) {
        std::vector<std::string> folders;
        for (const ITEM_REF& item : items) {
            const std::string path = im_ItemRef2FName(item);
            files_.push_back(os_open(path, O_RDONLY));
            std::string folder = path.substr(0, path.rfind('/'));
            if (std::find(folders.begin(), folders.end(), folder) == folders.end())
                folders.push_back(std::move(folder));
        }
        for (const std::string& folder : folders) files_.push_back(os_open(folder, O_RDONLY | O_DIRECTORY));
    }
    std::vector<int> descriptors() const {
        std::vector<int> all;
        for (const os_Fd& file : files_) all.push_back(file.get());
        return all;
    }

private:
    std::vector<os_Fd> files_;
};

// The number behind a word of /proc/meminfo, in KiB; the largest when it is not there.
long amount(std::string_view text, std::string_view word) {
    long kib = std::numeric_limits<long>::max();
    const std::size_t at = text.find(word);
    if (at == std::string_view::npos) return kib;
    text.remove_prefix(at + word.size());
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    std::from_chars(text.data(), text.data() + text.size(), kib);
    return kib;
}

// Does so little data wait to be written, ours included, that all of it costs less than files waited for one by one?
bool is_quiet() {
    static const os_Fd file(::open("/proc/meminfo", O_RDONLY | O_CLOEXEC));
    std::array<char, 1024> text;  // what we look for stands near the beginning
    const ssize_t got = file ? ::pread(file.get(), text.data(), text.size(), 0) : 0;
    const std::string_view facts(text.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return amount(facts, "\nDirty:") <= kQuietKib && amount(facts, "\nWriteback:") <= kQuietKib;
}

// Everything on the file systems that have our items, and the others that lie elsewhere.
void sync_whole(std::span<const int> others) {
    im_sync_file_systems();
    for (const int file : others) {
        struct stat found;
        if (::fstat(file, &found) != 0 || !im_syncs_device(found.st_dev)) os_fsync(file);
    }
}

}  // namespace

void im_SyncItems(std::span<const ITEM_REF> items, std::span<const int> others, im_SyncBy way) {
    if (way == im_SyncBy::choose) way = is_quiet() ? im_SyncBy::file_systems : im_SyncBy::files;
    const std::size_t most = 2 * items.size() + others.size();  // no item needs more than a folder of its own
    if (way == im_SyncBy::file_systems || most > kAtOnce) return sync_whole(others);
    const OpenFiles files(items);
    std::vector<int> all = files.descriptors();
    all.insert(all.end(), others.begin(), others.end());
    static SyncRing ring;
    if (!ring.sync(all)) sync_whole(others);
}
