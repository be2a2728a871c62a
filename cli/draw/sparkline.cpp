// One character can show one value of a column. The extreme that lies farther from the median is
// taken, so that a short peak among many columns is seen, upwards as well as downwards.
#include "draw/sparkline.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace cli
{
namespace
{

constexpr std::size_t levels = 8;
constexpr std::array<const char *, levels> blocks = {"\u2581", "\u2582", "\u2583", "\u2584",
                                                     "\u2585", "\u2586", "\u2587", "\u2588"};
constexpr std::array<const char *, levels> signs = {"_", ".", "-", "~", "=", "+", "*", "#"};

double median_of(std::span<const chart_column> columns)
{
    std::vector<double> middles;
    for (const chart_column &column : columns) {
        if (column.has_values()) {
            middles.push_back((column.lowest() + column.highest()) / 2);
        }
    }
    const auto middle = middles.begin() + static_cast<std::ptrdiff_t>(middles.size() / 2);
    std::nth_element(middles.begin(), middle, middles.end());
    return *middle;
}

} // namespace

std::string text_sparkline(std::span<const chart_column> columns, charset set)
{
    const auto extremes = extremes_of(columns);
    if (!extremes) {
        return std::string(columns.size(), ' ');
    }
    const double median = median_of(columns);
    const double height = extremes->second - extremes->first;
    const std::vector<bool> missing = missing_columns(columns);
    const auto &characters = set == charset::ascii ? signs : blocks;
    std::string line;
    std::size_t level = 0;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const chart_column &column = columns[i];
        if (column.has_values()) {
            const bool is_high = column.highest() - median >= median - column.lowest();
            const double value = is_high ? column.highest() : column.lowest();
            const double place = height > 0 ? (value - extremes->first) / height : 0;
            level =
                std::min(levels - 1, static_cast<std::size_t>(place * static_cast<double>(levels)));
        }
        line += missing[i] && !column.has_values() ? " " : characters[level];
    }
    return line;
}

} // namespace cli
