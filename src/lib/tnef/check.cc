// The check of a stream: see check.h.
//
// Checksums are sums, so that one running sum serves every level: an attribute's is the sum after it less the sum
// before it, whatever streams are embedded in it. Levels are frames in a vector.
#include "tnef/check.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tnef/format.h"
#include "tnef/source.h"

namespace {

constexpr std::size_t kBlock = std::size_t{64} << 10;

// Bytes that are read once, and their running sum.
class Scanner {
public:
    explicit Scanner(const im_Item& item) : item_(item) {}
    std::uint64_t position() const { return position_; }
    std::uint16_t sum() const { return static_cast<std::uint16_t>(sum_); }

    std::uint64_t take(std::size_t width) {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < width; ++i) {
            if (block_.empty()) fill();
            const auto byte = static_cast<unsigned char>(block_.front());
            value |= std::uint64_t{byte} << (8 * i);
            sum_ += byte;
            block_.remove_prefix(1);
        }
        position_ += width;
        return value;
    }

    void skip(std::uint64_t count) {
        position_ += count;
        while (count != 0) {
            if (block_.empty()) fill();
            const std::string_view part =
                block_.substr(0, static_cast<std::size_t>(std::min<std::uint64_t>(count, block_.size())));
            for (const char byte : part) sum_ += static_cast<unsigned char>(byte);
            block_.remove_prefix(part.size());
            count -= part.size();
        }
    }

private:
    void fill() {
        block_ = item_.view(read_, kBlock, scratch_);
        read_ += block_.size();
        if (block_.empty()) tnef_damaged("ends early");
    }

    const im_Item& item_;
    std::string scratch_;
    std::string_view block_;
    std::uint64_t read_ = 0;
    std::uint64_t position_ = 0;
    std::uint32_t sum_ = 0;
};

// What is still to come of one stream.
struct Frame {
    std::uint64_t end = 0;           // of the stream
    std::uint64_t value_length = 0;  // of the value in the stream around it that this stream is
    std::uint64_t attribute_end = 0;
    std::uint32_t attribute = 0;
    bool in_attribute = false;
    std::uint16_t sum_before = 0;  // where the attribute's data began
    std::uint32_t rows = 0;
    std::uint32_t properties = 0;
    std::uint32_t values = 0;  // with lengths of their own
    bool may_embed = false;    // the values are objects of an attachment's data
};

class Check {
public:
    Check(const im_Item& stream, std::size_t depth) : in_(stream), depth_(depth), size_(stream.size()) {}

    void run() {
        open_stream(size_);
        while (!frames_.empty()) step(frames_.back());
    }

private:
    void step(Frame& f) {
        if (f.values != 0) return take_value(f);
        if (f.properties != 0) return take_property(f);
        if (f.rows != 0) {
            --f.rows;
            f.properties = take32(f.attribute_end);
            return;
        }
        if (f.in_attribute) return close_attribute(f);
        if (in_.position() == f.end) return close_stream();
        open_attribute(f);
    }

    void open_stream(std::uint64_t end) {
        if (take32(end) != kTnefSignature) tnef_damaged("another signature");
        take(end, 2);  // the key: any number
        frames_.push_back({.end = end});
    }

    // Back in the value that the stream was.
    void close_stream() {
        const std::uint64_t length = frames_.back().value_length;
        frames_.pop_back();
        if (frames_.empty()) return;
        skip_padding(length, frames_.back().attribute_end);
    }

    void open_attribute(Frame& f) {
        const std::uint64_t level = take(f.end, 1);
        if (level != kTnefMessageLevel && level != kTnefAttachmentLevel) tnef_damaged("an unknown level");
        f.attribute = take32(f.end);
        const std::uint32_t length = take32(f.end);
        need(length, f.end);
        f.attribute_end = in_.position() + length;
        f.sum_before = in_.sum();
        f.in_attribute = true;
        const auto attribute = static_cast<tnef_Attribute>(f.attribute);
        if (attribute == tnef_Attribute::recipient_table) f.rows = take32(f.attribute_end);
        if (attribute == tnef_Attribute::mapi_properties || attribute == tnef_Attribute::attachment)
            f.properties = take32(f.attribute_end);
    }

    // Of an attribute that is taken apart nothing is left over.
    void close_attribute(Frame& f) {
        const auto attribute = static_cast<tnef_Attribute>(f.attribute);
        const bool whole = attribute == tnef_Attribute::recipient_table ||
                           attribute == tnef_Attribute::mapi_properties || attribute == tnef_Attribute::attachment;
        if (whole && in_.position() != f.attribute_end) tnef_damaged("properties shorter than their attribute");
        in_.skip(f.attribute_end - in_.position());
        const auto sum = static_cast<std::uint16_t>(in_.sum() - f.sum_before);
        const bool counts =
            attribute != tnef_Attribute::message_class && attribute != tnef_Attribute::original_message_class;
        if (take(f.end, kTnefChecksum) != sum && counts) tnef_damaged("a wrong checksum");
        f.in_attribute = false;
    }

    void take_property(Frame& f) {
        --f.properties;
        const std::uint32_t tag = take32(f.attribute_end);
        const auto id = static_cast<std::uint16_t>(tag >> 16);
        if (id >= kMapiFirstNamed) take_name(f);
        const bool multiple = (tag & kMapiMultiple) != 0;
        const int width = tnef_width(static_cast<std::uint16_t>(tag & 0xFFFF & ~unsigned{kMapiMultiple}));
        if (width == kTnefNoType) tnef_damaged("an unknown type");
        const std::uint32_t count = multiple || width == 0 ? take32(f.attribute_end) : 1;
        if (width != 0) return skip(std::uint64_t{count} * static_cast<unsigned>(width), f.attribute_end);
        f.values = count;
        f.may_embed = f.attribute == static_cast<std::uint32_t>(tnef_Attribute::attachment) && id == kIdAttachData &&
                      (tag & 0xFFFF) == static_cast<std::uint16_t>(mapi_Type::object);
    }

    void take_name(Frame& f) {
        skip(sizeof(mapi_Guid::bytes), f.attribute_end);
        const std::uint32_t kind = take32(f.attribute_end);
        if (kind > 1) tnef_damaged("an unknown kind of name");
        const std::uint32_t number = take32(f.attribute_end);
        if (kind == 0) return;
        skip(number, f.attribute_end);
        skip_padding(number, f.attribute_end);
    }

    void take_value(Frame& f) {
        --f.values;
        const std::uint32_t length = take32(f.attribute_end);
        need(length, f.attribute_end);
        if (f.may_embed && length >= kIidSize && frames_.size() < depth_) {
            const std::uint64_t end = in_.position() + length;
            if (take_iid() == kIidMessage) {
                open_stream(end);  // `f` is void from here on
                frames_.back().value_length = length;
                return;
            }
            in_.skip(length - kIidSize);
        } else {
            in_.skip(length);
        }
        skip_padding(length, f.attribute_end);
    }

    mapi_Guid take_iid() {
        mapi_Guid iid;
        for (std::uint8_t& byte : iid.bytes) byte = static_cast<std::uint8_t>(in_.take(1));
        return iid;
    }

    void need(std::uint64_t count, std::uint64_t end) const {
        if (count > end - in_.position()) tnef_damaged("a length beyond the end");
    }
    std::uint64_t take(std::uint64_t end, std::size_t width) {
        need(width, end);
        return in_.take(width);
    }
    std::uint32_t take32(std::uint64_t end) { return static_cast<std::uint32_t>(take(end, 4)); }
    void skip(std::uint64_t count, std::uint64_t end) {
        need(count, end);
        in_.skip(count);
    }
    void skip_padding(std::uint64_t length, std::uint64_t end) {
        in_.skip(std::min(tnef_padding(length), end - in_.position()));
    }

    Scanner in_;
    std::size_t depth_;
    std::uint64_t size_;
    std::vector<Frame> frames_;
};

}  // namespace

void tnef_check(const im_Item& stream, std::size_t depth) { Check(stream, depth).run(); }
