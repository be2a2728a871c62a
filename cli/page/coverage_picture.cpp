// Draws what the box covers. A box has minutes of raw samples and weeks of history, so the axis is
// that of the time before the end, logarithmic where there is history; places are in percent of the
// width, so that the bar fits any screen and its texts stay as they are.
#include <algorithm>
#include <array>
#include <cmath>
#include <fmt/format.h>
#include <utility>

#include "page/page_pictures.hpp"
#include "page/page_sections.hpp"
#include "text/event_text.hpp"

namespace cli
{
namespace
{

// From a moment to its place on the bar, in percent.
class bar_axis
{
public:
    explicit bar_axis(const page_content &content)
        : end_(static_cast<double>(content.end())),
          span_(std::max(end_ - static_cast<double>(content.begin()), 1.0))
    {
        const auto &columns = content.charts.columns();
        const auto raw = std::find_if(columns.begin(), columns.end(), [](const auto &column) {
            return column.kind != column_kind::interval;
        });
        if (raw != columns.begin()) {
            const double of_raw = raw != columns.end() ? end_ - static_cast<double>(raw->start) : 0;
            // Raw samples get about a third of the bar where history is a hundred times as long.
            unit_ = std::max({of_raw / 20, static_cast<double>(content.step), 1.0});
        }
    }

    double place(double time) const { return 100 - place_of_age(std::max(end_ - time, 0.0)); }
    double place_of_age(double age) const
    {
        const double share =
            unit_ > 0 ? std::log1p(age / unit_) / std::log1p(span_ / unit_) : age / span_;
        return 100 * std::min(share, 1.0);
    }
    double span() const { return span_; }

private:
    double end_;
    double span_;
    double unit_ = 0; // 0 where the axis is linear
};

void write_box(const page_sink &put, const char *kind, double left, double right,
               const std::string &title)
{
    constexpr double least_width = 0.2; // percent: a moment is seen, too
    put(fmt::format("<rect class=\"{}\" x=\"{:.2f}%\" y=\"6\" width=\"{:.2f}%\" height=\"22\">"
                    "<title>{}</title></rect>\n",
                    kind, std::min(left, 100 - least_width), std::max(right - left, least_width),
                    html_text(title)));
}

const char *class_of(column_kind kind, bool is_odd)
{
    if (kind != column_kind::interval) {
        return "raw";
    }
    return is_odd ? "history odd" : "history";
}

// Raw samples without a gap between them are one box, intervals are one each.
void write_columns(const page_content &content, const bar_axis &axis, const page_sink &put)
{
    const std::vector<time_column> &columns = content.charts.columns();
    for (std::size_t i = 0; i < columns.size();) {
        const time_column &first = columns[i];
        std::size_t next = i + 1;
        while (first.kind != column_kind::interval && next < columns.size() &&
               !columns[next].follows_gap) {
            ++next;
        }
        // A column reaches to the next one, unless there is a gap between them.
        const bool meets = next < columns.size() && !columns[next].follows_gap;
        const int64_t end = columns[next - 1].end;
        const int64_t right = meets ? columns[next].start : end;
        write_box(
            put, class_of(first.kind, i % 2 != 0), axis.place(static_cast<double>(first.start)),
            axis.place(static_cast<double>(right)),
            fmt::format("{}: {} to {}", first.kind == column_kind::interval ? "history" : "raw",
                        page_time(first.start), page_time(end)));
        i = next;
    }
}

void write_gaps(const page_content &content, const bar_axis &axis, const page_sink &put)
{
    for (const gap_row &gap : content.happened.gaps()) {
        write_box(put, "hole", axis.place(static_cast<double>(gap.last)),
                  axis.place(static_cast<double>(gap.next)),
                  fmt::format("no samples: {} to {}", page_time(gap.last), page_time(gap.next)));
    }
}

// Marks at the same place are one.
void write_events(const page_content &content, const bar_axis &axis, const page_sink &put)
{
    double last = -1;
    for (const shown_event &event : content.happened.events()) {
        const double place = axis.place(static_cast<double>(event.time));
        if (event.type < level_warning || std::fabs(place - last) < 0.2) {
            continue;
        }
        last = place;
        put(fmt::format("<rect class=\"mark type{}\" x=\"{:.2f}%\" y=\"0\" width=\"2\" "
                        "height=\"34\"><title>{} {}</title></rect>\n",
                        std::min<uint32_t>(event.type, last_event_type), place,
                        page_time(event.time), html_text(event.text.substr(0, 100))));
    }
}

void write_ticks(const bar_axis &axis, const page_sink &put)
{
    constexpr std::array<std::pair<double, const char *>, 24> ages = {
        {{10, "10 s"},         {30, "30 s"},          {60, "1 min"},
         {120, "2 min"},       {300, "5 min"},        {600, "10 min"},
         {1200, "20 min"},     {1800, "30 min"},      {3600, "1 h"},
         {7200, "2 h"},        {10800, "3 h"},        {21600, "6 h"},
         {43200, "12 h"},      {86400, "1 day"},      {172800, "2 days"},
         {259200, "3 days"},   {604800, "1 week"},    {1209600, "2 weeks"},
         {2592000, "1 month"}, {7776000, "3 months"}, {15552000, "6 months"},
         {31536000, "1 year"}, {94608000, "3 years"}, {315360000, "10 years"}}};
    constexpr double room = 13; // percent, for a label on a narrow screen
    double last = 0;
    for (const auto &[age, label] : ages) {
        const double place = 100 - axis.place_of_age(age);
        if (age > axis.span() || 100 - place - last < room || place < room / 2) {
            continue;
        }
        last = 100 - place;
        put(fmt::format("<line class=\"tick\" x1=\"{0:.2f}%\" x2=\"{0:.2f}%\" y1=\"28\" y2=\"34\"/>"
                        "<text x=\"{0:.2f}%\" y=\"46\" text-anchor=\"middle\">{1}</text>\n",
                        place, label));
    }
    put("<text x=\"100%\" y=\"46\" text-anchor=\"end\">end</text>\n");
}

} // namespace

void write_coverage(const page_content &content, const page_sink &put)
{
    if (content.charts.columns().empty()) {
        put("<p>Nothing.</p>");
        return;
    }
    const bar_axis axis(content);
    put("<svg class=\"coverage-bar\" width=\"100%\" height=\"52\" role=\"img\" "
        "aria-label=\"History, "
        "raw samples, gaps and events by their time before the end\">\n");
    write_columns(content, axis, put);
    write_gaps(content, axis, put);
    write_events(content, axis, put);
    write_ticks(axis, put);
    put("</svg>\n<p class=\"legend\"><span class=\"key history\"></span>history, one box an "
        "interval <span class=\"key raw\"></span>raw samples <span class=\"key hole\"></span>gap "
        "<span class=\"key mark\"></span>warning or worse</p>");
}

} // namespace cli
