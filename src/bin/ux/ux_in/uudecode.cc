// Uuencoded items in plain bodies: see uudecode.h. Lines are decoded from the reader's buffer into the item's.
#include "ux_in/uudecode.h"

#include <algorithm>

#include "er/er.h"
#include "mim/uu_line.h"

namespace {

constexpr int kBeginLineSeen = 1519;
constexpr std::size_t kLoggedLineLimit = 1024;
constexpr std::size_t kLinesAtOnce = 64;

// Appends a line's bytes to the item; returns how many they are.
std::size_t append_line(std::string_view line, im_Item& item) {
    const std::size_t count = mim_uu_decode_line(line, item.room(kUuRoom));
    item.advance(count);
    return count;
}

// The closing line of an item. Read as data it would be five bytes.
bool closes_item(const ux_MailText& line) { return line.at_start && line.whole && line.text == "end"; }

}  // namespace

std::size_t ux::append_full_uu_lines(ux_LineReader& input, im_Item& item, std::size_t most) {
    constexpr std::size_t shortest = 1 + kUuFullLine / 3 * 4 + 1;
    std::size_t lines = 0;
    for (;;) {
        const std::string_view ahead = input.lines_ahead();
        const std::size_t wanted = std::min({most - lines, kLinesAtOnce, ahead.size() / shortest});
        if (wanted == 0) return lines;
        char* const room = item.room(wanted * kUuFullLine + kUuLinesSlack);
        const mim_UuLines done = mim_uu_decode_full_lines(ahead, wanted, room);
        item.advance(done.lines * kUuFullLine);
        input.take_lines(done.length);
        lines += done.lines;
        if (done.lines < wanted) return lines;
    }
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
