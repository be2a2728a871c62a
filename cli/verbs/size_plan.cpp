// Samples the machine, tries the samples in small boxes, and finds the shape that fits. `vesk
// record` and `vesk estimate` both use it, so that one makes what the other has told.
#include "verbs/size_plan.hpp"

#include <algorithm>
#include <chrono>
#include <thread>

#include "machine/rates.hpp"
#include "process/failure.hpp"

namespace cli
{

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
    plan.event_bytes = sizes.event_bytes(event_bytes);
    plan.largest = largest_records(samples.names);
    plan.measured = try_samples(samples.names, samples.values);
    if (!sizes.are_in_peoples_terms()) {
        plan.shape = complete_shape(sizes.shape);
        return plan;
    }
    size_wish wish = sizes.wish(interval, plan.event_bytes);
    wish.records = plan.largest;
    wish.rotation = plan.measured.rotation;
    plan.shape = find_shape(wish);
    return plan;
}

} // namespace cli
