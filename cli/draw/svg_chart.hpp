// Draws sensors as SVG: the band of history from the least to the greatest value, a line that runs
// through its mean and on through the samples, marks of events, and axes with unit and times.
//
// Names come from a box and may hold anything: they are text in the picture and never markup.
#ifndef VESK_CLI_DRAW_SVG_CHART_HPP
#define VESK_CLI_DRAW_SVG_CHART_HPP

#include <cstddef>
#include <string>
#include <string_view>

#include "draw/charted.hpp"
#include "text/time_text.hpp"

namespace cli
{

struct svg_look {
    std::size_t width = 900;  // in pixels
    std::size_t height = 240; // of one chart
    zone where = zone::utc;
};

// The columns that the grid of a picture needs: one for each pixel of its width.
std::size_t columns_of(const svg_look &look);

// A document with the sensors one above the other. It has colours for a light and a dark surface,
// as its viewer prefers.
std::string svg_charts(const charted_span &what, const svg_look &look);

// Text as it may stand in XML, in elements and in attributes: what is not printable() and what XML
// does not allow becomes '?'.
std::string xml_text(std::string_view text);

} // namespace cli

#endif
