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

} // namespace
