// Processor, memory, disks and load, read through libproc2.
#ifndef VESK_CLI_MACHINE_PROCPS_HPP
#define VESK_CLI_MACHINE_PROCPS_HPP

#include <cstdint>
#include <memory>
#include <string>

#include "measurement.hpp"

struct stat_info;
struct meminfo_info;
struct vmstat_info;
struct diskstats_info;

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

class procps_source
{
public:
    procps_source();
    procps_source(const procps_source &) = delete;
    procps_source &operator=(const procps_source &) = delete;
    ~procps_source();

    // Adds what can be read; a part that cannot is left out.
    void measure(measurements &out);

private:
    void measure_processors(measurements &out);
    void measure_load(measurements &out);
    void measure_memory(measurements &out);
    void measure_paging(measurements &out);
    void measure_disks(measurements &out);

    struct stat_info *stat_ = nullptr;
    struct meminfo_info *meminfo_ = nullptr;
    struct vmstat_info *vmstat_ = nullptr;
    struct diskstats_info *diskstats_ = nullptr;
};

} // namespace cli

#endif
