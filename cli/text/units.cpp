// Amounts of memory are counted in powers of 1024 and rates in powers of 1000, as people are used
// to.
#include "text/units.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <span>

namespace cli
{
namespace
{

enum class scale { none, binary, decimal };

struct unit {
    std::string_view suffix; // of the name
    std::string_view plain;  // of a value as it is
    std::string_view symbol; // behind a prefix, or instead of the plain one
    scale steps;
};

// The first that fits counts, so the longer ones come first.
constexpr std::array<unit, 16> units = {{
    {"_bytes_per_s", "bytes/s", "B/s", scale::decimal},
    {"_pages_per_s", "pages/s", "pages/s", scale::none},
    {"_packets_per_s", "packets/s", "packets/s", scale::none},
    {"_errors_per_s", "errors/s", "errors/s", scale::none},
    {"_per_s", "/s", "/s", scale::none},
    {"_bytes", "bytes", "B", scale::binary},
    {"_percent", "%", "%", scale::none},
    {"_RPM", "RPM", "RPM", scale::none},
    {"_Hz", "Hz", "Hz", scale::decimal},
    {"_ms", "ms", "ms", scale::none},
    {"_s", "s", "s", scale::none},
    {"_C", "C", "C", scale::none},
    {"_V", "V", "V", scale::none},
    {"_A", "A", "A", scale::none},
    {"_W", "W", "W", scale::none},
    {"_J", "J", "J", scale::none},
}};

const unit *find_unit(std::string_view sensor)
{
    const auto *const found = std::find_if(
        units.begin(), units.end(), [&](const unit &one) { return sensor.ends_with(one.suffix); });
    return found != units.end() ? found : nullptr;
}

std::string digits(double value)
{
    // Whole numbers that people can still take in stay whole.
    const double size = std::fabs(value);
    if (size >= 1000 && size < 1e9) {
        return fmt::format("{:.0f}", value);
    }
    return fmt::format("{:.4g}", value);
}

std::string with_prefix(double value, std::string_view symbol, double step,
                        std::span<const std::string_view> prefixes)
{
    std::size_t prefix = 0;
    // What would be rounded up to the step gets the next prefix, too.
    while (std::fabs(value) >= step - 0.5 && prefix + 1 < prefixes.size()) {
        value /= step;
        ++prefix;
    }
    return fmt::format("{} {}{}", digits(value), prefixes[prefix], symbol);
}

} // namespace

std::string with_unit(double value, std::string_view sensor)
{
    constexpr std::array<std::string_view, 7> binary = {"", "Ki", "Mi", "Gi", "Ti", "Pi", "Ei"};
    constexpr std::array<std::string_view, 7> decimal = {"", "k", "M", "G", "T", "P", "E"};
    if (std::isnan(value)) {
        return "-";
    }
    const unit *one = find_unit(sensor);
    if (one == nullptr) {
        return digits(value);
    }
    if (std::isinf(value) || one->steps == scale::none) {
        return fmt::format("{} {}", digits(value), one->symbol);
    }
    return one->steps == scale::binary ? with_prefix(value, one->symbol, 1024, binary)
                                       : with_prefix(value, one->symbol, 1000, decimal);
}

std::string_view unit_of(std::string_view sensor)
{
    const unit *one = find_unit(sensor);
    return one != nullptr ? one->plain : std::string_view();
}

} // namespace cli
