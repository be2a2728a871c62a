// Which sensors of a box were unusual at its end: collects what the score needs while a box is
// read, and brings the sensors into the order of their scores. The verbs that tell of unusual
// sensors share it, so that they name the same ones.
#ifndef VESK_CLI_BOX_UNUSUAL_SENSORS_HPP
#define VESK_CLI_BOX_UNUSUAL_SENSORS_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "analysis/unusual_score.hpp"
#include "analysis/unusual_text.hpp"
#include "box/reading.hpp"
#include "text/time_text.hpp"

namespace cli
{

// Follows each sensor through the rows of a box.
class unusual_tracks : public row_visitor
{
public:
    // @p plan has to live as long as the tracks.
    unusual_tracks(const cell_plan &plan, std::size_t sensors, const time_range &range);

    void on_interval(const interval_row &row) override;
    void on_sample(const sample_row &row) override;

    // One finding for each sensor. To be called once, after the last row.
    std::vector<finding> judge();

    uint64_t samples() const { return samples_; }
    uint64_t intervals() const { return intervals_; }
    // The times of the first and the last row; nothing without rows.
    std::optional<int64_t> begin() const { return begin_; }
    std::optional<int64_t> end() const { return end_; }

private:
    void extend(int64_t start, int64_t end);

    time_range range_;
    std::vector<sensor_track> tracks_;
    uint64_t samples_ = 0;
    uint64_t intervals_ = 0;
    std::optional<int64_t> begin_;
    std::optional<int64_t> end_;
};

// The findings of all sensors, and the order of their ranks.
struct unusual_ranking {
    std::vector<finding> findings;
    std::vector<std::size_t> order; // numbers of sensors, the most unusual one first
    std::vector<std::string> names;
    uint64_t newest; // samples that were compared with the past

    std::size_t count_if(bool (*is)(const finding &)) const;
    std::size_t unusual() const;
    std::size_t perhaps() const;
    // "3 of 120 sensors unusual, 2 perhaps", "nothing unusual", or that too little is known.
    std::string summary() const;
    // What is to say about the sensor of this rank, from 0. It is not printable yet.
    std::string sentence(std::size_t rank, amounts how = amounts::plain) const;
};

// @p names are those of the sensors of @p seen, @p newest as in unusual_ranking.
unusual_ranking rank_sensors(unusual_tracks &seen, std::vector<std::string> names, uint64_t newest);

// Whether the sensor is unusual, or perhaps.
bool is_worth_a_look(const finding &found);

// How many raw samples of the box lie in the range.
uint64_t samples_in(reading &source, const time_range &range);

} // namespace cli

#endif
