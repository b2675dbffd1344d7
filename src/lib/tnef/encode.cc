// Writing TNEF: see encode.h. Lengths are written when they are known, over zeros; checksums are sums, so that they
// need not wait for them.
#include "tnef/encode.h"

#include <bit>
#include <cerrno>
#include <limits>
#include <string>

#include "er/er.h"
#include "tnef/format.h"
#include "tnef/text.h"

namespace {

constexpr std::uint16_t kKey = 1;  // any number but 0
constexpr std::uint32_t kVersion = 0x00010000;
constexpr std::uint16_t kLastNamed = 0xFFFE;

std::string little_endian(std::uint64_t value, std::size_t width) {
    std::string bytes;
    for (; width != 0; --width, value >>= 8) bytes += static_cast<char>(value & 0xFF);
    return bytes;
}

std::uint32_t sum_of(std::string_view bytes) {
    std::uint32_t sum = 0;
    for (const char byte : bytes) sum += static_cast<unsigned char>(byte);
    return sum;
}

int width_of(mapi_Type type) { return tnef_width(static_cast<std::uint16_t>(type)); }

// Text without a terminator as a stream holds it.
std::string stream_text(std::string_view utf8) {
    std::string text;
    mapi_append_utf16(text, utf8);
    return text.append(2, '\0');
}

bool is_sound(const mapi_Property& property) {
    if (width_of(property.type) == kTnefNoType) return false;
    if (!property.name && property.id >= kMapiFirstNamed) return false;
    return property.multiple ? property.values.size() <= std::numeric_limits<std::uint32_t>::max()
                             : property.values.size() == 1;
}

// The bytes of a fixed value, padded to its width.
std::string fixed_value(mapi_Type type, const mapi_Value& value) {
    const auto width = static_cast<std::size_t>(width_of(type));
    switch (type) {
        case mapi_Type::integer16: return little_endian(static_cast<std::uint16_t>(value.number), width);
        case mapi_Type::boolean: return little_endian(value.number != 0 ? 1 : 0, width);
        case mapi_Type::floating32:
            return little_endian(std::bit_cast<std::uint32_t>(static_cast<float>(value.real)), width);
        case mapi_Type::floating64:
        case mapi_Type::floating_time: return little_endian(std::bit_cast<std::uint64_t>(value.real), width);
        case mapi_Type::guid: {
            std::string bytes = value.bytes;
            bytes.resize(width, '\0');
            return bytes;
        }
        default: return little_endian(static_cast<std::uint64_t>(value.number), width);
    }
}

}  // namespace

tnef_Encoder::tnef_Encoder(im_Item& out, std::string_view message_class) : out_(out) {
    out_.write(little_endian(kTnefSignature, 4) + little_endian(kKey, 2));
    begin_attribute(static_cast<std::uint32_t>(tnef_Attribute::tnef_version));
    write32(kVersion);
    end_attribute();
    begin_attribute(static_cast<std::uint32_t>(tnef_Attribute::message_class));
    write(std::string(message_class) + '\0');
    end_attribute();
    begin_attribute(static_cast<std::uint32_t>(tnef_Attribute::mapi_properties));
    count_at_ = begin_length();
}

void tnef_Encoder::write(std::string_view bytes) {
    out_.write(bytes);
    sum_ += sum_of(bytes);
}

void tnef_Encoder::write32(std::uint32_t value) { write(little_endian(value, 4)); }
void tnef_Encoder::pad(std::uint64_t length) { write(std::string(tnef_padding(length), '\0')); }

std::uint64_t tnef_Encoder::begin_length() {
    const std::uint64_t at = out_.size();
    write32(0);
    return at;
}

void tnef_Encoder::patch32(std::uint64_t at, std::uint64_t value) {
    if (value > std::numeric_limits<std::uint32_t>::max()) er_SystemEscape(EFBIG, "a TNEF stream");
    out_.overwrite(at, little_endian(value, 4));
}

// The four zeros become the length of what was written after them.
void tnef_Encoder::end_length(std::uint64_t at) {
    const std::uint64_t length = out_.size() - at - 4;
    patch32(at, length);
    sum_ += sum_of(little_endian(length, 4));
}

void tnef_Encoder::begin_attribute(std::uint32_t id) {
    out_.write(little_endian(kTnefMessageLevel, 1) + little_endian(id, 4));
    length_at_ = out_.size();
    out_.write(little_endian(0, 4));
    sum_ = 0;
}

void tnef_Encoder::end_attribute() {
    patch32(length_at_, out_.size() - length_at_ - 4);
    out_.write(little_endian(sum_ & 0xFFFF, kTnefChecksum));
}

void tnef_Encoder::write_head(const mapi_Property& head, mapi_Type type) {
    mapi_Property tagged;
    tagged.id = head.id;
    tagged.type = type;
    tagged.multiple = head.multiple;
    if (head.name && head.id < kMapiFirstNamed) {
        tagged.id = next_named_;
        next_named_ = next_named_ == kLastNamed ? kMapiFirstNamed : static_cast<std::uint16_t>(next_named_ + 1);
    }
    write32(tagged.tag());
    ++count_;
    if (!head.name) return;
    write({reinterpret_cast<const char*>(head.name->set.bytes.data()), head.name->set.bytes.size()});
    write32(head.name->text.empty() ? 0 : 1);
    if (head.name->text.empty()) return write32(head.name->lid);
    const std::string text = stream_text(head.name->text);
    write32(static_cast<std::uint32_t>(text.size()));
    write(text);
    pad(text.size());
}

void tnef_Encoder::write_value(mapi_Type type, const mapi_Value& value) {
    if (width_of(type) != 0) return write(fixed_value(type, value));
    const std::uint64_t at = begin_length();
    write(type == mapi_Type::unicode ? stream_text(value.bytes) : value.bytes);
    const std::uint64_t length = out_.size() - at - 4;
    end_length(at);
    pad(length);
}

void tnef_Encoder::put(const mapi_Property& property) {
    if (!is_sound(property)) er_SystemEscape(EINVAL, "a property that TNEF cannot hold");
    const mapi_Type type = property.type == mapi_Type::string8 ? mapi_Type::unicode : property.type;
    write_head(property, type);
    if (property.multiple || width_of(type) == 0) write32(static_cast<std::uint32_t>(property.values.size()));
    for (const mapi_Value& value : property.values) write_value(type, value);
}

// A text that proves to be in another set than was said is begun again.
void tnef_Encoder::write_text(tnef_Source& source, tnef_Span text, std::string_view set) {
    const std::uint64_t at = begin_length();
    const std::uint32_t sum_before = sum_;
    std::string wide;
    tnef_read_text(
        source, text, {.is_unicode = false, .set = set},
        [&](std::string_view utf8) {
            wide.clear();
            mapi_append_utf16(wide, utf8);
            write(wide);
        },
        [&] {
            out_.truncate(at + 4);
            sum_ = sum_before;
        });
    write(std::string_view("\0\0", 2));
    const std::uint64_t length = out_.size() - at - 4;
    end_length(at);
    pad(length);
}

void tnef_Encoder::put(tnef_Source& source, const tnef_Property& property, std::string_view set) {
    if (!property.is_large()) return put(tnef_read_values(source, property, set));
    const mapi_Type type = property.head.type == mapi_Type::string8 ? mapi_Type::unicode : property.head.type;
    write_head(property.head, type);
    if (property.head.multiple || width_of(type) == 0) write32(property.count);
    tnef_Span values = property.values;
    if (property.head.type == mapi_Type::string8) {
        tnef_Cursor in(source, values);
        for (std::uint32_t i = 0; i < property.count; ++i) {
            const std::uint32_t length = in.take32();
            write_text(source, in.take_span(length), set);
            in.skip_padding(length);
        }
        return;
    }
    const std::uint64_t length = values.size();
    while (!values.empty()) write(source.block(values));
    pad(length);
}

void tnef_Encoder::put_text(const mapi_Property& head, tnef_Source& source, tnef_Span text, std::string_view set) {
    write_head(head, mapi_Type::unicode);
    write32(1);
    write_text(source, text, set);
}

void tnef_Encoder::finish() {
    patch32(count_at_, count_);
    sum_ += sum_of(little_endian(count_, 4));
    end_attribute();
}

void tnef_Encode(im_Item& out, std::string_view message_class, const std::vector<mapi_Property>& properties) {
    tnef_Encoder encoder(out, message_class);
    for (const mapi_Property& property : properties) encoder.put(property);
    encoder.finish();
}
