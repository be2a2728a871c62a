// Checks the names of sensors against the limits of a box: anything beyond them could not be
// written or not be read back.
#include "text/sample_parser.hpp"

#include <fmt/format.h>
#include <unordered_set>

#include <vesk/vesk_limits.h>

#include "process/terminal.hpp"
#include "text/value_text.hpp"

namespace cli
{

std::string shortened_name(std::string_view name)
{
    constexpr std::size_t enough = 60;
    return printable(name.size() > enough ? std::string(name.substr(0, enough)) + "..." : name);
}

void sample_parser::set_sensors(std::vector<std::string> names)
{
    constexpr std::size_t most_sensors = VESK_MAX_COUNT;
    constexpr std::size_t longest_name = VESK_MAX_COUNT;
    if (names.size() > most_sensors) {
        throw bad_text(fmt::format("more than {} sensors", most_sensors));
    }
    std::unordered_set<std::string_view> seen;
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::string &name = names[i];
        if (name.empty()) {
            throw bad_text(fmt::format("the name of sensor {} is empty", i + 1));
        }
        if (name.size() > longest_name) {
            throw bad_text(fmt::format("the name of sensor {} has {} bytes; {} are the most", i + 1,
                                       name.size(), longest_name));
        }
        if (!seen.insert(name).second) {
            throw bad_text("two sensors are named '" + shortened_name(name) + "'");
        }
    }
    sensors_ = std::move(names);
}

} // namespace cli
