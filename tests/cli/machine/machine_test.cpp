// The readings of the machine: arithmetic with made numbers, reading with a made tree of files, and
// one look at the machine that the test runs on.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <set>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/temporary_directory.hpp"
#include "machine/hwmon.hpp"
#include "machine/proc_files.hpp"
#include "machine/procps.hpp"
#include "machine/rates.hpp"
#include "machine/sampler.hpp"
#include "machine/schedule.hpp"
#include "text/telemetry_text.hpp"

namespace
{

using namespace cli;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> names_of(const measurements &taken)
{
    std::vector<std::string> names;
    for (const measurement &m : taken) {
        names.push_back(m.name);
    }
    return names;
}

float only_value(const measurement &before, const measurement &now, double seconds = 1)
{
    const readings found = readings_between({10, {before}}, {10 + seconds, {now}});
    EXPECT_EQ(found.values.size(), 1U);
    return found.values.empty() ? 0 : found.values[0];
}

TEST(Rates, AGaugeStandsForItself)
{
    const readings found = readings_between({}, {1, {{"::g", gauge{2.5}}}});
    EXPECT_THAT(found.names, ElementsAre("::g"));
    EXPECT_THAT(found.values, ElementsAre(2.5F));
}

TEST(Rates, ACounterIsItsGrowthInASecondTimesItsUnit)
{
    EXPECT_EQ(only_value({"::c", counter{100, 512}}, {"::c", counter{140, 512}}, 4), 5120.0F);
}

TEST(Rates, ACounterIsExactBeyondThePrecisionOfADouble)
{
    const uint64_t large = uint64_t{1} << 60;
    EXPECT_EQ(only_value({"::c", counter{large, 1}}, {"::c", counter{large + 3, 1}}), 3.0F);
}

TEST(Rates, ACounterThatWentBackHasNoValueOnce)
{
    EXPECT_TRUE(std::isnan(only_value({"::c", counter{100, 1}}, {"::c", counter{5, 1}})));
}

TEST(Rates, ACounterWithoutTimeBetweenHasNoValue)
{
    EXPECT_TRUE(std::isnan(only_value({"::c", counter{1, 1}}, {"::c", counter{2, 1}}, 0)));
}

TEST(Rates, ACounterAppearsWithItsSecondReading)
{
    EXPECT_THAT(readings_between({1, {}}, {2, {{"::c", counter{7, 1}}}}).names, IsEmpty());
}

TEST(Rates, ASensorThatIsGoneIsNotReported)
{
    EXPECT_THAT(readings_between({1, {{"::g", gauge{1}}}}, {2, {}}).names, IsEmpty());
}

TEST(Rates, APortionIsAPercentageOfTheWhole)
{
    EXPECT_EQ(only_value({"::p", portion{10, 100}}, {"::p", portion{35, 200}}), 25.0F);
}

TEST(Rates, APortionThatWentBackIsZero)
{
    EXPECT_EQ(only_value({"::p", portion{10, 100}}, {"::p", portion{9, 200}}), 0.0F);
}

TEST(Rates, APortionOfNothingHasNoValue)
{
    EXPECT_TRUE(std::isnan(only_value({"::p", portion{1, 100}}, {"::p", portion{1, 100}})));
}

TEST(Rates, KeepsTheOrderOfTheReadings)
{
    const readings found =
        readings_between({}, {1, {{"::b", gauge{1}}, {"::a", gauge{2}}, {"::c", gauge{3}}}});
    EXPECT_THAT(found.names, ElementsAre("::b", "::a", "::c"));
}

TEST(Processor, BusyIsAllButIdleAndWaiting)
{
    measurements before;
    measurements now;
    measure_processor("0", {0, 0, 0, 0, 0, 0, 0, 0}, before);
    measure_processor("0", {10, 5, 6, 60, 10, 1, 3, 5}, now);
    const readings found = readings_between({0, before}, {1, now});
    EXPECT_THAT(found.names, ElementsAre("::cpu.0.busy_percent", "::cpu.0.user_percent",
                                         "::cpu.0.system_percent", "::cpu.0.iowait_percent",
                                         "::cpu.0.steal_percent"));
    EXPECT_THAT(found.values, ElementsAre(30, 15, 10, 10, 5));
}

TEST(Disk, CountsSectorsOf512BytesAndMilliseconds)
{
    measurements before;
    measurements now;
    measure_disk("sda", {1, 8, 2, 16, 100, 200}, before);
    measure_disk("sda", {3, 16, 4, 32, 600, 1200}, now);
    const readings found = readings_between({0, before}, {1, now});
    EXPECT_THAT(found.names, ElementsAre("::disk.sda.reads_per_s", "::disk.sda.read_bytes_per_s",
                                         "::disk.sda.writes_per_s", "::disk.sda.write_bytes_per_s",
                                         "::disk.sda.busy_percent", "::disk.sda.queue_length"));
    EXPECT_THAT(found.values, ElementsAre(2, 4096, 2, 8192, 50, 1));
}

TEST(Disk, OneThatWasNeverUsedIsLeftOut)
{
    measurements out;
    measure_disk("loop0", {0, 0, 0, 0, 0, 0}, out);
    EXPECT_THAT(out, IsEmpty());
}

constexpr const char *net_dev =
    "Inter-|   Receive                                                |  Transmit\n"
    " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop "
    "fifo colls carrier compressed\n"
    "  ifb0:       0       0    0    0    0     0          0         0        0       0    0    0  "
    " "
    " 0     0       0          0\n"
    "  eth0: 110411478    2318    1    2    0     0          0         0    95558    1235    3    "
    "4 "
    "   0     0       0          0\n";

TEST(Network, ReadsTheInterfacesThatCarriedSomething)
{
    measurements out;
    parse_network(net_dev, out);
    EXPECT_THAT(names_of(out),
                ElementsAre("::net.eth0.receive_bytes_per_s", "::net.eth0.receive_packets_per_s",
                            "::net.eth0.receive_errors_per_s", "::net.eth0.receive_drops_per_s",
                            "::net.eth0.transmit_bytes_per_s", "::net.eth0.transmit_packets_per_s",
                            "::net.eth0.transmit_errors_per_s", "::net.eth0.transmit_drops_per_s"));
    std::vector<uint64_t> counts;
    for (const measurement &m : out) {
        counts.push_back(std::get<counter>(m.what).count);
    }
    EXPECT_THAT(counts, ElementsAre(110411478, 2318, 1, 2, 95558, 1235, 3, 4));
}

TEST(Network, LeavesOutLinesThatItCannotRead)
{
    measurements out;
    parse_network("eth0: 1 2 3\n  eth1: x\n:\n\neth2", out);
    EXPECT_THAT(out, IsEmpty());
}

TEST(Network, ReadsAnInterfaceWithAnAlias)
{
    measurements out;
    parse_network("eth0:1: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16", out);
    EXPECT_EQ(out.at(0).name, "::net.eth0_1.receive_bytes_per_s");
}

TEST(Network, LeavesOutTheInterfacesOfContainers)
{
    measurements out;
    parse_network("veth8a3f: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16", out);
    EXPECT_THAT(out, IsEmpty());
}

TEST(Pressure, IsTheShareOfTheTimeBetween)
{
    measurements before;
    measurements now;
    parse_pressure("io", "some avg10=0.00 avg60=0.10 avg300=0.07 total=1000000\n", before);
    parse_pressure("io", "some avg10=0.00 avg60=0.10 avg300=0.07 total=1500000\n", now);
    const readings found = readings_between({0, before}, {2, now});
    EXPECT_THAT(found.names, ElementsAre("::pressure.io.some_percent"));
    EXPECT_THAT(found.values, ElementsAre(25.0F));
}

TEST(Pressure, LeavesOutLinesThatItCannotRead)
{
    measurements out;
    parse_pressure("io", "some total=\nmost total=5\nfull avg10=1\nsome total=1x\n", out);
    EXPECT_THAT(out, IsEmpty());
}

TEST(ProcFiles, AreReadBelowTheGivenRoot)
{
    const temporary_directory root;
    std::filesystem::create_directories(root.file("proc/net"));
    std::filesystem::create_directories(root.file("proc/pressure"));
    write_file(root.file("proc/net/dev"), net_dev);
    write_file(root.file("proc/pressure/memory"), "full avg10=0.00 total=7\n");
    measurements out;
    measure_network(root.path(), out);
    measure_pressure(root.path(), out);
    EXPECT_EQ(out.size(), 9U);
    EXPECT_EQ(out.back().name, "::pressure.memory.full_percent");
}

TEST(ProcFiles, ThatAreNotThereGiveNothing)
{
    const temporary_directory root;
    measurements out;
    measure_network(root.path(), out);
    measure_pressure(root.path(), out);
    EXPECT_THAT(out, IsEmpty());
}

TEST(Hwmon, NamesHoldChipFeatureLabelAndUnit)
{
    EXPECT_EQ(hwmon_name("k10temp-pci-00c3", "temp1", "Tctl", "C"),
              "::hwmon.k10temp-pci-00c3.temp1.Tctl_C");
    EXPECT_EQ(hwmon_name("acpitz-acpi-0", "temp1", "temp1", "C"), "::hwmon.acpitz-acpi-0.temp1_C");
    EXPECT_EQ(hwmon_name("x", "in0", "+3.3V, main", "V"), "::hwmon.x.in0.+3.3V__main_V");
}

TEST(Hwmon, DevicesAreListedBelowTheGivenRoot)
{
    const temporary_directory root;
    EXPECT_THAT(hwmon_devices(root.path()), IsEmpty());
    std::filesystem::create_directories(root.file("sys/class/hwmon/hwmon1"));
    std::filesystem::create_directories(root.file("sys/class/hwmon/hwmon0"));
    EXPECT_THAT(hwmon_devices(root.path()), ElementsAre("hwmon0", "hwmon1"));
}

TEST(Hwmon, SurvivesChipsThatComeAndGo)
{
    const temporary_directory root;
    hwmon_source source(root.path());
    measurements out;
    std::filesystem::create_directories(root.file("sys/class/hwmon/hwmon0"));
    source.measure(out);
    std::filesystem::remove_all(root.file("sys"));
    source.measure(out);
}

TEST(Schedule, TicksAreMultiplesOfTheInterval)
{
    EXPECT_EQ(next_tick(1000.25, 1), 1001);
    EXPECT_EQ(next_tick(1000.0, 1), 1001);
    EXPECT_EQ(next_tick(1000.25, 60), 1020);
}

TEST(Schedule, TheFirstTickKeepsItsDistance)
{
    EXPECT_EQ(next_tick(1000.75, 1, 0.5), 1002);
    EXPECT_EQ(next_tick(1000.25, 1, 0.5), 1001);
}

TEST(Schedule, WaitsForTheTickAndNoLonger)
{
    EXPECT_EQ(seconds_until(1001, 1000.25, 1), 0.75);
    EXPECT_EQ(seconds_until(1001, 1001.5, 1), 0);
}

TEST(Schedule, AClockThatWasSetBackAsksForANewTick)
{
    EXPECT_LT(seconds_until(1001, 400.0, 1), 0);
}

TEST(Sampler, NamesOfThisMachineAreFitForAHeaderLine)
{
    sampler machine;
    snapshot before = machine.take();
    snapshot now = machine.take();
    now.seconds = before.seconds + 1;
    const readings found = readings_between(before, now);
    ASSERT_FALSE(found.names.empty());
    EXPECT_EQ(found.names.size(), found.values.size());
    std::set<std::string> distinct(found.names.begin(), found.names.end());
    EXPECT_EQ(distinct.size(), found.names.size());
    for (const std::string &name : found.names) {
        EXPECT_EQ(name.substr(0, 2), "::") << name;
        EXPECT_EQ(representable_name(name), name);
    }
    EXPECT_TRUE(distinct.count("::cpu.total.busy_percent") == 1);
    EXPECT_TRUE(distinct.count("::mem.available_bytes") == 1);
    EXPECT_TRUE(distinct.count("::load.1min") == 1);
}

TEST(Sampler, EveryNameAloneMakesAHeaderLine)
{
    sampler machine;
    for (const measurement &m : machine.take().taken) {
        EXPECT_TRUE(is_header_line("20240101:00:00:00," + m.name)) << m.name;
    }
}

// What becomes of a process that shows itself other disks than the machine has.
enum : int { disks_followed = 0, disks_remembered = 1, not_allowed = 77 };

bool knows_disk(const std::string &name)
{
    measurements out;
    measure_procps(out);
    const std::string first = "::disk." + name + ".reads_per_s";
    return std::any_of(out.begin(), out.end(), [&](const auto &m) { return m.name == first; });
}

bool show_instead(const std::string &path, const char *of)
{
    return mount(path.c_str(), of, nullptr, MS_BIND, nullptr) == 0;
}

int look_at_disks_that_go(const temporary_directory &folder)
{
    const std::string listing = folder.file("diskstats");
    const std::string kept = "   8       0 sda 1 2 3 4 5 6 7 8 9 10 11\n";
    const std::string removed = "   8      16 sdb 1 2 3 4 5 6 7 8 9 10 11\n";
    write_file(listing, kept + removed);
    // What has no entry there is taken for a partition.
    std::filesystem::create_directories(folder.file("block/sda"));
    std::filesystem::create_directories(folder.file("block/sdb"));
    if (unshare(CLONE_NEWNS) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        !show_instead(listing, "/proc/diskstats") ||
        !show_instead(folder.file("block"), "/sys/block")) {
        return not_allowed;
    }
    const bool both = knows_disk("sda") && knows_disk("sdb");
    write_file(listing, kept);
    return both && knows_disk("sda") && !knows_disk("sdb") ? disks_followed : disks_remembered;
}

TEST(Sampler, ADiskThatIsGoneIsForgotten)
{
    const temporary_directory folder;
    const pid_t child = fork();
    if (child == 0) {
        _exit(look_at_disks_that_go(folder));
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == not_allowed) {
        GTEST_SKIP() << "needs the right to mount";
    }
    EXPECT_EQ(WEXITSTATUS(status), disks_followed);
}

TEST(Sampler, LooksAtTheMachineLeaveNothingOpen)
{
    sampler machine;
    machine.take();
    const auto count = [] {
        const std::filesystem::directory_iterator files("/proc/self/fd");
        return std::distance(begin(files), end(files));
    };
    const auto before = count();
    for (int i = 0; i < 20; ++i) {
        machine.take();
    }
    EXPECT_EQ(count(), before);
}

} // namespace
