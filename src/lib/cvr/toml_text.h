// TOML text in a form that its parser can be trusted with. The character classes of toml++ 3.3 have holes beyond ASCII:
// what it makes of such characters outside strings and comments is undefined. So it is given ASCII alone.
#pragma once

#include <string>
#include <string_view>

class AsciiToml {
public:
    explicit AsciiToml(std::string_view utf8);

    // The text with every byte beyond ASCII as a mark, which occurs nowhere else in it, and two hex digits. Lines are
    // the same; a byte-order mark is gone. Such bytes outside strings and comments are thereby an ordinary error.
    const std::string& text() const { return text_; }
    // A string that the parser has found, with its bytes again.
    std::string original(std::string_view found) const;

private:
    std::string mark_, text_;
};
