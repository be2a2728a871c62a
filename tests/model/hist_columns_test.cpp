// Statistics in columns have the bits of those that are updated one by one.
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

#include <vesk/error.h>

#include "common/failing_calls.hpp"
#include "model/hist_columns.hpp"
#include "support/bits.hpp"

namespace
{

constexpr float infinite = std::numeric_limits<float>::infinity();
constexpr float missing = std::numeric_limits<float>::quiet_NaN();

// Numbers of every kind: usual ones, large enough that their powers overflow, tiny, signed zeros,
// infinities, and readings that are missing.
float draw(std::mt19937 &random)
{
    constexpr float odd[] = {0.0F,   -0.0F,  infinite, -infinite, missing, 1e30F,
                             -3e38F, 1e-40F, 7.25F,    -7.25F,    1.0F,    5e-12F};
    const auto choice = static_cast<std::size_t>(random() % 24);
    return choice < std::size(odd) ? odd[choice]
                                   : static_cast<float>(random()) / 65536.0F - 9999.0F;
}

void expect_the_same_statistics(const hist_value &expected, const hist_value &found)
{
    EXPECT_EQ(expected.count, found.count);
    for (const auto field :
         {&hist_value::min_value, &hist_value::max_value, &hist_value::first_value,
          &hist_value::last_value, &hist_value::sum, &hist_value::sum_squares,
          &hist_value::sum_cubes, &hist_value::sum_fourth_powers}) {
        EXPECT_EQ(bits_of(expected.*field), bits_of(found.*field));
    }
}

TEST(HistColumns, HaveTheBitsOfSingleUpdates)
{
    std::mt19937 random(7);
    hist_columns columns;
    for (const uint32_t n : {1U, 2U, 3U, 4U, 5U, 7U, 8U, 100U, 33U}) {
        std::vector<hist_value> one_by_one(n);
        std::vector<hist_value> in_columns(n);
        ASSERT_TRUE(columns.reserve(n));
        for (uint32_t i = 0; i < n; ++i) {
            hist_value_init(&one_by_one[i]);
            hist_value_init(&in_columns[i]);
            columns.places()[i] = &in_columns[i];
        }
        for (int round = 0; round < 50; ++round) {
            columns.load();
            for (int sample = 0; sample < 1 + round % 4; ++sample) {
                std::vector<float> values(n);
                for (uint32_t i = 0; i < n; ++i) {
                    values[i] = draw(random);
                    hist_value_update(&one_by_one[i], values[i]);
                }
                columns.update(values.data());
            }
            columns.store();
            for (uint32_t i = 0; i < n; ++i) {
                expect_the_same_statistics(one_by_one[i], in_columns[i]);
            }
        }
    }
}

TEST(HistColumns, NeedMemoryAndSayNothingOfIt)
{
    for (int n = 1; n <= 3; ++n) {
        qe_set_last_error(0);
        hist_columns columns;
        const failing_allocation failing(n);
        EXPECT_FALSE(columns.reserve(100));
        EXPECT_EQ(0, qe_get_last_error());
    }
    hist_columns columns;
    EXPECT_FALSE(columns.reserve(UINT32_MAX));
    EXPECT_TRUE(columns.reserve(5));
}

} // namespace
