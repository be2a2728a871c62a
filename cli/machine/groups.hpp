// The groups of sensors, such as "cpu" and "disk", and the choice of the sensors that a recording
// takes. A source whose group is not wanted is not even read.
#ifndef VESK_CLI_MACHINE_GROUPS_HPP
#define VESK_CLI_MACHINE_GROUPS_HPP

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace cli
{

// The name of a sensor begins with its group: ::disk.sda.reads_per_s.
struct sensor_group {
    std::string_view name;
    std::string_view purpose; // a few words
};

std::span<const sensor_group> sensor_groups();

// All sensors but those that were left out.
class sensor_choice
{
public:
    // Only these groups, separated by commas. Throws a failure that names the group there is none
    // of, and the nearest one.
    void choose(std::string_view groups);
    // Not the sensors that fit @p pattern (see matches_glob()), with or without the "::" that names
    // begin with.
    void exclude(std::string_view pattern);

    bool wants_group(std::string_view group) const;
    bool wants(std::string_view name) const;

private:
    std::vector<std::string_view> groups_; // none: all of them
    std::vector<std::string> excluded_;
};

} // namespace cli

#endif
