// Bytes looked at eight at a time.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

// How many bytes of a word, in the order of memory, stand before the first that is marked by its highest bit; all eight
// when none is. `marks` has no other bit set.
constexpr std::size_t dstring_bytes_unmarked(std::uint64_t marks) {
    const int bits = std::endian::native == std::endian::big ? std::countl_zero(marks) : std::countr_zero(marks);
    return static_cast<std::size_t>(bits) / 8;
}
