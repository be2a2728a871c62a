// Adds the options of `vesk record` and checks all of them before anything is made.
#include "verbs/record_options.hpp"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <string_view>
#include <utility>

#include "box/sync_policy.hpp"
#include "process/failure.hpp"
#include "text/duration.hpp"
#include "verbs/common_options.hpp"
#include "verbs/option_file.hpp"

namespace cli
{
namespace
{

// Options that contradict each other: one on the command line takes the place of the others in the
// file.
constexpr std::array<std::pair<std::string_view, std::string_view>, 5> opposites = {{
    {"--samples", "--keep"},
    {"--samples", "--disk"},
    {"--intervals", "--keep"},
    {"--intervals", "--disk"},
    {"--kernel-log", "--no-kernel-log"},
}};

bool is_beaten(const std::string &name, const option_list::presence &given)
{
    return given(name) || std::any_of(opposites.begin(), opposites.end(), [&](const auto &pair) {
               const auto &[one, other] = pair;
               return (name == one && given(std::string(other))) ||
                      (name == other && given(std::string(one)));
           });
}

// Messages about an option begin with its name. Where that stands in the file, so does the fault.
void check(const record_options &options, const option_file &file,
           const option_list::presence &given)
{
    try {
        settings_of(options);
    } catch (const failure &reason) {
        const std::string text = reason.what();
        const std::string name = text.substr(0, text.find(' '));
        const std::string place = is_beaten(name, given) ? std::string() : file.place_of(name);
        throw failure(exit_usage,
                      fmt::format("{}: {}", place.empty() ? options.config : place, text));
    }
}

} // namespace

void add_record_options(option_list &options, record_options &record)
{
    options.text("--interval", "TIME", record.interval,
                 "Time between samples in whole seconds: 1s, 5m, 2h, 1d");
    options.text("--for", "TIME", record.duration, "End after this time (default: at Ctrl-C)");
    add_size_options(options, record.sizes);
    add_sync(options, record.sync, "at the next sample after TIME");
    add_sensor_options(options, record.sensors);
    options.text("--from", "COMMAND", record.from,
                 "Record what this command prints as text telemetry, too");
    add_record_event_options(options, record.events);
    add_record_push_options(options, record.push);
}

record_settings settings_of(const record_options &options)
{
    record_settings settings;
    settings.interval = parse_duration(options.interval, "--interval");
    settings.sensors = options.sensors.choice();
    if (!options.duration.empty()) {
        const int64_t duration = parse_duration(options.duration, "--for");
        if (duration < settings.interval) {
            throw failure(exit_usage, fmt::format("--for {} is shorter than --interval {}",
                                                  options.duration, options.interval));
        }
        settings.samples = static_cast<uint64_t>(duration / settings.interval);
    }
    settings.events = options.events.for_recording(options.sensors.root, settings.interval);
    settings.sync = parse_sync_policy(options.sync);
    settings.push_every = options.push.checked_period();
    options.sizes.check();
    options.sizes.wanted_tiers(settings.interval);
    return settings;
}

record_options with_file(const record_options &line, const option_list::presence &given)
{
    record_options all = line;
    if (line.config.empty()) {
        return all;
    }
    option_file file(line.config);
    add_record_options(file, all);
    file.apply([&](const std::string &name) { return is_beaten(name, given); });
    check(all, file, given);
    return all;
}

std::string unchangeable(const record_options &before, const record_options &now)
{
    std::string names;
    const auto compare = [&](std::string_view name, bool is_same) {
        if (!is_same) {
            names += fmt::format("{}{}", names.empty() ? "" : ", ", name);
        }
    };
    compare("--for", before.duration == now.duration);
    compare("--sync", before.sync == now.sync);
    compare("--from", before.from == now.from);
    compare("--push", before.push.what.url == now.push.what.url);
    compare("--push-every", before.push.every == now.push.every);
    compare("--push-raw", before.push.what.raw == now.push.what.raw);
    compare("--push-label", before.push.what.labels == now.push.what.labels);
    compare("--push-credentials", before.push.what.credentials == now.push.what.credentials);
    compare("--push-ca-file", before.push.what.ca_file == now.push.what.ca_file);
    compare("--root", before.sensors.root == now.sensors.root);
    compare("--samples", before.sizes.shape.samples == now.sizes.shape.samples);
    compare("--intervals", before.sizes.shape.intervals == now.sizes.shape.intervals);
    compare("--keep", before.sizes.keep == now.sizes.keep);
    compare("--disk", before.sizes.disk == now.sizes.disk);
    compare("--tiers", before.sizes.tiers == now.sizes.tiers);
    compare("--no-machine-id", before.events.no_machine_id == now.events.no_machine_id);
    return names;
}

} // namespace cli
