// Draws sensors one above the other with characters, on the same axis of time: the band of history
// from the least to the greatest value, and a line through its mean and through the samples.
#ifndef VESK_CLI_DRAW_TEXT_CHART_HPP
#define VESK_CLI_DRAW_TEXT_CHART_HPP

#include <cstddef>
#include <string>
#include <vector>

#include "draw/charted.hpp"
#include "draw/dot_canvas.hpp"
#include "text/fitting.hpp"
#include "text/time_text.hpp"

namespace cli
{

struct text_look {
    dot_form form = dot_form::ascii;
    bool colour = false;
    std::size_t width = 80;  // of a line
    std::size_t height = 24; // lines of all charts together; each has three at least
    zone where = zone::utc;

    charset characters() const { return form == dot_form::ascii ? charset::ascii : charset::utf8; }
};

// The columns that the grid of a chart needs.
std::size_t columns_of(const text_look &look);

// The lines of the charts. Below each one runs its axis, which is broken where values are missing;
// below all of them stand the types of the events, if there are some, and the times.
std::vector<std::string> text_charts(const charted_span &what, const text_look &look);

} // namespace cli

#endif
