// The files, each of which holds one number or word:
//   /sys/devices/system/cpu/cpufreq/policy*/scaling_cur_freq    kHz
//   /sys/devices/system/cpu/cpu*/thermal_throttle/*_throttle_count
//   /sys/class/thermal/thermal_zone*/{type,temp}                thousandths of a degree
#include "machine/temperature.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <optional>

#include "machine/text_fields.hpp"

namespace cli
{
namespace
{

// Kernels before 5.18 may sleep for each processor whose frequency was not read within the last
// second.
constexpr std::chrono::milliseconds time_limit(100);

constexpr const char *processors = "/sys/devices/system/cpu";

std::vector<double> read_frequencies(const machine_files &files)
{
    const std::string folder = std::string(processors) + "/cpufreq";
    const auto start = std::chrono::steady_clock::now();
    std::vector<double> found;
    for (const std::string &policy : files.list(folder, "policy", most_frequencies)) {
        const auto kilohertz =
            files.read_number(fmt::format("{}/{}/scaling_cur_freq", folder, policy));
        if (kilohertz && !std::isnan(*kilohertz)) {
            found.push_back(*kilohertz / 1000);
        }
        if (std::chrono::steady_clock::now() - start > time_limit) {
            break;
        }
    }
    return found;
}

// Each processor has its own count, and all processors of a package show the same count of that
// package.
struct throttle_counts {
    std::optional<uint64_t> of_cores;
    std::optional<uint64_t> of_package;
};

std::optional<uint64_t> read_count(const machine_files &files, const std::string &path)
{
    return parse_count(files.read_word(path));
}

throttle_counts read_throttle_counts(const machine_files &files)
{
    throttle_counts counts;
    std::size_t asked = 0;
    for (const std::string &name : files.list(processors, "cpu", machine_files::most_entries)) {
        const bool is_processor = parse_count(std::string_view(name).substr(3)).has_value();
        if (!is_processor || asked >= most_frequencies) {
            continue;
        }
        const std::string folder = fmt::format("{}/{}/thermal_throttle/", processors, name);
        const auto core = read_count(files, folder + "core_throttle_count");
        const auto package = read_count(files, folder + "package_throttle_count");
        if (!core) {
            break; // no processor of this kind counts
        }
        counts.of_cores = counts.of_cores.value_or(0) + *core;
        if (package) {
            counts.of_package = std::max(counts.of_package.value_or(0), *package);
        }
        ++asked;
    }
    return counts;
}

} // namespace

void measure_frequency(const machine_files &files, measurements &out)
{
    const std::vector<double> found = read_frequencies(files);
    if (!found.empty()) {
        const std::string source = files.full_path(fmt::format("{}/cpufreq", processors));
        const auto [least, largest] = std::minmax_element(found.begin(), found.end());
        double sum = 0;
        for (const double each : found) {
            sum += each;
        }
        out.push_back({"::cpufreq.min_MHz", gauge{*least}, source});
        out.push_back(
            {"::cpufreq.mean_MHz", gauge{sum / static_cast<double>(found.size())}, source});
        out.push_back({"::cpufreq.max_MHz", gauge{*largest}, source});
    }
    const throttle_counts counts = read_throttle_counts(files);
    const std::string source = files.full_path(fmt::format("{}/cpu*/thermal_throttle", processors));
    if (counts.of_cores) {
        out.push_back({"::cpufreq.core_throttles_per_s", counter{*counts.of_cores, 1}, source});
    }
    if (counts.of_package) {
        out.push_back(
            {"::cpufreq.package_throttles_per_s", counter{*counts.of_package, 1}, source});
    }
}

void measure_thermal_zones(const machine_files &files, measurements &out)
{
    const std::string folder = "/sys/class/thermal/";
    for (const std::string &zone : files.list(folder, "thermal_zone", most_thermal_zones)) {
        // The same temperature as a chip of hwmon.
        if (!files.list(folder + zone, "hwmon", 1).empty()) {
            continue;
        }
        const std::string type = files.read_word(folder + zone + "/type");
        files.add_gauge(fmt::format("::thermal.{}.{}_C", name_part(zone), name_part(type)),
                        folder + zone + "/temp", 0.001, out);
    }
}

} // namespace cli
