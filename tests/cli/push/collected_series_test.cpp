// What is sent by remote write: decompressed and read back.
#include <gtest/gtest.h>
#include <snappy.h>

#include "push/collected_series.hpp"
#include "push/remote_write.pb.h"

namespace
{

using namespace cli;

vesk::remote::WriteRequest message_in(const std::string &request)
{
    std::string whole;
    vesk::remote::WriteRequest message;
    EXPECT_TRUE(snappy::Uncompress(request.data(), request.size(), &whole));
    EXPECT_TRUE(message.ParseFromString(whole));
    return message;
}

TEST(CollectedSeries, LabelsAndTimesAreInTheirOrder)
{
    collected_series rows;
    rows.add({{"box", "b"}, {"__name__", "m"}, {"a", "x"}}, 2000, 2);
    rows.add({{"__name__", "m"}, {"a", "x"}, {"box", "b"}}, 1000, 1);
    const auto message = message_in(rows.request(0, 9000));
    ASSERT_EQ(message.timeseries_size(), 1);
    const auto &series = message.timeseries(0);
    ASSERT_EQ(series.labels_size(), 3);
    EXPECT_EQ(series.labels(0).name(), "__name__");
    EXPECT_EQ(series.labels(1).name(), "a");
    EXPECT_EQ(series.labels(2).value(), "b");
    ASSERT_EQ(series.samples_size(), 2);
    EXPECT_EQ(series.samples(0).timestamp(), 1000);
    EXPECT_EQ(series.samples(0).value(), 1);
    EXPECT_EQ(series.samples(1).timestamp(), 2000);
}

TEST(CollectedSeries, ASeriesHasOneValueAtATimeTheLatest)
{
    collected_series rows;
    rows.add({{"__name__", "m"}}, 1000, 1);
    rows.add({{"__name__", "m"}}, 1000, 2);
    EXPECT_EQ(rows.count(), 1U);
    EXPECT_EQ(message_in(rows.request(0, 9000)).timeseries(0).samples(0).value(), 2);
}

TEST(CollectedSeries, ARequestHasTheTimesThatAreAskedFor)
{
    collected_series rows;
    for (int64_t time = 1; time <= 10; ++time) {
        rows.add({{"__name__", "m"}}, time, 0);
    }
    rows.add({{"__name__", "late"}}, 10, 0);
    EXPECT_EQ(rows.times().size(), 10U);
    const auto message = message_in(rows.request(4, 6));
    ASSERT_EQ(message.timeseries_size(), 1);
    EXPECT_EQ(message.timeseries(0).samples_size(), 3);
    rows.clear();
    EXPECT_EQ(rows.count(), 0U);
    EXPECT_TRUE(rows.times().empty());
}

TEST(CollectedSeries, TheShortestDecimalIsSent)
{
    EXPECT_EQ(shortest_double(0.1F), 0.1);
    EXPECT_EQ(shortest_double(-12345.678F), -12345.678);
    for (const float value : {0.1F, 1e-40F, 3.4e38F, 16777216.0F, -0.0F}) {
        EXPECT_EQ(static_cast<float>(shortest_double(value)), value);
    }
}

} // namespace
