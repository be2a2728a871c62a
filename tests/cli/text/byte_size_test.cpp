// Sizes in bytes as people write them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "process/failure.hpp"
#include "text/byte_size.hpp"

namespace
{

using namespace cli;

TEST(ByteSize, ReadsPowersOf1024And1000)
{
    EXPECT_EQ(parse_byte_size("4096", "--disk"), 4096U);
    EXPECT_EQ(parse_byte_size("4096B", "--disk"), 4096U);
    EXPECT_EQ(parse_byte_size("500k", "--disk"), 512000U);
    EXPECT_EQ(parse_byte_size("500K", "--disk"), 512000U);
    EXPECT_EQ(parse_byte_size("20M", "--disk"), 20U * 1024 * 1024);
    EXPECT_EQ(parse_byte_size("20MiB", "--disk"), 20U * 1024 * 1024);
    EXPECT_EQ(parse_byte_size("20MB", "--disk"), 20000000U);
    EXPECT_EQ(parse_byte_size("1024T", "--disk"), uint64_t{1} << 50);
}

TEST(ByteSize, RefusesAnythingElse)
{
    for (const char *text : {"", "0", "-1", "+1", "1.5M", "M", "20X", "20 M", "20Mi", "20MBB",
                             "20m", "1025T", "99999999999999999999", "0k", "1e3"}) {
        EXPECT_THROW(parse_byte_size(text, "--disk"), failure) << text;
    }
}

TEST(ByteSize, IsPrintedInTheNearestUnit)
{
    EXPECT_EQ(format_byte_size(812), "812 B");
    EXPECT_EQ(format_byte_size(20U * 1024 * 1024), "20 MiB");
}

} // namespace
