// Parts of RFC 1154 bodies: see rfc1154_parts.h.
#include "ux_uuin/rfc1154_parts.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "er/er.h"
#include "mim/uu_line.h"
#include "ux_in/body_part.h"
#include "ux_in/charsets.h"
#include "ux_in/lines.h"
#include "ux_in/uudecode.h"
#include "ux_mimein/subjects.h"

namespace {

constexpr int kUuLineShort = 1532;
constexpr int kHexLineOdd = 1533;

std::string_view unstuffed(std::string_view line) { return line.starts_with("..") ? line.substr(1) : line; }

// The lines of one part, piece by piece.
class PartLines {
public:
    explicit PartLines(const ux_Rfc1154Part& part)
        : EndOfMsg_(part.EndOfMsg), left_(part.MaxLines < 0 ? ux::kAnyNumber : part.MaxLines) {}

    // The next piece; nothing at the end of the part.
    std::optional<ux_MailText> next(bool raw = false) {
        if (EndOfMsg_ || (left_ == 0 && whole_)) return std::nullopt;
        const ux_MailText piece = raw ? ux_Input().raw_text() : ux_InReadMailText();
        EndOfMsg_ = piece.is_end;
        if (EndOfMsg_) return std::nullopt;
        if (piece.at_start && left_ != ux::kAnyNumber) --left_;
        whole_ = piece.whole;
        return piece;
    }
    std::size_t left() const { return left_; }
    void took(std::size_t lines) {  // whole ones, from the reader's buffer
        if (left_ != ux::kAnyNumber) left_ -= lines;
    }
    void finish_line() {
        while (!whole_) next();
    }

private:
    bool& EndOfMsg_;
    std::size_t left_;
    bool whole_ = true;
};

void attach_binary(const ux_Rfc1154Part& part, im_Item item, std::string_view subject, std::string_view file_name) {
    ux_ContentItem content;
    content.item = std::move(item);
    ux::attach_part(part.TfHandle, part.MsgHandle, content, subject, file_name);
}

// Pairs of characters to bytes. False: one is left over.
bool append_hex(std::string_view digits, im_Item& item) {
    if (digits.size() % 2 != 0) {
        er_LogMsg(7, kGatewayGroup, kHexLineOdd);
        return false;
    }
    char* const room = item.room(digits.size() / 2);
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
        room[i / 2] = static_cast<char>((digits[i] & 0x0F) << 4 | (digits[i + 1] & 0x0F));
    item.advance(digits.size() / 2);
    return true;
}

// Lines of hexadecimal data; those that are longer than a piece are put together at their cuts. Of a line that fails
// nothing is kept.
class HexItem {
public:
    bool take(const ux_MailText& piece) {
        if (piece.at_start && piece.whole) return ux_InDecodeHexLine(piece.text, item_);
        if (piece.at_start) line_ = item_.size();
        digits_.append(piece.unstuffed());
        const std::size_t ready = piece.whole ? digits_.size() : digits_.size() / 2 * 2;
        const bool decoded = append_hex(std::string_view(digits_).substr(0, ready), item_);
        digits_.erase(0, ready);
        if (!decoded) item_.truncate(line_);
        return decoded;
    }
    im_Item close() { return std::move(item_); }

private:
    im_Item item_ = im_CrNewDataItem();
    std::string digits_;      // of a line that has not ended, not decoded yet
    std::uint64_t line_ = 0;  // where its bytes begin
};

// The third word of a begin line.
std::string name_of(std::string_view begin_line) {
    std::string_view rest = StripCrNl(begin_line);
    for (int word = 1;; ++word) {
        rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
        const std::string_view taken = rest.substr(0, rest.find(' '));
        if (word == 3 || taken.empty()) return std::string(taken);
        rest.remove_prefix(taken.size());
    }
}

// The name on the part's begin line; nothing when it has no such line.
std::optional<std::string> skip_to_begin(PartLines& lines) {
    while (const auto piece = lines.next()) {
        if (!piece->at_start || !piece->text.starts_with("begin")) continue;
        std::string name = name_of(piece->text);
        lines.finish_line();
        return name;
    }
    return std::nullopt;
}

// What a line has beyond a piece is beyond any count.
bool decode_item(PartLines& lines, im_Item& item) {
    for (;;) {
        lines.took(ux::append_full_uu_lines(ux_Input(), item, lines.left()));
        const auto piece = lines.next();
        if (!piece) return true;
        if (!piece->at_start) continue;
        const bool ends = piece->text.starts_with("end");
        const bool decoded = ends || ux_InDecodeUUEncodedLine(piece->text, item);
        if (!ends && decoded) continue;
        lines.finish_line();
        return decoded;
    }
}

}  // namespace

bool ux_InDecodeHexLine(std::string_view pTextLine, im_Item& pStream) {
    const er_Trace trace("ux_InDecodeHexLine");
    return append_hex(unstuffed(pTextLine), pStream);
}

// A line without any character stands for no bytes.
bool ux_InDecodeUUEncodedLine(std::string_view pTextLine, im_Item& pStream) {
    const er_Trace trace("ux_InDecodeUUEncodedLine");
    const std::string_view line = unstuffed(pTextLine);
    const std::size_t count = mim_uu_decode_line(line, pStream.room(kUuRoom));
    if (count > 0 && line.size() - 1 < count) {
        er_LogMsg(7, kGatewayGroup, kUuLineShort);
        return false;
    }
    pStream.advance(count);
    return true;
}

bool ux_InParseRfc1154HexFile(const ux_Rfc1154Part& part) {
    const er_Trace trace("ux_InParseRfc1154HexFile");
    HexItem hex;
    PartLines lines(part);
    bool decoded = true;
    while (decoded) {
        const auto piece = lines.next();
        if (!piece) break;
        decoded = hex.take(*piece);
    }
    lines.finish_line();
    attach_binary(part, hex.close(), part.pRfc2047subject, {});
    return decoded;
}

bool ux_InParseRfc1154UUEncode(const ux_Rfc1154Part& part) {
    const er_Trace trace("ux_InParseRfc1154UUEncode");
    im_Item item = im_CrNewDataItem();
    PartLines lines(part);
    const std::optional<std::string> begun = skip_to_begin(lines);
    const bool decoded = !begun || decode_item(lines, item);
    const std::string name = begun.value_or("");
    attach_binary(part, std::move(item), name.empty() ? std::string(part.pRfc2047subject) : ux_InBuildMimeSubject(name),
                  name);
    return decoded;
}

bool ux_InParseRfc1154Text(const ux_Rfc1154Part& part, std::string_view pFromCharSet) {
    const er_Trace trace("ux_InParseRfc1154Text");
    std::string set(pFromCharSet);
    const ux_FileConvDetails details = ux_InGetFileConvDetails(kPlainText, set, true);
    const bool DoConv = !details.applies;
    const auto is_ordinary = [](std::string_view line) { return !line.starts_with('.'); };

    ux::TextPart text;
    text.open(pFromCharSet, details.OutCharSet, DoConv);
    PartLines lines(part);
    for (;;) {
        lines.took(text.append_ready(ux_Input(), lines.left(), is_ordinary));
        const auto piece = lines.next();
        if (!piece) break;
        text.append(*piece);
    }
    ux_ContentItem content;
    content.item = text.close();
    content.FileType = kPlainText;
    content.CharSet = DoConv ? details.OutCharSet : std::string(pFromCharSet);
    if (ux::convert_part(content, text.ascii()))
        ux::attach_part(part.TfHandle, part.MsgHandle, content, part.pRfc2047subject);
    return true;
}

void ux::keep_rfc1154_message(const ux_Rfc1154Part& part) {
    im_Item item = im_CrNewDataItem();
    PartLines lines(part);
    while (const auto piece = lines.next(true)) {
        item.write(piece->unstuffed());
        for (std::size_t i = 0; i < piece->returns; ++i) item.write('\r');
        if (piece->whole) item.write('\n');
    }
    attach_binary(part, std::move(item), part.pRfc2047subject, {});
}
