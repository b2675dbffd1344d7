// Reading an item in lines: see im_Reader in im.h.
#include <algorithm>
#include <cstring>

#include "im/im.h"

namespace {
constexpr std::size_t kReadBlock = std::size_t{64} << 10;
}

im_Reader::im_Reader(const im_Item& item) : item_(item) {
    if (item.in_memory()) block_ = item.view(0, static_cast<std::size_t>(item.size()), scratch_);
}

std::string_view im_Reader::ahead(std::size_t wanted) {
    const std::uint64_t left = position_ < item_.size() ? item_.size() - position_ : 0;
    wanted = static_cast<std::size_t>(std::min<std::uint64_t>(wanted, left));
    if (position_ < start_ || position_ + wanted > start_ + block_.size()) {
        block_ = item_.view(position_, std::max(wanted, kReadBlock), scratch_);
        start_ = position_;
    }
    if (left == 0) return {};
    return block_.substr(static_cast<std::size_t>(position_ - start_));
}

std::optional<std::string_view> im_Reader::line(std::size_t limit) {
    std::string_view text = ahead(limit).substr(0, limit);
    if (text.empty()) return std::nullopt;
    if (const void* end = std::memchr(text.data(), '\n', text.size()))
        text = text.substr(0, static_cast<std::size_t>(static_cast<const char*>(end) - text.data()) + 1);
    position_ += text.size();
    return text;
}

int im_Reader::peek() {
    const std::string_view text = ahead(1);
    return text.empty() ? -1 : static_cast<unsigned char>(text.front());
}
