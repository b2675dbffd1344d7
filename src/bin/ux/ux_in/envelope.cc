// Envelope parameters; the grammar is in the header.
#include "ux_in/envelope.h"

#include <algorithm>

#include "dstring/ascii.h"
#include "er/er.h"
#include "mim/mim.h"

namespace {

// Takes the path, whole however long it is: what follows it must be found even when the copy is cut.
std::string_view take_path(std::string_view& text) {
    const std::size_t bracket = text.find('>');
    const std::string_view path = text.substr(0, bracket == text.npos ? text.size() : bracket + 1);
    text.remove_prefix(path.size());
    return path;
}

// Takes the piece before the next ";"; runs of ";" count as one and leading ones are skipped.
std::string_view take_piece(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(';'), text.size()));
    const std::string_view piece = text.substr(0, text.find(';'));
    text.remove_prefix(piece.size());
    return piece;
}

void process_notify_item(std::string_view item, ux_RcptTo& recipient) {
    if (dstring_equal_ignoring_case(item, "NEVER")) {
        recipient.NoNDNWanted = true;
        recipient.DelAckWanted = false;
    } else if (dstring_equal_ignoring_case(item, "SUCCESS")) {
        recipient.DelAckWanted = true;
    } else if (dstring_equal_ignoring_case(item, "FAILURE")) {
        recipient.NoNDNWanted = false;
    }
}

}  // namespace

std::optional<ux_EnvelopeParameter> ux_InGetNextToken(std::string_view& ppChar) {
    const er_Trace trace("ux_InGetNextToken");
    ppChar.remove_prefix(std::min(ppChar.find_first_not_of(' '), ppChar.size()));
    const std::string_view word = ppChar.substr(0, ppChar.find(' '));
    ppChar.remove_prefix(std::min(word.size() + 1, ppChar.size()));
    const std::size_t equals = word.find('=');
    if (equals == word.npos) return std::nullopt;
    return ux_EnvelopeParameter{word.substr(0, std::min(equals, kEnvelopeTagLimit)),
                                word.substr(equals + 1, kEnvelopeValueLimit)};
}

void ux_InProcessRETValue(std::string_view Value, bool& pROCWanted) {
    const er_Trace trace("ux_InProcessRETValue");
    if (Value == "HDRS") pROCWanted = false;
    if (Value == "FULL") pROCWanted = true;
}

void ux_InProcessENVID(std::string_view Value, std::string& pEnvid) {
    const er_Trace trace("ux_InProcessENVID");
    pEnvid = mim_DecodeXtextString(Value);
    if (pEnvid.size() > kEnvidLimit) pEnvid.resize(kEnvidLimit);
}

void ux_InProcessNOTIFY(std::string_view Value, ux_RcptTo& recipient) {
    const er_Trace trace("ux_InProcessNOTIFY");
    while (!Value.empty()) {
        const std::string_view item = Value.substr(0, Value.find(','));
        process_notify_item(item, recipient);
        Value.remove_prefix(std::min(item.size() + 1, Value.size()));
    }
}

void ux_InProcessORCPT(std::string_view Value, std::string& pOrigRcpt) {
    const er_Trace trace("ux_InProcessORCPT");
    const std::string_view type = take_piece(Value);
    if (type.empty()) return;
    const std::string_view address = take_piece(Value);
    pOrigRcpt.assign(type).append(";").append(mim_DecodeXtextString(address));
    if (pOrigRcpt.size() > kOrigRcptLimit) pOrigRcpt.resize(kOrigRcptLimit);
}

void ux_InParseMAILFROM(std::string_view pArguments, ux_MailFrom& sender) {
    const er_Trace trace("ux_InParseMAILFROM");
    sender.ArpaSender = take_path(pArguments).substr(0, kArpaSenderLimit);
    while (const auto parameter = ux_InGetNextToken(pArguments)) {
        if (dstring_equal_ignoring_case(parameter->Tag, "RET"))
            ux_InProcessRETValue(parameter->Value, sender.ROCWanted);
        if (dstring_equal_ignoring_case(parameter->Tag, "ENVID")) ux_InProcessENVID(parameter->Value, sender.Envid);
    }
}

void ux_InParseRCPTTO(std::string_view pArguments, ux_RcptTo& recipient) {
    const er_Trace trace("ux_InParseRCPTTO");
    recipient.ArpaORName = take_path(pArguments).substr(0, kArpaORNameLimit);
    while (const auto parameter = ux_InGetNextToken(pArguments)) {
        if (dstring_equal_ignoring_case(parameter->Tag, "NOTIFY")) ux_InProcessNOTIFY(parameter->Value, recipient);
        if (dstring_equal_ignoring_case(parameter->Tag, "ORCPT"))
            ux_InProcessORCPT(parameter->Value, recipient.OrigRcpt);
    }
}
