// Samples the machine at a fixed interval into a box. Between samples it takes events from the
// socket and writes its own. A full disk or a missing sensor never ends a recording: the next
// sample is tried again.
#include "verbs/recording.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <unistd.h>

#include "machine/rates.hpp"
#include "machine/schedule.hpp"
#include "process/clock.hpp"
#include "process/failure.hpp"
#include "process/startup_pages.hpp"
#include "text/byte_size.hpp"
#include "text/duration.hpp"
#include "text/value_text.hpp"
#include "verbs/size_plan.hpp"

namespace cli
{
namespace
{

// So many events are taken before the clock is read again.
constexpr std::size_t events_at_once = 50;
// The events that are taken when the recording ends: more than the kernel keeps in a socket.
constexpr std::size_t events_at_end = 1000;
// Between two samples each box works ahead for at most so many seconds, in which no event is taken,
// and for such a part of the time that is left.
constexpr double longest_work_ahead = 0.1;
constexpr double part_of_rest = 0.125;

} // namespace

recording::recording(const record_options &options, const record_settings &settings,
                     const recording_plan &plan, std::function<record_options()> read_options)
    : base_(options.base), options_(options), settings_(settings),
      read_options_(std::move(read_options)),
      stop_(options.config.empty() ? stop_request::hangup::ends : stop_request::hangup::reloads),
      box_(options.base, plan.shape, settings.sync),
      past_(read_recording_log(find_box(options.base))),
      limited_([this](const event &what) { return events_.write(what); },
               budget_of(find_box(options.base), options.event_bytes())),
      events_(box_, options.base), own_(limited_, settings.events),
      machine_(std::in_place, options.sensors.root, settings.sensors),
      intake_(options.base, limited_, events_), samples_(box_, options.base, !options.from.empty()),
      wanted_tiers_(plan.tiers)
{
    if (!options.from.empty()) {
        program_.emplace(options.from);
    }
}

void recording::run()
{
    begin();
    try {
        take_samples();
    } catch (const box_in_use &) {
        throw;
    } catch (const failure &reason) {
        manager_.stopping();
        own_.end(read_clocks(), "error", reason.what());
        throw;
    }
    finish();
}

void recording::begin()
{
    before_ = machine_->take();
    if (!before_.taken.empty()) {
        samples_.readings_exist();
    }
    tiers_.emplace(base_, wanted_tiers_, settings_.sync);
    const bool is_resumed = box_.last_time_before() || past_.last_time();
    const std::optional<gap> before = own_.begin(is_resumed ? &past_ : nullptr, read_clocks());
    const std::string what = before ? fmt::format("the recording goes on after {}: {}",
                                                  gap_length(*before), gap_words(before->reason))
                                    : fmt::format("a recording begins, with a sample every {}",
                                                  format_duration(settings_.interval));
    log(fmt::format("{}; {}", what, words_about_size()));
    prepare_push();
    manager_.ready(status_words());
}

// A program that is missing is told, and hinders nothing.
void recording::prepare_push()
{
    if (!options_.push.are_wanted()) {
        return;
    }
    try {
        const auto moment = static_cast<uint64_t>(clock_seconds() * 1e6);
        push_.emplace(push_command(options_.push.request(base_)),
                      static_cast<double>(settings_.push_every),
                      static_cast<uint32_t>(moment) ^ static_cast<uint32_t>(getpid()));
    } catch (const failure &reason) {
        note(fmt::format("{}: {}", base_, reason.what()));
    }
}

void recording::look_at_push()
{
    if (!push_) {
        return;
    }
    push_->look(monotonic_seconds());
    if (const std::optional<std::string> notice = push_->take_notice()) {
        note(fmt::format("{}: {}", base_, *notice));
    }
}

std::string recording::status_words() const
{
    return fmt::format("Recording {} with a sample every {}", base_,
                       format_duration(settings_.interval));
}

// How far back the box reaches, and where that is not what the user wants: an existing box keeps
// its shape.
std::string recording::words_about_size() const
{
    const box_state state = read_state(base_);
    const std::vector<std::string> names = names_in(before_);
    std::vector<sized_box> all = {{{state.samples, state.intervals},
                                   settings_.interval,
                                   largest_records(names),
                                   options_.event_bytes()}};
    std::string words = size_words(all.front());
    uint64_t bytes = all.front().bytes();
    for (const wanted_tier &each : wanted_tiers_) {
        const std::string base = tier_base(base_, each.kind);
        const box_state tier = read_state(base);
        if (tier.error == 0) {
            all.push_back({{tier.samples, tier.intervals},
                           each.kind.period,
                           largest_records(names_in_tier(each.kind, names)),
                           0});
            words += fmt::format("; {}: {}", base, size_words(all.back()));
            bytes += all.back().bytes();
        }
    }
    note_other_size(base_, all, options_.sizes);
    return all.size() == 1
               ? words
               : fmt::format("{}; altogether at most {}", words, format_byte_size(bytes));
}

void recording::take_samples()
{
    // Rates need two looks; the first must not lie too close to the second.
    double least = static_cast<double>(settings_.interval) / 2;
    for (uint64_t taken = 0; !settings_.samples || taken < *settings_.samples; ++taken) {
        const std::optional<int64_t> tick =
            wait_for(next_tick(clock_seconds(), settings_.interval, least));
        least = 0;
        if (!tick) {
            break;
        }
        note_late(own_.sample(*tick, read_clocks().monotonic));
        snapshot now = machine_->take();
        readings found = readings_between(before_, now);
        if (program_) {
            program_->add_to(found, monotonic_seconds(), settings_.interval);
        }
        take(found);
        before_ = std::move(now);
        if (taken == 0) {
            leave_startup_pages();
        }
    }
}

// Waits until the clock shows @p tick, or another tick when the clock is set meanwhile, and returns
// the tick that it shows then. Nothing when the end was requested.
std::optional<int64_t> recording::wait_for(int64_t tick)
{
    work_ahead(seconds_until(tick, clock_seconds(), settings_.interval));
    while (!stop_.requested()) {
        intake_.take(events_at_once);
        own_.look(read_clocks());
        note_kernel_problem();
        look_at_program();
        look_at_push();
        const double now = clock_seconds();
        const double rest = seconds_until(tick, now, settings_.interval);
        if (rest < 0) {
            tick = next_tick(now, settings_.interval);
        } else if (rest == 0) {
            // Later ones may have passed while the process was stopped or waited for a disk.
            return std::max(tick, latest_tick(now, settings_.interval));
        } else {
            wait(std::min(rest, own_.seconds_to_look()));
        }
        if (stop_.take_reload()) {
            reload();
            // The sensors are others now, and their rates need two looks.
            const double least = static_cast<double>(settings_.interval) / 2;
            tick = next_tick(clock_seconds(), settings_.interval, least);
        }
    }
    return std::nullopt;
}

// Does in the time between two samples what would make a later one late.
void recording::work_ahead(double rest)
{
    const double seconds = std::min(rest * part_of_rest, longest_work_ahead);
    if (seconds > 0 && !stop_.requested()) {
        box_.work_ahead(seconds);
        tiers_->work_ahead(seconds);
    }
}

void recording::wait(double seconds)
{
    manager_.alive(monotonic_seconds());
    const double least = manager_.seconds_to_alive(monotonic_seconds()).value_or(seconds);
    const double next_look =
        program_ ? program_->seconds_to_look(monotonic_seconds()) : std::max(seconds, least);
    const double next_push = push_ ? push_->seconds_to_look(monotonic_seconds()) : seconds;
    stop_.wait(std::min({seconds, least, next_look, next_push}),
               {intake_.fd(), own_.kernel_fd(), program_ ? program_->fd() : -1});
}

void recording::look_at_program()
{
    if (!program_) {
        return;
    }
    program_->look(monotonic_seconds());
    for (const program_notice &each : program_->take_notices(monotonic_seconds())) {
        own_.tell(each, read_clocks());
        if (each.what == program_notice::kind::refused) {
            note(fmt::format("{}: refused {} of the program of --from: {}", base_,
                             counted(each.count, "line"), each.text));
        } else if (each.what != program_notice::kind::started) {
            note(fmt::format("{}: the program of --from ended ({}) and is started again in {}",
                             base_, each.text, format_duration(static_cast<int64_t>(each.count))));
        }
    }
}

// A file that is wrong changes nothing.
void recording::reload()
{
    manager_.reloading(monotonic_seconds());
    try {
        change(read_options_());
    } catch (const failure &reason) {
        complain(fmt::format("{}; the recording goes on as before", reason.what()));
    }
    manager_.ready(status_words());
}

void recording::change(const record_options &options)
{
    const record_settings settings = settings_of(options);
    const std::string ignored = unchangeable(options_, options);
    if (!ignored.empty()) {
        note(fmt::format("{}: {} cannot change while it records; the rest of {} holds", base_,
                         ignored, options.config));
    }
    settings_.interval = settings.interval;
    settings_.sensors = settings.sensors;
    settings_.events = settings.events;
    options_.interval = options.interval;
    options_.events = options.events;
    options_.sensors.groups = options.sensors.groups;
    options_.sensors.excluded = options.sensors.excluded;
    limited_.set_bytes(options_.event_bytes());
    own_.change(settings.events, read_clocks());
    machine_.emplace(options_.sensors.root, settings_.sensors);
    before_ = machine_->take();
    log(fmt::format("{} was read again: a sample every {}", options.config,
                    format_duration(settings_.interval)));
}

void recording::take(readings &found)
{
    const auto now = static_cast<int64_t>(clock_seconds());
    const uint64_t buffers = box_.buffers_begun();
    if (samples_.write(now, found)) {
        tiers_->add(now, found.names, found.values);
        limited_.vector_written(box_.buffers_begun() != buffers);
        events_.take_over();
        intake_.answer_senders();
    }
    if (box_.buffers_begun() != buffers) {
        own_.buffer_began(read_clocks());
    }
    status_.show(fmt::format("recording {}: {}, {}, {} (Ctrl-C ends)", base_,
                             counted(samples_.recorded(), "sample"),
                             counted(samples_.number_of_sensors(), "sensor"), format_time(now)));
}

void recording::finish()
{
    manager_.stopping();
    program_.reset();
    intake_.take(events_at_end);
    events_.take_over();
    intake_.answer_senders();
    const std::string reason = stop_.requested() ? stop_.signal_name() : "count";
    own_.end(read_clocks(), reason);
    box_.finish();
    tiers_->finish();
    push_.reset();
    status_.clear();
    log(fmt::format("the recording ends ({}), {} recorded", reason,
                    samples_are(samples_.recorded())));
    if (limited_.untold() > 0) {
        note(fmt::format("{}: {} had no room in the box", base_,
                         counted(limited_.untold(), "event")));
    }
    if (samples_.missing() > 0) {
        throw failure(exit_failed, fmt::format("{}: the last {} not recorded", base_,
                                               samples_are(samples_.missing())));
    }
}

// Prints a line for the journal of the system. On a terminal the status line takes its place.
void recording::log(const std::string &text) const
{
    if (!status_.visible()) {
        note(fmt::format("{}: {}", base_, text));
    }
}

void recording::note_late(uint64_t missed)
{
    if (missed > 0 && !noted_late_) {
        note(fmt::format("{}: samples come too late, {} missing; this is said once, and the "
                         "events of the box count them",
                         base_, samples_are(missed)));
        noted_late_ = true;
    }
}

// Many users may not read the log of the kernel. A note is printed only if the user asked for it.
void recording::note_kernel_problem()
{
    const std::string problem = own_.take_kernel_problem();
    if (!problem.empty() && options_.events.kernel_log) {
        note(fmt::format("{}; messages of the kernel are not recorded", problem));
    }
}

} // namespace cli
