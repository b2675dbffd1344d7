// Operating-system services: see os.h.
#include "os/os.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <limits>
#include <memory>

#include <climits>

#include "er/er.h"

namespace {

std::string& home() {
    static std::string the_home;
    return the_home;
}

// After a read or write that moved nothing: returns when it is worth trying again, raises when it is not.
void await_again(int fd, short event, int error, const char* what) {
    if (error == EAGAIN) {
        pollfd ready{fd, event, 0};
        ::poll(&ready, 1, -1);
    } else if (error != EINTR) {
        er_SystemEscape(error, what);
    }
}

// Makes a folder, or finds it made; else false and errno.
bool made_folder(const std::string& path, mode_t mode) {
    if (::mkdir(path.c_str(), mode) == 0) return true;
    if (errno != EEXIST) return false;
    struct stat info {};
    if (::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) return true;
    errno = EEXIST;
    return false;
}

}  // namespace

os_Fd& os_Fd::operator=(os_Fd&& other) noexcept {
    if (this != &other) {
        reset();
        fd_ = other.release();
    }
    return *this;
}

int os_Fd::release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
}

void os_Fd::reset() {
    if (fd_ >= 0) ::close(release());
}

void os_Fd::close_checked() {
    if (fd_ < 0) return;
    if (::close(release()) != 0 && errno != EINTR) er_SystemEscape(errno, "close");
}

void os_SetHome(std::string path) {
    while (path.size() > 1 && path.ends_with('/')) path.pop_back();
    home() = std::move(path);
}

const std::string& os_Home() { return home(); }

std::string os_HomePath(std::string_view path) {
    if (path != "~" && !path.starts_with("~/")) return std::string(path);
    std::string out;
    out.reserve(home().size() + path.size());
    out = home();
    return out.append(path.substr(1));
}

os_Fd os_open_if_there(std::string_view path, int flags, mode_t mode) {
    const std::string name = os_HomePath(path);
    int fd = -1;
    do {
        fd = ::open(name.c_str(), flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0 && errno != ENOENT) er_SystemEscape(errno, name);
    return os_Fd(fd);
}

os_Fd os_open(std::string_view path, int flags, mode_t mode) {
    os_Fd fd = os_open_if_there(path, flags, mode);
    if (!fd) er_SystemEscape(ENOENT, os_HomePath(path));
    return fd;
}

os_Fd os_open_unnamed(std::string_view folder) {
    std::string name = os_HomePath(folder);
    int fd = -1;
    do {
        fd = ::open(name.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0 && (errno == EOPNOTSUPP || errno == EISDIR)) {  // a network file system, an old kernel
        name += "/unnamed-XXXXXX";
        fd = ::mkostemp(name.data(), O_CLOEXEC);
        if (fd >= 0) ::unlink(name.c_str());
    }
    if (fd < 0) er_SystemEscape(errno, name);
    return os_Fd(fd);
}

bool os_fexists(std::string_view path) {
    struct stat info {};  // not access(2), which asks for the real user: it may not be allowed into the home
    return ::stat(os_HomePath(path).c_str(), &info) == 0;
}

std::uint64_t os_fsize(int fd) {
    struct stat info {};
    if (::fstat(fd, &info) != 0) er_SystemEscape(errno, "fstat");
    return static_cast<std::uint64_t>(info.st_size);
}

void os_write_all(int fd, std::string_view data) {
    while (!data.empty()) {
        const ssize_t written = ::write(fd, data.data(), data.size());
        if (written > 0)
            data.remove_prefix(static_cast<std::size_t>(written));
        else
            await_again(fd, POLLOUT, written == 0 ? EIO : errno, "write");
    }
}

void os_pwrite_all(int fd, std::string_view data, std::uint64_t at) {
    while (!data.empty()) {
        const ssize_t written = ::pwrite(fd, data.data(), data.size(), static_cast<off_t>(at));
        if (written <= 0) {
            await_again(fd, POLLOUT, written == 0 ? EIO : errno, "pwrite");
            continue;
        }
        data.remove_prefix(static_cast<std::size_t>(written));
        at += static_cast<std::uint64_t>(written);
    }
}

std::size_t os_read(int fd, char* data, std::size_t room) {
    for (;;) {
        const ssize_t got = ::read(fd, data, room);
        if (got >= 0) return static_cast<std::size_t>(got);
        await_again(fd, POLLIN, errno, "read");
    }
}

std::size_t os_pread(int fd, char* data, std::size_t room, std::uint64_t at) {
    std::size_t have = 0;
    while (have < room) {
        const ssize_t got = ::pread(fd, data + have, room - have, static_cast<off_t>(at + have));
        if (got == 0) break;
        if (got < 0) {
            await_again(fd, POLLIN, errno, "pread");
            continue;
        }
        have += static_cast<std::size_t>(got);
    }
    return have;
}

std::string os_read_rest(int fd, std::size_t limit, const std::string& name) {
    std::string content;
    std::array<char, 16384> block;
    for (;;) {
        const std::size_t got = os_read(fd, block.data(), block.size());
        if (got == 0) return content;
        if (content.size() + got > limit) er_SystemEscape(EFBIG, name);
        content.append(block.data(), got);
    }
}

std::string os_read_file(std::string_view path, std::size_t limit) {
    const os_Fd fd = os_open(path, O_RDONLY);
    return os_read_rest(fd.get(), limit, os_HomePath(path));
}

void os_fsync(int fd) {
    if (::fsync(fd) != 0) er_SystemEscape(errno, "fsync");
}

void os_unlink(std::string_view path) {
    const std::string name = os_HomePath(path);
    if (::unlink(name.c_str()) != 0 && errno != ENOENT) er_SystemEscape(errno, name);
}

void os_rename(std::string_view from, std::string_view to) {
    const std::string old_name = os_HomePath(from);
    if (::rename(old_name.c_str(), os_HomePath(to).c_str()) != 0) er_SystemEscape(errno, old_name);
}

void os_mkdirs(std::string_view path, mode_t mode) {
    const std::string name = os_HomePath(path);
    if (made_folder(name, mode)) return;  // its parents are there, as a rule
    for (std::size_t slash = name.find('/', 1);; slash = name.find('/', slash + 1)) {
        const std::string part = name.substr(0, slash);
        if (!made_folder(part, mode)) er_SystemEscape(errno, part);
        if (slash == std::string::npos) return;
    }
}

std::string os_gethostname(std::size_t limit) {
    std::array<char, HOST_NAME_MAX + 2> name{};
    if (::gethostname(name.data(), name.size() - 1) != 0 || name[0] == '\0') return "localhost";
    return std::string(name.data()).substr(0, limit - 1);
}

std::optional<std::string> mdc_gethostbyname(const std::string& name) {
    addrinfo hints{};
    hints.ai_flags = AI_CANONNAME;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (::getaddrinfo(name.c_str(), nullptr, &hints, &found) != 0) return std::nullopt;
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, ::freeaddrinfo);
    if (found == nullptr || found->ai_canonname == nullptr || *found->ai_canonname == '\0') return std::nullopt;
    return std::string(found->ai_canonname);
}

const std::string& os_canonical_host_name() {
    static const std::string name = [] {
        std::string own = os_gethostname(257);
        return mdc_gethostbyname(own).value_or(own).substr(0, 256);
    }();
    return name;
}

os_Moment os_Date() {
    const std::time_t now = std::time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    return {now, static_cast<std::int16_t>(local.tm_gmtoff / 60)};
}

std::int64_t os_now_nanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

std::string os_timestamp(std::int64_t nanoseconds, int digits) {
    std::time_t seconds = nanoseconds / 1'000'000'000;
    std::int64_t rest = nanoseconds % 1'000'000'000;
    if (rest < 0) {
        rest += 1'000'000'000;
        --seconds;
    }
    tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 32> text{};
    std::string out(text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts));
    if (digits > 0) {
        std::string fraction = std::to_string(rest);
        fraction.insert(0, 9 - fraction.size(), '0');
        out += '.' + fraction.substr(0, static_cast<std::size_t>(digits));
    }
    return out + 'Z';
}

std::int32_t os_StringToInt(std::string_view text, std::size_t limit) {
    text = text.substr(0, limit);
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    bool negative = false;
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    constexpr std::int64_t largest = std::numeric_limits<std::int32_t>::max();
    std::int64_t value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') break;
        value = value * 10 + (c - '0');
        if (value > largest) {
            value = negative ? largest + 1 : largest;
            break;
        }
    }
    return static_cast<std::int32_t>(negative ? -value : value);
}
