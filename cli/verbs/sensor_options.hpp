// The options that say which sensors of which machine are wanted. `vesk record` and `vesk sensors`
// share them, so that one lists exactly what the other records.
#ifndef VESK_CLI_VERBS_SENSOR_OPTIONS_HPP
#define VESK_CLI_VERBS_SENSOR_OPTIONS_HPP

#include <string>
#include <vector>

#include "machine/groups.hpp"
#include "verbs/verb.hpp"

namespace cli
{

struct sensor_options {
    std::string root; // of the files; empty for the machine itself
    std::vector<std::string> groups;
    std::vector<std::string> excluded;

    // Throws a failure where a group is wrong.
    sensor_choice choice() const;
};

void add_sensor_options(option_list &options, sensor_options &sensors);

} // namespace cli

#endif
