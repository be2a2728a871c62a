// Writes the JSON object of a page sensor by sensor. Numbers are packed, because a thousand sensors
// as decimal digits would be a page that nobody can mail.
#include "page/page_data.hpp"

#include <fmt/format.h>

#include "text/machine_text.hpp"
#include "text/units.hpp"

namespace cli
{
namespace
{

template <typename Number>
void write_list(const page_content &content, Number number, const page_sink &put)
{
    std::string text;
    for (const time_column &column : content.charts.columns()) {
        text += fmt::format("{}{}", text.empty() ? "" : ",", number(column));
    }
    put("[" + text + "]");
}

void write_columns(const page_content &content, const page_sink &put)
{
    const std::vector<time_column> &columns = content.charts.columns();
    std::size_t intervals = 0;
    std::string raw = "null";
    std::string holes;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        if (columns[i].kind == column_kind::interval) {
            ++intervals;
        } else if (raw == "null") {
            raw = std::to_string(columns[i].start);
        }
        if (columns[i].follows_gap) {
            holes += fmt::format("{}{}", holes.empty() ? "" : ",", i);
        }
    }
    put(fmt::format("\"step\":{},\"raw\":{},\"wide\":{},\"intervals\":{},\"holes\":[{}],"
                    "\"starts\":",
                    content.step, raw, content.charts.wide_columns(), intervals, holes));
    write_list(
        content, [](const time_column &column) { return column.start; }, put);
    put(",\"lengths\":");
    write_list(
        content, [](const time_column &column) { return column.end - column.start; }, put);
}

// The symbol of the unit, and the step of its prefixes; 0 if it has none.
std::string unit_json(const std::string &name)
{
    constexpr double large = 1e9;
    const axis_unit unit = axis_unit_of(large, name);
    int step = 0;
    if (unit.divisor > 1) {
        step = unit.is_binary ? 1024 : 1000;
    }
    return fmt::format("[{},{}]", script_string(axis_unit_of(0, name).symbol), step);
}

std::string numbers_json(const sensor_statistics &all)
{
    const moments &numbers = all.numbers();
    if (numbers.count() == 0) {
        return "null";
    }
    const estimate deviation = numbers.deviation();
    return fmt::format(
        "{{\"count\":{},\"least\":{},\"mean\":{},\"greatest\":{},\"deviation\":{},\"rough\":{},"
        "\"first\":{},\"last\":{},\"when_least\":[{},{}],\"when_greatest\":[{},{}]}}",
        numbers.count(), json_number(all.least()), json_number(numbers.mean()),
        json_number(all.greatest()), json_number(deviation.value), deviation.is_rough,
        json_number(all.first()), json_number(all.last()), all.when_least().start,
        all.when_least().end, all.when_greatest().start, all.when_greatest().end);
}

std::string values_of(const chart_series &charts, std::size_t sensor)
{
    const std::size_t columns = charts.columns().size();
    const std::size_t wide = charts.wide_columns();
    std::vector<float> values;
    values.reserve(3 * wide + columns - wide);
    for (float column_values::*part :
         {&column_values::least, &column_values::mean, &column_values::greatest}) {
        for (std::size_t i = 0; i < wide; ++i) {
            values.push_back(charts.at(sensor, i).*part);
        }
    }
    for (std::size_t i = wide; i < columns; ++i) {
        values.push_back(charts.at(sensor, i).mean);
    }
    return base64_of(values);
}

} // namespace

void write_data(const page_content &content, const page_sink &put)
{
    put("{");
    if (!content.follows.empty()) {
        put("\"follows\":" + script_string(content.follows) + ",");
    }
    write_columns(content, put);
    put(",\"sensors\":[");
    for (std::size_t i = 0; i < content.names.size(); ++i) {
        put(fmt::format("{}{{\"name\":{},\"unit\":{},\"numbers\":{},\"values\":\"",
                        i == 0 ? "" : ",\n", script_string(content.names[i]),
                        unit_json(content.names[i]), numbers_json(content.statistics[i])));
        put(values_of(content.charts, i));
        put("\"}");
    }
    put("]}");
}

} // namespace cli
