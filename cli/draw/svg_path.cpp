// The band has the steps of its columns, which are about a pixel wide. Columns that no interval
// happens to reach between two that are joined repeat the left one.
#include "draw/svg_path.hpp"

#include <cmath>
#include <fmt/format.h>
#include <vector>

namespace cli
{
namespace
{

// Follows the line: a stroke begins after each hole, and one of a single value becomes a dot.
class line_pen
{
public:
    void lift()
    {
        if (points_ == 1) {
            path_ += "h0";
        }
        points_ = 0;
    }
    void to(double x, double y)
    {
        const std::string next = fmt::format("{} {}", svg_number(x), svg_number(y));
        if (points_ > 0 && next == latest_) {
            return;
        }
        path_ += (points_ == 0 ? "M" : "L") + next;
        latest_ = next;
        ++points_;
    }
    std::string finish()
    {
        lift();
        return std::move(path_);
    }

private:
    std::string path_;
    std::string latest_;
    std::size_t points_ = 0;
};

struct band_step {
    double left;
    double right;
    double least;
    double greatest;
};

// There and back around one run of joined columns.
void add_run(const std::vector<band_step> &run, std::string &path)
{
    for (std::size_t i = 0; i < run.size(); ++i) {
        path += fmt::format("{}{} {}H{}", i == 0 ? "M" : "L", svg_number(run[i].left),
                            svg_number(run[i].greatest), svg_number(run[i].right));
    }
    for (std::size_t i = run.size(); i-- > 0;) {
        path += fmt::format("L{} {}H{}", svg_number(run[i].right), svg_number(run[i].least),
                            svg_number(run[i].left));
    }
    path += run.empty() ? "" : "Z";
}

} // namespace

std::string svg_number(double value)
{
    const double rounded = std::round(value * 10) / 10;
    // -0 would be a number, too, and a longer one.
    return fmt::format("{}", rounded == 0 ? 0.0 : rounded);
}

std::string band_path(std::span<const chart_column> columns, const value_axis &axis,
                      const svg_area &area)
{
    // A band of equal values is still to be seen.
    constexpr double thinnest = 1;
    std::string path;
    std::vector<band_step> run;
    const auto size = static_cast<double>(columns.size());
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const chart_column &column = columns[i];
        if (!column.has_band()) {
            continue;
        }
        if (!column.joins || column.has_hole) {
            add_run(run, path);
            run.clear();
        }
        band_step step = {area.x_of(static_cast<double>(i) / size),
                          area.x_of(static_cast<double>(i + 1) / size),
                          area.y_of(axis, static_cast<double>(column.band_least)),
                          area.y_of(axis, static_cast<double>(column.band_greatest))};
        if (step.least - step.greatest < thinnest) {
            const double middle = (step.least + step.greatest) / 2;
            step.least = middle + thinnest / 2;
            step.greatest = middle - thinnest / 2;
        }
        if (!run.empty()) {
            run.back().right = step.left;
        }
        run.push_back(step);
    }
    add_run(run, path);
    return path;
}

std::string line_path(std::span<const chart_column> columns, const time_grid &grid,
                      const value_axis &axis, const svg_area &area)
{
    line_pen pen;
    const auto size = static_cast<double>(columns.size());
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const chart_column &column = columns[i];
        if (!column.has_values()) {
            continue;
        }
        if (!column.joins) {
            pen.lift();
        }
        if (column.has_band()) {
            pen.to(area.x_of((static_cast<double>(i) + 0.5) / size),
                   area.y_of(axis, column.band_mean));
        }
        for (const chart_point &point : points_in(column)) {
            if (std::isnan(point.value)) {
                pen.lift();
            } else {
                pen.to(area.x_of(grid.place_of(point.time)),
                       area.y_of(axis, static_cast<double>(point.value)));
            }
        }
    }
    return pen.finish();
}

} // namespace cli
