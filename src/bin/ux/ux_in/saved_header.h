// A saved header, read back field by field. Lines have CR LF ends; a line longer than 1,023 characters comes in pieces,
// each a line of its own.
//
// A field that takes continuation lines asks for them one by one (a line that begins with a blank or a tab, RFC 5322,
// section 2.2.3); those of a field that does not are skipped, because they hold no ":" that begins a field - or, when
// they do, are taken for one: the gateway has always read headers so.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "im/im.h"

namespace ux {

inline constexpr std::size_t kFieldLimit = 1024;  // a value and what is joined to it stay below this

class SavedHeader {
public:
    explicit SavedHeader(const im_Item& item) : reader_(item) {}

    // Goes to the next line that is a field; false at the end.
    bool next();
    std::string_view name() const { return name_; }    // as it stands before the colon
    std::string_view value() const { return value_; }  // trimmed
    std::uint64_t start() const { return start_; }     // of the field's line in the item

    // The next continuation line of the field, without its first blank and its line end; good until the next call.
    std::optional<std::string_view> continuation();

    // The value with all its continuation lines: joined by one space, or by nothing. A continuation that would not fit
    // below kFieldLimit is left out.
    std::string space_joined();
    std::string space_joined_trimmed();
    std::string appended();

private:
    std::string_view line();  // the next line to its first CR or LF; empty at the end
    void join(std::string& value, std::string_view separator, bool trim);

    im_Reader reader_;
    std::string line_;
    std::string_view name_, value_;
    std::uint64_t start_ = 0;
};

}  // namespace ux
