// Message identifiers: see identifiers.h.
#include "ux_in/identifiers.h"

#include <algorithm>
#include <array>
#include <utility>

#include "aud/aud.h"
#include "er/er.h"
#include "inet/address.h"
#include "mim/mim.h"
#include "tf/record.h"
#include "ux_in/recipients.h"

namespace {

constexpr int kAuditArpaId = 7;
constexpr int kAuditNativeId = 3;
constexpr int kLogAddress = 1505;
constexpr int kLogTooLong = 1418;
constexpr std::size_t kIdentifierAt = 18;  // in the record

constexpr std::string_view kOwnDomain = "@MHS";
constexpr std::size_t kOwnLocalLimit = 64;
constexpr std::string_view kOwnPrefix = "MV";
constexpr std::size_t kOwnDigits = 16;

// The output stops growing at the first; a code is written only while the output has at most so many characters.
constexpr std::size_t kOutputLimit = 1064;
constexpr std::size_t kDigitsLimit = 1059;
constexpr std::size_t kLetterLimit = 1061;

// Letters for characters that are not printable, position by position. The parentheses are: their letters are never
// used.
constexpr std::string_view FromMap = "@%!\"_()";
constexpr std::string_view ToMap = "apbqulr";
static_assert(FromMap.size() == ToMap.size());

constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }
constexpr bool is_letter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
constexpr auto kPrintable = [] {
    std::array<bool, 256> set{};
    for (int c = 0; c < 256; ++c) set[c] = is_letter(static_cast<char>(c)) || is_digit(static_cast<char>(c));
    for (const char c : std::string_view(" '()+-/:=?.,")) set[static_cast<unsigned char>(c)] = true;
    return set;
}();
constexpr bool is_printable(char c) { return kPrintable[static_cast<unsigned char>(c)]; }

bool begins_with_own_domain(std::string_view text) {
    return text.size() >= kOwnDomain.size() &&
           std::equal(kOwnDomain.begin(), kOwnDomain.end(), text.begin(),
                      [](char own, char c) { return own == (c >= 'a' && c <= 'z' ? c - ('a' - 'A') : c); });
}

// An identifier of ours, as it comes back.
struct OwnIdentifier {
    std::string_view local;
    std::optional<std::string_view> name;  // what stood behind "*"
};

std::optional<OwnIdentifier> own_identifier(std::string_view identifier) {
    const std::size_t at = identifier.find('@');
    if (at == std::string_view::npos || !begins_with_own_domain(identifier.substr(at))) return std::nullopt;
    OwnIdentifier own;
    own.local = mim_RemoveQuotes(identifier.substr(0, at));
    const std::size_t star = own.local.find('*');
    if (star != std::string_view::npos) {
        own.name = own.local.substr(star + 1);
        own.local = own.local.substr(0, star);
    }
    if (!std::all_of(own.local.begin(), own.local.end(), is_printable)) return std::nullopt;
    if (own.local.size() > kOwnLocalLimit && !im_IsQuillnetMsgId(own.local)) return std::nullopt;
    return own;
}

std::string native_form(const OwnIdentifier& own) {
    std::string out(own.local);
    if (!own.name) return out;
    std::string address(*own.name), name;
    ux_getMsgIdORN(address, name);
    if (!name.empty()) out.append(1, kIdentifierSeparator).append(name);
    return out;
}

// The last three digits of the byte taken as a signed number and widened: 0xE9 is 273. Identifiers made so are in use.
std::array<char, 3> digits_of(char c) {
    const auto code = static_cast<std::uint32_t>(static_cast<std::int32_t>(static_cast<signed char>(c)));
    return {static_cast<char>('0' + code / 100 % 10), static_cast<char>('0' + code / 10 % 10),
            static_cast<char>('0' + code % 10)};
}

std::string printable_form(std::string_view identifier) {
    std::string out;
    for (const char c : identifier) {
        if (is_printable(c)) {
            if (out.size() >= kOutputLimit) break;
            out.push_back(c);
            continue;
        }
        const std::size_t letter = FromMap.find(c);
        if (out.size() > (letter != std::string_view::npos ? kLetterLimit : kDigitsLimit)) break;
        out.push_back('(');
        if (letter != std::string_view::npos) {
            out.push_back(ToMap[letter]);
        } else {
            const auto digits = digits_of(c);
            out.append(digits.data(), digits.size());
        }
        out.push_back(')');
    }
    return out;
}

// Takes the next text between angle brackets off `list`. Without its ">" it runs to the end.
std::optional<std::string_view> take_bracketed(std::string_view& list) {
    const std::size_t open = list.find('<');
    if (open == std::string_view::npos) return std::nullopt;
    list.remove_prefix(open + 1);
    const std::size_t close = std::min(list.find('>'), list.size());
    const std::string_view inside = list.substr(0, close);
    list.remove_prefix(std::min(close + 1, list.size()));
    return inside;
}

// The record type that an identifier gets; nothing when it is passed over.
std::optional<std::int32_t> record_type(const ux_MsgIdTarget& target) {
    switch (target.MsgIdTFRec) {
        case TFREC_message_id:
            if (target.pHadMsgId) return std::nullopt;
            target.pHadMsgId = true;
            return TFREC_message_id;
        case TFREC_in_reply_to: {
            const bool further = std::exchange(target.pHadReplyId, true);
            return further ? TFREC_references : TFREC_in_reply_to;
        }
        default: return target.MsgIdTFRec;
    }
}

void write_identifier(const std::string& identifier, std::int32_t type, const ux_MsgIdTarget& target) {
    tf_Record record(type);
    const std::size_t next = record.put_string(kIdentifierAt, identifier);
    if (type == TFREC_message_id) {
        const std::string_view second = !target.TransportID.empty() ? target.TransportID
                                        : !target.Envid.empty()     ? target.Envid
                                                                    : identifier;
        record.put_string(next, second);
    }
    aud_LogStr(ux_audit().AuditHandle, kAuditNativeId, identifier);
    if (target.WrapTfRecs) tf_ChangeToWrapRec(record);
    tf_AppendRecord(target.TfHandle, record);
}

// The byte that "{ddd}" at the start of the text stands for.
std::optional<char> braced_byte(std::string_view text) {
    if (text.size() < 5 || !is_digit(text[1]) || !is_digit(text[2]) || !is_digit(text[3]) || text[4] != '}')
        return std::nullopt;
    return static_cast<char>((text[1] - '0') * 100 + (text[2] - '0') * 10 + (text[3] - '0'));
}

}  // namespace

ux_IdentifierState& ux_identifiers() {
    static ux_IdentifierState state;
    return state;
}

void ux_reset_identifiers() { ux_identifiers() = ux_IdentifierState(); }

void ux_InParseMsgIdList(std::string_view pMsgIdList, const ux_MsgIdTarget& target) {
    const er_Trace trace("ux_InParseMsgIdList");
    while (const auto identifier = take_bracketed(pMsgIdList)) {
        aud_LogStr(ux_audit().AuditHandle, kAuditArpaId, *identifier);
        ux_identifiers().pLogArpaMsgId = *identifier;
        const std::string X400MsgId = ux_InConvMsgId(*identifier);
        if (const auto type = record_type(target)) write_identifier(X400MsgId, *type, target);
    }
}

std::string ux_InConvMsgId(std::string_view pArpaMsgId) {
    const er_Trace trace("ux_InConvMsgId");
    if (const auto own = own_identifier(pArpaMsgId)) return native_form(*own);
    return printable_form(pArpaMsgId);
}

int ux_getMsgIdORN(std::string& pArpaORN, std::string& pORN) {
    const er_Trace trace("ux_getMsgIdORN");
    if (pArpaORN.size() < kAddressTooLong)
        return inet_uxConvArpaORNToORN(pArpaORN, pORN, false, ux_directory(), ux::internet_address_wanted());
    er_LogMsg(7, kGatewayGroup, kLogAddress, pArpaORN);
    er_LogMsg(7, kGatewayGroup, kLogTooLong);
    pArpaORN.clear();
    pORN.clear();
    return 0;
}

std::optional<std::string> ux_InDecodeXportID(std::string_view EncodedXportID) {
    const er_Trace trace("ux_InDecodeXportID");
    std::string TransportID;
    while (!EncodedXportID.empty()) {
        const char c = EncodedXportID.front();
        std::size_t used = 1;
        if (c == '{') {
            const auto byte = braced_byte(EncodedXportID);
            if (!byte) return std::nullopt;
            TransportID.push_back(*byte);
            used = 5;
        } else {
            TransportID.push_back(c == '/' ? kIdentifierSeparator : c);
        }
        EncodedXportID.remove_prefix(used);
    }
    TransportID.resize(std::min(TransportID.find('\0'), TransportID.size()));
    return TransportID;
}

std::string ux_InParseTransportIDList(std::string_view pMsgIdList) {
    const er_Trace trace("ux_InParseTransportIDList");
    const auto encoded = take_bracketed(pMsgIdList);
    return encoded ? ux_InDecodeXportID(*encoded).value_or("") : "";
}

bool im_IsQuillnetMsgId(std::string_view identifier) {
    if (!identifier.starts_with(kOwnPrefix)) return false;
    identifier.remove_prefix(kOwnPrefix.size());
    const std::string_view digits = identifier.substr(0, kOwnDigits);
    const bool hexadecimal =
        std::all_of(digits.begin(), digits.end(), [](char c) { return is_digit(c) || (c >= 'A' && c <= 'F'); });
    if (digits.size() != kOwnDigits || !hexadecimal) return false;
    return identifier.size() == kOwnDigits ||
           (identifier[kOwnDigits] == kIdentifierSeparator && identifier.size() > kOwnDigits + 1);
}
