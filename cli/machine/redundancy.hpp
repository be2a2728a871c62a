// Measures damage that the machine still survives: memory errors that were corrected, and arrays of
// disks that have lost a disk.
#ifndef VESK_CLI_MACHINE_REDUNDANCY_HPP
#define VESK_CLI_MACHINE_REDUNDANCY_HPP

#include <string_view>

#include "machine/machine_files.hpp"
#include "machine/measurement.hpp"

namespace cli
{

constexpr std::size_t most_memory_controllers = 32;
constexpr std::size_t most_arrays = 64;

void measure_memory_errors(const machine_files &files, measurements &out);

void parse_arrays(std::string_view text, measurements &out);
void measure_arrays(const machine_files &files, measurements &out);

} // namespace cli

#endif
