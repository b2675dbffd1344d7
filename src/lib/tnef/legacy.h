// Attributes that have a property of their own ([MS-OXTNEF], section 2.1.3.3): what each says, as properties.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "mapi/property.h"
#include "tnef/format.h"

// How the data of an attribute is read.
enum class tnef_LegacyKind : std::uint8_t {
    text,          // in the code page, with its NUL; of any length
    date,          // seven u16: year, month, day, hour, minute, second, weekday; of no zone: taken as UTC
    hex_key,       // hexadecimal digits, with a NUL, of a binary
    priority,      // u16: 3 low, 2 normal, 1 high
    status,        // u8 of flags
    integer32,     // u32
    boolean,       // u16
    class_name,    // a message class
    binary,        // as it is
    sender,        // four u16: 4, length of it all, of the name and of the address; then both, each with its NUL
    counted_pair,  // name and address, each after its length (u16) and with its NUL
};

struct tnef_LegacyRow {
    tnef_Attribute attribute;
    tnef_LegacyKind kind;
    std::string_view name;  // canonical, of the property; of an address: of the display name, the others have its stem
};
inline constexpr std::size_t kTnefLegacyRows = 20;
std::span<const tnef_LegacyRow, kTnefLegacyRows> tnef_legacy_rows();
const tnef_LegacyRow* tnef_find_legacy(std::uint32_t attribute);  // null: an attribute of no property
std::size_t tnef_legacy_index(const tnef_LegacyRow& row);         // below kTnefLegacyRows

// What the data of an attribute says, text in `set`; of text of any length the caller takes care. Data that is too
// short says nothing. `about_meeting`: the message asks for a meeting or cancels one, its owner is who it was sent for.
std::vector<mapi_Property> tnef_legacy_properties(const tnef_LegacyRow& row, std::string_view data,
                                                  std::string_view set, bool about_meeting);

// A message class as it is called today: "IPM.Microsoft Mail.Note" is IPM.Note. Other classes stay as they are.
std::string tnef_message_class(std::string_view legacy);

struct tnef_ClassRow {
    std::string_view legacy, name;
};
std::span<const tnef_ClassRow> tnef_class_rows();
