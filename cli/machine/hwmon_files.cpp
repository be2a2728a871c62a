// A chip is a folder hwmon*, with its driver in `name`, the device that it belongs to as the link
// `device`, and for each value a file such as temp1_input, fan2_input, in0_input, with temp1_label
// beside it. Numbers are whole, in units that the table below has.
#include "machine/hwmon_files.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <fmt/format.h>
#include <optional>

#include "machine/hwmon.hpp"
#include "machine/text_fields.hpp"

namespace cli
{
namespace
{

constexpr const char *class_folder = "/sys/class/hwmon/";

struct reading_kind {
    std::string_view feature; // with a number behind it
    std::string_view value;
    const char *unit;
    double factor;
};

// If a chip measures the present and the average power, the present one counts: the second use of
// the name is dropped.
constexpr reading_kind reading_kinds[] = {
    {"temp", "_input", "C", 1e-3},
    {"fan", "_input", "RPM", 1},
    {"in", "_input", "V", 1e-3},
    {"curr", "_input", "A", 1e-3},
    {"power", "_input", "W", 1e-6},
    {"power", "_average", "W", 1e-6},
    {"humidity", "_input", "percent", 1e-3},
};

// "temp12" of "temp12_input", where the kind fits.
std::optional<std::string> feature_of(std::string_view file, const reading_kind &kind)
{
    if (!file.starts_with(kind.feature) || !file.ends_with(kind.value)) {
        return std::nullopt;
    }
    const std::string_view feature = file.substr(0, file.size() - kind.value.size());
    if (feature.size() <= kind.feature.size() ||
        !parse_count(feature.substr(kind.feature.size()))) {
        return std::nullopt;
    }
    return std::string(feature);
}

// The numbers of a name such as "0000:03:00.0", in base 16.
template <std::size_t size>
std::optional<std::array<unsigned, size>> parse_address(std::string_view text,
                                                        std::string_view separators)
{
    std::array<unsigned, size> parts = {};
    for (std::size_t i = 0; i < size; ++i) {
        const std::string_view part = text.substr(0, text.find_first_of(separators));
        const char *end = part.data() + part.size();
        const auto result = std::from_chars(part.data(), end, parts[i], 16);
        if (result.ec != std::errc() || result.ptr != end) {
            return std::nullopt;
        }
        text.remove_prefix(std::min(text.size(), part.size() + 1));
    }
    return parts;
}

std::string pci_address(std::string_view device)
{
    const auto parts = parse_address<4>(device, ":.");
    if (!parts) {
        return "pci";
    }
    const auto [domain, bus, slot, function] = *parts;
    return fmt::format("pci-{:04x}", (domain << 16) + (bus << 8) + (slot << 3) + function);
}

std::string i2c_address(std::string_view device)
{
    std::string_view address = device;
    const auto bus = parse_count(cut(address, '-'));
    const auto parts = parse_address<1>(address, "");
    return bus && parts ? fmt::format("i2c-{}-{:02x}", *bus, (*parts)[0]) : "i2c";
}

// "coretemp.1" is number 1, "nct6775.656" is at address 0x290.
std::string platform_address(std::string_view device)
{
    const auto number = parse_count(device.substr(device.rfind('.') + 1));
    return fmt::format("isa-{:04x}", number.value_or(0));
}

// The second part of the name of a chip, after its device @p folder.
std::string bus_address(const machine_files &files, const std::string &folder)
{
    const std::string device = files.link_target_name(folder);
    if (device.empty()) {
        return "virtual-0";
    }
    const std::string bus = files.link_target_name(folder + "/subsystem");
    if (bus == "pci") {
        return pci_address(device);
    }
    if (bus == "i2c") {
        return i2c_address(device);
    }
    if (bus == "platform" || bus == "of_platform") {
        return platform_address(device);
    }
    if (bus == "acpi") {
        return "acpi-0";
    }
    const std::string behind = files.link_target_name(folder + "/device");
    if (bus == "nvme" && !behind.empty()) {
        return pci_address(behind);
    }
    return bus.empty() ? "virtual-0" : bus + "-" + device;
}

void measure_chip(const machine_files &files, const std::string &folder, measurements &out)
{
    const std::string driver = files.read_word(folder + "/name");
    if (driver.empty()) {
        return;
    }
    const std::string chip = fmt::format("{}-{}", driver, bus_address(files, folder + "/device"));
    const std::vector<std::string> all = files.list(folder, "", machine_files::most_entries);
    std::size_t features = 0;
    for (const reading_kind &kind : reading_kinds) {
        for (const std::string &file : all) {
            const auto feature = feature_of(file, kind);
            if (!feature || features >= most_features) {
                continue;
            }
            const std::string label = files.read_word(fmt::format("{}/{}_label", folder, *feature));
            files.add_gauge(hwmon_name(chip, *feature, label.empty() ? *feature : label, kind.unit),
                            fmt::format("{}/{}", folder, file), kind.factor, out);
            ++features;
        }
    }
}

} // namespace

std::vector<std::string> list_hwmon_devices(const machine_files &files)
{
    return files.list(class_folder, "hwmon", most_chips);
}

void measure_hwmon_files(const machine_files &files, measurements &out)
{
    for (const std::string &device : list_hwmon_devices(files)) {
        measure_chip(files, class_folder + device, out);
    }
}

} // namespace cli
