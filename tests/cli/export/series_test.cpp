// Series that are collected from rows, within a bounded amount of memory.
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <map>
#include <numeric>

#include "box/box_writer.hpp"
#include "cli/quick_folder.hpp"
#include "cli/usual_values.hpp"
#include "common/temporary_directory.hpp"
#include "export/series.hpp"

namespace
{

using namespace cli;

class Series : public ::testing::Test
{
protected:
    std::string base() const { return folder.file("box"); }

    void write(const std::vector<std::pair<int64_t, std::vector<float>>> &rows)
    {
        box_writer writer(base(), {4, 2});
        writer.set_sensors(std::vector<std::string>{"::a", "::b"});
        for (const auto &[time, values] : rows) {
            writer.write(new_year + time, values);
        }
    }

    // The points of each series of a box, by metric and sensor.
    using found_points = std::map<std::string, std::vector<std::pair<int64_t, double>>>;
    found_points collect(std::size_t room)
    {
        reading source(base());
        export_progress progress;
        std::vector<std::size_t> chosen(source.sensors().size());
        std::iota(chosen.begin(), chosen.end(), std::size_t{0});
        const export_job job = {source, {}, chosen,    export_names(source.sensors()),
                                {},     {}, zone::utc, progress};
        const std::vector<named_series> series = named_series_of(job);
        std::vector<series_key> keys;
        for (const named_series &each : series) {
            keys.push_back(each.key);
        }
        found_points found;
        std::size_t next = 0;
        for_each_series(
            job, keys,
            [&](const series_key &key, std::span<series_point> points) {
                const named_series &each = series[next++];
                EXPECT_EQ(key.sensor, each.key.sensor);
                EXPECT_EQ(key.what, each.key.what);
                for (const series_point &point : points) {
                    found[each.metric].emplace_back(point.time - new_year, point.value);
                }
            },
            room);
        EXPECT_EQ(next, series.size());
        return found;
    }

    temporary_directory folder{quick_folder()};
};

TEST_F(Series, AreTheSameHoweverLittleIsReadAtOnce)
{
    std::vector<std::pair<int64_t, std::vector<float>>> rows;
    for (int i = 0; i < 30; ++i) {
        rows.push_back({i, {static_cast<float>(i), i % 3 == 0 ? missing : -static_cast<float>(i)}});
    }
    write(rows);
    const found_points all = collect(most_points);
    double summarised = 0;
    for (const auto &[time, count] : all.at("vesk_a_count")) {
        summarised += count;
    }
    EXPECT_EQ(static_cast<double>(all.at("vesk_a").size()) + summarised, 30);
    EXPECT_EQ(all.at("vesk_a").back(), (std::pair<int64_t, double>(29, 29)));
    EXPECT_LT(all.at("vesk_b").size(), all.at("vesk_a").size());
    EXPECT_GT(all.at("vesk_b_stddev").size(), 0U);
    for (const std::size_t room : {std::size_t{1}, std::size_t{40}, std::size_t{100}}) {
        EXPECT_EQ(collect(room), all) << room;
    }
}

TEST_F(Series, AreInTheOrderOfTimeAndThenOfWriting)
{
    write({{5, {1, 1}}, {3, {2, missing}}, {5, {3, 3}}});
    const auto points = collect(most_points).at("vesk_a");
    EXPECT_EQ(points, (std::vector<std::pair<int64_t, double>>{{3, 2}, {5, 1}, {5, 3}}));
}

TEST(KeepLastOfEachTime, TakesTheOneThatWasWrittenLast)
{
    std::vector<series_point> points = {{1, 1}, {2, 2}, {2, 3}, {2, 4}, {3, 5}};
    ASSERT_EQ(keep_last_of_each_time(points), 3U);
    EXPECT_EQ(points[1].value, 4);
    EXPECT_EQ(points[2].time, 3);
    EXPECT_EQ(keep_last_of_each_time({}), 0U);
}

TEST(PointText, IsTheShortestThatReadsBack)
{
    EXPECT_EQ(point_text(quantity::sample, static_cast<double>(0.1F)), "0.1");
    EXPECT_EQ(point_text(quantity::sample, static_cast<double>(16777216.0F)), "16777216");
    EXPECT_EQ(point_text(quantity::count, 4294967295.0), "4294967295");
}

} // namespace
