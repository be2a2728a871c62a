// Power that fails: what was not synced is lost, or comes back as zeros. What vesk_sync() has
// brought onto the medium is there afterwards, and a recovery that is interrupted makes nothing
// worse.
#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk.h>
#include <vesk/vesk_prepare.h>
#include <vesk/vesk_recover.h>
#include <vesk/vesk_start.h>

#include "common/temporary_directory.hpp"
#include "crash/box.hpp"
#include "crash/recording.hpp"
#include "crash/trials.hpp"

namespace
{

namespace fs = std::filesystem;

class PowerLoss : public testing::Test
{
protected:
    PowerLoss() : folder_(fast_folder()), working_folder_(fs::current_path())
    {
        fs::current_path(folder_.path());
    }
    ~PowerLoss() override { fs::current_path(working_folder_); }

private:
    temporary_directory folder_;
    fs::path working_folder_;
};

// While the recorder moves on to other files, and until they were synced, nothing is promised.
constexpr std::size_t nothing_promised = SIZE_MAX;

constexpr box_sizes sizes = {4, 2};

entries plan_entries(int vectors)
{
    entries all;
    for (int i = 1; i <= vectors; ++i) {
        all.push_back(vector_entry(i, 3));
        if (i % 3 == 0) {
            all.push_back(event_entry(i, i));
        }
    }
    return all;
}

void live(const entries &given, life_progress *progress)
{
    const owned_recorder recorder(vesk_create("r", sizes.samples, sizes.intervals));
    ASSERT_EQ(0, vesk_backup_state(recorder.get()));
    ASSERT_EQ(0, vesk_sync(recorder.get()));
    for (const entry &one : given) {
        const uint32_t number = recorder->next_file_number;
        if (!one.is_event && one.number > 1 && one.number % 4 == 1) {
            progress->synced = nothing_promised;
        }
        ASSERT_EQ(0, write_entry(recorder.get(), one)) << one.number;
        ++progress->acknowledged;
        const bool moved = recorder->next_file_number != number;
        if (moved) {
            ASSERT_EQ(0, vesk_backup_state(recorder.get()));
        }
        if (moved || one.is_event) {
            ASSERT_EQ(0, vesk_sync(recorder.get()));
            progress->synced = progress->acknowledged;
        }
    }
}

// What a program does of the next rotation between two vectors.
enum class ahead { nothing, in_slices };

// A program that starts its box and syncs each vector: nothing of what it acknowledges is ever
// lost, while the recorder moves on to other files least of all.
void live_safely(const entries &given, life_progress *progress, ahead work)
{
    for (std::size_t i = 0; i < given.size();) {
        vesk_start_report report;
        const owned_recorder recorder(vesk_start("r", sizes.samples, sizes.intervals, &report));
        ASSERT_TRUE(recorder);
        ASSERT_EQ(0, report.settled);
        // It is killed and started again now and then.
        const std::size_t end = std::min(given.size(), i + 23);
        for (; i < end; ++i) {
            ASSERT_EQ(0, write_entry(recorder.get(), given[i])) << i;
            ++progress->acknowledged;
            ASSERT_EQ(0, vesk_settle(recorder.get()));
            ASSERT_EQ(0, vesk_sync(recorder.get()));
            progress->synced = progress->acknowledged;
            // Sometimes the rotation has to finish what was begun.
            for (std::size_t slice = 0; work == ahead::in_slices && slice < 2 + i % 5; ++slice) {
                ASSERT_LE(0, vesk_prepare(recorder.get(), 1, 0));
            }
        }
    }
}

enum counted { kept_all, promised_nothing };

std::string check_loss(const recording &life, const entries &all, std::size_t step, power_loss how)
{
    write_folder(lose_power(life, step, how));
    const life_progress &progress = life.moments()[step].progress;
    const int result = vesk_recover("r", sizes.samples, sizes.intervals, nullptr);
    if (read_folder().empty()) {
        return "";
    }
    std::string complaint;
    if (result != 0) {
        complaint = "recovery gives " + std::to_string(result) + "\n";
    }
    entries given;
    const bool promised = progress.synced != nothing_promised;
    for (std::size_t i = 0; promised && i < std::min(progress.acknowledged + 1, all.size()); ++i) {
        given.push_back(all[i]);
        given.back().acknowledged = i < progress.synced;
    }
    count_trial(promised ? kept_all : promised_nothing);
    if (promised) {
        complaint += compare_box(&given, sizes);
    }
    complaint += go_on(&given, 500, 5, 3);
    if (promised) {
        complaint += compare_box(&given, sizes);
    }
    return complaint;
}

} // namespace

TEST_F(PowerLoss, CostsNothingThatWasSynced)
{
    const entries all = plan_entries(is_long_form() ? 80 : 26);
    const recording life([&](life_progress *progress) { live(all, progress); });
    ASSERT_EQ("", life.complaints());
    const std::size_t ways = std::size(power_losses);
    const trial_results results =
        run_trials(life.moments().size() * ways, [&](std::size_t i) -> std::string {
            const std::size_t step = i / ways;
            const std::string complaint = check_loss(life, all, step, power_losses[i % ways]);
            return complaint.empty() ? ""
                                     : "way " + std::to_string(i % ways) + ", " +
                                           describe(life, {step, 0}) + "\n" + complaint;
        });
    printf("%zu losses of power, %zu failed; in %llu all that was synced is there, in %llu nothing "
           "was promised\n",
           results.tried, results.failed, static_cast<unsigned long long>(results.counts[kept_all]),
           static_cast<unsigned long long>(results.counts[promised_nothing]));
    EXPECT_EQ(0U, results.failed) << results.complaints;
}

static void lose_power_at_any_moment(ahead work)
{
    const entries all = plan_entries(is_long_form() ? 80 : 26);
    const recording life([&](life_progress *progress) { live_safely(all, progress, work); });
    ASSERT_EQ("", life.complaints());
    const std::size_t ways = std::size(all_power_losses);
    const trial_results results =
        run_trials(life.moments().size() * ways, [&](std::size_t i) -> std::string {
            const std::size_t step = i / ways;
            const std::string complaint = check_loss(life, all, step, all_power_losses[i % ways]);
            return complaint.empty() ? ""
                                     : "way " + std::to_string(i % ways) + ", " +
                                           describe(life, {step, 0}) + "\n" + complaint;
        });
    printf("%zu losses of power, %zu failed\n", results.tried, results.failed);
    EXPECT_EQ(0U, results.failed) << results.complaints;
}

TEST_F(PowerLoss, CostsAStartedRecorderNothingAtAnyMoment)
{
    lose_power_at_any_moment(ahead::nothing);
}

TEST_F(PowerLoss, CostsARecorderThatWorksAheadNothingAtAnyMoment)
{
    lose_power_at_any_moment(ahead::in_slices);
}

TEST_F(PowerLoss, InARecoveryCostsNothing)
{
    const entries all = plan_entries(26);
    const recording life([&](life_progress *progress) { live(all, progress); });
    std::vector<cut_place> places = find_cuts(life, false);
    if (!is_long_form()) {
        std::vector<cut_place> some;
        for (std::size_t i = 0; i < places.size(); i += 23) {
            some.push_back(places[i]);
        }
        places.swap(some);
    }
    const trial_results results = run_trials(
        places.size(),
        [&](std::size_t i) -> std::string {
            write_folder(cut_life(life, places[i]));
            const recording recovery([&](life_progress *) {
                (void)vesk_recover("r", sizes.samples, sizes.intervals, nullptr);
            });
            for (std::size_t step = 0; step < recovery.moments().size(); ++step) {
                for (const power_loss how : power_losses) {
                    write_folder(lose_power(recovery, step, how));
                    if (read_folder().empty()) {
                        continue;
                    }
                    count_trial(kept_all);
                    std::string complaint;
                    const int result = vesk_recover("r", sizes.samples, sizes.intervals, nullptr);
                    if (result != 0) {
                        complaint = "recovery gives " + std::to_string(result) + "\n";
                    }
                    const std::size_t acknowledged =
                        life.moments()[places[i].behind].progress.acknowledged;
                    entries given;
                    for (std::size_t k = 0; k < std::min(acknowledged + 1, all.size()); ++k) {
                        given.push_back(all[k]);
                        given.back().acknowledged = k < acknowledged;
                    }
                    complaint += compare_box(&given, sizes);
                    complaint += go_on(&given, 500, 5, 3);
                    complaint += compare_box(&given, sizes);
                    if (!complaint.empty()) {
                        return describe(life, places[i]) + ",\nway " +
                               std::to_string(static_cast<int>(how)) + ", in the recovery " +
                               describe(recovery, {step, 0}) + "\n" + complaint;
                    }
                }
            }
            return "";
        },
        600);
    printf("%zu recoveries, %llu losses of power in them, %zu failed\n", results.tried,
           static_cast<unsigned long long>(results.counts[kept_all]), results.failed);
    EXPECT_EQ(0U, results.failed) << results.complaints;
}
