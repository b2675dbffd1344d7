// One gateway process and the dialogue with it, driven by poll(2): nothing here ever waits for a pipe, so a full one on
// either side cannot stop both. A message is handed over, its text streamed, its replies read; what the gateway
// refuses ends the process, for after a refusal it may have nothing more to say than that refusal.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "morvane/mail_source.h"
#include "os/os.h"

namespace morvane {

struct GatewayCommand {
    std::string program;
    std::vector<std::string> arguments;
    std::string home;  // goes to the process as MORVANE_HOME
};

// What became of one message.
struct Outcome {
    MailPiece piece;
    bool queued = false;
    std::string reply;  // the refusal, or why there is no reply
};

class GatewaySession {
public:
    explicit GatewaySession(const GatewayCommand& command) : command_(command) {}
    ~GatewaySession();
    GatewaySession(const GatewaySession&) = delete;
    GatewaySession& operator=(const GatewaySession&) = delete;

    bool idle() const { return state_ == State::down || state_ == State::ready; }
    // Takes the next message on; only when idle. Starts a process when there is none; raises when that cannot be.
    void give(MailPiece piece, Envelope envelope);
    // Says goodbye; only when idle. Waits for the process to end.
    void quit();

    // For poll(2): descriptors, -1 where nothing is awaited.
    int read_fd() const { return idle() ? -1 : from_gateway_.get(); }
    int write_fd() const { return out_at_ < out_.size() || wants_text() ? to_gateway_.get() : -1; }
    void on_readable();
    void on_writable();

    // The message that was handed over, once its fate is known; handed out once.
    std::optional<Outcome> take_outcome();
    // A process that refused before it had said hello: the next one would, too.
    bool unusable() const { return unusable_; }
    std::uint64_t bytes_done() const { return text_ ? text_->done() : 0; }  // of the message in hand

private:
    enum class State : std::uint8_t { down, greeting, hello, envelope, text, verdict, ready };

    void start();
    void stop();
    void say(const std::string& line) { out_ += line + "\r\n"; }
    bool wants_text() const { return state_ == State::text && text_; }
    void fill();
    void on_reply(const std::string& line);
    void on_envelope_reply(const std::string& line);
    void begin_envelope();
    void finish(bool queued, std::string reply);

    const GatewayCommand& command_;
    State state_ = State::down;
    pid_t process_ = -1;
    os_Fd to_gateway_, from_gateway_;
    std::string out_;
    std::size_t out_at_ = 0;
    std::string in_;
    MailPiece piece_;
    Envelope envelope_;
    std::size_t replies_awaited_ = 0;  // to MAIL, RCPT and DATA, which are sent together
    std::optional<PieceReader> text_;
    std::optional<Outcome> outcome_;
    bool unusable_ = false;
};

}  // namespace morvane
