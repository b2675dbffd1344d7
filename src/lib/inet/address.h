// Internet addresses: into native names, and small rules of address text.
#pragma once

#include <string>
#include <string_view>

#include "mim/mapping.h"

// Turns an Internet address (RFC 5322, any form that mim_parse_address reads; a byte 0 ends it) into a native name, by
// the first of these rules that applies:
//
//   1. mapping is on and its directory has an entry whose attribute equals the addr-spec, case ignored: its name
//   2. the local part is an encoded name, "/KEY=value/KEY=value/" (RFC 2156, section 4.1): those fields
//   3. the domain is local, or there is none: S = the local part or, when it holds exactly one dot with text on both
//      sides, G and S; O = the domain in lower case
//   4. DD.RFC-822 = the addr-spec, domain in lower case, as a printable string (RFC 2156, section 3.3.1)
//
// The display name (phrase, else comment), decoded to UTF-8, becomes CN, unless rule 1 or 2 gave one. Text with no
// address in it becomes CN alone. What cannot be read is logged (100/24071, level 9).
//
// Result: 1, pORN is the name; an address with 8-bit or control bytes has become its addr-spec alone. 0: pORN and
// pArpaORN are empty. Raises what the configuration and the directory raise. RecipTo (the address is a recipient's)
// changes nothing. Without IncludeGp5Ia the name shall not hold the Internet address: an IA of rule 1 goes.
int inet_uxConvArpaORNToORN(std::string& pArpaORN, std::string& pORN, bool RecipTo, const mim_Mapping& mapping,
                            bool IncludeGp5Ia);

// Is the domain one of ours: in the key INET_LOCAL_DOMAINS (names between commas), or, without that key, the name of
// this host? Case is ignored. The key is read once a process.
bool inet_is_local_domain(std::string_view domain);
void inet_reset();  // forgets the key; for tests

// Only 7-bit characters and no control characters?
bool inet_is_plain_text(std::string_view text);

// The text without its square brackets.
std::string inet_RemoveBrackets(std::string_view text);
// With one pair of angle brackets what stands between them, else the text without any.
std::string inet_RemoveAngleBrackets(std::string_view text);
// The line with "?" for each control and 8-bit byte. The number is the service's mode; 16 is the only one.
std::string inet_ReplaceBadHeaderChars(std::string_view line, int mode = 16);
