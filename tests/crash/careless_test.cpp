// A writer that gives the recorder what it cannot give back: bare events, times of 0, sensors
// without names, telemetry that is refused half-written. The recorder stops at the next rotation or
// aborts; after a recovery the samples are there and it goes on.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/mman.h>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk.h>
#include <vesk/vesk_recover.h>

#include "common/isolated.hpp"
#include "common/temporary_directory.hpp"
#include "crash/box.hpp"
#include "crash/trials.hpp"

namespace
{

namespace fs = std::filesystem;

class Careless : public testing::Test
{
protected:
    Careless() : folder_(fast_folder()), working_folder_(fs::current_path())
    {
        fs::current_path(folder_.path());
    }
    ~Careless() override { fs::current_path(working_folder_); }

private:
    temporary_directory folder_;
    fs::path working_folder_;
};

constexpr box_sizes sizes = {4, 2};
constexpr int max_steps = 40;

enum step_kind {
    good_vector,
    tagged_event,
    bare_event,
    bare_event_of_no_type,
    bare_event_at_0,
    empty_event,
    long_event,
    vector_at_0,
    vector_without_name,
    too_many_sensors,
    too_long_name,
    step_kinds
};

class numbers
{
public:
    explicit numbers(std::size_t seed) : state_(static_cast<uint32_t>(seed) * 2654435761U + 1) {}
    uint32_t below(uint32_t n)
    {
        state_ = state_ * 1664525 + 1013904223;
        return (state_ >> 8) % n;
    }

private:
    uint32_t state_;
};

// One in three of the steps is bad; in some of the lives, only one kind of them.
std::vector<step_kind> plan_steps(std::size_t seed)
{
    numbers draw(seed);
    std::vector<step_kind> steps = {good_vector};
    const auto only = static_cast<step_kind>(1 + seed % (step_kinds - 1));
    const std::size_t n = 8 + draw.below(max_steps - 8);
    while (steps.size() < n) {
        if (draw.below(3) != 0) {
            steps.push_back(good_vector);
        } else {
            steps.push_back(seed % 2 == 0 ? only
                                          : static_cast<step_kind>(1 + draw.below(step_kinds - 1)));
        }
    }
    return steps;
}

std::vector<reading> many_readings(int n)
{
    std::vector<reading> all;
    for (int i = 0; i < n; ++i) {
        all.push_back({"many." + std::to_string(i), 1});
    }
    return all;
}

int write_vector(vesk *recorder, long seconds, const std::vector<reading> &readings)
{
    return vesk_write_telemetry_vector(recorder, make_vector(seconds, readings).get());
}

int write_event(vesk *recorder, uint32_t type, long seconds, const std::string &text)
{
    return vesk_write_event(recorder, make_event(type, seconds, text).get());
}

std::string event_text(int i)
{
    return "event " + std::to_string(i);
}

// Step i carries its number in what it writes.
int take_step(vesk *recorder, step_kind kind, int i)
{
    const std::vector<reading> number = {{"number", 1.0 * i}};
    const long now = 1000 + i;
    switch (kind) {
    case good_vector:
        return write_vector(recorder, now, number);
    case tagged_event:
        return vesk_write_tagged_event(recorder, make_event(2, now, event_text(i)).get());
    case bare_event:
        return write_event(recorder, 3, now, event_text(i));
    case bare_event_of_no_type:
        return write_event(recorder, i % 2 == 0 ? 6 : 0x01000000, now, event_text(i));
    case bare_event_at_0:
        return write_event(recorder, 5, 0, event_text(i));
    case empty_event:
        return write_event(recorder, 1, now, "");
    case long_event:
        return write_event(recorder, 1, now, std::string(10001, 'x'));
    case vector_at_0:
        return write_vector(recorder, 0, number);
    case vector_without_name:
        return write_vector(recorder, now, {{"number", 1.0 * i}, {"", 2}});
    case too_many_sensors:
        return write_vector(recorder, now, many_readings(10001));
    default:
        return write_vector(recorder, now, {{"number", 1.0 * i}, {std::string(10001, 'n'), 1}});
    }
}

struct step_board {
    int results[max_steps];
};

constexpr int not_tried = 1;

// Until a rotation fails; a writer closes the box then.
void live(const std::vector<step_kind> &steps, step_board *board)
{
    owned_recorder recorder(vesk_create("r", sizes.samples, sizes.intervals));
    for (std::size_t i = 0; i < steps.size(); ++i) {
        board->results[i] = take_step(recorder.get(), steps[i], static_cast<int>(i));
        if (steps[i] == good_vector && board->results[i] != 0) {
            return;
        }
    }
}

enum counted { stopped, aborted, lived };

bool is_vector(step_kind kind)
{
    return kind == good_vector || kind >= vector_at_0;
}

bool has_event(const box_found &found, const std::string &text)
{
    return std::any_of(found.samples_and_events.begin(), found.samples_and_events.end(),
                       [&](const entry &one) { return one.is_event && one.text == text; });
}

// The samples that are not in the history are there in their order, and so are events that the box
// can hold.
std::string check_found(const std::vector<step_kind> &steps, const step_board &board)
{
    std::vector<int> given;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        if (is_vector(steps[i]) && board.results[i] == 0) {
            given.push_back(static_cast<int>(i));
        }
    }
    const box_found box = look_into_box();
    std::vector<int> found;
    for (const entry &one : box.samples_and_events) {
        // Padding has no values.
        if (!one.is_event && !std::isnan(one.readings[0].value)) {
            found.push_back(static_cast<int>(one.readings[0].value));
        }
    }
    std::string complaint = box.complaint;
    const bool is_tail =
        found.size() <= given.size() && std::equal(found.rbegin(), found.rend(), given.rbegin());
    if (!is_tail) {
        complaint += "samples found:";
        for (const int i : found) {
            complaint += " " + std::to_string(i);
        }
        complaint += ", given:";
        for (const int i : given) {
            complaint += " " + std::to_string(i);
        }
        complaint += "\n";
    }
    uint32_t summarised = 0;
    for (const interval_found &one : box.intervals) {
        for (const auto &[name, summary] : one.sensors) {
            summarised += name == "number" ? summary.first : 0;
        }
    }
    if (is_tail && summarised + found.size() != given.size()) {
        complaint += std::to_string(summarised) + " samples are in the history, " +
                     std::to_string(found.size()) + " beside it, of " +
                     std::to_string(given.size()) + "\n";
    }
    for (std::size_t i = 0; i < steps.size(); ++i) {
        const bool kept =
            steps[i] == tagged_event || steps[i] == bare_event || steps[i] == bare_event_at_0;
        const bool is_late = !found.empty() && static_cast<int>(i) > found.front();
        if (kept && is_late && board.results[i] == 0 &&
            !has_event(box, event_text(static_cast<int>(i)))) {
            complaint += "event " + std::to_string(i) + " is missing\n";
        }
    }
    return complaint;
}

std::string check_life(std::size_t seed, step_board *board)
{
    write_folder({});
    const std::vector<step_kind> steps = plan_steps(seed);
    std::fill(std::begin(board->results), std::end(board->results), not_tried);
    const isolated_run run([&] {
        live(steps, board);
        return 0;
    });
    count_trial(run.aborted() ? aborted
                : std::any_of(std::begin(board->results), std::end(board->results),
                              [](int result) { return result == QE_ERROR_MALFORMED; })
                    ? stopped
                    : lived);
    std::string complaint;
    if (!run.exited() && !run.aborted()) {
        complaint += "the writer ended: " + run.messages();
    }
    vesk_recover_report report;
    const int result = vesk_recover("r", sizes.samples, sizes.intervals, &report);
    if (result != 0) {
        complaint += "recovery gives " + std::to_string(result) + "\n";
    }
    vesk_recover_report again;
    const int second = vesk_recover("r", 0, 0, &again);
    if (second != 0 || again.steps != 0) {
        complaint += "recovering again gives " + std::to_string(second) + " and takes " +
                     std::to_string(again.steps) + " steps\n";
    }
    complaint += check_found(steps, *board);
    entries given;
    complaint += go_on(&given, 500, 4 * static_cast<int>(sizes.samples), 0);
    if (complaint.empty()) {
        return "";
    }
    std::string told = "seed " + std::to_string(seed) + ", steps";
    for (std::size_t i = 0; i < steps.size(); ++i) {
        told += " " + std::to_string(steps[i]) + ":" + std::to_string(board->results[i]);
    }
    return told + "\n" + complaint;
}

} // namespace

TEST_F(Careless, WritersLoseNoSamples)
{
    auto *board = static_cast<step_board *>(mmap(
        nullptr, sizeof(step_board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const trial_results results = run_trials(
        is_long_form() ? 4000 : 150, [&](std::size_t seed) { return check_life(seed, board); });
    (void)munmap(board, sizeof *board);
    printf(
        "%zu careless lives, %zu failed; %llu ended in a rotation that failed, %llu in an abort, "
        "%llu went on\n",
        results.tried, results.failed, static_cast<unsigned long long>(results.counts[stopped]),
        static_cast<unsigned long long>(results.counts[aborted]),
        static_cast<unsigned long long>(results.counts[lived]));
    EXPECT_EQ(0U, results.failed) << results.complaints;
}
