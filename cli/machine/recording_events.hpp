// What a recording tells about itself and its machine, as events: that it begins and ends, when it
// could not record, what the kernel says, and which processes use the most.
#ifndef VESK_CLI_MACHINE_RECORDING_EVENTS_HPP
#define VESK_CLI_MACHINE_RECORDING_EVENTS_HPP

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "box/limited_events.hpp"
#include "box/recording_log.hpp"
#include "machine/clock_watch.hpp"
#include "machine/kernel_log.hpp"
#include "machine/process_list.hpp"
#include "machine/program_source.hpp"
#include "machine/strain.hpp"

namespace cli
{

struct recording_event_options {
    std::string root; // stands before every path
    int64_t interval = 1;
    bool machine_id = true;
    bool kernel_log = true;
    uint32_t top = 3; // 0: no lists of processes
    bool top_arguments = false;
};

class recording_events
{
public:
    // So many messages of the kernel in a minute: a whole oops, which has about sixty lines, fits.
    static constexpr uint64_t kernel_messages_in_minute = 100;
    static constexpr uint32_t most_top = 10;

    // @p out must outlive this.
    recording_events(limited_events &out, const recording_event_options &options);

    // The recording begins. @p past is what the box tells, null for a new box. Returns the gap
    // before it.
    std::optional<gap> begin(const recording_log *past, const clock_reading &now);
    // The recording ends cleanly, by a signal ("SIGTERM") or because all is recorded ("count"), or
    // with @p error.
    void end(const clock_reading &now, const std::string &reason, const std::string &error = "");

    // The recording goes on with other options; the root and the machine id stay what they are.
    void change(const recording_event_options &options, const clock_reading &now);
    // Each time that the recording wakes, which should be within seconds_to_look().
    void look(const clock_reading &now);
    double seconds_to_look() const;
    // Readable when the kernel has said something; -1 when nothing is to be expected.
    int kernel_fd() const { return kernel_ ? kernel_->fd() : -1; }
    // Why the kernel's messages are not there, once; empty otherwise.
    std::string take_kernel_problem();

    // What happens to the program that gives sensors of its own.
    void tell(const program_notice &what, const clock_reading &now);

    // A sample is due for @p tick and is taken, at @p monotonic. Returns how many were missed
    // before it.
    uint64_t sample(int64_t tick, double monotonic) { return late_.taken(tick, monotonic); }
    // The buffers have taken turns.
    void buffer_began(const clock_reading &now);

private:
    void write_identity(std::string_view word, const clock_reading &now, event_level level,
                        const std::string &reason = "", const std::string &error = "");
    void write_gap(const gap &what);
    void open_kernel_log(const recording_log *past, const clock_reading &now);
    void look_at_clocks(const clock_reading &now);
    void look_at_kernel(const clock_reading &now);
    void write_message(const kernel_message &message, const clock_reading &now);
    void look_at_processes(const clock_reading &now);
    void write_top(const top_processes &top, const std::string &passed, const clock_reading &now);

    limited_events &out_;
    recording_event_options options_;
    machine_identity identity_;
    unsigned processors_;
    clock_watch clocks_;
    late_count late_;
    std::unique_ptr<kernel_log> kernel_;
    double kernel_from_ = 0; // older messages are not taken
    std::optional<double> kernel_drained_;
    minute_quota kernel_quota_{kernel_messages_in_minute};
    std::string kernel_problem_;
    std::optional<process_list> processes_;
    strain_watch strain_;
    double strain_looked_ = 0;
    std::string passed_; // a mark, and not told yet
    double listed_ = 0;  // when the processes were listed last
};

} // namespace cli

#endif
