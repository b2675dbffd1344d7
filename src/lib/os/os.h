// Operating-system services: descriptors that close themselves, paths below the home of the mail system,
// host name, clock, numbers. Every failure is an escape of the system group (reason = errno) unless said
// otherwise.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Owns a file descriptor.
class os_Fd {
public:
    os_Fd() = default;
    explicit os_Fd(int fd) : fd_(fd) {}
    os_Fd(os_Fd&& other) noexcept : fd_(other.release()) {}
    os_Fd& operator=(os_Fd&& other) noexcept;
    ~os_Fd() { reset(); }
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release();
    void reset();          // closes; a failing close is ignored
    void close_checked();  // closes; raises when the system reports a failed write (EIO, ENOSPC, EDQUOT)

private:
    int fd_ = -1;
};

// The home of the chosen mail system. "~" is it, "~/sys/config" below it; other paths stay as they are.
void os_SetHome(std::string home);
const std::string& os_Home();
std::string os_HomePath(std::string_view path);

// Opens with O_CLOEXEC; raises when it cannot. `path` may begin with "~/".
os_Fd os_open(std::string_view path, int flags, mode_t mode = 0600);
// The same, but a file that does not exist gives an empty handle.
os_Fd os_open_if_there(std::string_view path, int flags, mode_t mode = 0600);
// A new file without a name in a folder, open for reading and writing: it is gone with its last descriptor. Where the
// file system knows no such files it has one for a moment. Raises when it cannot be made.
os_Fd os_open_unnamed(std::string_view folder);
bool os_fexists(std::string_view path);  // as the effective user sees it
std::uint64_t os_fsize(int fd);

// Reading and writing: signals that interrupt are retried, and a descriptor that its other holder made non-blocking is
// waited for. Short writes go on; any failure raises.
void os_write_all(int fd, std::string_view data);
void os_pwrite_all(int fd, std::string_view data, std::uint64_t at);
std::size_t os_read(int fd, char* data, std::size_t room);                     // 0 at the end
std::size_t os_pread(int fd, char* data, std::size_t room, std::uint64_t at);  // fills `room` unless the file ends
std::string os_read_file(std::string_view path, std::size_t limit);            // EFBIG above `limit`
// The same for a descriptor, from where it stands; `name` is for the log.
std::string os_read_rest(int fd, std::size_t limit, const std::string& name);
void os_fsync(int fd);
void os_unlink(std::string_view path);  // a missing file is no failure
void os_rename(std::string_view from, std::string_view to);
void os_mkdirs(std::string_view path, mode_t mode);  // folders that exist stay as they are

// The host's name as the system has it, at most `limit` - 1 characters. Never raises: "localhost" if all fails.
std::string os_gethostname(std::size_t limit);
// The official name of host `name` after the resolver; nothing when it has no entry.
std::optional<std::string> mdc_gethostbyname(const std::string& name);
// The canonical name of this host: os_gethostname, then what the resolver makes of it. Looked up once a process,
// at most 256 characters.
const std::string& os_canonical_host_name();

// Now: seconds since 1970-01-01 GMT, and the local zone in minutes east of GMT.
struct os_Moment {
    std::int64_t seconds;
    std::int16_t zone;
};
os_Moment os_Date();
std::int64_t os_now_nanoseconds();  // wall clock
// "2026-11-20T21:22:33.123456Z" for a wall-clock time in nanoseconds; without fraction for `digits` 0.
std::string os_timestamp(std::int64_t nanoseconds, int digits = 6);

// A decimal integer at the start of `text` (blanks before it are skipped, a sign is understood) from at most
// `limit` characters. No number is 0; too large a one is the largest there is (too small: the smallest).
std::int32_t os_StringToInt(std::string_view text, std::size_t limit);
