// What `show` tells of a box, and the two forms in which it is printed: a page for people and an
// object for programs.
#ifndef VESK_CLI_VERBS_SHOW_PAGE_HPP
#define VESK_CLI_VERBS_SHOW_PAGE_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "box/box_health.hpp"
#include "box/box_summary.hpp"
#include "box/charting.hpp"
#include "box/reading.hpp"
#include "box/unusual_sensors.hpp"
#include "text/fitting.hpp"
#include "text/time_text.hpp"

namespace cli
{

struct shown_box {
    std::string name;
    const reading &source;
    const summary_rows &rows;
    const unusual_ranking &ranking;
    // The most unusual sensors over the end of the box, in the order of their ranks.
    std::optional<charted_span> sparklines;
    box_health health;
    int64_t now = 0;
    zone where = zone::utc;
};

struct page_look {
    std::size_t width = 80;
    charset characters = charset::ascii;

    // Characters of a sparkline.
    std::size_t sparkline() const { return width < 60 ? 10 : 20; }
};

// At most so many of the unusual sensors are shown.
constexpr std::size_t most_unusual_shown = 8;

// The lines of the page, no wider than it may be.
std::vector<std::string> show_page(const shown_box &what, const page_look &look);
std::string show_json(const shown_box &what);

} // namespace cli

#endif
