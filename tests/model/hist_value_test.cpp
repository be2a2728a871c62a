// The statistics of one sensor over an interval, to the bit.
#include <bit>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/hist_value.h>
#include <vesk/sensor_value.h>

#include "common/aborts.hpp"
#include "common/failing_calls.hpp"
#include "common/memory_streams.hpp"

namespace
{

constexpr float hist_value::*statistics[] = {
    &hist_value::min_value,   &hist_value::max_value,
    &hist_value::first_value, &hist_value::last_value,
    &hist_value::sum,         &hist_value::sum_squares,
    &hist_value::sum_cubes,   &hist_value::sum_fourth_powers,
};

hist_value summary_of(const std::vector<float> &samples)
{
    hist_value hv;
    hist_value_init(&hv);
    for (const float v : samples) {
        hist_value_update(&hv, v);
    }
    return hv;
}

void expect_same_bits(const hist_value &expected, const hist_value &actual)
{
    EXPECT_EQ(expected.version, actual.version);
    EXPECT_EQ(expected.count, actual.count);
    for (const auto statistic : statistics) {
        EXPECT_EQ(std::bit_cast<uint32_t>(expected.*statistic),
                  std::bit_cast<uint32_t>(actual.*statistic));
    }
}

// 1.0 is 3f800000, 2.0 is 40000000 and so on.
const std::string stored = from_hex("01 00000007"
                                    "3f800000 40000000 40400000 40800000"
                                    "40a00000 40c00000 40e00000 41000000");

hist_value one_to_eight()
{
    return {1, 7, 1, 2, 3, 4, 5, 6, 7, 8};
}

} // namespace

TEST(HistValue, BeginsWithoutSamples)
{
    hist_value hv;
    memset(&hv, 0xff, sizeof hv);
    EXPECT_EQ(0, hist_value_init(&hv));
    expect_same_bits({1, 0, 0, 0, 0, 0, 0, 0, 0, 0}, hv);
    hist_value *created = hist_value_create();
    expect_same_bits(hv, *created);
    hist_value_destroy(&created);
    EXPECT_EQ(nullptr, created);
    hist_value_destruct(&hv);
    EXPECT_EQ(0, hv.version);
}

TEST(HistValue, OfOneSampleIsThatSample)
{
    const hist_value hv = summary_of({-2.5F});
    expect_same_bits({1, 1, -2.5F, -2.5F, -2.5F, -2.5F, -2.5F, 6.25F, -15.625F, 39.0625F}, hv);
}

TEST(HistValue, SumsPowersAndKeepsExtremes)
{
    const hist_value hv = summary_of({2, -1, 3});
    expect_same_bits({1, 3, -1, 3, 2, 3, 4, 14, 34, 98}, hv);
}

TEST(HistValue, IsNotTouchedByAMissingReading)
{
    hist_value hv = summary_of({});
    hist_value_update(&hv, _qe_invalid_sensor_value);
    expect_same_bits(summary_of({}), hv);
    hv = summary_of({4, 5});
    hist_value_update(&hv, std::numeric_limits<float>::quiet_NaN());
    expect_same_bits(summary_of({4, 5}), hv);
}

TEST(HistValue, AddsInSinglePrecision)
{
    // In single precision 16777216 + 1 is 16777216 again.
    EXPECT_EQ(16777216.0F, summary_of({16777216.0F, 1.0F}).sum);
    // Powers are rounded after each multiplication: in double precision 0.7 would end in c5, the
    // square of the square of 1.9 in 7a.
    EXPECT_EQ(0x3e75dcc6U, std::bit_cast<uint32_t>(summary_of({0.7F}).sum_fourth_powers));
    EXPECT_EQ(0x4150837bU, std::bit_cast<uint32_t>(summary_of({1.9F}).sum_fourth_powers));
    EXPECT_EQ(0x419d76caU, std::bit_cast<uint32_t>(summary_of({2.7F}).sum_cubes));
}

TEST(HistValue, KeepsTheEarlierOfEqualExtremes)
{
    const hist_value hv = summary_of({0.0F, -0.0F});
    EXPECT_FALSE(std::signbit(hv.min_value));
    EXPECT_FALSE(std::signbit(hv.max_value));
    EXPECT_TRUE(std::signbit(hv.last_value));
}

TEST(HistValue, OverflowsToInfinity)
{
    const hist_value hv = summary_of({1e10F});
    EXPECT_TRUE(std::isinf(hv.sum_fourth_powers));
    EXPECT_ABORTS(hist_value_is_equal(&hv, &hv), "fabs (c) <= ((float) 1E-6)");
}

TEST(HistValue, MergesInTheOrderOfTime)
{
    hist_value early = summary_of({2, 5});
    const hist_value late = summary_of({3, 1, 4});
    const hist_value before = late;
    hist_value_merge_with(&early, &late);
    expect_same_bits(summary_of({2, 5, 3, 1, 4}), early);
    expect_same_bits(before, late);

    hist_value other = summary_of({3, 1, 4});
    const hist_value first = summary_of({2, 5});
    hist_value_merge_with(&other, &first);
    EXPECT_EQ(3.0F, other.first_value);
    EXPECT_EQ(5.0F, other.last_value);
}

TEST(HistValue, MergingNothingChangesNothing)
{
    hist_value hv = summary_of({2, 5});
    const hist_value none = summary_of({});
    hist_value_merge_with(&hv, &none);
    expect_same_bits(summary_of({2, 5}), hv);
    hist_value empty = summary_of({});
    hist_value_merge_with(&empty, &none);
    expect_same_bits(summary_of({}), empty);
}

TEST(HistValue, MergingIntoNothingTakesTheLaterOne)
{
    hist_value hv = summary_of({});
    const hist_value late = summary_of({2, 5});
    hist_value_merge_with(&hv, &late);
    expect_same_bits(late, hv);
    // Sums that are there without samples are added to.
    hist_value odd = {1, 0, 9, 9, 9, 9, 1, 2, 3, 4};
    hist_value_merge_with(&odd, &late);
    expect_same_bits({1, 2, 2, 5, 2, 5, 8, 31, 136, 645}, odd);
}

TEST(HistValue, MergesTheLaterOfEqualExtremes)
{
    hist_value hv = summary_of({0.0F});
    const hist_value late = summary_of({-0.0F});
    hist_value_merge_with(&hv, &late);
    EXPECT_TRUE(std::signbit(hv.min_value));
    EXPECT_TRUE(std::signbit(hv.max_value));
    EXPECT_FALSE(std::signbit(hv.first_value));
}

TEST(HistValue, CopiesIntoGivenOrNewStorage)
{
    const hist_value hv = one_to_eight();
    hist_value dst;
    EXPECT_EQ(&dst, hist_value_copy(&hv, &dst));
    expect_same_bits(hv, dst);
    hist_value *copy = hist_value_copy(&hv, nullptr);
    expect_same_bits(hv, *copy);
    hist_value_destroy(&copy);
}

TEST(HistValue, ComparesEveryFieldWithTolerance)
{
    const hist_value hv = one_to_eight();
    hist_value other = hv;
    EXPECT_EQ(1, hist_value_is_equal(&hv, &other));
    other.count += 1;
    EXPECT_EQ(0, hist_value_is_equal(&hv, &other));
    for (const auto statistic : statistics) {
        other = hv;
        other.*statistic += 1e-3F;
        EXPECT_EQ(0, hist_value_is_equal(&hv, &other));
        other.*statistic = hv.*statistic + 5e-7F;
        EXPECT_EQ(1, hist_value_is_equal(&hv, &other));
    }
}

TEST(HistValue, InfinitiesOfBothSignsMakeTheSameNaNOnEveryMachine)
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    for (const float v : {infinity, -infinity}) {
        hist_value hv = summary_of({v, -v});
        EXPECT_EQ(0xffc00000U, std::bit_cast<uint32_t>(hv.sum));
        EXPECT_EQ(infinity, hv.sum_squares);
        EXPECT_EQ(0xffc00000U, std::bit_cast<uint32_t>(hv.sum_cubes));
        EXPECT_EQ(infinity, hv.sum_fourth_powers);
        hist_value_update(&hv, 1.0F);
        EXPECT_EQ(0xffc00000U, std::bit_cast<uint32_t>(hv.sum));
    }
}

TEST(HistValue, CubesThatOverflowBothWaysMakeTheSameNaNOnEveryMachine)
{
    const hist_value hv = summary_of({-1e20F, 1e20F});
    EXPECT_EQ(0.0F, hv.sum);
    EXPECT_EQ(0xffc00000U, std::bit_cast<uint32_t>(hv.sum_cubes));
}

TEST(HistValue, MergingMakesTheSameNaNOnEveryMachine)
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    for (const auto sum : {&hist_value::sum, &hist_value::sum_squares, &hist_value::sum_cubes,
                           &hist_value::sum_fourth_powers}) {
        hist_value hv = one_to_eight();
        hist_value other = one_to_eight();
        hv.*sum = infinity;
        other.*sum = -infinity;
        hist_value_merge_with(&hv, &other);
        EXPECT_EQ(0xffc00000U, std::bit_cast<uint32_t>(hv.*sum));
        // Halving merges what was merged before, also with its like.
        other = hv;
        hist_value_merge_with(&hv, &other);
        EXPECT_EQ(0xffc00000U, std::bit_cast<uint32_t>(hv.*sum));
    }
}

TEST(HistValue, ANaNThatIsStoredStaysItselfInSums)
{
    constexpr auto bits = 0x7fc12345U;
    hist_value hv = one_to_eight();
    hv.sum = std::bit_cast<float>(bits);
    hist_value_update(&hv, 1.0F);
    EXPECT_EQ(bits, std::bit_cast<uint32_t>(hv.sum));
    const hist_value number = one_to_eight();
    hist_value_merge_with(&hv, &number);
    EXPECT_EQ(bits, std::bit_cast<uint32_t>(hv.sum));
    hist_value merged = one_to_eight();
    hist_value_merge_with(&merged, &hv);
    EXPECT_EQ(bits, std::bit_cast<uint32_t>(merged.sum));
}

TEST(HistValue, IsStoredIn37Bytes)
{
    const hist_value hv = one_to_eight();
    memory_writer to;
    EXPECT_EQ(37, binary_serializer_write_hist_value(&hv, to.get()));
    EXPECT_EQ(stored, to.bytes());
    hist_value back = summary_of({});
    memory_reader from(stored);
    EXPECT_EQ(37, binary_serializer_read_hist_value(&back, from.get()));
    expect_same_bits(hv, back);
}

TEST(HistValue, KeepsThePayloadOfStoredNaNs)
{
    std::string bytes = stored;
    bytes.replace(5, 4, from_hex("7fffffff"));
    bytes.replace(9, 4, from_hex("7fc12345"));
    hist_value hv = summary_of({});
    memory_reader from(bytes);
    EXPECT_EQ(37, binary_serializer_read_hist_value(&hv, from.get()));
    EXPECT_EQ(0x7fffffffU, std::bit_cast<uint32_t>(hv.min_value));
    memory_writer to;
    EXPECT_EQ(37, binary_serializer_write_hist_value(&hv, to.get()));
    EXPECT_EQ(bytes, to.bytes());
}

TEST(HistValue, StopsWritingAtTheFirstFailure)
{
    const hist_value hv = one_to_eight();
    for (std::size_t capacity = 0; capacity < 37; ++capacity) {
        memory_writer to(capacity, -42);
        EXPECT_EQ(-42, binary_serializer_write_hist_value(&hv, to.get()));
    }
}

TEST(HistValue, TellsTheEndOfTheDataFromATornForm)
{
    for (std::size_t length = 0; length < stored.size(); ++length) {
        hist_value hv = summary_of({});
        memory_reader from(stored.substr(0, length));
        EXPECT_EQ(length == 0 ? 0 : -48, binary_serializer_read_hist_value(&hv, from.get()));
        EXPECT_EQ(length >= 5 ? 7U : 0U, hv.count);
        EXPECT_EQ(length >= 33 ? 7.0F : 0.0F, hv.sum_cubes);
        memory_reader failing(stored.substr(0, length), -41);
        EXPECT_EQ(-41, binary_serializer_read_hist_value(&hv, failing.get()));
    }
}

TEST(HistValue, RefusesUnknownVersionsAndKeepsItsOwn)
{
    hist_value hv = summary_of({});
    memory_reader from(from_hex("ff") + stored.substr(1));
    EXPECT_EQ(-12, binary_serializer_read_hist_value(&hv, from.get()));
    EXPECT_EQ(1, hv.version);
    EXPECT_EQ(0U, hv.count);
}

TEST(HistValue, ReportsMissingMemory)
{
    const hist_value hv = one_to_eight();
    const failing_allocation fails(1, failing_allocation::for_ever);
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, hist_value_create());
    EXPECT_EQ(-22, qe_get_last_error());
    qe_set_last_error(0);
    EXPECT_EQ(nullptr, hist_value_copy(&hv, nullptr));
    EXPECT_EQ(-22, qe_get_last_error());
}

TEST(HistValue, RefusesDeadObjects)
{
    hist_value dead = {};
    hist_value live = summary_of({1});
    memory_writer to;
    memory_reader from("");
    const char *const text = "hv->version == ((char) 1)";
    EXPECT_ABORTS(hist_value_destruct(&dead), text);
    EXPECT_ABORTS(hist_value_copy(&dead, nullptr), text);
    EXPECT_ABORTS(hist_value_update(&dead, 1), text);
    EXPECT_ABORTS(hist_value_is_equal(&dead, &live), "hv1->version == ((char) 1)");
    EXPECT_ABORTS(hist_value_is_equal(&live, &dead), "hv2->version == ((char) 1)");
    EXPECT_ABORTS(hist_value_merge_with(&dead, &live), "hv1->version == ((char) 1)");
    EXPECT_ABORTS(hist_value_merge_with(&live, &dead), "hv2->version == ((char) 1)");
    EXPECT_ABORTS(binary_serializer_write_hist_value(&dead, to.get()), text);
    EXPECT_ABORTS(binary_serializer_read_hist_value(&dead, from.get()), text);
}

TEST(HistValue, RefusesNull)
{
    hist_value hv = summary_of({1});
    hist_value *none = nullptr;
    memory_writer to;
    memory_reader from("");
    const char *const text = "hv != ((void *)0)";
    EXPECT_ABORTS(hist_value_init(nullptr), text);
    EXPECT_ABORTS(hist_value_destruct(nullptr), text);
    EXPECT_ABORTS(hist_value_destroy(nullptr), text);
    EXPECT_ABORTS(hist_value_destroy(&none), "*hv != ((void *)0)");
    EXPECT_ABORTS(hist_value_copy(nullptr, &hv), text);
    EXPECT_ABORTS(hist_value_is_equal(nullptr, &hv), "hv1 != ((void *)0)");
    EXPECT_ABORTS(hist_value_is_equal(&hv, nullptr), "hv2 != ((void *)0)");
    EXPECT_ABORTS(hist_value_update(nullptr, 1), text);
    EXPECT_ABORTS(hist_value_merge_with(nullptr, &hv), "hv1 != ((void *)0)");
    EXPECT_ABORTS(hist_value_merge_with(&hv, nullptr), "hv2 != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_write_hist_value(nullptr, to.get()), text);
    EXPECT_ABORTS(binary_serializer_write_hist_value(&hv, nullptr), "writer != ((void *)0)");
    EXPECT_ABORTS(binary_serializer_read_hist_value(nullptr, from.get()), text);
    EXPECT_ABORTS(binary_serializer_read_hist_value(&hv, nullptr), "reader != ((void *)0)");
}
