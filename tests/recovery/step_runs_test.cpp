// Steps that are summed up.
#include <gtest/gtest.h>
#include <vector>

#include "recovery/step_runs.hpp"

namespace
{

struct summed {
    vesk_recover_action action;
    uint64_t offset;
    uint64_t length;
    uint32_t count;
    friend bool operator==(const summed &, const summed &) = default;
};
using summed_steps = std::vector<summed>;

int keep(const vesk_recover_step *step, void *to)
{
    static_cast<summed_steps *>(to)->push_back(
        {step->action, step->offset, step->length, step->count});
    return 0;
}

TEST(StepRuns, SumsUpWhatIsDoneInStreamsThatFollowEachOther)
{
    summed_steps found;
    uint32_t steps = 0;
    const step_receiver receiver = {keep, &found};
    step_runs runs("f", receiver, &steps);
    for (int i = 0; i < 1000; ++i) {
        EXPECT_EQ(0, runs.add_record(VESK_RECOVER_TAG_EVENT, -6, 0, 10));
        EXPECT_EQ(0, runs.add_record(VESK_RECOVER_SET_ASIDE, -6, 0, 10));
    }
    EXPECT_EQ(0, runs.add_record(VESK_RECOVER_TAG_EVENT, -6, 10, 5));
    EXPECT_EQ(0, runs.add_record(VESK_RECOVER_TAG_EVENT, -6, 20, 5)); // a good stream is between
    EXPECT_EQ(0, runs.add(VESK_RECOVER_CUT, -41, 25, 3, 0));
    EXPECT_EQ(0, runs.finish());
    EXPECT_EQ((summed_steps{{VESK_RECOVER_TAG_EVENT, 0, 15, 1001},
                            {VESK_RECOVER_SET_ASIDE, 0, 10, 1000},
                            {VESK_RECOVER_TAG_EVENT, 20, 5, 1},
                            {VESK_RECOVER_CUT, 25, 3, 0}}),
              found);
    EXPECT_EQ(4U, steps);
}

// More kinds of steps than are summed up, and a receiver that ends it.
TEST(StepRuns, ReturnsWhatTheReceiverReturned)
{
    int left = 3;
    const auto take = [](const vesk_recover_step *, void *to) {
        return --*static_cast<int *>(to) == 0 ? 7 : 0;
    };
    uint32_t steps = 0;
    const step_receiver receiver = {take, &left};
    step_runs runs("f", receiver, &steps);
    int result = 0;
    int given = 0;
    for (; given < 40 && result == 0; ++given) {
        result = runs.add_record(VESK_RECOVER_SET_ASIDE, -given, 0, 10);
    }
    EXPECT_EQ(7, result);
    EXPECT_EQ(17, given); // the first 16 wait for each other
    EXPECT_EQ(3U, steps);
}

// Where there is no room to count a kind, its steps are told one by one.
TEST(StepRuns, TellsOfMoreKindsThanItCounts)
{
    summed_steps found;
    uint32_t steps = 0;
    const step_receiver receiver = {keep, &found};
    step_runs runs("f", receiver, &steps);
    for (int round = 0; round < 100; ++round) {
        for (int kind = 0; kind < 66; ++kind) {
            EXPECT_EQ(0, runs.add(VESK_RECOVER_CUT, -kind, 0, 1, 0));
        }
    }
    EXPECT_EQ(0, runs.finish());
    // 64 kinds are told 64 times each and once for the rest of them, two kinds 100 times each.
    EXPECT_EQ(64U * 65 + 2 * 100, found.size());
    EXPECT_EQ(found.size(), steps);
}

} // namespace
