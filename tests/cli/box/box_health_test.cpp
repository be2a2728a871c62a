// Shows what is told of the health of the files of a box and of its tiers.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "box/box_health.hpp"
#include "box/box_writer.hpp"
#include "cli/quick_folder.hpp"
#include "common/temporary_directory.hpp"

namespace
{

using namespace cli;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;

class BoxHealth : public ::testing::Test
{
protected:
    static void write(const std::string &base, const std::string &sensor)
    {
        box_writer writer(base, {4, 2});
        writer.set_sensors(std::vector<std::string>{sensor});
        for (int64_t i = 0; i < 6; ++i) {
            writer.write(1795235400 + 60 * i, std::vector<float>{1});
        }
    }

    temporary_directory folder{quick_folder()};
    std::string base = folder.file("box");
};

TEST_F(BoxHealth, OfAWholeBoxHasItsSizeAndNoFailure)
{
    write(base, "::a");
    const box_health health = health_of(base, false);
    EXPECT_TRUE(health.is_whole());
    EXPECT_FALSE(health.failed);
    EXPECT_STREQ(health.word(), "healthy");
    EXPECT_THAT(health.words(), MatchesRegex("healthy: [0-9]+ B in 3 files"));
    EXPECT_EQ(health.failure_words(), "");
}

TEST_F(BoxHealth, OfADamagedTierIsNotWhole)
{
    write(base, "::a");
    write(base + ".1h", "::tier.1h.samples_count");
    EXPECT_TRUE(health_of(base, false).is_whole());
    EXPECT_THAT(health_of(base, false).words(), EndsWith("; " + base + ".1h: healthy"));
    std::filesystem::remove(base + ".1h.state");
    const box_health health = health_of(base, false);
    EXPECT_FALSE(health.is_whole());
    EXPECT_FALSE(health.failed);
    EXPECT_STREQ(health.word(), "healthy");
    EXPECT_THAT(health.words(), EndsWith("; " + base + ".1h: repairable"));
    // The name of the state file stands for the box without its tiers.
    EXPECT_TRUE(health_of(base + ".state", false).is_whole());
}

TEST_F(BoxHealth, OfALoneFileIsNotLookedAt)
{
    const box_health health = health_of(folder.file("box.1.cbuf.z"), true);
    EXPECT_FALSE(health.is_whole());
    EXPECT_FALSE(health.failed);
    EXPECT_STREQ(health.word(), "not looked at");
    EXPECT_FALSE(health.found);
}

TEST_F(BoxHealth, OfABoxThatIsNotThereIsUnknown)
{
    const box_health health = health_of(folder.file("none"), false);
    EXPECT_FALSE(health.is_whole());
    EXPECT_STREQ(health.word(), "unknown");
    EXPECT_THAT(health.words(), HasSubstr("there is no such box"));
}

} // namespace
