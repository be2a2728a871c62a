// Builds the statements. The names of a fleet's columns stand here once; the order of the columns
// of a table is that of its rows in clickhouse_door.cpp.
#include "push/clickhouse_schema.hpp"

#include <charconv>
#include <chrono>
#include <fmt/format.h>

#include "process/failure.hpp"

namespace cli::clickhouse
{

// Replacing: a row that is sent twice is the same row. Times are of UTC, so that partitions end at
// the same moment whatever zone a server is in.
const clickhouse_table samples = {
    "samples", "sensor, box, time, file, ordinal, value",
    "sensor String, box String, time DateTime('UTC'), file UInt32, ordinal UInt32, value Float32",
    "ReplacingMergeTree PARTITION BY toYYYYMM(time) ORDER BY (sensor, box, time, file, ordinal)",
    clickhouse_table::parts::of_months};
const clickhouse_table intervals = {
    "intervals",
    "sensor, box, start, end, known, file, ordinal, count, min, max, mean, first, last, stddev",
    "sensor String, box String, start DateTime('UTC'), end DateTime('UTC'), known DateTime('UTC'), "
    "file UInt32, ordinal UInt32, count UInt32, min Float32, max Float32, mean Float64, "
    "first Float32, last Float32, stddev Float64",
    "ReplacingMergeTree PARTITION BY toYear(start) ORDER BY (sensor, box, start, end)",
    clickhouse_table::parts::of_years};
const clickhouse_table events = {
    "events", "box, time, file, ordinal, type, text",
    "box String, time DateTime('UTC'), file UInt32, ordinal UInt32, type UInt8, text String",
    "ReplacingMergeTree PARTITION BY toYear(time) ORDER BY (box, time, file, ordinal)",
    clickhouse_table::parts::of_years};
const clickhouse_table boxes = {
    "boxes", "box, pushed, first, last, host, site, firmware, file, records, record_time",
    "box String, pushed DateTime('UTC'), first DateTime('UTC'), last DateTime('UTC'), host String, "
    "site String, firmware String, file UInt32, records UInt64, record_time DateTime('UTC')",
    "ReplacingMergeTree(pushed) ORDER BY box", clickhouse_table::parts::none};

std::string quoted(std::string_view text)
{
    std::string result = "'";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte >= 0x7f || c == '\'' || c == '\\') {
            result += fmt::format("\\x{:02X}", byte);
        } else {
            result += c;
        }
    }
    return result + "'";
}

std::string named(std::string_view name)
{
    return fmt::format("`{}`", name);
}

std::vector<std::string> create_statements(const std::string &database, const std::string &cluster)
{
    std::vector<std::string> statements = {
        fmt::format("CREATE DATABASE IF NOT EXISTS {}", named(database))};
    for (const clickhouse_table *table : {&samples, &intervals, &events, &boxes}) {
        const std::string local = fmt::format("{}{}", table->name, cluster.empty() ? "" : "_local");
        statements.push_back(fmt::format("CREATE TABLE IF NOT EXISTS {}.{} ({}) ENGINE = {}",
                                         named(database), named(local), table->types,
                                         table->engine));
        if (!cluster.empty()) {
            statements.push_back(fmt::format(
                "CREATE TABLE IF NOT EXISTS {0}.{1} ({2}) ENGINE = Distributed({3}, {0}, {4}, "
                "cityHash64(box))",
                named(database), named(table->name), table->types, named(cluster), named(local)));
        }
    }
    return statements;
}

std::string insert_statement(const std::string &database, const clickhouse_table &table)
{
    return fmt::format("INSERT INTO {}.{} ({}) FORMAT RowBinary", named(database),
                       named(table.name), table.columns);
}

std::string position_query(const std::string &database, const std::string &box)
{
    return fmt::format("SELECT file, records, toUInt32(record_time) FROM {}.{} WHERE box = {} "
                       "ORDER BY pushed DESC, file DESC, records DESC LIMIT 1 FORMAT TabSeparated",
                       named(database), named(boxes.name), quoted(box));
}

std::string newest_interval_query(const std::string &database, const std::string &box,
                                  uint32_t file, int64_t from)
{
    return fmt::format("SELECT toUInt32(start), toUInt32(end), file, ordinal FROM {}.{} WHERE box "
                       "= {} AND file <= {} AND toUInt32(end) >= {} ORDER BY file DESC, ordinal "
                       "DESC LIMIT 1 FORMAT TabSeparated",
                       named(database), named(intervals.name), quoted(box), file, from);
}

std::string distributed_query(const std::string &database)
{
    return fmt::format("SELECT engine = 'Distributed' FROM system.tables WHERE database = {} AND "
                       "name = {} FORMAT TabSeparated",
                       quoted(database), quoted(intervals.name));
}

int partition_of(const clickhouse_table &table, int64_t time)
{
    const std::chrono::sys_seconds moment{std::chrono::seconds(time)};
    const std::chrono::year_month_day day{std::chrono::floor<std::chrono::days>(moment)};
    const int year = static_cast<int>(day.year());
    switch (table.partitions) {
    case clickhouse_table::parts::of_years:
        return year;
    case clickhouse_table::parts::of_months:
        return year * 100 + static_cast<int>(static_cast<unsigned>(day.month()));
    case clickhouse_table::parts::none:
        break;
    }
    return 0;
}

std::vector<int64_t> numbers_in(const std::string &reply, std::size_t count)
{
    std::vector<int64_t> numbers;
    const char *at = reply.data();
    const char *const end = at + reply.size();
    while (at != end) {
        int64_t number = 0;
        const auto [behind, error] = std::from_chars(at, end, number);
        const bool ends = behind != end && (*behind == '\t' || *behind == '\n');
        if (error != std::errc() || !ends) {
            throw failure(exit_failed, "the engine answers with something that is no row");
        }
        numbers.push_back(number);
        at = behind + 1;
    }
    if (!numbers.empty() && numbers.size() != count) {
        throw failure(exit_failed, "the engine answers with another row than was asked for");
    }
    return numbers;
}

} // namespace cli::clickhouse
