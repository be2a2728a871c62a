// Finds out how a box ended, from the times of its samples and the texts of its events.
#ifndef VESK_CLI_BOX_ENDING_WATCH_HPP
#define VESK_CLI_BOX_ENDING_WATCH_HPP

#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "analysis/ending_text.hpp"
#include "box/recording_log.hpp"

namespace cli
{

class ending_watch
{
public:
    // In the order in which the box holds them, and the events that wait behind them. Of an
    // interval of history, the latest sample counts.
    void take_sample(int64_t time);
    void take_event(int64_t time, const std::string &text);

    // Call it after the last one. @p is_written tells that somebody writes to the box now.
    box_ending result(bool is_written) const;
    const recording_log &log() const { return log_; }
    // The last time that a recording broke off and another one went on.
    std::optional<int64_t> broke_off() const { return broke_off_; }

private:
    // Several messages of the kernel may be newer than the end that they are looked up for: those
    // that a machine prints while it starts again.
    static constexpr std::size_t most_kernel_words = 64;
    std::optional<kernel_words> words_before(int64_t end) const;

    recording_log log_;
    std::deque<kernel_words> kernel_;
    std::optional<int64_t> last_;
    std::optional<int64_t> broke_off_;
    std::optional<kernel_words> words_at_break_;
};

} // namespace cli

#endif
