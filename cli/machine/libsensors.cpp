// Asks libsensors for every chip and every feature that it has found, and turns them into
// measurements with the same names as hwmon_files gives. A build without libsensors gets the
// functions at the end of this file, which do nothing. The number of chips and features is bounded.
#include "machine/libsensors.hpp"

#ifdef VESK_HAVE_LIBSENSORS

#include <cstdlib>
#include <fmt/format.h>
#include <limits>
#include <memory>
#include <optional>
#include <sensors/sensors.h>

#include "machine/hwmon.hpp"

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

std::string source_of(const sensors_chip_name &chip, const sensors_subfeature &value)
{
    return fmt::format("{}/{}", chip.path != nullptr ? chip.path : "/sys/class/hwmon", value.name);
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
            gauge{number}, source_of(chip, *value)};
    }
    return std::nullopt;
}

void measure_chip(const sensors_chip_name &chip, measurements &out)
{
    int number = 0;
    for (std::size_t i = 0; i < most_features; ++i) {
        const sensors_feature *feature = sensors_get_features(&chip, &number);
        if (feature == nullptr) {
            return;
        }
        if (auto found = measure_feature(chip, *feature)) {
            out.push_back(std::move(*found));
        }
    }
}

} // namespace

bool libsensors_is_there()
{
    return true;
}

bool libsensors_start()
{
    return sensors_init(nullptr) == 0;
}

void libsensors_end()
{
    sensors_cleanup();
}

void libsensors_measure(measurements &out)
{
    int number = 0;
    for (std::size_t i = 0; i < most_chips; ++i) {
        const sensors_chip_name *chip = sensors_get_detected_chips(nullptr, &number);
        if (chip == nullptr) {
            return;
        }
        measure_chip(*chip, out);
    }
}

} // namespace cli

#else

namespace cli
{

bool libsensors_is_there()
{
    return false;
}

bool libsensors_start()
{
    return false;
}

void libsensors_end() {}

void libsensors_measure(measurements &) {}

} // namespace cli

#endif
