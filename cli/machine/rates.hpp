// Turns two snapshots of the machine into the values that are recorded: gauges as they are,
// counters as rates, sums as means. There are no system calls here.
#ifndef VESK_CLI_MACHINE_RATES_HPP
#define VESK_CLI_MACHINE_RATES_HPP

#include <string>
#include <vector>

#include "machine/measurement.hpp"

namespace cli
{

struct readings {
    std::vector<std::string> names;
    std::vector<float> values;
};

// Gauges stand for themselves. All others need an earlier count, so it appears with
// the second snapshot that has it; when it has gone backwards (a device was replaced, a counter
// reset), its value is missing this once.
readings readings_between(const snapshot &before, const snapshot &now);

} // namespace cli

#endif
