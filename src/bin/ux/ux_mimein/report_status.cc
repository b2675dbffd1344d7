// Delivery status notifications: see report_status.h.
#include "ux_mimein/report_status.h"

#include <algorithm>
#include <array>
#include <optional>

#include "dstring/ascii.h"
#include "er/er.h"
#include "mim/mim.h"
#include "ux_mimein/mail_input.h"
#include "ux_mimein/report_recipients.h"

namespace {

constexpr std::string_view kNotificationType = "message/delivery-status";
constexpr std::string_view kReturnedType = "message/rfc822";
constexpr int kReturnedPart = 3;

constexpr std::int64_t kReasonBase = 500;
constexpr std::int16_t kNoReason = 300;

constexpr std::int16_t kDelivered = 4;
constexpr std::int16_t kListExpanded = 1;

// --- numbers in text, as scanf("%d") reads them -----------------------------------------------------------------

// white space, a sign, digits; a number that is too large is the largest there is.
std::optional<std::int64_t> take_number(std::string_view& text) {
    constexpr std::int64_t largest = 0x7FFFFFFF;
    std::string_view rest = text;
    rest.remove_prefix(std::min(rest.find_first_not_of(" \t\r\n\v\f"), rest.size()));
    const bool negative = rest.starts_with('-');
    if (negative || rest.starts_with('+')) rest.remove_prefix(1);
    const std::size_t digits = std::min(rest.find_first_not_of("0123456789"), rest.size());
    if (digits == 0) return std::nullopt;
    std::int64_t number = 0;
    for (const char c : rest.substr(0, digits)) number = std::min(number * 10 + (c - '0'), largest);
    text = rest.substr(digits);
    return negative ? -number : number;
}

bool take_dot(std::string_view& text) {
    if (!text.starts_with('.')) return false;
    text.remove_prefix(1);
    return true;
}

// --- the fields of a block --------------------------------------------------------------------------------------

using Reader = ux::ReportReader;

template <std::string ux_DSNRecipient::*text>
void take_text(ux_DSNRecipient& block, std::string_view argument) {
    block.*text = Reader::value(argument);
}

// The address of another type (an X.400 name, a system's own) is none that could be converted.
void take_final_recipient(ux_DSNRecipient& block, std::string_view argument) {
    if (const auto address = ux::rfc822_address(argument)) block.FinalRecip = Reader::value(*address);
}

// It stands in for the action until the block names one: a reason that comes behind the action undoes it.
void take_reason(ux_DSNRecipient& block, std::string_view argument) {
    block.Action = Reader::value(argument);
    std::string_view text = block.Action;
    block.Reason = static_cast<std::int16_t>(take_number(text).value_or(0));
}

struct BlockField {
    ux_ReportField field;
    void (*take)(ux_DSNRecipient&, std::string_view argument);
};
constexpr auto kBlockFields = std::to_array<BlockField>({
    {ux_ReportField::original_recipient, take_text<&ux_DSNRecipient::OrigRecip>},
    {ux_ReportField::final_recipient, take_final_recipient},
    {ux_ReportField::action, take_text<&ux_DSNRecipient::Action>},
    {ux_ReportField::status, take_text<&ux_DSNRecipient::Status>},
    {ux_ReportField::reason_code, take_reason},
});

void take_block_field(ux_DSNRecipient& block, Reader& reader) {
    const ux_ReportField field = reader.field();
    const auto row = std::find_if(kBlockFields.begin(), kBlockFields.end(),
                                  [&](const BlockField& known) { return known.field == field; });
    if (row == kBlockFields.end()) return;
    row->take(block, reader.argument());
    block.GotInfo = true;
}

// --- filing a block ---------------------------------------------------------------------------------------------

bool file_failed(const ux_DSNRecipient& block) {
    const std::int16_t reason = block.Reason != 0 ? block.Reason : ux::reason_of_status(block.Status);
    return ux_InAddNDNNameInfo(block.FinalRecip, block.OrigRecip, reason);
}

template <std::int16_t SubAckLevel>
bool file_delivered(const ux_DSNRecipient& block) {
    return ux_InAddAckNameInfo(block.FinalRecip, block.OrigRecip, kDelivered, SubAckLevel);
}

struct ActionRow {
    std::string_view start;
    bool (*file)(const ux_DSNRecipient&);
};
constexpr auto kActions = std::to_array<ActionRow>({
    {"failed", file_failed},
    {"delivered", file_delivered<0>},
    {"expanded", file_delivered<kListExpanded>},
});

// --- the notification -------------------------------------------------------------------------------------------

// Reads recipients' blocks to the end of the part; false as soon as one is not filed. A block without the blank line
// behind it has been cut off: nobody knows what else it would have said.
bool file_blocks(Reader& reader) {
    ux_DSNRecipient block;
    for (;;) {
        const ux::ReportLine line = reader.next();
        if (Reader::ends_part(line)) return true;
        if (line == ux::ReportLine::text) {
            take_block_field(block, reader);
        } else if (block.GotInfo) {
            if (!ux_InProcessDSNName(block)) return false;
            block = ux_DSNRecipient();
        }
    }
}

bool is_type(const ux_ContentHeader& header, std::string_view type) {
    return dstring_starts_ignoring_case(header.pszSubPartType, type);
}

}  // namespace

std::int16_t ux::reason_of_status(std::string_view status) {
    const auto klass = take_number(status);
    const auto subject = klass && take_dot(status) ? take_number(status) : std::nullopt;
    const auto detail = subject && take_dot(status) ? take_number(status) : std::nullopt;
    if (!detail) return kNoReason;
    const auto reason = static_cast<std::int16_t>(kReasonBase + 10 * *subject + *detail);
    return reason == kReasonBase ? kNoReason : reason;
}

bool ux_InProcessDSNName(const ux_DSNRecipient& recipient) {
    const er_Trace trace("ux_InProcessDSNName");
    if (recipient.FinalRecip.empty() || recipient.Action.empty() || recipient.Status.empty()) return false;
    const auto row = std::find_if(kActions.begin(), kActions.end(), [&](const ActionRow& action) {
        return dstring_starts_ignoring_case(mim_SpaceTrimming(recipient.Action), action.start);
    });
    return row != kActions.end() && row->file(recipient);
}

bool ux_InParseDSNInfo(ux::ReportReader& reader, std::string& pArpaMsgId) {
    const er_Trace trace("ux_InParseDSNInfo");
    ux::ReportLine line = reader.next();
    while (line == ux::ReportLine::blank) line = reader.next();
    std::string OrigEnvId;
    for (; line == ux::ReportLine::text; line = reader.next())
        if (reader.field() == ux_ReportField::original_envelope_id) OrigEnvId = Reader::value(reader.argument());
    const auto X400MsgId = ux::own_message_id(OrigEnvId);
    if (!X400MsgId) return false;
    pArpaMsgId = *X400MsgId;
    return Reader::ends_part(line) || file_blocks(reader);
}

ux_ReportedMessage ux_InParseDSN(const ux_ReportText& text) {
    const er_Trace trace("ux_InParseDSN");
    ux_ReportedMessage found;
    Reader reader(text);
    bool go_on = reader.skip_preamble();
    for (int part = 1; go_on && !reader.ended(); ++part) {
        const ux_ContentHeader header = reader.header();
        if (text.pbEndOfMsg) break;
        if (part == kReturnedPart) {
            if (is_type(header, kReturnedType)) found.pROCOffset = reader.offset();
            reader.drop_rest();
        } else if (is_type(header, kNotificationType)) {
            go_on = found.converted = ux_InParseDSNInfo(reader, found.MsgId);
            part = kReturnedPart - 1;  // what comes next is what came back, also where the text for people is missing
        } else {
            reader.skip_part();
        }
    }
    return found;
}
