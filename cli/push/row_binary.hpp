// The bytes of ClickHouse's RowBinary: numbers as they lie in memory of a little-endian machine,
// texts behind their length. Floats keep their bits, NaN and infinities included.
#ifndef VESK_CLI_PUSH_ROW_BINARY_HPP
#define VESK_CLI_PUSH_ROW_BINARY_HPP

#include <bit>
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

namespace cli
{

template <std::unsigned_integral Number>
void put_number(std::string &row, Number number)
{
    for (std::size_t i = 0; i < sizeof(number); ++i) {
        row += static_cast<char>(static_cast<unsigned char>(number >> (8 * i)));
    }
}

inline void put_float(std::string &row, float value)
{
    put_number(row, std::bit_cast<uint32_t>(value));
}

inline void put_double(std::string &row, double value)
{
    put_number(row, std::bit_cast<uint64_t>(value));
}

// The length comes in groups of seven bits, the lowest first.
inline void put_text(std::string &row, std::string_view text)
{
    std::size_t length = text.size();
    for (; length >= 0x80; length >>= 7U) {
        row += static_cast<char>(static_cast<unsigned char>(length | 0x80U));
    }
    row += static_cast<char>(static_cast<unsigned char>(length));
    row += text;
}

} // namespace cli

#endif
