// The header of a message encapsulated in a MIME message (RFC 2046, section 5.2.1).
#pragma once

#include "ux_in/encapsulated_header.h"

// Reads an encapsulated header from the MIME text and opens the package of its message, with creator, P2 originator and
// flags. Raises what reading, the stores and the conversion of names raise; an escape that has been dealt with on its
// way leaves pTfDistListPos at -1 instead.
ux::EncapsulatedHeader ux_MimInProcessSubMsgHdr(const ux::EncapsulatedHeaderTarget& target);
