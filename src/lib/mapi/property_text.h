// Properties as text, in UTF-8: one property a line.
//
//   line   = NAME ":" TYPE "=" VALUE LF
//   NAME   = canonical name / "0x" 8 hex digits, the tag of a property without one
//   TYPE   = [ "multiple-" ] ( "unicode" / "integer16" / "integer32" / "integer64" / "floating32" / "floating64" /
//            "boolean" / "time" / "guid" / "binary" / "error" / "object" )
//   VALUE  = value, or values with "\;" between them
//
//   unicode     as it is, a backslash, CR or LF written \\ \r \n
//   integers    decimal; floating: the shortest decimal that is the same number
//   boolean     true, false
//   time        2026-11-20T21:22:33Z; fractions of a second are dropped
//   guid        00062008-0000-0000-c000-000000000046
//   binary      base64; object the same, its interface identifier included
//   error       0x80040102
//
// Types that the text has no word for: text in a code page is unicode; currency is integer64, in ten-thousandths; a
// floating time (days since 1899-12-30) is floating64. Several values of none at all and one empty value look the
// same: it is read as none.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "mapi/property.h"

// The three parts of a line. mapi_value_text: `escaped` as in a line; without it a single text stands as it is, which
// is what a place that needs no escapes takes (several values are escaped all the same).
std::string mapi_name_text(const mapi_Property& property);
std::string mapi_type_text(const mapi_Property& property);
std::string mapi_value_text(const mapi_Property& property, bool escaped = true);

// Appends the property's line.
void mapi_append_line(std::string& out, const mapi_Property& property);

// A property from its three parts; nothing when the name is neither canonical nor a tag, the type is not known or the
// value is not of the type. Without `escaped` a single unicode value is `value` as it stands.
std::optional<mapi_Property> mapi_read_property(std::string_view name, std::string_view type, std::string_view value,
                                                bool escaped = true);
// The same from a line, with or without its LF.
std::optional<mapi_Property> mapi_read_line(std::string_view line);

// Base64 (RFC 4648) as it stands in values. Blanks and line ends are skipped; missing padding, or anything else that is
// not of the alphabet, is nothing.
std::optional<std::string> mapi_read_base64(std::string_view text);
