// Adds the options --sensors, --exclude and --root, which `vesk record` and `vesk sensors` share,
// and turns them into a sensor_choice. An unknown group is a failure.
#include "verbs/sensor_options.hpp"

namespace cli
{

sensor_choice sensor_options::choice() const
{
    sensor_choice result;
    for (const std::string &list : groups) {
        result.choose(list);
    }
    for (const std::string &pattern : excluded) {
        result.exclude(pattern);
    }
    return result;
}

void add_sensor_options(option_list &options, sensor_options &sensors)
{
    options.texts("--sensors", "GROUPS", sensors.groups,
                  "Only these groups, separated by commas ('vesk sensors --groups' lists them)");
    options.texts("--exclude", "PATTERN", sensors.excluded,
                  "Without the sensors whose names match, such as 'net.docker*'");
    options.text("--root", "DIR", sensors.root,
                 "Read DIR/proc and DIR/sys: in a container, those of the host");
}

} // namespace cli
