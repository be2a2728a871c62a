// One look at the machine: reads, and nothing else.
#ifndef VESK_CLI_MACHINE_SAMPLER_HPP
#define VESK_CLI_MACHINE_SAMPLER_HPP

#include <string>

#include "machine/hwmon.hpp"
#include "machine/measurement.hpp"

namespace cli
{

class sampler
{
public:
    // @p root stands before the paths that are read by hand, "" for the machine itself.
    explicit sampler(std::string root = "") : root_(std::move(root)), hwmon_(root_) {}

    snapshot take();

private:
    std::string root_;
    hwmon_source hwmon_;
};

} // namespace cli

#endif
