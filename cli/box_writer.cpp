#include "box_writer.hpp"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <filesystem>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <vesk/error.h>
#include <vesk/sensor_value.h>
#include <vesk/telemetry_matrix.h>
#include <vesk/timestamp.h>

#include "box.hpp"
#include "failure.hpp"
#include "terminal.hpp"

namespace cli
{
namespace
{

// The table behind one summary cannot be cleared more often than this.
constexpr uint32_t most_intervals = 65534;
constexpr uint32_t most_event_types = 5;
constexpr std::size_t most_sensors = 10000;
// Where only the number of intervals is given.
constexpr uint32_t samples_per_interval = 60;
// The recorder builds the names of its buffers in 1024 bytes and would cut longer ones off.
constexpr std::size_t longest_base = 1000;

[[noreturn]] void fail_with_last_error(const std::string &what)
{
    throw failure(exit_failed, what + ": " + words_for(qe_get_last_error()));
}

std::string state_file_of(const std::string &base)
{
    return base + ".state";
}

const std::string &required_name(const std::string &base)
{
    if (base.empty()) {
        throw failure(exit_usage, "the name of the box is empty");
    }
    return base;
}

bool exists(const std::string &path)
{
    return access(path.c_str(), F_OK) == 0;
}

void require_same(const std::string &base, const char *option, std::optional<uint32_t> wanted,
                  uint32_t found)
{
    if (wanted && *wanted != found) {
        throw failure(exit_usage, fmt::format("{}: was made with {} {}, which cannot be changed",
                                              base, option, found));
    }
}

bool same_file(const std::string &one, const std::string &other)
{
    struct stat first = {};
    struct stat second = {};
    return stat(one.c_str(), &first) == 0 && stat(other.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

[[noreturn]] void refuse_damaged(const std::string &what)
{
    throw failure(exit_damaged, what + "; nothing was written");
}

// Why the recorder could not go on behind or with this item, or nothing.
std::string obstacle_in(const vesk_scan_item &item)
{
    if (item.kind == VESK_SCAN_BARE_EVENT) {
        return fmt::format("the event at {} cannot be read by the recorder", item.offset);
    }
    if (item.error != 0) {
        return damage_text(item);
    }
    if (item.kind == VESK_SCAN_EVENT && item.event->type > most_event_types) {
        return fmt::format("the event at {} is of the unknown type {}", item.offset,
                           item.event->type);
    }
    if (item.kind == VESK_SCAN_SENSOR_VALUES && timestamp_is_null(&item.values->timestamp) != 0) {
        return fmt::format("the sample at {} has no time", item.offset);
    }
    return {};
}

} // namespace

whole_shape complete_shape(const box_shape &shape)
{
    uint32_t samples = shape.samples.value_or(default_samples);
    if (shape.intervals && !shape.samples && *shape.intervals != 0 &&
        samples % *shape.intervals != 0) {
        samples = *shape.intervals * samples_per_interval;
    }
    if (samples == 0 || samples % 2 != 0) {
        throw failure(exit_usage, "--samples must be an even number above 0");
    }
    // An even number always has the even divisor 2.
    uint32_t intervals = std::min(default_intervals, samples);
    while (samples % intervals != 0 || intervals % 2 != 0) {
        --intervals;
    }
    intervals = shape.intervals.value_or(intervals);
    if (intervals == 0 || intervals % 2 != 0 || intervals > most_intervals) {
        throw failure(exit_usage, fmt::format("--intervals must be an even number from 2 to {}",
                                              most_intervals));
    }
    if (samples % intervals != 0) {
        throw failure(exit_usage,
                      fmt::format("--samples ({}) must be a multiple of --intervals ({})", samples,
                                  intervals));
    }
    return {samples, intervals};
}

void box_writer::check_shape_for(const std::string &base, const box_shape &shape)
{
    if (!exists(state_file_of(base))) {
        complete_shape(shape);
    }
}

box_writer::box_writer(const std::string &base, const box_shape &shape)
    : base_(required_name(base)), lock_(base_)
{
    if (exists(state_file_of(base))) {
        open(shape);
    } else {
        create(shape);
    }
}

void box_writer::check_box()
{
    const box found = find_box(base_);
    if (found.state.error != 0) {
        refuse_damaged(found.state.path + ": " + state_words(found.state));
    }
    // The recorder goes by the names in the state file, wherever the box is now.
    for (const stored_file &file : found.files) {
        if (file.missing) {
            refuse_damaged(file.path + ": is missing");
        }
    }
    if (found.files.empty() || !same_file(found.files.back().path, found.state.names.back())) {
        throw failure(exit_failed,
                      fmt::format("{}: the box was made as {} and lies elsewhere now; it can be "
                                  "read here, but not recorded to",
                                  base_, found.state.filename));
    }
    for (const stored_file &file : found.files) {
        check_buffer(file);
    }
}

// The recorder appends to the open buffer and will read the others, and what it does not expect
// there stops it for good or ends the process.
void box_writer::check_buffer(const stored_file &file)
{
    bool any_names = false;
    bool any = false;
    scan_file(file.path, [&](const vesk_scan_item &item) {
        const std::string obstacle = obstacle_in(item);
        if (!obstacle.empty()) {
            refuse_damaged(file.path + ": " + obstacle);
        }
        any = true;
        if (item.kind == VESK_SCAN_SENSOR_NAMES) {
            any_names = true;
            for (std::string &name : sensor_names(*item.names)) {
                known_sensors_.insert(std::move(name));
            }
        }
    });
    if (!any) {
        refuse_damaged(file.path + ": the header is missing");
    }
    if (!any_names && file.role != VESK_SCAN_OPEN) {
        refuse_damaged(file.path + ": holds nothing");
    }
}

void box_writer::open(const box_shape &shape)
{
    check_box();
    // A recorder that was read in part is returned too: only the cell tells it from a whole one,
    // and neither writing to it nor closing it is safe.
    qe_set_last_error(0);
    struct vesk *recorder = vesk_open(base_.c_str());
    if (recorder == nullptr || qe_get_last_error() < 0) {
        throw failure(exit_failed, fmt::format("{}: the box cannot be opened: {}", base_,
                                               words_for(qe_get_last_error())));
    }
    recorder_.reset(recorder);
    require_same(base_, "--samples", shape.samples, recorder->num_cb_samples);
    require_same(base_, "--intervals", shape.intervals, recorder->num_hb_intervals);
}

void box_writer::create(const box_shape &shape)
{
    const auto [samples, intervals] = complete_shape(shape);
    // A new recorder begins at number 1 and would empty a buffer that is there.
    const std::string first_buffer = base_ + ".1.cbuf.z";
    if (exists(first_buffer)) {
        throw failure(exit_failed,
                      fmt::format("{}: there is a buffer {} but no {}; a new box would "
                                  "overwrite it",
                                  base_, first_buffer, state_file_of(base_)));
    }
    // The state file keeps the name: a whole path holds in every working directory.
    const std::string path = std::filesystem::absolute(base_);
    if (path.size() > longest_base) {
        throw failure(exit_failed, fmt::format("{}: the path is longer than {} characters", base_,
                                               longest_base));
    }
    errno = 0;
    recorder_.reset(vesk_create(path.c_str(), samples, intervals));
    if (!recorder_) {
        const std::string reason = words_for(qe_get_last_error());
        throw failure(exit_failed,
                      with_errno(fmt::format("{}: the box cannot be made: {}", base_, reason)));
    }
}

bool box_writer::admit(const std::string &name)
{
    if (known_sensors_.count(name) == 1) {
        return true;
    }
    if (known_sensors_.size() == most_sensors) {
        return false;
    }
    known_sensors_.insert(name);
    return true;
}

void box_writer::set_sensors(std::span<const std::string> names)
{
    std::vector<const char *> texts;
    texts.reserve(names.size());
    for (const std::string &name : names) {
        texts.push_back(name.c_str());
    }
    const auto count = static_cast<uint32_t>(names.size());
    sensor_array *sensors = sensor_array_create_from_names(texts.data(), count);
    matrix *values = sensors != nullptr ? matrix_create(1, count) : nullptr;
    timestamp none = {};
    timestamp_init_null(&none);
    matrix *vector =
        values != nullptr ? telemetry_matrix_create_vector(values, sensors, &none) : nullptr;
    if (vector == nullptr) {
        const int error = qe_get_last_error();
        if (values != nullptr) {
            matrix_destroy(&values);
        }
        if (sensors != nullptr) {
            sensor_array_destroy(&sensors);
        }
        throw failure(exit_failed, words_for(error));
    }
    vector_.reset(vector);
}

void box_writer::write(int64_t time, std::span<const float> values)
{
    timestamp stamp = {};
    timeval tv = {};
    tv.tv_sec = static_cast<decltype(tv.tv_sec)>(time);
    if (timestamp_init_from_timeval(&stamp, &tv) < 0 ||
        telemetry_matrix_update_vector_timestamp(vector_.get(), &stamp) < 0) {
        fail_with_last_error(base_);
    }
    for (uint32_t i = 0; i < values.size(); ++i) {
        const float value = std::isnan(values[i]) ? _qe_invalid_sensor_value : values[i];
        matrix_set(vector_.get(), 0, i, static_cast<double>(value));
    }
    errno = 0;
    const int result = vesk_write_telemetry_vector(recorder_.get(), vector_.get());
    if (result < 0) {
        const std::string reason = words_for(result);
        throw failure(exit_failed, errno != 0 ? with_errno(fmt::format("{}: {}", base_, reason))
                                              : fmt::format("{}: the vector was not recorded: {}",
                                                            base_, reason));
    }
}

} // namespace cli
