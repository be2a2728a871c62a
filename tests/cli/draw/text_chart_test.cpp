// Charts and sparklines of characters.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/draw/charted_values.hpp"
#include "draw/sparkline.hpp"
#include "draw/text_chart.hpp"
#include "text/fitting.hpp"

namespace
{

using namespace cli;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

text_look small(dot_form form)
{
    text_look look;
    look.form = form;
    look.width = 28; // of which 19 are the canvas
    look.height = 8;
    return look;
}

TEST(DotCanvas, TurnsDotsIntoCharacters)
{
    dot_canvas braille(2, 1, dot_form::braille);
    braille.dot(0, 0, dot_ink::line);
    braille.dot(3, 3, dot_ink::line);
    EXPECT_EQ(braille.row(0, false), "\u2840\u2808");
    dot_canvas blocks(4, 1, dot_form::blocks);
    blocks.dot(0, 0, dot_ink::line);
    blocks.dot(1, 1, dot_ink::line);
    blocks.upright(2, 0, 1, dot_ink::line);
    blocks.dot(3, 0, dot_ink::band);
    EXPECT_EQ(blocks.row(0, false), "\u2584\u2580\u2588\u2591");
    dot_canvas ascii(3, 1, dot_form::ascii);
    ascii.dot(0, 0, dot_ink::band);
    ascii.dot(1, 0, dot_ink::line);
    ascii.dot(9, 9, dot_ink::line);
    EXPECT_EQ(ascii.row(0, false), ":*");
    EXPECT_EQ(ascii.row(0, true), "\033[34m:\033[33m*\033[0m");
}

TEST(DotCanvas, ALineHoldsBothOfItsEnds)
{
    dot_canvas canvas(5, 5, dot_form::ascii);
    canvas.line(0, 4, 4, 0, dot_ink::line);
    EXPECT_EQ(canvas.row(0, false), "*");
    EXPECT_EQ(canvas.row(2, false), "  *");
    EXPECT_EQ(canvas.row(4, false), "    *");
}

TEST(TextChart, ShowsTheLineItsAxesAndItsEvents)
{
    const text_look look = small(dot_form::ascii);
    charted_span what = span_of({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, look);
    what.events[5] = 3;
    EXPECT_THAT(text_charts(what, look), ElementsAre("::a_percent  0 % to 10 %",     //
                                                     "     10 +                ***", //
                                                     "        |        ********",    //
                                                     "        |  ******",            //
                                                     "      0 +**",                  //
                                                     "        ++------------------", //
                                                     "events        3",              //
                                                     "       1 Jan"));
}

TEST(TextChart, BreaksTheAxisWhereValuesAreMissing)
{
    text_look look = small(dot_form::ascii);
    look.width = 19;
    std::vector<float> values(10, 1.0F);
    values[4] = values[5] = nan_value;
    const auto lines = text_charts(span_of(values, look), look);
    EXPECT_EQ(lines[lines.size() - 2], "        ++---  ----");
    EXPECT_THAT(lines[2], Not(HasSubstr("*****")));
}

TEST(TextChart, WithoutValuesSaysSo)
{
    const text_look look = small(dot_form::braille);
    const auto lines = text_charts(span_of({nan_value, nan_value}, look), look);
    EXPECT_EQ(lines.front(), "::a_percent  no values");
}

TEST(TextChart, OneValueIsADot)
{
    const text_look look = small(dot_form::ascii);
    const auto lines = text_charts(span_of({5}, look), look);
    std::size_t stars = 0;
    for (const std::string &line : lines) {
        stars += static_cast<std::size_t>(std::count(line.begin(), line.end(), '*'));
    }
    EXPECT_EQ(stars, 1U);
}

TEST(TextChart, NeverIsWiderThanItsWidth)
{
    for (const dot_form form : {dot_form::ascii, dot_form::blocks, dot_form::braille}) {
        for (const std::size_t width : {20U, 40U, 59U, 60U, 80U, 132U, 300U}) {
            text_look look = small(form);
            look.width = width;
            charted_span what = span_of({-16777216, 16777215, 3, 1e-7F, nan_value, 4}, look);
            what.sensors.front().name = "::a.very.long.name.of.a.sensor\x1b[31m.that.goes.on";
            for (const std::string &line : text_charts(what, look)) {
                EXPECT_LE(width_of(line), width) << line;
                EXPECT_THAT(line, Not(HasSubstr("\x1b")));
            }
        }
    }
}

TEST(TextChart, InAsciiNothingElseIsPrinted)
{
    const text_look look = small(dot_form::ascii);
    charted_span what = span_of({1, 2, 3}, look);
    what.sensors.front().name = "::gr\u00f6\u00dfe";
    for (const std::string &line : text_charts(what, look)) {
        for (const char c : line) {
            EXPECT_TRUE(c >= 0x20 && c < 0x7f) << line;
        }
    }
}

TEST(Sparkline, GoesFromTheLeastToTheGreatestAndShowsHoles)
{
    const time_grid grid({0, 8}, 9);
    column_track track(grid);
    for (int64_t time = 0; time < 9; ++time) {
        track.add_sample(grid.column_of(time), time,
                         time == 4 ? nan_value : static_cast<float>(time));
    }
    const auto columns = track.take();
    EXPECT_EQ(text_sparkline(columns, charset::utf8),
              "\u2581\u2582\u2583\u2584 \u2586\u2587\u2588\u2588");
    EXPECT_EQ(text_sparkline(columns, charset::ascii), "_.-~ +*##");
    EXPECT_EQ(text_sparkline(std::vector<chart_column>(3), charset::utf8), "   ");
}

TEST(Sparkline, ShowsAShortPeakUpwardsAndDownwards)
{
    const time_grid grid({0, 999}, 10);
    for (const float peak : {50.0F, -50.0F}) {
        column_track track(grid);
        for (int64_t time = 0; time < 1000; ++time) {
            track.add_sample(grid.column_of(time), time,
                             time == 555 ? peak : static_cast<float>(time % 3));
        }
        const std::string line = text_sparkline(track.take(), charset::ascii);
        EXPECT_EQ(line[5], peak > 0 ? '#' : '_');
        EXPECT_NE(line[4], line[5]);
    }
}

TEST(Fitting, CutsBetweenCharactersAndSaysSo)
{
    EXPECT_EQ(fitted("abcdefgh", 8, charset::utf8), "abcdefgh");
    EXPECT_EQ(fitted("abcdefghi", 8, charset::utf8), "abcde...");
    EXPECT_EQ(fitted("\u00e4\u00f6\u00fc\u00e4\u00f6", 4, charset::utf8), "\u00e4...");
    EXPECT_EQ(fitted("\u00e4\u00f6", 4, charset::ascii), "??");
    EXPECT_EQ(fitted("a\x1b[1mb", 10, charset::ascii), "a?[1mb");
    EXPECT_EQ(fitted("abcdef", 2, charset::utf8), "ab");
    EXPECT_EQ(fitted("abcdef", 0, charset::utf8), "");
}

TEST(Fitting, WrapsAtBlanksAndBreaksWhatIsLonger)
{
    EXPECT_THAT(wrapped("one two three", 7, charset::utf8), ElementsAre("one two", "three"));
    EXPECT_THAT(wrapped("one  two", 4, charset::utf8), ElementsAre("one ", "two"));
    EXPECT_THAT(wrapped("abcdefghij", 4, charset::utf8), ElementsAre("abcd", "efgh", "ij"));
    EXPECT_THAT(wrapped("up to 8.35 % now", 11, charset::utf8), ElementsAre("up to", "8.35 % now"));
    EXPECT_THAT(wrapped("to 8.35 /s (12 /s)", 10, charset::utf8),
                ElementsAre("to 8.35 /s", "(12 /s)"));
    EXPECT_THAT(wrapped("", 4, charset::utf8), ElementsAre(""));
    EXPECT_THAT(wrapped("abc", 0, charset::utf8), ElementsAre("a", "b", "c"));
}

} // namespace
