// Text as protocols compare it: ASCII letters without regard to case, every other byte as it is. No locale has a say.
#pragma once

#include <algorithm>
#include <string_view>

constexpr char dstring_lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

constexpr bool dstring_starts_ignoring_case(std::string_view text, std::string_view start) {
    return text.size() >= start.size() && std::equal(start.begin(), start.end(), text.begin(), [](char a, char b) {
               return dstring_lower(a) == dstring_lower(b);
           });
}

constexpr bool dstring_equal_ignoring_case(std::string_view a, std::string_view b) {
    return a.size() == b.size() && dstring_starts_ignoring_case(a, b);
}
