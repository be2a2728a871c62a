// Writes what happens to the recording and its machine as events: beginning and end, gaps, changes
// of the clock, messages of the kernel and the processes that use the most. A source that cannot be
// read is left out. All events go through a budget, so that a flood of them cannot fill the disk.
#include "machine/recording_events.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <unistd.h>

#include <vesk/vesk_version.h>

#include "machine/identity.hpp"

namespace cli
{
namespace
{

// The seconds between two lists of processes: usually, and at least when a mark is passed.
constexpr double between_lists = 60;
constexpr double between_urgent_lists = 10;
// The marks are checked at this interval when samples are taken less often.
constexpr double between_looks = 10;
// The marks are not checked more often than this, whatever wakes the recording.
constexpr double between_strain_looks = 0.9;
// The messages of the kernel that are taken before the clock is read again: each event is synced,
// which takes time.
constexpr int messages_at_once = 20;

event_level level_of(unsigned priority)
{
    return priority <= 2 ? level_critical : priority == 3 ? level_error : level_warning;
}

int64_t whole(double seconds)
{
    return static_cast<int64_t>(seconds);
}

} // namespace

recording_events::recording_events(limited_events &out, const recording_event_options &options)
    : out_(out), options_(options), identity_(read_identity(options.root, options.machine_id)),
      processors_(static_cast<unsigned>(std::max(sysconf(_SC_NPROCESSORS_ONLN), 1L))),
      clocks_(read_clocks()), late_(options.interval),
      processes_(std::in_place, options.root, options.top_arguments)
{
}

std::optional<gap> recording_events::begin(const recording_log *past, const clock_reading &now)
{
    clocks_.looked(now);
    listed_ = now.monotonic;
    if (options_.top > 0) {
        processes_->look(0, now.monotonic);
    }
    open_kernel_log(past, now);
    write_identity(past != nullptr ? event_word::resume : event_word::start, now, level_note);
    std::optional<gap> before =
        past != nullptr ? gap_until(*past, identity_, whole(now.wall)) : std::nullopt;
    if (before) {
        write_gap(*before);
    }
    return before;
}

void recording_events::change(const recording_event_options &options, const clock_reading &now)
{
    const bool had_kernel_log = options_.kernel_log;
    const std::string root = options_.root;
    options_ = options;
    options_.root = root;
    if (const auto late = late_.due(now.monotonic, true)) {
        write_gap(*late);
    }
    late_ = late_count(options.interval);
    processes_.emplace(root, options.top_arguments);
    listed_ = now.monotonic;
    if (options.top > 0) {
        processes_->look(0, now.monotonic);
    }
    if (!options.kernel_log) {
        kernel_.reset();
    } else if (!had_kernel_log) {
        open_kernel_log(nullptr, now);
    }
    // It tells the new interval.
    write_identity(event_word::machine, now, level_note);
}

void recording_events::end(const clock_reading &now, const std::string &reason,
                           const std::string &error)
{
    look_at_clocks(now);
    look_at_kernel(now);
    if (const auto late = late_.due(now.monotonic, true)) {
        write_gap(*late);
    }
    out_.tell(now.monotonic, whole(now.wall), true);
    write_identity(event_word::end, now, error.empty() ? level_note : level_error, reason, error);
}

void recording_events::write_identity(std::string_view word, const clock_reading &now,
                                      event_level level, const std::string &reason,
                                      const std::string &error)
{
    event_text text(word);
    if (!reason.empty()) {
        text.add("reason", reason);
    }
    if (!error.empty()) {
        text.add("error", error.substr(0, longest_kernel_text));
    }
    add_identity(text, identity_);
    text.add("version", vesk_version());
    text.add("interval", options_.interval);
    text.add("pid", int64_t{getpid()});
    out_.write(event_source::recording, {level, whole(now.wall), text.text()});
}

void recording_events::buffer_began(const clock_reading &now)
{
    write_identity(event_word::machine, now, level_note);
}

// The event has the time at which the gap ended.
void recording_events::write_gap(const gap &what)
{
    out_.write(event_source::recording, {gap_level(what.reason), what.to, gap_text(what)});
}

void recording_events::open_kernel_log(const recording_log *past, const clock_reading &now)
{
    if (!options_.kernel_log) {
        return;
    }
    const auto since = past != nullptr ? past->last_time() : std::nullopt;
    kernel_from_ = since ? static_cast<double>(*since) + 1 : now.wall;
    kernel_ = std::make_unique<kernel_log>(options_.root + "/dev/kmsg",
                                           since ? kernel_log::begin::with_old
                                                 : kernel_log::begin::with_new);
    if (!since) {
        kernel_drained_ = now.monotonic;
    }
    kernel_problem_ = kernel_->problem();
}

std::string recording_events::take_kernel_problem()
{
    return std::exchange(kernel_problem_, {});
}

void recording_events::look(const clock_reading &now)
{
    look_at_clocks(now);
    look_at_kernel(now);
    look_at_processes(now);
    if (const auto late = late_.due(now.monotonic)) {
        write_gap(*late);
    }
    out_.tell(now.monotonic, whole(now.wall));
}

double recording_events::seconds_to_look() const
{
    if (kernel_fd() >= 0 && !kernel_->is_drained()) {
        return 0;
    }
    return options_.top > 0 ? between_looks : between_lists;
}

void recording_events::look_at_clocks(const clock_reading &now)
{
    const std::optional<gap> slept = clocks_.slept(now);
    const std::optional<gap> was_set = clocks_.was_set(now);
    clocks_.looked(now);
    if (slept) {
        write_gap(*slept);
    }
    if (was_set) {
        write_gap(*was_set);
    }
    if (slept || was_set) {
        late_.forget();
    }
}

void recording_events::look_at_kernel(const clock_reading &now)
{
    if (!kernel_ || kernel_->fd() < 0) {
        return;
    }
    for (int i = 0; i < messages_at_once; ++i) {
        const std::optional<kernel_message> message = kernel_->next();
        if (!message) {
            break;
        }
        write_message(*message, now);
    }
    if (kernel_->is_drained()) {
        kernel_drained_ = now.monotonic;
    }
    if (const uint64_t lost = kernel_->take_lost(); lost > 0) {
        out_.count_lost(event_source::kernel, lost);
    }
    if (kernel_->fd() < 0) {
        kernel_problem_ = kernel_->problem();
    }
}

void recording_events::write_message(const kernel_message &message, const clock_reading &now)
{
    const double time = wall_time_of(message.seconds, now, kernel_drained_);
    if (time < kernel_from_ && !kernel_drained_) {
        return;
    }
    if (!kernel_quota_.take(now.monotonic)) {
        out_.count_lost(event_source::kernel, 1);
        return;
    }
    event_text text(event_word::kernel);
    text.add("priority", message.priority);
    if (message.facility != 0) {
        text.add("facility", message.facility);
    }
    text.add("text", message.text);
    out_.write(event_source::kernel, {level_of(message.priority), whole(time), text.text()});
}

void recording_events::tell(const program_notice &what, const clock_reading &now)
{
    event_text text(event_word::program);
    switch (what.what) {
    case program_notice::kind::started:
        text.add("state", "started");
        text.add("pid", what.text);
        break;
    case program_notice::kind::ended:
    case program_notice::kind::not_started:
        text.add("state", what.what == program_notice::kind::ended ? "ended" : "failed");
        text.add("how", what.text);
        text.add("pause", static_cast<int64_t>(what.count));
        break;
    case program_notice::kind::refused:
        text.add("state", "refused");
        text.add("lines", static_cast<int64_t>(what.count));
        text.add("reason", what.text);
        break;
    }
    const bool is_good = what.what == program_notice::kind::started;
    out_.write(event_source::recording,
               {is_good ? level_note : level_warning, whole(now.wall), text.text()});
}

void recording_events::look_at_processes(const clock_reading &now)
{
    if (options_.top == 0) {
        return;
    }
    if (now.monotonic - strain_looked_ >= between_strain_looks) {
        strain_looked_ = now.monotonic;
        const std::string passed = strain_.look(read_strain(options_.root, processors_));
        passed_ = passed.empty() ? passed_ : passed;
    }
    const double since = now.monotonic - listed_;
    if (since >= between_lists || (!passed_.empty() && since >= between_urgent_lists)) {
        listed_ = now.monotonic;
        write_top(processes_->look(options_.top, now.monotonic), std::exchange(passed_, {}), now);
    }
}

void recording_events::write_top(const top_processes &top, const std::string &passed,
                                 const clock_reading &now)
{
    event_text text(event_word::top);
    text.add("seconds", whole(top.seconds + 0.5));
    text.add("processes", static_cast<int64_t>(top.processes));
    if (!top.is_whole) {
        text.add("whole", "no");
    }
    if (!passed.empty()) {
        text.add("passed", passed);
    }
    add_processes(text, top);
    out_.write(event_source::top,
               {strain_.is_strained() || !passed.empty() ? level_notice : level_note,
                whole(now.wall), text.text()});
}

} // namespace cli
