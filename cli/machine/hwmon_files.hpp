// Reads the chips of /sys/class/hwmon as files. This serves machines below another root, and builds
// without libsensors. The names are those that libsensors gives, so that a box can be continued by
// either build.
#ifndef VESK_CLI_MACHINE_HWMON_FILES_HPP
#define VESK_CLI_MACHINE_HWMON_FILES_HPP

#include <string>
#include <vector>

#include "machine/machine_files.hpp"
#include "machine/measurement.hpp"

namespace cli
{

// The devices, sorted. A change means that a chip came or went.
std::vector<std::string> list_hwmon_devices(const machine_files &files);

// Names are those that libsensors gives: "k10temp-pci-00c3".
void measure_hwmon_files(const machine_files &files, measurements &out);

} // namespace cli

#endif
