// Between two raw samples the reading tells of gaps. Between intervals, and between the last one
// and the first raw sample, more than twice the usual distance of samples is taken for a gap.
#include "box/charting.hpp"

#include <algorithm>

#include "box/event.hpp"
#include "box/left_out.hpp"
#include "box/moments.hpp"
#include "text/sensor_choice.hpp"

namespace cli
{
namespace
{

class chart_rows : public row_visitor
{
public:
    chart_rows(const reading &source, const time_grid &grid, std::size_t sensors)
        : source_(source), left_out_(source.left_out()), grid_(grid),
          tracks_(sensors, column_track(grid)), events_(grid.columns(), 0),
          spacing_(source.usual_step())
    {
    }

    void on_interval(const interval_row &row) override
    {
        const int64_t spacing = std::max(source_.usual_step(), spacing_in(row));
        note_gap(row.start, std::max(spacing, spacing_));
        spacing_ = spacing;
        for (std::size_t i = 0; i < tracks_.size(); ++i) {
            const interval_summary *value = row.values[i];
            if (value == nullptr || value->count == 0) {
                tracks_[i].add_hole(row.start, row.end);
                continue;
            }
            moments numbers;
            numbers.add(*value, source_.how_summed());
            tracks_[i].add_interval({row.start, row.end, value->min_value, value->max_value,
                                     numbers.mean(), value->count});
        }
        latest_ = row.end;
    }
    void on_sample(const sample_row &row) override
    {
        if (is_history_) {
            note_gap(row.time, spacing_);
        }
        is_history_ = false;
        const std::size_t column = grid_.column_of(row.time);
        for (std::size_t i = 0; i < tracks_.size(); ++i) {
            tracks_[i].add_sample(column, row.time, row.values[i]);
        }
        latest_ = row.time;
    }
    void on_gap(const gap_row &row) override { add_hole(row.last, row.next); }
    void on_event(const event_row &row) override
    {
        // One behind the latest sample belongs to the end of the picture, unless it is far away.
        constexpr int64_t share = 50;
        const time_range &range = grid_.range();
        if (row.time < range.from || row.time > range.to + (range.to - range.from) / share + 1) {
            return;
        }
        uint32_t &type = events_[grid_.column_of(row.time)];
        type = std::max(type, std::min(row.type, last_event_type));
    }

    charted_span finish(std::vector<std::string> names)
    {
        charted_span found = {grid_, {}, std::move(events_)};
        for (std::size_t i = 0; i < tracks_.size(); ++i) {
            found.sensors.push_back({std::move(names[i]), tracks_[i].take()});
        }
        return found;
    }

private:
    // The distance of the samples that became the interval, as far as the chosen sensors tell.
    static int64_t spacing_in(const interval_row &row)
    {
        int64_t count = 0;
        for (const interval_summary *value : row.values) {
            count = std::max<int64_t>(count, value != nullptr ? value->count : 0);
        }
        return count > 1 ? (row.end - row.start + count - 2) / (count - 1) : 0;
    }
    void note_gap(int64_t next, int64_t spacing)
    {
        if (!latest_) {
            return;
        }
        const row_span between = without_left_out({*latest_, next}, left_out_);
        if (spacing > 0 && between.end - between.start > 2 * spacing) {
            add_hole(between.start, between.end);
        }
    }
    // Between two moments that have values.
    void add_hole(int64_t last, int64_t next)
    {
        for (column_track &track : tracks_) {
            track.add_hole(last + 1, next - 1);
        }
    }

    const reading &source_;
    std::vector<row_span> left_out_;
    time_grid grid_;
    std::vector<column_track> tracks_;
    std::vector<uint32_t> events_;
    int64_t spacing_;
    bool is_history_ = true;
    std::optional<int64_t> latest_;
};

} // namespace

std::optional<charted_span> read_charted(reading &source, const time_range &range,
                                         const std::vector<std::size_t> &chosen,
                                         std::size_t columns)
{
    if (!source.extent()) {
        return std::nullopt;
    }
    const time_range shown = {std::max(range.from, source.extent()->from),
                              std::min(range.to, source.extent()->to)};
    if (shown.from > shown.to) {
        return std::nullopt;
    }
    chart_rows rows(source, time_grid(shown, columns), chosen.size());
    source.read(range, chosen, rows);
    return rows.finish(names_of(source.sensors(), chosen));
}

} // namespace cli
