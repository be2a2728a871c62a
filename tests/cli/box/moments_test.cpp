// Statistics of samples and of intervals, alone and merged.
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

#include "box/moments.hpp"
#include "box/sensor_statistics.hpp"

namespace
{

using namespace cli;

hist_value interval_of(const std::vector<float> &samples)
{
    hist_value value;
    hist_value_init(&value);
    for (const float sample : samples) {
        hist_value_update(&value, sample);
    }
    return value;
}

moments samples_of(const std::vector<float> &samples)
{
    moments result;
    for (const float sample : samples) {
        result.add(sample);
    }
    return result;
}

// In two passes, which needs the samples.
struct exact {
    double mean = 0;
    double deviation = 0;
    double skewness = 0;
    double kurtosis = 0;

    explicit exact(const std::vector<float> &samples)
    {
        const auto n = static_cast<double>(samples.size());
        for (const float x : samples) {
            mean += static_cast<double>(x) / n;
        }
        double m2 = 0;
        double m3 = 0;
        double m4 = 0;
        for (const float x : samples) {
            const double d = static_cast<double>(x) - mean;
            m2 += d * d / n;
            m3 += d * d * d / n;
            m4 += d * d * d * d / n;
        }
        deviation = std::sqrt(m2);
        skewness = m3 / std::pow(m2, 1.5);
        kurtosis = m4 / (m2 * m2);
    }
};

std::vector<float> random_samples(std::size_t count, double centre, double width, unsigned seed)
{
    std::mt19937 source(seed);
    std::gamma_distribution<double> shape(2.0, width);
    std::vector<float> samples;
    for (std::size_t i = 0; i < count; ++i) {
        samples.push_back(static_cast<float>(centre + shape(source)));
    }
    return samples;
}

TEST(Moments, OfSamplesAreThoseOfTwoPasses)
{
    for (const double centre : {0.0, 1e3, -1e6}) {
        const std::vector<float> samples = random_samples(5000, centre, 10, 1);
        const exact right(samples);
        const moments found = samples_of(samples);
        EXPECT_EQ(found.count(), samples.size());
        EXPECT_NEAR(found.mean(), right.mean, 1e-9 * (1 + std::fabs(right.mean)));
        EXPECT_NEAR(found.deviation().value, right.deviation, 1e-9 * right.deviation);
        EXPECT_FALSE(found.deviation().is_rough);
        EXPECT_NEAR(found.skewness(), right.skewness, 1e-6);
        EXPECT_NEAR(found.kurtosis(), right.kurtosis, 1e-6);
    }
}

TEST(Moments, OfIntervalsAndSamplesMergedAreThoseOfAllSamples)
{
    const summing how = {600, 10};
    const std::vector<float> samples = random_samples(600, 20, 10, 2);
    moments merged;
    for (std::size_t i = 0; i < 300; i += 60) {
        merged.add(interval_of({samples.begin() + static_cast<std::ptrdiff_t>(i),
                                samples.begin() + static_cast<std::ptrdiff_t>(i + 60)}),
                   how);
    }
    for (std::size_t i = 300; i < 600; ++i) {
        merged.add(samples[i]);
    }
    const exact right(samples);
    EXPECT_EQ(merged.count(), 600U);
    EXPECT_NEAR(merged.mean(), right.mean, 1e-5 * right.mean);
    EXPECT_NEAR(merged.deviation().value, right.deviation, 1e-4 * right.deviation);
    EXPECT_FALSE(merged.deviation().is_rough);
    EXPECT_NEAR(merged.skewness(), right.skewness, 1e-2);
    EXPECT_NEAR(merged.kurtosis(), right.kurtosis, 2e-2);
}

TEST(Moments, MergingIsTheSameInAnyGrouping)
{
    const std::vector<float> samples = random_samples(1000, 5, 3, 3);
    moments pairwise;
    for (std::size_t i = 0; i < samples.size(); i += 125) {
        pairwise.merge(samples_of({samples.begin() + static_cast<std::ptrdiff_t>(i),
                                   samples.begin() + static_cast<std::ptrdiff_t>(i + 125)}));
    }
    const moments straight = samples_of(samples);
    EXPECT_NEAR(pairwise.mean(), straight.mean(), 1e-12);
    EXPECT_NEAR(pairwise.deviation().value, straight.deviation().value, 1e-12);
    EXPECT_NEAR(pairwise.skewness(), straight.skewness(), 1e-10);
    EXPECT_NEAR(pairwise.kurtosis(), straight.kurtosis(), 1e-10);
}

TEST(Moments, ASensorThatNeverChangesHasNoDeviation)
{
    for (const float value : {0.1F, 16777217.0F, 1e-30F, 3e9F, -0.7F}) {
        const moments interval = [&] {
            moments result;
            result.add(interval_of(std::vector<float>(1000, value)), {});
            result.add(interval_of(std::vector<float>(777, value)), {});
            result.add(value);
            return result;
        }();
        EXPECT_EQ(interval.mean(), static_cast<double>(value));
        EXPECT_EQ(interval.deviation().value, 0);
        EXPECT_FALSE(interval.deviation().is_rough);
        EXPECT_TRUE(std::isnan(interval.skewness()));
        EXPECT_TRUE(std::isnan(interval.kurtosis()));
    }
}

// The sums of such intervals often give a mean outside of the extremes, or a variance below 0.
TEST(Moments, StayWithinWhatTheExtremesAllow)
{
    std::mt19937 source(4);
    for (int round = 0; round < 2000; ++round) {
        const double centre = std::pow(10.0, std::uniform_real_distribution<>(-35, 35)(source));
        const double width =
            centre * std::pow(10.0, std::uniform_real_distribution<>(-8, 0)(source));
        const std::vector<float> samples = random_samples(
            3 + static_cast<std::size_t>(round) % 200, centre, width, static_cast<unsigned>(round));
        moments found;
        found.add(interval_of(samples), {});
        const exact right(samples);
        const estimate deviation = found.deviation();
        if (std::isnan(deviation.value)) {
            ASSERT_GT(centre, 1e17); // its squares are too large
            continue;
        }
        ASSERT_GE(found.mean(), found.least());
        ASSERT_LE(found.mean(), found.greatest());
        ASSERT_GE(deviation.value, 0);
        ASSERT_LE(deviation.value * (1 - 1e-12),
                  std::sqrt((found.greatest() - found.mean()) * (found.mean() - found.least())));
        if (!deviation.is_rough) {
            ASSERT_NEAR(deviation.value, right.deviation, 0.0501 * right.deviation + 1e-12 * centre)
                << round;
        }
        if (!std::isnan(found.skewness())) {
            ASSERT_NEAR(found.skewness(), right.skewness, 0.05 + 0.2 * std::fabs(right.skewness));
        }
        if (!std::isnan(found.kurtosis())) {
            ASSERT_NEAR(found.kurtosis(), right.kurtosis, 0.1 + 0.2 * right.kurtosis);
        }
    }
}

TEST(Moments, WhatIsLostInSinglePrecisionIsMarkedAndNotInvented)
{
    // The squares agree in all the digits that a sum of them has.
    std::vector<float> samples;
    samples.reserve(60);
    for (int i = 0; i < 60; ++i) {
        samples.push_back(1e7F + static_cast<float>(i % 2));
    }
    moments found;
    found.add(interval_of(samples), {3600, 60});
    EXPECT_TRUE(found.deviation().is_rough);
    EXPECT_LE(found.deviation().value, 0.5);
    EXPECT_TRUE(std::isnan(found.skewness()));
    EXPECT_TRUE(std::isnan(found.kurtosis()));
}

TEST(Moments, SumsThatOverflowedTellNothing)
{
    moments found;
    found.add(interval_of({1e20F, 2e20F, 4e20F}), {});
    EXPECT_NEAR(found.mean(), 7e20 / 3, 1e14);
    EXPECT_TRUE(std::isnan(found.deviation().value));
    EXPECT_TRUE(std::isnan(found.skewness()));
    EXPECT_TRUE(std::isnan(found.kurtosis()));
    EXPECT_EQ(found.greatest(), static_cast<double>(4e20F));
    moments larger;
    larger.add(interval_of({1e38F, 3e38F, 3e38F}), {});
    EXPECT_TRUE(std::isnan(larger.mean()));
    EXPECT_TRUE(std::isnan(larger.deviation().value));
}

TEST(Moments, SumsThatVanishedTellLittle)
{
    moments found;
    found.add(interval_of({1e-30F, 2e-30F, 4e-30F, 4e-30F}), {});
    EXPECT_NEAR(found.mean(), 2.75e-30, 1e-36);
    EXPECT_TRUE(found.deviation().is_rough);
    EXPECT_TRUE(std::isnan(found.skewness()));
    EXPECT_TRUE(std::isnan(found.kurtosis()));
}

TEST(Moments, TwoSamplesAreToldExactlyByTheirExtremes)
{
    moments found;
    found.add(interval_of({1e7F, 1e7F + 1}), {});
    EXPECT_EQ(found.mean(), 1e7 + 0.5);
    EXPECT_EQ(found.deviation().value, 0.5);
    EXPECT_FALSE(found.deviation().is_rough);
}

TEST(Moments, OfNothingAreNotNumbers)
{
    moments none;
    none.add(std::numeric_limits<float>::quiet_NaN());
    none.add(interval_of({}), {});
    EXPECT_EQ(none.count(), 0U);
    EXPECT_TRUE(std::isnan(none.mean()));
    EXPECT_TRUE(std::isnan(none.deviation().value));
    EXPECT_TRUE(std::isnan(none.skewness()));
    EXPECT_TRUE(std::isnan(none.kurtosis()));
}

// A file may hold anything.
TEST(Moments, OfNonsenseDoNotEndTheProcess)
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    const std::vector<float> odd = {0, -0.0F, 1, -1, infinity, -infinity, nan, 3.4e38F, 1e-45F};
    std::mt19937 source(5);
    const auto any = [&] { return odd[source() % odd.size()]; };
    for (int round = 0; round < 20000; ++round) {
        moments found;
        for (int i = 0; i < 3; ++i) {
            hist_value value = interval_of({});
            value.count = i == 0 ? 0xffffffffU : static_cast<uint32_t>(source() % 4);
            value.min_value = any();
            value.max_value = any();
            value.sum = any();
            value.sum_squares = any();
            value.sum_cubes = any();
            value.sum_fourth_powers = any();
            found.add(value,
                      {static_cast<uint32_t>(source() % 3), static_cast<uint32_t>(source() % 3)});
            found.add(any());
        }
        const double mean = found.mean();
        ASSERT_TRUE(std::isnan(mean) || (mean >= found.least() && mean <= found.greatest()));
        const double deviation = found.deviation().value;
        ASSERT_TRUE(std::isnan(deviation) || deviation >= 0);
        (void)found.skewness();
        (void)found.kurtosis();
    }
}

TEST(Moments, IntervalsWhoseExtremesContradictEachOtherDoNotCount)
{
    hist_value value = interval_of({1, 2});
    std::swap(value.min_value, value.max_value);
    EXPECT_FALSE(moments::is_possible(value));
    moments found;
    found.add(value, {});
    EXPECT_EQ(found.count(), 0U);
}

moments of_row(double mean, double deviation, const hist_value &all)
{
    moments means;
    means.add(static_cast<float>(mean));
    return moments::of_rows(means, deviation * deviation, 0x1p-23, all);
}

TEST(Moments, OfARowKeepItsDeviationWithinWhatItsExtremesAllow)
{
    const hist_value all = interval_of({0, 4, 1, 1, 1, 1, 1, 1, 0, 0});
    const moments usual = of_row(1, 1.1, all);
    EXPECT_DOUBLE_EQ(usual.mean(), 1);
    EXPECT_NEAR(usual.deviation().value, 1.1, 1e-6);
    EXPECT_FALSE(usual.deviation().is_rough);
    EXPECT_TRUE(std::isnan(usual.skewness()));
    EXPECT_LE(of_row(1, 1e9, all).deviation().value, std::sqrt(3.0));
    EXPECT_GT(of_row(1, 0, all).deviation().value, 0);
    EXPECT_LE(of_row(70, 1, all).mean(), 4);
    const double infinite = std::numeric_limits<double>::infinity();
    EXPECT_TRUE(std::isnan(of_row(1, infinite, all).deviation().value));
    EXPECT_TRUE(std::isnan(of_row(1, NAN, all).deviation().value));
    EXPECT_TRUE(std::isnan(of_row(infinite, 1, all).mean()));
    EXPECT_EQ(moments::of_rows(moments(), 1, 0, all).count(), 0U);
}

// Rows that each tell of nothing that varies may still differ from each other.
TEST(Moments, OfRowsTellHowTheirMeansVary)
{
    moments means;
    means.add(3.0F);
    means.add(5.0F);
    const hist_value all = interval_of({3, 3, 3, 5, 5, 5});
    EXPECT_NEAR(moments::of_rows(means, 0, 0, all).deviation().value, 1, 1e-6);
}

TEST(SensorStatistics, TellWhenTheExtremesWere)
{
    sensor_statistics sensor;
    sensor.add({interval_of({5, 1, 9})}, {100, 160}, {});
    sensor.add(std::numeric_limits<float>::quiet_NaN(), 170);
    sensor.add(1, 180);
    sensor.add(12, 190);
    sensor.add(12, 200);
    EXPECT_EQ(sensor.numbers().count(), 6U);
    EXPECT_EQ(sensor.first(), 5);
    EXPECT_EQ(sensor.last(), 12);
    EXPECT_EQ(sensor.when_least().start, 100);
    EXPECT_EQ(sensor.when_least().end, 160);
    EXPECT_EQ(sensor.when_greatest().start, 190);
    EXPECT_EQ(sensor.when_first().start, 100);
    EXPECT_EQ(sensor.when_last().start, 200);
}

} // namespace
