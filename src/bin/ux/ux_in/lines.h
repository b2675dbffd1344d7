// Reading lines: the one reader of the dialogue. It owns descriptor 0 for the session, reads it in blocks and hands out
// lines as views into its buffer; it alone knows "at a line start" and "the end line has been read".
//
// A line end is LF with any CRs before it. A line longer than the limit comes in pieces; only the last piece is `whole`.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "os/os.h"

inline constexpr std::size_t kTextLineLimit = 1023;     // bytes of one piece of message text, its line end included
inline constexpr std::size_t kCommandLineLimit = 2048;  // characters of a command

// One piece of message text. The view is good until the next read.
struct ux_MailText {
    std::string_view text;    // without the line end
    bool whole = false;       // a line end followed it
    bool at_start = true;     // it begins a line
    bool is_end = false;      // it is the end line: a single dot
    bool is_blank() const { return whole && text.empty(); }
    // The text after dot-unstuffing: a leading ".." at a line start loses a dot.
    std::string_view unstuffed() const { return at_start && text.starts_with("..") ? text.substr(1) : text; }
};

class ux_LineReader {
public:
    explicit ux_LineReader(int fd);

    // One command line without its line end; a longer one than kCommandLineLimit is read away and given as its first
    // kCommandLineLimit + 1 characters. Raises 102/1402 at the end of input. NUL bytes become blanks.
    std::string_view command();

    void begin_text();            // a message text begins: at a line start, its end line not read yet
    ux_MailText text();           // the next piece; raises 102/1401 at the end of input
    void unread();                // the piece read last is given again by the next text(); once
    bool text_open() const { return text_open_; }   // begin_text was called and the end line has not been read
    void drain_text();            // reads the rest of the text to its end line or the end of input; raises nothing

private:
    bool fill();                               // reads more; false at the end of input
    bool raw_line(std::size_t limit);          // sets piece_ and whole_; false at the end of input

    int fd_;
    std::unique_ptr<char[]> buffer_;
    std::size_t begin_ = 0, end_ = 0;          // unread bytes
    std::size_t pending_returns_ = 0;          // CRs read past whose meaning the next byte decides
    char* piece_ = nullptr;
    std::size_t length_ = 0;
    bool whole_ = true;                        // the piece read last ended a line
    bool at_start_ = true;                     // it began one
    bool again_ = false;
    bool text_open_ = false;
    bool eof_ = false;
};

// The process's reader, on standard input; ux_SetInput replaces it (tests: a pipe or a file).
ux_LineReader& ux_Input();
void ux_SetInput(int fd);

// One piece of message text: the end line is not consumed silently but given with is_end set.
ux_MailText ux_InReadMailText();
