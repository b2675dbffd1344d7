// First pass over a header: see header_save.h.
#include "ux_in/header_save.h"

#include "cust/cust.h"
#include "dstring/ascii.h"
#include "er/er.h"
#include "inet/address.h"
#include "ux_in/header_table.h"
#include "ux_mimein/mail_input.h"

namespace ux {

namespace {

constexpr int kHeaderNotWritten = 1411;
constexpr int kEncodingFieldSeen = 1518;
constexpr int kForeignFieldDropped = 1549;
constexpr std::string_view kOwnFields = "x-ploxen";
constexpr std::string_view kMessageId = "Message-Id";
constexpr int kBadHeaderCharsMode = 16;

class MessageHeaderSaver : public HeaderSaver {
public:
    explicit MessageHeaderSaver(im_Item& item);
    SavedHeaderKind take();

private:
    ux_MailText read() override { return ux_InReadMailText(); }
    std::string_view as_saved(const ux_MailText& piece) const override { return piece.unstuffed(); }
    void saved(std::string_view line, const ux_KeywordLine& field, std::uint64_t start) override;

    std::optional<std::string> marker_;  // name of the field that marks a uuencode message
    SavedHeaderKind kind_;
};

MessageHeaderSaver::MessageHeaderSaver(im_Item& item)
    : HeaderSaver(item), marker_(cust_GetCustomiseInfo("UXI_UUDECODE_ARPA_TOKEN")) {
    kind_.uudecode = !marker_;
    if (marker_ && marker_->empty()) marker_.reset();  // it names no field
}

SavedHeaderKind MessageHeaderSaver::take() {
    kind_.end_of_message = run();
    return kind_;
}

void MessageHeaderSaver::saved(std::string_view /*line*/, const ux_KeywordLine& field, std::uint64_t start) {
    if (!field.found) return;
    if (marker_ && dstring_equal_ignoring_case(field.pCommand, *marker_)) kind_.uudecode = true;
    switch (find_arpa_token(field.pCommand).Num) {
        case kTokenEncoding:
            kind_.rfc1154 = true;
            er_LogMsg(11, kGatewayGroup, kEncodingFieldSeen);
            break;
        case kTokenMimeVersion:
        case kTokenContentType:
        case kTokenTransferEncoding: kind_.mime = true; break;
        case kTokenNone:
            if (!dstring_starts_ignoring_case(field.pCommand, kOwnFields)) break;
            er_LogMsg(9, kGatewayGroup, kForeignFieldDropped, field.pCommand);
            item().truncate(start);
            break;
        default: break;
    }
}

}  // namespace

HeaderSaver::HeaderSaver(im_Item& item)
    : item_(item), white_line_ends_(cust_GetBoolean("WHITESPACE_CRLF_IS_BREAK", false)) {}

bool HeaderSaver::run() {
    for (;;) {
        const ux_MailText piece = read();
        if (ends_header(piece)) return piece.is_end;
        save(as_saved(piece));
    }
}

bool HeaderSaver::ends_header(const ux_MailText& piece) {
    if (piece.is_end || piece.is_blank() || is_cut_off(piece)) return true;
    return white_line_ends_ && piece.text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

void HeaderSaver::save(std::string_view line) {
    const std::uint64_t start = item_.size();
    ux_KeywordLine field = ux_InParseCommandLine(line);
    std::string cleaned;
    if (field.found && dstring_equal_ignoring_case(field.pCommand, kMessageId)) {
        cleaned = inet_ReplaceBadHeaderChars(line, kBadHeaderCharsMode);
        line = cleaned;
        field = ux_InParseCommandLine(line);
    }
    ux_write_or_escape(item_, line, kHeaderNotWritten);
    ux_write_or_escape(item_, "\r\n", kHeaderNotWritten);
    saved(line, field, start);
}

SavedHeaderKind save_header(im_Item& item) { return MessageHeaderSaver(item).take(); }

}  // namespace ux
