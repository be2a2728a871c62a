// Moments for the marks of a time axis: whole seconds, minutes, hours, days, months or years of the
// clock that is shown, whichever leave enough room for their labels.
#ifndef VESK_CLI_DRAW_TIME_TICKS_HPP
#define VESK_CLI_DRAW_TIME_TICKS_HPP

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "text/time_text.hpp"

namespace cli
{

struct time_tick {
    int64_t time;
    std::string label; // "04:39:30", "04:39", "21 Nov" at midnight, "Nov", "2026"
};

// The ticks within @p range, oldest first, whose labels have room side by side in @p width
// characters. Both ends of the range belong to it.
std::vector<time_tick> time_ticks(const time_range &range, std::size_t width, zone where);

} // namespace cli

#endif
