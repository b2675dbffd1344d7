// What the module for calendars and property XML answers (see properties_module.h).
#pragma once

#include <optional>
#include <string>
#include <string_view>

enum class TokenKind { calendar, xml };

// The tokens of a text; none when the module cannot be loaded (which is logged, and tried once a process) or fails.
std::optional<std::string> read_tokens(TokenKind kind, std::string_view text);

bool have_properties_module();  // loads it

// Forgets the module that was loaded, or that was not there: the next text looks for it again. For tests.
void forget_properties_module();

// Tokens one after the other. What does not fit together ends them.
class TokenCursor {
public:
    explicit TokenCursor(std::string_view bytes) : bytes_(bytes) {}
    bool next(char& kind, std::string_view& text);

private:
    std::string_view bytes_;
};
