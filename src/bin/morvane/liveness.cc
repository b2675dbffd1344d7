// Living processes: see liveness.h.
#include "morvane/liveness.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace morvane {
namespace {

constexpr std::int64_t kLockBase = std::int64_t{1} << 32;
constexpr std::size_t kNameLimit = 64;

enum class Lock { held, free, unknown };

Lock lock_of(int config, std::uint32_t process) {
    if (config < 0) return Lock::unknown;
    struct flock lock {};
    lock.l_type = F_WRLCK;  // what would keep a writer away is the claim of a living process
    lock.l_whence = SEEK_SET;
    lock.l_start = kLockBase + process;
    lock.l_len = 1;
    if (::fcntl(config, F_OFD_GETLK, &lock) != 0) return Lock::unknown;
    return lock.l_type == F_UNLCK ? Lock::free : Lock::held;
}

// The name of a process that is there; empty when there is none.
std::string process_name(std::uint32_t process) {
    const os_Fd file = os_open_if_there("/proc/" + std::to_string(process) + "/comm", O_RDONLY);
    std::string name(kNameLimit, '\0');
    if (!file) return {};
    const ssize_t got = ::read(file.get(), name.data(), name.size());  // ESRCH: it ended just now
    name.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    if (name.ends_with('\n')) name.pop_back();
    return name;
}

}  // namespace

Liveness::Liveness() : config_(os_open_if_there("~/sys/config", O_RDONLY)) {}

// A free lock beside a gateway of that number is one that could not take its lock; any other process of the number has
// only inherited it.
bool Liveness::probe(std::uint32_t process) const {
    switch (lock_of(config_.get(), process)) {
        case Lock::held: return true;
        case Lock::free: return process_name(process) == "unix.in";
        case Lock::unknown: return ::access(("/proc/" + std::to_string(process)).c_str(), F_OK) == 0;
    }
    return true;
}

bool Liveness::lives(std::uint32_t process) {
    const auto [known, added] = known_.try_emplace(process, true);
    if (added) known->second = probe(process);
    return known->second;
}

}  // namespace morvane
