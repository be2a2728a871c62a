// The state file of a recorder, rewritten whenever the stage changes:
//
//   version                     1 byte, 1
//   filename                    string, the base name
//   state_filename              string, the name of this file
//   state                       4 bytes, the stage: 1 c00, 2 cc0, 3 ccc, 4 hcc
//   num_cb_samples              4 bytes
//   num_hb_intervals            4 bytes
//   num_samples_per_interval    4 bytes, the quotient of the two
//   next_file_number            4 bytes
//   stage                       the form of the stage
//
// Integers are big-endian; a string is its length, 4 bytes, and its bytes. The file is not
// compressed.

#include <errno.h>
#include <fcntl.h>
#include <new>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <vesk/error.h>
#include <vesk/raw_reader.h>
#include <vesk/raw_writer.h>
#include <vesk/vesk.h>

#include "box/box_presence.hpp"
#include "box/state_file.hpp"
#include "buffers/buffer_internal.hpp"
#include "io/fields.hpp"
#include "io/file_bytes.hpp"
#include "io/memory_reader.hpp"
#include "recorder/recorder.hpp"
#include "support/object.hpp"
#include "support/owner.hpp"

// Flag of the streams over the state file: they close it.
static constexpr uint32_t close_file = 0;

// ---- The stage --------------------------------------------------------------------------------

void _vesk_set_stage(vesk *recorder, uint32_t type, void *stage)
{
    recorder->stage = stage;
    recorder->stage_type = type;
}

void _vesk_destroy_stage(vesk *recorder)
{
    if (recorder->stage != nullptr) {
        visit_stage(stage_type(recorder),
                    [&](auto functions) { functions.destroy(&(recorder->*functions.pointer)); });
    }
    _vesk_set_stage(recorder, 0, nullptr);
}

// A live stage of the recorder.
template <typename Stage>
static const Stage *_require_live_stage(const vesk *recorder)
{
    const Stage *state = require_stage(recorder, stage_functions<Stage>());
    VESK_REQUIRE(state->version == 1, "state->version == ((char) 1)");
    return state;
}

open_buffer _vesk_open_buffer(const vesk *recorder, uint32_t state)
{
    switch (state) {
    case VESK_ZCF_STATE_C00:
        return {_require_live_stage<vesk_zcf_state_c00>(recorder)->cbuf0, "cbuf0 != ((void *)0)"};
    case VESK_ZCF_STATE_CC0:
        return {_require_live_stage<vesk_zcf_state_cc0>(recorder)->cbuf1, "cbuf1 != ((void *)0)"};
    case VESK_ZCF_STATE_CCC:
        return {_require_live_stage<vesk_zcf_state_ccc>(recorder)->cbuf2, "cbuf2 != ((void *)0)"};
    case VESK_ZCF_STATE_HCC:
        break;
    default:
        VESK_REQUIRE(false, "0");
    }
    return {_require_live_stage<vesk_zcf_state_hcc>(recorder)->cbuf2, "cbuf2 != ((void *)0)"};
}

// The one that vectors and events go to.
static vesk_current_buffer *_require_open_buffer(const vesk *recorder)
{
    const open_buffer open = _vesk_open_buffer(recorder, recorder->state);
    VESK_REQUIRE(open.buffer != nullptr, open.missing);
    return open.buffer;
}

// ---- Life of a recorder -----------------------------------------------------------------------

static void _destroy(vesk *recorder)
{
    free(recorder->filename);
    free(recorder->state_filename);
    _vesk_destroy_stage(recorder);
    free(recorder->safety);
    *recorder = vesk();
    free(recorder);
}

using owned_recorder = owner<vesk, _destroy>;

static void _construct_buffer_filename(vesk *recorder, const char *kind, char *buf, size_t size)
{
    snprintf(buf, size, "%s.%u.%s.z", recorder->filename, recorder->next_file_number, kind);
    ++recorder->next_file_number;
}

void _vesk_construct_cbuf_filename(vesk *recorder, char *buf, size_t size)
{
    _construct_buffer_filename(recorder, "cbuf", buf, size);
}

void _vesk_construct_hbuf_filename(vesk *recorder, char *buf, size_t size)
{
    _construct_buffer_filename(recorder, "hbuf", buf, size);
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

// The names of the stage are written without a result: whether they could be, only the stream
// knows. It is asked when `strict`.
static int _save(const vesk *recorder, bool strict)
{
    owned_file file(fopen(recorder->state_filename, "w"));
    if (!file) {
        return QE_ERROR_OPEN;
    }
    owned<writer, writer_destroy> target(raw_writer_create(file.get(), close_file));
    if (!target) {
        return qe_get_last_error();
    }
    FILE *stream = file.release();
    const int written = binary_serializer_write_vesk(recorder, target.get());
    if (written >= 0 && strict && ferror(stream) != 0) {
        return QE_ERROR_IO;
    }
    return written < 0 ? written : 0;
}

int _vesk_save(const vesk *recorder)
{
    return _save(recorder, recorder->safety != nullptr);
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
    const int saved = _save(recorder.get(), strict);
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

// Makes an empty file of the name that vesk_create() will use first, so that of two who want to
// make the box only one does. 0, -51 when there is something of this name, -40.
static int _claim_first_buffer(const char *filename, char (&path)[filename_size])
{
    snprintf(path, sizeof path, "%s.1.cbuf.z", filename);
    constexpr mode_t usual_rights = 0666;
    const int descriptor = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, usual_rights);
    if (descriptor < 0) {
        return errno == EEXIST ? QE_ERROR_EXISTS : QE_ERROR_OPEN;
    }
    (void)close(descriptor);
    return 0;
}

// Whether vesk_create() takes the sizes and history can be made of them. 0, -6 or -49.
static int _check_sizes(uint32_t num_cb_samples, uint32_t num_hb_intervals)
{
    // A history buffer holds twice as many intervals, and they are counted in 17 bits.
    constexpr uint32_t most_intervals = 65534;
    const bool usable = num_cb_samples > 0 && num_cb_samples % 2 == 0 && num_hb_intervals > 0 &&
                        num_hb_intervals % 2 == 0 && num_cb_samples % num_hb_intervals == 0;
    if (!usable) {
        return QE_ERROR_MALFORMED;
    }
    return num_hb_intervals > most_intervals ? QE_ERROR_LIMIT : 0;
}

vesk *vesk_create_new(const char *filename, uint32_t num_cb_samples, uint32_t num_hb_intervals)
{
    VESK_REQUIRE(filename != nullptr, "filename != ((void *)0)");
    VESK_REQUIRE(filename[0] != 0, "filename[0] != 0");
    int result = _check_sizes(num_cb_samples, num_hb_intervals);
    if (result == 0 && strlen(filename) > max_base_length) {
        result = QE_ERROR_LIMIT;
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
        // What is begun is in the way of another attempt, and nothing is in it.
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
    owned_file file(fopen(state_filename.get(), "r"));
    if (!file) {
        qe_set_last_error(QE_ERROR_OPEN);
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
        // The recorder is returned as far as it was read; the cell is all that tells.
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

static int _read(vesk *recorder, reader *source, open_current_buffer open);

vesk *_vesk_open_read_whole(const char *filename)
{
    owned_memory<char> state_filename(_vesk_construct_state_filename(filename));
    if (!state_filename) {
        return nullptr;
    }
    byte_list bytes;
    int result = _vesk_read_file(state_filename.get(), &bytes);
    if (result < 0) {
        qe_set_last_error(result);
        return nullptr;
    }
    const owned<reader, reader_destroy> source(_memory_reader_create(&bytes));
    owned_recorder recorder(vesk_create_null());
    if (!source || !recorder) {
        return nullptr;
    }
    result = _read(recorder.get(), source.get(), _vesk_current_buffer_open_for_append_read_whole);
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
        visit_stage((*recorder)->state, [&](auto functions) {
            VESK_REQUIRE((*recorder)->stage != nullptr, functions.missing_at_close);
        });
    }
    _destroy(*recorder);
    *recorder = nullptr;
}

// ---- Writing ----------------------------------------------------------------------------------

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
            return written;
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
    const vesk_current_buffer *cbuf = _vesk_open_buffer(recorder, stage_type(recorder)).buffer;
    VESK_REQUIRE(cbuf != nullptr, "cbuf != ((void *)0)");
    return cbuf->num_data_records >= cbuf->max_data_records ? 1 : 0;
}

int vesk_write_event(vesk *recorder, const vesk_cb_record_event *event)
{
    VESK_REQUIRE(recorder != nullptr, "vesk != ((void *)0)");
    VESK_REQUIRE(recorder->version == 1, "vesk->version == ((char) 1)");
    VESK_REQUIRE(event != nullptr, "event != ((void *)0)");
    return vesk_current_buffer_write_event(_require_open_buffer(recorder), event);
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
    vesk_current_buffer *cbuf = _vesk_open_buffer(recorder, recorder->state).buffer;
    return vesk_current_buffer_write_tagged_event(cbuf, event);
}

// ---- The state file ---------------------------------------------------------------------------

int binary_serializer_write_vesk(const vesk *recorder, writer *target)
{
    VESK_REQUIRE(recorder != nullptr, "vesk != ((void *)0)");
    VESK_REQUIRE(target != nullptr, "writer != ((void *)0)");
    VESK_REQUIRE(recorder->version == 1, "vesk->version == ((char) 1)");
    return visit_stage(recorder->state, [&](auto functions) {
        field_writer fields(target);
        write_state_head({recorder->filename, recorder->state_filename, recorder->state,
                          recorder->num_cb_samples, recorder->num_hb_intervals,
                          recorder->num_samples_per_interval, recorder->next_file_number},
                         &fields);
        return fields.form(functions.write, require_stage(recorder, functions)).result();
    });
}

// Reads the counts, each checked against those before it.
static void _read_counts(field_reader *fields, vesk *recorder)
{
    if (fields->u32(&recorder->num_cb_samples).ok() &&
        (recorder->num_cb_samples == 0 || recorder->num_cb_samples % 2 != 0)) {
        fields->fail(QE_ERROR_MALFORMED);
    }
    // An odd number of intervals is read, although vesk_create() refuses it.
    if (fields->u32(&recorder->num_hb_intervals).ok() &&
        (recorder->num_hb_intervals == 0 ||
         recorder->num_cb_samples % recorder->num_hb_intervals != 0)) {
        fields->fail(QE_ERROR_MALFORMED);
    }
    if (fields->u32(&recorder->num_samples_per_interval).ok() &&
        uint64_t(recorder->num_samples_per_interval) * recorder->num_hb_intervals !=
            recorder->num_cb_samples) {
        fields->fail(QE_ERROR_MALFORMED);
    }
}

// Reads the stage that the state names and opens its live buffer. The stage is installed before it
// is read and stays as far as that got.
static void _read_stage(field_reader *fields, vesk *recorder, open_current_buffer open)
{
    if (recorder->state < VESK_ZCF_STATE_C00 || recorder->state > VESK_ZCF_STATE_HCC) {
        fields->fail(QE_ERROR_MALFORMED);
        return;
    }
    _vesk_destroy_stage(recorder);
    visit_stage(recorder->state, [&](auto functions) {
        auto *stage = functions.create_null();
        if (stage == nullptr) {
            fields->fail(qe_get_last_error());
            return;
        }
        _vesk_set_stage(recorder, recorder->state, stage);
        fields->form([=](auto *into, reader *source) { return functions.read(into, source, open); },
                     stage);
    });
}

static int _read(vesk *recorder, reader *source, open_current_buffer open)
{
    field_reader fields(source);
    fields.version(1)
        .replace_string(&recorder->filename)
        .replace_string(&recorder->state_filename)
        .u32(&recorder->state);
    _read_counts(&fields, recorder);
    if (fields.u32(&recorder->next_file_number).ok()) {
        _read_stage(&fields, recorder, open);
    }
    return fields.result();
}

int binary_serializer_read_vesk(vesk *recorder, reader *source)
{
    VESK_REQUIRE(recorder != nullptr, "vesk != ((void *)0)");
    VESK_REQUIRE(source != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(recorder->version == 1, "vesk->version == ((char) 1)");
    return _read(recorder, source, vesk_current_buffer_open_for_append);
}
