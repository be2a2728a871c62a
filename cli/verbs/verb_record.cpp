// vesk record BASE: samples the machine at a fixed interval into a box until a signal or a limit
// ends it. All options are checked before anything is made.
#include <algorithm>
#include <memory>
#include <utility>

#include "box/box_start.hpp"
#include "machine/sampler.hpp"
#include "verbs/record_options.hpp"
#include "verbs/recording.hpp"
#include "verbs/size_plan.hpp"
#include "verbs/verb.hpp"

namespace cli
{
namespace
{

// Two looks are enough to know the sensors.
constexpr double between_looks = 0.05;

// What has to be made of the box and its tiers. What is there keeps its shape.
recording_plan plan_for(const record_options &options, const record_settings &settings)
{
    recording_plan plan = {options.sizes.shape, {}};
    const std::vector<tier_kind> wanted = options.sizes.wanted_tiers(settings.interval);
    const auto has_all = [&] {
        return is_there(box_name(options.base)) &&
               std::all_of(wanted.begin(), wanted.end(), [&](const tier_kind &kind) {
                   return is_there(box_name(tier_base(options.base, kind)));
               });
    };
    if (options.sizes.are_in_peoples_terms() && !has_all()) {
        sampler machine(options.sensors.root, settings.sensors);
        const machine_samples samples = sample_machine(machine, 1, between_looks);
        const box_plan found =
            plan_box(options.sizes, settings.interval, options.events.event_bytes, samples);
        if (!is_there(box_name(options.base))) {
            plan.shape = {found.shape.samples, found.shape.intervals};
        }
        for (const tier_plan &tier : found.tiers) {
            plan.tiers.push_back({tier.kind, tier.shape});
        }
    } else {
        for (const tier_kind &kind : wanted) {
            plan.tiers.push_back({kind, kind.shape});
        }
    }
    plan.tiers = with_tiers_that_are_there(std::move(plan.tiers), options.base, options.sizes);
    return plan;
}

exit_code record(const record_options &line, const option_list::presence &given)
{
    const auto read_options = [&] { return with_file(line, given); };
    const record_options options = read_options();
    const record_settings settings = settings_of(options);
    recording(options, settings, plan_for(options, settings), read_options).run();
    return exit_done;
}

action prepare(option_list &options)
{
    const auto chosen = std::make_shared<record_options>();
    options.required_word("BASE", chosen->base,
                          "Name of the box; its files are BASE.state, BASE.1.cbuf.z, ...");
    options.text("--config", "FILE", chosen->config,
                 "Options from a file too, such as 'interval 10s'; SIGHUP reads it again");
    add_record_options(options, *chosen);
    return [chosen, given = options.given()] { return record(*chosen, given); };
}

constexpr const char *more =
    "An existing box is resumed, and recovered first if a crash left it damaged. One process\n"
    "at a time writes to a box. When the disk is full, sampling goes on and each new sample\n"
    "is tried. SIGINT, SIGTERM and SIGHUP end the recording cleanly; with --config, SIGHUP\n"
    "reads that file again. It writes events by itself (start, resume, end, machine, gap, kernel,\n"
    "top, program, omitted): 'vesk events BASE' shows them.\n"
    "\n"
    "Examples:\n"
    "  vesk record /var/lib/vesk/box\n"
    "      One sample a second; the last hours raw, all before in summary.\n"
    "  vesk record box --interval 10s --for 5m\n"
    "      Thirty samples, then the end.\n"
    "  vesk record /var/lib/vesk/box --config /etc/vesk/record.conf\n"
    "      The options from a file, as the service vesk-record does it.\n"
    "  vesk record box --from 'my-sensors --every 1s'\n"
    "      Also what that program prints as text telemetry.\n"
    "  vesk record box --sensors cpu,mem,disk,fs --exclude 'fs.*.used_inodes_*'\n"
    "      Some sensors only; 'vesk sensors' lists those of this machine.\n"
    "  vesk record box --keep 7d\n"
    "      Reaches back a week, older times in summary; 'vesk estimate' tells its size.\n"
    "  vesk record box --keep 90d\n"
    "      Seconds for some days, and a row a minute for the rest in the tier box.1m.\n"
    "  vesk record box --interval 1m --samples 1440 --intervals 24\n"
    "      A day in each buffer, summarised by the hour.\n";

const registration registered({10, "record", "Record this machine into a box", more, prepare});

} // namespace
} // namespace cli
