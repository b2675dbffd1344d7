// From a MIME content type to the native file type code and character set, and the charset parameter.
//
// "~/sys/mimetypes.toml" says which type and which file name extension has which code:
//
//   type = [
//       { mime = "text/html", code = 2133, extensions = ["html", "htm"] },
//       ...
//   ]
//
// Types and extensions are compared without regard to case; of rows that name the same one, the first holds and the
// other is logged at level 5, as is a key that has no meaning. The file is read once, when a code is first asked for. A
// home without the file has the rows on which behaviour depends (the mail system's own types, HTML, calendars, rich
// text) and no extensions. A file that cannot be read as this is logged at level 3 with file, line and key, and raises
// (group 1, EINVAL); nothing is remembered of it, and whoever asks next reads it again.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

inline constexpr std::int32_t kPlainTextCode = 1167;     // text in IA5 or ISO8859_1, or in no set that is named
inline constexpr std::int32_t kOtherSetTextCode = 1736;  // text in any other set
inline constexpr std::int32_t kHtmlCode = 2133;
inline constexpr std::int32_t kBinaryCode = 0;

struct mim_QNType {
    std::int32_t lQNFileCode = kBinaryCode;
    std::string QNCharSet;  // native name; a set that is not known keeps its label, cut to 14; empty: none is named
};

// The type without its parameters selects the row. A text type without a row, and a type without "/", is plain text;
// application/octet-stream is what the file name's extension says when that has a row; anything else is binary.
// `file_name` may be in the form of RFC 2047. Raises what reading the map raises.
mim_QNType mim_MimeToQNType(std::string_view content_type, std::string_view file_name);

// The code of the extension of a file name, in the form of RFC 2047 or not; none when it has no row. Raises likewise.
std::optional<std::int32_t> mim_FileExtToQNType(std::string_view file_name);

// The content type with the MIME name of `native_set` (any name of a set; one that is not known is written as it is,
// less what no parameter may hold) as its charset parameter: over the value of the one that it has, else as
// "; charset=NAME" at the end, in place of the blanks and semicolons there. Of a charset parameter in the form of
// RFC 2231 the first section is overwritten, name and all. A set without a name changes nothing. What is written is
// what is read again: where the text is so broken that it would not be, the bare type and the parameter are the result.
std::string mim_InsertNewCSName(std::string_view content_type, std::string_view native_set);

// Forgets the map, and reads `path` instead of the home's file when one is given; for tests and tools.
void mim_reset_types(std::string path = {});
