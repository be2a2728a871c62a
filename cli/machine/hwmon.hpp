// Temperatures, fans, voltages, currents and power, read through libsensors.
#ifndef VESK_CLI_MACHINE_HWMON_HPP
#define VESK_CLI_MACHINE_HWMON_HPP

#include <string>
#include <vector>

#include "machine/measurement.hpp"

namespace cli
{

// ::hwmon.CHIP.FEATURE.LABEL_UNIT, or ::hwmon.CHIP.FEATURE_UNIT where the label says nothing more.
std::string hwmon_name(const std::string &chip, const std::string &feature,
                       const std::string &label, const std::string &unit);

// The devices of ROOT/sys/class/hwmon, sorted. A change means that a chip came or went.
std::vector<std::string> hwmon_devices(const std::string &root);

class hwmon_source
{
public:
    explicit hwmon_source(std::string root);
    hwmon_source(const hwmon_source &) = delete;
    hwmon_source &operator=(const hwmon_source &) = delete;
    ~hwmon_source();

    // A chip that is there and cannot be read gives NaN.
    void measure(measurements &out);

private:
    // libsensors looks for chips only when it starts.
    void look_again();

    std::string root_;
    std::vector<std::string> devices_;
    bool started_ = false;
};

} // namespace cli

#endif
