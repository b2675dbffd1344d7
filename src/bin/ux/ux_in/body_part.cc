// Body parts of messages that are not MIME: see body_part.h.
#include "ux_in/body_part.h"

#include <utility>

#include "er/er.h"
#include "ux_in/records.h"

namespace {

constexpr int kTextNotWritten = 1412;
constexpr int kTextPartMade = 1520;
constexpr int kPartThrownAway = 1527;

}  // namespace

namespace ux {

// Whether lines can change at all is the same for every line of a part.
void TextPart::open(std::string_view FromCharSet, std::string_view ToTextCS, bool DoConv) {
    item_ = ux_InCreateTextPart();
    ascii_ = true;
    FromCharSet_ = FromCharSet;
    ToTextCS_ = ToTextCS;
    convert_ = DoConv && !ToTextCS.empty() && FromCharSet != kAsciiSet && FromCharSet != ToTextCS;
}

im_Item TextPart::close() { return std::move(item_); }

void TextPart::append(const ux_MailText& line) {
    const std::string_view text = line.unstuffed();
    ascii_ = ascii_ && ccs_Is7BitAscii(text);
    if (convert_)
        write(converted(text, line.whole), false);
    else
        write(text, line.whole);
}

// The line as it is to be written, its line end included; good until the next line.
std::string_view TextPart::converted(std::string_view text, bool whole) {
    line_.assign(text);
    if (whole) line_ += '\n';
    return ux_InTextCharConverter(line_, FromCharSet_, ToTextCS_, converted_).value_or(line_);
}

void TextPart::write(std::string_view text, bool line_end) {
    try {
        char* const room = item_.room(text.size() + 1);
        std::memcpy(room, text.data(), text.size());
        room[text.size()] = '\n';
        item_.advance(text.size() + (line_end ? 1 : 0));
    } catch (const er_Escape& escape) {
        er_TracedEscape(kGatewayGroup, kTextNotWritten, escape.what());
    }
}

bool convert_part(ux_ContentItem& part, bool AsciiFile) {
    ux_InConvertContentItem(part, AsciiFile);
    if (!part.Trash) return true;
    part.item.unlink();
    er_LogMsg(9, kGatewayGroup, kPartThrownAway, part.FileType);
    return false;
}

void attach_part(tf_File& TfHandle, Msg_File& MsgHandle, ux_ContentItem& part, std::string_view subject,
                 std::string_view file_name) {
    TFREC_content_file file;
    tf_initTFREC_content_file(file, part.FileType);
    file.fileSize = file_size_field(part.item.size());
    file.rfc2047subject = subject;
    file.pOrigFileName = file_name;
    file.pContentCharset = part.CharSet;
    tf_Record record;
    tf_ContentFileRecFromStruc(record, file);
    tf_AppendRecord(TfHandle, record);
    Msg_AttachFile(MsgHandle, std::move(part.item));
}

}  // namespace ux

im_Item ux_InCreateTextPart() {
    const er_Trace trace("ux_InCreateTextPart");
    im_Item item = im_CrNewDataItem();
    er_LogMsg(11, kGatewayGroup, kTextPartMade);
    return item;
}
