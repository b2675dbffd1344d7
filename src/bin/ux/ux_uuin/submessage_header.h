// The header of a message encapsulated in an RFC 1154 body.
#pragma once

#include "ux_in/encapsulated_header.h"

// Reads an encapsulated header from the message text and opens the package of its message. Of its fields neither flags
// nor originators are taken, and only the first line of a folded subject reaches the subject record. Raises what
// reading, the stores and the conversion of names raise.
ux::EncapsulatedHeader ux_UUInProcessSubMsgHdr(const ux::EncapsulatedHeaderTarget& target);
