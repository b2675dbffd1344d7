// `morvane convert`: a gateway process per worker, each taking message after message; one loop serves them all.
#include "morvane/convert.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>

#include "er/er.h"
#include "morvane/failure.h"
#include "morvane/gateway_session.h"
#include "morvane/home.h"
#include "morvane/mail_source.h"

namespace morvane {
namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kMostJobs = 256;
constexpr auto kBarEvery = std::chrono::milliseconds(100);
constexpr std::size_t kBarWidth = 30;
constexpr int kPollLimit = 100;  // milliseconds, so that the bar goes on

std::string plain_address(std::string_view text) {
    if (text.starts_with('<') && text.ends_with('>')) text = text.substr(1, text.size() - 2);
    if (!text.empty() && !is_sendable(text))
        throw Failure("\"" + std::string(text) + "\" is not an address that can be sent");
    return std::string(text);
}

// Where a message stands, for people: its file, and in an mbox which one it is.
std::string place_of(const MailPiece& piece) {
    if (piece.number == 0) return piece.path;
    return piece.path + ": message " + std::to_string(piece.number) + " at byte " + std::to_string(piece.begin);
}

std::string format(const char* pattern, double value) {
    std::array<char, 64> text{};
    const int length = std::snprintf(text.data(), text.size(), pattern, value);
    return {text.data(), static_cast<std::size_t>(std::max(0, length))};
}

// One line at the bottom of a terminal, drawn over again.
class ProgressBar {
public:
    ProgressBar(bool shown, std::uint64_t total) : shown_(shown), total_(total), screen_(screen_of(STDERR_FILENO)) {}
    ~ProgressBar() { clear(); }
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    bool due() const { return shown_ && Clock::now() - drawn_ >= kBarEvery; }
    void draw(std::uint64_t done, std::uint64_t queued, std::uint64_t refused, double seconds) {
        drawn_ = Clock::now();
        const double share = total_ == 0 ? 1.0 : std::min(1.0, static_cast<double>(done) / static_cast<double>(total_));
        const auto filled = static_cast<std::size_t>(share * kBarWidth);
        std::string bar;
        for (std::size_t i = 0; i < kBarWidth; ++i) {
            if (screen_.utf8) {
                bar += i < filled ? "█" : "░";
            } else {
                bar += i < filled ? '#' : '.';
            }
        }
        std::string line = "\r" + bar + format(" %3.0f%%  ", share * 100) + counted(queued, "message", "messages");
        line += "  " + format("%.1f MB/s", seconds > 0 ? static_cast<double>(done) / 1e6 / seconds : 0.0);
        if (refused > 0) line += "  " + with_commas(refused) + " refused";
        write(line + "\x1B[K");
        visible_ = true;
    }
    void clear() {
        if (visible_) write("\r\x1B[K");
        visible_ = false;
    }

private:
    static void write(const std::string& text) {
        er_TryIgnoring([&] { os_write_all(STDERR_FILENO, text); });
    }

    bool shown_;
    bool visible_ = false;
    std::uint64_t total_;
    Screen screen_;
    Clock::time_point drawn_{};
};

class Conversion {
public:
    Conversion(const ConvertOptions& options, Printer& out, const Screen& screen);
    int run();

private:
    Envelope envelope_of(const MailPiece& piece) const;
    void feed(GatewaySession& session);
    void settle(GatewaySession& session);
    void tell_refusal(const std::string& what, const std::string& reply);
    void wait();
    void draw();
    double seconds() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }
    int summarise();

    const ConvertOptions& options_;
    Printer& out_;
    const Screen& screen_;
    GatewayCommand command_;
    std::string from_;
    std::vector<std::string> to_;
    MailSource source_;
    bool exhausted_ = false;
    std::vector<std::unique_ptr<GatewaySession>> sessions_;
    ProgressBar bar_;
    Clock::time_point start_ = Clock::now();
    std::uint64_t queued_ = 0, refused_ = 0, bytes_ = 0;
};

Conversion::Conversion(const ConvertOptions& options, Printer& out, const Screen& screen)
    : options_(options),
      out_(out),
      screen_(screen),
      source_(options.files),
      bar_(::isatty(STDERR_FILENO) == 1, ::isatty(STDERR_FILENO) == 1 ? count_bytes(options.files) : 0) {
    command_.program = options.gateway.empty() ? find_gateway() : options.gateway;
    if (!options.system.empty()) command_.arguments = {"-s", options.system};
    command_.home = os_Home();
    from_ = plain_address(options.from);
    for (const std::string& to : options.to) {
        to_.push_back(plain_address(to));
        if (to_.back().empty()) throw Failure("an empty address is no recipient");
    }
    const unsigned jobs = std::clamp(options.jobs, 1U, kMostJobs);
    for (unsigned i = 0; i < jobs; ++i) sessions_.push_back(std::make_unique<GatewaySession>(command_));
}

Envelope Conversion::envelope_of(const MailPiece& piece) const {
    Envelope envelope;
    if (options_.from.empty() || to_.empty()) envelope = guess_envelope(piece);
    if (!options_.from.empty()) envelope.from = from_;
    if (!to_.empty()) envelope.to = to_;
    return envelope;
}

// A file that cannot be read is told like a refusal; the others go on.
void Conversion::feed(GatewaySession& session) {
    while (!exhausted_ && session.idle()) {
        std::optional<MailPiece> piece;
        std::optional<Envelope> envelope;
        try {
            piece = source_.next();
            exhausted_ = !piece;
            if (exhausted_) return;
            envelope = envelope_of(*piece);
        } catch (const er_Escape& escape) {
            tell_refusal(escape.detail(), std::strerror(escape.reason()));
            continue;
        } catch (const Failure& failure) {
            tell_refusal(failure.what(), "not converted");
            continue;
        }
        session.give(*std::move(piece), *std::move(envelope));
    }
}

void Conversion::tell_refusal(const std::string& what, const std::string& reply) {
    ++refused_;
    bar_.clear();
    out_ << screen_.paint(Ink::damage, "refused") << "  " << harmless(what, screen_) << ": " << harmless(reply, screen_)
         << '\n';
    out_.flush();
}

void Conversion::settle(GatewaySession& session) {
    const std::optional<Outcome> outcome = session.take_outcome();
    if (!outcome) return;
    bytes_ += outcome->piece.end - outcome->piece.begin;
    if (outcome->queued) {
        ++queued_;
        return;
    }
    tell_refusal(place_of(outcome->piece), outcome->reply);
    if (session.unusable()) throw Failure(command_.program + " takes no mail: " + outcome->reply);
}

// Serves whoever can go on. Every session that is not idle awaits a reply, so there is always something to poll.
void Conversion::wait() {
    std::vector<pollfd> polled;
    std::vector<GatewaySession*> owners;
    for (const auto& session : sessions_) {
        if (session->read_fd() >= 0) {
            polled.push_back({session->read_fd(), POLLIN, 0});
            owners.push_back(session.get());
        }
        if (session->write_fd() >= 0) {
            polled.push_back({session->write_fd(), POLLOUT, 0});
            owners.push_back(session.get());
        }
    }
    const int ready = ::poll(polled.data(), polled.size(), kPollLimit);
    if (ready < 0 && errno != EINTR) er_SystemEscape(errno, "poll");
    for (std::size_t i = 0; ready > 0 && i < polled.size(); ++i) {
        if (polled[i].revents == 0) continue;
        GatewaySession& session = *owners[i];
        if ((polled[i].events & POLLIN) != 0 && session.read_fd() == polled[i].fd) session.on_readable();
        if ((polled[i].events & POLLOUT) != 0 && session.write_fd() == polled[i].fd) session.on_writable();
    }
}

void Conversion::draw() {
    if (!bar_.due()) return;
    std::uint64_t done = bytes_;
    for (const auto& session : sessions_) done += session->bytes_done();
    bar_.draw(done, queued_, refused_, seconds());
}

int Conversion::summarise() {
    bar_.clear();
    const double took = seconds();
    const double per_second = took > 0 ? static_cast<double>(queued_) / took : 0;
    out_ << "queued " << counted(queued_, "message", "messages") << ", refused " << with_commas(refused_) << ", "
         << format("%.2f s", took) << ", " << format("%.0f messages/s", per_second) << ", "
         << format("%.1f MB/s", took > 0 ? static_cast<double>(bytes_) / 1e6 / took : 0) << '\n';
    if (source_.skipped() > 0) out_ << counted(source_.skipped(), "file is no mail", "files are no mail") << '\n';
    return refused_ == 0 ? 0 : 1;
}

int Conversion::run() {
    for (;;) {
        bool busy = false;
        for (const auto& session : sessions_) {
            settle(*session);
            feed(*session);
            busy = busy || !session->idle();
        }
        if (!busy) break;
        draw();
        wait();
    }
    for (const auto& session : sessions_) session->quit();
    return summarise();
}

}  // namespace

int convert(const ConvertOptions& options, Printer& out, const Screen& screen) {
    if (options.files.empty()) throw Failure("which files? .eml, mbox, Maildir and folders of these can be converted");
    ::signal(SIGPIPE, SIG_IGN);
    return Conversion(options, out, screen).run();
}

}  // namespace morvane
