// The picture is made of few elements, whatever it shows: one path for the band and one for the
// line of each sensor. Their size is bounded by the number of columns.
#include "draw/svg_chart.hpp"

#include <algorithm>
#include <fmt/format.h>

#include "draw/svg_path.hpp"
#include "draw/time_ticks.hpp"
#include "draw/value_axis.hpp"
#include "process/terminal.hpp"

namespace cli
{
namespace
{

// In pixels.
constexpr double left_margin = 76; // for the labels of values
constexpr double right_margin = 14;
constexpr double title_height = 30;
constexpr double axis_height = 12;    // below a chart: events and what is missing
constexpr double times_height = 40;   // the times, and the whole span
constexpr double character_width = 7; // of labels

// The line and the band are told apart by their lightness, too. Variables (var()) would be shorter,
// but not every program that shows SVG knows them.
constexpr const char *style_rules =
    ".vesk-ground{fill:#ffffff}"
    ".vesk-text{fill:#1f2328;font:13px sans-serif}"
    ".vesk-label{fill:#59636e;font:12px sans-serif}"
    ".vesk-grid{stroke:#d8dee4;stroke-width:1;fill:none}"
    ".vesk-axis{stroke:#59636e;stroke-width:1;fill:none}"
    ".vesk-band{fill:#b6d4f0;stroke:none}"
    ".vesk-line{stroke:#0b5cad;stroke-width:1.5;stroke-linecap:round;stroke-linejoin:round;"
    "fill:none}"
    ".vesk-missing{fill:#c2410c}"
    ".vesk-event-1,.vesk-event-2{fill:#59636e}"
    ".vesk-event-3{fill:#b45309}"
    ".vesk-event-4,.vesk-event-5{fill:#c81e1e}"
    "@media (prefers-color-scheme:dark){"
    ".vesk-ground{fill:#0d1117}"
    ".vesk-text{fill:#e6edf3}"
    ".vesk-label{fill:#9da7b1}"
    ".vesk-grid{stroke:#30363d}"
    ".vesk-axis{stroke:#9da7b1}"
    ".vesk-band{fill:#1d4673}"
    ".vesk-line{stroke:#79c0ff}"
    ".vesk-missing{fill:#fb923c}"
    ".vesk-event-1,.vesk-event-2{fill:#9da7b1}"
    ".vesk-event-3{fill:#f59e0b}"
    ".vesk-event-4,.vesk-event-5{fill:#ff6b6b}}";

std::string opening(std::size_t width, double height, std::string_view title)
{
    return fmt::format("<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 {0} {1}\" "
                       "width=\"{0}\" height=\"{1}\" role=\"img\">\n"
                       "<title>{2}</title>\n<style>{3}</style>\n",
                       width, svg_number(height), xml_text(title), style_rules);
}

std::string path(std::string_view name, std::string_view data)
{
    return data.empty() ? std::string()
                        : fmt::format("<path class=\"{}\" d=\"{}\"/>\n", name, data);
}

std::string text(double x, double y, std::string_view name, std::string_view anchor,
                 std::string_view shown)
{
    return fmt::format("<text class=\"{}\" x=\"{}\" y=\"{}\" text-anchor=\"{}\">{}</text>\n", name,
                       svg_number(x), svg_number(y), anchor, xml_text(shown));
}

std::string box(std::string_view name, double x, double y, double width, double height)
{
    return fmt::format("<rect class=\"{}\" x=\"{}\" y=\"{}\" width=\"{}\" height=\"{}\"/>\n", name,
                       svg_number(x), svg_number(y), svg_number(width), svg_number(height));
}

class picture
{
public:
    picture(const charted_span &what, const svg_look &look)
        : what_(what), look_(look), width_(static_cast<double>(columns_of(look))),
          ticks_(time_ticks(what.grid.range(), static_cast<std::size_t>(width_ / character_width),
                            look.where))
    {
    }

    std::string draw()
    {
        const auto count = static_cast<double>(what_.sensors.size());
        const double height = count * static_cast<double>(look_.height) + times_height;
        out_ = opening(look_.width, height, title());
        out_ += box("vesk-ground", 0, 0, static_cast<double>(look_.width), height);
        double top = 0;
        for (const charted_sensor &sensor : what_.sensors) {
            draw_chart(sensor, {left_margin, top + title_height, width_, chart_height()});
            top += static_cast<double>(look_.height);
        }
        draw_legend();
        draw_times(top);
        return out_ + "</svg>\n";
    }

private:
    double chart_height() const
    {
        return std::max(16.0, static_cast<double>(look_.height) - title_height - axis_height);
    }

    std::string title() const
    {
        std::string names;
        for (const charted_sensor &sensor : what_.sensors) {
            names += names.empty() ? "" : ", ";
            names += sensor.name;
        }
        return fmt::format("{}, {}", names, span_text());
    }

    std::string span_text() const
    {
        const time_range &range = what_.grid.range();
        return fmt::format("{} to {}", iso_time(range.from, look_.where),
                           iso_time(range.to, look_.where));
    }

    void draw_chart(const charted_sensor &sensor, const svg_area &area)
    {
        const auto extremes = extremes_of(sensor.columns);
        std::string shown = sensor.name;
        if (extremes) {
            const value_axis axis = value_axis_for(
                extremes->first, extremes->second,
                std::max<std::size_t>(2, static_cast<std::size_t>(area.height) / 36), sensor.name);
            shown += axis.unit.empty() ? "" : fmt::format(" ({})", axis.unit);
            draw_values(axis, area);
            out_ += path("vesk-band", band_path(sensor.columns, axis, area));
            out_ += path("vesk-line", line_path(sensor.columns, what_.grid, axis, area));
        } else {
            shown += ": no values in this span of time";
        }
        out_ += text(area.left, area.top - 10, "vesk-text", "start", shown);
        draw_axis(area);
        draw_missing(sensor, area);
        draw_events(area);
    }

    void draw_values(const value_axis &axis, const svg_area &area)
    {
        std::string grid;
        for (const value_tick &tick : axis.ticks) {
            const double y = area.y_of(axis, tick.value);
            grid += fmt::format("M{} {}h{}", svg_number(area.left), svg_number(y),
                                svg_number(area.width));
            out_ += text(area.left - 6, y + 4, "vesk-label", "end", tick.label);
        }
        out_ += path("vesk-grid", grid);
    }

    void draw_axis(const svg_area &area)
    {
        const double bottom = area.top + area.height;
        std::string line = fmt::format("M{} {}h{}", svg_number(area.left), svg_number(bottom),
                                       svg_number(area.width));
        for (const time_tick &tick : ticks_) {
            line += fmt::format("M{} {}v4", svg_number(area.x_of(what_.grid.place_of(tick.time))),
                                svg_number(bottom));
        }
        out_ += path("vesk-axis", line);
    }

    // A bar on the axis wherever values are missing, however short that is.
    void draw_missing(const charted_sensor &sensor, const svg_area &area)
    {
        const std::vector<bool> missing = missing_columns(sensor.columns);
        const auto size = static_cast<double>(missing.size());
        std::string bars;
        for (std::size_t i = 0; i < missing.size(); ++i) {
            if (!missing[i] || (i > 0 && missing[i - 1])) {
                continue;
            }
            std::size_t end = i;
            while (end < missing.size() && missing[end]) {
                ++end;
            }
            bars +=
                fmt::format("M{} {}h{}v3H{}z", svg_number(area.x_of(static_cast<double>(i) / size)),
                            svg_number(area.top + area.height - 1.5),
                            svg_number(static_cast<double>(end - i) / size * area.width),
                            svg_number(area.x_of(static_cast<double>(i) / size)));
        }
        out_ += path("vesk-missing", bars);
    }

    // Triangles that point at the axis from below, one path for each type.
    void draw_events(const svg_area &area)
    {
        constexpr uint32_t types = 5;
        const double y = area.top + area.height + 4;
        for (uint32_t type = 1; type <= types; ++type) {
            std::string marks;
            for (std::size_t i = 0; i < what_.events.size(); ++i) {
                if (std::min(what_.events[i], types) == type) {
                    const double place =
                        (static_cast<double>(i) + 0.5) / static_cast<double>(what_.events.size());
                    marks += fmt::format("M{} {}l3.5 6h-7z", svg_number(area.x_of(place)),
                                         svg_number(y));
                }
            }
            out_ += path(fmt::format("vesk-event-{}", type), marks);
        }
    }

    void draw_times(double top)
    {
        for (const time_tick &tick : ticks_) {
            const double x = left_margin + what_.grid.place_of(tick.time) * width_;
            const double half = static_cast<double>(tick.label.size()) * character_width / 2;
            if (x - half >= 0 && x + half <= static_cast<double>(look_.width)) {
                out_ += text(x, top + 14, "vesk-label", "middle", tick.label);
            }
        }
        out_ += text(left_margin, top + 32, "vesk-label", "start", span_text());
    }

    // Right of the first title, if there is room.
    void draw_legend()
    {
        constexpr double length = 372;
        const double right = left_margin + width_;
        const double name =
            what_.sensors.empty() ? 0 : static_cast<double>(what_.sensors.front().name.size()) * 8;
        if (left_margin + name + length > right) {
            return;
        }
        const double y = title_height - 10;
        double x = right - length;
        out_ += box("vesk-band", x, y - 10, 18, 12);
        out_ += text(x + 24, y, "vesk-label", "start", "history, least to greatest");
        x += 178;
        out_ += path("vesk-line", fmt::format("M{} {}h18", svg_number(x), svg_number(y - 4)));
        out_ += text(x + 24, y, "vesk-label", "start", "its mean, then the samples");
    }

    const charted_span &what_;
    const svg_look &look_;
    double width_;
    std::vector<time_tick> ticks_;
    std::string out_;
};

} // namespace

std::size_t columns_of(const svg_look &look)
{
    constexpr std::size_t fewest = 16;
    constexpr auto margins = static_cast<std::size_t>(left_margin + right_margin);
    return std::max(fewest, look.width - std::min(look.width, margins));
}

std::string svg_charts(const charted_span &what, const svg_look &look)
{
    return picture(what, look).draw();
}

std::string xml_text(std::string_view raw)
{
    const std::string shown = printable(raw);
    std::string escaped;
    for (std::size_t i = 0; i < shown.size(); ++i) {
        // U+FFFE and U+FFFF are characters of UTF-8 and not of XML.
        const std::string_view rest = std::string_view(shown).substr(i);
        if (rest.starts_with("\xef\xbf\xbe") || rest.starts_with("\xef\xbf\xbf")) {
            escaped += '?';
            i += 2;
            continue;
        }
        switch (shown[i]) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\'':
            escaped += "&#39;";
            break;
        default:
            escaped += shown[i];
        }
    }
    return escaped;
}

} // namespace cli
