// Measures processors, load and uptime from /proc/stat, /proc/loadavg and /proc/uptime. The parsers
// take the text of the file, so that they can be tested with texts of other machines.
#ifndef VESK_CLI_MACHINE_PROCESSORS_HPP
#define VESK_CLI_MACHINE_PROCESSORS_HPP

#include <cstdint>
#include <string>
#include <string_view>

#include "machine/machine_files.hpp"
#include "machine/measurement.hpp"

namespace cli
{

// The ticks of one processor, or of all, since the machine started.
struct processor_ticks {
    uint64_t user, nice, system, idle, iowait, irq, softirq, steal;
};

// On a machine with more processors, only the total and the first ones are measured.
constexpr std::size_t most_processors = 1024;

void measure_processor(const std::string &name, const processor_ticks &ticks, measurements &out);

void parse_stat(std::string_view text, measurements &out);
void parse_load(std::string_view text, measurements &out);
void parse_uptime(std::string_view text, measurements &out);

void measure_processors(const machine_files &files, measurements &out);
void measure_load(const machine_files &files, measurements &out);

} // namespace cli

#endif
