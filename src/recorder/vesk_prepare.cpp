// Makes the history of the next rotation ahead of time, a step at a time, in a file without a name.
// At the rotation the file gets its name, if the recorder and its files are still those that it was
// made for; otherwise it is thrown away.

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <new>
#include <unistd.h>

#include <vesk/error.h>
#include <vesk/vesk_prepare.h>

#include "box/durable_file.hpp"
#include "box/unnamed_file.hpp"
#include "io/writer_internal.hpp"
#include "recorder/preparation.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

history_preparation::history_preparation(const vesk *recorder)
    : state_(recorder->state), num_hb_intervals_(recorder->num_hb_intervals),
      num_samples_per_interval_(recorder->num_samples_per_interval)
{
    _vesk_format_hbuf_filename(recorder, hbuf_filename_, sizeof hbuf_filename_);
    const stage_buffers buffers = _vesk_stage_buffers(recorder, recorder->state);
    for (int i = 0; i < 2; ++i) {
        snprintf(inputs_[i].filename, sizeof inputs_[i].filename, "%s", buffers.full[i]);
        inputs_[i].status = {};
    }
}

bool history_preparation::is_for(const vesk *recorder) const
{
    if (recorder->state != state_ || stage_type(recorder) != state_) {
        return false;
    }
    char filename[filename_size];
    _vesk_format_hbuf_filename(recorder, filename, sizeof filename);
    const stage_buffers buffers = _vesk_stage_buffers(recorder, state_);
    return strcmp(filename, hbuf_filename_) == 0 &&
           strcmp(buffers.full[0], inputs_[0].filename) == 0 &&
           strcmp(buffers.full[1], inputs_[1].filename) == 0;
}

int history_preparation::step(std::size_t memory)
{
    if (result_ == more_to_do) {
        result_ = next_step(memory);
        if (result_ < 0) {
            abandon();
        }
    }
    return result_;
}

// One piece of the work, and on to the next phase where this one is through.
int history_preparation::next_step(std::size_t memory)
{
    int result = all_done;
    switch (phase_) {
    case phase::begin:
        result = create_history(memory);
        break;
    case phase::older:
        result = step_through(inputs_[0]);
        break;
    case phase::newer:
        result = step_through(inputs_[1]);
        break;
    case phase::sync:
        return fdatasync(fileno(file_.get())) == 0 ? all_done : static_cast<int>(QE_ERROR_IO);
    }
    struct stat status = {};
    if (result >= 0 && lies_in_memory_ &&
        (fstat(fileno(hbuf_->fp), &status) != 0 ||
         static_cast<std::size_t>(status.st_size) > memory)) {
        return QE_ERROR_NO_MEMORY;
    }
    if (result == all_done) {
        result = phase_ == phase::newer ? keep_file() : 0;
        phase_ = static_cast<phase>(static_cast<int>(phase_) + 1);
    }
    return result < 0 ? result : more_to_do;
}

int history_preparation::create_history(std::size_t memory)
{
    hbuf_ = _vesk_hist_buffer_create_in(hbuf_filename_, 2 * num_hb_intervals_,
                                        _vesk_create_unnamed_file);
    if (hbuf_ == nullptr && qe_get_last_error() == QE_ERROR_OPEN && memory > 0) {
        lies_in_memory_ = true;
        hbuf_ = _vesk_hist_buffer_create_in(hbuf_filename_, 2 * num_hb_intervals_,
                                            _vesk_create_file_in_memory);
    }
    return hbuf_ == nullptr ? qe_get_last_error() : all_done;
}

int history_preparation::step_through(input &from)
{
    if (!is_merging_ && !is_compressing_) {
        const int opened = open_input(from);
        return opened < 0 ? opened : more_to_do;
    }
    const int result =
        is_merging_ ? _vesk_merging_step(&merging_) : _vesk_compression_step(&compression_);
    if (result == all_done) {
        close_input();
    }
    return result;
}

int history_preparation::open_input(input &from)
{
    const bool is_history = state_ == VESK_ZCF_STATE_HCC && phase_ == phase::older;
    const int opened = is_history ? open_old_history(from.filename) : open_samples(from.filename);
    if (opened < 0) {
        return opened;
    }
    FILE *file = is_history ? merging_.hbuf_in->fp : compression_.cbuf->file;
    return fstat(fileno(file), &from.status) == 0 ? 0 : static_cast<int>(QE_ERROR_IO);
}

int history_preparation::open_old_history(const char *filename)
{
    vesk_hist_buffer *old = _vesk_hist_buffer_open_plain(filename, file_reading::reported);
    if (old == nullptr) {
        return qe_get_last_error();
    }
    is_merging_ = true;
    const int fits = _vesk_merging_init(&merging_, old, hbuf_, odd_content::gives_code);
    // Each step clears the list of statistics, which aborts after 65535 times.
    return old->max_data_records == 2 * num_hb_intervals_ ? fits
                                                          : static_cast<int>(QE_ERROR_MALFORMED);
}

int history_preparation::open_samples(const char *filename)
{
    vesk_current_buffer *samples =
        _vesk_current_buffer_open_plain(filename, file_reading::reported);
    if (samples == nullptr) {
        return qe_get_last_error();
    }
    is_compressing_ = true;
    return _vesk_compression_init(&compression_, samples, hbuf_, num_samples_per_interval_,
                                  odd_content::gives_code);
}

void history_preparation::close_input()
{
    if (is_merging_) {
        _vesk_merging_destruct(&merging_);
    }
    if (is_compressing_) {
        _vesk_compression_destruct(&compression_);
    }
    is_merging_ = false;
    is_compressing_ = false;
}

// The history is complete: only its file is still needed.
int history_preparation::keep_file()
{
    const int descriptor = fcntl(fileno(hbuf_->fp), F_DUPFD_CLOEXEC, 0);
    FILE *file = descriptor < 0 ? nullptr : fdopen(descriptor, "w");
    if (file == nullptr) {
        if (descriptor >= 0) {
            (void)close(descriptor);
        }
        return QE_ERROR_OPEN;
    }
    file_.reset(file);
    vesk_hist_buffer_close(&hbuf_);
    return 0;
}

// Whether the file that was read is the one that its name leads to, and has not changed since.
bool history_preparation::is_unchanged(const input &from) const
{
    struct stat now = {};
    const struct stat &then = from.status;
    return lstat(from.filename, &now) == 0 && now.st_dev == then.st_dev &&
           now.st_ino == then.st_ino && now.st_size == then.st_size &&
           now.st_mtim.tv_sec == then.st_mtim.tv_sec && now.st_mtim.tv_nsec == then.st_mtim.tv_nsec;
}

int history_preparation::place()
{
    if (result_ != all_done || !is_unchanged(inputs_[0]) || !is_unchanged(inputs_[1])) {
        return QE_ERROR_NOT_FULL;
    }
    const int result = _vesk_name_file(file_.get(), hbuf_filename_);
    // The name comes onto the medium as that of every new history: see _finish_hbuf() in
    // vesk_rotation.cpp. The content is there already.
    if (result == 0 && fdatasync(fileno(file_.get())) == 0) {
        (void)_vesk_sync_folder(hbuf_filename_);
    }
    return result;
}

void history_preparation::abandon()
{
    close_input();
    if (hbuf_ != nullptr) {
        _zlib_writer_abandon(hbuf_->writer);
        vesk_hist_buffer_close(&hbuf_);
    }
    file_.reset();
}

// ---- The preparation of a recorder --------------------------------------------------------------

void _vesk_drop_preparation(const vesk *recorder)
{
    recorder_safety *safety = safety_of(recorder);
    if (safety != nullptr && safety->preparation != nullptr) {
        safety->preparation->~history_preparation();
        free(safety->preparation);
        safety->preparation = nullptr;
    }
}

bool _vesk_place_preparation(const vesk *recorder)
{
    recorder_safety *safety = safety_of(recorder);
    history_preparation *preparation = safety == nullptr ? nullptr : safety->preparation;
    bool placed = false;
    if (preparation != nullptr && preparation->is_for(recorder)) {
        while (preparation->step(SIZE_MAX) == more_to_do) {
        }
        placed = preparation->place() == 0;
    }
    _vesk_drop_preparation(recorder);
    return placed;
}

// The preparation of the next rotation, begun if need be; null without memory.
static history_preparation *_preparation_of(const vesk *recorder)
{
    recorder_safety *safety = safety_of(recorder);
    if (safety->preparation != nullptr && !safety->preparation->is_for(recorder)) {
        _vesk_drop_preparation(recorder);
    }
    if (safety->preparation == nullptr) {
        auto *storage = allocate<history_preparation>();
        if (storage != nullptr) {
            safety->preparation = new (storage) history_preparation(recorder);
        }
    }
    return safety->preparation;
}

static uint64_t _microseconds_since(const timespec &begin)
{
    constexpr int64_t per_second = 1000000;
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    const int64_t passed = int64_t{now.tv_sec - begin.tv_sec} * per_second +
                           (int64_t{now.tv_nsec} - begin.tv_nsec) / 1000;
    return passed < 0 ? UINT64_MAX : static_cast<uint64_t>(passed);
}

int vesk_prepare(vesk *recorder, uint32_t microseconds, size_t memory)
{
    VESK_REQUIRE(recorder != nullptr, "vesk != ((void *)0)");
    VESK_REQUIRE(recorder->version == 1, "vesk->version == ((char) 1)");
    if (recorder->safety == nullptr) {
        return QE_ERROR_WRONG_KIND;
    }
    if (recorder->state < VESK_ZCF_STATE_CCC) {
        return all_done;
    }
    history_preparation *preparation = _preparation_of(recorder);
    if (preparation == nullptr) {
        return QE_ERROR_NO_MEMORY;
    }
    timespec begin = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &begin);
    int result = preparation->result();
    while (result == more_to_do && _microseconds_since(begin) < microseconds) {
        result = preparation->step(memory);
    }
    return result;
}
