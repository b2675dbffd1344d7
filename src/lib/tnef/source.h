// Reading a TNEF stream that is an item: in blocks, so that memory does not grow with it. What cannot be read because
// the stream is damaged raises EBADMSG (group 1).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "im/im.h"

[[noreturn]] void tnef_damaged(std::string_view what);

// A stretch of the item.
struct tnef_Span {
    std::uint64_t begin = 0, end = 0;
    std::uint64_t size() const { return end - begin; }
    bool empty() const { return begin == end; }
};

// The bytes of the item, through one window that moves.
class tnef_Source {
public:
    explicit tnef_Source(const im_Item& item) : item_(item) {}  // the item must outlive it and stay as it is
    tnef_Source(const im_Item&&) = delete;
    std::uint64_t size() const { return item_.size(); }
    // The bytes at `position`, `count` of them; good until the next call.
    std::string_view at(std::uint64_t position, std::size_t count);
    // As many bytes of the span as come at once, taken off its front; empty at its end.
    std::string_view block(tnef_Span& span);
    void copy(tnef_Span span, im_Item& out) const;

private:
    const im_Item& item_;
    std::string window_;
    std::uint64_t window_at_ = 0;
};

// A place in a span, taken apart from its front.
class tnef_Cursor {
public:
    tnef_Cursor(tnef_Source& source, tnef_Span span) : source_(&source), span_(span) {}
    bool at_end() const { return span_.empty(); }
    std::uint64_t position() const { return span_.begin; }
    std::uint64_t left() const { return span_.size(); }
    std::uint8_t take8() { return static_cast<std::uint8_t>(take_number(1)); }
    std::uint16_t take16() { return static_cast<std::uint16_t>(take_number(2)); }
    std::uint32_t take32() { return static_cast<std::uint32_t>(take_number(4)); }
    std::uint64_t take64() { return take_number(8); }
    std::string_view take(std::size_t count);  // good until anything is read from the source
    tnef_Span take_span(std::uint64_t count);
    void skip_padding(std::uint64_t length);  // of something of this length; missing padding at the end is no damage
    tnef_Source& source() const { return *source_; }

private:
    std::uint64_t take_number(std::size_t width);
    tnef_Source* source_;
    tnef_Span span_;
};

// An attribute as it stands in a stream; its data is a span.
struct tnef_AttributeHead {
    std::uint8_t level = 0;
    std::uint32_t id = 0;
    tnef_Span data;
};
// The next attribute, or false at the end of the stream; `stream` stands behind the stream's head.
bool tnef_next_attribute(tnef_Cursor& stream, tnef_AttributeHead& head);
// The attributes of a stream: what follows its head, which is checked.
tnef_Cursor tnef_open_stream(tnef_Source& source, tnef_Span stream);
