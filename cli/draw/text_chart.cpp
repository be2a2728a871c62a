// Each chart is a canvas of dots with labels to its left and a line of text above. Nothing moves
// the cursor, so the output can go over a serial line and into a file.
#include "draw/text_chart.hpp"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

#include "draw/time_ticks.hpp"
#include "draw/value_axis.hpp"
#include "text/units.hpp"

namespace cli
{
namespace
{

constexpr std::size_t fewest_rows = 3;
constexpr std::size_t fewest_columns = 8;

// The characters of the axes.
struct axis_marks {
    const char *upright;
    const char *tick_of_value;
    const char *corner;
    const char *level;
    const char *tick_of_time;
};

axis_marks marks_of(charset set)
{
    return set == charset::ascii ? axis_marks{"|", "+", "+", "-", "+"}
                                 : axis_marks{"\u2502", "\u2524", "\u2514", "\u2500", "\u252c"};
}

// Left of the canvas: labels, a blank and the axis.
std::size_t gutter_of(std::size_t width)
{
    return width < 60 ? 9 : 12;
}

std::size_t cells_of(const text_look &look)
{
    const std::size_t gutter = gutter_of(look.width);
    return std::max(fewest_columns, look.width - std::min(look.width, gutter));
}

// A number that is longer than its room loses digits.
std::string label_in(const value_tick &tick, double divisor, std::size_t room)
{
    std::string label = tick.label;
    for (int digits = 9; label.size() > room && digits > 0; --digits) {
        label = fmt::format("{:.{}g}", tick.value / divisor, digits);
    }
    return label;
}

// Draws the columns of one sensor; each column is one dot wide.
class column_painter
{
public:
    column_painter(const value_axis &axis, dot_canvas &canvas) : axis_(axis), canvas_(canvas) {}

    void paint(const std::vector<chart_column> &columns)
    {
        for (std::size_t x = 0; x < columns.size(); ++x) {
            if (columns[x].has_values()) {
                paint(columns, x);
                previous_ = x;
            }
        }
    }

private:
    std::size_t height_of(double value) const
    {
        const double place = std::clamp(axis_.place_of(value), 0.0, 1.0);
        return static_cast<std::size_t>(
            std::lround(place * static_cast<double>(canvas_.height() - 1)));
    }

    void paint(const std::vector<chart_column> &columns, std::size_t x)
    {
        const chart_column &column = columns[x];
        const bool joins = column.joins && previous_ < x;
        if (column.has_band()) {
            // Columns that no interval happens to reach lie between two that are joined.
            const bool goes_on = joins && columns[previous_].has_band();
            for (std::size_t i = goes_on ? previous_ + 1 : x; i <= x; ++i) {
                canvas_.upright(i, height_of(static_cast<double>(column.band_least)),
                                height_of(static_cast<double>(column.band_greatest)),
                                dot_ink::band);
            }
            canvas_.dot(x, height_of(column.band_mean), dot_ink::line);
        }
        if (column.has_samples) {
            canvas_.upright(x, height_of(static_cast<double>(column.least.value)),
                            height_of(static_cast<double>(column.greatest.value)), dot_ink::line);
        }
        if (joins) {
            canvas_.line(previous_, height_of(columns[previous_].exit()), x,
                         height_of(column.entry()), dot_ink::line);
        }
    }

    const value_axis &axis_;
    dot_canvas &canvas_;
    std::size_t previous_ = 0;
};

class chart_writer
{
public:
    chart_writer(const charted_span &what, const text_look &look)
        : what_(what), look_(look), cells_(cells_of(look)), gutter_(gutter_of(look.width)),
          marks_(marks_of(look.characters())),
          ticks_(time_ticks(what.grid.range(), cells_, look.where))
    {
    }

    std::vector<std::string> write()
    {
        const bool has_events = std::any_of(what_.events.begin(), what_.events.end(),
                                            [](uint32_t type) { return type != 0; });
        const std::size_t sensors = std::max<std::size_t>(what_.sensors.size(), 1);
        const std::size_t below = has_events ? 2 : 1;
        const std::size_t each = (look_.height - std::min(look_.height, below)) / sensors;
        rows_ = std::max(fewest_rows, each - std::min<std::size_t>(each, 2));
        for (const charted_sensor &sensor : what_.sensors) {
            write_chart(sensor);
        }
        if (has_events) {
            write_events();
        }
        write_times();
        return std::move(lines_);
    }

private:
    static std::string blanks(std::size_t count) { return std::string(count, ' '); }
    void add(std::string line)
    {
        line.erase(line.find_last_not_of(' ') + 1);
        lines_.push_back(std::move(line));
    }

    void write_chart(const charted_sensor &sensor)
    {
        const auto extremes = extremes_of(sensor.columns);
        write_title(sensor, extremes);
        if (!extremes) {
            // The axis below has nothing to stand for.
            for (std::size_t row = 0; row < rows_; ++row) {
                add(blanks(gutter_ - 1) + marks_.upright);
            }
        } else {
            write_rows(sensor, *extremes);
        }
        write_axis(sensor);
    }

    void write_title(const charted_sensor &sensor,
                     const std::optional<std::pair<double, double>> &extremes)
    {
        std::string said = "no values";
        if (extremes) {
            const std::string least = with_unit(extremes->first, sensor.name);
            const std::string greatest = with_unit(extremes->second, sensor.name);
            said = least == greatest ? least : fmt::format("{} to {}", least, greatest);
        }
        said = fitted(said, look_.width, look_.characters());
        const std::size_t room = look_.width - std::min(look_.width, width_of(said) + 2);
        const std::string name = fitted(sensor.name, room, look_.characters());
        add(name.empty() ? said : fmt::format("{}  {}", name, said));
    }

    void write_rows(const charted_sensor &sensor, const std::pair<double, double> &extremes)
    {
        const value_axis axis =
            value_axis_for(extremes.first, extremes.second,
                           std::max<std::size_t>(2, (rows_ + 2) / 3), sensor.name);
        dot_canvas canvas(cells_, rows_, look_.form);
        column_painter(axis, canvas).paint(sensor.columns);
        const std::vector<std::string> labels = labels_of(axis, canvas.height());
        for (std::size_t row = 0; row < rows_; ++row) {
            const std::string &label = labels[row];
            add(fmt::format("{:>{}} {}{}", label, gutter_ - 2,
                            label.empty() ? marks_.upright : marks_.tick_of_value,
                            canvas.row(row, look_.colour)));
        }
    }

    // For each row, the label of the tick that lies in it.
    std::vector<std::string> labels_of(const value_axis &axis, std::size_t height) const
    {
        std::vector<std::string> labels(rows_);
        const double divisor = axis.divisor;
        for (const value_tick &tick : axis.ticks) {
            const auto dot = static_cast<std::size_t>(
                std::lround(axis.place_of(tick.value) * static_cast<double>(height - 1)));
            const std::size_t row = (height - 1 - dot) / dots_of(look_.form).height;
            if (labels[row].empty()) {
                labels[row] = label_in(tick, divisor, gutter_ - 2);
            }
        }
        return labels;
    }

    // The cell of a moment.
    std::size_t cell_of(int64_t time) const
    {
        return what_.grid.column_of(time) / dots_of(look_.form).width;
    }

    void write_axis(const charted_sensor &sensor)
    {
        const std::vector<bool> missing = missing_columns(sensor.columns);
        std::vector<bool> broken(cells_, false);
        for (std::size_t i = 0; i < missing.size(); ++i) {
            const std::size_t cell = i / dots_of(look_.form).width;
            broken[cell] = broken[cell] || missing[i];
        }
        std::vector<bool> ticked(cells_, false);
        for (const time_tick &tick : ticks_) {
            ticked[cell_of(tick.time)] = true;
        }
        std::string line = blanks(gutter_ - 1) + marks_.corner;
        for (std::size_t cell = 0; cell < cells_; ++cell) {
            line += broken[cell] ? " " : ticked[cell] ? marks_.tick_of_time : marks_.level;
        }
        add(line);
    }

    void write_events()
    {
        std::vector<uint32_t> types(cells_, 0);
        for (std::size_t i = 0; i < what_.events.size(); ++i) {
            uint32_t &type = types[i / dots_of(look_.form).width];
            type = std::max(type, what_.events[i]);
        }
        std::string line = fmt::format("{:<{}}", "events", gutter_);
        for (const uint32_t type : types) {
            line += type == 0 ? ' ' : type <= 9 ? static_cast<char>('0' + type) : '?';
        }
        add(line);
    }

    // A label stands around its tick, and is left out where it would touch the one before it.
    void write_times()
    {
        std::string line;
        for (const time_tick &tick : ticks_) {
            const std::size_t middle = gutter_ + cell_of(tick.time);
            const std::size_t begin = middle - std::min(middle, tick.label.size() / 2);
            if (begin >= line.size() + (line.empty() ? 0 : 1) &&
                begin + tick.label.size() <= gutter_ + cells_) {
                line += blanks(begin - line.size()) + tick.label;
            }
        }
        add(line);
    }

    const charted_span &what_;
    const text_look &look_;
    std::size_t cells_;
    std::size_t gutter_;
    axis_marks marks_;
    std::vector<time_tick> ticks_;
    std::size_t rows_ = fewest_rows;
    std::vector<std::string> lines_;
};

} // namespace

std::size_t columns_of(const text_look &look)
{
    return cells_of(look) * dots_of(look.form).width;
}

std::vector<std::string> text_charts(const charted_span &what, const text_look &look)
{
    return chart_writer(what, look).write();
}

} // namespace cli
