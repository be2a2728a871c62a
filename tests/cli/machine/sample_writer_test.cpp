// Shows which samples a sample_writer takes, and what ends a recording.
#include <gtest/gtest.h>

#include "cli/quick_folder.hpp"
#include "common/temporary_directory.hpp"
#include "machine/sample_writer.hpp"
#include "process/failure.hpp"

namespace
{

using namespace cli;

constexpr int64_t now = 1'600'000'000;

class SampleWriter : public testing::Test
{
protected:
    temporary_directory folder_{quick_folder()};
    bool write(int64_t time, readings found) { return samples_.write(time, found); }

    box_writer box_{folder_.file("box")};
    sample_writer samples_{box_, "box", false};
};

TEST_F(SampleWriter, EndsWhereTheMachineNeverGaveAReading)
{
    EXPECT_THROW(write(now, {}), failure);
}

TEST_F(SampleWriter, MissesASampleWhereTheMachineGaveReadingsBefore)
{
    EXPECT_TRUE(write(now, {{"cpu"}, {1.0F}}));
    EXPECT_FALSE(write(now + 1, {}));
    EXPECT_EQ(samples_.missing(), 1U);
}

// The descriptors may run out between the look before the first sample and the sample itself.
TEST_F(SampleWriter, MissesTheFirstSampleWhereTheMachineWasSeenToGiveReadings)
{
    samples_.readings_exist();
    EXPECT_FALSE(write(now, {}));
    EXPECT_TRUE(write(now + 1, {{"cpu"}, {1.0F}}));
    EXPECT_EQ(samples_.recorded(), 1U);
}

} // namespace
