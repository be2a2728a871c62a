// Holds the table of all sensor groups with their purposes, and decides which sensors a user wants.
// Lists of groups and patterns of names go in as typed. An unknown group is a failure that names
// the nearest known one.
#include "machine/groups.hpp"

#include <algorithm>
#include <fmt/format.h>

#include "machine/measurement.hpp"
#include "machine/text_fields.hpp"
#include "process/failure.hpp"
#include "process/terminal.hpp"
#include "text/glob.hpp"
#include "text/suggestion.hpp"

namespace cli
{
namespace
{

constexpr sensor_group groups[] = {
    {"cpu", "time of the processors"},
    {"kernel", "processes, threads, interrupts, uptime"},
    {"load", "load averages"},
    {"mem", "memory and page faults"},
    {"swap", "swap space"},
    {"disk", "requests to disks, and how long they took"},
    {"fs", "space and inodes of file systems"},
    {"net", "interfaces of the network"},
    {"wireless", "signals of wireless interfaces"},
    {"tcp", "connections, retransmissions, full queues"},
    {"udp", "datagrams and errors"},
    {"sockets", "sockets in use and their memory"},
    {"pressure", "time in which tasks waited"},
    {"cgroup", "processor time and memory of services"},
    {"files", "open files"},
    {"conntrack", "connections that the firewall follows"},
    {"hwmon", "temperatures, fans, voltages, power"},
    {"thermal", "temperatures that hwmon has not"},
    {"cpufreq", "frequencies of the processors, throttling"},
    {"power", "batteries and mains"},
    {"rapl", "power of the processors"},
    {"edac", "memory errors"},
    {"md", "arrays of disks"},
};

// "memory" is near to "mem" although it is much longer.
std::string_view meant_group(std::string_view word)
{
    std::vector<std::string_view> names;
    for (const sensor_group &group : groups) {
        names.push_back(group.name);
    }
    const std::string_view nearest = nearest_word(word, names);
    if (!nearest.empty()) {
        return nearest;
    }
    const auto begins = std::find_if(names.begin(), names.end(), [&](std::string_view name) {
        return word.starts_with(name) || (!word.empty() && name.starts_with(word));
    });
    return begins != names.end() ? *begins : std::string_view();
}

[[noreturn]] void refuse_group(std::string_view word)
{
    const std::string_view meant = meant_group(word);
    const std::string hint = meant.empty() ? "; 'vesk sensors --groups' lists them"
                                           : fmt::format("; did you mean '{}'?", meant);
    throw failure(exit_usage,
                  fmt::format("there is no group of sensors '{}'{}", printable(word), hint));
}

} // namespace

std::span<const sensor_group> sensor_groups()
{
    return groups;
}

void sensor_choice::choose(std::string_view list)
{
    do {
        const std::string_view word = cut(list, ',');
        const auto known =
            std::find_if(std::begin(groups), std::end(groups),
                         [&](const sensor_group &group) { return group.name == word; });
        if (known == std::end(groups)) {
            refuse_group(word);
        }
        groups_.push_back(known->name);
    } while (!list.empty());
}

void sensor_choice::exclude(std::string_view pattern)
{
    excluded_.emplace_back(pattern);
}

bool sensor_choice::wants_group(std::string_view group) const
{
    return groups_.empty() || std::find(groups_.begin(), groups_.end(), group) != groups_.end();
}

bool sensor_choice::wants(std::string_view name) const
{
    if (!wants_group(group_of(name))) {
        return false;
    }
    const std::string_view plain = name.substr(name.starts_with("::") ? 2 : 0);
    return std::none_of(excluded_.begin(), excluded_.end(), [&](const std::string &pattern) {
        return matches_glob(pattern, name) || matches_glob(pattern, plain);
    });
}

} // namespace cli
