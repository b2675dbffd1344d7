// The text of a report: see report_lines.h.
#include "ux_mimein/report_lines.h"

#include <algorithm>
#include <array>

#include "dstring/ascii.h"
#include "inet/address.h"
#include "mim/mim.h"
#include "ux_in/commands.h"
#include "ux_in/identifiers.h"
#include "ux_in/recipients.h"
#include "ux_mimein/mail_input.h"

namespace {

constexpr std::size_t kValueLimit = 1023;
constexpr std::string_view kInternetMail = "rfc822";

struct InetAckTokenRow {
    std::string_view pName;
    ux_ReportField Num;
};

// clang-format off
constexpr auto InetAckToken = std::to_array<InetAckTokenRow>({
    {"Reporting-UA",         ux_ReportField::reporting_ua},
    {"Reporting-MTA",        ux_ReportField::reporting_mta},
    {"Original-Recipient",   ux_ReportField::original_recipient},
    {"Final-Recipient",      ux_ReportField::final_recipient},
    {"Original-Message-ID",  ux_ReportField::original_message_id},
    {"Disposition",          ux_ReportField::disposition},
    {"Action",               ux_ReportField::action},
    {"Status",               ux_ReportField::status},
    {"Diagnostic-Code",      ux_ReportField::diagnostic_code},
    {"Remote-MTA",           ux_ReportField::remote_mta},
    {"Original-Envelope-ID", ux_ReportField::original_envelope_id},
    {"x-ploxen-Reason-Code", ux_ReportField::reason_code},
    {"",                     ux_ReportField::none},
});
// clang-format on

// The lines at the front of `ahead` of which none begins with a dot: none of them is the end line.
std::size_t plain_lines(std::string_view ahead) {
    if (ahead.starts_with('.')) return 0;
    const std::size_t dotted = ahead.find("\n.");
    const std::size_t last = dotted != std::string_view::npos ? dotted : ahead.rfind('\n');
    return last + 1;  // none: 0
}

}  // namespace

namespace ux {

ux_ReportField find_report_field(std::string_view name) {
    const auto end = std::prev(InetAckToken.end());
    if (name.empty()) return end->Num;
    return std::find_if(InetAckToken.begin(), end,
                        [&](const auto& row) { return dstring_equal_ignoring_case(row.pName, name); })
        ->Num;
}

std::optional<std::string_view> rfc822_address(std::string_view value) {
    const std::string_view type = value.substr(0, value.find(';'));
    if (!dstring_equal_ignoring_case(mim_SpaceTrimming(type), kInternetMail)) return std::nullopt;
    value.remove_prefix(std::min(type.size() + 1, value.size()));
    return mim_SpaceTrimming(value.substr(0, value.find(';')));
}

std::optional<std::string> own_message_id(std::string_view identifier) {
    const std::string bare = inet_RemoveAngleBrackets(identifier);
    std::string native = ux_InConvMsgId(mim_SpaceTrimming(bare));
    if (!im_IsQuillnetMsgId(native) || ux_recipients().G_Relaying) return std::nullopt;
    return native;
}

ReportLine ReportReader::kind_of(const ux_MailText& piece) const {
    if (piece.is_end) return ReportLine::end_of_message;
    if (piece.is_blank()) return ReportLine::blank;  // the end of a long line, too, when only its line end is left
    if (!piece.at_start) return ReportLine::text;
    if (line_.empty()) return ReportLine::blank;
    if (line_ == report_.pszPartMarker) return ReportLine::next_part;
    if (line_ == report_.pszLastPartMarker) return ReportLine::last_part;
    return ReportLine::text;
}

ReportLine ReportReader::next() {
    const ux_MailText piece = GetMailText();
    line_ = piece.at_start ? mim_trim_trailing_space(piece.text) : std::string_view();
    argument_ = {};
    const ReportLine kind = kind_of(piece);
    if (kind == ReportLine::end_of_message) report_.pbEndOfMsg = true;
    if (kind == ReportLine::last_part) report_.pbLastPart = true;
    return kind;
}

ux_ReportField ReportReader::field() {
    const ux_KeywordLine line = ux_InParseCommandLine(line_);
    argument_ = line.pArgument;
    return line.found ? find_report_field(line.pCommand) : ux_ReportField::none;
}

std::string ReportReader::value(std::string_view start) {
    std::string text(mim_SpaceTrimming(start).substr(0, kValueLimit));
    GetContinuation(text, nullptr);
    return text;
}

std::uint64_t ReportReader::offset() const {
    const im_Item* const copy = ux_mime_input().Reportfp;
    return copy == nullptr ? 0 : copy->size();
}

// A closing line before the first part closes nothing.
bool ReportReader::skip_preamble() {
    ReportLine line = next();
    while (line != ReportLine::next_part && line != ReportLine::end_of_message) line = next();
    report_.pbLastPart = false;
    return line == ReportLine::next_part;
}

ux_ContentHeader ReportReader::header() {
    im_Item scratch = im_CrNewDataItem();
    ux_ContentHeader header;
    ux_InParseContentHeader(scratch, report_.pbEndOfMsg, header);
    return header;
}

void ReportReader::skip_part() {
    while (!ends_part(next())) {}
}

void ReportReader::drop_rest() { drop_mail_text(report_.pbEndOfMsg); }

void drop_mail_text(bool& pbEndOfMsg) {
    while (!pbEndOfMsg) {
        if (const std::size_t bytes = plain_lines(MailLinesAhead()); bytes > 0)
            TakeMailLines(bytes);
        else
            pbEndOfMsg = GetMailText().is_end;
    }
}

}  // namespace ux
