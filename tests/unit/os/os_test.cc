// Operating-system services: descriptors, paths, files, clock, numbers.
#include "os/os.h"

#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <limits>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/child.h"
#include "support/home.h"

namespace {

// The reason of the system escape that `work` raises; 0 when it raises none.
int reason_of(const std::function<void()>& work) {
    try {
        work();
    } catch (const er_Escape& escape) {
        EXPECT_EQ(escape.group(), kSystemGroup);
        return escape.reason();
    }
    return 0;
}

bool is_open(int fd) { return ::fcntl(fd, F_GETFD) != -1; }

TEST(OsFd, ClosesWhatItOwns) {
    int number = -1;
    {
        const os_Fd fd = os_open("/dev/null", O_RDONLY);
        number = fd.get();
        EXPECT_TRUE(fd);
        EXPECT_TRUE(is_open(number));
    }
    EXPECT_FALSE(is_open(number));
    EXPECT_FALSE(os_Fd());
}

TEST(OsFd, MovesAndReleases) {
    os_Fd first = os_open("/dev/null", O_RDONLY);
    const int number = first.get();
    os_Fd second(std::move(first));
    EXPECT_EQ(second.get(), number);
    os_Fd third = os_open("/dev/null", O_RDONLY);
    const int replaced = third.get();
    third = std::move(second);
    EXPECT_FALSE(is_open(replaced)) << "assignment closes what was held";
    EXPECT_EQ(third.get(), number);
    os_Fd& same = third;
    third = std::move(same);
    EXPECT_EQ(third.get(), number) << "assigned to itself";
    EXPECT_EQ(third.release(), number);
    EXPECT_FALSE(third);
    EXPECT_TRUE(is_open(number));
    ::close(number);
}

TEST(OsFd, CheckedCloseRaisesOnAFailure) {
    os_Fd fd = os_open("/dev/null", O_RDONLY);
    fd.close_checked();
    EXPECT_FALSE(fd);
    fd.close_checked();  // nothing to close
    os_Fd stale(1 << 20);
    EXPECT_EQ(reason_of([&] { stale.close_checked(); }), EBADF);
    EXPECT_FALSE(stale);
}

TEST(OsPaths, BelowTheHome) {
    os_SetHome("/srv/mail/");
    EXPECT_EQ(os_Home(), "/srv/mail");
    EXPECT_EQ(os_HomePath("~/sys/config"), "/srv/mail/sys/config");
    EXPECT_EQ(os_HomePath("~"), "/srv/mail");
    EXPECT_EQ(os_HomePath("~user/x"), "~user/x") << "nobody else's home";
    EXPECT_EQ(os_HomePath("/etc/~/x"), "/etc/~/x");
    EXPECT_EQ(os_HomePath(""), "");
    os_SetHome("/");
    EXPECT_EQ(os_Home(), "/");
}

TEST(OsFiles, OpeningRaisesWithTheErrnoValueAndThePath) {
    const TestHome home;
    try {
        os_open("~/sys/none", O_RDONLY);
        ADD_FAILURE();
    } catch (const er_Escape& escape) {
        EXPECT_EQ(escape.reason(), ENOENT);
        EXPECT_EQ(escape.detail(), home.file("sys/none"));
    }
    EXPECT_FALSE(os_open_if_there("~/sys/none", O_RDONLY));
    EXPECT_TRUE(os_open_if_there("~/sys/config", O_RDONLY));
    EXPECT_EQ(reason_of([] { os_open_if_there("~/sys/config/x", O_RDONLY); }), ENOTDIR) << "not the same as not there";
}

TEST(OsFiles, DescriptorsAreNotInheritedByPrograms) {
    const TestHome home;
    const os_Fd fd = os_open("~/sys/config", O_RDONLY);
    EXPECT_NE(::fcntl(fd.get(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST(OsFiles, CreationNamesItsMode) {
    const TestHome home;
    const mode_t before = ::umask(0);
    os_open("~/tmp/a", O_WRONLY | O_CREAT);
    os_open("~/tmp/b", O_WRONLY | O_CREAT, 0640);
    ::umask(before);
    struct stat info {};
    ASSERT_EQ(::stat(home.file("tmp/a").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600U);
    ASSERT_EQ(::stat(home.file("tmp/b").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640U);
}

TEST(OsFiles, AFileWithoutANameIsInNoFolder) {
    const TestHome home;
    const os_Fd fd = os_open_unnamed("~/tmp");
    os_write_all(fd.get(), "kept");
    EXPECT_EQ(os_fsize(fd.get()), 4U);
    EXPECT_TRUE(home.files("tmp").empty());
    std::filesystem::remove(home.file("tmp"));
    EXPECT_THROW(os_open_unnamed("~/tmp"), er_Escape);
}

TEST(OsFiles, Existence) {
    const TestHome home;
    EXPECT_TRUE(os_fexists("~/sys/config"));
    EXPECT_TRUE(os_fexists("~/sys"));
    EXPECT_FALSE(os_fexists("~/sys/none"));
    EXPECT_FALSE(os_fexists(""));
}

// A gateway that was started by a mail transfer agent's user and became the owner of the home must see the home.
TEST(OsFiles, ExistenceIsTheEffectiveUsersQuestion) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to have two identities";
    const TestHome home;
    ::chmod(home.path().c_str(), 0700);
    EXPECT_EQ(::chown(home.path().c_str(), 65534, 65534), 0);
    EXPECT_EQ(run_in_child([] {
                  if (::setresuid(12345, 65534, 65534) != 0) return 2;
                  return os_fexists("~/sys") ? 0 : 1;
              }),
              0);
}

TEST(OsFiles, WholeFilesAreReadUpToTheLimit) {
    const TestHome home;
    home.write("tmp/f", std::string(40'000, 'x'));
    EXPECT_EQ(os_read_file("~/tmp/f", 40'000).size(), 40'000U);
    EXPECT_EQ(reason_of([] { os_read_file("~/tmp/f", 39'999); }), EFBIG);
    EXPECT_EQ(reason_of([] { os_read_file("~/tmp/none", 10); }), ENOENT);
    EXPECT_EQ(reason_of([] { os_read_file("~/tmp", 10); }), EISDIR);
    home.write("tmp/empty", "");
    EXPECT_EQ(os_read_file("~/tmp/empty", 0), "");
}

TEST(OsFiles, ReadingAtAPlaceFillsTheRoomUnlessTheFileEnds) {
    const TestHome home;
    home.write("tmp/f", "0123456789");
    const os_Fd fd = os_open("~/tmp/f", O_RDWR);
    char data[8] = {};
    EXPECT_EQ(os_pread(fd.get(), data, 4, 3), 4U);
    EXPECT_EQ(std::string(data, 4), "3456");
    EXPECT_EQ(os_pread(fd.get(), data, 8, 7), 3U);
    EXPECT_EQ(os_pread(fd.get(), data, 8, 10), 0U);
    EXPECT_EQ(os_pread(fd.get(), data, 8, 1000), 0U);
    EXPECT_EQ(os_fsize(fd.get()), 10U);
    os_pwrite_all(fd.get(), "AB", 9);
    EXPECT_EQ(home.read("tmp/f"), "012345678AB");
    EXPECT_EQ(os_read_rest(fd.get(), 100, "f"), "012345678AB");
}

TEST(OsFiles, AFullDiskRaises) {
    const TestHome home;
    EXPECT_EQ(reason_of([] { os_write_all(os_open("/dev/full", O_WRONLY).get(), "x"); }), ENOSPC);
    EXPECT_EQ(run_in_child([] {
                  limit_file_size(4);
                  const os_Fd fd = os_open("~/tmp/f", O_RDWR | O_CREAT);
                  return reason_of([&] { os_write_all(fd.get(), "12345"); });
              }),
              EFBIG);
    EXPECT_EQ(home.read("tmp/f"), "1234");
    EXPECT_EQ(reason_of([] { os_write_all(os_open("/dev/null", O_RDONLY).get(), "x"); }), EBADF);
}

// The other end of a socket decides whether it blocks; a reply must not be lost to that.
TEST(OsFiles, ANonBlockingDescriptorIsWaitedFor) {
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
    const os_Fd ours(ends[0]);
    os_Fd theirs(ends[1]);
    const std::string much(4'000'000, 'x');
    std::size_t got = 0;
    std::thread reader([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        char data[65536];
        while (const std::size_t part = os_read(theirs.get(), data, sizeof data)) got += part;
    });
    os_write_all(ours.get(), much);
    ::shutdown(ours.get(), SHUT_WR);
    reader.join();
    EXPECT_EQ(got, much.size());
}

TEST(OsFiles, AReaderThatHasGoneIsAFailedWrite) {
    std::signal(SIGPIPE, SIG_IGN);
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ::close(ends[0]);
    const os_Fd out(ends[1]);
    EXPECT_EQ(reason_of([&] { os_write_all(out.get(), "250 OK\n"); }), EPIPE);
}

TEST(OsFiles, UnlinkingAndRenaming) {
    const TestHome home;
    home.write("tmp/a", "1");
    os_rename("~/tmp/a", "~/tmp/b");
    EXPECT_FALSE(home.exists("tmp/a"));
    os_unlink("~/tmp/b");
    EXPECT_FALSE(home.exists("tmp/b"));
    os_unlink("~/tmp/b");
    EXPECT_EQ(reason_of([] { os_rename("~/tmp/b", "~/tmp/c"); }), ENOENT);
    EXPECT_NE(reason_of([] { os_unlink("~/tmp"); }), 0) << "a folder";
}

TEST(OsFiles, FoldersAreMadeDown) {
    const TestHome home;
    os_mkdirs("~/a/b/c", 0700);
    os_mkdirs("~/a/b/c", 0700);
    os_mkdirs("~/a/b/d/", 0700);
    EXPECT_TRUE(home.exists("a/b/c"));
    EXPECT_TRUE(home.exists("a/b/d"));
    home.write("a/file", "");
    EXPECT_EQ(reason_of([] { os_mkdirs("~/a/file", 0700); }), EEXIST) << "it is no folder";
    EXPECT_NE(reason_of([] { os_mkdirs("~/a/file/b", 0700); }), 0);
}

TEST(OsHost, NamesAreCutAtTheLimit) {
    const std::string whole = os_gethostname(257);
    EXPECT_FALSE(whole.empty());
    EXPECT_EQ(os_gethostname(64), whole.substr(0, 63));
    EXPECT_EQ(os_gethostname(3), whole.substr(0, 2));
    EXPECT_EQ(os_gethostname(1), "");
    EXPECT_FALSE(os_canonical_host_name().empty());
    EXPECT_LE(os_canonical_host_name().size(), 256U);
    EXPECT_EQ(&os_canonical_host_name(), &os_canonical_host_name()) << "looked up once";
}

TEST(OsHost, AHostWithoutAnEntryIsNotFound) {
    EXPECT_EQ(mdc_gethostbyname(""), std::nullopt);
    EXPECT_EQ(mdc_gethostbyname("no host has blanks"), std::nullopt);
    EXPECT_TRUE(mdc_gethostbyname("localhost").has_value());
}

TEST(OsClock, TheZoneIsInMinutesEast) {
    const char* const before = std::getenv("TZ");
    const std::string saved = before == nullptr ? "" : before;
    ::setenv("TZ", "XYZ-05:30", 1);
    ::tzset();
    EXPECT_EQ(os_Date().zone, 330);
    ::setenv("TZ", "XYZ+03:30", 1);
    ::tzset();
    EXPECT_EQ(os_Date().zone, -210);
    before == nullptr ? ::unsetenv("TZ") : ::setenv("TZ", saved.c_str(), 1);
    ::tzset();
    EXPECT_NEAR(static_cast<double>(os_Date().seconds), static_cast<double>(std::time(nullptr)), 2);
    EXPECT_NEAR(static_cast<double>(os_now_nanoseconds() / 1'000'000'000), static_cast<double>(os_Date().seconds), 2);
}

struct TimestampRow {
    std::int64_t nanoseconds;
    int digits;
    const char* expected;
    const char* why;
};
constexpr TimestampRow kTimestampRows[] = {
    {0, 6, "1970-01-01T00:00:00.000000Z", "the epoch"},
    {1'795'209'753'123'456'789, 6, "2026-11-20T21:22:33.123456Z", "cut, not rounded"},
    {1'795'209'753'123'456'789, 0, "2026-11-20T21:22:33Z", "no fraction"},
    {1'795'209'753'123'456'789, 9, "2026-11-20T21:22:33.123456789Z", "all of it"},
    {1'795'209'753'000'000'042, 9, "2026-11-20T21:22:33.000000042Z", "leading zeros of the fraction"},
    {999'999'999, 3, "1970-01-01T00:00:00.999Z", "never the next second"},
    {-1, 9, "1969-12-31T23:59:59.999999999Z", "before the epoch"},
    {-1'000'000'000, 6, "1969-12-31T23:59:59.000000Z", "before it, on the second"},
};

TEST(OsClock, Timestamps) {
    for (const TimestampRow& row : kTimestampRows)
        EXPECT_EQ(os_timestamp(row.nanoseconds, row.digits), row.expected) << row.why;
}

struct IntRow {
    std::string_view text;
    std::size_t limit;
    std::int32_t expected;
    const char* why;
};
constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
using namespace std::string_view_literals;
constexpr IntRow kIntRows[] = {
    {"42", 10, 42, "a number"},
    {"", 10, 0, "nothing"},
    {"x", 10, 0, "no number"},
    {"42abc", 10, 42, "a number and more"},
    {"  \t42", 10, 42, "blanks before it"},
    {"\n42", 10, 0, "a line end is no blank"},
    {"-42", 10, -42, "a sign"},
    {"+42", 10, 42, "the other sign"},
    {"- 42", 10, 0, "a sign alone"},
    {"--42", 10, 0, "two signs"},
    {"-", 10, 0, "a sign at the end"},
    {"4 2", 10, 4, "it ends at the blank"},
    {"12345", 3, 123, "cut at the limit"},
    {"  123", 3, 1, "blanks count"},
    {"123", 0, 0, "no characters"},
    {"0x10", 10, 0, "decimal only"},
    {"007", 10, 7, "leading zeros"},
    {"1\0002"sv, 10, 1, "a NUL ends it"},
    {"\xB2\xB3", 10, 0, "8-bit text"},
    {"2147483647", 20, kMost, "the largest"},
    {"2147483648", 20, kMost, "one more"},
    {"-2147483648", 20, kLeast, "the smallest"},
    {"-2147483649", 20, kLeast, "one less"},
    {"9999999999999999999999999999999999999", 64, kMost, "beyond 64 bits"},
    {"-9999999999999999999999999999999999999", 64, kLeast, "beyond 64 bits below"},
    {"18446744073709551617", 64, kMost, "what would wrap around to 1"},
    {"4294967297", 64, kMost, "what would wrap around in 32 bits"},
    {"00000000000000000000000000000000000000000000000000000000000005", 99, 5, "zeros do not fill it"},
};

TEST(OsStringToInt, Rows) {
    for (const IntRow& row : kIntRows) EXPECT_EQ(os_StringToInt(row.text, row.limit), row.expected) << row.why;
    EXPECT_EQ(os_StringToInt(std::string(10'000'000, '9'), std::string::npos), kMost) << "a long one";
}

}  // namespace
