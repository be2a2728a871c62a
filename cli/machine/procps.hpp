// Processor, memory, disks and load, read through libproc2.
#ifndef VESK_CLI_MACHINE_PROCPS_HPP
#define VESK_CLI_MACHINE_PROCPS_HPP

#include <cstdint>
#include <string>

#include "machine/measurement.hpp"

namespace cli
{

// The ticks of one processor, or of all, since the machine started.
struct processor_ticks {
    uint64_t user, nice, system, idle, iowait, irq, softirq, steal;
};

// The counts of one disk since the machine started.
struct disk_counts {
    uint64_t reads, read_sectors, writes, written_sectors, busy_ms, weighted_ms;
};

void measure_processor(const std::string &name, const processor_ticks &ticks, measurements &out);
// A disk that was never used is left out: unused loop devices are listed by the dozen.
void measure_disk(const std::string &name, const disk_counts &counts, measurements &out);

// Adds what can be read of processors, load, memory, paging and disks; a part that cannot is left
// out.
void measure_procps(measurements &out);

} // namespace cli

#endif
