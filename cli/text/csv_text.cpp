// Reads CSV one line at a time, so that a pipe may stay open between its rows. Line ends inside of
// quotation marks, which CSV allows, are refused: no name of a sensor and no value has one.
#include "text/csv_text.hpp"

#include <fmt/format.h>
#include <limits>

#include "process/terminal.hpp"
#include "text/time_text.hpp"
#include "text/value_text.hpp"

namespace cli
{
namespace
{

// Some programs begin a file with it.
constexpr std::string_view byte_order_mark = "\xef\xbb\xbf";

// Takes the field behind an opening quotation mark off the line; what follows is a comma or
// nothing.
std::string take_quoted(std::string_view &rest, std::size_t column)
{
    std::string field;
    for (;;) {
        const std::size_t mark = rest.find('"');
        if (mark == std::string_view::npos) {
            throw bad_text(
                fmt::format("column {}: the quotation mark has no partner in this line", column));
        }
        field += rest.substr(0, mark);
        rest.remove_prefix(mark + 1);
        if (!rest.starts_with('"')) {
            break;
        }
        field += '"';
        rest.remove_prefix(1);
    }
    if (!rest.empty() && rest.front() != ',') {
        throw bad_text(
            fmt::format("column {}: something follows the closing quotation mark (inside "
                        "of a field it is doubled)",
                        column));
    }
    return field;
}

} // namespace

void split_csv(std::string_view line, std::vector<std::string> &fields)
{
    fields.clear();
    for (;;) {
        if (line.starts_with('"')) {
            line.remove_prefix(1);
            fields.push_back(take_quoted(line, fields.size() + 1));
        } else {
            const std::size_t comma = line.find(',');
            fields.emplace_back(line.substr(0, comma));
            line.remove_prefix(comma == std::string_view::npos ? line.size() : comma);
        }
        if (line.empty()) {
            return;
        }
        line.remove_prefix(1);
    }
}

sample_parser::line_kind csv_parser::parse(std::string_view line)
{
    if (!has_header_ && line.starts_with(byte_order_mark)) {
        line.remove_prefix(byte_order_mark.size());
    }
    if (line.empty()) {
        return line_kind::blank;
    }
    if (line.find('\0') != std::string_view::npos) {
        throw bad_text("the line holds a zero byte");
    }
    split_csv(line, fields_);
    if (!has_header_) {
        take_header();
        has_header_ = true;
        return line_kind::header;
    }
    take_row();
    return line_kind::values;
}

void csv_parser::take_header()
{
    if (fields_.size() < 2) {
        throw bad_text("the header has one column: it needs the time and a sensor, with commas "
                       "between them");
    }
    if (is_value(fields_[1])) {
        throw bad_text("the first line holds values: it must name the columns, such as "
                       "time,sensor");
    }
    const bool is_of_fetch = fields_.size() > 3 && fields_[1] == "kind" && fields_[2] == "seconds";
    first_sensor_ = is_of_fetch ? 3 : 1;
    set_sensors({fields_.begin() + static_cast<std::ptrdiff_t>(first_sensor_), fields_.end()});
}

void csv_parser::take_row()
{
    if (fields_.size() != sensors().size() + first_sensor_) {
        throw bad_text(fmt::format("{} where the header has {}", counted(fields_.size(), "column"),
                                   sensors().size() + first_sensor_));
    }
    if (first_sensor_ > 1 && fields_[1] != "raw") {
        throw bad_text(
            fmt::format("column 2: '{}' is no raw sample, and only these can be imported "
                        "(export them alone: vesk export --format csv)",
                        shortened_name(fields_[1])));
    }
    try {
        set_time(parse_sample_time(fields_.front()));
    } catch (const bad_text &reason) {
        throw bad_text(fmt::format("column 1: {}", reason.what()));
    }
    begin_values();
    for (std::size_t column = first_sensor_; column < fields_.size(); ++column) {
        add_value(value_in(column));
    }
}

float csv_parser::value_in(std::size_t column) const
{
    const std::string &field = fields_[column];
    if (field.find_first_not_of(" \t") == std::string::npos) {
        return std::numeric_limits<float>::quiet_NaN();
    }
    try {
        return parse_value(field);
    } catch (const bad_text &reason) {
        throw bad_text(fmt::format("column {} ({}): {} (leave a missing value empty)", column + 1,
                                   shortened_name(sensors()[column - first_sensor_]),
                                   reason.what()));
    }
}

} // namespace cli
