// Uuencoded items in plain bodies: see uudecode.h. Lines are decoded from the reader's buffer into the item's.
#include "ux_in/uudecode.h"

#include "er/er.h"
#include "mim/uu_line.h"

namespace {

constexpr int kBeginLineSeen = 1519;
constexpr std::size_t kLoggedLineLimit = 1024;

// Appends a line's bytes to the item; returns how many they are.
std::size_t append_line(std::string_view line, im_Item& item) {
    const std::size_t count = mim_uu_decode_line(line, item.room(kUuRoom));
    item.advance(count);
    return count;
}

// The length of the full line at the front of `text`, its line end included: "M", sixty characters none of which is a
// NUL or part of the line end, and LF or CR LF. 0: what stands there is anything else.
std::size_t full_line(std::string_view text) {
    constexpr std::size_t characters = 1 + kUuFullLine / 3 * 4;
    if (!text.starts_with('M')) return 0;
    const std::size_t line_feed = text.substr(0, characters + 2).find('\n');
    if (line_feed == std::string_view::npos || line_feed < characters) return 0;
    if (line_feed > characters && text[characters] != '\r') return 0;
    const std::string_view line = text.substr(0, characters);
    return line.ends_with('\r') || line.find('\0') != std::string_view::npos ? 0 : line_feed + 1;
}

// The closing line of an item. Read as data it would be five bytes.
bool closes_item(const ux_MailText& line) { return line.at_start && line.whole && line.text == "end"; }

}  // namespace

std::size_t ux::append_full_uu_lines(ux_LineReader& input, im_Item& item, std::size_t most) {
    std::string_view ahead = input.lines_ahead();
    const std::size_t ready = ahead.size();
    std::size_t lines = 0;
    while (lines < most) {
        const std::size_t length = full_line(ahead);
        if (length == 0) break;
        append_line(ahead.substr(0, 1 + kUuFullLine / 3 * 4), item);
        ahead.remove_prefix(length);
        ++lines;
    }
    input.take_lines(ready - ahead.size());
    return lines;
}

std::optional<std::string> ux_InIsUuencodeMarker(std::string_view pTextLine) {
    const er_Trace trace("ux_InIsUuencodeMarker");
    if (!mim_uu_is_begin(pTextLine)) return std::nullopt;
    er_LogMsg(11, kGatewayGroup, kBeginLineSeen, pTextLine.substr(0, kLoggedLineLimit));
    const std::size_t mode = pTextLine.find(' ') + 1;
    const std::size_t blank = pTextLine.find(' ', mode);  // whatever stands before it, a longer mode say, is skipped
    return std::string(blank == std::string_view::npos ? std::string_view()
                                                       : pTextLine.substr(blank + 1, kUuencodedNameLimit));
}

im_Item ux_InUudecodeItem(ux_LineReader& pEncodedMsg, bool& pEndOfMsg) {
    const er_Trace trace("ux_InUudecodeItem");
    im_Item item = im_CrNewDataItem();
    for (;;) {
        ux::append_full_uu_lines(pEncodedMsg, item, ux::kAnyNumber);
        const ux_MailText line = pEncodedMsg.text(kUuencodedLineLimit);
        if (line.is_end) {
            pEndOfMsg = true;
            return item;
        }
        if (closes_item(line)) {
            pEncodedMsg.unread();
            return item;
        }
        if (append_line(line.unstuffed(), item) != kUuFullLine) return item;
    }
}
