// The statements for ClickHouse, and what is read of its replies.
#include <gtest/gtest.h>

#include "process/failure.hpp"
#include "push/clickhouse_schema.hpp"
#include "push/percent.hpp"

namespace
{

using namespace cli;
using namespace std::string_literals;

TEST(ClickHouseSchema, ATextStaysWithinItsQuotes)
{
    EXPECT_EQ(clickhouse::quoted("a box"), "'a box'");
    EXPECT_EQ(clickhouse::quoted("'; drop\\"), "'\\x27; drop\\x5C'");
    EXPECT_EQ(clickhouse::quoted("\0\n\xff"s), "'\\x00\\x0A\\xFF'");
}

TEST(ClickHouseSchema, ATableIsMadeOnce)
{
    const auto statements = clickhouse::create_statements("fleet", "");
    ASSERT_EQ(statements.size(), 5U);
    EXPECT_EQ(statements[0], "CREATE DATABASE IF NOT EXISTS `fleet`");
    EXPECT_TRUE(statements[1].starts_with("CREATE TABLE IF NOT EXISTS `fleet`.`samples` ("));
}

TEST(ClickHouseSchema, OnAClusterEachTableHasALocalOne)
{
    const auto statements = clickhouse::create_statements("fleet", "many");
    ASSERT_EQ(statements.size(), 9U);
    EXPECT_NE(statements[1].find("`samples_local`"), std::string::npos);
    EXPECT_TRUE(statements[2].ends_with(
        "ENGINE = Distributed(`many`, `fleet`, `samples_local`, cityHash64(box))"));
}

TEST(ClickHouseSchema, PartitionsEndWithMonthsAndYearsOfUtc)
{
    constexpr int64_t new_year = 1'704'067'200;
    EXPECT_EQ(clickhouse::partition_of(clickhouse::samples, new_year - 1), 202312);
    EXPECT_EQ(clickhouse::partition_of(clickhouse::samples, new_year), 202401);
    EXPECT_EQ(clickhouse::partition_of(clickhouse::intervals, new_year - 1), 2023);
    EXPECT_EQ(clickhouse::partition_of(clickhouse::events, new_year), 2024);
    EXPECT_EQ(clickhouse::partition_of(clickhouse::boxes, new_year), 0);
}

TEST(ClickHouseSchema, AReplyIsARowOfNumbersOrNothing)
{
    EXPECT_TRUE(clickhouse::numbers_in("", 3).empty());
    EXPECT_EQ(clickhouse::numbers_in("1\t22\t4294967295\n", 3),
              (std::vector<int64_t>{1, 22, 4294967295}));
    for (const char *reply : {"1\t2\n", "1\t2\tx\n", "1\t2\t3", "1\t2\t3\t4\n", "<html>", "\n",
                              "99999999999999999999\t1\t1\n"}) {
        EXPECT_THROW((void)clickhouse::numbers_in(reply, 3), failure) << reply;
    }
}

TEST(Percent, AnyBytesComeBack)
{
    EXPECT_EQ(percent_encoded("a b/%\xff~"), "a%20b%2F%25%FF~");
    std::string all;
    for (int byte = 0; byte < 256; ++byte) {
        all += static_cast<char>(byte);
    }
    EXPECT_EQ(percent_decoded(percent_encoded(all)), all);
    EXPECT_EQ(percent_decoded("%"), "%");
    EXPECT_EQ(percent_decoded("%4"), "%4");
    EXPECT_EQ(percent_decoded("%G1%41"), "%G1A");
}

} // namespace
