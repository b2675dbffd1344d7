// Properties in streams: see properties.h.
#include "tnef/properties.h"

#include <algorithm>
#include <bit>
#include <optional>
#include <string>
#include <utility>

#include "tnef/format.h"
#include "tnef/text.h"

namespace {

mapi_Name take_name(tnef_Cursor& list) {
    mapi_Name name;
    const std::string_view set = list.take(name.set.bytes.size());
    std::copy(set.begin(), set.end(), name.set.bytes.begin());
    const std::uint32_t kind = list.take32();
    const std::uint32_t number = list.take32();
    if (kind == 0) {
        name.lid = number;
        return name;
    }
    if (kind != 1) tnef_damaged("an unknown kind of name");
    if (number > kTnefNameLimit) tnef_damaged("a name that is too long");
    name.text = mapi_utf8(list.take(number));
    list.skip_padding(number);
    return name;
}

// Values with lengths of their own are as long as they say.
void skip_values(tnef_Cursor& list, std::uint32_t count) {
    for (; count != 0; --count) {
        const std::uint32_t length = list.take32();
        list.take_span(length);
        list.skip_padding(length);
    }
}

std::int64_t take_signed(tnef_Cursor& in, mapi_Type type) {
    switch (type) {
        case mapi_Type::integer16: return static_cast<std::int16_t>(in.take32() & 0xFFFF);
        case mapi_Type::integer32: return static_cast<std::int32_t>(in.take32());
        case mapi_Type::boolean: return (in.take32() & 0xFFFF) != 0 ? 1 : 0;
        case mapi_Type::error: return in.take32();
        default: return static_cast<std::int64_t>(in.take64());
    }
}

mapi_Value take_fixed(tnef_Cursor& in, mapi_Type type) {
    mapi_Value value;
    switch (type) {
        case mapi_Type::floating32: value.real = std::bit_cast<float>(in.take32()); break;
        case mapi_Type::floating64:
        case mapi_Type::floating_time: value.real = std::bit_cast<double>(in.take64()); break;
        case mapi_Type::guid: value.bytes = in.take(sizeof(mapi_Guid::bytes)); break;
        default: value.number = take_signed(in, type);
    }
    return value;
}

mapi_Value take_variable(tnef_Cursor& in, mapi_Type type, std::string_view set) {
    mapi_Value value;
    const std::uint32_t length = in.take32();
    const std::string_view bytes = in.take(length);
    if (type == mapi_Type::unicode || type == mapi_Type::string8)
        value.bytes = tnef_utf8(bytes, {.is_unicode = type == mapi_Type::unicode, .set = set});
    else
        value.bytes = bytes;
    in.skip_padding(length);
    return value;
}

}  // namespace

tnef_Property tnef_take_property(tnef_Cursor& list) {
    tnef_Property property;
    const std::uint32_t tag = list.take32();
    const auto type = static_cast<std::uint16_t>(tag & 0xFFFF & ~unsigned{kMapiMultiple});
    property.head.id = static_cast<std::uint16_t>(tag >> 16);
    property.head.type = static_cast<mapi_Type>(type);
    property.head.multiple = (tag & kMapiMultiple) != 0;
    if (property.head.id >= kMapiFirstNamed) property.head.name = take_name(list);
    const int width = tnef_width(type);
    if (width == kTnefNoType) tnef_damaged("an unknown type");
    if (property.head.multiple || width == 0) property.count = list.take32();
    property.values.begin = list.position();
    if (width == 0)
        skip_values(list, property.count);
    else
        list.take_span(std::uint64_t{property.count} * static_cast<unsigned>(width));
    property.values.end = list.position();
    return property;
}

tnef_Span tnef_first_value(tnef_Source& source, const tnef_Property& property) {
    if (property.count == 0 || tnef_width(static_cast<std::uint16_t>(property.head.type)) != 0) return {};
    tnef_Cursor in(source, property.values);
    return in.take_span(in.take32());
}

// A property of one value that came with none is given an empty one, with more than one the first.
mapi_Property tnef_read_values(tnef_Source& source, const tnef_Property& property, std::string_view set) {
    mapi_Property read = property.head;
    const bool is_fixed = tnef_width(static_cast<std::uint16_t>(read.type)) != 0;
    tnef_Cursor in(source, property.values);
    const std::uint32_t count = read.multiple ? property.count : std::min<std::uint32_t>(property.count, 1);
    for (std::uint32_t i = 0; i < count; ++i)
        read.values.push_back(is_fixed ? take_fixed(in, read.type) : take_variable(in, read.type, set));
    if (!read.multiple && read.values.empty()) read.values.emplace_back();
    if (read.type == mapi_Type::string8) read.type = mapi_Type::unicode;
    return read;
}
