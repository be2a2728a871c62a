// Writes vectors and events into a box. A write that fails closes the box, because the recorder may
// be ahead of its files; the box is then recovered and opened again, and the write is tried once
// more. Before each write the lock is checked, because somebody may have removed its file and
// another process may have written meanwhile.
#include "box/box_writer.hpp"

#include <cerrno>
#include <cmath>
#include <fmt/format.h>
#include <utility>
#include <vector>

#include <vesk/error.h>
#include <vesk/sensor_value.h>
#include <vesk/telemetry_matrix.h>
#include <vesk/timestamp.h>
#include <vesk/vesk_check.h>
#include <vesk/vesk_limits.h>
#include <vesk/vesk_prepare.h>

#include "box/box.hpp"
#include "box/box_check.hpp"
#include "box/event_record.hpp"
#include "process/terminal.hpp"

namespace cli
{
namespace
{

// What a history may take in memory until its rotation where the file system has no place for it.
constexpr std::size_t memory_ahead = std::size_t{8} << 20;

} // namespace

void box_writer::check_shape_for(const std::string &base, const box_shape &shape)
{
    if (!exists(base + ".state")) {
        complete_shape(shape);
    }
}

box_writer::box_writer(const std::string &base, const box_shape &shape, const sync_policy &sync,
                       if_missing missing)
    : name_(base), shape_(shape), lock_(base), sync_(base, sync)
{
    open_or_create(missing);
    require_shape(base, shape, {recorder_->num_cb_samples, recorder_->num_hb_intervals});
    // The sizes are remembered, so that a later recovery has them whatever happens to the files.
    shape_ = {recorder_->num_cb_samples, recorder_->num_hb_intervals};
}

void box_writer::open_or_create(if_missing missing)
{
    if (is_there(name_)) {
        note_other_place(name_);
    } else if (missing == if_missing::refuse) {
        throw failure(exit_unreadable, name_.base + ": there is no such box");
    }
    last_time_before_ = open();
}

// Returns the time of the newest sample.
std::optional<int64_t> box_writer::open()
{
    started_box started = start_box(name_, shape_);
    box_content content;
    // A new buffer gets its header with its first record.
    if (!started.is_new) {
        content = require_sound(name_.base);
    }
    known_sensors_.merge(content.sensors);
    recorder_ = std::move(started.recorder);
    return content.last_time;
}

// Opens the box again after a failed write, which may have left a torn record.
void box_writer::reopen()
{
    try {
        if (!is_there(name_)) {
            throw storage_failure(name_.base + ": there is no such box any more");
        }
        if (last_errno_ == ENOSPC) {
            require_room_to_recover(name_);
        }
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
    if (known_sensors_.size() == VESK_MAX_COUNT) {
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
    is_checked_ = false;
}

bool box_writer::is_full() const
{
    return recorder_ && vesk_is_full(recorder_.get()) != 0;
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
    require_recordable_sensors();
    attempt([&] { return write_vector(); });
}

// Looks at the sensors once: the vectors that follow differ in their values and in their time,
// which is known to be good.
void box_writer::require_recordable_sensors()
{
    if (is_checked_) {
        return;
    }
    const int refused = vesk_check_vector(vector_.get());
    if (refused < 0) {
        throw passing_failure(
            fmt::format("{}: this cannot be recorded: {}", name_.base, words_for(refused)));
    }
    is_checked_ = true;
}

event_result box_writer::write(const event &what)
{
    const owned_event_record record = make_event_record(what);
    const int result = attempt([&] {
        return is_full() ? int{QE_ERROR_UNKNOWN_KIND}
                         : vesk_write_tagged_event(recorder_.get(), record.get());
    });
    if (result == QE_ERROR_UNKNOWN_KIND) {
        return event_result::waits;
    }
    sync_.now(*recorder_);
    return event_result::recorded;
}

// Writes, and tries once more after a failure, because a recovery of the files may remove its
// cause. A storage_failure means that both attempts failed.
int box_writer::attempt(const std::function<int()> &write_it)
{
    // QE_ERROR_UNKNOWN_KIND (-4) is no failure: it says that an event has to wait and was not
    // written.
    const auto is_failure = [](int code) { return code < 0 && code != QE_ERROR_UNKNOWN_KIND; };
    make_ready();
    int result = try_once(write_it);
    if (is_failure(result)) {
        make_ready();
        result = try_once(write_it);
    }
    if (!is_failure(result)) {
        return result;
    }
    throw storage_failure::because(fmt::format("{}: {}", name_.base, words_for(result)),
                                   last_errno_);
}

// Failures of reading the box become storage failures, which the caller may survive; only another
// writer ends this one.
void box_writer::make_ready()
{
    try {
        require_lock();
        if (!recorder_) {
            reopen();
        }
    } catch (const box_in_use &) {
        throw;
    } catch (const passing_failure &) {
        throw;
    } catch (const failure &reason) {
        throw storage_failure(reason.what());
    }
}

// A failure closes the box, for the recorder may be ahead of its files.
int box_writer::try_once(const std::function<int()> &write_it)
{
    try {
        errno = 0;
        const int result = write_it();
        if (result < 0 && result != QE_ERROR_UNKNOWN_KIND) {
            last_errno_ = errno;
            recorder_.reset();
        } else if (!lock_.is_held()) {
            // Another process may have opened the box before the record was written, so the record
            // may be lost.
            throw storage_failure(name_.base + ": the file of the lock was removed");
        }
        return result;
    } catch (const passing_failure &) {
        recorder_.reset();
        throw;
    } catch (const failure &reason) {
        recorder_.reset();
        throw storage_failure(reason.what());
    }
}

// If somebody removed the lock file, another process may have written to the box since, so the box
// is opened again.
void box_writer::require_lock()
{
    if (!lock_.is_held()) {
        recorder_.reset();
        lock_.retake();
        note(fmt::format("{}: the file of the lock was removed, it is made anew", name_.base));
    }
}

int box_writer::write_vector()
{
    const bool begins_buffer = is_full();
    if (begins_buffer) {
        prepare_rotation();
    }
    const int result = vesk_write_telemetry_vector(recorder_.get(), vector_.get());
    if (result >= 0) {
        buffers_begun_ += begins_buffer ? 1 : 0;
        finish_vector();
    }
    return result;
}

// The vector is in the box already, so no failure here is reported. If the disk has no room for the
// last steps of a rotation, the files that the history has replaced remain and take room; opening
// the box again deletes them.
void box_writer::finish_vector()
{
    if (sync_.after_vector(*recorder_)) {
        return;
    }
    recorder_.reset();
    try {
        open();
    } catch (const failure &) {
        recorder_.reset();
    }
}

void box_writer::work_ahead(double seconds)
{
    if (recorder_) {
        (void)vesk_prepare(recorder_.get(), static_cast<uint32_t>(seconds * 1e6), memory_ahead);
    }
}

// Nothing is left to be read.
bool box_writer::has_worked_ahead() const
{
    return vesk_prepare(recorder_.get(), 0, 0) == 0;
}

// A rotation reads the older buffers, and some damage in them would end the process, so they are
// checked first, unless they were read already. A recovery deletes the files that a failed rotation
// of another process left.
void box_writer::prepare_rotation()
{
    try {
        if (!has_worked_ahead()) {
            require_sound(name_.base);
        }
        require_free_names();
    } catch (const failure &) {
        recorder_.reset();
        open();
        require_free_names();
    }
}

// Refuses a rotation that would overwrite files: it does not look whether its new names are taken.
void box_writer::require_free_names() const
{
    for (uint32_t i = 0; i < 2; ++i) {
        for (const char *kind : {"cbuf", "hbuf"}) {
            const std::string path =
                fmt::format("{}.{}.{}.z", name_.path, recorder_->next_file_number + i, kind);
            if (exists(path)) {
                throw storage_failure(
                    fmt::format("{}: {} is in the way of a new buffer", name_.base, path), EEXIST);
            }
        }
    }
}

void box_writer::sync_now()
{
    if (recorder_) {
        sync_.now(*recorder_);
    }
}

void box_writer::finish()
{
    sync_now();
    recorder_.reset();
}

} // namespace cli
