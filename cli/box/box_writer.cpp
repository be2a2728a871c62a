#include "box/box_writer.hpp"

#include <cerrno>
#include <cmath>
#include <fmt/format.h>
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
        throw passing_failure("the time cannot be recorded: " + words_for(result));
    }
    return stamp;
}

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
}

void box_writer::open_or_create(if_missing missing)
{
    if (is_there(name_)) {
        std::string made_as;
        if (lies_elsewhere(name_, made_as)) {
            note(fmt::format("{}: was made as {} and lies here now; it goes on here", name_.base,
                             printable(made_as)));
        }
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
        throw passing_failure(
            fmt::format("{}: this cannot be recorded: {}", name_.base, words_for(refused)));
    }
    attempt([&] { return write_vector(); });
}

namespace
{

using owned_event = std::unique_ptr<vesk_cb_record_event, event_release>;

owned_event make_record(const std::string &base, const event &what)
{
    const timestamp stamp = stamp_of(what.time);
    owned_event record(vesk_cb_record_event_create(what.type, &stamp, what.text.c_str()));
    if (!record) {
        throw failure(exit_failed, words_for(QE_ERROR_NO_MEMORY));
    }
    const int refused = vesk_check_event(record.get());
    if (refused < 0) {
        throw failure(exit_failed, fmt::format("{}: this event cannot be recorded: {}", base,
                                               words_for(refused)));
    }
    return record;
}

} // namespace

void box_writer::require_valid(const event &what) const
{
    make_record(name_.base, what);
}

event_result box_writer::write(const event &what)
{
    const owned_event record = make_record(name_.base, what);
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

// Writes, and once more after a failure: what went wrong may be in the files, not on the disk. What
// failed and got into the box all the same is not written twice.
int box_writer::attempt(const std::function<int()> &write_it)
{
    // Nothing was written when an event has to wait.
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

// A box that cannot be looked at now may be looked at later; only another writer ends this one.
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
            // Another process may have opened the box before this came into it.
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

// The file of the lock may have been removed, and another process may have come and gone since.
void box_writer::require_lock()
{
    if (!lock_.is_held()) {
        recorder_.reset();
        lock_.retake();
        note(fmt::format("{}: the file of the lock was removed, it is made anew", name_.base));
    }
}

box_writer::position box_writer::where() const
{
    return {open_buffer(*recorder_)->num_data_records, is_full()};
}

bool box_writer::got_in(const position &before) const
{
    const position now = where();
    return before.is_full ? !now.is_full && now.records > 0 : now.records > before.records;
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
    if (result >= 0) {
        finish_vector(recorder_->next_file_number != number);
    }
    return result;
}

// @p moved_on tells that the buffers took turns.
void box_writer::finish_vector(bool moved_on)
{
    // Not every failure to save the state is told.
    if (moved_on && read_state(name_.base).error != 0) {
        recorder_.reset();
        open_mended();
    }
    sync_.after_vector(*recorder_, moved_on);
    if (moved_on || backup_is_due_) {
        back_up();
    }
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
    try {
        require_free_names();
    } catch (const failure &) {
        // What a failed rotation left is deleted by a recovery.
        recorder_.reset();
        recover_box(name_, shape_);
        open();
        require_free_names();
    }
}

// A rotation overwrites what has the names of its new buffers.
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

// The child may have died behind the writing and before its report, so the box tells.
int box_writer::write_first_history()
{
    const position before = where();
    recorder_.reset();
    const child_outcome outcome = cli::write_first_history(name_.base, vector_.get());
    open_mended();
    if (outcome.result != 0 && got_in(before)) {
        return 0;
    }
    errno = outcome.error;
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
