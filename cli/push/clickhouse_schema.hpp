// The tables of a fleet in ClickHouse, and the statements that make and ask them.
#ifndef VESK_CLI_PUSH_CLICKHOUSE_SCHEMA_HPP
#define VESK_CLI_PUSH_CLICKHOUSE_SCHEMA_HPP

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace cli
{

struct clickhouse_table {
    std::string_view name;
    std::string_view columns; // as they are sent
    std::string_view types;   // with the columns, as they are created
    std::string_view engine;
    enum class parts { none, of_months, of_years } partitions;
};

namespace clickhouse
{

extern const clickhouse_table samples;
extern const clickhouse_table intervals;
extern const clickhouse_table events;
extern const clickhouse_table boxes;

// A text as a literal, whatever bytes it holds.
std::string quoted(std::string_view text);
// A name in backquotes; it consists of letters, digits and '_'.
std::string named(std::string_view name);

// Statements that make the database and the tables where they are missing. With a @p cluster each
// table lies on the shards of it, under a name that ends in "_local", and the table itself sends
// each box to one of them.
std::vector<std::string> create_statements(const std::string &database, const std::string &cluster);
std::string insert_statement(const std::string &database, const clickhouse_table &table);
std::string position_query(const std::string &database, const std::string &box);
std::string newest_interval_query(const std::string &database, const std::string &box,
                                  uint32_t file, int64_t from);
// Whether the intervals go to other servers, as 1 or 0.
std::string distributed_query(const std::string &database);

// Which partition a row of this time lies in.
int partition_of(const clickhouse_table &table, int64_t time);

// The numbers of the one row of a reply, separated by tabs; empty where there is no row. Throws a
// failure for anything else.
std::vector<int64_t> numbers_in(const std::string &reply, std::size_t count);

} // namespace clickhouse
} // namespace cli

#endif
