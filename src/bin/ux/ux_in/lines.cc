// The reader of the dialogue: see lines.h.
#include "ux_in/lines.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "er/er.h"

namespace {

constexpr std::size_t kBuffer = std::size_t{256} << 10;
constexpr int kPipeSize = 1 << 20;        // a pipe carries three times as much per second with it
constexpr std::size_t kFullPipe = 65536;  // what a read of a full pipe of the usual size gives
constexpr std::size_t kReturnsInLineEnd = 64;
constexpr int kEndOfText = 1401;
constexpr int kEndOfCommands = 1402;

std::size_t without_returns(std::span<const char> piece) {
    std::size_t length = piece.size();
    while (length > 0 && piece[length - 1] == '\r') --length;
    return length;
}

// A NUL would end the text for every reader of records; it is a blank to us, so that what follows it is not lost.
void blank_nuls(std::span<char> piece) {
    if (piece.empty() || std::memchr(piece.data(), '\0', piece.size()) == nullptr) return;
    std::replace(piece.begin(), piece.end(), '\0', ' ');
}

std::string_view view(std::span<const char> piece) { return {piece.data(), piece.size()}; }

std::optional<ux_LineReader>& input() {
    static std::optional<ux_LineReader> reader;
    return reader;
}

}  // namespace

ux_LineReader::ux_LineReader(int fd) : fd_(fd), buffer_(std::make_unique_for_overwrite<char[]>(kBuffer)) {}

ux_LineReader::ux_LineReader(Source source)
    : source_(std::move(source)), buffer_(std::make_unique_for_overwrite<char[]>(kBuffer)) {}

// A text that fills the pipe is a large one: from then on larger reads pay.
void ux_LineReader::widen_pipe() {
    pipe_widened_ = true;
    ::fcntl(fd_, F_SETPIPE_SZ, kPipeSize);  // not a pipe, or not allowed: reads stay as they are
}

bool ux_LineReader::fill() {
    if (begin_ > 0) {
        std::memmove(buffer_.get(), buffer_.get() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
    }
    if (source_) {
        const std::size_t got = source_(buffer_.get() + end_, kBuffer - end_);
        end_ += got;
        return got > 0;
    }
    for (;;) {
        const ssize_t got = ::read(fd_, buffer_.get() + end_, kBuffer - end_);
        if (got > 0) {
            end_ += static_cast<std::size_t>(got);
            if (got >= static_cast<ssize_t>(kFullPipe) && !pipe_widened_) widen_pipe();
            return true;
        }
        if (got == 0 || errno == ECONNRESET) return false;  // a connection that broke is an agent that has gone
        if (errno == EAGAIN) {
            pollfd ready{fd_, POLLIN, 0};
            ::poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            er_SystemEscape(errno, "standard input");
        }
    }
}

// CRs that stood at a cut. Before LF they belong to the line end; before anything else they are text, given out in
// pieces of their own. They are counted, not kept: a run of any length costs no memory.
bool ux_LineReader::held_returns(std::size_t limit) {
    for (;;) {
        while (begin_ < end_ && buffer_[begin_] == '\r') {
            ++begin_;
            ++held_returns_;
        }
        if (begin_ < end_ || !fill()) break;
    }
    at_start_ = whole_;
    whole_ = begin_ < end_ && buffer_[begin_] == '\n';
    if (whole_) {
        ++begin_;
        line_end_returns_ = std::exchange(held_returns_, 0);
        piece_ = {};
        return true;
    }
    const std::size_t count = std::min(held_returns_, limit);
    held_returns_ -= count;
    returns_.assign(count, '\r');
    piece_ = returns_;
    return true;
}

bool ux_LineReader::next_piece(std::size_t limit) {
    if (held_returns_ > 0) return held_returns(limit);
    for (;;) {
        std::span<char> ahead(buffer_.get() + begin_, std::min(end_ - begin_, limit));
        const auto* line_feed = static_cast<char*>(std::memchr(ahead.data(), '\n', ahead.size()));
        if (line_feed != nullptr) {
            const auto length = static_cast<std::size_t>(line_feed - ahead.data());
            begin_ += length + 1;
            piece_ = ahead.first(without_returns(ahead.first(length)));
            line_end_returns_ = length - piece_.size();
            at_start_ = std::exchange(whole_, true);
            return true;
        }
        if (ahead.size() < limit) {
            if (fill()) continue;
            ahead = {buffer_.get() + begin_, ahead.size()};  // moved, though nothing came
        }
        if (ahead.empty()) return false;
        begin_ += ahead.size();
        piece_ = ahead.first(without_returns(ahead));
        held_returns_ = ahead.size() - piece_.size();
        if (piece_.empty()) return held_returns(limit);
        at_start_ = std::exchange(whole_, false);
        return true;
    }
}

ux_CommandLine ux_LineReader::command() {
    whole_ = true;
    if (!next_piece(kCommandLineLimit + kReturnsInLineEnd)) er_TracedEscape(kGatewayGroup, kEndOfCommands);
    if (whole_ && piece_.size() <= kCommandLineLimit) {
        blank_nuls(piece_);
        return {view(piece_), false};
    }
    // A longer line is read to its end. CRs that were held back are text only when something else, or nothing, follows.
    std::string text(view(piece_));
    while (!whole_ && next_piece(kBuffer / 2))
        if (text.size() <= kCommandLineLimit) text.append(view(piece_).substr(0, kCommandLineLimit + 1));
    const bool too_long = text.size() > kCommandLineLimit;
    text.resize(std::min(text.size(), kCommandLineLimit));
    returns_ = std::move(text);
    piece_ = returns_;
    blank_nuls(piece_);
    return {view(piece_), too_long};
}

void ux_LineReader::begin_text() {
    whole_ = true;
    again_ = false;
    text_open_ = true;
}

ux_MailText ux_LineReader::text(std::size_t limit) {
    raw_text(limit);
    blank_nuls(piece_);
    return last_;
}

ux_MailText ux_LineReader::raw_text(std::size_t limit) {
    if (std::exchange(again_, false)) return last_;
    if (!text_open_) er_TracedEscape(kGatewayGroup, kEndOfText);
    if (!next_piece(limit)) {
        text_open_ = false;
        er_TracedEscape(kGatewayGroup, kEndOfText);
    }
    const bool is_end = at_start_ && whole_ && piece_.size() == 1 && piece_[0] == '.';
    last_ = {view(piece_), whole_, at_start_, is_end, whole_ ? line_end_returns_ : 0};
    if (is_end) text_open_ = false;
    return last_;
}

int ux_LineReader::peek() {
    if (again_) return last_.text.empty() ? '\n' : static_cast<unsigned char>(last_.text.front());
    if (held_returns_ > 0) return '\r';
    if (begin_ == end_ && !fill()) return -1;
    return static_cast<unsigned char>(buffer_[begin_]);
}

std::string_view ux_LineReader::lines_ahead() const {
    if (again_ || held_returns_ > 0 || !whole_ || !text_open_) return {};
    return {buffer_.get() + begin_, end_ - begin_};
}

void ux_LineReader::drain_text() noexcept {
    const er_StatusKeeper keeper;
    try {
        again_ = false;
        while (text_open_) text();
    } catch (const er_Escape&) {  // the input has ended: the refusal's own number stands
        text_open_ = false;
    }
}

ux_LineReader& ux_Input() {
    if (!input()) input().emplace(STDIN_FILENO);
    return *input();
}

void ux_SetInput(int fd) { input().emplace(fd); }

ux_MailText ux_InReadMailText() { return ux_Input().text(); }

std::string_view StripCrNl(std::string_view pInStr) {
    const std::size_t end = pInStr.find('\r');
    return pInStr.substr(0, end == std::string_view::npos ? pInStr.find('\n') : end);
}
