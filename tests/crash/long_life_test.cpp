// A box lives on after two faults at once: one to three of its files are damaged, the state file
// and its copy among them, the box is recovered, and then it records through all stages twice.
// After each piece of that life the box is healthy, every count adds up, and every value that was
// acknowledged and not damaged is in the raw samples or summed up in the history.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk.h>
#include <vesk/vesk_recover.h>
#include <vesk/vesk_scan.h>

#include "common/temporary_directory.hpp"
#include "crash/box.hpp"
#include "crash/random_source.hpp"
#include "crash/stored_records.hpp"
#include "crash/trials.hpp"
#include "crash/vandal.hpp"

namespace
{

namespace fs = std::filesystem;

// ---- What a box holds in all ------------------------------------------------------------------

// The sums over all sensors, whatever these are called: names can be lost with a damaged stream.
// The values of these boxes are small multiples of 1/64, so sums of them are exact.
struct totals {
    uint64_t readings = 0;
    double sum = 0;
    std::array<uint64_t, 6> events = {};

    bool operator==(const totals &) const = default;

    totals &operator+=(const totals &other)
    {
        readings += other.readings;
        sum += other.sum;
        std::transform(events.begin(), events.end(), other.events.begin(), events.begin(),
                       std::plus<>());
        return *this;
    }
};

std::string describe(const totals &all)
{
    std::string text = std::to_string(all.readings) + " readings, sum " + std::to_string(all.sum);
    for (std::size_t type = 1; type < all.events.size(); ++type) {
        text += ", " + std::to_string(all.events[type]) + " events " + std::to_string(type);
    }
    return text;
}

totals totals_of(const entry &one)
{
    totals all;
    if (one.is_event) {
        ++all.events[one.type];
    }
    for (const reading &r : one.readings) {
        ++all.readings;
        all.sum += r.value;
    }
    return all;
}

int add_item(const vesk_scan_item *item, void *context)
{
    auto *all = static_cast<totals *>(context);
    if (item->values != nullptr) {
        const uint32_t n = vesk_cb_record_sensor_values_get_number_values(item->values);
        const float *values = vesk_cb_record_sensor_values_get_values(item->values);
        for (uint32_t i = 0; i < n; ++i) {
            if (!std::isnan(values[i])) {
                ++all->readings;
                all->sum += static_cast<double>(values[i]);
            }
        }
    } else if (item->event != nullptr) {
        ++all->events.at(item->event->type);
    } else if (item->interval != nullptr) {
        const vesk_hb_record_sensor_values &interval = *item->interval;
        const uint32_t n = vesk_hb_record_sensor_values_get_number_hist_values(&interval);
        for (uint32_t i = 0; i < n; ++i) {
            all->readings += interval.hvalues[i].count;
            all->sum += static_cast<double>(interval.hvalues[i].sum);
        }
        const vesk_hb_record_events &events = interval.events;
        const std::array<uint64_t, 6> counted = {0,
                                                 events.n_type1_events,
                                                 events.n_type2_events,
                                                 events.n_type3_events,
                                                 events.n_type4_events,
                                                 events.n_type5_events};
        std::transform(all->events.begin(), all->events.end(), counted.begin(), all->events.begin(),
                       std::plus<>());
    }
    return 0;
}

int add_file(const vesk_scan_file *file, void *context)
{
    return file->role == VESK_SCAN_ORPHAN ? 0 : vesk_scan_buffer(file->filename, add_item, context);
}

totals totals_of_box()
{
    totals all;
    (void)vesk_scan_files("r", add_file, &all);
    return all;
}

// ---- A life -----------------------------------------------------------------------------------

enum class clock_habit { steady, stands, steps_back };

struct habits {
    box_sizes sizes;
    int width = 1;
    clock_habit clock = clock_habit::steady;
    bool backs_up = true;
};

// Writes vector after vector, with an event behind some of them, and remembers what was taken.
class diary
{
public:
    diary(const habits &of, random_source *random) : habits_(of), random_(random) {}

    // Opens the box and writes `n` vectors. Returns a complaint, or nothing.
    std::string write(int n)
    {
        qe_set_last_error(0);
        owned_recorder recorder(vesk_open("r"));
        if (!recorder || qe_get_last_error() != 0) {
            return "opening gives " + std::to_string(qe_get_last_error()) + "\n";
        }
        return write(recorder.get(), n);
    }

    std::string write(vesk *recorder, int n)
    {
        for (int i = 0; i < n; ++i) {
            const uint32_t number = recorder->next_file_number;
            std::string complaint = write(recorder, next_vector());
            // An event behind the last vector of a buffer is in no interval.
            if (complaint.empty() && random_->once_in(3) && !is_full(recorder)) {
                complaint = write(recorder, next_event());
            }
            if (!complaint.empty()) {
                return complaint;
            }
            if (habits_.backs_up && recorder->next_file_number != number &&
                vesk_backup_state(recorder) != 0) {
                return "the copy of the state cannot be written\n";
            }
        }
        return "";
    }

    int vectors() const { return vectors_; }
    const totals &taken() const { return taken_; }
    void forget() { taken_ = totals(); }

private:
    static bool is_full(const vesk *recorder)
    {
        const vesk_current_buffer *open =
            recorder->state == VESK_ZCF_STATE_C00   ? recorder->c00->cbuf0
            : recorder->state == VESK_ZCF_STATE_CC0 ? recorder->cc0->cbuf1
            : recorder->state == VESK_ZCF_STATE_CCC ? recorder->ccc->cbuf2
                                                    : recorder->hcc->cbuf2;
        return open->num_data_records >= open->max_data_records;
    }

    entry next_vector()
    {
        ++vectors_;
        switch (habits_.clock) {
        case clock_habit::steady:
            ++time_;
            break;
        case clock_habit::stands:
            break;
        case clock_habit::steps_back:
            time_ += random_->once_in(5) ? -static_cast<int>(random_->below(40)) : 1;
            break;
        }
        entry one = vector_entry(vectors_, habits_.width);
        one.number = time_;
        return one;
    }

    entry next_event()
    {
        ++events_;
        return event_entry(time_, events_);
    }

    std::string write(vesk *recorder, const entry &one)
    {
        const int result = write_entry(recorder, one);
        if (result != 0) {
            return (one.is_event ? "an event" : "a vector") + std::string(" gives ") +
                   std::to_string(result) + "\n";
        }
        taken_ += totals_of(one);
        return "";
    }

    habits habits_;
    random_source *random_;
    int vectors_ = 0;
    int events_ = 0;
    int time_ = 500;
    totals taken_;
};

// Whether the working folder holds a buffer, or a state file or copy that can be read.
bool is_anything_left(const folder_content &files)
{
    return std::any_of(files.begin(), files.end(), [](const auto &file) {
        vesk_state_summary summary;
        if (file.first.find("buf") != std::string::npos) {
            return true;
        }
        const bool whole = vesk_scan_state(file.first.c_str(), &summary) == 0;
        vesk_state_summary_destruct(&summary);
        return whole;
    });
}

// ---- One trial --------------------------------------------------------------------------------

class long_life
{
public:
    explicit long_life(std::size_t seed)
        : random_(seed), habits_(choose_habits(&random_)), diary_(habits_, &random_)
    {
    }

    std::string live()
    {
        write_folder({});
        {
            owned_recorder recorder(
                vesk_create("r", habits_.sizes.samples, habits_.sizes.intervals));
            if (habits_.backs_up && vesk_backup_state(recorder.get()) != 0) {
                return "the copy of the state cannot be written\n";
            }
        }
        std::string complaint =
            record(static_cast<int>(random_.below(6 * habits_.sizes.samples + 2)));
        const int rounds = random_.once_in(3) ? 2 : 1;
        for (int round = 0; round < rounds && complaint.empty(); ++round) {
            complaint = survive();
        }
        return complaint;
    }

private:
    static habits choose_habits(random_source *random)
    {
        habits chosen;
        chosen.sizes = random->one_of<box_sizes>({{2, 2}, {4, 2}, {4, 4}, {6, 2}, {8, 4}});
        chosen.width = random->one_of<int>({steady, 0, 1, 3});
        chosen.clock = random->one_of<clock_habit>({clock_habit::steady, clock_habit::steady,
                                                    clock_habit::stands, clock_habit::steps_back});
        chosen.backs_up = !random->once_in(4);
        return chosen;
    }

    // Some vectors, with the box closed and opened in between, and looked at each time.
    std::string record(int vectors)
    {
        totals expected = totals_of_box();
        while (vectors > 0) {
            const int n =
                std::min(vectors, 1 + static_cast<int>(random_.below(habits_.sizes.samples + 3)));
            diary_.forget();
            std::string complaint = diary_.write(n);
            expected += diary_.taken();
            complaint += check_health();
            const totals found = totals_of_box();
            if (!(found == expected)) {
                complaint += "there are " + describe(found) + "\nnot " + describe(expected) + "\n";
            }
            if (!complaint.empty()) {
                return "after vector " + std::to_string(diary_.vectors()) + ": " + complaint;
            }
            earlier_.push_back(read_folder());
            vectors -= n;
        }
        return "";
    }

    // What was cut out of a buffer may outlive the buffer until the next recovery.
    static int take_step(const vesk_recover_step *step, void *context)
    {
        const std::string name = step->filename;
        // A buffer of which nothing can be read any more may be left where it is.
        if (step->action != VESK_RECOVER_KEEP &&
            (step->action != VESK_RECOVER_DELETE || !name.ends_with(".torn"))) {
            *static_cast<std::string *>(context) +=
                "step " + std::to_string(step->action) + " for " + name + "\n";
        }
        return 0;
    }

    static std::string check_health()
    {
        std::string steps;
        const int planned = vesk_recover_plan("r", 0, 0, take_step, &steps, nullptr);
        return planned == 0 ? steps : "the plan gives " + std::to_string(planned) + "\n";
    }

    static bool has_whole_copy()
    {
        vesk_state_summary summary;
        const bool whole = vesk_scan_state("r.state.bak", &summary) == 0;
        vesk_state_summary_destruct(&summary);
        return whole;
    }

    // Two files became those of one earlier moment, the copy of the state is gone or torn, and a
    // buffer that was begun later is left. With a clock that steps back this is what a box looks
    // like that was made over an older one: nothing tells that the buffer belongs to it, so it is
    // kept beside it.
    bool is_younger_beside_a_whole_box(const damaged_folder &injury) const
    {
        return injury.wounds.size() == 3 && !has_whole_copy() &&
               std::any_of(earlier_.begin(), earlier_.end(), [&](const folder_content &then) {
                   return std::all_of(then.begin(), then.end(), [&](const auto &file) {
                       const auto now = injury.files.find(file.first);
                       return file.first == "r.state.bak" ||
                              (now != injury.files.end() && *now->second == *file.second);
                   });
               });
    }

    std::string survive()
    {
        const std::vector<stored_record> before = read_named_records();
        const damaged_folder injury = vandal(read_folder(), earlier_, &random_).damage();
        write_folder(injury.files);
        const int result =
            vesk_recover("r", habits_.sizes.samples, habits_.sizes.intervals, nullptr);
        if (result != 0 && !is_anything_left(injury.files)) {
            count_trial(refused);
            return "";
        }
        std::string complaint;
        if (result != 0) {
            complaint = "the recovery gives " + std::to_string(result) + "\n";
        } else {
            count_trial(came_back);
            const auto missing = missing_records(before, injury.wounds, read_named_records());
            if (!missing.empty() && habits_.clock != clock_habit::steady &&
                is_younger_beside_a_whole_box(injury)) {
                count_trial(undecided);
                return "";
            }
            if (!missing.empty()) {
                complaint = std::to_string(missing.size()) + " records missing, the first is " +
                            missing[0] + "\n";
            }
            complaint += check_health();
        }
        if (complaint.empty()) {
            // Twice from an empty box to one with a history that was halved.
            complaint = record(static_cast<int>(2 * 4 * habits_.sizes.samples + 1));
        }
        return complaint.empty() ? "" : describe_life() + "\n" + injury.what + "\n" + complaint;
    }

    std::string describe_life() const
    {
        return std::to_string(habits_.sizes.samples) + " samples, " +
               std::to_string(habits_.sizes.intervals) + " intervals, " +
               (habits_.clock == clock_habit::steady   ? "steady"
                : habits_.clock == clock_habit::stands ? "standing"
                                                       : "stepping back") +
               (habits_.backs_up ? ", with a copy of the state" : "") + ", " +
               std::to_string(diary_.vectors()) + " vectors";
    }

public:
    enum counted { came_back, refused, undecided };

private:
    random_source random_;
    habits habits_;
    diary diary_;
    std::vector<folder_content> earlier_;
};

} // namespace

TEST(LongLife, GoesOnAfterTwoFaultsAtOnce)
{
    const temporary_directory folder(fast_folder());
    const fs::path working_folder = fs::current_path();
    fs::current_path(folder.path());
    const char *wanted = getenv("VESK_LONG_LIVES");
    const char *first = getenv("VESK_FIRST_LIFE");
    const std::size_t n = wanted != nullptr ? std::strtoul(wanted, nullptr, 10)
                          : is_long_form()  ? 100000
                                            : 2000;
    const std::size_t seed = first != nullptr ? std::strtoul(first, nullptr, 10) : 0;
    const trial_results results =
        run_trials(n, [&](std::size_t i) { return long_life(seed + i).live(); });
    fs::current_path(working_folder);
    printf("%zu lives from number %zu on, %zu failed; %llu times damaged and recovered, %llu times "
           "nothing was left, %llu times a younger buffer beside a whole box\n",
           results.tried, seed, results.failed,
           static_cast<unsigned long long>(results.counts[long_life::came_back]),
           static_cast<unsigned long long>(results.counts[long_life::refused]),
           static_cast<unsigned long long>(results.counts[long_life::undecided]));
    EXPECT_EQ(0U, results.failed) << results.complaints;
}

// Lives that the recovery once failed: copies of a buffer that were kept until the history seemed
// to hold them, and buffers left outside because their times, or those of the buffer before, were
// lost or stepped back.
TEST(LongLife, GoesOnWhereItOnceDidNot)
{
    const temporary_directory folder(fast_folder());
    const fs::path working_folder = fs::current_path();
    fs::current_path(folder.path());
    const std::vector<std::size_t> seeds = {4278,  4619,  17934, 39040, 41380,
                                            42808, 51616, 56838, 72374};
    const trial_results results =
        run_trials(seeds.size(), [&](std::size_t i) { return long_life(seeds[i]).live(); });
    fs::current_path(working_folder);
    EXPECT_EQ(0U, results.failed) << results.complaints;
}
