// Draws sensors as SVG: the band of history from the least to the greatest value, a line that runs
// through its mean and on through the samples, marks of events, and axes with unit and times.
//
// Names come from a box and may hold anything: they are text in the picture and never markup.
#ifndef VESK_CLI_DRAW_SVG_CHART_HPP
#define VESK_CLI_DRAW_SVG_CHART_HPP

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "draw/charted.hpp"
#include "text/time_text.hpp"

namespace cli
{

enum class svg_colours {
    own,    // the picture has colours for a light and a dark surface, as the viewer prefers
    of_page // the page around it has the rules of svg_style(), or others for the same classes
};

struct svg_look {
    std::size_t width = 900;  // in pixels
    std::size_t height = 240; // of one chart
    zone where = zone::utc;
    svg_colours colours = svg_colours::own;
    bool has_legend = true;
};

// The columns that the grid of a picture needs: one for each pixel of its width.
std::size_t columns_of(const svg_look &look);

// A whole document, or an element of a page, with the sensors one above the other.
std::string svg_charts(const charted_span &what, const svg_look &look);

// One sensor without axes.
std::string svg_sparkline(std::span<const chart_column> columns, const time_grid &grid,
                          std::size_t width, std::size_t height, svg_colours colours);

// The rules (CSS) of both sets of colours, for the classes of the elements: vesk-ground, vesk-text,
// vesk-label, vesk-grid, vesk-axis, vesk-band, vesk-line, vesk-missing and vesk-event-1 to
// vesk-event-5. A page puts its own rules for the same classes behind them, or in their place.
std::string svg_style();

// Text as it may stand in XML, in elements and in attributes: what is not printable() and what XML
// does not allow becomes '?'.
std::string xml_text(std::string_view text);

} // namespace cli

#endif
