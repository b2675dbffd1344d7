// The border between the programs and morvane-calendar.so, the module that reads iCalendar with libical. libical brings
// ICU and half a millisecond of start-up with it, for a kind of part that most messages do not have: so it is loaded
// with the first calendar of a process. The border is C: plain buffers, and nothing throws across it.
//
// What goes in: content lines (RFC 5545, section 3.1), unfolded, each ended by LF, without NUL bytes. What comes out:
// the components that libical made of them, as a sequence of tokens:
//
//   offset width  field
//   0      1      kind
//   1      4      length of the text, in machine order
//   5      n      the text
//
//   kind  text
//   B     name of a component that begins
//   P     name of a property of it
//   N     name of a parameter of the property
//   V     the parameter's value, without quotes
//   T     the property's value: text unescaped; durations and offsets from UTC in seconds; a TRIGGER "+" or "-" and
//         seconds, or a time; anything else as libical writes it. A list is several properties.
//   E     nothing: the component ends
#pragma once

#include <cstddef>

extern "C" {
// Reads `size` bytes of lines. 0: *out holds *out_size bytes, to be given back; anything else: nothing was made.
int morvane_calendar_read(const char* lines, std::size_t size, char** out, std::size_t* out_size) noexcept;
void morvane_calendar_release(char* out) noexcept;
}

inline constexpr int kCalendarRead = 0;
inline constexpr int kCalendarFailed = 1;
