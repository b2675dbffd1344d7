// The border between the programs and morvane-properties.so, the module that reads iCalendar with libical and property
// XML with pugixml. libical brings ICU and half a millisecond of start-up with it, for a kind of part that most
// messages do not have: so it is loaded with the first such part of a process. The border is C: plain buffers, and
// nothing throws across it.
//
// What comes out is a sequence of tokens:
//
//   offset width  field
//   0      1      kind
//   1      4      length of the text, in machine order
//   5      n      the text
//
//   kind  of a calendar                                      of XML
//   B     name of a component that begins                    name of an element that begins
//   P     name of a property of it                           -
//   N     name of a parameter of the property                name of an attribute of the element
//   V     the parameter's value, without quotes              the attribute's value
//   T     the property's value: text unescaped; durations    a piece of the element's text
//         and offsets from UTC in seconds; a TRIGGER "+" or
//         "-" and seconds, or a time; anything else as
//         libical writes it. A list is several properties.
//   E     nothing: the component ends                        nothing: the element ends
//   F     -                                                  why the text is not well formed; nothing else
#pragma once

#include <cstddef>

extern "C" {
// Content lines (RFC 5545, section 3.1), unfolded, each ended by LF, without NUL bytes. 0: *out holds *out_size bytes,
// to be given back; anything else: nothing was made.
int morvane_calendar_read(const char* lines, std::size_t size, char** out, std::size_t* out_size) noexcept;
// An XML document, likewise. Nothing that it declares is expanded.
int morvane_xml_read(const char* text, std::size_t size, char** out, std::size_t* out_size) noexcept;
void morvane_tokens_release(char* out) noexcept;
}

inline constexpr int kTokensMade = 0;
inline constexpr int kTokensFailed = 1;
