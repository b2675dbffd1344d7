// Reading MIME text: see mail_input.h.
#include "ux_mimein/mail_input.h"

#include "er/er.h"
#include "mim/mim.h"

namespace {

constexpr int kHeaderNotWritten = 1411;
constexpr int kCopyNotWritten = 1412;
constexpr std::size_t kValueLimit = 1023;

// Line ends go into the copy as they arrived, so that what is read again is what was read.
void copy_for_report(const ux_MailText& piece) {
    const ux_MimeInputState& input = ux_mime_input();
    if (!input.gCopyForReport || input.Reportfp == nullptr) return;
    ux_write_or_escape(*input.Reportfp, piece.text, kCopyNotWritten);
    if (!piece.whole) return;
    for (std::size_t i = 0; i < piece.returns; ++i) ux_write_or_escape(*input.Reportfp, "\r", kCopyNotWritten);
    ux_write_or_escape(*input.Reportfp, "\n", kCopyNotWritten);
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

void ux_reset_mime_input() { ux_mime_input() = ux_MimeInputState{}; }

ux_LineReader& ux_MimeInput() {
    ux_LineReader* const mimfp = ux_mime_input().mimfp;
    return mimfp != nullptr ? *mimfp : ux_Input();
}

ux_MailText GetMailText() {
    const ux_MailText piece = ux_MimeInput().text();
    copy_for_report(piece);
    return piece;
}

ux_MailText GetRawMailText() {
    const ux_MailText piece = ux_MimeInput().raw_text();
    copy_for_report(piece);
    return piece;
}

void GetContinuation(std::string& pszString, im_Item* pHeaderStream) {
    while (continues()) {
        const ux_MailText piece = GetMailText();
        if (pHeaderStream != nullptr) {
            ux_write_or_escape(*pHeaderStream, piece.text, kHeaderNotWritten);
            ux_write_or_escape(*pHeaderStream, "\r\n", kHeaderNotWritten);
        }
        const std::string_view text = mim_SpaceTrimming(piece.text);
        const std::string_view joint = is_encoded_word(text) ? " " : "";
        if (pszString.size() + joint.size() + text.size() <= kValueLimit) pszString.append(joint).append(text);
    }
}

void ux_write_or_escape(im_Item& item, std::string_view data, int reason) {
    try {
        item.write(data);
    } catch (const er_Escape& escape) {
        er_TracedEscape(kGatewayGroup, reason, escape.what());
    }
}
