// Parses the names of statistics, and takes and formats their values for each output. One table of
// names serves the option --stat, the headings and the JSON keys. A statistic that the box does not
// hold is NaN, and an empty field or a dash when it is shown.
#include "verbs/statistic.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <limits>

#include "process/failure.hpp"
#include "text/machine_text.hpp"
#include "text/suggestion.hpp"
#include "text/units.hpp"

namespace cli
{
namespace
{

// The names stand in the order of the enumeration.
constexpr std::array<std::string_view, 9> names = {"count",    "min",      "mean",  "max", "stddev",
                                                   "skewness", "kurtosis", "first", "last"};

statistic parse_statistic(std::string_view text)
{
    const auto *const found = std::find(names.begin(), names.end(), text);
    if (found == names.end()) {
        const std::string_view meant = nearest_word(text.substr(0, 20), names);
        throw failure(exit_usage,
                      fmt::format("--stat {}: there is {}{}", text.substr(0, 20),
                                  fmt::join(names, ", "),
                                  meant.empty() ? "" : fmt::format("; did you mean '{}'?", meant)));
    }
    return static_cast<statistic>(found - names.begin());
}

float told_value(const sensor_statistics &sensor, statistic what, rough_numbers rough)
{
    const bool is_left_out = what == statistic::stddev && rough == rough_numbers::left_out;
    return static_cast<float>(is_left_out ? sensor.numbers().deviation().reliable()
                                          : value_of(sensor, what));
}

} // namespace

std::string_view name_of(statistic what)
{
    return names[static_cast<std::size_t>(what)];
}

std::vector<statistic> parse_statistics(std::string_view text)
{
    std::vector<statistic> chosen;
    for (;;) {
        const auto comma = text.find(',');
        const statistic one = parse_statistic(text.substr(0, comma));
        if (std::find(chosen.begin(), chosen.end(), one) != chosen.end()) {
            throw failure(exit_usage, fmt::format("--stat: {} is there twice", name_of(one)));
        }
        chosen.push_back(one);
        if (comma == std::string_view::npos) {
            return chosen;
        }
        text.remove_prefix(comma + 1);
    }
}

double value_of(const sensor_statistics &sensor, statistic what)
{
    const moments &numbers = sensor.numbers();
    if (what == statistic::count) {
        return static_cast<double>(numbers.count());
    }
    if (numbers.count() == 0) {
        return std::numeric_limits<double>::quiet_NaN();
    }
    switch (what) {
    case statistic::min:
        return static_cast<double>(sensor.least());
    case statistic::mean:
        return numbers.mean();
    case statistic::max:
        return static_cast<double>(sensor.greatest());
    case statistic::stddev:
        return numbers.deviation().value;
    case statistic::skewness:
        return numbers.skewness();
    case statistic::kurtosis:
        return numbers.kurtosis();
    case statistic::first:
        return static_cast<double>(sensor.first());
    case statistic::last:
        return static_cast<double>(sensor.last());
    case statistic::count:
        break;
    }
    return static_cast<double>(numbers.count());
}

bool has_unit(statistic what)
{
    return what != statistic::count && what != statistic::skewness && what != statistic::kurtosis;
}

std::string shown(const sensor_statistics &sensor, statistic what, std::string_view name)
{
    if (what == statistic::count) {
        return std::to_string(sensor.numbers().count());
    }
    const double value = value_of(sensor, what);
    const bool is_rough =
        what == statistic::stddev && !std::isnan(value) && sensor.numbers().deviation().is_rough;
    return fmt::format("{}{}", is_rough ? "~" : "",
                       with_unit(value, has_unit(what) ? name : std::string_view()));
}

std::string field_of(const sensor_statistics &sensor, statistic what, rough_numbers rough)
{
    return what == statistic::count ? std::to_string(sensor.numbers().count())
                                    : number_field(told_value(sensor, what, rough));
}

std::string json_of(const sensor_statistics &sensor, statistic what, rough_numbers rough)
{
    return what == statistic::count ? std::to_string(sensor.numbers().count())
                                    : json_number(told_value(sensor, what, rough));
}

} // namespace cli
