// Text from mail, made readable: subjects, names, the first lines of a body part. What comes out is UTF-8 but not yet
// harmless() for a terminal.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "morvane/record_file.h"

namespace morvane {

// A subject or file name in RFC 2047 form, decoded.
std::string readable_subject(std::string_view encoded);

// A native name as people write addresses: "Jane Doe <jane@example.org>", the display name decoded. Empty when the name
// holds nothing of the kind.
std::string readable_name(std::string_view native);

// A native name without its Internet address, which readable_name tells.
std::string without_address(std::string_view native);

// The name delimiter of the home, from ~/sys/config, is the one that names are read with from now on; without that
// file it is "/".
void load_name_delimiter();

// `bytes`, text in character set `set` (a native name), in UTF-8; a character cut off at the end is dropped. Text that
// is not in the set, or in one that is not known, stays as it is.
std::string to_utf8(std::string_view bytes, std::string_view set);

// UTF-8 for machines: bytes that are not part of valid UTF-8 become the character of their Latin-1 code.
std::string lenient_utf8(std::string_view bytes);
bool is_utf8(std::string_view bytes);

// The first lines of a text of `length` bytes at `start` of a file.
struct Preview {
    std::vector<std::string> lines;  // without their line ends
    bool more = false;               // something follows them
};
Preview preview(ByteFile& file, std::uint64_t start, std::uint64_t length, std::string_view set,
                std::size_t most_lines);

}  // namespace morvane
