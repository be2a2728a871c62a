// Tiers of a box: boxes beside it, BASE.1m and BASE.1h, that hold one row for each minute or hour
// of the same recording, so that it reaches back farther than one box can.
//
// A tier is an ordinary box. It is known as a tier by the sensor that counts the samples of a row.
// A row has the time of its last sample. Behind the names of sensors stand the means; least and
// greatest value and standard deviation of "::cpu.busy" are "::min.cpu.busy", "::max.cpu.busy" and
// "::dev.cpu.busy", so that a pattern such as 'cpu.*' chooses means only and the unit stays at the
// end of the name.
#ifndef VESK_CLI_BOX_TIER_HPP
#define VESK_CLI_BOX_TIER_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "box/box_shape.hpp"

namespace cli
{

struct tier_kind {
    std::string_view name; // "1m": what stands behind the base name of the box
    int64_t period;        // in seconds; rows end at whole multiples of it
    whole_shape shape;     // of a new tier, where nobody asks for another
};

// From the finest to the coarsest.
const std::vector<tier_kind> &all_tiers();
// Nothing where no tier has this name.
const tier_kind *find_tier(std::string_view name);

// "BASE.1m".
std::string tier_base(const std::string &base, const tier_kind &kind);
// The sensor of a tier that counts the samples of a row: "::tier.1m.samples_count".
std::string tier_count_name(const tier_kind &kind);

// The sensors of a tier that hold extremes and standard deviation of @p sensor.
std::string least_name(std::string_view sensor);
std::string greatest_name(std::string_view sensor);
std::string deviation_name(std::string_view sensor);

// Where the period begins and ends that holds @p time: behind the first, up to the second.
int64_t period_end(int64_t time, int64_t period);

// Whether the box on @p base is that tier; nothing when there is no such box. One that names no
// sensor, because it is empty or damaged, counts as one. Throws a failure where it cannot be read.
std::optional<bool> is_tier(const std::string &base, const tier_kind &kind);

// The same, but also true of one that cannot be read: what is done with it then throws the failure,
// which costs this tier only. Throws a failure where it cannot be told whether there is such a box.
bool may_be_tier(const std::string &base, const tier_kind &kind);

} // namespace cli

#endif
