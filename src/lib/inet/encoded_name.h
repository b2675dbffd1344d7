// Native names in local parts (RFC 2156, section 4.1). Private to the address service.
#pragma once

#include <string>
#include <string_view>

namespace inet {

// Reads "/KEY=value/KEY=value/" into a native name; false, with `name` empty, for text that is not of that form.
//
//   encoded = 1*( "/" key "=" value ) "/"
//   value   = 1*( byte / "$" byte )          "$" lets a "/" or "=" stand in a value
//   key     = C / ADMD / PRMD / O / OU / OU1 to OU4 / S / G / I / GQ / PN / CN / DD.RFC-822, in any case;
//             our own A and P are ADMD and PRMD
//
// "OU" takes the next unit that is free. PN is a personal name: [ given "." ] *( initial "." ) surname.
bool read_encoded_name(std::string_view local_part, std::string& name);

}  // namespace inet
