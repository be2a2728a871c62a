// What the events among the raw samples of a box tell about its recordings: which machine they are
// from, how the last one ended, and when nothing was recorded.
//
// Anybody may have made the box. All texts are bounded, and must be made printable where they are
// shown.
#ifndef VESK_CLI_BOX_RECORDING_LOG_HPP
#define VESK_CLI_BOX_RECORDING_LOG_HPP

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include <vesk/vesk_scan.h>

#include "box/box.hpp"
#include "text/own_events.hpp"

namespace cli
{

class recording_log
{
public:
    // The latest of this many are kept.
    static constexpr std::size_t most_gaps = 1000;

    enum class state {
        silent, // no recording has told anything
        begun,  // the last one began, and did not tell of its end
        ended   // the last one ended cleanly
    };

    // Items in their order, oldest first.
    void take(const vesk_scan_item &item);
    void take_event(int64_t time, const std::string &text);
    // The events that wait for the box, which are the newest.
    void take_waiting(const box &found);

    state last_state() const { return state_; }
    // The machine that the newest samples are from, if an event tells it.
    const std::optional<machine_identity> &identity() const { return identity_; }
    const std::string &version() const { return version_; }       // of what recorded them
    std::optional<int64_t> interval() const { return interval_; } // between samples
    // Of the last end: when and why, and what went wrong where that is why.
    int64_t end_time() const { return end_time_; }
    const std::string &end_reason() const { return end_reason_; }
    const std::string &end_error() const { return end_error_; }

    const std::deque<gap> &gaps() const { return gaps_; }
    uint64_t number_of_gaps() const { return number_of_gaps_; }

    // The time of the last sample or event of a recording.
    std::optional<int64_t> last_time() const { return last_time_; }

private:
    void take_identity(const parsed_event &event);
    void take_gap(const parsed_event &event);

    state state_ = state::silent;
    std::optional<machine_identity> identity_;
    std::string version_;
    std::optional<int64_t> interval_;
    int64_t end_time_ = 0;
    std::string end_reason_;
    std::string end_error_;
    std::deque<gap> gaps_;
    uint64_t number_of_gaps_ = 0;
    std::optional<int64_t> last_time_;
};

// Of the box, the events that wait included. Damaged places are passed over; throws a failure when
// a buffer cannot be read.
recording_log read_recording_log(const box &found);

// The gap between what the box tells and a recording that begins at @p now on @p machine; nothing
// when the box holds nothing.
std::optional<gap> gap_until(const recording_log &past, const machine_identity &machine,
                             int64_t now);

} // namespace cli

#endif
