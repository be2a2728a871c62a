// A disk that is full, from any byte on: what was acknowledged is there when the box was brought
// back, and recording goes on once there is room.
#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/mman.h>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk.h>
#include <vesk/vesk_recover.h>

#include "common/failing_calls.hpp"
#include "common/isolated.hpp"
#include "common/temporary_directory.hpp"
#include "crash/box.hpp"
#include "crash/recording.hpp"
#include "crash/trials.hpp"

namespace
{

namespace fs = std::filesystem;

class FullDisk : public testing::Test
{
protected:
    FullDisk() : folder_(fast_folder()), working_folder_(fs::current_path())
    {
        fs::current_path(folder_.path());
    }
    ~FullDisk() override { fs::current_path(working_folder_); }

private:
    temporary_directory folder_;
    fs::path working_folder_;
};

// What the writer does when a call fails.
enum class writer_kind {
    careful,  // closes the box at once
    stubborn, // tries the next ones, too, and closes the box when the disk is still full
    patient   // tries the next ones until there is room, and then goes on without closing: names
              // that were refused are not written again then, so its sensors do not change
};

struct disk_plan {
    const char *name;
    box_sizes sizes;
    int before; // vectors in the box when the disk is nearly full
    int width;
    writer_kind kind;
};

constexpr int vectors_tried = 7;

enum counted { ended, refused_some, recovered };

// What the process that met the full disk tells of each entry.
struct outcome_board {
    int results[64];
};

entries entries_behind(const disk_plan &plan)
{
    entries all;
    for (int i = plan.before + 1; i <= plan.before + vectors_tried; ++i) {
        all.push_back(vector_entry(i, plan.width));
        if (i % 2 == 0) {
            all.push_back(event_entry(i, i));
        }
    }
    return all;
}

entries make_box(const disk_plan &plan, folder_content *files)
{
    write_folder({});
    entries given;
    const owned_recorder recorder(vesk_create("r", plan.sizes.samples, plan.sizes.intervals));
    for (int i = 1; i <= plan.before; ++i) {
        given.push_back(vector_entry(i, plan.width));
        given.back().acknowledged = true;
        EXPECT_EQ(0, write_entry(recorder.get(), given.back()));
    }
    *files = read_folder();
    return given;
}

// Writes until the writer gives up. Returns the bytes that it wrote.
void meet_full_disk(const disk_plan &plan, const entries &tried, long room, outcome_board *board)
{
    const owned_recorder recorder(vesk_open("r"));
    auto disk = std::make_unique<limited_disk>(room);
    int failures = 0;
    for (std::size_t i = 0; i < tried.size(); ++i) {
        board->results[i] = write_entry(recorder.get(), tried[i]);
        failures += board->results[i] < 0 ? 1 : 0;
        if (failures > 0 && (plan.kind == writer_kind::careful || failures > 3)) {
            if (plan.kind != writer_kind::patient) {
                break;
            }
            disk.reset();
        }
    }
}

// Recorders say that they may abort when they are used on after a failure to move on; and in one
// place they do at once.
std::string judge_end(const disk_plan &plan, const isolated_run &run)
{
    if (run.exited() && run.code() == 0) {
        return "";
    }
    count_trial(ended);
    const bool stated =
        plan.kind == writer_kind::careful ? run.aborted("*hbuf != ((void *)0)") : run.aborted();
    return stated ? "" : "the writer ended: " + run.messages() + "\n";
}

std::string check_full_disk(const disk_plan &plan, const folder_content &files,
                            const entries &before, outcome_board *board, long room)
{
    constexpr int not_tried = 1;
    write_folder(files);
    const entries tried = entries_behind(plan);
    std::fill(std::begin(board->results), std::end(board->results), not_tried);
    const isolated_run run([&] {
        meet_full_disk(plan, tried, room, board);
        return 0;
    });
    std::string complaint = judge_end(plan, run);
    entries given = before;
    for (std::size_t i = 0; i < tried.size(); ++i) {
        given.push_back(tried[i]);
        given.back().acknowledged = board->results[i] == 0;
    }
    const bool refused = std::any_of(std::begin(board->results), std::end(board->results),
                                     [](int result) { return result < 0; });
    count_trial(refused_some, refused ? 1 : 0);
    vesk_recover_report report;
    const int result = vesk_recover("r", plan.sizes.samples, plan.sizes.intervals, &report);
    if (result != 0) {
        complaint += "recovery gives " + std::to_string(result) + "\n";
    }
    count_trial(recovered, report.steps != 0 ? 1 : 0);
    complaint += compare_box(&given, plan.sizes);
    complaint +=
        go_on(&given, plan.before + 100, static_cast<int>(plan.sizes.samples) + 1, plan.width);
    complaint += compare_box(&given, plan.sizes);
    return complaint.empty() ? ""
                             : "with room for " + std::to_string(room) + " bytes:\n" + complaint;
}

// What the entries behind take when there is room.
long bytes_wanted(const disk_plan &plan, const folder_content &files)
{
    write_folder(files);
    const owned_recorder recorder(vesk_open("r"));
    const limited_disk disk(1 << 30);
    for (const entry &one : entries_behind(plan)) {
        EXPECT_EQ(0, write_entry(recorder.get(), one));
    }
    return limited_disk::used();
}

void fill_disk(const disk_plan &plan)
{
    folder_content files;
    const entries before = make_box(plan, &files);
    const long wanted = bytes_wanted(plan, files);
    // Wide vectors take long.
    const long fillings = plan.width > 100 ? 24 : 60;
    const long step = std::max(1L, wanted / (is_long_form() ? 2000 : fillings));
    auto *board = static_cast<outcome_board *>(mmap(
        nullptr, sizeof(outcome_board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const trial_results results =
        run_trials(static_cast<std::size_t>(wanted / step + 1), [&](std::size_t i) {
            return check_full_disk(plan, files, before, board, static_cast<long>(i) * step);
        });
    (void)munmap(board, sizeof *board);
    printf(
        "%s, %d vectors: %zu fillings of the disk, %zu failed; %llu refused something, %llu ended "
        "the process, %llu needed recovery\n",
        plan.name, plan.before, results.tried, results.failed,
        static_cast<unsigned long long>(results.counts[refused_some]),
        static_cast<unsigned long long>(results.counts[ended]),
        static_cast<unsigned long long>(results.counts[recovered]));
    EXPECT_EQ(0U, results.failed) << results.complaints;
}

void fill_disks(const char *name, writer_kind kind)
{
    const bool is_steady = kind == writer_kind::patient;
    for (const int before : {2, 6, 10, 14}) {
        fill_disk({name, {4, 2}, before, is_steady ? steady : 0, kind});
    }
    if (!is_steady) {
        fill_disk({name, {2, 2}, 5, 700, kind});
    }
}

} // namespace

TEST_F(FullDisk, CostsACarefulWriterNothing)
{
    fill_disks("careful", writer_kind::careful);
}

TEST_F(FullDisk, CostsAStubbornWriterNothingThatWasAcknowledged)
{
    fill_disks("stubborn", writer_kind::stubborn);
}

TEST_F(FullDisk, CostsAPatientWriterNothingThatWasAcknowledged)
{
    fill_disks("patient", writer_kind::patient);
}

TEST_F(FullDisk, WhileABoxIsBroughtBackCostsNothing)
{
    const disk_plan plan = {"recovery", {4, 2}, 17, 0, writer_kind::careful};
    folder_content files;
    const entries before = make_box(plan, &files);
    const entries tried = entries_behind(plan);
    write_folder(files);
    const recording life([&](life_progress *progress) {
        const owned_recorder recorder(vesk_open("r"));
        for (const entry &one : tried) {
            ASSERT_EQ(0, write_entry(recorder.get(), one));
            ++progress->acknowledged;
        }
    });
    std::vector<std::pair<cut_place, long>> cases;
    const std::vector<cut_place> places = find_cuts(life, false);
    for (std::size_t i = 0; i < places.size(); i += is_long_form() ? 1U : 9U) {
        for (long room = 0; room < 700; room += is_long_form() ? 7 : 53) {
            cases.emplace_back(places[i], room);
        }
    }
    const trial_results results = run_trials(cases.size(), [&](std::size_t i) {
        const auto &[place, room] = cases[i];
        write_folder(cut_life(life, place));
        std::string complaint;
        {
            const limited_disk disk(room);
            const int result = vesk_recover("r", plan.sizes.samples, plan.sizes.intervals, nullptr);
            count_trial(refused_some, result != 0 ? 1 : 0);
            if (result != 0 && result != QE_ERROR_IO) {
                complaint = "with a full disk recovery gives " + std::to_string(result) + "\n";
            }
        }
        const int result = vesk_recover("r", plan.sizes.samples, plan.sizes.intervals, nullptr);
        if (result != 0) {
            complaint += "recovery gives " + std::to_string(result) + "\n";
        }
        entries given = before;
        const std::size_t acknowledged = life.moments()[place.behind].progress.acknowledged;
        for (std::size_t k = 0; k < std::min(acknowledged + 1, tried.size()); ++k) {
            given.push_back(tried[k]);
            given.back().acknowledged = k < acknowledged;
        }
        complaint += compare_box(&given, plan.sizes);
        complaint += go_on(&given, 200, 5, plan.width);
        complaint += compare_box(&given, plan.sizes);
        return complaint.empty() ? ""
                                 : describe(life, place) + ", room for " + std::to_string(room) +
                                       "\n" + complaint;
    });
    printf("recovery: %zu fillings of the disk, %zu failed; %llu refused\n", results.tried,
           results.failed, static_cast<unsigned long long>(results.counts[refused_some]));
    EXPECT_EQ(0U, results.failed) << results.complaints;
}
