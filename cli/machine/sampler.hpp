// Takes one snapshot of the machine: reads all sources that are wanted and does no arithmetic with
// what they give. It never waits long, so that samples stay on time.
#ifndef VESK_CLI_MACHINE_SAMPLER_HPP
#define VESK_CLI_MACHINE_SAMPLER_HPP

#include <string>

#include "machine/file_systems.hpp"
#include "machine/groups.hpp"
#include "machine/hwmon.hpp"
#include "machine/machine_files.hpp"
#include "machine/measurement.hpp"

namespace cli
{

// At most so many sensors are taken: a box has room for 10000 names in all its life.
constexpr std::size_t most_sensors = 8000;

class sampler
{
public:
    // @p root stands before all paths, "" for the machine itself.
    explicit sampler(std::string root = "", sensor_choice choice = {})
        : files_(std::move(root)), choice_(std::move(choice))
    {
    }

    // Takes nothing when there are no descriptors left to look with.
    snapshot take();

private:
    machine_files files_;
    sensor_choice choice_;
    file_system_source file_systems_;
    hwmon_source hwmon_;
};

} // namespace cli

#endif
