// A line of /proc/diskstats is
//   MAJOR MINOR NAME READS MERGED SECTORS MS WRITES MERGED SECTORS MS IN_FLIGHT BUSY_MS WEIGHTED_MS
// and, with newer kernels, the same of discards and flushes.
#include "machine/disks.hpp"

#include <algorithm>
#include <array>
#include <fmt/format.h>

#include "machine/text_fields.hpp"

namespace cli
{
namespace
{

constexpr uint64_t sector_size = 512; // of the counters, whatever the disk's own is

// Partitions are listed with the disks; there may be many of each.
constexpr std::size_t most_lines = 16 * most_disks;

// /sys/block has whole disks only. A name with a slash ("cciss/c0d0") stands there with "!".
bool is_whole_disk(const machine_files &files, std::string name)
{
    std::replace(name.begin(), name.end(), '/', '!');
    return name != "." && name != ".." && files.exists("/sys/block/" + name);
}

} // namespace

std::vector<disk_line> parse_disks(std::string_view text)
{
    std::vector<disk_line> disks;
    while (!text.empty() && disks.size() < most_lines) {
        std::string_view line = cut(text, '\n');
        cut_word(line);
        cut_word(line);
        const std::string_view name = cut_word(line);
        std::array<uint64_t, 11> n = {};
        const bool whole = parse_counts(line, n) == n.size();
        if (!whole || name.size() > longest_name_part || (n[0] == 0 && n[4] == 0)) {
            continue;
        }
        disks.push_back({std::string(name), {n[0], n[2], n[3], n[4], n[6], n[7], n[9], n[10]}});
    }
    return disks;
}

void measure_disk(const std::string &name, const disk_counts &counts, measurements &out)
{
    const std::string prefix = fmt::format("::disk.{}.", name_part(name));
    const auto add = [&](const char *what, uint64_t count, double unit) {
        out.push_back({prefix + what, counter{count, unit}});
    };
    add("reads_per_s", counts.reads, 1);
    add("read_bytes_per_s", counts.read_sectors, sector_size);
    add("writes_per_s", counts.writes, 1);
    add("write_bytes_per_s", counts.written_sectors, sector_size);
    // Milliseconds in a second: a tenth of a percent each.
    add("busy_percent", counts.busy_ms, 0.1);
    add("queue_length", counts.weighted_ms, 0.001);
    out.push_back({prefix + "read_await_ms", mean_of_new{counts.read_waited_ms, counts.reads, 1}});
    out.push_back(
        {prefix + "write_await_ms", mean_of_new{counts.write_waited_ms, counts.writes, 1}});
}

void measure_disks(const machine_files &files, measurements &out)
{
    const auto parse = [&](std::string_view text, measurements &found) {
        std::size_t measured = 0;
        for (const disk_line &disk : parse_disks(text)) {
            if (measured < most_disks && is_whole_disk(files, disk.name)) {
                measure_disk(disk.name, disk.counts, found);
                ++measured;
            }
        }
    };
    files.parse_file("/proc/diskstats", parse, out);
}

} // namespace cli
