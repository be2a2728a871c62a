// What one look at the machine gives, before any arithmetic.
#ifndef VESK_CLI_MACHINE_MEASUREMENT_HPP
#define VESK_CLI_MACHINE_MEASUREMENT_HPP

#include <cstdint>
#include <string>
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

// Names begin with "::" and a letter, so that a header line of text telemetry is recognised, and
// have no comma. They end with the unit: ::disk.sda.read_bytes_per_s.
struct measurement {
    std::string name;
    std::variant<gauge, counter, portion> what;
};

using measurements = std::vector<measurement>;

struct snapshot {
    double seconds = 0; // of a clock that nobody sets
    measurements taken;
};

// The part of a name that comes from the machine: what is not a letter, a digit or one of "._-+"
// becomes '_'.
std::string name_part(const std::string &text);

} // namespace cli

#endif
