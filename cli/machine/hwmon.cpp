#include "machine/hwmon.hpp"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <limits>
#include <memory>
#include <optional>
#include <sensors/sensors.h>

namespace cli
{
namespace
{

struct reading_kind {
    sensors_feature_type feature;
    sensors_subfeature_type value;
    const char *unit;
};

// Power may come as an average only, so it has two rows.
constexpr reading_kind reading_kinds[] = {
    {SENSORS_FEATURE_TEMP, SENSORS_SUBFEATURE_TEMP_INPUT, "C"},
    {SENSORS_FEATURE_FAN, SENSORS_SUBFEATURE_FAN_INPUT, "RPM"},
    {SENSORS_FEATURE_IN, SENSORS_SUBFEATURE_IN_INPUT, "V"},
    {SENSORS_FEATURE_CURR, SENSORS_SUBFEATURE_CURR_INPUT, "A"},
    {SENSORS_FEATURE_POWER, SENSORS_SUBFEATURE_POWER_INPUT, "W"},
    {SENSORS_FEATURE_POWER, SENSORS_SUBFEATURE_POWER_AVERAGE, "W"},
    {SENSORS_FEATURE_HUMIDITY, SENSORS_SUBFEATURE_HUMIDITY_INPUT, "percent"},
};

std::string chip_text(const sensors_chip_name &chip)
{
    char text[256];
    const int length = sensors_snprintf_chip_name(text, sizeof text, &chip);
    return length > 0 ? std::string(text) : std::string(chip.prefix);
}

std::string label_of(const sensors_chip_name &chip, const sensors_feature &feature)
{
    const std::unique_ptr<char, decltype(&free)> label(sensors_get_label(&chip, &feature), &free);
    return label ? std::string(label.get()) : std::string(feature.name);
}

std::optional<measurement> measure_feature(const sensors_chip_name &chip,
                                           const sensors_feature &feature)
{
    for (const reading_kind &kind : reading_kinds) {
        const sensors_subfeature *value = kind.feature == feature.type
                                              ? sensors_get_subfeature(&chip, &feature, kind.value)
                                              : nullptr;
        if (value == nullptr) {
            continue;
        }
        double number = 0;
        if (sensors_get_value(&chip, value->number, &number) < 0) {
            number = std::numeric_limits<double>::quiet_NaN();
        }
        return measurement{
            hwmon_name(chip_text(chip), feature.name, label_of(chip, feature), kind.unit),
            gauge{number}};
    }
    return std::nullopt;
}

} // namespace

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

std::vector<std::string> hwmon_devices(const std::string &root)
{
    std::vector<std::string> devices;
    std::error_code error;
    std::filesystem::directory_iterator entry(root + "/sys/class/hwmon", error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        devices.push_back(entry->path().filename());
    }
    std::sort(devices.begin(), devices.end());
    return devices;
}

hwmon_source::hwmon_source(std::string root) : root_(std::move(root))
{
    look_again();
}

hwmon_source::~hwmon_source()
{
    if (started_) {
        sensors_cleanup();
    }
}

void hwmon_source::look_again()
{
    if (started_) {
        sensors_cleanup();
    }
    started_ = sensors_init(nullptr) == 0;
    devices_ = hwmon_devices(root_);
}

void hwmon_source::measure(measurements &out)
{
    if (hwmon_devices(root_) != devices_) {
        look_again();
    }
    if (!started_) {
        return;
    }
    int chip_number = 0;
    while (const sensors_chip_name *chip = sensors_get_detected_chips(nullptr, &chip_number)) {
        int feature_number = 0;
        while (const sensors_feature *feature = sensors_get_features(chip, &feature_number)) {
            if (auto found = measure_feature(*chip, *feature)) {
                out.push_back(std::move(*found));
            }
        }
    }
}

} // namespace cli
