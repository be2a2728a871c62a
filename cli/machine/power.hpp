// Measures batteries and mains from /sys/class/power_supply, and the power of the processors from
// /sys/class/powercap. The number of devices is bounded.
#ifndef VESK_CLI_MACHINE_POWER_HPP
#define VESK_CLI_MACHINE_POWER_HPP

#include "machine/machine_files.hpp"
#include "machine/measurement.hpp"

namespace cli
{

constexpr std::size_t most_supplies = 16;
constexpr std::size_t most_energy_zones = 32;

// Batteries of attached devices, such as a mouse, are left out.
void measure_supplies(const machine_files &files, measurements &out);

// Power as the growth of energy (RAPL). Most kernels let the administrator only read it.
void measure_energy(const machine_files &files, measurements &out);

} // namespace cli

#endif
