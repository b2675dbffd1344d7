// Reading lines: the one reader of the dialogue. It owns descriptor 0 for the session, reads it in blocks and hands out
// lines as views into its buffer; it alone knows "at a line start" and "the end line has been read".
//
// A line end is LF with any CRs before it. A line longer than the limit comes in pieces; only the last piece is
// `whole`. The same reader reads a text that was kept and is read a second time.
#pragma once

#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <string_view>

inline constexpr std::size_t kTextLineLimit = 1023;     // bytes of one piece of message text, its line end included
inline constexpr std::size_t kCommandLineLimit = 2048;  // characters of a command

namespace ux {
inline constexpr std::size_t kAnyNumber = std::numeric_limits<std::size_t>::max();  // of lines: as many as there are
}

// One piece of message text. The view is good until the next read.
struct ux_MailText {
    std::string_view text;    // without the line end
    bool whole = false;       // a line end followed it
    bool at_start = true;     // it begins a line
    bool is_end = false;      // it is the end line: a single dot
    std::size_t returns = 0;  // CRs of the line end
    bool is_blank() const { return whole && text.empty(); }
    // The text after dot-unstuffing: a leading ".." at a line start loses a dot.
    std::string_view unstuffed() const { return at_start && text.starts_with("..") ? text.substr(1) : text; }
};

// One command line, without its line end and with NUL bytes as blanks. The view is good until the next read.
struct ux_CommandLine {
    std::string_view text;  // at most kCommandLineLimit characters
    bool too_long = false;  // there was more; it has been read away, so that a command gets one reply
};

class ux_LineReader {
public:
    // Puts up to `room` bytes at `data`; 0 at the end.
    using Source = std::function<std::size_t(char* data, std::size_t room)>;

    explicit ux_LineReader(int fd);
    explicit ux_LineReader(Source source);  // for a text that lies elsewhere

    ux_CommandLine command();  // raises 102/1402 at the end of input

    void begin_text();  // a message text begins: at a line start, its end line not read yet
    // The next piece, at most `limit` bytes with its line end; raises 102/1401 at the end of input and after the end
    // line.
    ux_MailText text(std::size_t limit = kTextLineLimit);
    ux_MailText raw_text(std::size_t limit = kTextLineLimit);  // the same with NUL bytes as they are
    int peek();                                                // the next byte of the text, or -1 at the end of input

    // What lies ready in the buffer, when the next byte begins a line: for whoever takes many ordinary lines at once.
    // Of it take_lines() takes whole lines, none of which may be an end line.
    std::string_view lines_ahead() const;
    void take_lines(std::size_t bytes) { begin_ += bytes; }
    void unread() { again_ = true; }               // text() gives the piece read last once more
    bool text_open() const { return text_open_; }  // begun, and the end line not read
    void drain_text() noexcept;  // reads the rest of an open text away, to its end line or the end of input

private:
    bool fill();                         // reads more; false at the end of input
    bool next_piece(std::size_t limit);  // sets piece_, whole_, at_start_; false at the end of input
    bool held_returns(std::size_t limit);
    void widen_pipe();

    int fd_ = -1;
    Source source_;  // when there is one, there is no descriptor
    std::unique_ptr<char[]> buffer_;
    std::size_t begin_ = 0, end_ = 0;   // unread bytes
    std::size_t held_returns_ = 0;      // CRs at a cut: line end or text, the next other byte decides
    std::size_t line_end_returns_ = 0;  // CRs of the line end read last
    std::string returns_;               // held CRs that turned out to be text
    std::span<char> piece_;
    bool whole_ = true;     // the piece read last ended a line
    bool at_start_ = true;  // it began one
    ux_MailText last_;
    bool again_ = false;
    bool text_open_ = false;
    bool pipe_widened_ = false;
};

// The process's reader, on standard input. ux_SetInput puts one on another descriptor in its place (not owned).
ux_LineReader& ux_Input();
void ux_SetInput(int fd);

// One piece of message text (ux_Input().text()). The end line is given with is_end set; it is never text.
ux_MailText ux_InReadMailText();

// The text up to its first CR or, when it has none, to its first LF.
std::string_view StripCrNl(std::string_view pInStr);
