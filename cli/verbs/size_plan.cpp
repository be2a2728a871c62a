// Samples the machine, tries the samples in small boxes, and finds the shape that fits. `vesk
// record` and `vesk estimate` both use it, so that one makes what the other has told.
#include "verbs/size_plan.hpp"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <thread>

#include "machine/rates.hpp"
#include "process/failure.hpp"
#include "text/byte_size.hpp"

namespace cli
{
namespace
{

// A tier has mean, extremes and deviation of each sensor.
constexpr double values_of_sensor = 4;
// Where only --disk tells the size, each tier gets this part of it.
constexpr uint64_t tiers_in_disk = 4;

record_bytes scaled(const record_bytes &records, double factor)
{
    return {records.names * factor, records.sample * factor, records.interval * factor};
}

// What is wanted of a tier.
size_wish wish_of_tier(const size_wish &all, const tier_plan &tier, bool is_coarsest)
{
    size_wish wish = all;
    wish.interval = tier.kind.period;
    wish.pause = all.interval;
    wish.event_bytes = 0;
    wish.records = tier.largest;
    wish.rotation.seconds_of_sample *= values_of_sensor;
    wish.rotation.seconds_of_interval *= values_of_sensor;
    wish.disk.reset();
    if (wish.keep && !is_coarsest) {
        wish.keep = std::min(*wish.keep, most_samples_kept * tier.kind.period);
    }
    if (!wish.keep && all.disk) {
        wish.disk = *all.disk / tiers_in_disk;
    }
    return wish;
}

// Takes the space of the tiers from what the box may have, and what they keep from what it must.
void leave_to_box(size_wish &wish, const std::vector<tier_plan> &tiers)
{
    if (wish.keep && !tiers.empty()) {
        wish.keep = std::min(*wish.keep, most_samples_kept * wish.interval);
    }
    uint64_t bytes = 0;
    for (const tier_plan &tier : tiers) {
        bytes += tier.sized().bytes();
    }
    if (wish.disk && bytes >= *wish.disk) {
        throw failure(exit_usage,
                      fmt::format("--disk {}: is too little, its tiers alone take up to {}",
                                  format_byte_size(*wish.disk), format_byte_size(bytes)));
    }
    if (wish.disk) {
        *wish.disk -= bytes;
    }
}

} // namespace

std::vector<wanted_tier> with_tiers_that_are_there(std::vector<wanted_tier> tiers,
                                                   const std::string &base,
                                                   const size_options &sizes)
{
    if (sizes.tiers == "none") {
        return tiers;
    }
    for (const tier_kind &kind : all_tiers()) {
        const auto is_same = [&](const wanted_tier &each) { return each.kind.name == kind.name; };
        if (std::none_of(tiers.begin(), tiers.end(), is_same) &&
            may_be_tier(tier_base(base, kind), kind)) {
            tiers.push_back({kind, kind.shape});
        }
    }
    return tiers;
}

std::vector<std::string> names_in_tier(const tier_kind &kind, const std::vector<std::string> &names)
{
    std::vector<std::string> all = {tier_count_name(kind)};
    for (const std::string &name : names) {
        all.push_back(name);
        all.push_back(least_name(name));
        all.push_back(greatest_name(name));
        all.push_back(deviation_name(name));
    }
    return all;
}

machine_samples sample_machine(sampler &machine, unsigned count, double seconds)
{
    snapshot before = machine.take();
    machine_samples result;
    for (unsigned i = 0; i < count; ++i) {
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
        snapshot now = machine.take();
        readings found = readings_between(before, now);
        if (found.names != result.names) {
            // A device came or went: what is measured is the machine as it is now.
            result = {std::move(found.names), {}};
        }
        result.values.push_back(std::move(found.values));
        before = std::move(now);
    }
    if (result.names.empty()) {
        throw failure(exit_failed, "this machine gives no readings (is /proc there? 'vesk sensors' "
                                   "lists them)");
    }
    return result;
}

std::vector<std::string> names_in(const snapshot &what)
{
    std::vector<std::string> names;
    names.reserve(what.taken.size());
    for (const measurement &each : what.taken) {
        names.push_back(each.name);
    }
    return names;
}

box_plan plan_box(const size_options &sizes, int64_t interval, std::optional<uint32_t> event_bytes,
                  const machine_samples &samples)
{
    box_plan plan;
    plan.interval = interval;
    plan.event_bytes = sizes.event_bytes(event_bytes);
    plan.largest = largest_records(samples.names);
    plan.measured = try_samples(samples.names, samples.values);
    for (const tier_kind &kind : sizes.wanted_tiers(interval)) {
        plan.tiers.push_back({kind, kind.shape, largest_records(names_in_tier(kind, samples.names)),
                              scaled(plan.measured.records, values_of_sensor)});
    }
    if (!sizes.are_in_peoples_terms()) {
        plan.shape = complete_shape(sizes.shape);
        return plan;
    }
    size_wish wish = sizes.wish(interval, plan.event_bytes);
    wish.records = plan.largest;
    wish.rotation = plan.measured.rotation;
    for (tier_plan &tier : plan.tiers) {
        tier.shape = find_shape(wish_of_tier(wish, tier, &tier == &plan.tiers.back()));
    }
    leave_to_box(wish, plan.tiers);
    plan.shape = find_shape(wish);
    return plan;
}

} // namespace cli
