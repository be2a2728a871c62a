// Takes one snapshot of the machine by asking each source whose group is wanted. A name that comes
// twice is dropped, as are sensors beyond the number that a box can name. When no file descriptor
// was left to read with, the snapshot is empty: one that lacks half of its sensors would look as if
// these had gone.
#include "machine/sampler.hpp"

#include <algorithm>
#include <string_view>
#include <unordered_set>

#include "machine/cgroups.hpp"
#include "machine/disks.hpp"
#include "machine/kernel_tables.hpp"
#include "machine/memory.hpp"
#include "machine/network.hpp"
#include "machine/power.hpp"
#include "machine/pressure.hpp"
#include "machine/processors.hpp"
#include "machine/redundancy.hpp"
#include "machine/sockets.hpp"
#include "machine/temperature.hpp"
#include "machine/text_fields.hpp"
#include "process/clock.hpp"

namespace cli
{
namespace
{

// A source, and the groups of what it gives, separated by blanks.
struct source {
    std::string_view groups;
    void (*measure)(const machine_files &files, measurements &out);
};

constexpr source sources[] = {
    {"cpu kernel", measure_processors},
    {"load kernel", measure_load},
    {"mem swap", measure_memory},
    {"disk", measure_disks},
    {"net", measure_network},
    {"wireless", measure_wireless},
    {"tcp udp sockets", measure_sockets},
    {"pressure", measure_pressure},
    {"cgroup", measure_cgroups},
    {"files", measure_open_files},
    {"conntrack", measure_conntrack},
    {"thermal", measure_thermal_zones},
    {"cpufreq", measure_frequency},
    {"power", measure_supplies},
    {"rapl", measure_energy},
    {"edac", measure_memory_errors},
    {"md", measure_arrays},
};

bool wants_any(const sensor_choice &choice, std::string_view groups)
{
    while (!groups.empty()) {
        if (choice.wants_group(cut(groups, ' '))) {
            return true;
        }
    }
    return false;
}

// Two features may carry the same label, and a name may stand in a header line only once.
void drop_unwanted(const sensor_choice &choice, measurements &taken)
{
    std::unordered_set<std::string_view> seen;
    measurements kept;
    kept.reserve(taken.size());
    for (measurement &m : taken) {
        if (kept.size() < most_sensors && choice.wants(m.name) && !seen.contains(m.name)) {
            kept.push_back(std::move(m));
            seen.insert(kept.back().name);
        }
    }
    taken = std::move(kept);
}

} // namespace

snapshot sampler::take()
{
    snapshot result;
    result.seconds = monotonic_seconds();
    const bool with_file_systems = choice_.wants_group("fs");
    if (with_file_systems) {
        file_systems_.ask(files_);
    }
    for (const source &each : sources) {
        if (wants_any(choice_, each.groups)) {
            each.measure(files_, result.taken);
        }
    }
    if (with_file_systems) {
        file_systems_.measure(files_, result.taken);
    }
    if (choice_.wants_group("hwmon")) {
        hwmon_.measure(files_, result.taken);
    }
    if (files_.take_starved()) {
        result.taken.clear();
    }
    drop_unwanted(choice_, result.taken);
    return result;
}

} // namespace cli
