// Text in a constant table, held in the row itself: a pointer to it would have to be relocated each time a program
// starts, which a process for every delivery pays for every row.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

template <std::size_t Room>
class dstring_Constant {
public:
    // For constants: one that is longer does not compile.
    constexpr dstring_Constant(const char* text) {
        while (text[size_] != '\0') {
            if (size_ == Room) throw "longer than its room";
            text_[size_] = text[size_];
            ++size_;
        }
    }
    constexpr operator std::string_view() const { return {text_, size_}; }

private:
    char text_[Room] = {};
    std::uint8_t size_ = 0;
    static_assert(Room < 256);
};
