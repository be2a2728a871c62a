// The byte order of every stored number: most significant byte first. Every function that stores or
// reads a number converts it here, once.
#ifndef VESK_SUPPORT_BIG_ENDIAN_HPP
#define VESK_SUPPORT_BIG_ENDIAN_HPP

#include <bit>
#include <cstdint>

// Converts between host order and stored order, in either direction.
constexpr uint32_t big_endian(uint32_t value)
{
    return std::endian::native == std::endian::big ? value : __builtin_bswap32(value);
}

constexpr uint64_t big_endian(uint64_t value)
{
    return std::endian::native == std::endian::big ? value : __builtin_bswap64(value);
}

#endif
