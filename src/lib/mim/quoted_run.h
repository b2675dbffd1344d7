// Quoted-printable text without line ends (RFC 2045, section 6.7): the escapes in it become bytes.
#pragma once

#include <string_view>

// Decodes `in` to `out`, where in.size() bytes may be written to, and returns the end of what it wrote. "=" and two
// hexadecimal digits, in any case, are a byte; any other "=" is text. With `joins` a decoded LF takes the place of a CR
// directly before it; `before` is where the bytes begin that may be such a CR, at most `out`.
char* mim_quoted_run(std::string_view in, const char* before, char* out, bool joins);
