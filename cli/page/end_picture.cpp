// Draws the end of one sensor: the range of its past as two bands, the whole of it and the usual
// part, and over them its newest values. Texts are outside of the drawing, which is stretched to
// the width of the page.
#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <iterator>
#include <limits>
#include <optional>
#include <vector>

#include "draw/chart_columns.hpp"
#include "draw/svg_path.hpp"
#include "draw/time_grid.hpp"
#include "draw/value_axis.hpp"
#include "page/page_pictures.hpp"
#include "page/page_sections.hpp"
#include "text/units.hpp"

namespace cli
{
namespace
{

// The line is as thick at the edges as between them.
constexpr double margin = 3;
constexpr double height = 80;
constexpr svg_area area = {0, margin, 300, height - 2 * margin};

struct value_range {
    double least = std::numeric_limits<double>::infinity();
    double greatest = -std::numeric_limits<double>::infinity();

    void add(double value)
    {
        if (std::isfinite(value)) {
            least = std::min(least, value);
            greatest = std::max(greatest, value);
        }
    }
    bool is_empty() const { return least > greatest; }
};

// What of a sensor is drawn.
struct sensor_end {
    const page_content &content;
    std::size_t sensor;
    int64_t from;     // of the picture
    int64_t compared; // from here on the samples were compared with the past

    const std::vector<time_column> &columns() const { return content.charts.columns(); }
    column_values at(std::size_t column) const { return content.charts.at(sensor, column); }
    bool is_shown(std::size_t column) const { return columns()[column].end >= from; }
    bool is_past(std::size_t column) const { return columns()[column].end < compared; }
};

// The time from which there are so many samples, or all that there are.
int64_t start_of_newest(const std::vector<time_column> &columns, uint64_t samples)
{
    auto column = columns.rbegin();
    for (uint64_t seen = 0; std::next(column) != columns.rend(); ++column) {
        seen += column->rows;
        if (seen >= samples || std::next(column)->kind == column_kind::interval) {
            break;
        }
    }
    return column->start;
}

// Half as much as was compared stands before it. Samples are counted, not seconds, because the
// newest ones may lie on both sides of a gap.
sensor_end end_of(const page_content &content, std::size_t sensor)
{
    const uint64_t newest = content.unusual.newest;
    const auto &columns = content.charts.columns();
    return {content, sensor, start_of_newest(columns, newest + newest / 2),
            start_of_newest(columns, newest)};
}

// The value below which so much of all values lies.
double quantile_of(std::vector<double> values, double share)
{
    const auto place = static_cast<double>(values.size() - 1) * share;
    const auto found = values.begin() + static_cast<std::ptrdiff_t>(std::lround(place));
    std::nth_element(values.begin(), found, values.end());
    return *found;
}

// The extremes of the past, and where nine tenths of it stayed above and below.
struct past_ranges {
    value_range whole;
    std::optional<value_range> usual;
};

past_ranges past_of(const sensor_end &end)
{
    past_ranges past;
    std::vector<double> least;
    std::vector<double> greatest;
    for (std::size_t i = 0; i < end.columns().size() && end.is_past(i); ++i) {
        const column_values values = end.at(i);
        if (std::isfinite(values.least) && std::isfinite(values.greatest)) {
            past.whole.add(static_cast<double>(values.least));
            past.whole.add(static_cast<double>(values.greatest));
            least.push_back(static_cast<double>(values.least));
            greatest.push_back(static_cast<double>(values.greatest));
        }
    }
    if (!least.empty()) {
        past.usual =
            value_range{quantile_of(std::move(least), 0.1), quantile_of(std::move(greatest), 0.9)};
    }
    return past;
}

// The columns of the chart: one for each pixel of its width.
std::vector<chart_column> drawn_columns(const sensor_end &end, const time_grid &grid)
{
    column_track track(grid);
    for (std::size_t i = 0; i < end.columns().size(); ++i) {
        if (!end.is_shown(i)) {
            continue;
        }
        const time_column &column = end.columns()[i];
        const column_values values = end.at(i);
        if (column.follows_gap && i > 0) {
            track.add_hole(end.columns()[i - 1].end + 1, column.start - 1);
        }
        if (column.kind == column_kind::sample) {
            track.add_sample(grid.column_of(column.start), column.start, values.mean);
        } else if (std::isfinite(values.least) && std::isfinite(values.greatest)) {
            track.add_interval({column.start, column.end, values.least, values.greatest,
                                static_cast<double>(values.mean), 1});
        } else {
            track.add_hole(column.start, column.end);
        }
    }
    return track.take();
}

// All values that are drawn, those of the past included; nothing without any.
std::optional<value_axis> axis_of(const std::vector<chart_column> &columns, value_range all,
                                  const std::string &name)
{
    if (const auto extremes = extremes_of(columns)) {
        all.add(extremes->first);
        all.add(extremes->second);
    }
    if (all.is_empty()) {
        return std::nullopt;
    }
    return value_axis_for(all.least, all.greatest, 3, name);
}

std::string range_box(const char *kind, const value_range &values, const value_axis &axis)
{
    const double top = area.y_of(axis, values.greatest);
    const double bottom = area.y_of(axis, values.least);
    return fmt::format(R"(<rect class="{}" x="0" y="{}" width="{}" height="{}"/>)", kind,
                       svg_number(top), area.width, svg_number(std::max(bottom - top, 1.0)));
}

} // namespace

void write_end_picture(const page_content &content, std::size_t sensor, const page_sink &put)
{
    if (content.charts.columns().empty()) {
        return;
    }
    const sensor_end end = end_of(content, sensor);
    const past_ranges past = past_of(end);
    const time_grid grid({end.from, std::max(content.end(), end.from)},
                         static_cast<std::size_t>(area.width));
    const std::vector<chart_column> columns = drawn_columns(end, grid);
    const std::string &name = content.names[sensor];
    const std::optional<value_axis> axis = axis_of(columns, past.whole, name);
    if (!axis) {
        return;
    }
    put("<div class=\"end-picture\"><span class=\"top\">" + html_text(with_unit(axis->to, name)) +
        "</span><span class=\"bottom\">" + html_text(with_unit(axis->from, name)) + "</span>\n");
    put(fmt::format("<svg viewBox=\"0 0 {} {}\" preserveAspectRatio=\"none\" role=\"img\" "
                    "aria-label=\"the end of {}\">",
                    area.width, height, html_text(short_name(name))));
    if (!past.whole.is_empty()) {
        put(range_box("reach", past.whole, *axis));
    }
    if (past.usual) {
        put(range_box("usual", *past.usual, *axis));
    }
    if (end.compared > end.from) {
        put(fmt::format(R"(<path class="compared" d="M{} 0V{}"/>)",
                        svg_number(area.x_of(grid.place_of(end.compared))), height));
    }
    put("<path class=\"spread\" d=\"" + band_path(columns, *axis, area) +
        "\"/><path class=\"line\" d=\"" + line_path(columns, grid, *axis, area) + "\"/></svg>\n");
    put(fmt::format("<span class=\"from\">{}</span><span class=\"to\">{}</span></div>\n",
                    page_time(end.from).substr(5), page_time(content.end()).substr(5)));
}

} // namespace cli
