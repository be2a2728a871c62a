// vesk estimate: tells how far back a box of this machine would reach and what it would take on the
// disk, for a shape that the user gives or for one that is chosen to keep what he wants. Samples
// the machine for some seconds and tries the samples in small boxes; nothing stays behind.
#include <cmath>
#include <fmt/format.h>
#include <memory>
#include <nlohmann/json.hpp>

#include "process/failure.hpp"
#include "process/output.hpp"
#include "text/byte_size.hpp"
#include "text/duration.hpp"
#include "verbs/record_event_options.hpp"
#include "verbs/sensor_options.hpp"
#include "verbs/size_plan.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

using nlohmann::ordered_json;

struct estimate_options {
    std::string interval = "1s";
    std::string measure = "3s";
    size_options sizes;
    std::optional<uint32_t> event_bytes;
    sensor_options sensors;
    bool json = false;
};

constexpr int64_t longest_look = 60;

int64_t whole_bytes(double bytes)
{
    return std::llround(bytes);
}

class estimate
{
public:
    estimate(const box_plan &plan, std::size_t sensors, int64_t interval)
        : plan_(plan), sensors_(sensors), interval_(interval), raw_(raw_reach(plan.shape)),
          all_(history_reach(plan.shape)), usual_(usual_bytes(plan.shape, plan.measured.records)),
          most_(plan.sized().bytes()), turn_(plan.measured.rotation.seconds(plan.shape))
    {
        for (const tier_plan &tier : plan.tiers) {
            usual_ += usual_bytes(tier.shape, tier.usual);
            most_ += tier.sized().bytes();
        }
    }

    void print_text() const
    {
        const whole_shape &shape = plan_.shape;
        line("sensors", fmt::format("{}, a sample every {}", sensors_, format_duration(interval_)));
        line("sample",
             fmt::format("{} bytes, at most {}", whole_bytes(plan_.measured.records.sample),
                         whole_bytes(plan_.largest.sample)));
        line("shape", fmt::format("--samples {} --intervals {}: summaries of {}", shape.samples,
                                  shape.intervals,
                                  format_duration(interval_ * shape.samples / shape.intervals)));
        line("raw", fmt::format("the last {} to {}", span(raw_.least), span(raw_.most)));
        line("horizon", fmt::format("{} to {}: one row sums up all that is older", span(all_.least),
                                    span(all_.most)));
        for (const tier_plan &tier : plan_.tiers) {
            line(fmt::format("tier {}", tier.kind.name),
                 fmt::format("a row every {}, {}", format_duration(tier.kind.period),
                             size_words(tier.sized())));
        }
        line("disk",
             fmt::format("{} usually, at most {}, {} of that for events", format_byte_size(usual_),
                         format_byte_size(most_), format_byte_size(event_total())));
        line("rotation", fmt::format("{:.3g} s of processor time every {}{}", turn_,
                                     format_duration(interval_ * shape.samples),
                                     turn_ > time_for_turn() ? ", which may cost samples" : ""));
    }

    void print_json() const
    {
        const whole_shape &shape = plan_.shape;
        ordered_json result = {{"sensors", sensors_},
                               {"interval", interval_},
                               {"samples", shape.samples},
                               {"intervals", shape.intervals},
                               {"sample_bytes", whole_bytes(plan_.measured.records.sample)},
                               {"most_sample_bytes", whole_bytes(plan_.largest.sample)},
                               {"raw_seconds", seconds(raw_, interval_)},
                               {"horizon_seconds", seconds(all_, interval_)},
                               {"usual_bytes", usual_},
                               {"most_bytes", most_},
                               {"event_bytes", event_total()},
                               {"rotation_seconds", turn_},
                               {"seconds_between_rotations", interval_ * shape.samples}};
        result["tiers"] = ordered_json::array();
        for (const tier_plan &tier : plan_.tiers) {
            result["tiers"].push_back(
                {{"name", tier.kind.name},
                 {"period", tier.kind.period},
                 {"samples", tier.shape.samples},
                 {"intervals", tier.shape.intervals},
                 {"raw_seconds", seconds(raw_reach(tier.shape), tier.kind.period)},
                 {"horizon_seconds", seconds(history_reach(tier.shape), tier.kind.period)},
                 {"most_bytes", tier.sized().bytes()}});
        }
        put(result.dump(2) + "\n");
    }

private:
    // What a recording can spend between the samples of one buffer, in seconds: no more than a
    // tenth of a second behind each, and only while nothing else needs the processor.
    double time_for_turn() const { return plan_.shape.samples * 0.05; }

    static void line(const std::string &title, const std::string &text)
    {
        put(fmt::format("{:<10} {}\n", title, text));
    }
    std::string span(uint64_t samples) const
    {
        return format_rough_duration(static_cast<int64_t>(samples) * interval_);
    }
    static ordered_json seconds(const reach &what, int64_t of_one)
    {
        const auto interval = static_cast<uint64_t>(of_one);
        return {{"least", what.least * interval}, {"most", what.most * interval}};
    }
    uint64_t event_total() const
    {
        return plan_.sized().bytes() - most_bytes(plan_.shape, plan_.largest, 0);
    }

    const box_plan &plan_;
    std::size_t sensors_;
    int64_t interval_;
    reach raw_;
    reach all_;
    uint64_t usual_;
    uint64_t most_;
    double turn_;
};

exit_code run_estimate(const estimate_options &options)
{
    const int64_t interval = parse_duration(options.interval, "--interval");
    const int64_t looks = parse_duration(options.measure, "--measure");
    if (looks > longest_look) {
        throw failure(exit_usage, fmt::format("--measure {}: is longer than {}", options.measure,
                                              format_duration(longest_look)));
    }
    options.sizes.check();
    require_event_bytes(options.event_bytes);
    sampler machine(options.sensors.root, options.sensors.choice());
    const machine_samples samples = sample_machine(machine, static_cast<unsigned>(looks), 1);
    const box_plan plan = plan_box(options.sizes, interval, options.event_bytes, samples);
    const estimate result(plan, samples.names.size(), interval);
    options.json ? result.print_json() : result.print_text();
    flush_output();
    return exit_done;
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<estimate_options>();
    options.text("--interval", "TIME", chosen->interval,
                 "Time between samples in whole seconds: 1s, 5m, 2h, 1d");
    add_size_options(options, chosen->sizes);
    add_event_bytes(options, chosen->event_bytes);
    add_sensor_options(options, chosen->sensors);
    options.text("--measure", "TIME", chosen->measure, "Sample the machine for so long");
    options.flag("--json", chosen->json, "Print JSON, with times in seconds");
    return [chosen] { return run_estimate(*chosen); };
}

constexpr const char *more =
    "Samples this machine and tells what `vesk record` with the same options would make: for how\n"
    "long it keeps each sample (raw) and rows of summaries (horizon), what it takes on the disk,\n"
    "and how long its buffers need to take turns. What a sample takes is measured; the most is\n"
    "what it takes when nothing can be compressed, with the sensors that there are now.\n"
    "\n"
    "Examples:\n"
    "  vesk estimate\n"
    "  vesk estimate --keep 7d\n"
    "  vesk estimate --disk 20M --interval 10s\n"
    "  vesk estimate --samples 86400 --intervals 1440 --json\n";

const registration registered({12, "estimate", "Tell how far back a box would reach, and its size",
                               more, prepare});

} // namespace
} // namespace cli
