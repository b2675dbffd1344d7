// Running a converter: see child.h.
//
// The child's output comes through a pipe, so that the item that receives it can stay in memory while it is small and a
// full disk is noticed here. A program that has closed its output may still run, and one that has ended may have left
// another holding its pipes: both are waited for with the same time limit.
#include "cvr/child.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>

#include "im/im.h"
#include "os/os.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t kBlock = std::size_t{64} << 10;
constexpr std::size_t kErrorTextLimit = 1024;
constexpr std::size_t kVariableLimit = std::size_t{32} << 10;  // bytes of one environment variable
constexpr milliseconds kTick{50};                              // how often a silent child is looked at
constexpr const char* kPath = "PATH=/usr/local/bin:/usr/bin:/bin";
constexpr const char* kLanguage = "LANG=C.UTF-8";

// Somebody may have started this process with SIGCHLD ignored; then children would vanish with their status.
class ChildSignal {
public:
    ChildSignal() {
        struct sigaction normal {};
        normal.sa_handler = SIG_DFL;
        sigaction(SIGCHLD, &normal, &before_);
    }
    ~ChildSignal() { sigaction(SIGCHLD, &before_, nullptr); }
    ChildSignal(const ChildSignal&) = delete;
    ChildSignal& operator=(const ChildSignal&) = delete;

private:
    struct sigaction before_ {};
};

// The descriptor, or a copy of it, with a number that no standard stream of the child has.
os_Fd above_standard(os_Fd fd) {
    if (fd.get() < 0 || fd.get() > 2) return fd;
    return os_Fd(::fcntl(fd.get(), F_DUPFD_CLOEXEC, 3));
}

struct Pipe {
    os_Fd read, write;
};

// Both ends close on exec; the reading end does not block. False: no descriptors left.
bool make_pipe(Pipe& pipe) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) return false;
    pipe.read = os_Fd(ends[0]);
    pipe.write = above_standard(os_Fd(ends[1]));
    return pipe.write && ::fcntl(ends[0], F_SETFL, O_NONBLOCK) == 0;
}

class SpawnActions {
public:
    SpawnActions(int in, int out, int error) {
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_adddup2(&actions_, in, 0);
        posix_spawn_file_actions_adddup2(&actions_, out, 1);
        posix_spawn_file_actions_adddup2(&actions_, error, 2);
        posix_spawn_file_actions_addclosefrom_np(&actions_, 3);
    }
    ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
};

class SpawnAttributes {
public:
    SpawnAttributes() {
        sigset_t all, none;
        sigfillset(&all);
        sigemptyset(&none);
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setpgroup(&attributes_, 0);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
    }
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    const posix_spawnattr_t* get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_{};
};

// "NAME=value" without the bytes that an environment cannot hold.
std::string variable(const std::pair<std::string, std::string>& entry) {
    std::string text = entry.first + '=' + entry.second.substr(0, kVariableLimit);
    text.erase(std::remove(text.begin(), text.end(), '\0'), text.end());
    return text;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> all;
    all.reserve(texts.size() + 1);
    for (std::string& text : texts) all.push_back(text.data());
    all.push_back(nullptr);
    return all;
}

// The program's path: searched in kPath, for the gateway's own PATH comes from whoever started it.
std::string program_path(const std::string& name) {
    if (name.find('/') != std::string::npos) return name;
    for (const char* folder : {"/usr/local/bin/", "/usr/bin/", "/bin/"})
        if (std::string path = folder + name; ::access(path.c_str(), X_OK) == 0) return path;
    return name;
}

// The running program and its group. Whatever happens, nothing of it is left when this object goes.
class Child {
public:
    Child() = default;
    ~Child() { end(); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // Returns 0 or errno.
    int start(const ChildCommand& command, int in, int out, int error) {
        std::vector<std::string> arguments(command.command.begin(), command.command.end());
        std::vector<std::string> environment{kPath, kLanguage};
        for (const auto& entry : command.environment) environment.push_back(variable(entry));
        const SpawnActions actions(in, out, error);
        const SpawnAttributes attributes;
        const std::string path = program_path(arguments.front());
        const int result = posix_spawn(&pid_, path.c_str(), actions.get(), attributes.get(), pointers(arguments).data(),
                                       pointers(environment).data());
        if (result != 0) pid_ = -1;
        return result;
    }

    // Has it ended? It is not reaped yet: its number stays its own while its group is killed.
    bool has_ended() const {
        siginfo_t info{};
        return ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid == pid_;
    }

    // Kills what is left of the group and reaps the program. Returns its wait status.
    int end() {
        if (pid_ <= 0) return status_;
        ::kill(-pid_, SIGKILL);
        while (::waitpid(pid_, &status_, 0) < 0 && errno == EINTR) {}
        pid_ = -1;
        return status_;
    }

private:
    pid_t pid_ = -1;
    int status_ = 0;
};

// The pipes from the child while they are open.
class Streams {
public:
    Streams(os_Fd out, os_Fd error, im_Item& item)
        : out_(std::move(out)),
          error_(std::move(error)),
          item_(item),
          block_(std::make_unique_for_overwrite<char[]>(kBlock)) {}

    bool open() const { return out_ || error_; }
    const std::string& error_text() const { return error_text_; }

    // Waits for output and takes what there is. False: nothing came.
    bool pump(milliseconds wait) {
        std::array<pollfd, 2> polled{pollfd{out_ ? out_.get() : -1, POLLIN, 0},
                                     pollfd{error_ ? error_.get() : -1, POLLIN, 0}};
        if (::poll(polled.data(), polled.size(), static_cast<int>(wait.count())) <= 0) return false;
        if (polled[0].revents != 0) take(out_, [this](std::string_view data) { item_.write(data); });
        if (polled[1].revents != 0)
            take(error_, [this](std::string_view data) {
                error_text_ += data.substr(0, kErrorTextLimit - error_text_.size());
            });
        return true;
    }

private:
    template <class Sink>
    void take(os_Fd& fd, Sink&& sink) {
        const ssize_t got = ::read(fd.get(), block_.get(), kBlock);
        if (got > 0) sink(std::string_view(block_.get(), static_cast<std::size_t>(got)));
        if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) fd.reset();
    }

    os_Fd out_, error_;
    im_Item& item_;
    std::unique_ptr<char[]> block_;
    std::string error_text_;
};

milliseconds left_until(Clock::time_point deadline) {
    return std::max(milliseconds(0), std::chrono::ceil<milliseconds>(deadline - Clock::now()));
}

void sleep_for(std::chrono::nanoseconds time) {
    const timespec span{0, time.count()};
    ::nanosleep(&span, nullptr);
}

// Takes output until the pipes close, or the program has ended and its pipes (which a process that it left behind may
// hold) are empty. False: the time is over.
bool drain(const Child& child, Streams& streams, Clock::time_point deadline) {
    while (streams.open()) {
        const milliseconds left = left_until(deadline);
        if (left == milliseconds(0)) return false;
        if (!streams.pump(std::min(left, kTick)) && child.has_ended() && !streams.pump(milliseconds(0))) return true;
    }
    return true;
}

// Waits for the end of a program that has closed its output: mostly that is now. False: the time is over.
bool wait_for_end(const Child& child, Clock::time_point deadline) {
    std::chrono::nanoseconds pause = std::chrono::microseconds(50);
    while (!child.has_ended()) {
        if (left_until(deadline) == milliseconds(0)) return false;
        sleep_for(pause);
        pause = std::min<std::chrono::nanoseconds>(pause * 2, kTick);
    }
    return true;
}

ChildResult not_run(int error, const std::string& what) {
    return {ChildResult::End::not_run, error, what + ": " + std::strerror(error)};
}

ChildResult result_of(int status, std::string text) {
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return {ChildResult::End::exited, 0, std::move(text)};
    const int reason = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    if (text.empty()) text = (WIFEXITED(status) ? "exit status " : "signal ") + std::to_string(reason & 127);
    return {ChildResult::End::failed, reason, std::move(text)};
}

}  // namespace

ChildResult run_child(const ChildCommand& command, im_Item& in, im_Item& out) {
    const Clock::time_point deadline = Clock::now() + command.timeout;
    const ChildSignal signal_guard;
    const os_Fd input = above_standard(os_open(in.path(), O_RDONLY));
    Pipe output, error;
    if (!make_pipe(output) || !make_pipe(error)) return not_run(errno, "pipe");
    Child child;
    if (const int failure = child.start(command, input.get(), output.write.get(), error.write.get()); failure != 0)
        return not_run(failure, command.command.front());
    output.write.reset();
    error.write.reset();
    Streams streams(std::move(output.read), std::move(error.read), out);
    if (!drain(child, streams, deadline) || !wait_for_end(child, deadline)) {
        child.end();
        return {ChildResult::End::failed, ETIMEDOUT, "the time limit is over"};
    }
    return result_of(child.end(), streams.error_text());
}
