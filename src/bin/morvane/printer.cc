// Output: see printer.h.
#include "morvane/printer.h"

#include <langinfo.h>
#include <unistd.h>

#include <array>
#include <clocale>
#include <cstdio>
#include <cstdlib>

#include "er/er.h"
#include "os/os.h"

namespace morvane {
namespace {

constexpr std::size_t kBlock = std::size_t{64} << 10;

std::string code_point(unsigned value) {
    std::array<char, 16> text{};
    const int length = std::snprintf(text.data(), text.size(), "\\u{%X}", value);
    return {text.data(), static_cast<std::size_t>(length)};
}

// Decodes the character at the start of valid UTF-8 text.
struct Character {
    unsigned value;
    std::size_t length;
};
Character first_character(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned lead = byte(0);
    if (lead < 0x80) return {lead, 1};
    if (lead < 0xE0) return {(lead & 0x1F) << 6 | (byte(1) & 0x3Fu), 2};
    if (lead < 0xF0) return {(lead & 0x0F) << 12 | (byte(1) & 0x3Fu) << 6 | (byte(2) & 0x3Fu), 3};
    return {(lead & 0x07) << 18 | (byte(1) & 0x3Fu) << 12 | (byte(2) & 0x3Fu) << 6 | (byte(3) & 0x3Fu), 4};
}

// Characters that a terminal acts on, or that make text read otherwise than it is written: C1 controls (U+009B begins
// an escape sequence), line and paragraph separators, direction marks and overrides, the byte order mark.
bool is_treacherous(unsigned c) {
    return (c >= 0x80 && c <= 0x9F) || c == 0x61C || c == 0x200E || c == 0x200F || (c >= 0x2028 && c <= 0x202E) ||
           (c >= 0x2066 && c <= 0x2069) || c == 0xFEFF;
}

}  // namespace

Printer::~Printer() {
    er_TryIgnoring([this] { flush(); });
}

Printer& Printer::operator<<(std::string_view text) {
    pending_ += text;
    if (pending_.size() >= kBlock) flush();
    return *this;
}

void Printer::flush() {
    std::string ready;
    ready.swap(pending_);  // what failed once is not written again by the destructor
    if (capture_ != nullptr) {
        *capture_ += ready;
    } else {
        os_write_all(fd_, ready);
    }
    ready.clear();
    pending_.swap(ready);
}

std::string Screen::paint(Ink ink, std::string_view text) const {
    if (!colour || text.empty()) return std::string(text);
    constexpr std::array<std::string_view, 5> codes = {"1;36", "2", "32", "33", "1;31"};
    std::string out = "\x1B[";
    out += codes[static_cast<std::size_t>(ink)];
    out += 'm';
    out += text;
    return out + "\x1B[0m";
}

Screen screen_of(int fd) {
    Screen screen;
    std::setlocale(LC_CTYPE, "");
    screen.utf8 = std::string_view(::nl_langinfo(CODESET)) == "UTF-8";
    std::setlocale(LC_CTYPE, "C");
    const char* none = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    const bool dumb = terminal == nullptr || std::string_view(terminal) == "dumb";
    screen.colour = ::isatty(fd) == 1 && !dumb && (none == nullptr || *none == '\0');
    return screen;
}

std::string harmless(std::string_view text, const Screen& screen) {
    std::string spaced(text);
    for (char& byte : spaced)
        if (byte == '\t') byte = ' ';
    const std::string valid = er_Printable(spaced);
    std::string out;
    out.reserve(valid.size());
    for (std::string_view rest = valid; !rest.empty();) {
        const Character next = first_character(rest);
        if (is_treacherous(next.value)) {
            out += code_point(next.value);
        } else if (next.value >= 0x80 && !screen.utf8) {
            out += '?';
        } else {
            out += rest.substr(0, next.length);
        }
        rest.remove_prefix(next.length);
    }
    return out;
}

std::size_t width_of(std::string_view utf8) {
    std::size_t width = 0;
    for (const char byte : utf8)
        if ((static_cast<unsigned char>(byte) & 0xC0) != 0x80) ++width;
    return width;
}

std::string shorten(std::string_view text, std::size_t limit, const Screen& screen) {
    if (width_of(text) <= limit) return std::string(text);
    std::size_t characters = 0, end = 0;
    for (; end < text.size(); ++end)
        if ((static_cast<unsigned char>(text[end]) & 0xC0) != 0x80 && ++characters == limit) break;
    return std::string(text.substr(0, end)) + std::string(screen.ellipsis());
}

std::string human_size(std::uint64_t bytes) {
    if (bytes < 1024) return counted(bytes, "byte", "bytes");
    constexpr std::array<const char*, 6> units = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    double value = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    while (value >= 1023.95 && unit + 1 < units.size()) {
        value /= 1024;
        ++unit;
    }
    std::array<char, 32> text{};
    const int length = std::snprintf(text.data(), text.size(), "%.1f %s", value, units[unit]);
    return {text.data(), static_cast<std::size_t>(length)};
}

std::string with_commas(std::uint64_t number) {
    std::string digits = std::to_string(number);
    for (std::size_t at = digits.size(); at > 3; at -= 3) digits.insert(at - 3, 1, ',');
    return digits;
}

std::string counted(std::uint64_t number, std::string_view one, std::string_view many) {
    return with_commas(number) + ' ' + std::string(number == 1 ? one : many);
}

}  // namespace morvane
