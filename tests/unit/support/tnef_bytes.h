// TNEF streams written by hand, without the code that they test.
//
//   TnefBytes().attribute(1, 0x00078008, "IPM.Note" + nul).properties(1, 0x00069003, PropertyBytes()...).str()
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tnef_bytes {

inline std::string u16(std::uint64_t value) {
    return {static_cast<char>(value & 255), static_cast<char>(value >> 8 & 255)};
}
inline std::string u32(std::uint64_t value) { return u16(value & 0xFFFF) + u16(value >> 16 & 0xFFFF); }
inline std::string u64(std::uint64_t value) { return u32(value & 0xFFFFFFFF) + u32(value >> 32); }
inline std::string padded(std::string bytes) {
    bytes.append((4 - bytes.size() % 4) % 4, '\0');
    return bytes;
}
inline std::string zero_ended(std::string_view text) { return std::string(text) + '\0'; }
// ASCII text as UTF-16LE, with its NUL.
inline std::string wide(std::string_view ascii) {
    std::string bytes;
    for (const char c : ascii) bytes += {c, '\0'};
    return bytes + std::string(2, '\0');
}

inline const std::string kCommonSet("\x08\x20\x06\0\0\0\0\0\xC0\0\0\0\0\0\0\x46", 16);
inline const std::string kMessageIid("\x07\x03\x02\0\0\0\0\0\xC0\0\0\0\0\0\0\x46", 16);
inline const std::string kStorageIid("\x0B\0\0\0\0\0\0\0\xC0\0\0\0\0\0\0\x46", 16);

// A list of properties.
class PropertyBytes {
public:
    PropertyBytes& raw(std::uint32_t tag, std::string_view value) {
        bytes_ += u32(tag) + std::string(value);
        ++count_;
        return *this;
    }
    PropertyBytes& number(std::uint32_t tag, std::uint32_t value) { return raw(tag, u32(value)); }
    PropertyBytes& variable(std::uint32_t tag, const std::string& value) {
        return raw(tag, u32(1) + u32(value.size()) + padded(value));
    }
    PropertyBytes& text8(std::uint16_t id, std::string_view text) {
        return variable(std::uint32_t{id} << 16 | 0x1E, zero_ended(text));
    }
    PropertyBytes& text(std::uint16_t id, std::string_view ascii) {
        return variable(std::uint32_t{id} << 16 | 0x1F, wide(ascii));
    }
    std::string str() const { return u32(count_) + bytes_; }

private:
    std::string bytes_;
    std::uint32_t count_ = 0;
};

inline std::uint16_t checksum(std::string_view data) {
    std::uint32_t sum = 0;
    for (const char c : data) sum += static_cast<unsigned char>(c);
    return static_cast<std::uint16_t>(sum);
}

class TnefBytes {
public:
    TnefBytes() : bytes_(u32(0x223E9F78) + u16(0x4711)) {}
    TnefBytes& attribute(int level, std::uint32_t id, std::string_view data) {
        return attribute(level, id, data, checksum(data));
    }
    TnefBytes& attribute(int level, std::uint32_t id, std::string_view data, std::uint16_t sum) {
        bytes_ += static_cast<char>(level) + u32(id) + u32(data.size());
        bytes_ += data;
        bytes_ += u16(sum);
        return *this;
    }
    TnefBytes& item_class(std::string_view name) { return attribute(1, 0x00078008, zero_ended(name)); }
    TnefBytes& codepage(std::uint32_t number) { return attribute(1, 0x00069007, u64(number)); }
    TnefBytes& subject(std::string_view text) { return attribute(1, 0x00018004, zero_ended(text)); }
    TnefBytes& properties(const PropertyBytes& list) { return attribute(1, 0x00069003, list.str()); }
    TnefBytes& begin_attachment() { return attribute(2, 0x00069002, std::string(14, '\0')); }
    TnefBytes& title(std::string_view text) { return attribute(2, 0x00018010, zero_ended(text)); }
    TnefBytes& data(std::string_view bytes) { return attribute(2, 0x0006800F, bytes); }
    TnefBytes& attachment_properties(const PropertyBytes& list) { return attribute(2, 0x00069005, list.str()); }
    // A whole attachment that is a message.
    TnefBytes& embedded(const std::string& stream) {
        return begin_attachment().attachment_properties(PropertyBytes().variable(0x3701000D, kMessageIid + stream));
    }
    const std::string& str() const { return bytes_; }

private:
    std::string bytes_;
};

}  // namespace tnef_bytes
