// What looking at the files of a box may cost: the bounds that docs/reliability.md states.
#ifndef VESK_FUZZ_SCAN_BOUNDS_HPP
#define VESK_FUZZ_SCAN_BOUNDS_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "harness.hpp"

// zlib makes at most 1032 bytes of one.
inline constexpr uint64_t most_of_a_byte = 1032;

// The bytes that are inflated when files of `size` bytes together are scanned once. A stream is
// inflated twice where the next one seems to begin in its checksum; the search stops behind the
// attempt that uses its budget up, and begins behind one that is not charged before it ends.
inline constexpr uint64_t most_inflated_by_a_scan(uint64_t size)
{
    return (4 * most_of_a_byte + 64) * size + 65536;
}

// What a scan holds at once: the file and the content of a stream, each in a list that doubles, and
// two sets of names. In a small file zlib sets the limit, in a large one the longest content.
inline constexpr std::size_t most_memory_of_a_scan(std::size_t size)
{
    constexpr std::size_t basis = std::size_t(4) << 20;
    constexpr std::size_t longest = std::size_t(8) << 20;
    return basis + 5 * std::min<std::size_t>(most_of_a_byte * size, longest + 32 * size) +
           64 * size;
}

// A plan looks at each file once, at those of the box once more for their names, and once more for
// what is to be done. It also holds the content of a mended stream, names that wait, and a time for
// each record.
inline constexpr uint64_t most_inflated_by_a_plan(uint64_t size)
{
    return 3 * most_inflated_by_a_scan(size);
}
inline constexpr std::size_t most_memory_of_a_plan(std::size_t size)
{
    return 2 * most_memory_of_a_scan(size);
}

#endif
