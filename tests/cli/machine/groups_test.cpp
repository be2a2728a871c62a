// Which sensors are chosen, and what names say.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "machine/groups.hpp"
#include "machine/measurement.hpp"
#include "process/failure.hpp"

namespace
{

using namespace cli;
using ::testing::HasSubstr;

std::string refusal_of(std::string_view groups)
{
    sensor_choice choice;
    try {
        choice.choose(groups);
    } catch (const failure &reason) {
        EXPECT_EQ(reason.code(), exit_usage);
        return reason.what();
    }
    ADD_FAILURE() << groups << " is taken";
    return {};
}

TEST(SensorNames, BeginWithTheirGroup)
{
    EXPECT_EQ(group_of("::disk.sda.reads_per_s"), "disk");
    EXPECT_EQ(group_of("::load"), "load");
    EXPECT_EQ(group_of("::"), "");
    EXPECT_EQ(group_of(""), "");
}

TEST(SensorNames, EndWithTheirUnit)
{
    EXPECT_EQ(unit_of("::disk.sda.read_bytes_per_s"), "bytes_per_s");
    EXPECT_EQ(unit_of("::disk.sda.reads_per_s"), "per_s");
    EXPECT_EQ(unit_of("::mem.total_bytes"), "bytes");
    EXPECT_EQ(unit_of("::hwmon.x.temp1_C"), "C");
    EXPECT_EQ(unit_of("::kernel.uptime_s"), "s");
    EXPECT_EQ(unit_of("::kernel.running"), "");
    EXPECT_EQ(unit_of("::load.1min"), "");
    EXPECT_EQ(unit_of("s"), "");
    EXPECT_EQ(unit_of(""), "");
}

TEST(SensorNames, PartsOfTheMachineArePlainAndBounded)
{
    EXPECT_EQ(name_part("a b,c\n\x1b[1m\xff/é"), "a_b_c___1m____");
    EXPECT_EQ(name_part(std::string(10000, 'x')).size(), longest_name_part);
}

TEST(Choice, OfNothingIsEverything)
{
    const sensor_choice choice;
    EXPECT_TRUE(choice.wants_group("cpu"));
    EXPECT_TRUE(choice.wants("::md.md0.active_flag"));
}

TEST(Choice, OfGroupsAddsUp)
{
    sensor_choice choice;
    choice.choose("cpu,mem");
    choice.choose("fs");
    EXPECT_TRUE(choice.wants("::cpu.0.busy_percent"));
    EXPECT_TRUE(choice.wants("::fs.root.used_percent"));
    EXPECT_FALSE(choice.wants("::cpufreq.min_MHz"));
    EXPECT_FALSE(choice.wants_group("net"));
}

TEST(Choice, LeavesOutWhatFitsAPattern)
{
    sensor_choice choice;
    choice.choose("cpu,disk");
    choice.exclude("::cpu.total.*");
    choice.exclude("disk.loop*");
    choice.exclude("*.busy_percen[s-t]");
    EXPECT_TRUE(choice.wants("::cpu.0.user_percent"));
    EXPECT_FALSE(choice.wants("::cpu.0.busy_percent"));
    EXPECT_FALSE(choice.wants("::cpu.total.user_percent"));
    EXPECT_FALSE(choice.wants("::disk.loop0.reads_per_s"));
    EXPECT_TRUE(choice.wants("::disk.sda.reads_per_s"));
}

TEST(Choice, OfAGroupThatIsNotThereNamesTheNearest)
{
    EXPECT_THAT(refusal_of("cpu,dsik"), HasSubstr("'dsik'; did you mean 'disk'?"));
    EXPECT_THAT(refusal_of("memory"), HasSubstr("did you mean 'mem'?"));
    EXPECT_THAT(refusal_of("cgr"), HasSubstr("did you mean 'cgroup'?"));
    EXPECT_THAT(refusal_of("xyzzy"), HasSubstr("'vesk sensors --groups' lists them"));
    EXPECT_THAT(refusal_of(""), HasSubstr("no group of sensors ''"));
    EXPECT_THAT(refusal_of("cpu,,mem"), HasSubstr("no group of sensors ''"));
    EXPECT_THAT(refusal_of("\x1b[31m"), HasSubstr("'?[31m'"));
}

} // namespace
