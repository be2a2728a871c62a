// Measures the traffic of disks from /proc/diskstats. The text of that file goes in, counters for
// each disk come out; their growth becomes a rate later.
#ifndef VESK_CLI_MACHINE_DISKS_HPP
#define VESK_CLI_MACHINE_DISKS_HPP

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "machine/machine_files.hpp"
#include "machine/measurement.hpp"

namespace cli
{

// The counts of one disk since the machine started. @p waited_ms is the time from the request to
// its end, summed over the requests that ended.
struct disk_counts {
    uint64_t reads, read_sectors, read_waited_ms;
    uint64_t writes, written_sectors, write_waited_ms;
    uint64_t busy_ms, weighted_ms;
};

struct disk_line {
    std::string name;
    disk_counts counts;
};

// At most so many disks are measured.
constexpr std::size_t most_disks = 256;

// Disks and partitions that were ever used: unused loop devices are listed by the dozen.
std::vector<disk_line> parse_disks(std::string_view text);

void measure_disk(const std::string &name, const disk_counts &counts, measurements &out);

// Whole disks only.
void measure_disks(const machine_files &files, measurements &out);

} // namespace cli

#endif
