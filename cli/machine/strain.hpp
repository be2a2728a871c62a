// Tells when the machine comes under strain: when memory pressure, swap use or load passes a mark.
// A recording then lists the processes that use the most, at the moment when it matters.
#ifndef VESK_CLI_MACHINE_STRAIN_HPP
#define VESK_CLI_MACHINE_STRAIN_HPP

#include <string>
#include <string_view>

namespace cli
{

// What the kernel gives at one moment; what it does not give is 0.
struct strain_values {
    double memory_pressure = 0; // percent of the last 10 s in which some task waited for memory
    double swap_used = 0;       // percent
    double load = 0;            // of the last minute, for each processor
};

double parse_memory_pressure(std::string_view text); // /proc/pressure/memory
double parse_swap_used(std::string_view text);       // /proc/meminfo
double parse_load(std::string_view text);            // /proc/loadavg, not divided

strain_values read_strain(const std::string &root, unsigned processors);

// How many of the marks a value has reached.
struct strain_levels {
    int memory = 0;
    int swap = 0;
    int load = 0;
};
strain_levels levels_of(const strain_values &values);

// Tells when a mark is passed.
class strain_watch
{
public:
    // What has passed a mark upwards since the last look ("memory", "swap", "load"), or nothing.
    // What lies above a mark at the first look has passed it.
    std::string look(const strain_values &now);
    // Something lies above a mark.
    bool is_strained() const { return levels_.memory + levels_.swap + levels_.load > 0; }

private:
    strain_levels levels_;
};

} // namespace cli

#endif
