// The content of a box in the order of time: intervals of history, then raw samples and events.
// Rows of its tiers are handed out as intervals, where they are finer than what the box has left.
// The verbs that read share it, so that they all see the same sensors in the same order, bear the
// same damage and end with the same exit codes.
//
// A box is looked over twice: first for its sensors, its times and its damage, then for its rows,
// which are handed out one by one. Its files are held open between, so that both looks see the same
// ones; a box that is written to may hold some rows more at the second look. Memory is needed for
// the bytes of one file and the names of the sensors, whatever the files hold.
#ifndef VESK_CLI_BOX_READING_HPP
#define VESK_CLI_BOX_READING_HPP

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "box/box.hpp"
#include "box/file_check.hpp"
#include "box/losses.hpp"
#include "box/raw_position.hpp"
#include "box/row_choice.hpp"
#include "text/time_text.hpp"

namespace cli
{

// Behind this many different names the others are left out, with a note. A box that was recorded
// holds 10000 at most.
constexpr std::size_t most_named_sensors = 65536;

struct sample_row {
    int64_t time;
    std::span<const float> values; // of the chosen sensors; NaN where one has none
};

struct interval_row {
    int64_t start; // of its first sample
    int64_t end;   // of its last one
    // The summaries of the chosen sensors; null for a sensor that is not in the interval.
    std::span<const interval_summary *const> values;
    const vesk_hb_record_events *events; // how many of each type
};

struct event_row {
    int64_t time;
    uint32_t type;
    const std::string &text;
    bool waits; // for a sample that it can follow, outside of the buffers
};

// Raw samples that are missing: between two samples lies more than twice the usual step.
struct gap_row {
    int64_t last; // before it
    int64_t next; // behind it
};

// Takes the rows. What a row points to lives until the call returns.
class row_visitor
{
public:
    row_visitor() = default;
    row_visitor(const row_visitor &) = delete;
    row_visitor &operator=(const row_visitor &) = delete;
    virtual ~row_visitor() = default;

    virtual void on_interval(const interval_row & /*row*/) {}
    virtual void on_sample(const sample_row & /*row*/) {}
    virtual void on_gap(const gap_row & /*row*/) {}
    virtual void on_event(const event_row & /*row*/) {}
};

class joined_tiers;

class reading
{
public:
    // Whether the tiers of the box are read with it.
    enum class tiers { none, joined };

    // Looks over the box, or the one buffer file, that @p name stands for. What is damaged is told
    // on standard error. Throws a failure as find_box() does. With the name of its state file the
    // box is read without its tiers, too.
    explicit reading(const std::string &name, tiers with = tiers::joined);
    reading(const reading &) = delete;
    reading &operator=(const reading &) = delete;
    ~reading();

    const box &source() const { return box_; }
    // The sensors in the order in which the raw samples name them, followed by those that only the
    // history has.
    const std::vector<std::string> &sensors() const { return sensors_; }
    // The time of the first and the latest record of samples; nothing in an empty box. The latest
    // is the one that was written last, also where the clock was set back before.
    std::optional<int64_t> begin() const { return begin_; }
    std::optional<int64_t> end() const { return end_; }
    // The least and the greatest time of all samples and intervals, whatever their order; nothing
    // in an empty box.
    const std::optional<time_range> &extent() const { return extent_; }
    // The usual distance of raw samples in seconds; 0 with fewer than two samples.
    int64_t usual_step() const { return usual_step_; }
    uint64_t samples() const { return samples_; }
    uint64_t intervals() const { return intervals_; }
    // Times of which read() hands out nothing although something was recorded then: where rows of
    // the box and of a tier meet that do not begin and end at the same time.
    std::vector<row_span> left_out() const;
    summing how_summed() const { return cli::how_summed(box_); }

    // Hands out what lies in @p range, of the sensors with the numbers @p chosen. An interval that
    // the range begins or ends in is handed out whole.
    void read(const time_range &range, const std::vector<std::size_t> &chosen,
              row_visitor &visitor);
    // Behind the newest record that the latest read() came to, whatever its range: there a follower
    // goes on without doubling or missing any.
    const raw_position &position() const { return position_; }

    // What the first look found wrong with the files.
    const kept_checks &checks() const { return checks_; }
    // The same of the files of a tier; nothing is known of one that is not read with the box.
    const kept_checks &checks_of_tier(const std::string &name) const;

    // The exit code of a reading verb: 0, 1 or 3 when something could not be read, 4 when nothing
    // could.
    exit_code code() const;

private:
    class survey;
    class walk;

    bool is_left_out(const vesk_hb_record_sensor_values &interval) const;
    void join_tiers();
    // What the box itself holds.
    void read_box(const time_range &range, const std::vector<std::size_t> &chosen,
                  row_visitor &visitor);

    box box_;
    losses losses_;
    kept_checks checks_;
    std::vector<std::string> sensors_;
    std::optional<int64_t> begin_;
    std::optional<int64_t> end_;
    std::optional<time_range> extent_;
    // The time of the first raw sample, if no state file tells which files have been summarised.
    // Intervals from there on repeat samples that still exist, so they are left out.
    std::optional<int64_t> history_ends_before_;
    int64_t usual_step_ = 0;
    uint64_t samples_ = 0;
    uint64_t intervals_ = 0;
    raw_position position_;
    bool nothing_ = false;
    std::unique_ptr<joined_tiers> joined_; // null where the box has no tiers that can be read
    exit_code tiers_code_ = exit_done;
};

// Whether the interval holds no samples and no events: a repair fills up a history with such ones.
bool is_filler(const vesk_hb_record_sensor_values &interval);

} // namespace cli

#endif
