// Measures what services use: the control groups of version 2, those of the first level and the
// services of systemd.
#ifndef VESK_CLI_MACHINE_CGROUPS_HPP
#define VESK_CLI_MACHINE_CGROUPS_HPP

#include <string>
#include <string_view>
#include <vector>

#include "machine/machine_files.hpp"
#include "machine/measurement.hpp"

namespace cli
{

// At most so many control groups are measured, the first level first.
constexpr std::size_t most_cgroups = 48;

// The value behind a key of a file of "KEY VALUE" lines, as a counter. Nothing when it is not
// there.
void parse_flat_key(std::string_view key, const std::string &name, double unit,
                    std::string_view text, measurements &out);

// Below the root of the hierarchy: "system.slice", "system.slice/ssh.service". Groups of single
// sessions and commands are left out: each has a new name, and a box can hold only so many names.
std::vector<std::string> list_cgroups(const machine_files &files, const std::string &root);

void measure_cgroups(const machine_files &files, measurements &out);

} // namespace cli

#endif
