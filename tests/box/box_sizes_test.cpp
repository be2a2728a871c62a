// The sizes of which a box can be made, and the buffers of each stage.
#include <gtest/gtest.h>

#include "box/box_sizes.hpp"
#include "box/stage_places.hpp"

namespace
{

TEST(BoxSizes, AreUsableWhenTheIntervalsDivideAnEvenNumberOfSamples)
{
    for (const recorder_sizes &good : {recorder_sizes{2, 1},
                                       {2, 2},
                                       {40, 4},
                                       {6, 3},
                                       {UINT32_MAX - 1, 1},
                                       {UINT32_MAX - 1, UINT32_MAX - 1}}) {
        EXPECT_TRUE(good.usable()) << good.samples << " " << good.intervals;
    }
    for (const recorder_sizes &bad :
         {recorder_sizes{0, 0}, {0, 1}, {2, 0}, {3, 1}, {3, 3}, {40, 3}, {4, 8}, {UINT32_MAX, 1}}) {
        EXPECT_FALSE(bad.usable()) << bad.samples << " " << bad.intervals;
    }
}

TEST(BoxSizes, TellWhetherAHistoryOfThemCanBeMade)
{
    EXPECT_TRUE((recorder_sizes{VESK_MAX_INTERVALS, VESK_MAX_INTERVALS}).history_fits());
    EXPECT_FALSE((recorder_sizes{VESK_MAX_INTERVALS + 1, VESK_MAX_INTERVALS + 1}).history_fits());
}

TEST(BoxSizes, AreTheSameWhenBothAre)
{
    EXPECT_EQ((recorder_sizes{40, 4}), (recorder_sizes{40, 4}));
    EXPECT_NE((recorder_sizes{40, 4}), (recorder_sizes{40, 2}));
    EXPECT_NE((recorder_sizes{40, 4}), (recorder_sizes{20, 4}));
}

TEST(StagePlaces, TheLastBufferOfAStageIsTheOpenOne)
{
    for (uint32_t stage = VESK_ZCF_STATE_C00; stage <= VESK_ZCF_STATE_HCC; ++stage) {
        EXPECT_TRUE(is_stage(stage));
        const stage_places places = places_of_stage(stage);
        EXPECT_EQ(stage == VESK_ZCF_STATE_HCC ? 3U : stage, places.n);
        for (uint32_t i = 0; i < places.n; ++i) {
            EXPECT_EQ(i + 1 == places.n, places.places[i].is_open) << stage << " " << i;
            const bool is_history = stage == VESK_ZCF_STATE_HCC && i == 0;
            EXPECT_EQ(is_history ? VESK_BUFFER_TYPE_HIST : VESK_BUFFER_TYPE_CURRENT,
                      places.places[i].kind);
        }
    }
}

TEST(StagePlaces, NothingElseIsAStage)
{
    for (const uint32_t stage : {0U, 5U, UINT32_MAX}) {
        EXPECT_FALSE(is_stage(stage));
        EXPECT_EQ(0U, places_of_stage(stage).n);
    }
}

} // namespace
