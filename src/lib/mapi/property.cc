// Properties: see property.h.
#include "mapi/property.h"

#include <cerrno>
#include <utility>

#include "cvc/utf8.h"
#include "dstring/ascii.h"
#include "er/er.h"
#include "mapi/names.h"

namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr std::string_view kHex = "0123456789abcdef";

// Where the bytes of a GUID stand in its text, with a dash before those marked -1.
constexpr std::array<int, 20> kGuidText = {3, 2, 1, 0, -1, 5, 4, -1, 7, 6, -1, 8, 9, -1, 10, 11, 12, 13, 14, 15};

constexpr bool is_high(char16_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
constexpr bool is_low(char16_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

void append_unit(std::string& out, char32_t unit) {
    out += static_cast<char>(unit & 0xFF);
    out += static_cast<char>(unit >> 8 & 0xFF);
}

void append_character(std::string& out, char32_t code) {
    if (code < 0x10000) return append_unit(out, code);
    code -= 0x10000;
    append_unit(out, 0xD800 + (code >> 10));
    append_unit(out, 0xDC00 + (code & 0x3FF));
}

// A unit of a text, with the first half of a character that may stand before it.
void append_after(std::string& out, char16_t& high, char16_t unit) {
    const char16_t before = std::exchange(high, is_high(unit) ? unit : char16_t{0});
    if (before != 0 && is_low(unit))
        return append_utf8(out, 0x10000 + (char32_t{before} - 0xD800) * 0x400 + (char32_t{unit} - 0xDC00));
    if (before != 0) append_utf8(out, kReplacement);
    if (high == 0) append_utf8(out, is_low(unit) ? kReplacement : char32_t{unit});
}

int hex_value(char c) {
    const std::size_t value = kHex.find(dstring_lower(c));
    return value == kHex.npos ? -1 : static_cast<int>(value);
}

mapi_Property one_value(std::string_view name, mapi_Type type, mapi_Value value) {
    std::optional<mapi_Property> property = mapi_find_name(name);
    if (!property) er_SystemEscape(EINVAL, "property " + std::string(name));
    property->type = type;
    property->values.push_back(std::move(value));
    return std::move(*property);
}

}  // namespace

std::string mapi_guid_text(const mapi_Guid& guid) {
    std::string text;
    for (const int index : kGuidText) {
        if (index < 0) {
            text += '-';
            continue;
        }
        const std::uint8_t byte = guid.bytes[static_cast<std::size_t>(index)];
        text += {kHex[byte >> 4], kHex[byte & 15]};
    }
    return text;
}

std::optional<mapi_Guid> mapi_read_guid(std::string_view text) {
    if (text.starts_with('{') && text.ends_with('}')) text = text.substr(1, text.size() - 2);
    mapi_Guid guid;
    for (const int index : kGuidText) {
        if (index < 0) {
            if (!text.starts_with('-')) return std::nullopt;
            text.remove_prefix(1);
            continue;
        }
        if (text.size() < 2) return std::nullopt;
        const int high = hex_value(text[0]), low = hex_value(text[1]);
        if (high < 0 || low < 0) return std::nullopt;
        guid.bytes[static_cast<std::size_t>(index)] = static_cast<std::uint8_t>(high << 4 | low);
        text.remove_prefix(2);
    }
    if (!text.empty()) return std::nullopt;
    return guid;
}

mapi_Property mapi_unicode(std::string_view name, std::string text) {
    return one_value(name, mapi_Type::unicode, {.bytes = std::move(text)});
}
mapi_Property mapi_integer16(std::string_view name, std::int16_t value) {
    return one_value(name, mapi_Type::integer16, {.number = value, .bytes = {}});
}
mapi_Property mapi_integer32(std::string_view name, std::int32_t value) {
    return one_value(name, mapi_Type::integer32, {.number = value, .bytes = {}});
}
mapi_Property mapi_boolean(std::string_view name, bool value) {
    return one_value(name, mapi_Type::boolean, {.number = value ? 1 : 0, .bytes = {}});
}
mapi_Property mapi_time(std::string_view name, std::int64_t filetime) {
    return one_value(name, mapi_Type::time, {.number = filetime, .bytes = {}});
}
mapi_Property mapi_binary(std::string_view name, std::string bytes) {
    return one_value(name, mapi_Type::binary, {.bytes = std::move(bytes)});
}
mapi_Property mapi_unicodes(std::string_view name, const std::vector<std::string>& texts) {
    mapi_Property property = one_value(name, mapi_Type::unicode, {});
    property.multiple = true;
    property.values.clear();
    for (const std::string& text : texts) property.values.push_back({.bytes = text});
    return property;
}

void mapi_append_utf16(std::string& out, std::string_view utf8) {
    while (!utf8.empty()) {
        std::string_view valid = utf8.substr(0, check_utf8(utf8).valid);
        utf8.remove_prefix(valid.size());
        while (!valid.empty()) {
            const Utf8Character character = first_character(valid);
            append_character(out, character.code);
            valid.remove_prefix(character.length);
        }
        if (utf8.empty()) return;
        append_unit(out, kReplacement);
        utf8.remove_prefix(1);
    }
}

bool mapi_append_utf8(std::string& out, std::string_view utf16, char16_t& high) {
    for (; utf16.size() >= 2; utf16.remove_prefix(2)) {
        const auto unit =
            static_cast<char16_t>(static_cast<unsigned char>(utf16[0]) | static_cast<unsigned char>(utf16[1]) << 8);
        if (unit == 0) return false;
        if (unit < 0x80 && high == 0)
            out += static_cast<char>(unit);
        else
            append_after(out, high, unit);
    }
    if (!utf16.empty()) append_after(out, high, static_cast<char16_t>(kReplacement));
    return true;
}

std::string mapi_utf8(std::string_view utf16) {
    std::string out;
    char16_t high = 0;
    mapi_append_utf8(out, utf16, high);
    if (high != 0) append_utf8(out, kReplacement);
    return out;
}
