// Message disposition notifications: see report_disposition.h.
#include "ux_mimein/report_disposition.h"

#include <algorithm>
#include <array>

#include "dstring/ascii.h"
#include "er/er.h"
#include "mim/mim.h"
#include "ux_mimein/report_recipients.h"

namespace {

constexpr std::string_view kNotificationType = "message/disposition-notification";
constexpr std::string_view kSentManually = "MDN-sent-manually";

struct TypeRow {
    std::string_view word;
    std::int16_t AckLevel;
    bool has_modifiers;
};
constexpr auto kTypes = std::to_array<TypeRow>({
    {"displayed", 7, false},
    {"deleted", 6, true},
});

struct ModifierRow {
    std::string_view word;
    std::int16_t SubAckLevel;
};
constexpr auto kModifiers = std::to_array<ModifierRow>({
    {"expired", 2},
    {"superseded", 3},
    {"mailbox-terminated", 4},
});

template <class Rows>
auto find_word(const Rows& rows, std::string_view word) {
    return std::find_if(rows.begin(), rows.end(),
                        [&](const auto& row) { return dstring_equal_ignoring_case(row.word, word); });
}

// The text before the next `end`, or all of it, trimmed; `text` goes on behind that.
std::string_view take_until(std::string_view& text, char end) {
    const std::string_view taken = text.substr(0, text.find(end));
    text.remove_prefix(std::min(taken.size() + 1, text.size()));
    return mim_SpaceTrimming(taken);
}

// --- the fields of a notification -------------------------------------------------------------------------------

using Reader = ux::ReportReader;

struct Notification {
    std::string OrigRecip;
    std::string FinalRecip;  // the address of type "rfc822"
    std::string OrigMsgId;
    std::string Disposition;
};

template <std::string Notification::*text>
void take_text(Notification& fields, std::string_view argument) {
    fields.*text = Reader::value(argument);
}

void take_final_recipient(Notification& fields, std::string_view argument) {
    if (const auto address = ux::rfc822_address(argument)) fields.FinalRecip = Reader::value(*address);
}

struct FieldRow {
    ux_ReportField field;
    void (*take)(Notification&, std::string_view argument);
};
constexpr auto kFields = std::to_array<FieldRow>({
    {ux_ReportField::original_recipient, take_text<&Notification::OrigRecip>},
    {ux_ReportField::final_recipient, take_final_recipient},
    {ux_ReportField::original_message_id, take_text<&Notification::OrigMsgId>},
    {ux_ReportField::disposition, take_text<&Notification::Disposition>},
});

void take_field(Notification& fields, Reader& reader) {
    const ux_ReportField field = reader.field();
    const auto row =
        std::find_if(kFields.begin(), kFields.end(), [&](const FieldRow& known) { return known.field == field; });
    if (row != kFields.end()) row->take(fields, reader.argument());
}

Notification read_fields(Reader& reader) {
    Notification fields;
    for (;;) {
        const ux::ReportLine line = reader.next();
        if (Reader::ends_part(line)) return fields;
        if (line == ux::ReportLine::text) take_field(fields, reader);
    }
}

}  // namespace

bool ux_InParseDisposition(std::string_view pDisposition, ux_DispositionLevels& levels) {
    const er_Trace trace("ux_InParseDisposition");
    take_until(pDisposition, '/');  // who decided, a person or a program, does not matter
    if (dstring_equal_ignoring_case(take_until(pDisposition, ';'), kSentManually)) levels.pManualAck = true;
    const auto type = find_word(kTypes, take_until(pDisposition, '/'));
    if (type == kTypes.end()) return false;
    levels.pAckLevel = type->AckLevel;
    while (type->has_modifiers && !pDisposition.empty()) {
        const auto modifier = find_word(kModifiers, take_until(pDisposition, ','));
        if (modifier != kModifiers.end()) levels.pSubAckLevel = modifier->SubAckLevel;
    }
    return true;
}

bool ux_InParseMDNInfo(ux::ReportReader& reader, bool& pManualAck, std::string& pArpaMsgId) {
    const er_Trace trace("ux_InParseMDNInfo");
    const Notification fields = read_fields(reader);
    if (fields.FinalRecip.empty() || fields.Disposition.empty() || fields.OrigMsgId.empty()) return false;
    ux_DispositionLevels levels{.pManualAck = pManualAck};
    const bool accepted = ux_InParseDisposition(fields.Disposition, levels);
    pManualAck = levels.pManualAck;
    if (!accepted) return false;
    const auto X400MsgId = ux::own_message_id(fields.OrigMsgId);
    if (!X400MsgId) return false;
    pArpaMsgId = *X400MsgId;
    return ux_InAddAckNameInfo(fields.FinalRecip, fields.OrigRecip, levels.pAckLevel, levels.pSubAckLevel);
}

ux_AcknowledgedMessage ux_InParseMDN(const ux_ReportText& text) {
    const er_Trace trace("ux_InParseMDN");
    ux_AcknowledgedMessage found;
    Reader reader(text);
    if (!reader.skip_preamble()) return found;
    reader.skip_part();  // the text for people
    if (!reader.ended()) {
        const ux_ContentHeader header = reader.header();
        if (!text.pbEndOfMsg && dstring_starts_ignoring_case(header.pszSubPartType, kNotificationType))
            found.converted = ux_InParseMDNInfo(reader, found.pManualAck, found.MsgId);
    }
    if (!reader.ended()) reader.drop_rest();
    return found;
}
