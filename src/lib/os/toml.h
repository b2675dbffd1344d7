// TOML, read the one way in which bad TOML is an error and nothing worse: every file that needs toml++ includes it
// here, and gives it its text through os_AsciiToml.
//
// toml++ 3.3 asserts what holds for good TOML only. Each assertion is followed by the error that it reports, so without
// them bad TOML is refused; with them it ends the process, and under NDEBUG a compiler may even rely on them. And its
// character classes have holes beyond ASCII: what it makes of such characters outside strings and comments is
// undefined.
#pragma once

#pragma push_macro("NDEBUG")
#undef NDEBUG
#define TOML_ASSERT(condition) static_cast<void>(0)
#define TOML_ENABLE_FORMATTERS 0
#include <toml++/toml.h>
#pragma pop_macro("NDEBUG")

#include <string>
#include <string_view>

// A TOML text in ASCII alone: every other byte is a mark, which occurs nowhere else in the text, and two hex digits.
// Marks are good TOML only in strings and comments, which is where such characters belong. Lines stay the same.
class os_AsciiToml {
public:
    explicit os_AsciiToml(std::string_view utf8);

    const std::string& text() const { return text_; }
    unsigned bad_line() const { return bad_line_; }      // the first line that is not UTF-8; 0: none
    std::string original(std::string_view found) const;  // what a key, a string or a complaint of the parser said

private:
    std::string mark_;  // empty: all is ASCII
    std::string text_;
    unsigned bad_line_ = 0;
};
