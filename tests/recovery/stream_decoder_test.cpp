// The search for streams.
#include <gtest/gtest.h>
#include <type_traits>

#include "recovery/stream_decoder.hpp"

// The budget is not a product in a size_t, which has 32 bits on some machines.
TEST(SearchBudget, IsRightForFilesOfAnySize)
{
    EXPECT_EQ(65536U, _vesk_search_budget(0, 65536));
    EXPECT_EQ((uint64_t(1) << 32) + 65536, _vesk_search_budget(uint64_t(64) << 20, 65536));
    static_assert(std::is_same_v<uint64_t, decltype(_vesk_search_budget(0, 65536))>);
}
