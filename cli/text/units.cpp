// Formats values with their units for people. Amounts of memory use powers of 1024 and rates use
// powers of 1000, as people expect.
#include "text/units.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>

namespace cli
{
namespace
{

enum class scale { none, binary, decimal };

struct unit {
    std::string_view ending; // of the name, behind '_' or '.'
    std::string_view name;   // for programs
    std::string_view symbol; // for people
    scale steps;
};

// The first that fits counts, so the longer ones come first.
constexpr std::array<unit, 20> units = {{
    {"bytes_per_s", "bytes_per_s", "B/s", scale::decimal},
    {"pages_per_s", "pages_per_s", "pages/s", scale::none},
    {"packets_per_s", "packets_per_s", "pkt/s", scale::none},
    {"errors_per_s", "per_s", "err/s", scale::none},
    {"per_s", "per_s", "/s", scale::none},
    {"bytes", "bytes", "B", scale::binary},
    {"percent", "percent", "%", scale::none},
    {"count", "count", "", scale::none},
    {"flag", "flag", "", scale::none},
    {"RPM", "RPM", "RPM", scale::none},
    {"MHz", "MHz", "MHz", scale::none},
    {"dBm", "dBm", "dBm", scale::none},
    {"Hz", "Hz", "Hz", scale::decimal},
    {"ms", "ms", "ms", scale::none},
    {"s", "s", "s", scale::none},
    {"C", "C", "C", scale::none},
    {"V", "V", "V", scale::none},
    {"A", "A", "A", scale::none},
    {"W", "W", "W", scale::none},
    {"J", "J", "J", scale::none},
}};

bool ends_with_unit(std::string_view sensor, std::string_view ending)
{
    if (sensor.size() <= ending.size() || !sensor.ends_with(ending)) {
        return false;
    }
    const char before = sensor[sensor.size() - ending.size() - 1];
    return before == '_' || before == '.';
}

const unit *find_unit(std::string_view sensor)
{
    const auto *const found = std::find_if(units.begin(), units.end(), [&](const unit &one) {
        return ends_with_unit(sensor, one.ending);
    });
    return found != units.end() ? found : nullptr;
}

constexpr int usual_digits = 4;

std::string number(double value, int digits, double least_whole)
{
    // Whole numbers that people can still take in stay whole.
    const double size = std::fabs(value);
    if (size >= least_whole && size < 1e9) {
        return fmt::format("{:.0f}", value);
    }
    return fmt::format("{:.{}g}", value, digits);
}

std::string digits(double value)
{
    return number(value, usual_digits, 1000);
}

constexpr std::array<std::string_view, 7> binary_prefixes = {"",   "Ki", "Mi", "Gi",
                                                             "Ti", "Pi", "Ei"};
constexpr std::array<std::string_view, 7> decimal_prefixes = {"", "k", "M", "G", "T", "P", "E"};

// The unit of numbers up to @p size, with the prefix that keeps them short.
axis_unit with_prefix(double size, const unit &one)
{
    if (one.steps == scale::none || std::isinf(size)) {
        return {1, std::string(one.symbol), false};
    }
    const bool is_binary = one.steps == scale::binary;
    const auto &prefixes = is_binary ? binary_prefixes : decimal_prefixes;
    const double step = is_binary ? 1024 : 1000;
    std::size_t prefix = 0;
    double divisor = 1;
    // What would be rounded up to the step gets the next prefix, too.
    while (size / divisor >= step - 0.5 && prefix + 1 < prefixes.size()) {
        divisor *= step;
        ++prefix;
    }
    return {divisor, fmt::format("{}{}", prefixes[prefix], one.symbol), is_binary};
}

} // namespace

std::string_view unit_name_of(std::string_view sensor)
{
    const unit *one = find_unit(sensor);
    return one == nullptr ? std::string_view() : one->name;
}

std::string with_unit(double value, std::string_view sensor)
{
    if (std::isnan(value)) {
        return "-";
    }
    const unit *one = find_unit(sensor);
    if (one == nullptr || one->symbol.empty()) {
        return digits(value);
    }
    const axis_unit shown = with_prefix(std::fabs(value), *one);
    return fmt::format("{} {}", digits(value / shown.divisor), shown.symbol);
}

std::string plain_number(double value, int digits)
{
    return number(value, digits, std::pow(10.0, digits));
}

std::string with_unit(double value, std::string_view sensor, int digits)
{
    const unit *one = find_unit(sensor);
    if (one == nullptr || one->symbol.empty()) {
        return plain_number(value, digits);
    }
    const axis_unit shown = with_prefix(std::fabs(value), *one);
    return fmt::format("{} {}", plain_number(value / shown.divisor, digits), shown.symbol);
}

axis_unit axis_unit_of(double size, std::string_view sensor)
{
    const unit *one = find_unit(sensor);
    return one == nullptr ? axis_unit() : with_prefix(size, *one);
}

} // namespace cli
