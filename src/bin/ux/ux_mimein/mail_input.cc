// Reading MIME text: see mail_input.h.
#include "ux_mimein/mail_input.h"

#include <utility>

#include "dstring/ascii.h"
#include "er/er.h"
#include "mim/mim.h"

namespace {

constexpr int kHeaderNotWritten = 1411;
constexpr int kCopyNotWritten = 1412;
constexpr int kCopyNotCreated = 1427;
constexpr std::size_t kValueLimit = 1023;

// A copy of which nothing has reached a file never got one.
void write_copy(std::string_view data) {
    im_Item& copy = *ux_mime_input().Reportfp;
    try {
        copy.write(data);
    } catch (const er_Escape& escape) {
        er_TracedEscape(kGatewayGroup, copy.in_memory() ? kCopyNotCreated : kCopyNotWritten, escape.what());
    }
}

bool copying() {
    const ux_MimeInputState& input = ux_mime_input();
    return input.gCopyForReport && input.Reportfp != nullptr;
}

// Line ends go into the copy as they arrived, so that what is read again is what was read.
void copy_piece(const ux_MailText& piece) {
    write_copy(piece.text);
    if (!piece.whole) return;
    for (std::size_t i = 0; i < piece.returns; ++i) write_copy("\r");
    write_copy("\n");
}

bool is_encoded_word(std::string_view text) {
    return text.starts_with("=?") && text.find("?=") != std::string_view::npos;
}

// The next continuation line is there: it begins with a blank or a tab.
bool continues() {
    const int next = ux_MimeInput().peek();
    return next == ' ' || next == '\t';
}

}  // namespace

ux_MimeInputState& ux_mime_input() {
    static ux_MimeInputState state;
    return state;
}

void ux_begin_mime_input() {
    ux_MimeInputState& state = ux_mime_input();
    const bool steering_is_known = state.GotMimeSteering;
    state = ux_MimeInputState{};
    state.GotMimeSteering = steering_is_known;
}

void ux_reset_mime_input() { ux_mime_input() = ux_MimeInputState{}; }

ux_LineReader& ux_MimeInput() {
    ux_LineReader* const mimfp = ux_mime_input().mimfp;
    return mimfp != nullptr ? *mimfp : ux_Input();
}

// What goes into the copy still has its NUL bytes: read again as content, they must be there.
ux_MailText GetMailText() {
    ux_LineReader& input = ux_MimeInput();
    if (!copying()) return input.text();
    copy_piece(input.raw_text());
    input.unread();
    return input.text();
}

ux_MailText GetRawMailText() {
    const ux_MailText piece = ux_MimeInput().raw_text();
    if (copying()) copy_piece(piece);
    return piece;
}

std::string_view MailLinesAhead() { return ux_MimeInput().lines_ahead(); }

void TakeMailLines(std::size_t bytes) {
    if (copying()) write_copy(MailLinesAhead().substr(0, bytes));
    ux_MimeInput().take_lines(bytes);
}

void GetContinuation(std::string& pszString, im_Item* pHeaderStream) {
    while (continues()) {
        const ux_MailText piece = GetMailText();
        if (pHeaderStream != nullptr) {
            ux_write_or_escape(*pHeaderStream, piece.text, kCopyNotWritten);
            ux_write_or_escape(*pHeaderStream, "\r\n", kHeaderNotWritten);
        }
        ux::append_folded(pszString, piece.text);
    }
}

void ux::append_folded(std::string& pszString, std::string_view line) {
    const std::string_view text = mim_SpaceTrimming(line);
    const std::string_view joint = is_encoded_word(text) ? " " : "";
    if (pszString.size() + joint.size() >= kValueLimit) return;
    pszString += joint;
    pszString += text.substr(0, kValueLimit - pszString.size());
}

bool ux::is_boundary_line(const ux_MailText& piece, std::string_view marker) {
    return piece.text.starts_with(marker) && is_closing_line(piece, marker);
}

bool ux::is_closing_line(const ux_MailText& piece, std::string_view marker) {
    return piece.at_start && piece.whole && !marker.empty() && dstring_starts_ignoring_case(piece.text, marker) &&
           piece.text.find_first_not_of(" \t", marker.size()) == std::string_view::npos;
}

void ux_write_or_escape(im_Item& item, std::string_view data, int reason) {
    try {
        item.write(data);
    } catch (const er_Escape& escape) {
        er_TracedEscape(kGatewayGroup, reason, escape.what());
    }
}

ux_MimeSource::ux_MimeSource(ux_LineReader::Source source)
    : before_(ux_mime_input().mimfp), reader_(std::move(source)) {
    reader_.begin_text();
    ux_mime_input().mimfp = &reader_;
}

ux_MimeSource::~ux_MimeSource() { ux_mime_input().mimfp = before_; }

ux_ReportCopy::ux_ReportCopy() : item_(im_create_unnamed()) {
    ux_mime_input().Reportfp = &item_;
    ux_mime_input().gCopyForReport = true;
}

ux_ReportCopy::~ux_ReportCopy() {
    stop();
    ux_mime_input().Reportfp = nullptr;
}

void ux_ReportCopy::stop() { ux_mime_input().gCopyForReport = false; }

void ux_ReportCopy::read_again(std::uint64_t offset) {
    stop();
    input_.emplace([this, offset](char* data, std::size_t room) mutable {
        const std::size_t got = item_.read(offset, data, room);
        offset += got;
        return got;
    });
}
