// Rich text (RTF 1.9) made from plain text: the body of a message that carries attachments of its own.
#pragma once

#include <optional>
#include <string>
#include <string_view>

// Plain rich text: a line is a paragraph, characters that are not ASCII are \u escapes (in UTF-16, with "?" for readers
// that know none), control characters but the tab are left out. `attachCount` attachments stand behind the text, each
// in a paragraph of its own, as the place of an attached object (\objattph); 10,000 at most.
std::string mapi_makeRtfFromUtf8Description(std::string_view utf8Description, int attachCount);
// The same, by its name in the older interface.
std::string mapi_makeRtfFromUtf8Desc_dstring(std::string_view utf8Description, int attachCount);

// The content of a file of at most 16 MiB; nothing when it is larger, is not there or cannot be read.
inline constexpr std::size_t kLargestTextFile = std::size_t{16} << 20;
std::optional<std::string> mapi_FileToString(std::string_view path);
