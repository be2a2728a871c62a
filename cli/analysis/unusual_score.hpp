// How unusual the newest values of a sensor are beside its own past. The score says where to look
// first; it knows nothing of causes.
#ifndef VESK_CLI_ANALYSIS_UNUSUAL_SCORE_HPP
#define VESK_CLI_ANALYSIS_UNUSUAL_SCORE_HPP

#include <cstdint>
#include <memory>
#include <optional>

#include "analysis/value_track.hpp"

namespace cli
{

enum class verdict {
    judged,      // by its score
    stuck,       // judged, and its newest values have not changed for unusually long
    missing,     // it had values, but none among the newest samples
    appeared,    // it has values among the newest samples only
    never_moved, // all of its values are the same
    not_judged   // too little is known of it
};

struct finding {
    verdict kind = verdict::not_judged;
    // From 0.3 on unusual, from 0 on perhaps; means something unless never moved or not judged.
    double score = 0;
    bool few_intervals = false; // the past is too short to say much
    bool is_rate = false;       // a counter: all numbers are those of its rate in a second
    double from = 0;            // the usual value before
    double to = 0;              // the farthest one since
    uint64_t within = 0;        // the newest samples that hold it
    double usual_swing = 0;     // mean distance of the extremes of a past interval
    double reached = 0;         // share of past intervals that reached that far
    uint64_t intervals = 0;     // of the past
    bool first_move = false;    // it was the same in all of its past
    uint64_t unchanged = 0;     // the newest values that are equal, if stuck
    double value = 0;           // the newest value

    bool has_score() const { return kind != verdict::never_moved && kind != verdict::not_judged; }
    // The distance in usual swings; infinite where there was no swing.
    double factor() const;
};

constexpr double unusual_from = 0.3;
constexpr double perhaps_from = 0.0;

// Whether the one belongs before the other: those with a score first, then those that never moved,
// then those that could not be judged.
bool is_more_unusual(const finding &one, const finding &other);

class sensor_track
{
public:
    explicit sensor_track(const cell_plan &plan);

    // In the order of time, intervals before samples; @p start and @p end are in seconds.
    void add_interval(const value_span &interval, int64_t start, int64_t end);
    void add_sample(float value, int64_t time);
    // After the last sample. @p has_past tells whether any sensor of the box has a past.
    finding judge(bool has_past);
    bool has_past() const { return !values_.past().empty(); }
    // Before has_past() and judge().
    void finish();

private:
    bool is_counter() const;
    float rate_to(float value, int64_t time);
    void drop_rates();
    finding judge(const value_track &track, bool is_rate) const;

    const cell_plan *plan_;
    value_track values_;
    // Only as long as the sensor may be a counter.
    std::unique_ptr<value_track> rates_;
    float previous_ = 0;
    std::optional<int64_t> previous_time_;
    // From one raw sample to the next: a value that goes up and down may look like a counter in the
    // ends of its intervals.
    uint64_t steps_ = 0;
    uint64_t falls_ = 0;
};

} // namespace cli

#endif
