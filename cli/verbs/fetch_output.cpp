// Prints the rows of `vesk fetch` in the chosen format. For people the table fits into 80 columns:
// with few sensors each has a column, with more each has a line. For programs there are CSV,
// tab-separated values and JSON lines, which hold plain numbers. All names come from the box and
// are escaped.
#include "verbs/fetch_output.hpp"

#include <algorithm>
#include <fmt/format.h>

#include "process/output.hpp"
#include "process/terminal.hpp"
#include "text/duration.hpp"
#include "text/machine_text.hpp"

namespace cli
{
namespace
{

constexpr std::size_t cell_width = 11; // and a blank before it
constexpr std::size_t most_cells = 4;

std::string_view name_of(fetch_kind kind)
{
    return kind == fetch_kind::raw ? "raw" : kind == fetch_kind::interval ? "interval" : "step";
}

std::string_view without_colons(std::string_view name)
{
    return name.starts_with("::") ? name.substr(2) : name;
}

// What the two tables for people have in common.
class table_output : public fetch_output
{
public:
    table_output(const std::vector<std::string> &names, const std::vector<statistic> &statistics,
                 zone where)
        : names_(names), statistics_(statistics), where_(where)
    {
    }

    void print_gap(int64_t last, int64_t next) override
    {
        put(fmt::format("-- no samples for {}\n", format_duration(next - last)));
    }

protected:
    // "2024-01-01T00:00:00Z    raw", or with the length of the row.
    std::string beginning(const fetch_row &row) const
    {
        return fmt::format("{} {:>6}", iso_time(row.time, where_),
                           row.kind == fetch_kind::raw ? "raw" : format_duration(row.seconds));
    }
    std::string cells(const sensor_statistics &sensor, const std::string &name) const
    {
        std::string text;
        for (const statistic what : statistics_) {
            text += fmt::format(" {:>{}}", shown(sensor, what, name), cell_width);
        }
        return text;
    }
    const std::vector<std::string> &names() const { return names_; }
    const std::vector<statistic> &statistics() const { return statistics_; }
    std::string heading() const
    {
        // The heading of the first column is as wide as the times below it.
        return fmt::format("{:<{}} {:>6}", "time", iso_time(0, where_).size(), "length");
    }

private:
    const std::vector<std::string> &names_;
    std::vector<statistic> statistics_;
    zone where_;
};

// A column for each sensor and statistic.
class wide_table : public table_output
{
public:
    using table_output::table_output;

    void print_heading() const
    {
        const bool has_room = std::all_of(names().begin(), names().end(), [](const auto &name) {
            return without_colons(printable(name)).size() <= cell_width;
        });
        for (std::size_t i = 0; i < names().size() && !has_room; ++i) {
            put(fmt::format("({}) {}\n", i + 1, printable(names()[i])));
        }
        std::string first = heading();
        std::string second(first.size(), ' ');
        for (std::size_t i = 0; i < names().size(); ++i) {
            const std::string name = has_room ? std::string(without_colons(printable(names()[i])))
                                              : fmt::format("({})", i + 1);
            for (const statistic what : statistics()) {
                first += fmt::format(" {:>{}}", name, cell_width);
                second += fmt::format(" {:>{}}", cli::name_of(what), cell_width);
            }
        }
        put(first + "\n");
        if (statistics().size() > 1 || statistics().front() != statistic::mean) {
            put(second + "\n");
        }
    }
    void print(const fetch_row &row, std::span<const sensor_statistics> sensors) override
    {
        std::string line = beginning(row);
        for (std::size_t i = 0; i < sensors.size(); ++i) {
            line += cells(sensors[i], names()[i]);
        }
        put(line + "\n");
    }
};

// A line for each sensor below the line of the time.
class long_table : public table_output
{
public:
    using table_output::table_output;

    void print_heading() const
    {
        std::string line = fmt::format("{:<{}}", heading(), name_width);
        for (const statistic what : statistics()) {
            line += fmt::format(" {:>{}}", cli::name_of(what), cell_width);
        }
        put(line + "\n");
    }
    void print(const fetch_row &row, std::span<const sensor_statistics> sensors) override
    {
        put(beginning(row) + "\n");
        for (std::size_t i = 0; i < sensors.size(); ++i) {
            const std::string name = fmt::format("  {}", printable(names()[i]));
            put(name.size() <= name_width ? fmt::format("{:<{}}", name, name_width)
                                          : fmt::format("{}\n{:{}}", name, "", name_width));
            put(cells(sensors[i], names()[i]) + "\n");
        }
    }

private:
    static constexpr std::size_t name_width = 43;
};

// CSV and tab-separated values.
class field_output : public fetch_output
{
public:
    field_output(output_format format, const std::vector<std::string> &names,
                 const std::vector<statistic> &statistics, zone where)
        : line_(format), statistics_(statistics), where_(where)
    {
        line_.plain("time").plain("kind").plain("seconds");
        for (const std::string &name : names) {
            for (const statistic what : statistics_) {
                line_.text(statistics_.size() == 1
                               ? name
                               : fmt::format("{} {}", name, cli::name_of(what)));
            }
        }
        line_.print();
    }
    void print(const fetch_row &row, std::span<const sensor_statistics> cells) override
    {
        line_.plain(iso_time(row.time, where_)).plain(name_of(row.kind));
        line_.plain(std::to_string(row.seconds));
        for (const sensor_statistics &sensor : cells) {
            for (const statistic what : statistics_) {
                line_.plain(field_of(sensor, what, rough_numbers::left_out));
            }
        }
        line_.print();
    }

private:
    field_line line_;
    std::vector<statistic> statistics_;
    zone where_;
};

class json_lines : public fetch_output
{
public:
    json_lines(const std::vector<std::string> &names, const std::vector<statistic> &statistics,
               zone where)
        : statistics_(statistics), where_(where)
    {
        for (const std::string &name : names) {
            keys_.push_back(json_string(name));
        }
    }
    void print(const fetch_row &row, std::span<const sensor_statistics> cells) override
    {
        std::string line =
            fmt::format(R"({{"time": "{}", "kind": "{}", "seconds": {}, "values": {{)",
                        iso_time(row.time, where_), name_of(row.kind), row.seconds);
        for (std::size_t i = 0; i < cells.size(); ++i) {
            line += fmt::format("{}{}: {}", i == 0 ? "" : ", ", keys_[i], value(cells[i]));
        }
        put(line + "}}\n");
    }

private:
    std::string value(const sensor_statistics &sensor) const
    {
        if (statistics_.size() == 1) {
            return json_of(sensor, statistics_.front(), rough_numbers::left_out);
        }
        std::string text;
        for (const statistic what : statistics_) {
            text += fmt::format("{}\"{}\": {}", text.empty() ? "" : ", ", cli::name_of(what),
                                json_of(sensor, what, rough_numbers::left_out));
        }
        return fmt::format("{{{}}}", text);
    }

    std::vector<std::string> keys_;
    std::vector<statistic> statistics_;
    zone where_;
};

template <typename Table>
std::unique_ptr<fetch_output> make_table(const std::vector<std::string> &names,
                                         const std::vector<statistic> &statistics, zone where)
{
    auto table = std::make_unique<Table>(names, statistics, where);
    table->print_heading();
    return table;
}

} // namespace

std::unique_ptr<fetch_output> make_fetch_output(output_format format,
                                                const std::vector<std::string> &names,
                                                const std::vector<statistic> &statistics,
                                                zone where)
{
    if (format == output_format::jsonl) {
        return std::make_unique<json_lines>(names, statistics, where);
    }
    if (format != output_format::table) {
        return std::make_unique<field_output>(format, names, statistics, where);
    }
    return names.size() * statistics.size() <= most_cells
               ? make_table<wide_table>(names, statistics, where)
               : make_table<long_table>(names, statistics, where);
}

} // namespace cli
