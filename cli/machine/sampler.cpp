#include "machine/sampler.hpp"

#include <algorithm>
#include <string_view>
#include <unordered_set>

#include "machine/proc_files.hpp"
#include "machine/procps.hpp"
#include "process/clock.hpp"

namespace cli
{
namespace
{

// Two features may carry the same label, and a name may stand in a header line only once.
void drop_repeated_names(measurements &taken)
{
    std::unordered_set<std::string> seen;
    taken.erase(std::remove_if(taken.begin(), taken.end(),
                               [&](const measurement &m) { return !seen.insert(m.name).second; }),
                taken.end());
}

} // namespace

snapshot sampler::take()
{
    snapshot result;
    result.seconds = monotonic_seconds();
    measure_procps(result.taken);
    measure_network(root_, result.taken);
    measure_pressure(root_, result.taken);
    hwmon_.measure(result.taken);
    drop_repeated_names(result.taken);
    return result;
}

} // namespace cli
