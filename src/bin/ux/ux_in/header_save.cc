// First pass over a message's header: see header_save.h.
#include "ux_in/header_save.h"

#include <optional>
#include <string>

#include "cust/cust.h"
#include "er/er.h"
#include "inet/address.h"
#include "ux_in/commands.h"
#include "ux_in/header_table.h"
#include "ux_in/lines.h"

namespace ux {

namespace {

constexpr int kHeaderNotWritten = 1411;
constexpr int kEncodingFieldSeen = 1518;
constexpr int kForeignFieldDropped = 1549;
constexpr std::string_view kOwnFields = "x-ploxen";
constexpr std::string_view kMessageId = "Message-Id";
constexpr int kBadHeaderCharsMode = 16;

class HeaderSaver {
public:
    explicit HeaderSaver(im_Item& item);
    SavedHeaderKind run();

private:
    bool ends_header(const ux_MailText& piece);
    void save(std::string_view line);
    void write(std::string_view line);
    void note_field(std::string_view name, std::uint64_t line_start);

    im_Item& item_;
    std::optional<std::string> marker_;  // name of the field that marks a uuencode message
    bool white_line_ends_ = false;
    SavedHeaderKind kind_;
};

HeaderSaver::HeaderSaver(im_Item& item)
    : item_(item),
      marker_(cust_GetCustomiseInfo("UXI_UUDECODE_ARPA_TOKEN")),
      white_line_ends_(cust_GetBoolean("WHITESPACE_CRLF_IS_BREAK", false)) {
    kind_.uudecode = !marker_;
    if (marker_ && marker_->empty()) marker_.reset();  // it names no field
}

SavedHeaderKind HeaderSaver::run() {
    for (;;) {
        const ux_MailText piece = ux_InReadMailText();
        if (ends_header(piece)) return kind_;
        save(piece.unstuffed());
    }
}

bool HeaderSaver::ends_header(const ux_MailText& piece) {
    kind_.end_of_message = piece.is_end;
    if (piece.is_end || piece.is_blank()) return true;
    return white_line_ends_ && piece.text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

void HeaderSaver::save(std::string_view line) {
    const std::uint64_t line_start = item_.size();
    ux_KeywordLine field = ux_InParseCommandLine(line);
    std::string cleaned;
    if (field.found && equal_ignoring_case(field.pCommand, kMessageId)) {
        cleaned = inet_ReplaceBadHeaderChars(line, kBadHeaderCharsMode);
        line = cleaned;
        field = ux_InParseCommandLine(line);
    }
    write(line);
    if (field.found) note_field(field.pCommand, line_start);
}

void HeaderSaver::write(std::string_view line) {
    try {
        item_.write(line);
        item_.write("\r\n");
    } catch (const er_Escape& escape) {
        er_TracedEscape(kGatewayGroup, kHeaderNotWritten, escape.what());
    }
}

void HeaderSaver::note_field(std::string_view name, std::uint64_t line_start) {
    const ArpaTokenRow& row = find_arpa_token(name);
    if (marker_ && equal_ignoring_case(name, *marker_)) kind_.uudecode = true;
    switch (row.Num) {
        case kTokenEncoding:
            kind_.rfc1154 = true;
            er_LogMsg(11, kGatewayGroup, kEncodingFieldSeen);
            break;
        case kTokenMimeVersion:
        case kTokenContentType:
        case kTokenTransferEncoding: kind_.mime = true; break;
        case kTokenNone:
            if (!starts_ignoring_case(name, kOwnFields)) break;
            er_LogMsg(9, kGatewayGroup, kForeignFieldDropped, name);
            item_.truncate(line_start);
            break;
        default: break;
    }
}

}  // namespace

SavedHeaderKind save_header(im_Item& item) { return HeaderSaver(item).run(); }

}  // namespace ux
