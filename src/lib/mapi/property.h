// One property of a message, an attachment or a recipient ([MS-OXCDATA], section 2.11).
//
// A property has a tag: a 16-bit identifier and a type. Identifiers from 0x8000 are only numbers of the stream that
// they stand in; such a property is known by its name: a property set and a number, or a property set and a text.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The types of [MS-OXCDATA], section 2.11.1. They stand in streams: never renumbered.
enum class mapi_Type : std::uint16_t {
    unspecified = 0x0000,
    integer16 = 0x0002,
    integer32 = 0x0003,
    floating32 = 0x0004,
    floating64 = 0x0005,
    currency = 0x0006,       // ten-thousandths, 64 bits
    floating_time = 0x0007,  // days since 1899-12-30, floating64
    error = 0x000A,
    boolean = 0x000B,
    object = 0x000D,  // the identifier of an interface (16 bytes), then the object
    integer64 = 0x0014,
    string8 = 0x001E,  // text in the code page of its stream
    unicode = 0x001F,
    time = 0x0040,  // 100 nanoseconds since 1601-01-01 UTC, 64 bits
    guid = 0x0048,
    binary = 0x0102,
};
inline constexpr std::uint16_t kMapiMultiple = 0x1000;    // bit of a type: it has any number of values
inline constexpr std::uint16_t kMapiFirstNamed = 0x8000;  // identifiers from here on are of named properties

// A GUID as its 16 bytes stand in a stream: the first three groups are little-endian.
struct mapi_Guid {
    std::array<std::uint8_t, 16> bytes{};
    bool operator==(const mapi_Guid&) const = default;
};
constexpr mapi_Guid mapi_make_guid(std::uint32_t a, std::uint16_t b, std::uint16_t c,
                                   const std::array<std::uint8_t, 8>& d) {
    mapi_Guid guid;
    for (unsigned i = 0; i < 4; ++i) guid.bytes[i] = static_cast<std::uint8_t>(a >> (8 * i));
    for (unsigned i = 0; i < 2; ++i) guid.bytes[4 + i] = static_cast<std::uint8_t>(b >> (8 * i));
    for (unsigned i = 0; i < 2; ++i) guid.bytes[6 + i] = static_cast<std::uint8_t>(c >> (8 * i));
    for (unsigned i = 0; i < 8; ++i) guid.bytes[8 + i] = d[i];
    return guid;
}
// {xxxxxxxx-0000-0000-C000-000000000046}, the form of most property sets and interfaces.
constexpr mapi_Guid mapi_ole_guid(std::uint32_t a) { return mapi_make_guid(a, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}); }

// "00062008-0000-0000-c000-000000000046", and back; braces around it and any case are understood.
std::string mapi_guid_text(const mapi_Guid& guid);
std::optional<mapi_Guid> mapi_read_guid(std::string_view text);

// What a named property is known by.
struct mapi_Name {
    mapi_Guid set;
    std::uint32_t lid = 0;  // when `text` is empty
    std::string text;       // UTF-8
    bool operator==(const mapi_Name&) const = default;
};

// One value. `number`: the integers, boolean (0 or 1), error, currency and time; `real`: the floating types; `bytes`:
// text in UTF-8 without a terminator, the 16 bytes of a guid, a binary, an object with its interface identifier.
struct mapi_Value {
    std::int64_t number = 0;
    double real = 0;
    std::string bytes;
    bool operator==(const mapi_Value&) const = default;
};

struct mapi_Property {
    std::uint16_t id = 0;  // of a named property: its number in a stream, 0 when it has none yet
    mapi_Type type = mapi_Type::unspecified;
    bool multiple = false;
    std::optional<mapi_Name> name;
    std::vector<mapi_Value> values;  // one, unless it is `multiple`
    bool operator==(const mapi_Property&) const = default;

    std::uint32_t tag() const {
        return std::uint32_t{id} << 16 | static_cast<std::uint16_t>(type) | (multiple ? kMapiMultiple : 0U);
    }
};

// Properties of one value, known by a canonical name ("PidTagSubject", "PidLidLocation"). The name must be one that
// mapi_find_name (mapi/names.h) knows: an unknown one raises EINVAL.
mapi_Property mapi_unicode(std::string_view name, std::string text);
mapi_Property mapi_integer16(std::string_view name, std::int16_t value);
mapi_Property mapi_integer32(std::string_view name, std::int32_t value);
mapi_Property mapi_boolean(std::string_view name, bool value);
mapi_Property mapi_time(std::string_view name, std::int64_t filetime);
mapi_Property mapi_binary(std::string_view name, std::string bytes);
mapi_Property mapi_unicodes(std::string_view name, const std::vector<std::string>& texts);  // multiple-unicode

// Times of properties: 100 nanoseconds since 1601-01-01 UTC.
inline constexpr std::int64_t kMapiTicks = 10'000'000;      // in a second
inline constexpr std::int64_t kMapiEpoch = 11'644'473'600;  // seconds from 1601-01-01 to 1970-01-01
constexpr std::int64_t mapi_time_of(std::int64_t unix_seconds) { return (unix_seconds + kMapiEpoch) * kMapiTicks; }
constexpr std::int64_t mapi_unix_seconds(std::int64_t filetime) {
    const std::int64_t whole = filetime / kMapiTicks - (filetime % kMapiTicks < 0 ? 1 : 0);
    return whole - kMapiEpoch;
}

// UTF-16LE and UTF-8. A surrogate without its other half, an odd last byte and invalid UTF-8 become U+FFFD.
void mapi_append_utf16(std::string& out, std::string_view utf8);
// Appends the UTF-8 form of `utf16`, up to its first NUL. `high`: a first half that the bytes before ended with, 0
// none; what these bytes end with is left in it, for whoever reads text in blocks. False: a NUL ended the text.
bool mapi_append_utf8(std::string& out, std::string_view utf16, char16_t& high);
std::string mapi_utf8(std::string_view utf16);
