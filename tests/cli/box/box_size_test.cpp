// How far back a box reaches and what it takes, compared with real boxes.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include "box/box.hpp"
#include "box/box_size.hpp"
#include "box/box_writer.hpp"
#include "box/shape_search.hpp"
#include "box/trial_box.hpp"
#include "cli/quick_folder.hpp"
#include "cli/usual_values.hpp"
#include "common/temporary_directory.hpp"
#include "process/failure.hpp"

namespace
{

using namespace cli;
using ::testing::AllOf;
using ::testing::Ge;
using ::testing::HasSubstr;
using ::testing::Le;

class BoxSize : public ::testing::Test
{
protected:
    BoxSize()
    {
        for (int i = 0; i < 30; ++i) {
            names.push_back("::made.sensor" + std::to_string(i));
        }
    }

    void open(const whole_shape &shape)
    {
        writer.emplace(base, box_shape{shape.samples, shape.intervals}, without_sync);
        for (const std::string &name : names) {
            writer->admit(name);
        }
        writer->set_sensors(names);
    }
    // Values that nothing can compress.
    void write()
    {
        std::vector<float> values(names.size());
        for (float &value : values) {
            value = std::bit_cast<float>(static_cast<uint32_t>(random()) & 0xbfffffffU);
        }
        writer->write(++time, values);
    }
    uint64_t bytes_of_files() const
    {
        uint64_t bytes = 0;
        for (const auto &entry : std::filesystem::directory_iterator(folder.path())) {
            bytes += entry.file_size();
        }
        return bytes;
    }
    // The samples behind the oldest row of the history.
    uint64_t samples_behind_oldest() const
    {
        bool is_oldest = true;
        int64_t end = 0;
        const box found = find_box(base);
        for (const stored_file *file : found.history_buffers()) {
            scan_file(file->path, [&](const vesk_scan_item &item) {
                if (item.kind == VESK_SCAN_INTERVAL && is_oldest) {
                    end = item.interval->end.tv.tv_sec;
                    is_oldest = false;
                }
            });
        }
        return static_cast<uint64_t>(time - end);
    }

    temporary_directory folder{quick_folder()};
    std::string base = folder.file("box");
    std::vector<std::string> names;
    std::optional<box_writer> writer;
    int64_t time = 1700000000;
    std::mt19937 random{1};
};

class Reach : public BoxSize, public ::testing::WithParamInterface<whole_shape>
{
};

TEST_P(Reach, IsThatOfARealBoxWithHistory)
{
    const whole_shape shape = GetParam();
    names.resize(1);
    open(shape);
    // Until the oldest row sums up more than one buffer.
    for (uint32_t i = 0; i < 14 * shape.samples; ++i) {
        write();
    }
    const reach expected = history_reach(shape);
    uint64_t least = UINT64_MAX;
    uint64_t most = 0;
    for (uint32_t i = 0; i < 2 * shape.samples; ++i) {
        write();
        least = std::min(least, samples_behind_oldest());
        most = std::max(most, samples_behind_oldest());
    }
    // Where H is no power of two, the pairs do not end with the buffers, and it reaches farther.
    EXPECT_THAT(least, AllOf(Ge(expected.least), Le(expected.least + shape.samples)));
    EXPECT_THAT(most, AllOf(Ge(expected.most), Le(expected.most + shape.samples)));
}

INSTANTIATE_TEST_SUITE_P(Shapes, Reach,
                         ::testing::Values(whole_shape{8, 4}, whole_shape{16, 8},
                                           whole_shape{24, 12}, whole_shape{60, 20},
                                           whole_shape{64, 32}, whole_shape{60, 60}));

TEST_F(BoxSize, NoBoxTakesMoreThanTheMost)
{
    const whole_shape shape = {60, 20};
    constexpr uint64_t without_events = 0;
    const uint64_t most = most_bytes(shape, largest_records(names), without_events);
    open(shape);
    uint64_t largest = 0;
    for (uint32_t i = 0; i < 8 * shape.samples; ++i) {
        write();
        largest = std::max(largest, bytes_of_files());
    }
    EXPECT_LE(largest, most);
    // The moment at which the buffers take turns, and a recovery, are not seen here.
    EXPECT_GE(largest, most / 3);
}

TEST_F(BoxSize, TrialTellsTheSizeOfTheFiles)
{
    std::vector<std::vector<float>> samples;
    for (int i = 0; i < 3; ++i) {
        samples.emplace_back(names.size(), 0.5F + static_cast<float>(i));
    }
    const trial_result found = try_samples(names, samples);
    const whole_shape shape = {120, 20};
    open(shape);
    for (uint32_t i = 0; i < 5 * shape.samples; ++i) {
        writer->write(++time, samples[i % samples.size()]);
    }
    const auto expected = static_cast<double>(usual_bytes(shape, found.records));
    const auto real = static_cast<double>(bytes_of_files());
    constexpr double other_files = 16384;
    EXPECT_NEAR(expected - other_files, real, 0.05 * real + 1000);
    EXPECT_LT(found.records.sample, largest_records(names).sample);
    EXPECT_GT(found.rotation.seconds(shape), 0);
}

size_wish wish_for(std::optional<int64_t> keep, std::optional<uint64_t> disk)
{
    size_wish wish;
    wish.keep = keep;
    wish.disk = disk;
    wish.records = {2000, 500, 4500};
    wish.event_bytes = 100000;
    wish.rotation = {20e-6, 200e-6};
    return wish;
}

constexpr int64_t day = 86400;

std::string refusal(const size_wish &wish)
{
    try {
        find_shape(wish);
    } catch (const failure &reason) {
        EXPECT_EQ(reason.code(), exit_usage);
        return reason.what();
    }
    return "none";
}

bool is_shape(const whole_shape &shape)
{
    return shape.samples % 2 == 0 && shape.intervals % 2 == 0 && shape.intervals > 0 &&
           shape.samples % shape.intervals == 0;
}

TEST(ShapeSearch, KeepsWhatIsWanted)
{
    for (const int64_t interval : {1, 7, 10, 60, 3600}) {
        for (const int64_t keep : {3600L, day, 3 * day, 7 * day}) {
            size_wish wish = wish_for(keep, {});
            wish.interval = interval;
            const whole_shape shape = find_shape(wish);
            EXPECT_TRUE(is_shape(shape)) << shape.samples << " " << shape.intervals;
            EXPECT_GE(static_cast<int64_t>(history_reach(shape).least) * interval, keep);
        }
    }
}

TEST(ShapeSearch, TakesNoMoreThanTheDisk)
{
    for (const uint64_t disk : {1000000UL, 20000000UL, 1000000000UL}) {
        const size_wish wish = wish_for({}, disk);
        const whole_shape shape = find_shape(wish);
        EXPECT_TRUE(is_shape(shape)) << shape.samples << " " << shape.intervals;
        EXPECT_LE(most_bytes(shape, wish.records, wish.event_bytes), disk);
    }
    EXPECT_GT(history_reach(find_shape(wish_for({}, 20000000))).least,
              history_reach(find_shape(wish_for({}, 2000000))).least);
}

TEST(ShapeSearch, KeepingMoreTakesMore)
{
    const size_wish wish = wish_for(day, {});
    const size_wish longer = wish_for(2 * day, {});
    EXPECT_LT(most_bytes(find_shape(wish), wish.records, 0),
              most_bytes(find_shape(longer), wish.records, 0));
}

TEST(ShapeSearch, TellsWhatCanBeHadWhereOneBoxCannotKeepIt)
{
    EXPECT_THAT(refusal(wish_for(365 * day, {})),
                AllOf(HasSubstr("--keep 365d is too long for one box with a sample every 1s"),
                      HasSubstr("about 17d20h can be had"), HasSubstr("a longer --interval")));
    size_wish seldom = wish_for(365 * day, {});
    seldom.interval = 60;
    EXPECT_EQ(refusal(seldom), "none");
}

TEST(ShapeSearch, TellsWhatCanBeHadWhereTheDiskIsTooSmall)
{
    EXPECT_THAT(refusal(wish_for(7 * day, 20000000)),
                AllOf(HasSubstr("--keep 7d takes up to "), HasSubstr("more than --disk 19.07 MiB"),
                      HasSubstr(" can be had")));
    EXPECT_THAT(refusal(wish_for({}, 300000)), HasSubstr("--disk 293 KiB: is too little"));
}

} // namespace
