// The raw result of one look at the machine: named gauges and counters. rates.hpp makes values from
// two of them. The rules for names are stated and applied here, once for all sources.
#ifndef VESK_CLI_MACHINE_MEASUREMENT_HPP
#define VESK_CLI_MACHINE_MEASUREMENT_HPP

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace cli
{

// A value as it stands; NaN when the thing is there and cannot be read.
struct gauge {
    double value;
};

// A count that only grows. Recorded as its growth in a second, times @p unit.
struct counter {
    uint64_t count;
    double unit;
};

// Two counts that grow together. Recorded as the growth of the part in percent of that of the
// whole.
struct portion {
    uint64_t part;
    uint64_t whole;
};

// A sum over events and the number of the events. Recorded as the mean of the events that came
// since, times @p unit; missing when none came.
struct mean_of_new {
    uint64_t sum;
    uint64_t number;
    double unit;
};

// Names are "::" GROUP "." REST, and the group begins with a letter, so that a header line of text
// telemetry is recognised. They have no comma and end with the unit: ::disk.sda.read_bytes_per_s.
struct measurement {
    using kind = std::variant<gauge, counter, portion, mean_of_new>;
    std::string name;
    kind what;
    std::string source = {}; // the file that it was read from
};

using measurements = std::vector<measurement>;

struct snapshot {
    double seconds = 0; // of a clock that nobody sets
    measurements taken;
};

// The part of a name that comes from the machine: what is not a letter, a digit or one of "._-+"
// becomes '_', and what is longer than any name of a device (longest_name_part) is cut.
std::string name_part(std::string_view text);
constexpr std::size_t longest_name_part = 200;

// "disk" for "::disk.sda.reads_per_s".
std::string_view group_of(std::string_view name);

// The unit that a name ends with ("bytes_per_s", "percent"), or nothing: "::load.1min" is a number
// without one.
std::string_view unit_of(std::string_view name);

} // namespace cli

#endif
