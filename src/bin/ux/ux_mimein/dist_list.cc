// Distribution-list parts: see dist_list.h.
#include "ux_mimein/dist_list.h"

#include <optional>
#include <string>
#include <string_view>

#include "er/er.h"
#include "ux_in/addresses.h"
#include "ux_in/commands.h"
#include "ux_in/finishing.h"
#include "ux_in/header_table.h"
#include "ux_in/lines.h"

namespace {

constexpr std::size_t kPieceLimit = 127;  // of a line, its line end included

bool is_address_field(std::int32_t token) {
    return (token >= kTokenFrom && token <= kTokenReplyTo) || token == kTokenSender;
}

class DistList {
public:
    DistList(const im_Item& part, const ux_PartMarkers* markers, tf_File& TfHandle)
        : reader_(part), markers_(markers), TfHandle_(TfHandle), DLHandle_(ux::create_list_file(true)) {}
    tf_File read();

private:
    bool next();
    bool ends_list() const;
    void take_list(std::int32_t NameTFRec, std::string_view argument);
    void feed_line(ux_ArpaListParser& list, std::string_view text);

    im_Reader reader_;
    const ux_PartMarkers* const markers_;
    tf_File& TfHandle_;
    tf_File DLHandle_;
    std::string FirstFrom_, Sender_;  // nobody asks for them
    std::string_view text_;           // the piece in hand, without its line end; good until the next one
    bool at_start_ = true, whole_ = true;
};

// The next line, or piece of a long one.
bool DistList::next() {
    const std::optional<std::string_view> piece = reader_.line(kPieceLimit);
    if (!piece) return false;
    at_start_ = whole_;
    whole_ = piece->ends_with('\n');
    text_ = StripCrNl(*piece);
    return true;
}

bool DistList::ends_list() const {
    if (!at_start_ || !whole_) return false;
    if (text_ == ".") return true;
    return markers_ != nullptr && !text_.empty() &&
           (text_ == markers_->pszPartMarker || text_ == markers_->pszLastPartMarker);
}

tf_File DistList::read() {
    while (next() && !ends_list()) {
        if (!at_start_) continue;
        const std::string line(text_.starts_with("..") ? text_.substr(1) : text_);  // more is read before it is done
        const ux_KeywordLine field = ux_InParseCommandLine(line);
        if (!field.found) continue;
        const ArpaTokenRow& row = find_arpa_token(field.pCommand);
        if (is_address_field(row.Num)) take_list(row.TFRec, field.pArgument);
    }
    ux_InUpdateDistListCounts(DLHandle_);
    return std::move(DLHandle_);
}

// A field and its continuation lines, each a list by itself.
void DistList::take_list(std::int32_t NameTFRec, std::string_view argument) {
    ux_ArpaListParser list({.TfHandle = TfHandle_,
                            .DLHandle = DLHandle_,
                            .NameTFRec = NameTFRec,
                            .WrapMainTfRecs = false,
                            .pFirstFrom = FirstFrom_,
                            .pSender = Sender_});
    feed_line(list, argument);
    while ((reader_.peek() == ' ' || reader_.peek() == '\t') && next()) feed_line(list, text_);
}

// What a long line has beyond its first piece goes on with it: no address is cut in two.
void DistList::feed_line(ux_ArpaListParser& list, std::string_view text) {
    list.feed(text);
    while (!whole_ && next()) list.feed(text_);
    list.finish();
}

}  // namespace

void ux_InSpecialDistList(const im_Item& part, const ux_PartMarkers* markers, tf_File& TfHandle, Msg_File& MsgHandle) {
    const er_Trace trace("ux_InSpecialDistList");
    Msg_AttachFile(MsgHandle, DistList(part, markers, TfHandle).read().release_item());
}
