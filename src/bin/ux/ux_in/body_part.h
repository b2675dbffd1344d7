// Body parts of messages that are not MIME: text that is collected line by line, and what becomes of a finished part.
#pragma once

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include "ccs/ccs.h"
#include "im/im.h"
#include "msg/msg.h"
#include "tf/file.h"
#include "ux_in/charsets.h"
#include "ux_in/lines.h"

namespace ux {

// A text part while it is being read. Its item has LF line ends.
class TextPart {
public:
    // Begins a part; with DoConv its lines are converted from FromCharSet to ToTextCS, those that can be.
    void open(std::string_view FromCharSet, std::string_view ToTextCS, bool DoConv);
    bool is_open() const { return static_cast<bool>(item_); }
    bool ascii() const { return ascii_; }  // every line so far is 7-bit

    // Appends a line or a piece of one, without a dot too many. Raises 102/1412 when it cannot be written.
    void append(const ux_MailText& line);
    // Most text needs no look at its pieces one by one: lines that lie ready in the reader's buffer go from there into
    // the item, at most `most` of them, up to the first that is not `is_ordinary` (a line may be asked about with what
    // follows it). Returns how many. Takes none while lines are converted.
    template <class IsOrdinary>
    std::size_t append_ready(ux_LineReader& input, std::size_t most, const IsOrdinary& is_ordinary);

    im_Item close();  // hands over the item

private:
    static constexpr std::size_t kWindow = 8192;

    std::string_view converted(std::string_view text, bool whole);
    void write(std::string_view text, bool line_end);

    im_Item item_;
    bool ascii_ = true;
    bool convert_ = false;  // lines can change by conversion
    std::string FromCharSet_, ToTextCS_;
    std::string line_, converted_;
};

// A window at a time, because what stops us in it (a NUL, a line that means something) is looked at again with the next
// line.
template <class IsOrdinary>
std::size_t TextPart::append_ready(ux_LineReader& input, std::size_t most, const IsOrdinary& is_ordinary) {
    std::size_t lines = 0;
    while (item_ && !convert_) {
        std::string_view window = input.lines_ahead().substr(0, kWindow);
        window = window.substr(0, window.find('\0'));
        std::size_t taken = 0;
        while (lines < most) {
            const std::string_view rest = window.substr(taken);
            const std::size_t line_feed = rest.find('\n');
            if (line_feed == std::string_view::npos || !is_ordinary(rest)) break;
            std::string_view line = rest.substr(0, line_feed);
            while (line.ends_with('\r')) line.remove_suffix(1);
            write(line, true);
            taken += line_feed + 1;
            ++lines;
        }
        if (taken == 0) break;
        ascii_ = ascii_ && ccs_Is7BitAscii(window.substr(0, taken));
        input.take_lines(taken);
    }
    return lines;
}

// Runs a finished part through the rules for types and sets; false when it is thrown away (1527).
bool convert_part(ux_ContentItem& part, bool AsciiFile);

// Writes the part's content-file record and attaches its item. `file_name`: pOrigFileName, when there is one.
void attach_part(tf_File& TfHandle, Msg_File& MsgHandle, ux_ContentItem& part, std::string_view subject,
                 std::string_view file_name = {});

}  // namespace ux

// A new data item for a text part. Logs 1520.
im_Item ux_InCreateTextPart();
