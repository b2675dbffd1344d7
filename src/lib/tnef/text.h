// Text in TNEF streams: code pages, and conversion to UTF-8 in blocks.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "tnef/source.h"

inline constexpr std::uint32_t kTnefDefaultCodepage = 1252;

// The set of a Windows code page: a native name where there is one, else a name that the converter knows. 0 and what is
// not known are 1252.
std::string tnef_set_of(std::uint32_t codepage);

// How the bytes of a text are to be read.
struct tnef_TextKind {
    bool is_unicode = false;  // UTF-16LE; else in `set`
    std::string_view set = {};
};

// The text up to its first NUL in UTF-8. Bytes that are no text of the set: the text is taken to be UTF-8 when it is
// that, else ISO8859_1, so that something is always there to be read.
std::string tnef_utf8(std::string_view bytes, const tnef_TextKind& kind);

// The same for a span of any size: `out` gets it in pieces that end between characters. Before it is given the text in
// another reading, `again` is called: what it has got is void. Its last piece is not marked.
void tnef_read_text(tnef_Source& source, tnef_Span span, const tnef_TextKind& kind,
                    const std::function<void(std::string_view)>& out, const std::function<void()>& again);
