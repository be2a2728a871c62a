// Whole looks at machines that are made up, and the page that describes every sensor.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sstream>
#include <sys/resource.h>
#include <unistd.h>

#include "cli/machine/made_up_machines.hpp"
#include "machine/rates.hpp"
#include "machine/sampler.hpp"
#include "text/glob.hpp"
#include "text/telemetry_text.hpp"

namespace
{

using namespace cli;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;

constexpr void (*all_machines[])(const machine_tree &tree) = {make_laptop, make_server, make_board,
                                                              make_container};

std::vector<std::string> names_at(const machine_tree &tree, const sensor_choice &choice = {})
{
    sampler machine(tree.root(), choice);
    return names_of(machine.take().taken);
}

std::set<std::string> groups_at(const machine_tree &tree)
{
    std::set<std::string> groups;
    for (const std::string &name : names_at(tree)) {
        groups.emplace(group_of(name));
    }
    return groups;
}

TEST(WholeMachine, ALaptopHasAllButArraysAndMemoryErrors)
{
    const machine_tree tree;
    make_laptop(tree);
    EXPECT_THAT(groups_at(tree),
                ElementsAre("cgroup", "conntrack", "cpu", "cpufreq", "disk", "files", "fs", "hwmon",
                            "kernel", "load", "mem", "net", "power", "pressure", "rapl", "sockets",
                            "swap", "tcp", "thermal", "udp", "wireless"));
    const auto names = names_at(tree);
    EXPECT_THAT(names, IsSupersetOf({"::fs.root.used_percent", "::fs.run.used_percent",
                                     "::disk.nvme0n1.read_await_ms", "::pressure.irq.full_percent",
                                     "::rapl.package-0.core_W",
                                     "::cgroup.system.slice_ssh.service.cpu_percent"}));
    EXPECT_THAT(names, AllOf(Not(Contains("::fs.home_user_mnt.used_percent")),
                             Not(Contains("::disk.nvme0n1p1.reads_per_s")),
                             Not(Contains("::disk.loop0.reads_per_s"))));
}

TEST(WholeMachine, AServerWithAnOlderKernelHasNoPressure)
{
    const machine_tree tree;
    make_server(tree);
    const auto groups = groups_at(tree);
    EXPECT_EQ(groups.count("pressure"), 0U);
    EXPECT_EQ(groups.count("fs"), 0U);
    EXPECT_THAT(names_at(tree),
                IsSupersetOf({"::md.md0.missing_disks_count", "::edac.mc1.corrected_errors_count",
                              "::cgroup.init.scope.cpu_percent"}));
}

TEST(WholeMachine, ABoardHasThermalZones)
{
    const machine_tree tree;
    make_board(tree);
    EXPECT_THAT(groups_at(tree), ElementsAre("cpu", "cpufreq", "disk", "files", "kernel", "load",
                                             "mem", "net", "swap", "thermal"));
}

TEST(WholeMachine, AContainerHasLittle)
{
    const machine_tree tree;
    make_container(tree);
    EXPECT_THAT(groups_at(tree), ElementsAre("cpu", "kernel", "load", "mem"));
}

TEST(WholeMachine, NothingGivesNothing)
{
    const machine_tree tree;
    EXPECT_THAT(names_at(tree), IsEmpty());
}

TEST(WholeMachine, OnlyWhatIsChosenIsTaken)
{
    const machine_tree tree;
    make_laptop(tree);
    sensor_choice choice;
    choice.choose("swap,files");
    choice.exclude("swap.*_pages_per_s");
    EXPECT_THAT(names_at(tree, choice), ElementsAre("::swap.total_bytes", "::swap.used_bytes",
                                                    "::files.open_count", "::files.limit_count"));
}

TEST(WholeMachine, EveryNameIsFitForAHeaderLineAndHasASource)
{
    for (const auto make : all_machines) {
        const machine_tree tree;
        make(tree);
        sampler machine(tree.root());
        std::set<std::string> seen;
        for (const measurement &m : machine.take().taken) {
            EXPECT_TRUE(is_header_line("20240101:00:00:00," + m.name)) << m.name;
            EXPECT_EQ(representable_name(m.name), m.name);
            EXPECT_TRUE(seen.insert(m.name).second) << m.name;
            EXPECT_TRUE(m.source.starts_with(tree.root() + "/")) << m.name << " " << m.source;
        }
    }
}

// Without descriptors there would be sensors without values, and others not at all.
TEST(WholeMachine, IsNotLookedAtWithoutDescriptors)
{
    const machine_tree tree;
    make_laptop(tree);
    sampler machine(tree.root());
    const std::size_t all = machine.take().taken.size();
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit before = limit;
    limit.rlim_cur = 3;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    const std::size_t starved = machine.take().taken.size();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(starved, 0U);
    EXPECT_EQ(machine.take().taken.size(), all);
}

// A file that is not there, not for this user to read, cut or full of something else takes the
// sensors of that file away, and no others.
TEST(WholeMachine, AFileThatIsSpoiledSpoilsNothingElse)
{
    const machine_tree tree;
    make_laptop(tree);
    const auto whole = names_at(tree);
    for (const char *spoiled : {"", "\n", "garbage", "cpu\ncpu \ncpu0", ":::::\n-1 -1 -1\n"}) {
        tree.put("proc/stat", spoiled);
        tree.put("proc/net/snmp", spoiled);
        tree.put("proc/self/mountinfo", spoiled);
        const auto rest = names_at(tree);
        EXPECT_LT(rest.size(), whole.size());
        EXPECT_THAT(rest, IsSupersetOf({"::mem.total_bytes", "::disk.nvme0n1.reads_per_s",
                                        "::tcp.listen_drops_per_s", "::load.1min"}));
    }
}

// The tables of docs/sensors.md: for each "## GROUP" the patterns and units of its sensors.
struct page_row {
    std::string group, pattern, unit;
};

std::string between_ticks(const std::string &cell)
{
    const auto first = cell.find('`');
    const auto last = cell.rfind('`');
    return last > first ? cell.substr(first + 1, last - first - 1) : std::string();
}

std::string trimmed(const std::string &text)
{
    const auto first = text.find_first_not_of(' ');
    return first == std::string::npos ? ""
                                      : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

struct page {
    std::vector<page_row> rows;
    std::vector<std::string> groups; // headings that are one
};

page read_page()
{
    page found;
    std::string group;
    std::istringstream lines(read_file(VESK_SENSORS_PAGE));
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("## ")) {
            group = line.substr(3);
        } else if (line.starts_with("| `::")) {
            std::vector<std::string> cells;
            std::istringstream row(line.substr(1));
            for (std::string cell; std::getline(row, cell, '|');) {
                cells.push_back(cell);
            }
            if (found.groups.empty() || found.groups.back() != group) {
                found.groups.push_back(group);
            }
            found.rows.push_back({group, between_ticks(cells.at(0)), trimmed(cells.at(1))});
        }
    }
    return found;
}

std::set<std::string> names_of_all_machines()
{
    std::set<std::string> names;
    for (const auto make : all_machines) {
        const machine_tree tree;
        make(tree);
        for (std::string &name : names_at(tree)) {
            names.insert(std::move(name));
        }
    }
    return names;
}

TEST(SensorsPage, HasEveryGroupInTheOrderOfTheTable)
{
    std::vector<std::string> groups;
    for (const sensor_group &group : sensor_groups()) {
        groups.emplace_back(group.name);
    }
    EXPECT_EQ(read_page().groups, groups);
}

TEST(SensorsPage, HasEverySensorWithItsUnit)
{
    const page described = read_page();
    for (const std::string &name : names_of_all_machines()) {
        bool found = false;
        for (const page_row &row : described.rows) {
            if (matches_glob(row.pattern, name)) {
                found = true;
                EXPECT_EQ(row.group, group_of(name));
                EXPECT_EQ(row.unit, unit_of(name)) << name;
            }
        }
        EXPECT_TRUE(found) << name << " is not described";
    }
}

TEST(SensorsPage, HasNoSensorThatThereIsNot)
{
    const auto names = names_of_all_machines();
    for (const page_row &row : read_page().rows) {
        EXPECT_TRUE(std::any_of(names.begin(), names.end(), [&](const std::string &name) {
            return matches_glob(row.pattern, name);
        })) << row.pattern;
    }
}

} // namespace
