// The mail transfer agent of the benchmarks. It starts a program with pipes on its standard input and output (or
// connects to a socket), says a dialogue to it and measures from before the start to after the end.
//
//   agent [--input FILE|-] [--runs N] [--lockstep] [--peak] -- PROGRAM [ARGUMENT...]
//   agent [--stdin FILE] [--runs N] -- PROGRAM [ARGUMENT...]
//   agent --input FILE --lockstep --connect SOCKET
//
//   --input      the dialogue; without it the standard input is empty. "-" is our own standard input, for one run
//   --stdin      no dialogue: the program's standard input is this file
//   --runs       how often; "{run}" in an argument, or in the name for --stdin, is the number of the run, from 0
//   --lockstep   every reply is awaited before the next command, as agents do that do not pipeline. Without it the
//                dialogue is written as fast as it is taken
//   --peak       asks for the program's peak memory after each message; only with --lockstep
//
// Prints a line for each run: nanoseconds, exit status (-1: a signal), replies of classes 2 and 3, of classes 4 and
// 5, peak resident memory in KiB (0 without --peak), microseconds of processor time.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

extern char** environ;

namespace {

constexpr std::size_t kBlock = std::size_t{1} << 20;
constexpr int kReplyPipe = 1 << 20;
constexpr int kPatience = 50;  // milliseconds
constexpr std::string_view kEndOfText = "\r\n.\r\n";

[[noreturn]] void fail(const char* what) {
    std::perror(what);
    std::exit(2);
}

struct Options {
    const char* input = nullptr;
    const char* standard_input = nullptr;
    const char* socket = nullptr;
    int runs = 1;
    bool lockstep = false;
    bool peak = false;
    std::vector<std::string> command;
};

// The replies that have come. A reply ends with the line whose code is not followed by a hyphen.
class Replies {
public:
    void take(std::string_view bytes) {
        for (const char c : bytes) {
            if (c == '\n') {
                end_line();
            } else if (length_++ < head_.size()) {
                head_[length_ - 1] = c;
            }
        }
    }
    int count() const { return accepted + refused; }

    int accepted = 0;
    int refused = 0;

private:
    void end_line() {
        const bool continues = length_ > 3 && head_[3] == '-';
        if (length_ > 0 && !continues) ++(head_[0] == '2' || head_[0] == '3' ? accepted : refused);
        length_ = 0;
    }
    std::array<char, 4> head_{};
    std::size_t length_ = 0;
};

// What is said, in the portions after which a reply is due. A file is mapped, and there before the clock starts: what
// the agent does while it is measured is write(2). Another input, which may be larger than memory, is read in blocks.
class Dialogue {
public:
    explicit Dialogue(int fd) : fd_(fd) {
        struct stat info {};
        if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0) {
            mapped_ = static_cast<std::size_t>(info.st_size);
            void* map = ::mmap(nullptr, mapped_, PROT_READ, MAP_SHARED | MAP_POPULATE, fd, 0);
            if (map == MAP_FAILED) fail("mapping the dialogue");
            data_ = static_cast<const char*>(map);
            end_ = mapped_;
        } else {
            buffer_.resize(kBlock);
            data_ = buffer_.data();
        }
    }
    ~Dialogue() {
        if (mapped_ > 0) ::munmap(const_cast<char*>(data_), mapped_);
    }
    Dialogue(const Dialogue&) = delete;
    Dialogue& operator=(const Dialogue&) = delete;

    std::string_view block() {
        if (begin_ == end_ && !fill()) return {};
        return take(ahead().size());
    }

    struct Portion {
        std::string_view bytes;  // good until the next call; none at the end
        bool reply_due = false;
        bool ends_text = false;
    };
    Portion next() { return in_text_ ? text() : command(); }

private:
    std::string_view ahead() const { return {data_ + begin_, end_ - begin_}; }

    bool fill() {
        if (mapped_ > 0) return false;
        std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
        const ssize_t got = ::read(fd_, buffer_.data() + end_, buffer_.size() - end_);
        if (got < 0) fail("reading the dialogue");
        end_ += static_cast<std::size_t>(got);
        return got > 0;
    }

    std::string_view take(std::size_t length) {
        const std::string_view bytes = ahead().substr(0, length);
        begin_ += bytes.size();
        return bytes;
    }

    Portion command() {
        for (;;) {
            const std::size_t line_feed = ahead().find('\n');
            if (line_feed != std::string_view::npos) {
                const std::string_view line = take(line_feed + 1);
                in_text_ = line == "DATA\r\n";
                return {line, true, false};
            }
            if (!fill()) return {take(std::string_view::npos), false, false};
        }
    }

    // A block at a time, but for the last bytes of what is there: they may begin the end of the text.
    Portion text() {
        for (;;) {
            const std::string_view near = ahead().substr(0, kBlock);
            const std::size_t end = near.find(kEndOfText);
            if (end != std::string_view::npos) {
                in_text_ = false;
                return {take(end + kEndOfText.size()), true, true};
            }
            if (near.size() > kBlock / 2) return {take(near.size() - kEndOfText.size()), false, false};
            if (!fill()) return {take(std::string_view::npos), false, false};
        }
    }

    int fd_;
    std::vector<char> buffer_;
    const char* data_ = nullptr;
    std::size_t mapped_ = 0;
    std::size_t begin_ = 0, end_ = 0;
    bool in_text_ = false;
};

// The two ends of the conversation; `to` and `from` are one descriptor for a socket.
struct Line {
    int to = -1;
    int from = -1;
    pid_t process = -1;

    void hang_up() {
        if (to < 0) return;
        if (to == from)
            ::shutdown(to, SHUT_WR);
        else
            ::close(to);
        to = -1;
    }
};

std::string for_run(std::string word, int run) {
    if (const std::size_t at = word.find("{run}"); at != std::string::npos) word.replace(at, 5, std::to_string(run));
    return word;
}

Line start_program(const Options& options, int run) {
    std::vector<std::string> words;
    for (const std::string& word : options.command) words.push_back(for_run(word, run));
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);

    int input[2], output[2];
    if (::pipe2(input, O_CLOEXEC) != 0 || ::pipe2(output, O_CLOEXEC) != 0) fail("pipe");
    ::fcntl(output[0], F_SETPIPE_SZ, kReplyPipe);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const std::string file = options.standard_input == nullptr ? "" : for_run(options.standard_input, run);
    if (file.empty())
        posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    else
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, file.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    Line line{input[1], output[0], -1};
    errno = ::posix_spawn(&line.process, arguments[0], &actions, nullptr, arguments.data(), environ);
    if (errno != 0) fail(arguments[0]);
    posix_spawn_file_actions_destroy(&actions);
    ::close(input[0]);
    ::close(output[1]);
    return line;
}

Line connect_to(const char* path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) fail(path);
    return {fd, fd, -1};
}

// False when the other side has gone.
bool listen_once(const Line& line, Replies& replies) {
    std::array<char, 65536> block;
    const ssize_t got = ::read(line.from, block.data(), block.size());
    if (got <= 0) return false;
    replies.take({block.data(), static_cast<std::size_t>(got)});
    return true;
}

// Says a portion in full; false when the other side reads no more.
bool say(const Line& line, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(line.to, bytes.data(), bytes.size());
        if (written < 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

std::int64_t peak_memory(pid_t process) {
    const std::string path = "/proc/" + std::to_string(process) + "/status";
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    std::array<char, 8192> block{};
    const ssize_t got = fd < 0 ? 0 : ::read(fd, block.data(), block.size() - 1);
    ::close(fd);
    const char* found = got <= 0 ? nullptr : std::strstr(block.data(), "VmHWM:");
    return found == nullptr ? 0 : std::atoll(found + 6);
}

// Reply by reply; the greeting comes first.
std::int64_t converse(Line& line, Dialogue& dialogue, Replies& replies, bool peak) {
    std::int64_t most = 0;
    const auto await = [&](int number) {
        while (replies.count() < number)
            if (!listen_once(line, replies)) return false;
        return true;
    };
    int due = 1;
    if (!await(due)) return most;
    for (Dialogue::Portion portion = dialogue.next(); !portion.bytes.empty(); portion = dialogue.next()) {
        if (!say(line, portion.bytes)) return most;
        if (portion.reply_due && !await(++due)) return most;
        if (peak && portion.ends_text) most = std::max(most, peak_memory(line.process));
    }
    return most;
}

// Everything as fast as it is taken. The replies are left to gather in their pipe, so that no reply costs the program a
// wake-up of the agent; they are read away when nothing moves any more.
void recite(Line& line, Dialogue& dialogue, Replies& replies) {
    ::fcntl(line.to, F_SETFL, O_NONBLOCK);
    std::string_view left = dialogue.block();
    while (!left.empty()) {
        const ssize_t written = ::write(line.to, left.data(), left.size());
        if (written > 0) {
            left.remove_prefix(static_cast<std::size_t>(written));
            if (left.empty()) left = dialogue.block();
            continue;
        }
        if (errno != EAGAIN) return;
        std::array<pollfd, 2> ready{{{line.to, POLLOUT, 0}, {line.from, POLLIN, 0}}};
        if (::poll(ready.data(), 1, kPatience) > 0) continue;
        ::poll(ready.data(), 2, -1);
        if (ready[1].revents != 0 && !listen_once(line, replies)) return;
    }
}

struct Outcome {
    std::int64_t nanoseconds = 0;
    int status = 0;
    std::int64_t peak_kib = 0;
    std::int64_t processor_microseconds = 0;
    Replies replies;
};

Outcome measure(const Options& options, Dialogue* dialogue, int run) {
    Outcome outcome;
    const auto start = std::chrono::steady_clock::now();
    Line line = options.socket != nullptr ? connect_to(options.socket) : start_program(options, run);
    if (dialogue != nullptr) {
        if (options.lockstep)
            outcome.peak_kib = converse(line, *dialogue, outcome.replies, options.peak);
        else
            recite(line, *dialogue, outcome.replies);
    }
    line.hang_up();
    while (listen_once(line, outcome.replies)) {}
    ::close(line.from);
    if (line.process > 0) {
        int status = 0;
        rusage used{};
        ::wait4(line.process, &status, 0, &used);
        outcome.processor_microseconds = (used.ru_utime.tv_sec + used.ru_stime.tv_sec) * std::int64_t{1'000'000} +
                                         used.ru_utime.tv_usec + used.ru_stime.tv_usec;
        outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    outcome.nanoseconds = (std::chrono::steady_clock::now() - start) / std::chrono::nanoseconds(1);
    return outcome;
}

Options read_options(int argc, char** argv) {
    Options options;
    int at = 1;
    const auto value = [&] {
        return at + 1 < argc ? argv[++at] : (std::fputs("agent: a value is missing\n", stderr), std::exit(2), argv[0]);
    };
    for (; at < argc; ++at) {
        const std::string_view word = argv[at];
        if (word == "--") break;
        if (word == "--input")
            options.input = value();
        else if (word == "--stdin")
            options.standard_input = value();
        else if (word == "--runs")
            options.runs = std::atoi(value());
        else if (word == "--connect")
            options.socket = value();
        else if (word == "--lockstep")
            options.lockstep = true;
        else if (word == "--peak")
            options.peak = true;
    }
    for (++at; at < argc; ++at) options.command.emplace_back(argv[at]);
    if (options.command.empty() && options.socket == nullptr) {
        std::fputs("usage: agent [options] -- PROGRAM [ARGUMENT...]\n", stderr);
        std::exit(2);
    }
    return options;
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = read_options(argc, argv);
    ::signal(SIGPIPE, SIG_IGN);
    for (int run = 0; run < options.runs; ++run) {
        Dialogue* dialogue = nullptr;
        int fd = STDIN_FILENO;
        if (options.input != nullptr && std::string_view(options.input) != "-") {
            fd = ::open(options.input, O_RDONLY | O_CLOEXEC);
            if (fd < 0) fail(options.input);
        }
        Dialogue from(fd);
        if (options.input != nullptr) dialogue = &from;
        const Outcome outcome = measure(options, dialogue, run);
        std::printf("%lld %d %d %d %lld %lld\n", static_cast<long long>(outcome.nanoseconds), outcome.status,
                    outcome.replies.accepted, outcome.replies.refused, static_cast<long long>(outcome.peak_kib),
                    static_cast<long long>(outcome.processor_microseconds));
        if (fd != STDIN_FILENO) ::close(fd);
    }
    return 0;
}
