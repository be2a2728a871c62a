// Measures batteries, mains and the energy of the processors. Each file holds one whole number, in
// millionths of a unit: microvolts, microwatts, microjoules.
#include "machine/power.hpp"

#include <fmt/format.h>

#include "machine/text_fields.hpp"

namespace cli
{
namespace
{

void measure_mains(const machine_files &files, const std::string &prefix, const std::string &folder,
                   measurements &out)
{
    files.add_gauge(prefix + "online_flag", folder + "/online", 1, out);
}

void measure_battery(const machine_files &files, const std::string &prefix,
                     const std::string &folder, measurements &out)
{
    files.add_gauge(prefix + "charge_percent", folder + "/capacity", 1, out);
    files.add_gauge(prefix + "voltage_V", folder + "/voltage_now", 1e-6, out);
    files.add_gauge(prefix + "power_W", folder + "/power_now", 1e-6, out);
    files.add_gauge(prefix + "current_A", folder + "/current_now", 1e-6, out);
    const std::string status = files.read_word(folder + "/status");
    if (!status.empty()) {
        out.push_back({prefix + "discharging_flag", gauge{status == "Discharging" ? 1.0 : 0.0},
                       files.full_path(folder + "/status")});
    }
}

// Zones are "intel-rapl:0" with parts "intel-rapl:0:1", whatever made the processor. The names of
// parts are those of their zone with their own behind.
std::string energy_name(const machine_files &files, const std::string &folder,
                        const std::string &zone)
{
    const std::string own = name_part(files.read_word(folder + zone + "/name"));
    const auto last = zone.rfind(':');
    const bool is_part = last != std::string::npos && last != zone.find(':');
    if (!is_part) {
        return own;
    }
    return name_part(files.read_word(folder + zone.substr(0, last) + "/name")) + "." + own;
}

} // namespace

void measure_supplies(const machine_files &files, measurements &out)
{
    const std::string classes = "/sys/class/power_supply/";
    for (const std::string &name : files.list(classes, "", most_supplies)) {
        const std::string folder = classes + name;
        const std::string type = files.read_word(folder + "/type");
        const std::string prefix = fmt::format("::power.{}.", name_part(name));
        if (files.read_word(folder + "/scope") == "Device") {
            continue;
        }
        if (type == "Battery" || type == "UPS") {
            measure_battery(files, prefix, folder, out);
        } else if (type == "Mains" || type == "USB") {
            measure_mains(files, prefix, folder, out);
        }
    }
}

void measure_energy(const machine_files &files, measurements &out)
{
    const std::string folder = "/sys/class/powercap/";
    for (const std::string &zone : files.list(folder, "intel-rapl:", most_energy_zones)) {
        files.add_counter(fmt::format("::rapl.{}_W", energy_name(files, folder, zone)),
                          folder + zone + "/energy_uj", 1e-6, out);
    }
}

} // namespace cli
