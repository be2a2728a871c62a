// Errors of memory are in /sys/devices/system/edac/mc/mc*/{ce,ue}_count. An array is, in
// /proc/mdstat,
//   md0 : active raid1 sdb1[1] sda1[0](F)
//         1048512 blocks super 1.2 [2/1] [_U]
//         [=>...................]  recovery =  7.4% (78336/1048512) finish=0.2min speed=78336K/sec
// where [2/1] are the disks that it should have and those that work; arrays without redundancy have
// none. The third line is there while disks are compared or copied.
#include "machine/redundancy.hpp"

#include <fmt/format.h>
#include <limits>
#include <optional>

#include "machine/text_fields.hpp"

namespace cli
{
namespace
{

struct disk_array {
    std::string name;
    bool active = false;
    std::optional<double> missing_disks;
    std::optional<double> synced_percent;
};

void add(const disk_array &array, measurements &out)
{
    const std::string prefix = fmt::format("::md.{}.", name_part(array.name));
    out.push_back({prefix + "active_flag", gauge{array.active ? 1.0 : 0.0}});
    if (array.missing_disks) {
        out.push_back({prefix + "missing_disks_count", gauge{*array.missing_disks}});
    }
    // The sensor exists without a value while nothing is copied, so that the set of sensors stays
    // the same.
    out.push_back({prefix + "synced_percent",
                   gauge{array.synced_percent.value_or(std::numeric_limits<double>::quiet_NaN())}});
}

// "[2/1]"
std::optional<double> parse_missing_disks(std::string_view word)
{
    if (!word.starts_with('[') || !word.ends_with(']')) {
        return std::nullopt;
    }
    std::string_view inner = word.substr(1, word.size() - 2);
    const auto all = parse_count(cut(inner, '/'));
    const auto working = parse_count(inner);
    if (!all || !working || *working > *all) {
        return std::nullopt;
    }
    return static_cast<double>(*all - *working);
}

// "7.4%", behind "recovery =", "resync =", "reshape =" or "check ="; for small arrays "recovery
// =7.4%".
std::optional<double> parse_progress(std::string_view line)
{
    const auto sign = line.find('=', line.find(']'));
    if (sign == std::string_view::npos) {
        return std::nullopt;
    }
    line.remove_prefix(sign + 1);
    std::string_view word = cut_word(line);
    if (!word.ends_with('%')) {
        return std::nullopt;
    }
    word.remove_suffix(1);
    return parse_decimal(word);
}

void parse_detail(std::string_view line, disk_array &array)
{
    if (!array.synced_percent) {
        array.synced_percent = parse_progress(line);
    }
    while (!line.empty() && !array.missing_disks) {
        array.missing_disks = parse_missing_disks(cut_word(line));
    }
}

} // namespace

void measure_memory_errors(const machine_files &files, measurements &out)
{
    const std::string folder = "/sys/devices/system/edac/mc/";
    for (const std::string &controller : files.list(folder, "mc", most_memory_controllers)) {
        const std::string prefix = fmt::format("::edac.{}.", name_part(controller));
        files.add_gauge(prefix + "corrected_errors_count", folder + controller + "/ce_count", 1,
                        out);
        files.add_gauge(prefix + "uncorrected_errors_count", folder + controller + "/ue_count", 1,
                        out);
    }
}

void parse_arrays(std::string_view text, measurements &out)
{
    std::optional<disk_array> array;
    std::size_t arrays = 0;
    while (!text.empty() && arrays < most_arrays) {
        std::string_view line = cut(text, '\n');
        const bool is_detail = line.starts_with(' ') || line.starts_with('\t');
        if (is_detail && array) {
            parse_detail(line, *array);
            continue;
        }
        if (array) {
            add(*array, out);
            ++arrays;
            array.reset();
        }
        const std::string_view name = cut_word(line);
        if (name.starts_with("md") && cut_word(line) == ":") {
            array = disk_array{std::string(name.substr(0, longest_name_part)),
                               cut_word(line) == "active", std::nullopt, std::nullopt};
        }
    }
    if (array && arrays < most_arrays) {
        add(*array, out);
    }
}

void measure_arrays(const machine_files &files, measurements &out)
{
    files.parse_file("/proc/mdstat", parse_arrays, out);
}

} // namespace cli
