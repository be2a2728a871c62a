// Reads the rows of a box once and gives each of them to everything that a page is made of. Memory
// is bounded by the sensors and by what a page has room for, not by the length of the box.
#include "page/page_content.hpp"

#include <algorithm>

#include "text/sensor_choice.hpp"

namespace cli
{
namespace
{

// Counts the rows of a range: the room of a page is divided before the first row comes.
class row_count : public row_visitor
{
public:
    explicit row_count(const reading &source)
        : intervals(source.intervals()), samples(source.samples())
    {
    }
    void on_interval(const interval_row & /*row*/) override { ++intervals; }
    void on_sample(const sample_row & /*row*/) override { ++samples; }

    uint64_t intervals;
    uint64_t samples;
};

class statistics_list : public row_visitor
{
public:
    statistics_list(std::size_t sensors, const summing &how) : sensors_(sensors), how_(how) {}

    void on_interval(const interval_row &row) override
    {
        for (std::size_t i = 0; i < sensors_.size(); ++i) {
            if (row.values[i] != nullptr) {
                sensors_[i].add(*row.values[i], {row.start, row.end}, how_);
            }
        }
    }
    void on_sample(const sample_row &row) override
    {
        for (std::size_t i = 0; i < sensors_.size(); ++i) {
            sensors_[i].add(row.values[i], row.time);
        }
    }
    std::vector<sensor_statistics> take() { return std::move(sensors_); }

private:
    std::vector<sensor_statistics> sensors_;
    summing how_;
};

// How the box ended, whatever part of it the page covers.
class ending_keeper : public row_visitor
{
public:
    explicit ending_keeper(ending_watch &watch) : watch_(watch) {}

    void on_sample(const sample_row &row) override { watch_.take_sample(row.time); }
    void on_event(const event_row &row) override { watch_.take_event(row.time, row.text); }

private:
    ending_watch &watch_;
};

class row_call : public row_visitor
{
public:
    explicit row_call(const std::function<void()> &call) : call_(call) {}

    void on_interval(const interval_row & /*row*/) override { call_(); }
    void on_sample(const sample_row & /*row*/) override { call_(); }

private:
    const std::function<void()> &call_;
};

// Hands each row to several receivers.
class row_fan : public row_visitor
{
public:
    explicit row_fan(std::vector<row_visitor *> all) : all_(std::move(all)) {}

    void on_interval(const interval_row &row) override
    {
        for (row_visitor *one : all_) {
            one->on_interval(row);
        }
    }
    void on_sample(const sample_row &row) override
    {
        for (row_visitor *one : all_) {
            one->on_sample(row);
        }
    }
    void on_gap(const gap_row &row) override
    {
        for (row_visitor *one : all_) {
            one->on_gap(row);
        }
    }
    void on_event(const event_row &row) override
    {
        for (row_visitor *one : all_) {
            one->on_event(row);
        }
    }

private:
    std::vector<row_visitor *> all_;
};

} // namespace

std::unique_ptr<page_content> collect_page(reading &source, const std::string &name,
                                           const time_range &range,
                                           const std::vector<std::size_t> &chosen,
                                           const std::function<void()> &at_each_row)
{
    const std::size_t shown = std::min(chosen.size(), most_sensors_on_page);
    const std::vector<std::size_t> sensors(chosen.begin(),
                                           chosen.begin() + static_cast<std::ptrdiff_t>(shown));
    row_count rows(source);
    if (range.is_limited()) {
        rows.intervals = rows.samples = 0;
        source.read(range, {}, rows);
    }
    const cell_plan cells = plan_of(rows.samples, source.usual_step(), 0, shown);
    const auto plan = chart_plan::of(rows.intervals, rows.samples, shown);
    auto content = std::make_unique<page_content>(plan, shown, source);
    statistics_list statistics(shown, source.how_summed());
    unusual_tracks tracks(cells, shown, range);
    ending_keeper ending(content->watch);
    std::vector<row_visitor *> all = {&content->charts, &statistics, &tracks, &content->happened};
    if (!range.is_limited()) {
        // Reading takes most of the time: once is enough where all of the box is read.
        all.push_back(&ending);
    }
    row_call call(at_each_row);
    if (at_each_row) {
        all.push_back(&call);
    }
    row_fan rows_to_all(std::move(all));
    source.read(range, sensors, rows_to_all);
    content->read_to = source.position();
    if (range.is_limited()) {
        source.read({}, {}, ending);
    }
    content->charts.finish();
    content->name = name;
    content->names = names_of(source.sensors(), sensors);
    content->sensors_left_out = chosen.size() - shown;
    content->statistics = statistics.take();
    const uint64_t newest = std::min<uint64_t>(rows.samples, cells.newest * cells.unit);
    content->unusual = rank_sensors(tracks, content->names, newest);
    content->samples = rows.samples;
    content->intervals = rows.intervals;
    content->health = health_of(name, source);
    content->ending = content->watch.result(source.source().writer.has_value());
    return content;
}

} // namespace cli
