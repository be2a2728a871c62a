// What no kernel writes: whatever a parser is given, it ends soon, and gives a bounded number of
// sensors with fit names.
#include <gtest/gtest.h>

#include "cli/machine/machine_tree.hpp"
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
#include "text/telemetry_text.hpp"

namespace
{

using namespace cli;

struct parser {
    const char *name;
    void (*parse)(std::string_view text, measurements &out);
    std::size_t most; // sensors
    const char *line; // that it takes, with one %d
};

void parse_disks_to_names(std::string_view text, measurements &out)
{
    for (const disk_line &disk : parse_disks(text)) {
        measure_disk(disk.name, disk.counts, out);
    }
}

void parse_mounts_to_names(std::string_view text, measurements &out)
{
    for (const std::string &name : names_of(parse_mounts(text))) {
        out.push_back({"::fs." + name + ".x", gauge{0}});
    }
}

constexpr parser parsers[] = {
    {"stat", parse_stat, 5 * (most_processors + 1) + 5, "cpu%d 1 2 3 4 5 6 7 8 9 10\n"},
    {"load", parse_load, 4, "0.5 0.5 0.5 1/%d 3\n"},
    {"uptime", parse_uptime, 1, "%d.5 1\n"},
    {"memory", parse_memory, 13, "MemTotal: %d kB\n"},
    {"paging", parse_paging, 5, "pgfault %d\n"},
    {"network", parse_network, 8 * most_interfaces, "eth%d: 1 2 3 4 5 6 7 8 9 1 2 3 4 5 6 7\n"},
    {"wireless", parse_wireless, most_interfaces, "wlan%d: 0000 54. -56. -256 0 0 0 0 9 0\n"},
    {"protocols", parse_protocols, 64, "Tcp: CurrEstab\nTcp: %d\n"},
    {"protocols 6", parse_protocols_6, 64, "Udp6InErrors %d\n"},
    {"sockets", [](std::string_view text, measurements &out) { parse_sockets(text, 4096, out); },
     64, "TCP: inuse %d orphan 2 tw 3 alloc 4 mem 5\n"},
    {"pressure",
     [](std::string_view text, measurements &out) { parse_pressure("::pressure.x.", text, out); },
     2, "some avg10=0.00 total=%d\n"},
    {"open files", parse_open_files, 2, "%d 0 5\n"},
    {"arrays", parse_arrays, 3 * most_arrays,
     "md%d : active raid1 a[0] b[1]\n      5 [2/2] [UU]\n"},
    {"flat key",
     [](std::string_view text, measurements &out) {
         parse_flat_key("usage_usec", "::cgroup.x.cpu_percent", 1, text, out);
     },
     1, "usage_usec %d\n"},
    {"disks", parse_disks_to_names, 8 * 16 * most_disks, " 8 0 sd%d 1 2 3 4 5 6 7 8 9 10 11\n"},
    {"mounts", parse_mounts_to_names, most_file_systems, "7 1 8:%d / /mnt rw - ext4 /dev/x rw\n"},
};

std::string lines_of(const char *line, int count)
{
    std::string text;
    const std::string pattern = line;
    const auto at = pattern.find("%d");
    for (int i = 0; i < count; ++i) {
        text.append(pattern, 0, at);
        text += std::to_string(i);
        text.append(pattern, at + 2);
    }
    return text;
}

void expect_bounded(const parser &each, std::string_view text)
{
    measurements out;
    each.parse(text, out);
    EXPECT_LE(out.size(), each.most) << each.name;
    for (const measurement &m : out) {
        EXPECT_EQ(representable_name(m.name), m.name);
        EXPECT_LT(m.name.size(), 2 * longest_name_part);
    }
}

TEST(AbsurdTexts, OfAMillionLinesGiveNoMoreThanTheLimit)
{
    for (const parser &each : parsers) {
        // Mounts are what a machine may really have by the hundred thousand.
        const int lines = std::string_view(each.name) == "mounts" ? 1000000 : 20000;
        const std::string text = lines_of(each.line, lines);
        measurements one;
        each.parse(lines_of(each.line, 1), one);
        EXPECT_FALSE(one.empty()) << each.name << " does not take the line";
        expect_bounded(each, text);
    }
}

TEST(AbsurdTexts, OfOneLineOfTenMegabytesGiveNoMore)
{
    constexpr std::size_t size = 10000000;
    const std::string fillings[] = {std::string(size, 'x'), std::string(size / 100, ' '),
                                    std::string(size / 100, '0'), std::string(size / 100, '\0'),
                                    std::string(size / 100, ':')};
    for (const parser &each : parsers) {
        for (const std::string &filling : fillings) {
            expect_bounded(each, filling);
        }
        const std::string line = each.line;
        const auto number = line.find("%d");
        expect_bounded(each, line.substr(0, number) + fillings[0] + line.substr(number + 2));
    }
}

TEST(AbsurdTexts, ThatAreCutAnywhereGiveNoMore)
{
    for (const parser &each : parsers) {
        const std::string text = lines_of(each.line, 3);
        for (std::size_t length = 0; length <= text.size(); ++length) {
            expect_bounded(each, std::string_view(text).substr(0, length));
        }
    }
}

TEST(AbsurdTexts, OfAnyBytesGiveNoMore)
{
    uint32_t state = 1;
    const auto next = [&] {
        state = state * 1664525 + 1013904223;
        return state >> 16;
    };
    for (const parser &each : parsers) {
        const std::string text = lines_of(each.line, 20);
        for (int trial = 0; trial < 300; ++trial) {
            std::string changed = text;
            for (int i = 0; i < 20; ++i) {
                changed[next() % changed.size()] = static_cast<char>(next());
            }
            expect_bounded(each, changed);
        }
    }
}

} // namespace
