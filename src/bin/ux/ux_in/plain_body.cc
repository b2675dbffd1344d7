// Plain bodies. Lines are text until a "begin" line opens a uuencoded item; the item is decoded where it stands, and
// text after it starts a new part. Mailers close an item with lines that are no text of anybody: "end" right after it,
// and then a blank line, are dropped.
#include "ux_in/plain_body.h"

#include <optional>
#include <string>
#include <utility>

#include "cust/cust.h"
#include "er/er.h"
#include "ux_in/body_part.h"
#include "ux_in/charsets.h"
#include "ux_in/lines.h"
#include "ux_in/part_info.h"
#include "ux_in/uudecode.h"
#include "ux_mimein/subjects.h"

namespace {

constexpr std::string_view kBeginWord = "begin ";
constexpr int kUuencodedItemFound = 1513;

// One body on its way into parts.
class PlainBody {
public:
    explicit PlainBody(const ux_UnixMsgContent& content);
    void convert();

private:
    bool drop_line(const ux_MailText& line);
    std::optional<std::string> item_name(const ux_MailText& line);
    void next_info();
    void take_item(const std::string& RawItemSubject);
    void take_text(const ux_MailText& line);
    void take_ordinary_lines();
    bool is_ordinary(std::string_view line) const;
    void open_text();
    void close_text(bool more_parts);
    void attach(ux_ContentItem& part, std::string_view subject);

    const ux_UnixMsgContent& content_;
    const std::string& FromCharSet_;
    ux_PartInfo info_;                      // of the next part, with the conversion of its text
    std::optional<std::string> stop_text_;  // a line that begins with it ends uudecoding
    bool uudecode_;
    bool Skip1EndLine_ = false;
    bool Skip1BlankLine_ = false;
    bool UudecodeEventLogged_ = false;
    int PartCount_ = 0;

    ux::TextPart text_;  // the open text part, or none
};

PlainBody::PlainBody(const ux_UnixMsgContent& content)
    : content_(content), FromCharSet_(ux_charsets().FromCharSet), uudecode_(content.UudecodeMsg) {
    if (uudecode_) {
        info_ = ux_InGetNextPartInfo(content.pEncoding);
        stop_text_ = cust_GetCustomiseInfo("UXI_NO_UUDECODE_STRING");
        if (stop_text_ && stop_text_->empty()) stop_text_.reset();  // an empty text marks no line
        return;
    }
    std::string set = FromCharSet_;
    ux_FileConvDetails details = ux_InGetFileConvDetails(kPlainText, set, true);
    info_.DoConv = !details.applies;
    info_.ToTextCS = std::move(details.OutCharSet);
}

void PlainBody::convert() {
    while (!content_.EndOfMsg) {
        take_ordinary_lines();
        const ux_MailText line = ux_InReadMailText();
        if (line.is_end) {
            content_.EndOfMsg = true;
        } else if (line.at_start && drop_line(line)) {
            continue;
        } else if (const auto name = item_name(line)) {
            take_item(*name);
        } else {
            take_text(line);
        }
    }
    if (!text_.is_open() && PartCount_ == 0) open_text();
    if (text_.is_open()) close_text(false);
}

// The blank line is dropped even when the line between it and the item was not "end": some encoders leave "end" out.
bool PlainBody::drop_line(const ux_MailText& line) {
    if (Skip1EndLine_) {
        Skip1EndLine_ = false;
        Skip1BlankLine_ = true;
        return line.whole && line.text == "end";
    }
    return std::exchange(Skip1BlankLine_, false) && line.is_blank();
}

// The name of the item that the line opens. A begin line longer than a piece is read to its end: it is one line, and
// what is beyond the bound of the name is cut off.
std::optional<std::string> PlainBody::item_name(const ux_MailText& line) {
    if (!uudecode_ || !line.at_start) return std::nullopt;
    if (stop_text_ && line.text.starts_with(*stop_text_)) {
        uudecode_ = false;
        return std::nullopt;
    }
    if (!line.text.starts_with(kBeginWord)) return std::nullopt;
    std::optional<std::string> name = ux_InIsUuencodeMarker(line.text);
    if (name)
        for (bool whole = line.whole; !whole;) whole = ux_InReadMailText().whole;
    return name;
}

// An empty entry says nothing about its part, but the list goes on behind it.
void PlainBody::next_info() {
    if (info_.listed) info_ = ux_InGetNextPartInfo(std::nullopt);
}

void PlainBody::take_item(const std::string& RawItemSubject) {
    if (text_.is_open()) close_text(true);
    if (!std::exchange(UudecodeEventLogged_, true)) er_LogMsg(9, kGatewayGroup, kUuencodedItemFound);

    ux_ContentItem part;
    part.item = ux_InUudecodeItem(ux_Input(), content_.EndOfMsg);
    if (info_.found) {
        part.FileType = info_.Filecode;
        part.CharSet = info_.CharSet;
    }
    next_info();
    if (ux::convert_part(part, false)) attach(part, ux_InBuildMimeSubject(RawItemSubject));
    Skip1EndLine_ = true;
    Skip1BlankLine_ = false;
}

// A line that is stored as it stands: no dot and no word at its start means something.
bool PlainBody::is_ordinary(std::string_view line) const {
    if (line.starts_with('.')) return false;
    if (!uudecode_) return true;
    return !line.starts_with(kBeginWord) && !(stop_text_ && line.starts_with(*stop_text_));
}

// Most text needs no look at its pieces one by one.
void PlainBody::take_ordinary_lines() {
    if (Skip1EndLine_ || Skip1BlankLine_) return;
    text_.append_ready(ux_Input(), ux::kAnyNumber, [this](std::string_view line) { return is_ordinary(line); });
}

void PlainBody::take_text(const ux_MailText& line) {
    if (!text_.is_open()) open_text();
    text_.append(line);
}

void PlainBody::open_text() { text_.open(FromCharSet_, info_.ToTextCS, info_.DoConv); }

void PlainBody::close_text(bool more_parts) {
    ux_ContentItem part;
    const bool AsciiFile = text_.ascii();
    part.item = text_.close();
    part.FileType = kPlainText;
    part.CharSet = info_.DoConv ? info_.ToTextCS : FromCharSet_;
    if (info_.found) {
        part.FileType = info_.Filecode;
        if (!info_.DoConv && !info_.CharSet.empty()) part.CharSet = info_.CharSet;
    }
    if (more_parts) next_info();
    if (ux::convert_part(part, AsciiFile)) attach(part, content_.pParentRfc2047subject);
}

void PlainBody::attach(ux_ContentItem& part, std::string_view subject) {
    ux::attach_part(content_.TfHandle, content_.MsgHandle, part, subject);
    ++PartCount_;
}

}  // namespace

void ux_InParseUnixMsgContent(const ux_UnixMsgContent& content) {
    const er_Trace trace("ux_InParseUnixMsgContent");
    PlainBody(content).convert();
}
