// A look at TOML text before the parser gets it. toml++ 3.3 takes for granted, without looking, that a table header begins
// with a key and that beyond ASCII it meets letters only: on other text it ends the process or does what it likes.
#pragma once

#include <optional>
#include <string>
#include <string_view>

struct TomlComplaint {
    unsigned line = 0;
    std::string what;
};

// What is wrong with the text, of what the parser must not meet; nothing when it may be parsed.
std::optional<TomlComplaint> check_toml_text(std::string_view text);
