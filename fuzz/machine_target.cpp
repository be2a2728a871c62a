// The texts that the kernel writes about a machine, as the command parses them. The first byte of
// an input chooses the parser, the rest is the text.
#include <string>

#include "harness.hpp"
#include "machine/cgroups.hpp"
#include "machine/disks.hpp"
#include "machine/kernel_tables.hpp"
#include "machine/memory.hpp"
#include "machine/mounts.hpp"
#include "machine/network.hpp"
#include "machine/pressure.hpp"
#include "machine/processors.hpp"
#include "machine/redundancy.hpp"
#include "machine/sockets.hpp"

using cli::measurement;
using cli::measurements;

static void _parse_disks(std::string_view text, measurements &out)
{
    for (const cli::disk_line &disk : cli::parse_disks(text)) {
        cli::measure_disk(disk.name, disk.counts, out);
    }
}

static void _parse_mounts(std::string_view text, measurements &out)
{
    for (const std::string &name : cli::names_of(cli::parse_mounts(text))) {
        out.push_back({"::fs." + name + ".used_bytes", cli::gauge{0}});
    }
}

static void _parse_sockets(std::string_view text, measurements &out)
{
    cli::parse_sockets(text, 4096, out);
}

static void _parse_pressure(std::string_view text, measurements &out)
{
    cli::parse_pressure("::pressure.io.", text, out);
}

static void _parse_events(std::string_view text, measurements &out)
{
    cli::parse_flat_key("oom_kill", "::cgroup.x.oom_kills_per_s", 1, text, out);
}

// The seeds depend on the order: a new one goes to the end.
static constexpr void (*parsers[])(std::string_view text, measurements &out) = {
    cli::parse_stat,       cli::parse_load,        cli::parse_uptime,  cli::parse_memory,
    cli::parse_paging,     _parse_disks,           cli::parse_network, cli::parse_wireless,
    cli::parse_protocols,  cli::parse_protocols_6, _parse_sockets,     _parse_pressure,
    cli::parse_open_files, cli::parse_arrays,      _parse_mounts,      _parse_events,
};

static bool _is_fit(const std::string &name)
{
    const std::string plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-+";
    return name.starts_with("::") && name.size() < 2 * cli::longest_name_part &&
           name.find_first_not_of(plain, 2) == std::string::npos;
}

static void _run(std::string_view input)
{
    if (input.empty()) {
        return;
    }
    const auto choice = static_cast<unsigned char>(input[0]) % std::size(parsers);
    measurements out;
    parsers[choice](input.substr(1), out);
    // Eight for each disk and partition are the most that any parser gives.
    expect(out.size() <= 8 * 16 * cli::most_disks, "the number of sensors is bounded");
    for (const measurement &m : out) {
        expect(_is_fit(m.name), "names are fit for a header line");
        expect(!cli::group_of(m.name).empty(), "names have a group");
    }
}

const fuzz_target target = {"machine", input_form::bytes, 16384, _run};
