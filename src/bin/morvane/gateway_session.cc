// The dialogue with one gateway process: see gateway_session.h.
#include "morvane/gateway_session.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "er/er.h"

extern char** environ;

namespace morvane {
namespace {

constexpr std::size_t kMostPending = std::size_t{256} << 10;  // bytes that wait to be written
constexpr std::size_t kReplyLimit = 4096;
constexpr int kPipeRoom = 1 << 20;

struct Pipe {
    os_Fd read, write;
};
Pipe make_pipe() {
    std::array<int, 2> fds{};
    if (::pipe2(fds.data(), O_CLOEXEC) != 0) er_SystemEscape(errno, "pipe");
    return {os_Fd(fds[0]), os_Fd(fds[1])};
}

void make_unblocking(int fd) {
    if (::fcntl(fd, F_SETFL, O_NONBLOCK) != 0) er_SystemEscape(errno, "fcntl");
}

// The environment with MORVANE_HOME set to `home`. The texts live as long as the object.
class Environment {
public:
    explicit Environment(const std::string& home) : home_("MORVANE_HOME=" + home) {
        for (char** variable = environ; *variable != nullptr; ++variable)
            if (std::strncmp(*variable, "MORVANE_HOME=", 13) != 0) pointers_.push_back(*variable);
        pointers_.push_back(home_.data());
        pointers_.push_back(nullptr);
    }
    char* const* get() { return pointers_.data(); }

private:
    std::string home_;
    std::vector<char*> pointers_;
};

// How the child starts: pipes as its standard input and output, signals as they usually are.
class SpawnPlan {
public:
    SpawnPlan(int input, int output) {
        ::posix_spawn_file_actions_init(&actions_);
        ::posix_spawn_file_actions_adddup2(&actions_, input, STDIN_FILENO);
        ::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
        ::posix_spawnattr_init(&attributes_);
        sigset_t defaults;
        sigemptyset(&defaults);
        sigaddset(&defaults, SIGPIPE);
        ::posix_spawnattr_setsigdefault(&attributes_, &defaults);
        ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnPlan() {
        ::posix_spawn_file_actions_destroy(&actions_);
        ::posix_spawnattr_destroy(&attributes_);
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;

    pid_t run(const GatewayCommand& command) {
        std::vector<char*> arguments;
        std::string program = command.program;
        std::vector<std::string> words = command.arguments;
        arguments.push_back(program.data());
        for (std::string& word : words) arguments.push_back(word.data());
        arguments.push_back(nullptr);
        Environment environment(command.home);
        pid_t process = -1;
        const int error =
            ::posix_spawn(&process, program.c_str(), &actions_, &attributes_, arguments.data(), environment.get());
        if (error != 0) er_SystemEscape(error, program);
        return process;
    }

private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

std::string end_of_process(int status) {
    if (WIFSIGNALED(status)) return "the gateway was ended by signal " + std::to_string(WTERMSIG(status));
    return "the gateway ended with status " + std::to_string(WEXITSTATUS(status)) + " and no reply";
}

}  // namespace

GatewaySession::~GatewaySession() {
    if (process_ > 0) ::kill(process_, SIGTERM);
    to_gateway_.reset();
    from_gateway_.reset();
    if (process_ > 0) ::waitpid(process_, nullptr, 0);
}

void GatewaySession::start() {
    Pipe input = make_pipe();
    Pipe output = make_pipe();
    ::fcntl(input.write.get(), F_SETPIPE_SZ, kPipeRoom);  // a smaller one serves as well, more slowly
    process_ = SpawnPlan(input.read.get(), output.write.get()).run(command_);
    make_unblocking(input.write.get());
    make_unblocking(output.read.get());
    to_gateway_ = std::move(input.write);
    from_gateway_ = std::move(output.read);
    in_.clear();
    out_.clear();
    out_at_ = 0;
    state_ = State::greeting;
}

// A gateway that is told to quit, or whose input ends, comes to its own end; what it still says fits its pipe.
void GatewaySession::stop() {
    constexpr std::string_view goodbye = "QUIT\r\n";
    const bool in_step = to_gateway_ && out_at_ == out_.size();
    if (in_step && ::write(to_gateway_.get(), goodbye.data(), goodbye.size()) < 0) {
        // It has gone already, or has no room for it: the end of its input says the same.
    }
    to_gateway_.reset();
    if (process_ > 0) ::waitpid(process_, nullptr, 0);
    process_ = -1;
    from_gateway_.reset();
    out_.clear();
    out_at_ = 0;
    state_ = State::down;
}

void GatewaySession::give(MailPiece piece, Envelope envelope) {
    piece_ = std::move(piece);
    envelope_ = std::move(envelope);
    text_.reset();
    if (state_ == State::down) return start();
    begin_envelope();
}

void GatewaySession::quit() {
    if (state_ == State::ready) stop();
}

// The commands go together; the text waits for the reply to DATA.
void GatewaySession::begin_envelope() {
    say("MAIL FROM:<" + envelope_.from + '>');
    for (const std::string& recipient : envelope_.to) say("RCPT TO:<" + recipient + '>');
    say("DATA");
    replies_awaited_ = envelope_.to.size() + 2;
    state_ = State::envelope;
}

void GatewaySession::finish(bool queued, std::string reply) {
    outcome_ = Outcome{std::move(piece_), queued, std::move(reply)};
    piece_ = MailPiece{};
    text_.reset();
    if (queued) {
        state_ = State::ready;
    } else {
        stop();
    }
}

std::optional<Outcome> GatewaySession::take_outcome() { return std::exchange(outcome_, std::nullopt); }

void GatewaySession::on_envelope_reply(const std::string& line) {
    --replies_awaited_;
    const char wanted = replies_awaited_ == 0 ? '3' : '2';
    if (line.front() != wanted) return finish(false, line);
    if (replies_awaited_ > 0) return;
    try {
        text_.emplace(piece_);
        state_ = State::text;
    } catch (const er_Escape& escape) {
        finish(false, "it cannot be read: " + std::string(std::strerror(escape.reason())));
    }
}

void GatewaySession::on_reply(const std::string& line) {
    switch (state_) {
        case State::greeting:
            if (line.front() != '2') {
                unusable_ = true;
                return finish(false, line);
            }
            say("HELO localhost");
            state_ = State::hello;
            return;
        case State::hello:
            if (line.front() != '2') return finish(false, line);
            return begin_envelope();
        case State::envelope: return on_envelope_reply(line);
        case State::text:  // a reply before the text has ended is a refusal
            if (line.front() == '2') return finish(false, "a reply before the end of the text: " + line);
            return finish(false, line);
        case State::verdict: return finish(line.front() == '2', line);
        case State::down:
        case State::ready: return;
    }
}

void GatewaySession::on_readable() {
    std::array<char, 4096> block;
    const ssize_t got = ::read(from_gateway_.get(), block.data(), block.size());
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (got <= 0) {
        int status = 0;
        to_gateway_.reset();
        ::waitpid(process_, &status, 0);
        process_ = -1;
        unusable_ = unusable_ || state_ == State::greeting;
        return finish(false, end_of_process(status));
    }
    in_.append(block.data(), static_cast<std::size_t>(got));
    for (std::size_t end = in_.find('\n'); end != std::string::npos && !idle(); end = in_.find('\n')) {
        std::string line = in_.substr(0, end);
        in_.erase(0, end + 1);
        while (line.ends_with('\r')) line.pop_back();
        if (line.empty() || (line.size() > 3 && line[3] == '-')) continue;  // a reply's last line decides
        on_reply(line);
    }
    if (in_.size() > kReplyLimit && !idle()) finish(false, "the gateway's reply does not end: " + in_.substr(0, 200));
}

// Keeps some of the text ready to be written. A text that cannot be read to its end is not sent to its end either.
void GatewaySession::fill() {
    if (out_at_ == out_.size() || out_at_ >= kMostPending) {  // a gateway that keeps up never lets it run empty
        out_.erase(0, out_at_);
        out_at_ = 0;
    }
    try {
        while (wants_text() && out_.size() - out_at_ < kMostPending)
            if (!text_->next(out_)) state_ = State::verdict;
    } catch (const er_Escape& escape) {
        out_.push_back('x');  // out of step: the gateway's input ends inside the text
        finish(false, "it cannot be read: " + std::string(std::strerror(escape.reason())));
    }
}

void GatewaySession::on_writable() {
    fill();
    while (out_at_ < out_.size()) {
        const ssize_t written = ::write(to_gateway_.get(), out_.data() + out_at_, out_.size() - out_at_);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0 && errno == EPIPE) {  // it says why on its way out, or it does not: reading tells
            out_at_ = out_.size();
            if (state_ == State::text) state_ = State::verdict;
            return;
        }
        if (written < 0 && errno != EAGAIN) er_SystemEscape(errno, "pipe to the gateway");
        if (written < 0) return;
        out_at_ += static_cast<std::size_t>(written);
        fill();
    }
}

}  // namespace morvane
