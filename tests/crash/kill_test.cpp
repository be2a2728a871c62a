// A process that is killed, anywhere in the life of a recorder and anywhere in the recovery after
// that: nothing that was acknowledged is lost, and the recorder goes on.
#include <algorithm>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <ostream>
#include <set>
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

class Kill : public testing::Test
{
protected:
    Kill() : folder_(fast_folder()), working_folder_(fs::current_path())
    {
        fs::current_path(folder_.path());
    }
    ~Kill() override { fs::current_path(working_folder_); }

private:
    temporary_directory folder_;
    fs::path working_folder_;
};

// ---- Lives ------------------------------------------------------------------------------------

struct life_plan {
    const char *name;
    box_sizes sizes;
    int vectors;
    int width;        // further sensors
    int reopen_every; // vectors
    bool with_backups;
    std::size_t longest_event = 0;
    bool over_old_box = false; // under the name of an older one, of which some buffers are left
    bool works_ahead = false;  // with vesk_start() and, between two vectors, vesk_prepare()
};

void PrintTo(const life_plan &plan, std::ostream *out)
{
    *out << plan.name;
}

// What the recorder was given, in order, and how much of it was acknowledged at each moment.
struct box_life {
    life_plan plan;
    entries given;
    recording recorded;
    std::size_t backed_up; // the step from which on there is a backup of the state
};

// Everything that goes into a box by a plan.
entries plan_entries(const life_plan &plan)
{
    entries all;
    int events = 0;
    for (int i = 1; i <= plan.vectors; ++i) {
        all.push_back(vector_entry(i, plan.width));
        for (int k = 0; k < (i % 4 == 0 ? 2 : i % 3 == 0 ? 1 : 0); ++k) {
            all.push_back(event_entry(i, ++events));
            if (events % 4 == 0) {
                all.back().text += std::string(plan.longest_event, static_cast<char>('a' + i % 26));
            }
        }
    }
    return all;
}

vesk *begin_life(const life_plan &plan)
{
    return plan.works_ahead ? vesk_start("r", plan.sizes.samples, plan.sizes.intervals, nullptr)
                            : vesk_create("r", plan.sizes.samples, plan.sizes.intervals);
}

// Some slices of the next rotation: now more, now less than it needs.
void work_ahead(const life_plan &plan, vesk *recorder, int number)
{
    if (!plan.works_ahead) {
        return;
    }
    ASSERT_EQ(0, vesk_settle(recorder));
    for (int slice = 0; slice < 2 + number % 5; ++slice) {
        ASSERT_LE(0, vesk_prepare(recorder, 1, 0));
    }
}

void live(const life_plan &plan, const entries &given, life_progress *progress)
{
    owned_recorder recorder(begin_life(plan));
    ASSERT_TRUE(recorder);
    uint32_t backed_up = 0;
    for (const entry &one : given) {
        if (plan.with_backups && recorder->next_file_number != backed_up) {
            ASSERT_EQ(0, vesk_backup_state(recorder.get()));
            backed_up = recorder->next_file_number;
        }
        if (!one.is_event && plan.reopen_every > 0 && one.number % plan.reopen_every == 0) {
            recorder.reset();
            recorder.reset(plan.works_ahead ? begin_life(plan) : vesk_open("r"));
            ASSERT_TRUE(recorder);
        }
        ASSERT_EQ(0, write_entry(recorder.get(), one)) << one.number;
        ++progress->acknowledged;
        work_ahead(plan, recorder.get(), one.number);
    }
    ASSERT_EQ(0, vesk_sync(recorder.get()));
}

// A box of an earlier time that has come as far as its last stage.
void leave_old_box(const life_plan &plan)
{
    const owned_recorder recorder(vesk_create("r", plan.sizes.samples, plan.sizes.intervals));
    const int vectors = 12 * static_cast<int>(plan.sizes.samples) + 1;
    for (int i = 1; i <= vectors; ++i) {
        ASSERT_EQ(0, write_entry(recorder.get(), vector_entry(i - 500, plan.width)));
    }
    ASSERT_EQ(0, vesk_backup_state(recorder.get()));
}

box_life record_life(const life_plan &plan)
{
    write_folder({});
    if (plan.over_old_box) {
        leave_old_box(plan);
    }
    const entries given = plan_entries(plan);
    recording recorded([&](life_progress *progress) { live(plan, given, progress); });
    std::size_t backed_up = recorded.moments().size();
    const folder_content &old = recorded.moments()[0].files;
    const auto old_backup = old.find("r.state.bak");
    for (std::size_t i = 0; i < recorded.moments().size(); ++i) {
        const folder_content &files = recorded.moments()[i].files;
        const auto backup = files.find("r.state.bak");
        if (backup != files.end() &&
            (old_backup == old.end() || backup->second != old_backup->second)) {
            backed_up = i;
            break;
        }
    }
    return {plan, given, std::move(recorded), backed_up};
}

// ---- After the kill ---------------------------------------------------------------------------

enum counted { recovered, needed_steps, from_backup, from_buffers, nothing_there, in_recovery };

// What was given up to a moment; all but the last is acknowledged.
entries given_until(const box_life &life, std::size_t step)
{
    const std::size_t acknowledged = life.recorded.moments()[step].progress.acknowledged;
    entries given(life.given.begin(),
                  life.given.begin() +
                      static_cast<long>(std::min(acknowledged + 1, life.given.size())));
    for (std::size_t i = 0; i < acknowledged; ++i) {
        given[i].acknowledged = true;
    }
    return given;
}

int recover(const box_life &life, std::size_t step, vesk_recover_report *report)
{
    // Where a backup tells the sizes, nobody else has to.
    const bool told = step < life.backed_up;
    return vesk_recover("r", told ? life.plan.sizes.samples : 0,
                        told ? life.plan.sizes.intervals : 0, report);
}

std::string text_of(const vesk_recover_report &report)
{
    return "recovery in " + std::to_string(report.steps) + " steps, padded " +
           std::to_string(report.samples_padded) + " samples and " +
           std::to_string(report.intervals_padded) + " intervals, took out " +
           std::to_string(report.records_aside) + " records\n";
}

// The box was recovered: everything is there, and it goes on.
std::string check_recovered(const box_life &life, std::size_t step)
{
    entries given = given_until(life, step);
    // Until there is a backup of its own, a new box may give way to the old one.
    if (life.plan.over_old_box && step < life.backed_up) {
        given.clear();
        return go_on(&given, 900, static_cast<int>(life.plan.sizes.samples) + 1, life.plan.width);
    }
    std::string complaint = compare_box(&given, life.plan.sizes);
    vesk_recover_report again;
    const int result = recover(life, step, &again);
    if (result != 0 || again.steps != 0) {
        complaint += "recovering again gives " + std::to_string(result) + "; " + text_of(again);
    }
    const int next = given.empty() ? 1 : given.back().number + 1;
    complaint +=
        go_on(&given, next, static_cast<int>(life.plan.sizes.samples) + 1, life.plan.width);
    return complaint + compare_box(&given, life.plan.sizes);
}

std::string check_cut(const box_life &life, const cut_place &place)
{
    const folder_content killed = cut_life(life.recorded, place);
    write_folder(killed);
    vesk_recover_report report;
    const int result = recover(life, place.behind, &report);
    if (killed.empty()) {
        count_trial(nothing_there);
        return result == QE_ERROR_OPEN ? "" : "an empty folder gives " + std::to_string(result);
    }
    count_trial(recovered);
    count_trial(needed_steps, report.steps != 0 ? 1 : 0);
    count_trial(from_backup, report.source == VESK_RECOVER_FROM_BACKUP ? 1 : 0);
    count_trial(from_buffers, report.source == VESK_RECOVER_FROM_BUFFERS ? 1 : 0);
    std::string complaint;
    if (result != 0) {
        complaint = "recovery gives " + std::to_string(result) + "\n";
    }
    if (report.samples_padded + report.intervals_padded + report.records_aside +
            report.records_mended !=
        0) {
        complaint += text_of(report);
    }
    complaint += check_recovered(life, place.behind);
    return complaint.empty() ? "" : describe(life.recorded, place) + "\n" + complaint;
}

// The recovery of a killed box is killed as well.
std::string check_cut_recovery(const box_life &life, const cut_place &place, bool all)
{
    write_folder(cut_life(life.recorded, place));
    vesk_recover_report report;
    const recording recovery([&](life_progress *) { (void)recover(life, place.behind, &report); });
    if (!recovery.complaints().empty()) {
        return describe(life.recorded, place) + "\n" + recovery.complaints();
    }
    for (const cut_place &inner : find_cuts(recovery, all)) {
        count_trial(in_recovery);
        const folder_content killed = cut_life(recovery, inner);
        write_folder(killed);
        std::string complaint;
        const int result = recover(life, place.behind, &report);
        if (killed.empty()) {
            continue;
        }
        if (result != 0) {
            complaint = "recovery gives " + std::to_string(result) + "\n";
        }
        complaint += check_recovered(life, place.behind);
        if (!complaint.empty()) {
            return describe(life.recorded, place) + "\nthen in the recovery " +
                   describe(recovery, inner) + "\n" + complaint;
        }
    }
    return "";
}

// Places whose folders were not tried yet.
std::vector<cut_place> distinct(const recording &life, const std::vector<cut_place> &places)
{
    std::set<std::pair<std::size_t, std::map<std::string, std::string>>> seen;
    std::vector<cut_place> some;
    for (const cut_place &place : places) {
        std::map<std::string, std::string> content;
        for (const auto &[name, bytes] : cut_life(life, place)) {
            content[name] = *bytes;
        }
        if (seen.insert({life.moments()[place.behind].progress.acknowledged, content}).second) {
            some.push_back(place);
        }
    }
    return some;
}

std::vector<cut_place> every_nth(const std::vector<cut_place> &places, std::size_t n)
{
    std::vector<cut_place> some;
    for (std::size_t i = 0; i < places.size(); i += n) {
        some.push_back(places[i]);
    }
    return some;
}

void report_results(const life_plan &plan, const char *what, const trial_results &results)
{
    printf("%s: %zu places %s, %zu failed; %llu recovered, of which %llu needed it (%llu from the "
           "backup, %llu from the buffers); %llu cuts in recoveries\n",
           plan.name, results.tried, what, results.failed,
           static_cast<unsigned long long>(results.counts[recovered]),
           static_cast<unsigned long long>(results.counts[needed_steps]),
           static_cast<unsigned long long>(results.counts[from_backup]),
           static_cast<unsigned long long>(results.counts[from_buffers]),
           static_cast<unsigned long long>(results.counts[in_recovery]));
    EXPECT_EQ(0U, results.failed) << results.complaints;
}

const life_plan short_plans[] = {
    {"narrow", {4, 2}, 26, 0, 5, true},
    {"without backups", {2, 2}, 13, 0, 4, false},
    {"wide", {2, 2}, 9, 130, 0, true, 900},
    {"over an old box", {2, 2}, 11, 0, 0, true, 0, true},
    {"works ahead", {4, 2}, 26, 0, 11, true, 0, false, true},
};

const life_plan long_plans[] = {
    {"narrow", {4, 2}, 50, 0, 5, true, 100},
    {"without backups", {4, 4}, 40, 2, 3, false},
    {"wide", {2, 2}, 15, 130, 4, true, 3000},
    {"very wide", {2, 2}, 11, 700, 3, true},
    {"six", {6, 2}, 60, 1, 7, true, 20},
    {"smallest", {2, 2}, 30, 0, 1, true},
    {"over an old box", {4, 2}, 40, 0, 3, true, 0, true},
    {"works ahead", {4, 2}, 50, 2, 17, true, 100, false, true},
};

// Each is a test of its own, which can be run alone: the long ones take up to hours.
class KillOf : public Kill, public testing::WithParamInterface<life_plan>
{
};

std::string name_of(const testing::TestParamInfo<life_plan> &tested)
{
    std::string name = tested.param.name;
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
}

std::vector<life_plan> plans()
{
    if (is_long_form()) {
        return {std::begin(long_plans), std::end(long_plans)};
    }
    return {std::begin(short_plans), std::end(short_plans)};
}

// ---- Many kills -------------------------------------------------------------------------------

class numbers
{
public:
    explicit numbers(std::size_t seed) : state_(static_cast<uint32_t>(seed) * 2654435761U + 1) {}
    std::size_t below(std::size_t n)
    {
        state_ = state_ * 1664525 + 1013904223;
        return (state_ >> 8) % n;
    }

private:
    uint32_t state_;
};

// Runs `life` in the working folder and leaves what it left when it was killed somewhere. Returns
// how much had been acknowledged then.
std::size_t kill_somewhere(numbers *draw, const std::function<void(life_progress *)> &life)
{
    const recording recorded(life);
    const std::vector<cut_place> places = find_cuts(recorded, true);
    const cut_place place = places[draw->below(places.size())];
    write_folder(cut_life(recorded, place));
    return recorded.moments()[place.behind].progress.acknowledged;
}

std::string check_again_and_again(std::size_t seed, int cycles)
{
    numbers draw(seed);
    const box_sizes sizes = seed % 2 == 0 ? box_sizes{4, 2} : box_sizes{2, 2};
    const bool with_backups = draw.below(2) == 0;
    write_folder({});
    entries given;
    for (int cycle = 0; cycle < cycles; ++cycle) {
        entries next;
        const int from = given.empty() ? 1 : given.back().number + 1;
        const int n = 1 + static_cast<int>(draw.below(9));
        for (int i = from; i < from + n; ++i) {
            next.push_back(vector_entry(i, 0));
            if (draw.below(3) == 0) {
                next.push_back(event_entry(i, i));
            }
        }
        const std::size_t acknowledged = kill_somewhere(&draw, [&](life_progress *progress) {
            const owned_recorder recorder(read_folder().empty()
                                              ? vesk_create("r", sizes.samples, sizes.intervals)
                                              : vesk_open("r"));
            for (const entry &one : next) {
                if (write_entry(recorder.get(), one) != 0) {
                    return;
                }
                ++progress->acknowledged;
                if (with_backups) {
                    (void)vesk_backup_state(recorder.get());
                }
            }
        });
        for (std::size_t i = 0; i < std::min(acknowledged + 1, next.size()); ++i) {
            given.push_back(next[i]);
            given.back().acknowledged = i < acknowledged;
        }
        count_trial(recovered);
        while (draw.below(3) == 0) {
            count_trial(in_recovery);
            (void)kill_somewhere(&draw, [&](life_progress *) {
                (void)vesk_recover("r", sizes.samples, sizes.intervals, nullptr);
            });
        }
        const int result = vesk_recover("r", sizes.samples, sizes.intervals, nullptr);
        if (read_folder().empty()) {
            given.clear();
            continue;
        }
        std::string complaint;
        if (result != 0) {
            complaint = "recovery gives " + std::to_string(result) + "\n";
        }
        complaint += compare_box(&given, sizes);
        if (!complaint.empty()) {
            return "seed " + std::to_string(seed) + ", cycle " + std::to_string(cycle) + "\n" +
                   complaint;
        }
    }
    return "";
}

} // namespace

TEST_F(Kill, AgainAndAgainLosesNothing)
{
    const bool all = is_long_form();
    const trial_results results = run_trials(
        all ? 200 : 10, [&](std::size_t i) { return check_again_and_again(i, all ? 100 : 25); },
        600);
    printf("%zu boxes, killed %llu times and %llu times in recoveries, %zu failed\n", results.tried,
           static_cast<unsigned long long>(results.counts[recovered]),
           static_cast<unsigned long long>(results.counts[in_recovery]), results.failed);
    EXPECT_EQ(0U, results.failed) << results.complaints;
}

TEST_P(KillOf, AnywhereInTheLifeOfARecorderLosesNothing)
{
    const box_life life = record_life(GetParam());
    ASSERT_EQ("", life.recorded.complaints());
    const std::vector<cut_place> places = find_cuts(life.recorded, is_long_form());
    const trial_results results =
        run_trials(places.size(), [&](std::size_t i) { return check_cut(life, places[i]); });
    report_results(GetParam(), "in the life", results);
}

TEST_P(KillOf, AnywhereInTheRecoveryLosesNothing)
{
    const box_life life = record_life(GetParam());
    const bool all = is_long_form();
    std::vector<cut_place> places = distinct(life.recorded, find_cuts(life.recorded, false));
    places = every_nth(places, all ? 3 : 17);
    const trial_results results = run_trials(
        places.size(), [&](std::size_t i) { return check_cut_recovery(life, places[i], all); },
        600);
    report_results(GetParam(), "before a recovery", results);
}

INSTANTIATE_TEST_SUITE_P(Lives, KillOf, testing::ValuesIn(plans()), name_of);
