// The reader of the dialogue: whatever the limit of a piece, the pieces of a line are that line, nothing is lost or
// made up, the text ends at its end line and nowhere else, and the command after it is the next line.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "er/er.h"
#include "ux_in/lines.h"

namespace {

void require(bool held) {
    if (!held) std::abort();
}

int file_of(std::string_view data) {
    const int fd = ::memfd_create("dialogue", MFD_CLOEXEC);
    require(fd >= 0 && ::write(fd, data.data(), data.size()) == static_cast<ssize_t>(data.size()));
    ::lseek(fd, 0, SEEK_SET);
    return fd;
}

struct Line {
    std::string text;      // without its line end
    std::size_t size = 0;  // with it
};

// The next line of the input; nothing when the input ends first.
std::optional<Line> take_line(std::string_view& rest) {
    const std::size_t line_feed = rest.find('\n');
    if (line_feed == rest.npos) return std::nullopt;
    Line line{std::string(rest.substr(0, line_feed)), line_feed + 1};
    rest.remove_prefix(line.size);
    while (line.text.ends_with('\r')) line.text.pop_back();
    std::replace(line.text.begin(), line.text.end(), '\0', ' ');
    return line;
}

// The line that the reader gives piece by piece; nothing at the end of input.
std::optional<std::string> read_line(ux_LineReader& reader, std::size_t limit, bool& is_end) {
    std::string line;
    for (bool first = true;; first = false) {
        ux_MailText piece;
        try {
            piece = reader.text(limit);
        } catch (const er_Escape& escape) {
            require(escape.group() == kGatewayGroup && escape.reason() == 1401 && !reader.text_open());
            return std::nullopt;
        }
        require(piece.text.size() + (piece.whole ? 1 : 0) <= limit);
        require(piece.at_start == first);
        require(piece.text.find('\n') == std::string_view::npos && piece.text.find('\0') == std::string_view::npos);
        require(piece.is_blank() == (piece.whole && piece.text.empty()));
        line += piece.text;
        is_end = piece.is_end;
        require(!is_end || (first && piece.whole && piece.text == "."));
        if (piece.whole) return line;
    }
}

void check_command(ux_LineReader& reader, std::string_view rest) {
    try {
        const ux_CommandLine command = reader.command();
        require(!rest.empty() && command.text.size() <= kCommandLineLimit);
        const std::optional<Line> line = take_line(rest);
        if (!line) return;  // the last one, without a line end
        require(command.too_long == (line->text.size() > kCommandLineLimit));
        require(command.text == std::string_view(line->text).substr(0, kCommandLineLimit));
    } catch (const er_Escape& escape) {
        require(rest.empty() && escape.reason() == 1402);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    constexpr std::size_t limits[] = {kTextLineLimit, kTextLineLimit - 1, 61, 7, 3, 2};
    const std::size_t limit = limits[data[0] % std::size(limits)];
    std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    const int fd = file_of(rest);
    ux_LineReader reader(fd);
    reader.begin_text();
    for (bool is_end = false; !is_end;) {
        const std::optional<std::string> line = read_line(reader, limit, is_end);
        const std::optional<Line> expected = take_line(rest);
        require(line.has_value() == expected.has_value());
        if (!line) break;
        require(*line == expected->text);
        // More CRs than a piece can hold are no line end of a dot any more.
        require(is_end == (*line == "." && expected->size <= limit));
        if (is_end) check_command(reader, rest);
    }
    ::close(fd);
    return 0;
}
