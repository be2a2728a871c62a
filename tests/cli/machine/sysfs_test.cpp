// The folders of /sys: chips, temperatures, frequencies, power, memory errors, control groups.
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "cli/machine/machine_tree.hpp"
#include "machine/cgroups.hpp"
#include "machine/hwmon_files.hpp"
#include "machine/kernel_tables.hpp"
#include "machine/power.hpp"
#include "machine/redundancy.hpp"
#include "machine/temperature.hpp"

namespace
{

using namespace cli;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> measured(void (*measure)(const machine_files &files, measurements &out),
                                  const machine_tree &machine)
{
    measurements out;
    measure(machine.files(), out);
    return texts_of(out);
}

// A chip whose device is at @p device on the bus @p bus.
void put_chip(const machine_tree &machine, const std::string &number, const std::string &driver,
              const std::string &bus, const std::string &device)
{
    const std::string chip = "sys/class/hwmon/hwmon" + number;
    machine.put(chip + "/name", driver + "\n");
    machine.put(chip + "/temp1_input", "1000\n");
    const std::string folder = "sys/devices/" + device;
    machine.put_folder(folder);
    if (!std::filesystem::is_symlink(machine.root() + "/" + folder + "/subsystem")) {
        machine.put_link(folder + "/subsystem", "../../bus/" + bus);
    }
    machine.put_link(chip + "/device", "../../../devices/" + device);
}

TEST(HwmonFiles, AreInThousandthsAndMillionths)
{
    const machine_tree machine;
    const std::string chip = "sys/class/hwmon/hwmon3/";
    machine.put(chip + "name", "nct6775\n");
    machine.put(chip + "temp1_input", "45125\n");
    machine.put(chip + "temp1_label", "SYSTIN\n");
    machine.put(chip + "temp1_max", "90000\n");
    machine.put(chip + "fan2_input", "1200\n");
    machine.put(chip + "in0_input", "1250\n");
    machine.put(chip + "in0_label", "in0\n");
    machine.put(chip + "curr1_input", "1500\n");
    machine.put(chip + "power1_average", "65000000\n");
    machine.put(chip + "humidity1_input", "41000\n");
    machine.put(chip + "intrusion0_alarm", "0\n");
    machine.put(chip + "temp_input", "1\n");
    EXPECT_THAT(measured(measure_hwmon_files, machine),
                ElementsAre("::hwmon.nct6775-virtual-0.temp1.SYSTIN_C=45.125",
                            "::hwmon.nct6775-virtual-0.fan2_RPM=1200",
                            "::hwmon.nct6775-virtual-0.in0_V=1.25",
                            "::hwmon.nct6775-virtual-0.curr1_A=1.5",
                            "::hwmon.nct6775-virtual-0.power1_W=65",
                            "::hwmon.nct6775-virtual-0.humidity1_percent=41"));
}

TEST(HwmonFiles, AValueThatCannotBeReadIsMissing)
{
    const machine_tree machine;
    machine.put("sys/class/hwmon/hwmon0/name", "x\n");
    machine.put("sys/class/hwmon/hwmon0/temp1_input", "");
    machine.put_folder("sys/class/hwmon/hwmon0/temp2_input");
    EXPECT_THAT(measured(measure_hwmon_files, machine),
                ElementsAre("::hwmon.x-virtual-0.temp1_C=nan", "::hwmon.x-virtual-0.temp2_C=nan"));
}

TEST(HwmonFiles, ChipsAreNamedAfterTheirBus)
{
    const machine_tree machine;
    put_chip(machine, "0", "k10temp", "pci", "0000:00:18.3");
    put_chip(machine, "1", "lm75", "i2c", "1-004c");
    put_chip(machine, "2", "coretemp", "platform", "coretemp.1");
    put_chip(machine, "3", "nct6775", "platform", "nct6775.656");
    put_chip(machine, "4", "acpitz", "acpi", "LNXTHERM:00");
    put_chip(machine, "5", "nvme", "nvme", "nvme0");
    machine.put_link("sys/devices/nvme0/device", "../0000:03:00.0");
    put_chip(machine, "6", "odd", "pci", "not an address");
    put_chip(machine, "7", "bmi", "spi", "spi0.0");
    EXPECT_THAT(measured(measure_hwmon_files, machine),
                ElementsAre("::hwmon.k10temp-pci-00c3.temp1_C=1", "::hwmon.lm75-i2c-1-4c.temp1_C=1",
                            "::hwmon.coretemp-isa-0001.temp1_C=1",
                            "::hwmon.nct6775-isa-0290.temp1_C=1", "::hwmon.acpitz-acpi-0.temp1_C=1",
                            "::hwmon.nvme-pci-0300.temp1_C=1", "::hwmon.odd-pci.temp1_C=1",
                            "::hwmon.bmi-spi-spi0.0.temp1_C=1"));
}

TEST(Thermal, ZonesThatHwmonHasAreLeftOut)
{
    const machine_tree machine;
    machine.put("sys/class/thermal/thermal_zone0/type", "acpitz\n");
    machine.put("sys/class/thermal/thermal_zone0/temp", "27800\n");
    machine.put_folder("sys/class/thermal/thermal_zone0/hwmon0");
    machine.put("sys/class/thermal/thermal_zone1/type", "cpu-thermal\n");
    machine.put("sys/class/thermal/thermal_zone1/temp", "-1500\n");
    machine.put("sys/class/thermal/thermal_zone2/type", "off\n");
    machine.put("sys/class/thermal/thermal_zone2/temp", "");
    machine.put("sys/class/thermal/cooling_device0/type", "fan\n");
    EXPECT_THAT(measured(measure_thermal_zones, machine),
                ElementsAre("::thermal.thermal_zone1.cpu-thermal_C=-1.5",
                            "::thermal.thermal_zone2.off_C=nan"));
}

TEST(Frequency, IsToldAsLeastMeanAndLargest)
{
    const machine_tree machine;
    machine.put("sys/devices/system/cpu/cpufreq/policy0/scaling_cur_freq", "800000\n");
    machine.put("sys/devices/system/cpu/cpufreq/policy1/scaling_cur_freq", "3200000\n");
    machine.put("sys/devices/system/cpu/cpufreq/policy2/scaling_cur_freq", "<unknown>\n");
    EXPECT_THAT(
        measured(measure_frequency, machine),
        ElementsAre("::cpufreq.min_MHz=800", "::cpufreq.mean_MHz=2000", "::cpufreq.max_MHz=3200"));
}

TEST(Throttling, IsCountedForEachCoreAndOnceForAPackage)
{
    const machine_tree machine;
    for (const char *cpu : {"cpu0", "cpu1", "cpu10"}) {
        const std::string folder = std::string("sys/devices/system/cpu/") + cpu;
        machine.put(folder + "/thermal_throttle/core_throttle_count", "3\n");
        machine.put(folder + "/thermal_throttle/package_throttle_count", "7\n");
    }
    machine.put_folder("sys/devices/system/cpu/cpufreq");
    machine.put_folder("sys/devices/system/cpu/cpuidle");
    EXPECT_THAT(
        measured(measure_frequency, machine),
        ElementsAre("::cpufreq.core_throttles_per_s+9", "::cpufreq.package_throttles_per_s+7"));
}

TEST(Supplies, AreTheMachinesOwn)
{
    const machine_tree machine;
    const std::string supplies = "sys/class/power_supply/";
    machine.put(supplies + "AC/type", "Mains\n");
    machine.put(supplies + "AC/online", "1\n");
    machine.put(supplies + "BAT0/type", "Battery\n");
    machine.put(supplies + "BAT0/capacity", "83\n");
    machine.put(supplies + "BAT0/voltage_now", "12100000\n");
    machine.put(supplies + "BAT0/power_now", "6500000\n");
    machine.put(supplies + "BAT0/status", "Discharging\n");
    machine.put(supplies + "BAT1/type", "Battery\n");
    machine.put(supplies + "BAT1/status", "Full\n");
    machine.put(supplies + "hidpp_battery_0/type", "Battery\n");
    machine.put(supplies + "hidpp_battery_0/scope", "Device\n");
    machine.put(supplies + "hidpp_battery_0/capacity", "50\n");
    EXPECT_THAT(measured(measure_supplies, machine),
                ElementsAre("::power.AC.online_flag=1", "::power.BAT0.charge_percent=83",
                            "::power.BAT0.voltage_V=12.1", "::power.BAT0.power_W=6.5",
                            "::power.BAT0.discharging_flag=1", "::power.BAT1.discharging_flag=0"));
}

TEST(Energy, IsCountedByZoneAndPart)
{
    const machine_tree machine;
    const std::string zones = "sys/class/powercap/";
    machine.put(zones + "intel-rapl:0/name", "package-0\n");
    machine.put(zones + "intel-rapl:0/energy_uj", "123456789\n");
    machine.put(zones + "intel-rapl:0:1/name", "dram\n");
    machine.put(zones + "intel-rapl:0:1/energy_uj", "5\n");
    machine.put(zones + "intel-rapl:1/name", "package-1\n");
    machine.put(zones + "intel-rapl:1/energy_uj", ""); // not for every user to read
    machine.put_folder(zones + "intel-rapl");
    EXPECT_THAT(measured(measure_energy, machine),
                ElementsAre("::rapl.package-0_W+123456789", "::rapl.package-0.dram_W+5",
                            "::rapl.package-1_W=nan"));
}

TEST(MemoryErrors, AreCountedByController)
{
    const machine_tree machine;
    machine.put("sys/devices/system/edac/mc/mc0/ce_count", "2\n");
    machine.put("sys/devices/system/edac/mc/mc0/ue_count", "0\n");
    EXPECT_THAT(measured(measure_memory_errors, machine),
                ElementsAre("::edac.mc0.corrected_errors_count=2",
                            "::edac.mc0.uncorrected_errors_count=0"));
}

TEST(Conntrack, HasEntriesAndALimit)
{
    const machine_tree machine;
    EXPECT_THAT(measured(measure_conntrack, machine), IsEmpty());
    machine.put("proc/sys/net/netfilter/nf_conntrack_count", "17\n");
    machine.put("proc/sys/net/netfilter/nf_conntrack_max", "262144\n");
    EXPECT_THAT(measured(measure_conntrack, machine),
                ElementsAre("::conntrack.entries_count=17", "::conntrack.limit_count=262144"));
}

class Cgroups : public ::testing::Test
{
protected:
    void put(const std::string &name) const
    {
        machine.put(root + name + "/cgroup.procs", "");
        machine.put(root + name + "/cpu.stat", "usage_usec 5000000\nuser_usec 1\n");
    }

    const std::string root = "sys/fs/cgroup/";
    machine_tree machine;
};

TEST_F(Cgroups, TellTimeMemoryPressureAndKills)
{
    machine.put(root + "cgroup.controllers", "cpu memory\n");
    put("system.slice");
    put("system.slice/ssh.service");
    machine.put(root + "system.slice/ssh.service/memory.current", "4096\n");
    machine.put(root + "system.slice/ssh.service/memory.pressure",
                "some avg10=0.00 avg60=0.00 avg300=0.00 total=12\n"
                "full avg10=0.00 avg60=0.00 avg300=0.00 total=10\n");
    machine.put(root + "system.slice/ssh.service/memory.events",
                "low 0\nhigh 0\nmax 1\noom 1\noom_kill 2\noom_group_kill 0\n");
    EXPECT_THAT(measured(measure_cgroups, machine),
                ElementsAre("::cgroup.system.slice.cpu_percent+5000000",
                            "::cgroup.system.slice_ssh.service.cpu_percent+5000000",
                            "::cgroup.system.slice_ssh.service.memory_bytes=4096",
                            "::cgroup.system.slice_ssh.service.memory_pressure_some_percent+12",
                            "::cgroup.system.slice_ssh.service.memory_pressure_full_percent+10",
                            "::cgroup.system.slice_ssh.service.oom_kills_per_s+2"));
}

// A box keeps every name for ever.
TEST_F(Cgroups, WhoseNamesNeverComeAgainAreLeftOut)
{
    machine.put(root + "cgroup.controllers", "");
    for (const char *name : {"init.scope", "system.slice", "user.slice", "docker-0123abcd.scope",
                             "system.slice/run-r0123.service", "system.slice/docker-0123abcd.scope",
                             "system.slice/cron.service", "user.slice/user-1000.slice"}) {
        put(name);
    }
    machine.put_folder(root + "no_group");
    EXPECT_THAT(
        list_cgroups(machine.files(), "/sys/fs/cgroup"),
        ElementsAre("init.scope", "system.slice", "user.slice", "system.slice/cron.service"));
}

TEST_F(Cgroups, BesideVersion1AreFound)
{
    machine.put("sys/fs/cgroup/unified/cgroup.controllers", "");
    machine.put("sys/fs/cgroup/unified/init.scope/cgroup.procs", "");
    machine.put("sys/fs/cgroup/unified/init.scope/cpu.stat", "usage_usec 7\n");
    EXPECT_THAT(measured(measure_cgroups, machine),
                ElementsAre("::cgroup.init.scope.cpu_percent+7"));
}

TEST_F(Cgroups, OfVersion1AloneAreLeftOut)
{
    put("cpu");
    EXPECT_THAT(measured(measure_cgroups, machine), IsEmpty());
}

TEST_F(Cgroups, AreBoundedInNumber)
{
    machine.put(root + "cgroup.controllers", "");
    put("system.slice");
    for (int i = 0; i < 100; ++i) {
        put("system.slice/service" + std::to_string(i) + ".service");
    }
    EXPECT_EQ(list_cgroups(machine.files(), "/sys/fs/cgroup").size(), most_cgroups);
}

TEST(MachineFiles, AreReadUpToALimit)
{
    const machine_tree machine;
    machine.put("proc/large", std::string(machine_files::most_bytes + 5000, 'x'));
    EXPECT_EQ(machine.files().read("/proc/large")->size(), machine_files::most_bytes);
    machine.put("proc/word", std::string(100000, 'x'));
    EXPECT_EQ(machine.files().read_word("/proc/word").size(), 4096U);
}

TEST(MachineFiles, ThatAreFoldersOrNotThereAreToldApart)
{
    const machine_tree machine;
    machine.put_folder("proc/folder");
    EXPECT_EQ(machine.files().read("/proc/none"), std::nullopt);
    EXPECT_EQ(machine.files().read("/proc/folder"), "");
    EXPECT_EQ(machine.files().read_number("/proc/none"), std::nullopt);
    EXPECT_TRUE(std::isnan(machine.files().read_number("/proc/folder").value_or(0)));
}

// A FIFO without a writer would hold whoever opens it to read.
TEST(MachineFiles, ThatAreFifosHoldNobody)
{
    const machine_tree machine;
    machine.put_folder("proc");
    ASSERT_EQ(mkfifo((machine.root() + "/proc/loadavg").c_str(), 0600), 0);
    EXPECT_EQ(machine.files().read("/proc/loadavg"), "");
}

} // namespace
