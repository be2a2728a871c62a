// Fills three boxes that differ in the number of samples or of intervals, and takes the cost of one
// sample and of one interval from the differences. Processor time is measured, not time on the
// clock: a machine that is busy meanwhile would distort that.
#include "box/trial_box.hpp"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <stdlib.h>

#include "box/box.hpp"
#include "box/box_writer.hpp"
#include "process/failure.hpp"

namespace cli
{
namespace
{

constexpr whole_shape few_samples = {60, 4};
constexpr whole_shape many_samples = {240, 4};
constexpr whole_shape many_intervals = {240, 120};

// The history is made from three full buffers, and anew from the next ones.
constexpr uint32_t buffers_before_history = 3;
constexpr uint32_t measured_turns = 2;

// Any time will do.
constexpr int64_t first_time = 1700000000;

class temporary_folder
{
public:
    temporary_folder()
    {
        std::error_code error;
        std::string pattern = std::filesystem::temp_directory_path(error) / "vesk-trial-XXXXXX";
        const char *made = error ? nullptr : mkdtemp(pattern.data());
        if (made == nullptr) {
            throw failure(exit_failed, with_errno("no folder for temporary files can be made"));
        }
        path_ = made;
    }
    temporary_folder(const temporary_folder &) = delete;
    temporary_folder &operator=(const temporary_folder &) = delete;
    ~temporary_folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

double processor_seconds()
{
    timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// What was measured at one box.
struct measured_box {
    double seconds = 0; // of the quickest turn
    double raw_bytes = 0;
    double history_bytes = 0;
};

measured_box measure(const whole_shape &shape, const std::vector<std::string> &names,
                     const std::vector<std::vector<float>> &samples)
{
    const temporary_folder folder;
    const std::string base = folder.path() + "/box";
    box_writer writer(base, {shape.samples, shape.intervals}, {sync_policy::moment::never, 0});
    for (const std::string &name : names) {
        writer.admit(name);
    }
    writer.set_sensors(names);
    measured_box result;
    const uint32_t last = (buffers_before_history + measured_turns) * shape.samples;
    for (uint32_t i = 0; i <= last; ++i) {
        const double before = processor_seconds();
        writer.write(first_time + i, samples[i % samples.size()]);
        const bool is_turn = i % shape.samples == 0 && i / shape.samples > buffers_before_history;
        const double seconds = processor_seconds() - before;
        if (is_turn && (result.seconds == 0 || seconds < result.seconds)) {
            result.seconds = seconds;
        }
    }
    for (const stored_file &file : find_box(base).files) {
        const auto size = static_cast<double>(file.size);
        double &largest = file.is_history() ? result.history_bytes : result.raw_bytes;
        largest = std::max(largest, size);
    }
    return result;
}

} // namespace

trial_result try_samples(const std::vector<std::string> &names,
                         const std::vector<std::vector<float>> &samples)
{
    const measured_box few = measure(few_samples, names, samples);
    const measured_box many = measure(many_samples, names, samples);
    const measured_box divided = measure(many_intervals, names, samples);
    const double more_samples = many_samples.samples - few_samples.samples;
    const double more_intervals = 2.0 * (many_intervals.intervals - many_samples.intervals);
    trial_result result;
    result.records.sample = (many.raw_bytes - few.raw_bytes) / more_samples;
    result.records.names = few.raw_bytes - few_samples.samples * result.records.sample;
    result.records.interval = (divided.history_bytes - many.history_bytes) / more_intervals;
    result.rotation.seconds_of_sample = std::max(many.seconds - few.seconds, 0.0) / more_samples;
    result.rotation.seconds_of_interval =
        std::max(divided.seconds - many.seconds, 0.0) / more_intervals;
    return result;
}

} // namespace cli
