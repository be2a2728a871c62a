// All that a page tells about a box, collected from the box before the first byte of the page is
// written.
#ifndef VESK_CLI_PAGE_PAGE_CONTENT_HPP
#define VESK_CLI_PAGE_PAGE_CONTENT_HPP

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "box/box_health.hpp"
#include "box/ending_watch.hpp"
#include "box/reading.hpp"
#include "box/sensor_statistics.hpp"
#include "box/unusual_sensors.hpp"
#include "page/chart_series.hpp"
#include "page/happenings.hpp"

namespace cli
{

// A page of more sensors is of no use to a reader, nor is a browser of use to such a page.
constexpr std::size_t most_sensors_on_page = 10000;

struct page_content {
    page_content(const chart_plan &plan, std::size_t sensors, const reading &source)
        : charts(plan, sensors, source.how_summed(), source.usual_step(), source.left_out()),
          step(source.usual_step())
    {
    }

    std::string name;               // of the box or file, as it was given
    std::vector<std::string> names; // of the sensors
    std::size_t sensors_left_out = 0;
    std::vector<sensor_statistics> statistics; // by sensor
    chart_series charts;
    happenings happened;
    unusual_ranking unusual = {};
    ending_watch watch; // over all of the box
    box_ending ending;
    box_health health;
    uint64_t samples = 0;
    uint64_t intervals = 0;
    int64_t step;              // usual distance of samples in seconds
    raw_position read_to = {}; // behind the last record that is in the charts
    // Where a page that follows its box goes on; empty in a page that does not.
    std::string follows;

    const recording_log &log() const { return watch.log(); }
    // The first and the last moment; 0 without columns.
    int64_t begin() const { return charts.columns().empty() ? 0 : charts.columns().front().start; }
    int64_t end() const { return charts.columns().empty() ? 0 : charts.columns().back().end; }
};

// Reads what lies in @p range of the sensors with the numbers @p chosen. @p at_each_row is called
// while it reads, which may take long; what it throws comes through.
std::unique_ptr<page_content> collect_page(reading &source, const std::string &name,
                                           const time_range &range,
                                           const std::vector<std::size_t> &chosen,
                                           const std::function<void()> &at_each_row = {});

} // namespace cli

#endif
