// One Internet address as it stands in a header field or an envelope path (RFC 5322, section 3.4, with the obsolete
// forms of its section 4.4).
#pragma once

#include <string>
#include <string_view>

enum class mim_AddressKind {
    unreadable,  // cannot be read as an address
    words,       // words, a comment, or a group without members: text with no address in it
    address,     // has a local part, and a domain when one was given
};

// What an address is made of. The parts are filled as far as reading came, whatever the kind.
struct mim_Address {
    mim_AddressKind kind = mim_AddressKind::unreadable;
    std::string phrase;  // display name: quotes resolved, comments left out, words joined with one blank; not decoded
    std::string
        comment;        // the first comment that holds something, without its parentheses; used when there is no phrase
    std::string route;  // "@a,@b" of "<@a,@b:local@domain>"
    std::string localpart;  // quotes and backslashes resolved
    std::string domain;     // as written, without blanks and comments; a literal keeps its brackets
};

// Splits an address. Accepted beyond the RFC, because mailers write it: a missing or a surplus angle bracket, text
// after the closing one, dots anywhere in a local part, bare words as a phrase, 8-bit bytes everywhere. Cost is linear
// in the text; nothing is recursive.
mim_Address mim_parse_address(std::string_view address);

// Appends local part, "@" and domain (in lower case when asked for); the local part is quoted where RFC 5322 wants it.
void mim_append_addr_spec(std::string& out, const mim_Address& address, bool lower_domain);
