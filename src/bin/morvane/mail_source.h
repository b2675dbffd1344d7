// Mail as it lies about: single messages (.eml), mbox files, Maildirs, and folders of these. A message is a stretch of
// a file; its text is streamed, whatever its size.
//
//   mbox      a message begins with a line "From <sender> <date>" at the start of the file or after a blank line, and
//             ends before the blank line that stands before the next one. Lines ">From ", ">>From " ... lose one ">".
//   Maildir   a folder with new/ and cur/: every file in them is one message.
//   folder    its files are taken that are called .eml, .mbox or .mbx, or that look like mail; so are its folders.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "os/os.h"

namespace morvane {

struct MailPiece {
    std::string path;
    std::uint64_t begin = 0, end = 0;  // of the text, the From_ line left out
    std::uint64_t number = 0;          // in its file, from 1; 0: the file is one message
    std::string from_line;             // the sender of the From_ line; empty without one
    bool quoted = false;               // ">From " stands for "From "
};

// Finds the messages of one mbox file, one after the other.
class MboxSplitter {
public:
    explicit MboxSplitter(std::string path);
    std::optional<MailPiece> next();

private:
    struct FromLine {
        std::uint64_t at, after;  // where it begins, where the text after it begins
        std::uint64_t text_end;   // of the message before it: the blank line between them left out
        std::string sender;
    };
    std::string_view look(std::uint64_t at, std::size_t count);
    std::optional<FromLine> from_line_at(std::uint64_t at);
    std::optional<FromLine> find_from_line(std::uint64_t from);

    std::string path_;
    os_Fd file_;
    std::uint64_t size_ = 0;
    std::string window_;
    std::uint64_t window_at_ = 0;
    std::optional<FromLine> start_;
    std::uint64_t number_ = 0;
};

// Walks over what the arguments name, in their order, folders by name.
class MailSource {
public:
    explicit MailSource(std::vector<std::string> arguments);
    ~MailSource();
    // The next message. Raises for an argument that cannot be read.
    std::optional<MailPiece> next();
    std::uint64_t skipped() const { return skipped_; }  // files of folders that are no mail

private:
    class Folder;
    std::optional<std::string> next_file(bool& single);
    std::optional<std::string> take_argument(bool& single);

    std::vector<std::string> arguments_;
    std::size_t next_argument_ = 0;
    std::vector<std::unique_ptr<Folder>> folders_;  // open, the innermost last
    std::optional<MboxSplitter> mbox_;
    std::uint64_t skipped_ = 0;
};

// Files and bytes of all that the arguments name, mail or not: for a progress bar.
std::uint64_t count_bytes(const std::vector<std::string>& arguments);

// The text of a message as it goes through a dialogue: mbox quoting undone, a dot put before a line's leading dot, and
// the end line after it. Every other byte is as it is; a text that does not end with a line end gets one before the end
// line.
class PieceReader {
public:
    explicit PieceReader(const MailPiece& piece);
    // Appends the next stretch to `out`; false when the end line has been appended already.
    bool next(std::string& out);
    std::uint64_t done() const { return at_ - begin_; }  // bytes of the file read

private:
    void append(std::string_view text, std::string& out);
    void append_line_start(std::string_view& text, std::string& out);

    os_Fd file_;
    std::uint64_t begin_ = 0, at_ = 0, end_ = 0;
    bool quoted_ = false;
    bool line_start_ = true;
    bool ended_ = false;
    std::string block_;
    std::string held_;  // a line's first bytes that do not yet say whether it is quoted
};

// Who it is from and to, after the message itself.
struct Envelope {
    std::string from;             // without angle brackets; empty is the null sender
    std::vector<std::string> to;  // at least one
};
// `from`: Return-Path, else the From_ line, else nobody. `to`: the first address of Delivered-To, X-Original-To or To,
// else postmaster. Only what can stand in a command counts as an address.
Envelope guess_envelope(const MailPiece& piece);
bool is_sendable(std::string_view address);  // can it stand between "<" and ">" in a command?

}  // namespace morvane
