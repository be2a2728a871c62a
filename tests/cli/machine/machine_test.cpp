// The readings of the machine: arithmetic with made numbers, reading with a made tree of files, and
// one look at the machine that the test runs on.
#include <cmath>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>

#include "cli/machine/machine_tree.hpp"
#include "machine/disks.hpp"
#include "machine/hwmon.hpp"
#include "machine/hwmon_files.hpp"
#include "machine/network.hpp"
#include "machine/pressure.hpp"
#include "machine/processors.hpp"
#include "machine/rates.hpp"
#include "machine/sampler.hpp"
#include "machine/schedule.hpp"
#include "text/telemetry_text.hpp"

namespace
{

using namespace cli;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

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

TEST(Rates, AMeanIsTheGrowthOfTheSumByThatOfTheNumber)
{
    EXPECT_EQ(only_value({"::m", mean_of_new{100, 10, 0.5}}, {"::m", mean_of_new{160, 13, 0.5}}),
              10.0F);
}

TEST(Rates, AMeanOfNothingHasNoValue)
{
    EXPECT_TRUE(
        std::isnan(only_value({"::m", mean_of_new{100, 10, 1}}, {"::m", mean_of_new{160, 10, 1}})));
}

TEST(Rates, AMeanWhoseCountsWentBackHasNoValue)
{
    EXPECT_TRUE(
        std::isnan(only_value({"::m", mean_of_new{100, 10, 1}}, {"::m", mean_of_new{5, 1, 1}})));
    EXPECT_TRUE(
        std::isnan(only_value({"::m", mean_of_new{100, 10, 1}}, {"::m", mean_of_new{5, 11, 1}})));
}

// A file that could be read once and not the next time.
TEST(Rates, ACounterThatBecameAGaugeIsAGauge)
{
    EXPECT_TRUE(std::isnan(only_value({"::c", counter{1, 1}}, {"::c", gauge{NAN}})));
    EXPECT_THAT(readings_between({1, {{"::c", gauge{NAN}}}}, {2, {{"::c", counter{7, 1}}}}).names,
                IsEmpty());
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
    measure_disk("sda", {1, 8, 20, 2, 16, 90, 100, 200}, before);
    measure_disk("sda", {3, 16, 30, 4, 32, 97, 600, 1200}, now);
    const readings found = readings_between({0, before}, {1, now});
    EXPECT_THAT(found.names, ElementsAre("::disk.sda.reads_per_s", "::disk.sda.read_bytes_per_s",
                                         "::disk.sda.writes_per_s", "::disk.sda.write_bytes_per_s",
                                         "::disk.sda.busy_percent", "::disk.sda.queue_length",
                                         "::disk.sda.read_await_ms", "::disk.sda.write_await_ms"));
    EXPECT_THAT(found.values, ElementsAre(2, 4096, 2, 8192, 50, 1, 5, 3.5F));
}

TEST(Disk, OneThatWasNeverUsedIsLeftOut)
{
    EXPECT_THAT(parse_disks("   7       0 loop0 0 0 0 0 0 0 0 0 0 0 0\n"), IsEmpty());
}

// Kernels have added fields three times: 4.18 discards, 5.5 flushes.
TEST(Disk, FieldsBehindThoseThatAreKnownDoNotCount)
{
    const auto old = parse_disks(" 8 0 sda 1 2 3 4 5 6 7 8 9 10 11\n");
    const auto with_flushes = parse_disks(" 8 0 sda 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17\n");
    ASSERT_EQ(old.size(), 1U);
    ASSERT_EQ(with_flushes.size(), 1U);
    for (const disk_line &disk : {old[0], with_flushes[0]}) {
        EXPECT_EQ(disk.name, "sda");
        EXPECT_EQ(disk.counts.reads, 1U);
        EXPECT_EQ(disk.counts.read_sectors, 3U);
        EXPECT_EQ(disk.counts.read_waited_ms, 4U);
        EXPECT_EQ(disk.counts.writes, 5U);
        EXPECT_EQ(disk.counts.written_sectors, 7U);
        EXPECT_EQ(disk.counts.write_waited_ms, 8U);
        EXPECT_EQ(disk.counts.busy_ms, 10U);
        EXPECT_EQ(disk.counts.weighted_ms, 11U);
    }
}

TEST(Disk, WholeDisksAreToldFromPartitionsAndForgottenWhenTheyAreGone)
{
    const machine_tree machine;
    const std::string kept = "   8       0 sda 1 2 3 4 5 6 7 8 9 10 11\n"
                             "   8       1 sda1 1 2 3 4 5 6 7 8 9 10 11\n"
                             " 104       0 cciss/c0d0 1 2 3 4 5 6 7 8 9 10 11\n";
    machine.put("proc/diskstats", kept + "   8      16 sdb 1 2 3 4 5 6 7 8 9 10 11\n");
    machine.put_folder("sys/block/sda");
    machine.put_folder("sys/block/sdb");
    machine.put_folder("sys/block/cciss!c0d0");
    const auto disks = [&] {
        measurements out;
        measure_disks(machine.files(), out);
        std::set<std::string> names;
        for (const measurement &m : out) {
            names.insert(m.name.substr(0, m.name.rfind('.')));
        }
        return names;
    };
    EXPECT_THAT(disks(), ElementsAre("::disk.cciss_c0d0", "::disk.sda", "::disk.sdb"));
    machine.put("proc/diskstats", kept);
    EXPECT_THAT(disks(), ElementsAre("::disk.cciss_c0d0", "::disk.sda"));
}

constexpr const char *interface_counters =
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
    parse_network(interface_counters, out);
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
    parse_pressure("::pressure.io.", "some avg10=0.00 avg60=0.10 avg300=0.07 total=1000000\n",
                   before);
    parse_pressure("::pressure.io.", "some avg10=0.00 avg60=0.10 avg300=0.07 total=1500000\n", now);
    const readings found = readings_between({0, before}, {2, now});
    EXPECT_THAT(found.names, ElementsAre("::pressure.io.some_percent"));
    EXPECT_THAT(found.values, ElementsAre(25.0F));
}

TEST(Pressure, LeavesOutLinesThatItCannotRead)
{
    measurements out;
    parse_pressure("::pressure.io.", "some total=\nmost total=5\nfull avg10=1\nsome total=1x\n",
                   out);
    EXPECT_THAT(out, IsEmpty());
}

TEST(ProcFiles, AreReadBelowTheGivenRoot)
{
    const machine_tree machine;
    machine.put("proc/net/dev", interface_counters);
    machine.put("proc/pressure/memory", "full avg10=0.00 total=7\n");
    measurements out;
    measure_network(machine.files(), out);
    measure_pressure(machine.files(), out);
    EXPECT_EQ(out.size(), 9U);
    EXPECT_EQ(out.back().name, "::pressure.memory.full_percent");
    EXPECT_EQ(out.back().source, machine.root() + "/proc/pressure/memory");
}

TEST(ProcFiles, ThatAreNotThereGiveNothing)
{
    const machine_tree machine;
    measurements out;
    measure_network(machine.files(), out);
    measure_pressure(machine.files(), out);
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
    const machine_tree machine;
    EXPECT_THAT(list_hwmon_devices(machine.files()), IsEmpty());
    machine.put_folder("sys/class/hwmon/hwmon1");
    machine.put_folder("sys/class/hwmon/hwmon0");
    EXPECT_THAT(list_hwmon_devices(machine.files()), ElementsAre("hwmon0", "hwmon1"));
}

TEST(Hwmon, ChipsComeAndGo)
{
    const machine_tree machine;
    hwmon_source source;
    const auto names = [&] {
        measurements out;
        source.measure(machine.files(), out);
        return names_of(out);
    };
    EXPECT_THAT(names(), IsEmpty());
    machine.put("sys/class/hwmon/hwmon0/name", "k10temp\n");
    machine.put("sys/class/hwmon/hwmon0/temp1_input", "45125\n");
    EXPECT_THAT(names(), ElementsAre("::hwmon.k10temp-virtual-0.temp1_C"));
    std::filesystem::remove_all(machine.root() + "/sys");
    EXPECT_THAT(names(), IsEmpty());
}

// libsensors remembers the chips that it found when it started.
TEST(Hwmon, LooksAtThisMachineGiveTheSameNames)
{
    hwmon_source source;
    measurements first;
    measurements second;
    source.measure(machine_files(), first);
    source.measure(machine_files(), second);
    EXPECT_EQ(names_of(first), names_of(second));
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
