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

#include <stdio.h>

#include <vesk/error.h>
#include <vesk/raw_writer.h>
#include <vesk/vesk.h>

#include "box/stage_places.hpp"
#include "box/state_file.hpp"
#include "io/fields.hpp"
#include "io/plain_open.hpp"
#include "recorder/recorder.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

// Flag of the stream over the file: it closes it.
static constexpr uint32_t close_file = 0;

int _vesk_write_state_file(const vesk *recorder, bool strict)
{
    owned_file file = _vesk_overwrite_plain_file(recorder->state_filename);
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
    return _vesk_write_state_file(recorder, recorder->safety != nullptr);
}

int binary_serializer_write_vesk(const vesk *recorder, writer *target)
{
    VESK_REQUIRE(recorder != nullptr, "vesk != ((void *)0)");
    VESK_REQUIRE(target != nullptr, "writer != ((void *)0)");
    VESK_REQUIRE(recorder->version == 1, "vesk->version == ((char) 1)");
    const stage_functions &functions = _vesk_stage_functions(recorder->state);
    field_writer fields(target);
    write_state_head({recorder->filename, recorder->state_filename, recorder->state,
                      recorder->num_cb_samples, recorder->num_hb_intervals,
                      recorder->num_samples_per_interval, recorder->next_file_number},
                     &fields);
    _vesk_require_stage(recorder, recorder->state);
    return fields.form(functions.write, recorder->stage).result();
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
static void _read_stage(field_reader *fields, vesk *recorder, file_reading reading)
{
    if (!is_stage(recorder->state)) {
        fields->fail(QE_ERROR_MALFORMED);
        return;
    }
    _vesk_destroy_stage(recorder);
    const stage_functions &functions = _vesk_stage_functions(recorder->state);
    void *stage = functions.create_null();
    if (stage == nullptr) {
        fields->fail(qe_get_last_error());
        return;
    }
    _vesk_set_stage(recorder, recorder->state, stage);
    fields->form([&](void *into, reader *source) { return functions.read(into, source, reading); },
                 stage);
}

int _vesk_read(vesk *recorder, reader *source, file_reading reading)
{
    field_reader fields(source);
    fields.version(1)
        .replace_string(&recorder->filename)
        .replace_string(&recorder->state_filename)
        .u32(&recorder->state);
    _read_counts(&fields, recorder);
    if (fields.u32(&recorder->next_file_number).ok()) {
        _read_stage(&fields, recorder, reading);
    }
    return fields.result();
}

int binary_serializer_read_vesk(vesk *recorder, reader *source)
{
    VESK_REQUIRE(recorder != nullptr, "vesk != ((void *)0)");
    VESK_REQUIRE(source != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(recorder->version == 1, "vesk->version == ((char) 1)");
    return _vesk_read(recorder, source, file_reading::in_pieces);
}
