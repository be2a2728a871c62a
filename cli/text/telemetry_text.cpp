// Parses and writes lines of text telemetry. Any line may go in: it is checked against the limits
// of a box first, because the reader of the library would abort on some lines and accept others
// that are wrong. What is refused is reported with its reason, and what was read before stays
// valid.
#include "text/telemetry_text.hpp"

#include <algorithm>
#include <array>
#include <fmt/format.h>

#include <vesk/vesk_limits.h>

#include "process/terminal.hpp"
#include "text/distinct_names.hpp"
#include "text/time_text.hpp"
#include "text/value_text.hpp"

namespace cli
{
namespace
{

constexpr std::size_t time_length = 17;

// A header line is recognised by these words, or by a first name that begins with "::". They are
// the fixed vocabulary of the format.
constexpr std::array<std::string_view, 32> header_words = {
    "SSC",  "ssc",  "SB",   "sb",  "Temp", "temp", "PS",    "ps",    "VDC",    "vdc",   "N0",
    "n0",   "CORE", "core", "CPU", "cpu",  "DISK", "disk",  "READ",  "read",   "WRITE", "write",
    "IDLE", "idle", "V_",   "v_",  "T_",   "t_",   "POWER", "power", "PACKET", "packet"};

// Calls visit(field) for each field between the commas, empty ones included.
template <typename Visit>
void for_each_field(std::string_view text, Visit visit)
{
    for (;;) {
        const auto comma = text.find(',');
        visit(text.substr(0, comma));
        if (comma == std::string_view::npos) {
            return;
        }
        text.remove_prefix(comma + 1);
    }
}

// The rule that tells headers needs a time of the usual form before the names, whatever the line
// has.
bool is_header(std::string_view line, std::string_view time, std::string_view rest)
{
    return time.size() == time_length && has_time_shape(time)
               ? is_header_line(line)
               : is_header_line(fmt::format("{:0>{}},{}", "", time_length, rest));
}

} // namespace

bool is_header_line(std::string_view line)
{
    // ',' '-' '.' '/', the digits and ':' are all that plain numbers and times are made of.
    const auto skipped =
        std::find_if_not(line.begin(), line.end(), [](char c) { return c >= 44 && c <= 58; });
    const auto at = static_cast<std::size_t>(skipped - line.begin());
    if (at == line.size()) {
        return false;
    }
    const std::string_view rest = line.substr(at);
    const bool has_word = std::any_of(header_words.begin(), header_words.end(), [&](auto word) {
        return rest.find(word) != std::string_view::npos;
    });
    // The "::" of a first name is skipped above, so it is looked for before the rest.
    return has_word || (at >= 2 && line.substr(at - 2, 2) == "::");
}

sample_parser::line_kind telemetry_parser::parse(std::string_view line)
{
    if (line.empty()) {
        return line_kind::blank;
    }
    if (line.find('\0') != std::string_view::npos) {
        throw bad_text("the line holds a zero byte");
    }
    const std::string_view time = line.substr(0, line.find(','));
    if (!has_time_shape(time)) {
        (void)parse_sample_time(time); // knows the reason best
    }
    if (time.size() == line.size()) {
        throw bad_text("nothing follows the time");
    }
    const std::string_view rest = line.substr(time.size() + 1);
    // A line of values with a word in the wrong place is not a header, whatever the word is.
    if (!is_value(rest.substr(0, rest.find(','))) && is_header(line, time, rest)) {
        parse_header(rest);
        return line_kind::header;
    }
    if (sensors().empty()) {
        throw bad_text("values come before any header line (a header line holds names, and its "
                       "first name begins with '::')");
    }
    set_time(parse_sample_time(time));
    parse_values(rest);
    return line_kind::values;
}

void telemetry_parser::parse_header(std::string_view names)
{
    std::vector<std::string> sensors;
    for_each_field(names, [&](std::string_view name) {
        // One more than a box holds is enough to be refused.
        if (sensors.size() <= VESK_MAX_COUNT) {
            sensors.emplace_back(name);
        }
    });
    set_sensors(std::move(sensors));
}

void telemetry_parser::parse_values(std::string_view fields)
{
    const std::string_view all = fields;
    begin_values();
    try {
        add_value(take_value(fields));
        while (!fields.empty()) {
            fields.remove_prefix(1);
            add_value(take_value(fields));
        }
    } catch (const bad_text &reason) {
        require_value_for_each_sensor(all);
        throw bad_text(fmt::format("value {} ({}): {}", values().size() + 1,
                                   shortened_name(sensors()[values().size()]), reason.what()));
    }
    if (values().size() != sensors().size()) {
        require_value_for_each_sensor(all);
    }
}

// Says what is wrong with a line before its values do: often a name in the header is missing.
void telemetry_parser::require_value_for_each_sensor(std::string_view fields) const
{
    const auto count = static_cast<std::size_t>(std::count(fields.begin(), fields.end(), ',')) + 1;
    if (count != sensors().size()) {
        throw bad_text(
            fmt::format("{} for {}", counted(count, "value"), counted(sensors().size(), "sensor")));
    }
}

std::string representable_name(std::string_view name)
{
    std::string result = printable(name.empty() ? "_" : name, '_');
    std::replace(result.begin(), result.end(), ',', '_');
    return result;
}

std::vector<std::string> representable_names(std::span<const std::string> sensors)
{
    return distinct_names(sensors,
                          [](const std::string &sensor) { return representable_name(sensor); });
}

std::string header_line(int64_t time, std::span<const std::string> sensors)
{
    std::string line = format_time(time);
    for (const std::string &name : representable_names(sensors)) {
        line += ',';
        line += name;
    }
    line += '\n';
    return line;
}

std::string values_line(int64_t time, std::span<const float> values)
{
    std::string line = format_time(time);
    for (const float value : values) {
        line += ',';
        append_value(line, value);
    }
    line += '\n';
    return line;
}

} // namespace cli
