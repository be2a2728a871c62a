// Chooses the shape of a box from what the user wants of it and from the sensors of this machine.
#ifndef VESK_CLI_VERBS_SIZE_PLAN_HPP
#define VESK_CLI_VERBS_SIZE_PLAN_HPP

#include <cstdint>
#include <string>
#include <vector>

#include "box/tier_recorder.hpp"
#include "box/trial_box.hpp"
#include "machine/sampler.hpp"
#include "verbs/size_options.hpp"

namespace cli
{

// Samples of the machine, all with values for the same sensors.
struct machine_samples {
    std::vector<std::string> names;
    std::vector<std::vector<float>> values;
};

// Takes @p count samples, with @p seconds before each of them, because rates need two looks. Throws
// a failure when the machine gives none.
machine_samples sample_machine(sampler &machine, unsigned count, double seconds);

// The names of the sensors in a snapshot.
std::vector<std::string> names_in(const snapshot &what);

struct tier_plan {
    tier_kind kind;
    whole_shape shape;
    record_bytes largest;
    record_bytes usual;

    sized_box sized() const { return {shape, kind.period, largest, 0}; }
};

struct box_plan {
    whole_shape shape;
    int64_t interval = 1;
    uint64_t event_bytes = 0;
    record_bytes largest;
    trial_result measured;
    std::vector<tier_plan> tiers; // from the finest to the coarsest

    sized_box sized() const { return {shape, interval, largest, event_bytes}; }
};

// What a recording makes where it is not there yet.
struct recording_plan {
    box_shape shape;
    std::vector<wanted_tier> tiers;
};

// @p tiers and those that the box on @p base has already; none where the options ask for none.
std::vector<wanted_tier> with_tiers_that_are_there(std::vector<wanted_tier> tiers,
                                                   const std::string &base,
                                                   const size_options &sizes);

// The names of the sensors of a tier, where all sensors have extremes.
std::vector<std::string> names_in_tier(const tier_kind &kind,
                                       const std::vector<std::string> &names);

// @p event_bytes are those that the user wants, if any. Throws a usage failure where no box is as
// it is wanted.
box_plan plan_box(const size_options &sizes, int64_t interval, std::optional<uint32_t> event_bytes,
                  const machine_samples &samples);

} // namespace cli

#endif
