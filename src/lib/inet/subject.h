// Subjects in RFC 2047 form: encoding.
#pragma once

#include <string>
#include <string_view>

// How encoded words carry their bytes.
inline constexpr char kBase64Method = 'b';
inline constexpr char kQuotedMethod = 'q';
inline constexpr char kShorterMethod = '?';  // 63: the shorter of the two, quoted when they are equal

// The RFC 2047 form of a subject whose bytes are text of `charset`. Printable 7-bit text that is ASCII in its set and
// holds no "=?" stays as it is (tabs are printable here). Anything else becomes encoded words (RFC 2047, section 2) of
// at most 75 characters, cut between characters, filled as far as they go, joined with one blank and labelled with the
// set's MIME name; a set that is not known is its own label. In sets with shifts every word begins and ends unshifted.
std::string inet_Subject_toRfc2047_dstring(std::string_view text, std::string_view charset, char method);
