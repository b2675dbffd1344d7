// Plain bodies. Lines are text until a "begin" line opens a uuencoded item; the item is decoded where it stands, and
// text after it starts a new part. Mailers close an item with lines that are no text of anybody: "end" right after it,
// and then a blank line, are dropped.
#include "ux_in/plain_body.h"

#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "cust/cust.h"
#include "er/er.h"
#include "ux_in/charsets.h"
#include "ux_in/lines.h"
#include "ux_in/part_info.h"
#include "ux_in/records.h"
#include "ux_in/uudecode.h"
#include "ux_mimein/subjects.h"

namespace {

constexpr std::string_view kBeginWord = "begin ";
constexpr std::size_t kOrdinaryWindow = 8192;
constexpr int kTextNotWritten = 1412;
constexpr int kUuencodedItemFound = 1513;
constexpr int kTextPartMade = 1520;
constexpr int kPartThrownAway = 1527;

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
    std::size_t store_lines(std::string_view ahead);
    std::string_view converted(std::string_view text, bool whole);
    void append_text(std::string_view text, bool line_end);
    void open_text();
    void close_text(bool more_parts);
    bool convert_part(ux_ContentItem& part, bool AsciiFile);
    void attach_part(ux_ContentItem& part, std::string_view subject);

    const ux_UnixMsgContent& content_;
    const std::string& FromCharSet_;
    ux_PartInfo info_;                      // of the next part, with the conversion of its text
    std::optional<std::string> stop_text_;  // a line that begins with it ends uudecoding
    bool uudecode_;
    bool Skip1EndLine_ = false;
    bool Skip1BlankLine_ = false;
    bool UudecodeEventLogged_ = false;
    int PartCount_ = 0;

    im_Item text_;  // the open text part, or none
    bool AsciiSoFar_ = true;
    bool convert_lines_ = false;  // lines of the open text part can change by conversion
    std::string line_, converted_;
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
    if (!text_ && PartCount_ == 0) open_text();
    if (text_) close_text(false);
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
    if (text_) close_text(true);
    if (!std::exchange(UudecodeEventLogged_, true)) er_LogMsg(9, kGatewayGroup, kUuencodedItemFound);

    ux_ContentItem part;
    part.item = ux_InUudecodeItem(ux_Input(), content_.EndOfMsg);
    if (info_.found) {
        part.FileType = info_.Filecode;
        part.CharSet = info_.CharSet;
    }
    next_info();
    if (convert_part(part, false)) attach_part(part, ux_InBuildMimeSubject(RawItemSubject));
    Skip1EndLine_ = true;
    Skip1BlankLine_ = false;
}

// A line that is stored as it stands: no dot and no word at its start means something.
bool PlainBody::is_ordinary(std::string_view line) const {
    if (line.starts_with('.')) return false;
    if (!uudecode_) return true;
    return !line.starts_with(kBeginWord) && !(stop_text_ && line.starts_with(*stop_text_));
}

// Stores the ordinary lines at the front of `ahead` and returns how many bytes they were, line ends included.
std::size_t PlainBody::store_lines(std::string_view ahead) {
    std::size_t taken = 0;
    for (;;) {
        const std::string_view rest = ahead.substr(taken);
        const std::size_t line_feed = rest.find('\n');
        if (line_feed == std::string_view::npos || !is_ordinary(rest)) return taken;
        std::string_view line = rest.substr(0, line_feed);
        while (line.ends_with('\r')) line.remove_suffix(1);
        append_text(line, true);
        taken += line_feed + 1;
    }
}

// Most text needs no look at its pieces one by one: its lines go from the reader's buffer into the item's. A window at
// a time, because what stops us in it (a NUL, a line that means something) is looked at again with the next line.
void PlainBody::take_ordinary_lines() {
    if (!text_ || convert_lines_ || Skip1EndLine_ || Skip1BlankLine_) return;
    ux_LineReader& input = ux_Input();
    for (;;) {
        std::string_view window = input.lines_ahead().substr(0, kOrdinaryWindow);
        window = window.substr(0, window.find('\0'));
        const std::size_t taken = store_lines(window);
        if (taken == 0) return;
        AsciiSoFar_ = AsciiSoFar_ && ccs_Is7BitAscii(window.substr(0, taken));
        input.take_lines(taken);
    }
}

void PlainBody::take_text(const ux_MailText& line) {
    if (!text_) open_text();
    const std::string_view text = line.unstuffed();
    AsciiSoFar_ = AsciiSoFar_ && ccs_Is7BitAscii(text);
    if (convert_lines_)
        append_text(converted(text, line.whole), false);
    else
        append_text(text, line.whole);
}

// The line as it is to be written, its line end included; good until the next line.
std::string_view PlainBody::converted(std::string_view text, bool whole) {
    line_.assign(text);
    if (whole) line_ += '\n';
    return ux_InTextCharConverter(line_, FromCharSet_, info_.ToTextCS, converted_).value_or(line_);
}

void PlainBody::append_text(std::string_view text, bool line_end) {
    try {
        char* const room = text_.room(text.size() + 1);
        std::memcpy(room, text.data(), text.size());
        room[text.size()] = '\n';
        text_.advance(text.size() + (line_end ? 1 : 0));
    } catch (const er_Escape& escape) {
        er_TracedEscape(kGatewayGroup, kTextNotWritten, escape.what());
    }
}

// Whether lines can change at all is the same for every line of a part.
void PlainBody::open_text() {
    text_ = ux_InCreateTextPart();
    convert_lines_ = info_.DoConv && !info_.ToTextCS.empty() && FromCharSet_ != "IA5" && FromCharSet_ != info_.ToTextCS;
}

void PlainBody::close_text(bool more_parts) {
    ux_ContentItem part;
    part.item = std::move(text_);
    part.FileType = kPlainText;
    part.CharSet = info_.DoConv ? info_.ToTextCS : FromCharSet_;
    if (info_.found) {
        part.FileType = info_.Filecode;
        if (!info_.DoConv && !info_.CharSet.empty()) part.CharSet = info_.CharSet;
    }
    if (more_parts) next_info();
    if (convert_part(part, std::exchange(AsciiSoFar_, true))) attach_part(part, content_.pParentRfc2047subject);
}

// False when the part is thrown away.
bool PlainBody::convert_part(ux_ContentItem& part, bool AsciiFile) {
    ux_InConvertContentItem(part, AsciiFile);
    if (!part.Trash) return true;
    part.item.unlink();
    er_LogMsg(9, kGatewayGroup, kPartThrownAway, part.FileType);
    return false;
}

void PlainBody::attach_part(ux_ContentItem& part, std::string_view subject) {
    TFREC_content_file file;
    tf_initTFREC_content_file(file, part.FileType);
    file.fileSize = ux::file_size_field(part.item.size());
    file.rfc2047subject = subject;
    file.pContentCharset = part.CharSet;
    tf_Record record;
    tf_ContentFileRecFromStruc(record, file);
    tf_AppendRecord(content_.TfHandle, record);
    Msg_AttachFile(content_.MsgHandle, std::move(part.item));
    ++PartCount_;
}

}  // namespace

im_Item ux_InCreateTextPart() {
    const er_Trace trace("ux_InCreateTextPart");
    im_Item item = im_CrNewDataItem();
    er_LogMsg(11, kGatewayGroup, kTextPartMade);
    return item;
}

void ux_InParseUnixMsgContent(const ux_UnixMsgContent& content) {
    const er_Trace trace("ux_InParseUnixMsgContent");
    PlainBody(content).convert();
}
