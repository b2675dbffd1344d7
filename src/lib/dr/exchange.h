// Reading and writing directory entries as text: LDIF (RFC 2849) and CSV (RFC 4180). Private to the directory service.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "dr/dr.h"

namespace dr {

// Gives the entries of a text one after the other.
class EntryReader {
public:
    virtual ~EntryReader() = default;
    // Reads the next entry; its name is empty when the text gives none. False at the end.
    virtual bool next(dr_Entry& entry) = 0;
    std::uint64_t line() const { return line_; }  // where the reader stands, from 1

protected:
    [[noreturn]] void refuse(std::string_view why) const;
    std::uint64_t line_ = 0;
};
std::unique_ptr<EntryReader> make_reader(std::istream& in, dr_Format format);

[[noreturn]] void refuse_line(std::uint64_t line, std::string_view why);  // EINVAL, "line N: why"

// A column of a CSV file: an attribute, and how many columns it needs.
using Column = std::pair<std::string, std::uint64_t>;

void write_ldif_header(std::ostream& out);
void write_ldif_entry(std::ostream& out, const dr_Entry& entry, std::uint64_t number);
void write_csv_header(std::ostream& out, const std::vector<Column>& columns);
void write_csv_entry(std::ostream& out, const dr_Entry& entry, const std::vector<Column>& columns);

}  // namespace dr
