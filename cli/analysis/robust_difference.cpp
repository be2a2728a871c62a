// Trimmed means and winsorised deviations of values with weights. A value whose weight reaches over
// the border of a fifth counts with the part of it that lies inside.
#include "analysis/robust_difference.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace cli
{
namespace
{

constexpr double trimmed_share = 0.2;
// With a fifth trimmed at each end, it makes the result that of Cohen for normal distributions.
constexpr double scale = 0.642;

double root_of_mean_square(double a, double b)
{
    return std::sqrt((a * a + b * b) / 2);
}

double spread_of(double first, double second)
{
    if (first <= 0 && second <= 0) {
        return 0;
    }
    if (first <= 0 || second <= 0) {
        return first <= 0 ? most_spread : -most_spread;
    }
    return std::clamp(std::log(second / first), -most_spread, most_spread);
}

// The mean of (value - origin) to the first or second power, weighted.
double mean_power(const std::vector<weighted_value> &values, double total, double origin,
                  double low, double high, int power)
{
    double sum = 0;
    for (const weighted_value &each : values) {
        const double distance = std::clamp(each.value, low, high) - origin;
        sum += each.weight * (power == 1 ? distance : distance * distance);
    }
    return sum / total;
}

double deviation_within(const std::vector<weighted_value> &values, double total, double low,
                        double high)
{
    const double mean = low + mean_power(values, total, low, low, high, 1);
    return std::sqrt(mean_power(values, total, mean, low, high, 2));
}

} // namespace

robust_summary summarise(std::vector<weighted_value> &values)
{
    std::sort(values.begin(), values.end(),
              [](const weighted_value &a, const weighted_value &b) { return a.value < b.value; });
    double total = 0;
    for (const weighted_value &each : values) {
        total += each.weight;
    }
    const double from = trimmed_share * total;
    const double to = total - from;
    double low = values.front().value;
    double high = values.back().value;
    double before = 0;
    double sum = 0;
    double kept = 0;
    const double origin = values[values.size() / 2].value;
    for (const weighted_value &each : values) {
        const double after = before + each.weight;
        const double inside = std::min(after, to) - std::max(before, from);
        if (inside > 0) {
            low = kept > 0 ? low : each.value;
            high = each.value;
            sum += inside * (each.value - origin);
            kept += inside;
        }
        before = after;
    }
    robust_summary found;
    found.mean = kept > 0 ? origin + sum / kept : origin;
    found.deviation = deviation_within(values, total, low, high);
    found.whole_deviation =
        deviation_within(values, total, values.front().value, values.back().value);
    return found;
}

double robust_difference::size() const
{
    return std::max(std::fabs(shift), std::fabs(spread));
}

robust_difference difference_of(const robust_summary &first, const robust_summary &second)
{
    const double distance = second.mean - first.mean;
    double unit = root_of_mean_square(first.deviation, second.deviation) / scale;
    if (unit <= 0) {
        // Most values are the same one: what the others do is the only unit left.
        unit = root_of_mean_square(first.whole_deviation, second.whole_deviation);
    }
    robust_difference found;
    if (distance != 0) {
        found.shift = unit > 0 ? distance / unit
                               : std::copysign(std::numeric_limits<double>::infinity(), distance);
    }
    found.spread = spread_of(first.whole_deviation, second.whole_deviation);
    if (first.deviation > 0 && second.deviation > 0) {
        // What a few values do must show in the others, and the other way round.
        const double inner = spread_of(first.deviation, second.deviation);
        const bool agree = (inner > 0) == (found.spread > 0);
        found.spread = !agree                                       ? 0
                       : std::fabs(inner) < std::fabs(found.spread) ? inner
                                                                    : found.spread;
    }
    return found;
}

} // namespace cli
