// What the tool writes, and how it must look where it is read: whether the terminal understands UTF-8 and colour, and
// the rule that nothing from mail reaches it unfiltered. Text from mail always passes through harmless().
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace morvane {

// Collects output and writes it in large blocks, to a descriptor or, for tests, into a text.
class Printer {
public:
    explicit Printer(int fd) : fd_(fd) {}
    explicit Printer(std::string& capture) : capture_(&capture) {}
    Printer(const Printer&) = delete;
    Printer& operator=(const Printer&) = delete;
    ~Printer();  // writes what is left; swallows failures, so flush() first where they matter

    Printer& operator<<(std::string_view text);
    Printer& operator<<(char byte) { return *this << std::string_view(&byte, 1); }
    Printer& operator<<(std::uint64_t number) { return *this << std::string_view(std::to_string(number)); }
    void flush();  // raises when it cannot be written

private:
    int fd_ = -1;
    std::string* capture_ = nullptr;
    std::string pending_;
};

enum class Ink : std::uint8_t { label, faint, good, warning, damage };

// What the reader's terminal can show.
struct Screen {
    bool utf8 = false;
    bool colour = false;

    // `text` in a colour, or as it is.
    std::string paint(Ink ink, std::string_view text) const;
    std::string_view dot() const { return utf8 ? " · " : ", "; }
    std::string_view ellipsis() const { return utf8 ? "…" : "..."; }
};

// For descriptor `fd`: UTF-8 after the locale (LC_ALL, LC_CTYPE, LANG); colour on a terminal, unless $NO_COLOR is set
// or the terminal is dumb.
Screen screen_of(int fd);

// `text` for a terminal: control characters, bytes that are no UTF-8, C1 controls and the marks that reorder or break
// lines become \xNN or \u{NNNN}, a tab a blank. Where the screen has no UTF-8, every other character outside
// ASCII is "?".
std::string harmless(std::string_view text, const Screen& screen);

// The first `limit` characters of harmless UTF-8 text, with an ellipsis when there are more.
std::string shorten(std::string_view text, std::size_t limit, const Screen& screen);
std::size_t width_of(std::string_view utf8);  // in characters

// "412 bytes", "1.2 KiB", "3.4 GiB".
std::string human_size(std::uint64_t bytes);
// "1 file", "3 files"; 1234567 is "1,234,567".
std::string counted(std::uint64_t number, std::string_view one, std::string_view many);
std::string with_commas(std::uint64_t number);

}  // namespace morvane
