// Fuzz input for targets that build what they test.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

// The input as choices and as text; a source that has run dry gives zeros and nothing.
class FuzzSource {
public:
    explicit FuzzSource(std::string_view bytes) : bytes_(bytes) {}
    bool empty() const { return bytes_.empty(); }
    unsigned choice(unsigned count) {
        if (bytes_.empty()) return 0;
        const auto byte = static_cast<unsigned char>(bytes_.front());
        bytes_.remove_prefix(1);
        return byte % count;
    }
    // Up to `limit` octets; two bytes say how many.
    std::string text(std::size_t limit) {
        const std::size_t wanted = choice(256) * 256 + choice(256);
        const std::string_view taken = bytes_.substr(0, std::min(wanted % (limit + 1), bytes_.size()));
        bytes_.remove_prefix(taken.size());
        return std::string(taken);
    }

private:
    std::string_view bytes_;
};
