// Ticks are calculated as whole multiples of their distance, so that 0.3 is not shown as
// 0.30000000000000004, and labels have as many digits as tell neighbours apart.
#include "draw/value_axis.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fmt/format.h>

#include "text/units.hpp"

namespace cli
{
namespace
{

// A distance of ticks: whole * 10^exponent, or whole * 2^exponent.
struct tick_distance {
    double whole = 1;
    double base = 10;
    int exponent = 0;

    double times(double count) const
    {
        // Negative powers are divided by: 3 / 10 is nearer to 0.3 than 3 * 0.1.
        const double power = std::pow(base, std::abs(exponent));
        return exponent < 0 ? count * whole / power : count * whole * power;
    }
    double value() const { return times(1); }
};

// The shortest round distance that is not below @p least.
tick_distance distance_from(double least, bool is_binary)
{
    // A hair of tolerance, so that 0.1 does not become 0.2 by rounding.
    constexpr double hair = 1e-9;
    tick_distance found;
    if (is_binary && least >= 0.5) {
        found.base = 2;
        found.exponent = static_cast<int>(std::ceil(std::log2(least) - hair));
        return found;
    }
    found.exponent = static_cast<int>(std::floor(std::log10(least) + hair));
    for (const double whole : {1.0, 2.0, 5.0, 10.0}) {
        found.whole = whole;
        if (found.value() >= least * (1 - hair)) {
            break;
        }
    }
    return found;
}

int decimals_of(double distance)
{
    constexpr int most = 9;
    for (int decimals = 0; decimals < most; ++decimals) {
        const double scaled = distance * std::pow(10.0, decimals);
        if (std::fabs(scaled - std::round(scaled)) < 1e-6 * scaled) {
            return decimals;
        }
    }
    return most;
}

std::string plain_label(double value, double distance)
{
    return fmt::format("{:.{}f}", value, decimals_of(distance));
}

std::string short_label(double value, double distance, double size)
{
    const int digits = 1 + static_cast<int>(std::ceil(std::log10(size / distance)));
    return fmt::format("{:.{}g}", value, std::clamp(digits, 1, 12));
}

// The labels of all ticks in the same form, the shorter one: "2000000000" or "2e+09".
void add_labels(std::vector<value_tick> &ticks, double distance, double size, double divisor)
{
    constexpr double largest_plain = 1e15;
    constexpr double smallest_plain = 1e-8;
    std::size_t plain_length = 0;
    std::size_t short_length = 0;
    const bool may_be_plain = size < largest_plain && distance >= smallest_plain;
    for (value_tick &tick : ticks) {
        tick.label = short_label(tick.value / divisor, distance, size);
        short_length = std::max(short_length, tick.label.size());
        plain_length =
            std::max(plain_length,
                     may_be_plain ? plain_label(tick.value / divisor, distance).size() : SIZE_MAX);
    }
    for (value_tick &tick : ticks) {
        if (plain_length <= short_length || (may_be_plain && plain_length < 7)) {
            tick.label = plain_label(tick.value / divisor, distance);
        }
    }
}

// What the axis has to hold: more than one value, and 0 where it is near.
void widen(double &least, double &greatest)
{
    if (least > 0 && least < greatest / 2) {
        least = 0;
    } else if (greatest < 0 && greatest > least / 2) {
        greatest = 0;
    }
    const double size = std::max(std::fabs(least), std::fabs(greatest));
    // Below this distance doubles do not tell ticks apart.
    const double smallest = std::max(size * 1e-9, 1e-40);
    if (greatest - least < smallest) {
        const double room = size > 0 ? size * 0.05 : 1;
        least -= size > 0 ? room : 0;
        greatest += room;
    }
}

} // namespace

value_axis value_axis_for(double least, double greatest, std::size_t most, std::string_view sensor)
{
    widen(least, greatest);
    const double size = std::max(std::fabs(least), std::fabs(greatest));
    const axis_unit unit = axis_unit_of(size, sensor);
    const double from = least / unit.divisor;
    const double to = greatest / unit.divisor;
    double shortest = (to - from) / static_cast<double>(std::max<std::size_t>(most, 2) - 1);
    tick_distance distance = distance_from(shortest, unit.is_binary);
    const auto first = [&] { return std::floor(from / distance.value() + 1e-9); };
    const auto last = [&] { return std::ceil(to / distance.value() - 1e-9); };
    // The ends go out to the next tick, which may take more of them than there is room for.
    while (last() - first() + 1 > static_cast<double>(std::max<std::size_t>(most, 2))) {
        shortest = distance.value() * 1.1;
        const tick_distance next = distance_from(shortest, unit.is_binary);
        // Two ticks around 0 always need three.
        if (most <= 2 && last() - first() <= 2) {
            break;
        }
        distance = next;
    }
    value_axis axis;
    axis.unit = unit.symbol;
    axis.divisor = unit.divisor;
    const auto ticks = static_cast<std::size_t>(last() - first()) + 1;
    for (std::size_t i = 0; i < ticks; ++i) {
        const double count = first() + static_cast<double>(i);
        // Not -0, which would be shown.
        axis.ticks.push_back({count == 0 ? 0 : distance.times(count) * unit.divisor, ""});
    }
    add_labels(axis.ticks, distance.value(), size / unit.divisor, unit.divisor);
    axis.from = std::min(axis.ticks.front().value, least);
    axis.to = std::max(axis.ticks.back().value, greatest);
    return axis;
}

} // namespace cli
