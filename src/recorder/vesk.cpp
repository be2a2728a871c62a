// What a caller does with a recorder: making or opening it, writing vectors and events to it, and
// closing it. What happens when a buffer is full stands in vesk_rotation.cpp, the state file in
// vesk_state_file.cpp, and what is done for the medium in vesk_settle.cpp.

#include <errno.h>
#include <fcntl.h>
#include <new>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <vesk/error.h>
#include <vesk/raw_reader.h>
#include <vesk/vesk.h>

#include "box/box_presence.hpp"
#include "box/box_sizes.hpp"
#include "box/durable_file.hpp"
#include "box/plain_file.hpp"
#include "box/state_file.hpp"
#include "io/file_bytes.hpp"
#include "io/memory_reader.hpp"
#include "io/plain_open.hpp"
#include "recorder/preparation.hpp"
#include "recorder/recorder.hpp"
#include "support/object.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

// Flag of the stream over the state file: it closes it.
static constexpr uint32_t close_file = 0;

// The buffer that vectors and events go to.
static vesk_current_buffer *_require_open_buffer(const vesk *recorder)
{
    const stage_buffers buffers = _vesk_stage_buffers(recorder, recorder->state);
    VESK_REQUIRE(buffers.open != nullptr, buffers.open_is_missing);
    return buffers.open;
}

// ---- Life of a recorder -----------------------------------------------------------------------

static void _destroy(vesk *recorder)
{
    free(recorder->filename);
    free(recorder->state_filename);
    _vesk_destroy_stage(recorder);
    _vesk_drop_preparation(recorder);
    free(recorder->safety);
    *recorder = vesk();
    free(recorder);
}

using owned_recorder = owner<vesk, _destroy>;

static void _format_buffer_filename(const vesk *recorder, const char *kind, char *buf, size_t size)
{
    snprintf(buf, size, "%s.%u.%s.z", recorder->filename, recorder->next_file_number, kind);
}

void _vesk_construct_cbuf_filename(vesk *recorder, char *buf, size_t size)
{
    _format_buffer_filename(recorder, "cbuf", buf, size);
    ++recorder->next_file_number;
}

void _vesk_format_hbuf_filename(const vesk *recorder, char *buf, size_t size)
{
    _format_buffer_filename(recorder, "hbuf", buf, size);
}

void _vesk_construct_hbuf_filename(vesk *recorder, char *buf, size_t size)
{
    _vesk_format_hbuf_filename(recorder, buf, size);
    ++recorder->next_file_number;
}

static char *_vesk_construct_state_filename(const char *filename)
{
    const size_t size = strlen(filename) + sizeof ".state";
    char *state_filename = allocate<char>(size);
    if (state_filename != nullptr) {
        snprintf(state_filename, size, "%s.state", filename);
    }
    return state_filename;
}

// A copy that an older box of this name has left behind would be taken for one of the new box.
static void _remove_copy_of_state(const vesk *recorder)
{
    char copy[max_filename];
    const int length = snprintf(copy, sizeof copy, "%s%s", recorder->state_filename, backup_suffix);
    if (length > 0 && length < static_cast<int>(sizeof copy)) {
        (void)unlink(copy);
    }
}

static vesk *_create(const char *filename, uint32_t num_cb_samples, uint32_t num_hb_intervals,
                     bool strict)
{
    owned_recorder recorder(vesk_create_null());
    if (!recorder) {
        return nullptr;
    }
    recorder->filename = duplicate_string(filename);
    if (recorder->filename == nullptr) {
        return nullptr;
    }
    recorder->state_filename = _vesk_construct_state_filename(filename);
    if (recorder->state_filename == nullptr) {
        return nullptr;
    }
    recorder->num_hb_intervals = num_hb_intervals;
    recorder->next_file_number = 1;
    recorder->state = VESK_ZCF_STATE_C00;
    recorder->num_samples_per_interval = num_cb_samples / num_hb_intervals;
    recorder->num_cb_samples = num_cb_samples;

    char cbuf_filename[filename_size];
    _vesk_construct_cbuf_filename(recorder.get(), cbuf_filename, sizeof cbuf_filename);
    vesk_zcf_state_c00 *c00 = vesk_zcf_state_c00_create(cbuf_filename, num_cb_samples);
    if (c00 == nullptr) {
        return nullptr;
    }
    _vesk_set_stage(recorder.get(), VESK_ZCF_STATE_C00, c00);
    if (!strict) {
        _remove_copy_of_state(recorder.get());
    }
    const int saved = _vesk_write_state_file(recorder.get(), strict);
    if (saved < 0) {
        recorder.reset();
        qe_set_last_error(saved);
        return nullptr;
    }
    return recorder.release();
}

vesk *vesk_create(const char *filename, uint32_t num_cb_samples, uint32_t num_hb_intervals)
{
    VESK_REQUIRE(filename != nullptr, "filename != ((void *)0)");
    VESK_REQUIRE(filename[0] != 0, "filename[0] != 0");
    VESK_REQUIRE(num_cb_samples > 0, "num_cb_samples > 0");
    VESK_REQUIRE(num_hb_intervals > 0, "num_hb_intervals > 0");
    VESK_REQUIRE(num_cb_samples % num_hb_intervals == 0, "num_cb_samples % num_hb_intervals == 0");
    VESK_REQUIRE(num_cb_samples % 2 == 0, "num_cb_samples % 2 == 0");
    VESK_REQUIRE(num_hb_intervals % 2 == 0, "num_hb_intervals % 2 == 0");
    return _create(filename, num_cb_samples, num_hb_intervals, false);
}

// Makes an empty file of the name that vesk_create() will use first, so that only one of two
// processes that try to make the box succeeds. 0, QE_ERROR_EXISTS (-51) when there is something of
// this name, otherwise QE_ERROR_OPEN (-40).
static int _claim_first_buffer(const char *filename, char (&path)[filename_size])
{
    snprintf(path, sizeof path, "%s.1.cbuf.z", filename);
    constexpr mode_t usual_mode = 0666;
    const owned_file file = _vesk_create_plain_file(path, usual_mode);
    if (!file) {
        return errno == EEXIST ? QE_ERROR_EXISTS : QE_ERROR_OPEN;
    }
    return 0;
}

// Whether vesk_create() takes the sizes and history can be made of them. 0, QE_ERROR_MALFORMED (-6)
// or QE_ERROR_LIMIT (-49).
static int _check_sizes(uint32_t num_cb_samples, uint32_t num_hb_intervals)
{
    const recorder_sizes sizes = {num_cb_samples, num_hb_intervals};
    if (!sizes.usable() || sizes.intervals % 2 != 0) {
        return QE_ERROR_MALFORMED;
    }
    return sizes.history_fits() ? 0 : QE_ERROR_LIMIT;
}

// Whether the file system takes the longest name that a file of the box can have. A box whose last
// buffers could not be named would stop recording one day. 0 or QE_ERROR_LIMIT (-49).
static int _check_name(const char *filename)
{
    if (strlen(filename) > VESK_MAX_BASE_LENGTH) {
        return QE_ERROR_LIMIT;
    }
    char longest[max_filename];
    snprintf(longest, sizeof longest, "%s.4294967295.cbuf.z.torn", filename);
    struct stat status = {};
    return !_vesk_look_at_name(longest, &status) && errno == ENAMETOOLONG
               ? static_cast<int>(QE_ERROR_LIMIT)
               : 0;
}

vesk *vesk_create_new(const char *filename, uint32_t num_cb_samples, uint32_t num_hb_intervals)
{
    VESK_REQUIRE(filename != nullptr, "filename != ((void *)0)");
    VESK_REQUIRE(filename[0] != 0, "filename[0] != 0");
    int result = _check_sizes(num_cb_samples, num_hb_intervals);
    if (result == 0) {
        result = _check_name(filename);
    }
    if (result == 0) {
        const int found = _vesk_find_box(filename);
        result = found > 0 ? static_cast<int>(QE_ERROR_EXISTS) : found;
    }
    char path[filename_size];
    if (result == 0) {
        result = _claim_first_buffer(filename, path);
    }
    if (result < 0) {
        qe_set_last_error(result);
        return nullptr;
    }
    vesk *recorder = _create(filename, num_cb_samples, num_hb_intervals, true);
    if (recorder == nullptr) {
        // The files that were begun hold nothing and would block another attempt, so they are
        // removed.
        (void)unlink(path);
        snprintf(path, sizeof path, "%s.state", filename);
        (void)unlink(path);
    }
    return recorder;
}

vesk *vesk_create_null(void)
{
    return create_object<vesk>([](vesk *recorder) {
        *recorder = vesk();
        recorder->version = 1;
        return 0;
    });
}

vesk *vesk_open(const char *filename)
{
    VESK_REQUIRE(filename != nullptr, "filename != ((void *)0)");
    VESK_REQUIRE(filename[0] != 0, "filename[0] != 0");
    owned_memory<char> state_filename(_vesk_construct_state_filename(filename));
    if (!state_filename) {
        return nullptr;
    }
    owned_file file = _vesk_open_plain_file(state_filename.get(), O_RDONLY);
    if (!file) {
        // A folder can be opened, but has no bytes.
        qe_set_last_error(errno == EISDIR ? QE_ERROR_TRUNCATED : QE_ERROR_OPEN);
        return nullptr;
    }
    owned<reader, reader_destroy> source(raw_reader_create(file.get(), close_file));
    if (!source) {
        return nullptr;
    }
    (void)file.release();
    owned_recorder recorder(vesk_create_null());
    if (!recorder) {
        return nullptr;
    }
    const int nread = binary_serializer_read_vesk(recorder.get(), source.get());
    if (nread == 0) {
        qe_set_last_error(QE_ERROR_TRUNCATED);
        return nullptr;
    }
    if (nread < 0) {
        // The recorder is returned as far as it was read; only the last-error cell tells of the
        // failure.
        qe_set_last_error(nread);
    }
    return recorder.release();
}

int _vesk_add_safety(vesk *recorder)
{
    auto *storage = allocate<recorder_safety>();
    if (storage == nullptr) {
        return QE_ERROR_NO_MEMORY;
    }
    recorder->safety = new (storage) recorder_safety();
    return 0;
}

vesk *_vesk_open_read_whole(const char *filename)
{
    owned_memory<char> state_filename(_vesk_construct_state_filename(filename));
    if (!state_filename) {
        return nullptr;
    }
    const owned_file file = _vesk_open_plain_file(state_filename.get(), O_RDONLY);
    byte_list bytes;
    int result = file ? _vesk_read_to_end(file.get(), &bytes, most_state_bytes)
                      : static_cast<int>(QE_ERROR_OPEN);
    if (result < 0) {
        qe_set_last_error(result);
        return nullptr;
    }
    const owned<reader, reader_destroy> source(_memory_reader_create(&bytes));
    owned_recorder recorder(vesk_create_null());
    if (!source || !recorder) {
        return nullptr;
    }
    result = _vesk_read(recorder.get(), source.get(), file_reading::whole);
    if (result > 0) {
        return recorder.release();
    }
    recorder.reset();
    qe_set_last_error(result == 0 ? static_cast<int>(QE_ERROR_TRUNCATED) : result);
    return nullptr;
}

void vesk_close(vesk **recorder)
{
    VESK_REQUIRE(recorder != nullptr, "vesk != ((void *)0)");
    VESK_REQUIRE(*recorder != nullptr, "(*vesk) != ((void *)0)");
    VESK_REQUIRE((*recorder)->version == 1, "(*vesk)->version == ((char) 1)");
    if ((*recorder)->state != 0) {
        const stage_functions &functions = _vesk_stage_functions((*recorder)->state);
        VESK_REQUIRE((*recorder)->stage != nullptr, functions.missing_at_close);
    }
    _destroy(*recorder);
    *recorder = nullptr;
}

// ---- Writing ----------------------------------------------------------------------------------

// What is prepared takes room that a record may need: behind a failed write it is thrown away.
static int _leave_room_after(const vesk *recorder, int written)
{
    if (written < 0) {
        _vesk_drop_preparation(recorder);
    }
    return written;
}

int vesk_write_telemetry_vector(vesk *recorder, const matrix *vector)
{
    VESK_REQUIRE(recorder != nullptr, "vesk != ((void *)0)");
    VESK_REQUIRE(recorder->version == 1, "vesk->version == ((char) 1)");
    VESK_REQUIRE(vector != nullptr, "vector != ((void *)0)");
    const int saved = _vesk_save_if_due(recorder);
    if (saved < 0) {
        return saved;
    }
    for (;;) {
        const int written =
            vesk_current_buffer_write_telemetry_vector(_require_open_buffer(recorder), vector);
        if (written != QE_ERROR_FULL) {
            return _leave_room_after(recorder, written);
        }
        const int rotated = _vesk_rotate(recorder);
        if (rotated != 0) {
            return rotated;
        }
    }
}

int vesk_is_full(const vesk *recorder)
{
    VESK_REQUIRE(recorder != nullptr, "vesk != ((void *)0)");
    VESK_REQUIRE(recorder->version == 1, "vesk->version == ((char) 1)");
    const vesk_current_buffer *cbuf = _vesk_stage_buffers(recorder, stage_type(recorder)).open;
    VESK_REQUIRE(cbuf != nullptr, "cbuf != ((void *)0)");
    return cbuf->num_data_records >= cbuf->max_data_records ? 1 : 0;
}

int vesk_write_event(vesk *recorder, const vesk_cb_record_event *event)
{
    VESK_REQUIRE(recorder != nullptr, "vesk != ((void *)0)");
    VESK_REQUIRE(recorder->version == 1, "vesk->version == ((char) 1)");
    VESK_REQUIRE(event != nullptr, "event != ((void *)0)");
    return _leave_room_after(
        recorder, vesk_current_buffer_write_event(_require_open_buffer(recorder), event));
}

int vesk_write_tagged_event(vesk *recorder, const vesk_cb_record_event *event)
{
    VESK_REQUIRE(recorder != nullptr, "vesk != ((void *)0)");
    VESK_REQUIRE(recorder->version == 1, "vesk->version == ((char) 1)");
    VESK_REQUIRE(event != nullptr, "event != ((void *)0)");
    const int saved = _vesk_save_if_due(recorder);
    if (saved < 0) {
        return saved;
    }
    vesk_current_buffer *cbuf = _vesk_stage_buffers(recorder, recorder->state).open;
    return _leave_room_after(recorder, vesk_current_buffer_write_tagged_event(cbuf, event));
}
