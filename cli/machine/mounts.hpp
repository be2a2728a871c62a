// Chooses the file systems whose space is worth recording, from the text of /proc/self/mountinfo,
// and gives each a name that stays the same from start to start.
#ifndef VESK_CLI_MACHINE_MOUNTS_HPP
#define VESK_CLI_MACHINE_MOUNTS_HPP

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace cli
{

struct mounted {
    uint64_t id;        // of the mount, which statx() tells, too
    std::string device; // "8:1"
    std::string point;  // where it is mounted
    bool whole;         // and not only a folder of it
};

// At most so many file systems are measured.
constexpr std::size_t most_file_systems = 64;

// What has a medium, each device once: where the whole of it is mounted, else at its shortest mount
// point. Left out are file systems that come over a network, which may never answer; those made by
// the kernel; images, which are always full; and layers over others, but for that at "/". Of those
// in memory the well-known ones are told, which fill up and break what needs them.
std::vector<mounted> parse_mounts(std::string_view text);

// One name for each: "root" for "/", "home" for "/home", "var_lib" for "/var/lib". Where two would
// be the same, the device ("+8-1") tells the later one apart.
std::vector<std::string> names_of(const std::vector<mounted> &mounts);

} // namespace cli

#endif
