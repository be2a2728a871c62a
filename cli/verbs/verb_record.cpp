// vesk record BASE: samples the machine at a fixed interval into a box until a signal or a limit
// ends it. Between samples it takes events from the socket and writes its own. A full disk or a
// missing sensor never ends a recording: the next sample is tried again.
#include <algorithm>
#include <deque>
#include <fmt/format.h>
#include <memory>
#include <optional>

#include "box/box_writer.hpp"
#include "box/event_channel.hpp"
#include "box/limited_events.hpp"
#include "box/recording_log.hpp"
#include "box/waiting_events.hpp"
#include "machine/rates.hpp"
#include "machine/recording_events.hpp"
#include "machine/sampler.hpp"
#include "machine/schedule.hpp"
#include "process/clock.hpp"
#include "process/failure.hpp"
#include "process/stop_request.hpp"
#include "process/terminal.hpp"
#include "text/duration.hpp"
#include "text/value_text.hpp"
#include "verbs/common_options.hpp"
#include "verbs/record_event_options.hpp"
#include "verbs/sensor_options.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

struct record_options {
    std::string base;
    std::string interval = "1s";
    std::string duration; // empty: until a signal ends it
    std::string sync = "10s";
    sensor_options sensors;
    box_shape shape;
    record_event_options events;
};

// Each waiting sender holds a descriptor, and a process without free descriptors cannot take
// samples.
constexpr std::size_t most_waiting_senders = 64;

// So many events are taken before the clock is read again.
constexpr std::size_t events_at_once = 50;
// The events that are taken when the recording ends: more than the kernel keeps in a socket.
constexpr std::size_t events_at_end = 1000;

class recording
{
public:
    recording(const record_options &options, const recording_event_options &events,
              sensor_choice choice)
        : base_(options.base), interval_(events.interval),
          box_(options.base, options.shape, parse_sync_policy(options.sync)),
          past_(read_recording_log(find_box(options.base))),
          limited_([this](const event &what) { return events_.write(what); },
                   budget_of(find_box(options.base), options.events.bytes())),
          events_(box_, options.base), own_(limited_, events),
          machine_(options.sensors.root, std::move(choice))
    {
        try {
            inbox_.emplace(options.base);
        } catch (const failure &reason) {
            note(fmt::format("{}; events cannot be sent to this recording", reason.what()));
        }
        kernel_log_wanted_ = options.events.kernel_log;
    }

    void run(std::optional<uint64_t> samples)
    {
        begin();
        try {
            take_samples(samples);
        } catch (const box_in_use &) {
            throw;
        } catch (const failure &reason) {
            own_.end(read_clocks(), "error", reason.what());
            throw;
        }
        finish();
    }

private:
    void begin()
    {
        const bool is_resumed = box_.last_time_before() || past_.last_time();
        const std::optional<gap> before = own_.begin(is_resumed ? &past_ : nullptr, read_clocks());
        log(before ? fmt::format("the recording goes on after {}: {}", gap_length(*before),
                                 gap_words(before->reason))
                   : fmt::format("a recording begins, with a sample every {}",
                                 format_duration(interval_)));
    }

    void take_samples(std::optional<uint64_t> samples)
    {
        // Rates need two looks; the first must not lie too close to the second.
        snapshot before = machine_.take();
        double least = static_cast<double>(interval_) / 2;
        for (uint64_t taken = 0; !samples || taken < *samples; ++taken) {
            const std::optional<int64_t> tick =
                wait_for(next_tick(clock_seconds(), interval_, least));
            least = 0;
            if (!tick) {
                break;
            }
            note_late(own_.sample(*tick, read_clocks().monotonic));
            snapshot now = machine_.take();
            take(readings_between(before, now));
            before = std::move(now);
        }
    }

    // Waits until the clock shows @p tick, or a later tick when the clock is set back meanwhile,
    // and returns that. Nothing when the end was requested.
    std::optional<int64_t> wait_for(int64_t tick)
    {
        while (!stop_.requested()) {
            take_events(events_at_once);
            own_.look(read_clocks());
            note_kernel_problem();
            const double now = clock_seconds();
            const double rest = seconds_until(tick, now, interval_);
            if (rest < 0) {
                tick = next_tick(now, interval_);
            } else if (rest == 0) {
                return tick;
            } else {
                stop_.wait(std::min(rest, own_.seconds_to_look()), inbox_ ? inbox_->fd() : -1,
                           own_.kernel_fd());
            }
        }
        return std::nullopt;
    }

    // Prints a line for the journal of the system. On a terminal the status line takes its place.
    void log(const std::string &text) const
    {
        if (!status_.visible()) {
            note(fmt::format("{}: {}", base_, text));
        }
    }

    void note_late(uint64_t missed)
    {
        if (missed > 0 && !noted_late_) {
            note(fmt::format("{}: samples come too late, {} missing; this is said once, and the "
                             "events of the box count them",
                             base_, counted(missed, "sample") + (missed == 1 ? " is" : " are")));
            noted_late_ = true;
        }
    }

    // Many users may not read the log of the kernel. A note is printed only if the user asked for
    // it.
    void note_kernel_problem()
    {
        const std::string problem = own_.take_kernel_problem();
        if (!problem.empty() && kernel_log_wanted_) {
            note(fmt::format("{}; messages of the kernel are not recorded", problem));
        }
    }

    // A box keeps the name of every sensor for ever, and has room for so many only.
    void drop_what_has_no_room(readings &found)
    {
        std::size_t kept = 0;
        for (std::size_t i = 0; i < found.names.size(); ++i) {
            if (box_.admit(found.names[i])) {
                std::swap(found.names[kept], found.names[i]);
                found.values[kept] = found.values[i];
                ++kept;
            }
        }
        if (kept < found.names.size() && !noted_) {
            note(fmt::format("{}: holds 10000 different sensors already; '{}' and all other new "
                             "ones are not recorded",
                             base_, found.names[kept]));
            noted_ = true;
        }
        found.names.resize(kept);
        found.values.resize(kept);
    }

    void take(readings found)
    {
        drop_what_has_no_room(found);
        const auto now = static_cast<int64_t>(clock_seconds());
        const uint64_t buffers = box_.buffers_begun();
        if (write(now, found)) {
            limited_.vector_written(box_.buffers_begun() != buffers);
            events_.take_over();
            answer_senders();
        }
        if (box_.buffers_begun() != buffers) {
            own_.buffer_began(read_clocks());
        }
        status_.show(fmt::format("recording {}: {}, {}, {} (Ctrl-C ends)", base_,
                                 counted(recorded_, "sample"), counted(sensors_.size(), "sensor"),
                                 format_time(now)));
    }

    // A temporary failure does not end the recording: a full disk, a clock out of range, no
    // descriptors left for /proc. What is recorded stays.
    bool write(int64_t time, const readings &found)
    {
        try {
            require_readings(found);
            if (found.names != sensors_) {
                box_.set_sensors(found.names);
                sensors_ = found.names;
            }
            box_.write(time, found.values);
        } catch (const passing_failure &reason) {
            if (missing_ == 0) {
                complain(fmt::format("{}; this sample is not recorded, the next ones are tried",
                                     reason.what()));
            }
            ++missing_;
            return false;
        }
        ++recorded_;
        if (missing_ > 0) {
            note(fmt::format("{}: recording again; {} missing", base_,
                             counted(missing_, "sample") + (missing_ == 1 ? " is" : " are")));
            missing_ = 0;
        }
        return true;
    }

    // A machine without any reading at the start will never give one. Later the cause is temporary.
    void require_readings(const readings &found) const
    {
        if (found.names.empty() && recorded_ == 0) {
            throw failure(
                exit_failed,
                "this machine gives no readings (is /proc there? 'vesk sensors' lists them)");
        }
        if (found.names.empty()) {
            throw passing_failure("this machine gives no readings now");
        }
    }

    // So many at once at most: each is synced, and the next sample must not wait for a flood.
    void take_events(std::size_t most)
    {
        for (std::size_t i = 0; inbox_ && i < most; ++i) {
            std::optional<incoming_event> incoming = inbox_->take();
            if (!incoming) {
                return;
            }
            try {
                take(*incoming);
            } catch (const failure &reason) {
                incoming->answer(event_answer::refused, reason.what());
            }
        }
    }

    void take(incoming_event &incoming)
    {
        if (limited_.write_of_user(incoming.what()) == event_result::recorded) {
            incoming.answer(event_answer::recorded);
        } else {
            incoming.answer(event_answer::waits);
            senders_.push_back(std::move(incoming));
        }
        // The oldest sender is let go of; it has been told that its event waits on the medium.
        if (senders_.size() > most_waiting_senders) {
            senders_.pop_front();
        }
    }

    // The senders are those of the latest waiting events, so the events of the first senders are in
    // the box when fewer events wait than there are senders.
    void answer_senders()
    {
        while (senders_.size() > events_.count()) {
            senders_.front().answer(event_answer::recorded);
            senders_.pop_front();
        }
    }

    void finish()
    {
        take_events(events_at_end);
        events_.take_over();
        answer_senders();
        const std::string reason = stop_.requested() ? stop_.signal_name() : "count";
        own_.end(read_clocks(), reason);
        box_.finish();
        status_.clear();
        log(fmt::format("the recording ends ({}), {} recorded", reason,
                        counted(recorded_, "sample") + (recorded_ == 1 ? " is" : " are")));
        if (limited_.untold() > 0) {
            note(fmt::format("{}: {} had no room in the box", base_,
                             counted(limited_.untold(), "event")));
        }
        if (missing_ > 0) {
            throw failure(exit_failed, fmt::format("{}: the last {} not recorded", base_,
                                                   counted(missing_, "sample") +
                                                       (missing_ == 1 ? " is" : " are")));
        }
    }

    std::string base_;
    int64_t interval_;
    stop_request stop_;
    box_writer box_;
    recording_log past_;
    limited_events limited_;
    waiting_events events_;
    recording_events own_;
    sampler machine_;
    status_line status_;
    std::optional<event_inbox> inbox_;
    std::deque<incoming_event> senders_; // of events that wait
    std::vector<std::string> sensors_;
    uint64_t recorded_ = 0;
    uint64_t missing_ = 0; // since the last sample that was recorded
    bool noted_ = false;
    bool noted_late_ = false;
    bool kernel_log_wanted_ = false;
};

exit_code record(const record_options &options)
{
    const int64_t interval = parse_duration(options.interval, "--interval");
    sensor_choice choice = options.sensors.choice();
    std::optional<uint64_t> samples;
    if (!options.duration.empty()) {
        const int64_t duration = parse_duration(options.duration, "--for");
        if (duration < interval) {
            throw failure(exit_usage, fmt::format("--for {} is shorter than --interval {}",
                                                  options.duration, options.interval));
        }
        samples = static_cast<uint64_t>(duration / interval);
    }
    const recording_event_options events =
        options.events.for_recording(options.sensors.root, interval);
    recording(options, events, std::move(choice)).run(samples);
    return exit_done;
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<record_options>();
    options.required_word("BASE", chosen->base,
                          "Name of the box; its files are BASE.state, BASE.1.cbuf.z, ...");
    options.text("--interval", "TIME", chosen->interval,
                 "Time between samples in whole seconds: 1s, 5m, 2h, 1d");
    options.text("--for", "TIME", chosen->duration, "End after this time (default: at Ctrl-C)");
    add_shape(options, chosen->shape);
    add_sync(options, chosen->sync, "at the next sample after TIME");
    add_sensor_options(options, chosen->sensors);
    add_record_event_options(options, chosen->events);
    return [chosen] { return record(*chosen); };
}

constexpr const char *more =
    "An existing box is resumed, and recovered first if a crash left it damaged. One process\n"
    "at a time writes to a box. When the disk is full, sampling goes on and each new sample\n"
    "is tried. SIGINT, SIGTERM and SIGHUP end the recording cleanly. It writes events by itself\n"
    "(start, resume, end, machine, gap, kernel, top, omitted): 'vesk events BASE' shows them.\n"
    "\n"
    "Examples:\n"
    "  vesk record /var/lib/vesk/box\n"
    "      One sample a second; the last hours raw, all before in summary.\n"
    "  vesk record box --interval 10s --for 5m\n"
    "      Thirty samples, then the end.\n"
    "  vesk record box --sensors cpu,mem,disk,fs --exclude 'fs.*.used_inodes_*'\n"
    "      Some sensors only; 'vesk sensors' lists those of this machine.\n"
    "  vesk record box --interval 1m --samples 1440 --intervals 24\n"
    "      A day in each buffer, summarised by the hour.\n";

const registration registered({10, "record", "Record this machine into a box", more, prepare});

} // namespace
} // namespace cli
