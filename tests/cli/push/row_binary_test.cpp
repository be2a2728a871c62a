// The bytes of rows.
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

#include "push/row_binary.hpp"

namespace
{

using namespace cli;
using namespace std::string_literals;

template <typename Put>
std::string row_of(Put put)
{
    std::string row;
    put(row);
    return row;
}

TEST(RowBinary, NumbersBeginWithTheirLowestByte)
{
    EXPECT_EQ(row_of([](std::string &row) { put_number(row, uint32_t{0x01020384}); }),
              "\x84\x03\x02\x01"s);
    EXPECT_EQ(row_of([](std::string &row) { put_number(row, uint8_t{255}); }), "\xff"s);
}

TEST(RowBinary, FloatsKeepTheirBits)
{
    EXPECT_EQ(row_of([](std::string &row) { put_float(row, 1.5F); }), "\0\0\xc0\x3f"s);
    EXPECT_EQ(row_of([](std::string &row) { put_float(row, -0.0F); }), "\0\0\0\x80"s);
    EXPECT_EQ(
        row_of([](std::string &row) { put_float(row, std::numeric_limits<float>::denorm_min()); }),
        "\1\0\0\0"s);
    EXPECT_EQ(row_of([](std::string &row) { put_float(row, std::bit_cast<float>(0x7fc12345U)); }),
              "\x45\x23\xc1\x7f"s);
    EXPECT_EQ(row_of([](std::string &row) { put_double(row, -2.0); }), "\0\0\0\0\0\0\0\xc0"s);
}

TEST(RowBinary, TextsStandBehindTheirLength)
{
    EXPECT_EQ(row_of([](std::string &row) { put_text(row, ""); }), "\0"s);
    EXPECT_EQ(row_of([](std::string &row) { put_text(row, "a\0b"s); }), "\3a\0b"s);
    const std::string longest_short(127, 'x');
    EXPECT_EQ(row_of([&](std::string &row) { put_text(row, longest_short); }),
              "\x7f" + longest_short);
    const std::string longer(128, 'x');
    EXPECT_EQ(row_of([&](std::string &row) { put_text(row, longer); }), "\x80\x01" + longer);
    const std::string longest(70000, 'x');
    EXPECT_EQ(row_of([&](std::string &row) { put_text(row, longest); }), "\xf0\xa2\x04" + longest);
}

} // namespace
