// Measures how full two tables of the kernel are: open files and tracked connections.
// /proc/sys/fs/file-nr is "ALLOCATED FREE LIMIT", and the kernel always writes 0 for FREE, so that
// number is not used. A file of another form gives no sensor.
#include "machine/kernel_tables.hpp"

#include <array>

#include "machine/text_fields.hpp"

namespace cli
{

void parse_open_files(std::string_view text, measurements &out)
{
    std::array<uint64_t, 3> counts = {};
    if (parse_counts(cut(text, '\n'), counts) == counts.size()) {
        out.push_back({"::files.open_count", gauge{static_cast<double>(counts[0])}});
        out.push_back({"::files.limit_count", gauge{static_cast<double>(counts[2])}});
    }
}

void measure_open_files(const machine_files &files, measurements &out)
{
    files.parse_file("/proc/sys/fs/file-nr", parse_open_files, out);
}

void measure_conntrack(const machine_files &files, measurements &out)
{
    const std::string folder = "/proc/sys/net/netfilter/";
    files.add_gauge("::conntrack.entries_count", folder + "nf_conntrack_count", 1, out);
    files.add_gauge("::conntrack.limit_count", folder + "nf_conntrack_max", 1, out);
}

} // namespace cli
