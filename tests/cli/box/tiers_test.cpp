// Shows that a box and its tiers are recorded together and read as one.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <dlfcn.h>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <sys/stat.h>

#include "box/box.hpp"
#include "box/box_lock.hpp"
#include "box/box_writer.hpp"
#include "box/reading.hpp"
#include "box/tier_recorder.hpp"
#include "cli/quick_folder.hpp"
#include "cli/usual_values.hpp"
#include "common/temporary_directory.hpp"
#include "process/failure.hpp"

namespace
{

// The looks at a name that still succeed, before one fails.
struct failing_name {
    std::string path;
    int left = -1;
    bool is_met = false;
} watched_name;

} // namespace

// In the place of that of the C library, whose name depends on the size of offsets.
extern "C" int lstat(const char *path, struct stat *status) noexcept
{
    using function = int (*)(const char *, struct stat *);
    static const auto real = reinterpret_cast<function>(
        dlsym(RTLD_NEXT, sizeof(off_t) > sizeof(long) ? "lstat64" : "lstat"));
    if (watched_name.left >= 0 && watched_name.path == path && watched_name.left-- == 0) {
        watched_name.is_met = true;
        errno = EIO;
        return -1;
    }
    return real(path, status);
}

namespace
{

using namespace cli;
using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

const std::vector<std::string> both_sensors = {"::a", "::still"};

struct totals {
    uint64_t samples = 0;
    uint64_t raw = 0;
    uint64_t intervals = 0;
    uint64_t overlaps = 0;
    moments sum;
};

// Counts samples, and looks whether any time is told twice.
class counting : public row_visitor
{
public:
    void on_interval(const interval_row &row) override
    {
        ++all.intervals;
        take(row.start, row.end);
        if (row.values[0] != nullptr) {
            all.samples += row.values[0]->count;
            all.sum.add(*row.values[0], {});
        }
    }
    void on_sample(const sample_row &row) override
    {
        ++all.raw;
        ++all.samples;
        take(row.time, row.time);
        all.sum.add(row.values[0]);
    }

    totals all;

private:
    void take(int64_t start, int64_t end)
    {
        all.overlaps += last_ && start <= *last_ ? 1U : 0U;
        last_ = end;
    }
    std::optional<int64_t> last_;
};

// The rows of at least a minute, which only tiers have here.
class deviations_of_minutes : public row_visitor
{
public:
    explicit deviations_of_minutes(const summing &how) : how_(how) {}

    void on_interval(const interval_row &row) override
    {
        if (row.values[0] != nullptr && row.values[0]->count >= 60) {
            moments one;
            one.add(*row.values[0], how_);
            rows.push_back(one);
            whole.merge(one);
        }
    }

    std::vector<moments> rows;
    moments whole;

private:
    summing how_;
};

class Tiers : public ::testing::Test
{
protected:
    float value_at(int64_t second) const
    {
        return offset + static_cast<float>(second * second % 101);
    }

    // Records the seconds behind @p from up to @p to, and is killed then or ends. What is done
    // behind each second may change the surroundings.
    void record(int64_t from, int64_t to, bool ends = true,
                const std::vector<std::string_view> &kinds = {"1m"},
                const std::function<void(int64_t)> &behind = {})
    {
        auto box = std::make_unique<box_writer>(base, box_shape{120, 12}, without_sync);
        std::vector<wanted_tier> wanted;
        wanted.reserve(kinds.size());
        for (const std::string_view kind : kinds) {
            wanted.push_back({*find_tier(kind), {40, 4}});
        }
        auto tiers = std::make_unique<tier_recorders>(base, wanted, without_sync);
        box->admit(both_sensors[0]);
        box->admit(both_sensors[1]);
        box->set_sensors(both_sensors);
        for (int64_t second = from + 1; second <= to; ++second) {
            const std::vector<float> values = {value_at(second), 7};
            box->write(noon + second, values);
            tiers->add(noon + second, both_sensors, values);
            if (behind) {
                behind(second);
            }
        }
        if (ends) {
            tiers->finish();
        }
    }

    totals count(const time_range &range = {}, reading::tiers with = reading::tiers::joined) const
    {
        reading source(base, with);
        const auto sensor = std::find(source.sensors().begin(), source.sensors().end(), "::a");
        counting found;
        source.read(range, {static_cast<std::size_t>(sensor - source.sensors().begin())}, found);
        EXPECT_EQ(found.all.overlaps, 0U);
        EXPECT_EQ(source.code(), exit_done);
        return found.all;
    }

    temporary_directory folder{quick_folder()};
    std::string base = folder.file("box");
    float offset = 0;
};

TEST_F(Tiers, EverySampleIsToldOnce)
{
    for (const int64_t end : {30, 60, 119, 360, 361, 1000, 3601, 7000}) {
        temporary_directory other{quick_folder()};
        base = other.file("box");
        record(0, end);
        EXPECT_EQ(count().samples, static_cast<uint64_t>(end)) << end;
    }
}

TEST_F(Tiers, TheWholeSpanHasTheSameMeanExtremesAndDeviation)
{
    record(0, 7000, true, {"1m", "1h"});
    moments exact;
    for (int64_t second = 1; second <= 7000; ++second) {
        exact.add(value_at(second));
    }
    const moments sum = count().sum;
    EXPECT_EQ(sum.count(), exact.count());
    EXPECT_EQ(sum.least(), exact.least());
    EXPECT_EQ(sum.greatest(), exact.greatest());
    EXPECT_NEAR(sum.mean(), exact.mean(), 1e-4);
    EXPECT_NEAR(sum.deviation().value, exact.deviation().value, 1e-3);
}

// A tier keeps deviations, but the sums of squares of large values in single precision tell nothing
// of them: they were shown as rough, or not at all, and far off.
TEST_F(Tiers, TheDeviationOfLargeValuesIsAsExactAsItIsKept)
{
    offset = 16'000'000;
    record(0, 7000);
    reading source(base);
    deviations_of_minutes found(source.how_summed());
    source.read({noon + 1, noon + 6000}, {0}, found);
    ASSERT_GT(found.rows.size(), 40U);
    int64_t second = 1;
    moments exact_whole;
    for (const moments &row : found.rows) {
        moments exact;
        for (uint64_t i = 0; i < row.count(); ++i) {
            exact.add(value_at(second++));
        }
        exact_whole.merge(exact);
        EXPECT_FALSE(row.deviation().is_rough) << second;
        EXPECT_NEAR(row.deviation().value, exact.deviation().value, 0.01) << second;
        EXPECT_NEAR(row.mean(), exact.mean(), 1) << second;
    }
    EXPECT_FALSE(found.whole.deviation().is_rough);
    EXPECT_NEAR(found.whole.deviation().value, exact_whole.deviation().value, 0.1);
}

// Alone, the box has summed up the same time in rows that double again and again.
TEST_F(Tiers, RowsOfAMinuteTakeThePlaceOfLongerOnes)
{
    record(0, 2400);
    const totals joined = count();
    const totals alone = count({}, reading::tiers::none);
    EXPECT_EQ(joined.samples, alone.samples);
    EXPECT_GT(joined.intervals, 34U);
    EXPECT_LE(joined.raw, alone.raw);
}

TEST_F(Tiers, AKilledRecordingLosesNoRow)
{
    record(0, 530, false);
    record(530, 871, false);
    record(871, 1000);
    EXPECT_EQ(count().samples, 1000U);
    reading tier(tier_base(base, *find_tier("1m")));
    counting rows;
    tier.read({}, {0}, rows);
    EXPECT_EQ(rows.all.raw + rows.all.intervals, 17U);
}

// It once began with all that the box has in full detail, also with what it had already.
TEST_F(Tiers, ATierThatCanBeOpenedLaterHasEachSampleOnce)
{
    for (const int64_t opened : {533, 590, 660, 900}) {
        temporary_directory other{quick_folder()};
        base = other.file("box");
        const std::string tier = tier_base(base, *find_tier("1m"));
        record(0, 430, false);
        auto lock = std::make_unique<box_lock>(tier);
        CaptureStderr();
        record(430, 530, false);
        EXPECT_THAT(GetCapturedStderr(), HasSubstr("this tier waits"));
        CaptureStderr();
        record(530, 1500, true, {"1m"}, [&](int64_t second) {
            if (second == opened) {
                lock.reset();
            }
        });
        EXPECT_THAT(GetCapturedStderr(), HasSubstr("recording again; 0 rows missing")) << opened;
        counting rows;
        reading source(tier);
        source.read({}, {0}, rows);
        EXPECT_EQ(rows.all.overlaps, 0U) << opened;
        const long samples =
            std::lround(rows.all.sum.mean() * static_cast<double>(rows.all.sum.count()));
        // The tier has the first 420 seconds. What the box does not have in full detail any more,
        // which are the last 120 to 240 seconds, is lost.
        EXPECT_LE(samples, 1500) << opened;
        EXPECT_GE(samples, opened < 600 ? 1500 : 1500 - 110) << opened;
        EXPECT_EQ(count().overlaps, 0U) << opened;
    }
}

// The lock is looked at behind each row, too: what was written then came a second time.
TEST_F(Tiers, ALookAtTheLockThatFailsCostsNoRowAndDoublesNone)
{
    watched_name.is_met = true;
    int number = 0;
    for (; watched_name.is_met; ++number) {
        temporary_directory other{quick_folder()};
        base = other.file("box");
        const std::string tier = tier_base(base, *find_tier("1m"));
        record(0, 130);
        CaptureStderr();
        watched_name = {tier + ".lock", number, false};
        record(130, 500);
        watched_name.left = -1;
        GetCapturedStderr();
        counting rows;
        reading(tier).read({}, {0}, rows);
        EXPECT_EQ(rows.all.overlaps, 0U) << number;
        EXPECT_EQ(rows.all.sum.mean() * static_cast<double>(rows.all.sum.count()), 500) << number;
    }
    EXPECT_GT(number, 10);
}

// Nothing else tells the sizes of a tier that has no history yet.
TEST_F(Tiers, ATierThatLostItsStateFileIsRecoveredByTheNextRecording)
{
    for (const bool is_gone : {true, false}) {
        temporary_directory other{quick_folder()};
        base = other.file("box");
        record(0, 530, false);
        for (const char *suffix : {".state", ".state.bak"}) {
            const std::string file = tier_base(base, *find_tier("1m")) + suffix;
            is_gone ? std::filesystem::remove(file) : (write_file(file, "no state"), true);
        }
        CaptureStderr();
        record(530, 1000);
        EXPECT_THAT(GetCapturedStderr(), HasSubstr("box.1m: recovered")) << is_gone;
        EXPECT_EQ(count().samples, 1000U) << is_gone;
        const box_state state = read_state(tier_base(base, *find_tier("1m")));
        EXPECT_EQ(state.samples, 40U) << is_gone;
        EXPECT_EQ(state.intervals, 4U) << is_gone;
    }
}

TEST_F(Tiers, ATierThatComesLaterBeginsWithWhatIsThereInFullDetail)
{
    record(0, 300, true, {});
    record(300, 330);
    EXPECT_EQ(count().samples, 330U);
    reading tier(tier_base(base, *find_tier("1m")));
    EXPECT_EQ(tier.extent()->from, noon + 60);
}

TEST_F(Tiers, NothingIsToldTwiceWhereATierBegan)
{
    record(0, 1500, true, {});
    record(1500, 3000);
    const totals found = count();
    // The one row of the box that reaches over the beginning of the tier is left out.
    EXPECT_LE(found.samples, 3000U);
    EXPECT_GT(found.samples, 1500U);
    EXPECT_EQ(count({}, reading::tiers::none).samples, 3000U);
}

TEST_F(Tiers, ARangeHasOnlyItsRows)
{
    record(0, 2400);
    const totals found = count({noon + 601, noon + 1200});
    EXPECT_EQ(found.samples, 600U);
    EXPECT_EQ(found.raw, 0U);
}

// The box and its tier hold other rows of the same times then; no sample is told twice.
TEST_F(Tiers, ATierHoldsAllSamplesWhenTheClockWasSetBack)
{
    record(0, 900);
    record(500, 1400);
    counting tier;
    reading source(tier_base(base, *find_tier("1m")));
    source.read({}, {0}, tier);
    EXPECT_EQ(tier.all.sum.mean() * static_cast<double>(tier.all.sum.count()), 1800);
    counting joined;
    reading(base).read({}, {0}, joined);
    EXPECT_LE(joined.all.samples, 1800U);
}

TEST_F(Tiers, TheNameOfTheStateFileMeansTheBoxAlone)
{
    record(0, 2400);
    counting found;
    reading(base + ".state").read({}, {0}, found);
    EXPECT_EQ(found.all.intervals, count({}, reading::tiers::none).intervals);
}

TEST_F(Tiers, SensorsOfTiersAreNotListedOnTheirOwn)
{
    record(0, 2400);
    EXPECT_THAT(reading(base).sensors(), ::testing::ElementsAre("::a", "::still"));
}

TEST_F(Tiers, ADamagedTierIsToldAndTheRestIsRead)
{
    record(0, 2400);
    const std::string file = tier_base(base, *find_tier("1m")) + ".1.cbuf.z";
    std::string bytes = read_file(file);
    bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] ^ 0x55);
    write_file(file, bytes);
    CaptureStderr();
    reading source(base);
    counting found;
    source.read({}, {0}, found);
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("box.1m"));
    EXPECT_EQ(source.code(), exit_damaged);
    EXPECT_GT(found.all.samples, 2000U);
    EXPECT_EQ(found.all.overlaps, 0U);
}

// The history of the box was left out with its only tier.
TEST_F(Tiers, WithoutATierThatTheMachineHidesTheBoxIsReadAlone)
{
    record(0, 2400);
    const totals alone = count({}, reading::tiers::none);
    CaptureStderr();
    watched_name = {tier_base(base, *find_tier("1m")) + ".state", 0, false};
    reading source(base);
    watched_name.left = -1;
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("this tier is left out"));
    counting found;
    source.read({}, {0}, found);
    EXPECT_EQ(source.code(), exit_failed);
    EXPECT_EQ(found.all.samples, alone.samples);
    EXPECT_EQ(found.all.intervals, alone.intervals);
}

TEST_F(Tiers, AnotherBoxOfTheNameOfATierIsLeftAlone)
{
    {
        box_writer other(base + ".1m", {4, 2}, without_sync);
        other.admit(both_sensors[0]);
        other.set_sensors(std::vector<std::string>{both_sensors[0]});
        const float value = 1;
        other.write(noon, {&value, 1});
    }
    const std::string before = read_file(base + ".1m.1.cbuf.z");
    CaptureStderr();
    record(0, 130);
    const std::string said = GetCapturedStderr();
    EXPECT_THAT(said, HasSubstr("is no tier"));
    EXPECT_EQ(said.find("is no tier"), said.rfind("is no tier"));
    EXPECT_EQ(read_file(base + ".1m.1.cbuf.z"), before);
    EXPECT_EQ(count().samples, 130U);
}

TEST_F(Tiers, ATierThatAnotherProcessWritesToCostsThatTierOnly)
{
    const box_lock lock(tier_base(base, *find_tier("1h")));
    CaptureStderr();
    record(0, 3700, true, {"1m", "1h"});
    EXPECT_THAT(GetCapturedStderr(), HasSubstr("this tier waits"));
    EXPECT_EQ(count().samples, 3700U);
}

} // namespace
