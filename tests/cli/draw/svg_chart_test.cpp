// Pictures: what they show, that they are bounded, and that no name becomes markup.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/draw/charted_values.hpp"
#include "draw/svg_chart.hpp"
#include "draw/svg_path.hpp"

namespace
{

using namespace cli;
using ::testing::HasSubstr;
using ::testing::Not;

std::size_t count_of(const std::string &text, const std::string &part)
{
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

// A chart of ten columns for ten seconds, 100 pixels wide and 10 high, with values from 0 to 10.
struct ten_columns {
    time_grid grid{{0, 10}, 10};
    column_track track{grid};
    value_axis axis{0, 10, {}, "", 1};
    svg_area area{0, 0, 100, 10};

    void add(int64_t time, float value) { track.add_sample(grid.column_of(time), time, value); }
    std::string line() { return line_path(track.take(), grid, axis, area); }
};

TEST(SvgPath, TheLineIsInterruptedAtAHole)
{
    ten_columns chart;
    chart.add(0, 0);
    chart.add(1, 10);
    chart.add(2, nan_value);
    chart.add(3, 5);
    chart.add(4, 5);
    EXPECT_EQ(chart.line(), "M0 10L10 0M30 5L40 5");
}

TEST(SvgPath, AValueBetweenTwoHolesIsADot)
{
    ten_columns chart;
    chart.add(0, nan_value);
    chart.add(1, 10);
    chart.add(2, nan_value);
    EXPECT_EQ(chart.line(), "M10 0h0");
}

TEST(SvgPath, TheLineRunsFromTheMeanOfHistoryIntoTheSamples)
{
    ten_columns chart;
    chart.track.add_interval({0, 1, 2, 8, 5, 2});
    chart.add(2, 4);
    const auto columns = chart.track.take();
    EXPECT_EQ(line_path(columns, chart.grid, chart.axis, chart.area), "M5 5L15 5L20 6");
    EXPECT_EQ(band_path(columns, chart.axis, chart.area), "M0 2H10L10 2H20L20 8H10L10 8H0Z");
}

TEST(SvgPath, TheBandIsInterruptedAtAHole)
{
    ten_columns chart;
    chart.track.add_interval({0, 1, 2, 8, 5, 2});
    chart.track.add_hole(2, 4);
    chart.track.add_interval({5, 6, 2, 8, 5, 2});
    const std::string path = band_path(chart.track.take(), chart.axis, chart.area);
    EXPECT_EQ(count_of(path, "M"), 2U);
    EXPECT_EQ(count_of(path, "Z"), 2U);
}

TEST(SvgChart, ShowsUnitTimesEventsAndWhatIsMissing)
{
    svg_look look;
    charted_span what = span_of({1, 2, nan_value, 4}, look);
    what.events[3] = 4;
    const std::string picture = svg_charts(what, look);
    EXPECT_THAT(picture, HasSubstr("::a_percent (%)"));
    EXPECT_THAT(picture, HasSubstr(">00:00:01</text>"));
    EXPECT_THAT(picture, HasSubstr("class=\"vesk-event-4\""));
    EXPECT_THAT(picture, Not(HasSubstr("class=\"vesk-event-3\"")));
    EXPECT_THAT(picture, HasSubstr("class=\"vesk-missing\""));
    EXPECT_THAT(picture, HasSubstr("prefers-color-scheme:dark"));
    EXPECT_THAT(svg_charts(span_of({1, 2}, look), look), Not(HasSubstr("class=\"vesk-missing\"")));
}

TEST(SvgChart, WithoutValuesSaysSo)
{
    const svg_look look;
    const std::string picture = svg_charts(span_of({nan_value, nan_value}, look), look);
    EXPECT_THAT(picture, HasSubstr("no values in this span of time"));
}

TEST(SvgChart, NamesAreNeverMarkup)
{
    const svg_look look;
    charted_span what = span_of({1, 2}, look);
    what.sensors.front().name = "::</title><script>alert('1')</script>&\"\x1b[31m\xff\xef\xbf\xbf";
    const std::string picture = svg_charts(what, look);
    EXPECT_THAT(picture, Not(HasSubstr("<script")));
    EXPECT_EQ(count_of(picture, "</title>"), 1U);
    EXPECT_THAT(picture, Not(HasSubstr("\x1b")));
    EXPECT_THAT(picture, Not(HasSubstr("\xef\xbf\xbf")));
    EXPECT_THAT(picture, HasSubstr("&lt;script&gt;alert(&#39;1&#39;)&lt;/script&gt;&amp;&quot;"));
}

TEST(SvgChart, IsBoundedHoweverManyValuesThereAre)
{
    const svg_look look;
    std::vector<float> values(500000);
    for (std::size_t i = 0; i < values.size(); ++i) {
        values[i] = static_cast<float>(i * 2654435761U % 1000);
    }
    EXPECT_LT(svg_charts(span_of(values, look), look).size(), 100000U);
}

} // namespace
