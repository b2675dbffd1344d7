// Signed messages: see signed.h.
#include "ux_mimein/signed.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "er/er.h"
#include "msg/msg.h"
#include "tf/record.h"
#include "ux_in/records.h"

namespace {

constexpr std::int32_t kSignedFileType = 2185;
constexpr std::string_view kSignedName = "smime_clearsigned.txt";
constexpr std::string_view kSignedType = "multipart/signed";
constexpr std::string_view kFold = "\r\n\t";

void write_head(im_Item& item, const ux_SignedSource& source) {
    item.write("Content-Type: ");
    item.write(kSignedType);
    if (!source.parameters.empty()) {
        item.write(";");
        item.write(kFold);
    }
    for (const char c : source.parameters) {
        item.write(c);
        if (c == ';') item.write(kFold);
    }
    item.write("\r\n\r\n\r\n");
    item.write(source.markers.pszPartMarker);
    item.write("\r\n");
}

// The last of `lines` that the front of it holds whole, CR LF at every end: such a stretch is what it shall become.
// Dots and boundaries at line starts are looked at one by one.
std::size_t ordinary_stretch(std::string_view lines) {
    std::size_t taken = 0;
    while (taken < lines.size() && lines[taken] != '.' && lines[taken] != '-') {
        const auto* end = static_cast<const char*>(std::memchr(lines.data() + taken, '\n', lines.size() - taken));
        if (end == nullptr) break;
        const std::string_view line(lines.data() + taken, static_cast<std::size_t>(end - lines.data()) - taken);
        if (!line.ends_with('\r') || line.ends_with("\r\r")) break;
        taken += line.size() + 1;
    }
    return taken;
}

// Copies an entity, line by line where a line means something.
class SignedCopier {
public:
    SignedCopier(im_Item& signature, im_Item* rest) : signature_(signature), rest_(rest) {}
    // True when it was ended by the end line of the message, which is in neither.
    bool run(const ux_PartMarkers& markers);
    std::uint64_t same() const { return same_ ? signature_.size() : same_until_; }  // bytes that are as they came

private:
    void take_ordinary();
    void take(const ux_MailText& piece, std::string_view text);

    im_Item& signature_;
    im_Item* rest_;  // none: dots stay stuffed, and nothing is read again
    bool same_ = true;
    std::uint64_t same_until_ = 0;
};

bool SignedCopier::run(const ux_PartMarkers& markers) {
    for (;;) {
        take_ordinary();
        const ux_MailText piece = GetRawMailText();
        if (piece.is_end) return true;
        const std::string_view text = rest_ != nullptr ? piece.unstuffed() : piece.text;
        take(piece, text);
        if (piece.at_start && piece.whole && text == markers.pszLastPartMarker) return false;
    }
}

void SignedCopier::take_ordinary() {
    while (const std::size_t bytes = ordinary_stretch(MailLinesAhead())) {
        const std::string_view lines = MailLinesAhead().substr(0, bytes);
        signature_.write(lines);
        if (!same_ && rest_ != nullptr) rest_->write(lines);
        TakeMailLines(bytes);
    }
}

void SignedCopier::take(const ux_MailText& piece, std::string_view text) {
    const bool as_it_came = text.size() == piece.text.size() && (!piece.whole || piece.returns == 1);
    if (same_ && !as_it_came) same_until_ = signature_.size();
    same_ = same_ && as_it_came;
    signature_.write(text);
    if (piece.whole) signature_.write("\r\n");
    if (same_ || rest_ == nullptr) return;
    rest_->write(piece.text);
    if (!piece.whole) return;
    for (std::size_t i = 0; i < piece.returns; ++i) rest_->write('\r');
    rest_->write('\n');
}

}  // namespace

ux_SignedEntity::ux_SignedEntity(const ux_SignedSource& source)
    : SgnItem(im_CrNewDataItem()), tmpItem_(im_create_unnamed()) {
    write_head(SgnItem, source);
    at_ = SgnItem.size();
    SignedCopier copier(SgnItem, &tmpItem_);
    isSendmailExhausted = copier.run(source.markers);
    same_ = copier.same();
    tmpItem_.write(".\n");
    input_.emplace([this](char* data, std::size_t room) { return read(data, room); });
}

std::size_t ux_SignedEntity::read(char* data, std::size_t room) {
    const std::size_t same = static_cast<std::size_t>(std::min<std::uint64_t>(room, same_ - at_));
    if (same > 0) {
        const std::size_t got = SgnItem.read(at_, data, same);
        at_ += got;
        return got;
    }
    const std::size_t got = tmpItem_.read(rest_at_, data, room);
    rest_at_ += got;
    return got;
}

std::unique_ptr<ux_SignedEntity> ux_MimeSignedPart(const ux_SignedSource& source) {
    const er_Trace trace("ux_MimeSignedPart");
    return std::make_unique<ux_SignedEntity>(source);
}

im_Item ux_MimeSignedPart_v2(const ux_SignedSource& source, bool& pbEndOfMsg) {
    const er_Trace trace("ux_MimeSignedPart_v2");
    im_Item SgnItem = im_CrNewDataItem();
    write_head(SgnItem, source);
    if (SignedCopier(SgnItem, nullptr).run(source.markers)) {
        SgnItem.write(".\r\n");
        pbEndOfMsg = true;
    }
    return SgnItem;
}

void ux_MimeAddSigned(ux_MimeConversion& conversion, im_Item SgnItem) {
    const er_Trace trace("ux_MimeAddSigned");
    TFREC_content_file file;
    tf_initTFREC_content_file(file, kSignedFileType);
    file.fileSize = ux::file_size_field(SgnItem.size());
    file.pMIMEContentType = kSignedType;
    file.rfc2047subject = kSignedName;
    Msg_AttachFile(conversion.MsgHandle, std::move(SgnItem));
    tf_Record record;
    tf_ContentFileRecFromStruc(record, file);
    tf_AppendRecord(conversion.TfHandle, record);
}
