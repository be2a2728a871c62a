// When a machine counts as hard pressed.
#include <gtest/gtest.h>

#include "cli/machine/fake_machine.hpp"
#include "machine/strain.hpp"

namespace
{

using namespace cli;

TEST(Strain, IsReadFromThreeFiles)
{
    const fake_machine machine;
    machine.put("/proc/pressure/memory", "some avg10=12.50 avg60=1.00 avg300=0.00 total=1\n"
                                         "full avg10=99.00 avg60=1.00 avg300=0.00 total=1\n");
    machine.put("/proc/meminfo", "MemTotal:  16 kB\nSwapCached: 1 kB\nSwapTotal:       1000 kB\n"
                                 "SwapFree:         250 kB\n");
    machine.put("/proc/loadavg", "6.40 1.00 0.50 1/100 1234\n");
    const strain_values found = read_strain(machine.root(), 4);
    EXPECT_DOUBLE_EQ(found.memory_pressure, 12.5);
    EXPECT_DOUBLE_EQ(found.swap_used, 75);
    EXPECT_DOUBLE_EQ(found.load, 1.6);
}

TEST(Strain, IsNoneWhereTheKernelTellsNothing)
{
    const fake_machine machine;
    const strain_values found = read_strain(machine.root(), 0);
    EXPECT_EQ(found.memory_pressure + found.swap_used + found.load, 0);
}

TEST(Strain, IsNoneInFilesThatMakeNoSense)
{
    EXPECT_EQ(parse_memory_pressure("full avg10=50"), 0);
    EXPECT_EQ(parse_memory_pressure("some avg10="), 0);
    EXPECT_EQ(parse_memory_pressure("some avg10=nan"), 0);
    EXPECT_EQ(parse_memory_pressure("some avg10=inf"), 0);
    EXPECT_EQ(parse_swap_used("SwapTotal: 0 kB\nSwapFree: 0 kB\n"), 0);
    EXPECT_EQ(parse_swap_used("SwapTotal: 5 kB\nSwapFree: 10 kB\n"), 0);
    EXPECT_EQ(parse_swap_used("SwapTotal: -5 kB"), 0);
    EXPECT_EQ(parse_load("-3 x"), 0);
    EXPECT_EQ(parse_load(""), 0);
}

TEST(Strain, IsToldWhenAMarkIsPassedUpwards)
{
    strain_watch watch;
    EXPECT_EQ(watch.look({9.9, 0, 0}), "");
    EXPECT_FALSE(watch.is_strained());
    EXPECT_EQ(watch.look({10, 0, 0}), "memory");
    EXPECT_TRUE(watch.is_strained());
    EXPECT_EQ(watch.look({39, 0, 0}), "");
    EXPECT_EQ(watch.look({41, 0, 0}), "memory");
    EXPECT_EQ(watch.look({20, 0, 0}), "");
    EXPECT_TRUE(watch.is_strained());
    EXPECT_EQ(watch.look({0, 55, 0}), "swap");
    EXPECT_EQ(watch.look({0, 0, 2}), "load");
    EXPECT_EQ(watch.look({0, 0, 9}), "load");
    EXPECT_EQ(watch.look({0, 0, 0}), "");
    EXPECT_FALSE(watch.is_strained());
}

TEST(Strain, AboveAMarkAtTheFirstLookIsTold)
{
    strain_watch watch;
    EXPECT_EQ(watch.look({80, 95, 10}), "memory");
}

} // namespace
