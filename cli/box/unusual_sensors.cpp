// Feeds the rows of a box to one track for each sensor, and sorts what they find. An interval that
// goes beyond the range of time is left out, because it mixes what was before with what came after.
#include "box/unusual_sensors.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <numeric>
#include <utility>

#include "analysis/unusual_text.hpp"
#include "process/terminal.hpp"

namespace cli
{
namespace
{

// Counts what a span of time holds: the newest samples must be known before the first one comes.
class sample_count : public row_visitor
{
public:
    void on_sample(const sample_row & /*row*/) override { ++samples_; }
    uint64_t samples() const { return samples_; }

private:
    uint64_t samples_ = 0;
};

} // namespace

unusual_tracks::unusual_tracks(const cell_plan &plan, std::size_t sensors, const time_range &range)
    : range_(range)
{
    tracks_.reserve(sensors);
    for (std::size_t i = 0; i < sensors; ++i) {
        tracks_.emplace_back(plan);
    }
}

void unusual_tracks::on_interval(const interval_row &row)
{
    if (row.end > range_.to) {
        return;
    }
    ++intervals_;
    extend(row.start, row.end);
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        if (const interval_summary *value = row.values[i]; value != nullptr) {
            tracks_[i].add_interval({value->first_value, value->last_value, value->min_value,
                                     value->max_value, value->count},
                                    row.start, row.end);
        }
    }
}

void unusual_tracks::on_sample(const sample_row &row)
{
    ++samples_;
    extend(row.time, row.time);
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        tracks_[i].add_sample(row.values[i], row.time);
    }
}

std::vector<finding> unusual_tracks::judge()
{
    bool has_past = false;
    for (sensor_track &track : tracks_) {
        track.finish();
        has_past = has_past || track.has_past();
    }
    std::vector<finding> findings;
    findings.reserve(tracks_.size());
    for (sensor_track &track : tracks_) {
        findings.push_back(track.judge(has_past));
    }
    return findings;
}

void unusual_tracks::extend(int64_t start, int64_t end)
{
    begin_ = begin_ ? begin_ : start;
    end_ = end;
}

std::size_t unusual_ranking::count_if(bool (*is)(const finding &)) const
{
    return static_cast<std::size_t>(std::count_if(findings.begin(), findings.end(), is));
}

std::size_t unusual_ranking::unusual() const
{
    return count_if([](const finding &one) { return one.has_score() && one.score > unusual_from; });
}

std::size_t unusual_ranking::perhaps() const
{
    return count_if(is_worth_a_look) - unusual();
}

std::string unusual_ranking::summary() const
{
    const std::size_t judged =
        count_if([](const finding &one) { return one.kind != verdict::not_judged; });
    if (judged == 0) {
        return "too little is known to tell what was unusual";
    }
    if (unusual() + perhaps() == 0) {
        return "nothing unusual";
    }
    if (unusual() == 0) {
        return fmt::format("nothing clearly unusual, {} of {} perhaps", perhaps(),
                           counted(findings.size(), "sensor"));
    }
    return fmt::format("{} of {} unusual, {} perhaps", unusual(),
                       counted(findings.size(), "sensor"), perhaps());
}

std::string unusual_ranking::sentence(std::size_t rank, amounts how) const
{
    const std::size_t number = order[rank];
    return sentence_of(findings[number], names[number], newest, how);
}

unusual_ranking rank_sensors(unusual_tracks &seen, std::vector<std::string> names, uint64_t newest)
{
    unusual_ranking found = {seen.judge(), {}, std::move(names), newest};
    found.order.resize(found.findings.size());
    std::iota(found.order.begin(), found.order.end(), std::size_t{0});
    std::stable_sort(found.order.begin(), found.order.end(), [&](std::size_t a, std::size_t b) {
        return is_more_unusual(found.findings[a], found.findings[b]);
    });
    return found;
}

bool is_worth_a_look(const finding &found)
{
    return found.has_score() && found.score >= perhaps_from;
}

uint64_t samples_in(reading &source, const time_range &range)
{
    if (!range.is_limited()) {
        return source.samples();
    }
    sample_count counting;
    source.read(range, {}, counting);
    return counting.samples();
}

} // namespace cli
