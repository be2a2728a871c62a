#include "box/box_writer.hpp"

#include <cerrno>
#include <cmath>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <vesk/error.h>
#include <vesk/sensor_value.h>
#include <vesk/telemetry_matrix.h>
#include <vesk/timestamp.h>
#include <vesk/vesk_check.h>

#include "box/box.hpp"
#include "box/box_check.hpp"
#include "box/first_history.hpp"
#include "process/terminal.hpp"

namespace cli
{
namespace
{

constexpr std::size_t most_sensors = 10000;

bool same_file(const std::string &one, const std::string &other)
{
    struct stat first = {};
    struct stat second = {};
    return stat(one.c_str(), &first) == 0 && stat(other.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

const vesk_current_buffer *open_buffer(const struct vesk &recorder)
{
    switch (recorder.state) {
    case VESK_ZCF_STATE_C00:
        return recorder.c00->cbuf0;
    case VESK_ZCF_STATE_CC0:
        return recorder.cc0->cbuf1;
    case VESK_ZCF_STATE_CCC:
        return recorder.ccc->cbuf2;
    default:
        return recorder.hcc->cbuf2;
    }
}

struct event_release {
    void operator()(vesk_cb_record_event *record) const { vesk_cb_record_event_destroy(&record); }
};

timestamp stamp_of(int64_t time)
{
    timestamp stamp = {};
    timeval tv = {};
    tv.tv_sec = static_cast<decltype(tv.tv_sec)>(time);
    const int result = timestamp_init_from_timeval(&stamp, &tv);
    if (result < 0) {
        throw failure(exit_failed, words_for(result));
    }
    return stamp;
}

// The recorder goes by the names in the state file, wherever the box is now.
void refuse_moved_box(const std::string &base)
{
    const box found = find_box(base);
    if (found.state.error != 0 || found.files.empty() || found.files.back().missing) {
        return;
    }
    if (!same_file(found.files.back().path, found.state.names.back())) {
        throw failure(exit_failed,
                      fmt::format("{}: the box was made as {} and lies elsewhere now; it can be "
                                  "read here, but not recorded to before `vesk repair {}`",
                                  base, found.state.filename, base));
    }
}

} // namespace

void box_writer::check_shape_for(const std::string &base, const box_shape &shape)
{
    if (access((base + ".state").c_str(), F_OK) != 0) {
        complete_shape(shape);
    }
}

box_writer::box_writer(const std::string &base, const box_shape &shape, const sync_policy &sync,
                       if_missing missing)
    : name_(base), shape_(shape), lock_(base), sync_(base, sync)
{
    open_or_create(missing);
    require_shape(base, shape, {recorder_->num_cb_samples, recorder_->num_hb_intervals});
}

void box_writer::open_or_create(if_missing missing)
{
    if (is_there(name_)) {
        refuse_moved_box(name_.base);
        recover_box(name_, shape_);
        open();
    } else if (missing == if_missing::create) {
        create();
    } else {
        throw failure(exit_unreadable, name_.base + ": there is no such box");
    }
}

void box_writer::open()
{
    known_sensors_.merge(require_sound(name_.base));
    recorder_ = open_recorder(name_);
}

// What is wrong in the files is mended once.
void box_writer::open_mended()
{
    try {
        open();
    } catch (const storage_failure &) {
        throw;
    } catch (const failure &) {
        recover_box(name_, shape_);
        open();
    }
}

void box_writer::create()
{
    recorder_ = create_recorder(name_, shape_);
    sync_.now(*recorder_);
    back_up();
}

// What failed may have left a torn record, or a recorder that is ahead of its files.
void box_writer::reopen()
{
    try {
        if (last_errno_ == ENOSPC) {
            require_room_to_recover(name_);
        }
        recover_box(name_, shape_);
        open();
    } catch (const storage_failure &reason) {
        last_errno_ = reason.error();
        throw;
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

bool box_writer::is_full() const
{
    if (!recorder_) {
        return false;
    }
    const vesk_current_buffer *buffer = open_buffer(*recorder_);
    return buffer->num_data_records >= buffer->max_data_records;
}

void box_writer::write(int64_t time, std::span<const float> values)
{
    const timestamp stamp = stamp_of(time);
    const int updated = telemetry_matrix_update_vector_timestamp(vector_.get(), &stamp);
    if (updated < 0) {
        throw failure(exit_failed, fmt::format("{}: {}", name_.base, words_for(updated)));
    }
    for (uint32_t i = 0; i < values.size(); ++i) {
        const float value = std::isnan(values[i]) ? _qe_invalid_sensor_value : values[i];
        matrix_set(vector_.get(), 0, i, static_cast<double>(value));
    }
    const int refused = vesk_check_vector(vector_.get());
    if (refused < 0) {
        throw failure(exit_failed, fmt::format("{}: this cannot be recorded: {}", name_.base,
                                               words_for(refused)));
    }
    attempt([&] { return write_vector(); });
}

event_result box_writer::write(const event &what)
{
    const timestamp stamp = stamp_of(what.time);
    const std::unique_ptr<vesk_cb_record_event, event_release> record(
        vesk_cb_record_event_create(what.type, &stamp, what.text.c_str()));
    if (!record) {
        throw failure(exit_failed, words_for(QE_ERROR_NO_MEMORY));
    }
    const int refused = vesk_check_event(record.get());
    if (refused < 0) {
        throw failure(exit_failed, fmt::format("{}: this event cannot be recorded: {}", name_.base,
                                               words_for(refused)));
    }
    const int result =
        attempt([&] { return vesk_write_tagged_event(recorder_.get(), record.get()); });
    if (result == QE_ERROR_UNKNOWN_KIND) {
        return event_result::too_early;
    }
    sync_.now(*recorder_);
    return event_result::recorded;
}

// Writes, and once more after a failure: what went wrong may be in the files, not on the disk.
int box_writer::attempt(const std::function<int()> &write_it)
{
    // Nothing was written when an event has to wait.
    const auto is_failure = [](int code) { return code < 0 && code != QE_ERROR_UNKNOWN_KIND; };
    if (!recorder_) {
        reopen();
    }
    errno = 0;
    int result = write_it();
    if (!is_failure(result)) {
        return result;
    }
    last_errno_ = errno;
    recorder_.reset();
    reopen();
    errno = 0;
    result = write_it();
    if (!is_failure(result)) {
        return result;
    }
    last_errno_ = errno;
    recorder_.reset();
    throw storage_failure::because(fmt::format("{}: {}", name_.base, words_for(result)),
                                   last_errno_);
}

int box_writer::write_vector()
{
    if (is_full()) {
        prepare_rotation();
    }
    const uint32_t number = recorder_->next_file_number;
    const bool first_history = is_full() && recorder_->state == VESK_ZCF_STATE_CCC;
    const int result = first_history ? write_first_history()
                                     : vesk_write_telemetry_vector(recorder_.get(), vector_.get());
    if (result < 0) {
        return result;
    }
    const bool moved_on = recorder_->next_file_number != number;
    // Not every failure to save it is told.
    if (moved_on && read_state(name_.base).error != 0) {
        recorder_.reset();
        open_mended();
    }
    sync_.after_vector(*recorder_, moved_on);
    if (moved_on || backup_is_due_) {
        back_up();
    }
    return result;
}

// A rotation reads the older buffers, and some damage there ends the process.
void box_writer::prepare_rotation()
{
    try {
        require_sound(name_.base);
    } catch (const failure &) {
        recorder_.reset();
        recover_box(name_, shape_);
        open();
    }
}

int box_writer::write_first_history()
{
    recorder_.reset();
    const child_outcome outcome = cli::write_first_history(name_.base, vector_.get());
    errno = outcome.error;
    if (outcome.result == 0) {
        open_mended();
    }
    return outcome.result;
}

// Without the copy the box is as good; it is tried again with each vector.
void box_writer::back_up()
{
    backup_is_due_ = vesk_backup_state(recorder_.get()) != 0;
}

void box_writer::finish()
{
    if (recorder_) {
        sync_.now(*recorder_);
    }
    recorder_.reset();
}

} // namespace cli
