// Arguments of MAIL FROM and RCPT TO: a path, then the parameters of delivery status notifications (RFC 3461 section 4:
// RET and ENVID, NOTIFY and ORCPT).
//
//   argument   = path *( " " parameter )
//   path       = everything up to and including the first ">", or everything
//   parameter  = keyword "=" value
//
// No parameter is ever refused: what is unknown or malformed is ignored, and what is not named keeps its value. So the
// caller decides what holds when nothing is said.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

// Longest texts that are kept; the rest is cut off.
inline constexpr std::size_t kArpaSenderLimit = 4096;
inline constexpr std::size_t kEnvidLimit = 4079;
inline constexpr std::size_t kArpaORNameLimit = 1024;
inline constexpr std::size_t kOrigRcptLimit = 1024;
inline constexpr std::size_t kEnvelopeTagLimit = 79;
inline constexpr std::size_t kEnvelopeValueLimit = 1024;

// What MAIL FROM sets.
struct ux_MailFrom {
    std::string ArpaSender;  // reverse path as written
    std::string Envid;       // envelope identifier, xtext-decoded
    bool ROCWanted = true;   // reports shall return the full content, not only the header
};

// What RCPT TO sets.
struct ux_RcptTo {
    std::string ArpaORName;     // forward path as written
    std::string OrigRcpt;       // address type, ";", xtext-decoded original address
    bool NoNDNWanted = false;   // no non-delivery notification is wanted
    bool DelAckWanted = false;  // a delivery notification is wanted
};

// pArguments is what follows the colon, without leading blanks. The path is always set, the rest when named.
void ux_InParseMAILFROM(std::string_view pArguments, ux_MailFrom& sender);
void ux_InParseRCPTTO(std::string_view pArguments, ux_RcptTo& recipient);

struct ux_EnvelopeParameter {
    std::string_view Tag;    // at most 79 characters
    std::string_view Value;  // at most 1024 characters
};

// Takes the next parameter from the front of ppChar. Nothing at the end, and for a word without "=", which is taken all
// the same; either ends the parameters. The views are into ppChar's text. Only the blank separates words.
std::optional<ux_EnvelopeParameter> ux_InGetNextToken(std::string_view& ppChar);

// RET: "FULL" or "HDRS", in capitals. ENVID: xtext. NOTIFY: a comma-separated list in any case, later items
// override earlier ones. ORCPT: address type ";" xtext.
void ux_InProcessRETValue(std::string_view Value, bool& pROCWanted);
void ux_InProcessENVID(std::string_view Value, std::string& pEnvid);
void ux_InProcessNOTIFY(std::string_view Value, ux_RcptTo& recipient);
void ux_InProcessORCPT(std::string_view Value, std::string& pOrigRcpt);
