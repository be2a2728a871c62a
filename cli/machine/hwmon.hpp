// Temperatures, fans, voltages, currents and power: through libsensors, which knows the settings of
// the administrator, or from /sys/class/hwmon where the command was built without it.
#ifndef VESK_CLI_MACHINE_HWMON_HPP
#define VESK_CLI_MACHINE_HWMON_HPP

#include <string>
#include <vector>

#include "machine/machine_files.hpp"
#include "machine/measurement.hpp"

namespace cli
{

// At most so many chips are measured, and so many values of each.
constexpr std::size_t most_chips = 128;
constexpr std::size_t most_features = 256;

// ::hwmon.CHIP.FEATURE.LABEL_UNIT, or ::hwmon.CHIP.FEATURE_UNIT where the label says nothing more.
std::string hwmon_name(const std::string &chip, const std::string &feature,
                       const std::string &label, const std::string &unit);

// Whether the command was built with libsensors.
bool has_libsensors();

class hwmon_source
{
public:
    hwmon_source() = default;
    hwmon_source(const hwmon_source &) = delete;
    hwmon_source &operator=(const hwmon_source &) = delete;
    ~hwmon_source();

    // A chip that is there and cannot be read gives NaN. libsensors knows the machine itself only:
    // the chips below another root are read as files.
    void measure(const machine_files &files, measurements &out);

private:
    // libsensors looks for chips only when it starts.
    void look_again(std::vector<std::string> devices);

    std::vector<std::string> devices_;
    bool looked_ = false;
    bool started_ = false;
};

} // namespace cli

#endif
