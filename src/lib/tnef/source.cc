// Reading TNEF streams: see source.h.
#include "tnef/source.h"

#include <algorithm>
#include <cerrno>

#include "er/er.h"
#include "tnef/format.h"

namespace {

constexpr std::size_t kWindow = std::size_t{16} << 10;
constexpr std::size_t kCopyBlock = std::size_t{64} << 10;

}  // namespace

void tnef_damaged(std::string_view what) { er_SystemEscape(EBADMSG, "TNEF: " + std::string(what)); }

std::string_view tnef_Source::at(std::uint64_t position, std::size_t count) {
    if (count == 0) return {};
    if (item_.in_memory()) return item_.view(position, count, window_);
    if (position < window_at_ || position + count > window_at_ + window_.size()) {
        window_at_ = position;
        window_.resize(std::max(count, kWindow));
        window_.resize(item_.read(position, window_.data(), window_.size()));
    }
    return std::string_view(window_).substr(static_cast<std::size_t>(position - window_at_), count);
}

std::string_view tnef_Source::block(tnef_Span& span) {
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(span.size(), kWindow));
    const std::string_view bytes = at(span.begin, count);
    span.begin += count;
    return bytes;
}

void tnef_Source::copy(tnef_Span span, im_Item& out) const {
    while (!span.empty()) {
        const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(span.size(), kCopyBlock));
        const std::size_t read = item_.read(span.begin, out.room(count), count);
        if (read != count) tnef_damaged("a stretch beyond the end");
        out.advance(count);
        span.begin += count;
    }
}

tnef_Span tnef_Cursor::take_span(std::uint64_t count) {
    if (count > left()) tnef_damaged("ends early");
    const tnef_Span taken{span_.begin, span_.begin + count};
    span_.begin += count;
    return taken;
}

std::string_view tnef_Cursor::take(std::size_t count) { return source_->at(take_span(count).begin, count); }

void tnef_Cursor::skip_padding(std::uint64_t length) { take_span(std::min(tnef_padding(length), left())); }

std::uint64_t tnef_Cursor::take_number(std::size_t width) {
    const std::string_view bytes = take(width);
    std::uint64_t value = 0;
    for (std::size_t i = width; i-- > 0;) value = value << 8 | static_cast<unsigned char>(bytes[i]);
    return value;
}

bool tnef_next_attribute(tnef_Cursor& stream, tnef_AttributeHead& head) {
    if (stream.at_end()) return false;
    head.level = stream.take8();
    head.id = stream.take32();
    head.data = stream.take_span(stream.take32());
    stream.take_span(kTnefChecksum);
    return true;
}

tnef_Cursor tnef_open_stream(tnef_Source& source, tnef_Span stream) {
    tnef_Cursor cursor(source, stream);
    if (cursor.take32() != kTnefSignature) tnef_damaged("another signature");
    cursor.take16();
    return cursor;
}
