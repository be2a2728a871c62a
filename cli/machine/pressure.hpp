// Measures how long tasks waited for processors, memory, disks and interrupts, from /proc/pressure
// and the files of the same form that cgroups have.
#ifndef VESK_CLI_MACHINE_PRESSURE_HPP
#define VESK_CLI_MACHINE_PRESSURE_HPP

#include <string_view>

#include "machine/machine_files.hpp"
#include "machine/measurement.hpp"

namespace cli
{

// The names are PREFIX some_percent and PREFIX full_percent.
void parse_pressure(std::string_view prefix, std::string_view text, measurements &out);

// /proc/pressure/{cpu,io,memory,irq}; what the kernel has not is left out.
void measure_pressure(const machine_files &files, measurements &out);

} // namespace cli

#endif
