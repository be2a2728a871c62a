// Measures the chips of hwmon, through libsensors if the command was built with it. libsensors
// notices no chip that comes or goes after its start, so it is started again whenever the list of
// devices has changed. A machine below another root is read as files, since libsensors only knows
// the running one.
#include "machine/hwmon.hpp"

#include <fmt/format.h>

#include "machine/hwmon_files.hpp"
#include "machine/libsensors.hpp"

namespace cli
{

std::string hwmon_name(const std::string &chip, const std::string &feature,
                       const std::string &label, const std::string &unit)
{
    std::string name = fmt::format("::hwmon.{}.{}", name_part(chip), name_part(feature));
    if (label != feature) {
        name += '.';
        name += name_part(label);
    }
    return fmt::format("{}_{}", name, unit);
}

bool has_libsensors()
{
    return libsensors_is_there();
}

hwmon_source::~hwmon_source()
{
    if (started_) {
        libsensors_end();
    }
}

void hwmon_source::look_again(std::vector<std::string> devices)
{
    if (started_) {
        libsensors_end();
    }
    started_ = libsensors_start();
    devices_ = std::move(devices);
    looked_ = true;
}

void hwmon_source::measure(const machine_files &files, measurements &out)
{
    if (!files.root().empty() || !has_libsensors()) {
        measure_hwmon_files(files, out);
        return;
    }
    std::vector<std::string> devices = list_hwmon_devices(files);
    if (!looked_ || devices != devices_) {
        look_again(std::move(devices));
    }
    if (started_) {
        libsensors_measure(out);
    }
}

} // namespace cli
