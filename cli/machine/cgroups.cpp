// Each control group is a folder. The files that are read of it:
//   cpu.stat         "usage_usec N" and others
//   memory.current   bytes
//   memory.pressure  as /proc/pressure/memory
//   memory.events    "oom_kill N" and others
#include "machine/cgroups.hpp"

#include <algorithm>
#include <fmt/format.h>

#include "machine/pressure.hpp"
#include "machine/text_fields.hpp"

namespace cli
{
namespace
{

// The folders of version 2, alone or beside version 1.
constexpr const char *roots[] = {"/sys/fs/cgroup", "/sys/fs/cgroup/unified"};

bool is_folder(const machine_files &files, const std::string &path)
{
    return files.exists(path + "/cgroup.procs");
}

bool is_lasting(std::string_view name)
{
    return (name.ends_with(".service") || name.ends_with(".slice")) && !name.starts_with("run-");
}

void append_folders(const machine_files &files, const std::string &root, const std::string &parent,
                    bool (*wanted)(std::string_view name), std::vector<std::string> &found)
{
    const std::string below = parent.empty() ? "" : parent + "/";
    const std::string folder = fmt::format("{}/{}", root, below);
    for (const std::string &name : files.list(folder, "", machine_files::most_entries)) {
        if (found.size() >= most_cgroups) {
            return;
        }
        if (wanted(name) && is_folder(files, folder + name)) {
            found.push_back(below + name);
        }
    }
}

void measure_cgroup(const machine_files &files, const std::string &folder,
                    const std::string &prefix, measurements &out)
{
    // Microseconds in each second, as percent of one processor: two busy processors are 200
    // percent.
    files.parse_file(
        folder + "/cpu.stat",
        [&](std::string_view text, measurements &found) {
            parse_flat_key("usage_usec", prefix + "cpu_percent", 100.0 / 1e6, text, found);
        },
        out);
    files.add_gauge(prefix + "memory_bytes", folder + "/memory.current", 1, out);
    files.parse_file(
        folder + "/memory.pressure",
        [&](std::string_view text, measurements &found) {
            parse_pressure(prefix + "memory_pressure_", text, found);
        },
        out);
    files.parse_file(
        folder + "/memory.events",
        [&](std::string_view text, measurements &found) {
            parse_flat_key("oom_kill", prefix + "oom_kills_per_s", 1, text, found);
        },
        out);
}

} // namespace

void parse_flat_key(std::string_view key, const std::string &name, double unit,
                    std::string_view text, measurements &out)
{
    while (!text.empty()) {
        std::string_view line = cut(text, '\n');
        if (cut_word(line) != key) {
            continue;
        }
        if (const auto count = parse_count(cut_word(line))) {
            out.push_back({name, counter{*count, unit}});
        }
        return;
    }
}

std::vector<std::string> list_cgroups(const machine_files &files, const std::string &root)
{
    std::vector<std::string> found;
    append_folders(
        files, root, "",
        [](std::string_view name) { return !name.ends_with(".scope") || name == "init.scope"; },
        found);
    append_folders(files, root, "system.slice", is_lasting, found);
    return found;
}

void measure_cgroups(const machine_files &files, measurements &out)
{
    for (const char *root : roots) {
        if (!files.exists(std::string(root) + "/cgroup.controllers")) {
            continue;
        }
        for (const std::string &name : list_cgroups(files, root)) {
            const std::string prefix = fmt::format("::cgroup.{}.", name_part(name));
            measure_cgroup(files, fmt::format("{}/{}", root, name), prefix, out);
        }
        return;
    }
}

} // namespace cli
