// Address lists of header fields: split into addresses, each turned into a native name and a record.
//
//   list    = address *( "," address )
//   address = [ name ":" ] [ mailbox ] [ ";" ]
//
// A comma in a quoted string or a comment is part of the address; one between angle brackets is not. The members of a
// group stand in the list like other addresses: its name and its ";" are dropped, but a group without members,
// "name:;", is converted as it is.
//
// Cost is linear in the list, and what is held of it is bounded, whatever its length and that of its addresses.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "er/er.h"
#include "tf/file.h"
#include "tf/record.h"

// Addresses up to this many characters (trimmed) may become the first From or Sender; longer ones are logged.
inline constexpr std::size_t kArpaLenOK = 1024;

// Process-wide.
struct ux_AddressState {
    std::string ArpaSenderORN;         // native name of the envelope sender; emptied when a From was dropped for it
    std::optional<bool> SuppressFROM;  // UXI_SUPPRESS_SENDER_FROM, once read (GotSenderTweak)
};
ux_AddressState& ux_addresses();
void ux_reset_addresses();

// The first address of a line.
struct ux_SplitAddress {
    std::ptrdiff_t advance = -1;  // characters of the line to the next address; -1: the line is empty
    std::string text;             // the address as it stands, its quotes repaired, without the comma
    // Offsets in `text`; npos: none.
    std::size_t ppGroupSeparator = std::string::npos;   // of the last ":"
    std::size_t ppGroupTerminator = std::string::npos;  // of the first ";" behind it
};
// Splits the first address off a line. A quoted string that ends in two backslashes without a "<" after it is taken to
// go on: mailers that double the backslash of an escaped quote write that. One backslash goes then.
ux_SplitAddress splitAddresses(std::string_view line);

namespace ux {

// An address while it is being read: what may be needed of it is held, the rest counted.
class AddressPiece {
public:
    static constexpr std::size_t kHeld = 2048;      // of a mailbox; a longer one is too long, and this much is logged
    static constexpr std::size_t kNameHeld = 1280;  // of what stands before its ":"
    static constexpr std::size_t kBlanksHeld = 64;  // of the blanks before it
    static constexpr std::size_t kNone = std::string::npos;

    explicit AddressPiece(bool hold_all = false) : hold_all_(hold_all) {}
    void clear();
    void append(std::string_view run);
    void separator();   // the ":" that has just been appended
    void terminator();  // the ";" that comes next
    // Remembers that the byte that comes next is the backslash that repair() would delete.
    void mark() { mark_ = full() ? kNone : text_.size(); }
    void repair();

    // The address: a view of the mailbox, or the empty group's name with ":;" (made in place); trimmed.
    std::string_view address();
    bool too_long() const;

    const std::string& text() const { return text_; }
    std::size_t separator_at() const { return has_separator_ ? mailbox_ - 1 : kNone; }
    std::size_t terminator_at() const { return has_terminator_ ? terminator_ : kNone; }

private:
    bool full() const { return !hold_all_ && text_.size() - mailbox_ >= kHeld + kBlanksHeld; }
    bool empty_group() const { return has_separator_ && has_terminator_ && terminator_end_ == 0; }
    std::size_t length() const { return (has_terminator_ ? terminator_end_ : end_) - begin_; }

    const bool hold_all_;
    std::string text_;
    std::size_t mailbox_ = 0;         // where the mailbox begins in text_
    std::size_t counted_ = 0;         // bytes of the mailbox, those not held included
    std::size_t begin_ = 0;           // its first byte that is no blank
    std::size_t end_ = 0;             // behind its last one; 0: it is blank so far
    std::size_t terminator_ = 0;      // where the ";" stands in text_
    std::size_t terminator_end_ = 0;  // end_ at the ";"
    std::size_t mark_ = kNone;
    bool has_separator_ = false, has_terminator_ = false, name_cut_ = false;
};

// Finds the ends of addresses. Text may come in any pieces: nothing is looked at twice.
class AddressScanner {
public:
    // Reads on into `piece` until an address has ended (then ended()) or the text has; gives where it stopped.
    const char* scan(const char* at, const char* end, AddressPiece& piece);
    // The text is at its end. True when there was an address.
    bool close(AddressPiece& piece);
    bool ended() const { return state_ == State::between; }
    void next() { state_ = State::gap; }

private:
    enum class State {
        text,
        quoted,
        backslash,        // in a quoted string, behind a backslash
        two_backslashes,  // behind a pair of them
        doubtful_quote,   // behind a pair and a quote: what follows tells whether the string has ended
        comment,
        between,  // an address has just ended
        gap,      // in the commas and blanks behind it
    };
    void step(char c, AddressPiece& piece);
    void text_step(char c, AddressPiece& piece);

    State state_ = State::text;
    std::size_t depth_ = 0;  // of comments
};

}  // namespace ux

// Where the addresses of a list go.
struct ux_ArpaListTarget {
    tf_File& TfHandle;        // main transfer file
    tf_File& DLHandle;        // distribution-list file
    std::int32_t NameTFRec;   // record type: 22000 From, 22100 To, 22200 Cc, 22300 Bcc, 22430 Sender, 22440 Reply-To
    bool WrapMainTfRecs;      // records of the main file (15000) are wrapped
    std::string& pFirstFrom;  // the first From address, when it is still empty
    std::string& pSender;     // the first Sender address, likewise
};

// Converts a list that comes in pieces, for example a folded field line by line: feed() any number of times, then
// finish(). Every address that has a native name makes a record and sets the category of the recipient of that name;
// with UXI_SUPPRESS_SENDER_FROM the first From that equals the envelope sender makes none. Raises what writing records,
// the configuration and the directory raise. While lines of level 12 are written, the list is held to be logged whole.
class ux_ArpaListParser {
public:
    explicit ux_ArpaListParser(const ux_ArpaListTarget& target) : target_(target) {}
    void feed(std::string_view text);
    void finish();

private:
    void scan(std::string_view text);
    void convert();
    bool suppressed(const std::string& ORName);
    void write(const std::string& ORName);

    er_Trace trace_{"ux_InParseArpaList"};
    ux_ArpaListTarget target_;
    ux::AddressScanner scanner_;
    ux::AddressPiece piece_;
    std::string list_;  // only while it is to be logged
    std::string address_, ORName_;
    tf_Record TfRecord_;
};

// Converts a whole list.
void ux_InParseArpaList(std::string_view pArpaORNList, const ux_ArpaListTarget& target);
