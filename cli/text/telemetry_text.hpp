// Text telemetry, line by line: the parser that checks everything the library's reader would abort
// on or let pass, and the lines that `vesk dump` writes.
#ifndef VESK_CLI_TEXT_TELEMETRY_TEXT_HPP
#define VESK_CLI_TEXT_TELEMETRY_TEXT_HPP

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "text/sample_parser.hpp"

namespace cli
{

// The rule of the format that tells header lines from lines of values. @p line must begin with the
// 17 characters of a time and a comma.
bool is_header_line(std::string_view line);

class telemetry_parser : public sample_parser
{
public:
    line_kind parse(std::string_view line) override;

private:
    void parse_header(std::string_view names);
    void parse_values(std::string_view values);
    void require_value_for_each_sensor(std::string_view fields) const;
};

// Both end with a line end. Names that a line cannot hold are changed: see representable_names().
std::string header_line(int64_t time, std::span<const std::string> sensors);
std::string values_line(int64_t time, std::span<const float> values);

// The name with '_' for nothing, for commas and for all that is not printable(): control characters
// would break the line or reach a terminal.
std::string representable_name(std::string_view name);
// The names of one header. Where two would become the same, "_2" and so on tells them apart.
std::vector<std::string> representable_names(std::span<const std::string> sensors);

} // namespace cli

#endif
