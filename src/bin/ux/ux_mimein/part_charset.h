// The character set of a text part: labelled, supplied, detected or proven; and its conversion as the steering says.
//
//   1. the label, else UXI_UNIX_MAIL_CHARSET (IA5 when that is not set)
//   2. detection, when the label is missing or UXI_MIME_CS_AUTODETECT asks for it always: a set that can be read holds
//   3. else the text is read as its set: text that is no text of it keeps its label, but is looked at again whole when
//      the label means little; text that is all ASCII is labelled so
//   4. conversion: by a converter of the steering file, else to the target set that it names
#pragma once

#include <string>
#include <string_view>

#include "ux_mimein/leaf_part.h"

// The set of text that declares none, and the set that detection prefers with it.
void ux_SetDefaultCharset(ux_LeafPart& part);

// Gives the content type this set as its charset parameter and maps it again to file code and set.
void ux_RelabelPart(ux_LeafPart& part, std::string_view native_set);

// Settles the set of a decoded text part; other parts are left alone. Raises what reading and writing the item raises.
void ux_SettleCharset(ux_LeafPart& part);

// Converts the part; item, code, set and content type are the new ones afterwards. A conversion that fails is accepted
// and leaves the part as it is. Any part can have a converter; text alone has a target set.
void ux_ConvertPart(ux_LeafPart& part);
