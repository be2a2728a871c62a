// Measures how fast the processors run, and temperatures where no chip of hwmon measures them. Some
// kernels need 10 ms to measure one frequency, so only so many processors are asked.
#ifndef VESK_CLI_MACHINE_TEMPERATURE_HPP
#define VESK_CLI_MACHINE_TEMPERATURE_HPP

#include "machine/machine_files.hpp"
#include "machine/measurement.hpp"

namespace cli
{

// The frequency of at most so many processors is read: some kernels measure it for 10 ms each.
constexpr std::size_t most_frequencies = 64;
constexpr std::size_t most_thermal_zones = 64;

// The least, the mean and the largest frequency, and how often a processor or its package was
// slowed down because it was hot.
void measure_frequency(const machine_files &files, measurements &out);

void measure_thermal_zones(const machine_files &files, measurements &out);

} // namespace cli

#endif
