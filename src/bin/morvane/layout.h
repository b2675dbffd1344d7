// The one description of the record types: what each is called and which fields it has, where, of which kind and how
// they are spelled. The tree, the JSON and the hex dump all read it, so that a field that is known is known to all
// three.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "im/im.h"
#include "morvane/spell.h"

namespace morvane {

enum class Kind : std::uint8_t {
    i16,
    i32,
    u32,
    i64,
    text,     // NUL-terminated bytes
    subject,  // text in RFC 2047 form
    name,     // a native name
    seconds,  // i32, unsigned: a date, in the zone of the `zone` field that follows
    clock,    // i64: a date in GMT
    zone,     // i16, minutes east
    item,     // ITEM_REF, 20 bytes
    bytes,    // as many as the u32 field before the text before it says: the content of an object
};

// What the tree shows of a field; JSON and the hex dump show all.
enum class Look : std::uint8_t {
    always,
    filled,  // unless it is 0 or empty
    never,   // a constant, or something that the tree tells otherwise
};

inline constexpr int kNext = -1;  // after the field before it

struct FieldRow {
    std::string_view key;  // in JSON and in the hex dump
    Kind kind;
    int at;  // offset in the record, or kNext
    Look look = Look::filled;
    std::string_view lead = {};  // what the tree writes before the value
    Words (*spell)(std::int64_t) = nullptr;
    bool optional = false;  // a record may end before it
};

struct RecordRow {
    std::int32_t type;
    std::string_view name;   // in JSON
    std::string_view label;  // in the tree
    std::span<const FieldRow> fields;
};

// The description of a type; null for one that is not known.
const RecordRow* find_record(std::int32_t type);
std::span<const RecordRow> all_records();

// One field of one record.
struct FieldValue {
    const FieldRow* row = nullptr;
    std::uint64_t at = 0;     // in the record
    std::uint64_t width = 0;  // bytes in the record, a text's NUL included
    std::int64_t number = 0;  // of the number kinds
    std::string_view text;    // of the text kinds, without its NUL; of bytes, what of them is in the head
    ITEM_REF item;
    bool cut = false;  // not all of a text is in `text`, or it has no NUL
};

struct FieldList {
    std::vector<FieldValue> values;
    const FieldRow* missing = nullptr;  // the first field that must be there and is not

    const FieldValue* find(std::string_view key) const;
    std::int64_t number(std::string_view key) const;    // 0 when there is none
    std::string_view text(std::string_view key) const;  // empty when there is none
};

// Reads the fields of a record from its first bytes; `length` is that of the whole record. The views point into `head`.
FieldList read_fields(const RecordRow& row, std::string_view head, std::uint64_t length);

}  // namespace morvane
