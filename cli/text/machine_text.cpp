// Formats texts and numbers for CSV, tab-separated values and JSON. The output depends neither on
// the locale nor on the time zone, so that the same box always gives the same bytes. Text may hold
// any bytes and is escaped or replaced as the format demands.
#include "text/machine_text.hpp"

#include <cmath>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "process/terminal.hpp"

namespace cli
{
namespace
{

template <typename Number>
std::string field(Number value)
{
    return std::isnan(value) ? std::string() : fmt::format("{}", value);
}

template <typename Number>
std::string json_field(Number value)
{
    return std::isfinite(value) ? fmt::format("{}", value) : std::string("null");
}

} // namespace

std::string csv_field(std::string_view text)
{
    std::string shown = printable(text);
    if (shown.find_first_of(",\"") == std::string::npos) {
        return shown;
    }
    std::string quoted = "\"";
    for (const char c : shown) {
        quoted += c == '"' ? "\"\"" : std::string(1, c);
    }
    return quoted + "\"";
}

std::string tsv_field(std::string_view text)
{
    return printable(text);
}

std::string json_string(std::string_view text)
{
    using nlohmann::json;
    return json(std::string(text)).dump(-1, ' ', true, json::error_handler_t::replace);
}

std::string number_field(float value)
{
    return field(value);
}

std::string number_field(double value)
{
    return field(value);
}

std::string json_number(float value)
{
    return json_field(value);
}

std::string json_number(double value)
{
    return json_field(value);
}

} // namespace cli
