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

#include <array>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <vesk/raw_reader.h>
#include <vesk/raw_writer.h>
#include <vesk/vesk.h>
#include <vesk/vesk_current_buffer_compress.h>
#include <vesk/vesk_hist_buffer.h>
#include <vesk/vesk_hist_buffer_compress.h>

#include "box/durable_file.hpp"
#include "box/state_form.hpp"
#include "io/fields.hpp"
#include "support/object.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

// The names of buffers are cut to this size, including the terminator.
static constexpr size_t filename_size = 1024;

// Flags of the streams over the state file: who closes it.
static constexpr uint32_t close_file = 0;
static constexpr uint32_t keep_file_open = 1;

// ---- The stages -------------------------------------------------------------------------------

namespace
{

// What the recorder does with a stage, by the type of the stage.
template <typename Stage>
struct stage_functions;

template <>
struct stage_functions<vesk_zcf_state_c00> {
    static constexpr uint32_t state = VESK_ZCF_STATE_C00;
    static constexpr auto pointer = &vesk::c00;
    static constexpr std::array<char * vesk_zcf_state_c00::*, 0> closed_buffers = {};
    static constexpr auto open_buffer = &vesk_zcf_state_c00::cbuf0;
    static constexpr const char *missing = "vesk->c00 != ((void *)0)";
    static constexpr const char *missing_at_close = "(*vesk)->c00 != ((void *)0)";
    static constexpr auto create_null = vesk_zcf_state_c00_create_null;
    static constexpr auto destroy = vesk_zcf_state_c00_destroy;
    static constexpr auto write_telemetry_vector = vesk_zcf_state_c00_write_telemetry_vector;
    static constexpr auto write_event = vesk_zcf_state_c00_write_event;
    static constexpr auto write = binary_serializer_write_vesk_zcf_state_c00;
    static constexpr auto read = binary_serializer_read_vesk_zcf_state_c00;
};

template <>
struct stage_functions<vesk_zcf_state_cc0> {
    static constexpr uint32_t state = VESK_ZCF_STATE_CC0;
    static constexpr auto pointer = &vesk::cc0;
    static constexpr std::array closed_buffers = {&vesk_zcf_state_cc0::cbuf0_filename};
    static constexpr auto open_buffer = &vesk_zcf_state_cc0::cbuf1;
    static constexpr const char *missing = "vesk->cc0 != ((void *)0)";
    static constexpr const char *missing_at_close = "(*vesk)->cc0 != ((void *)0)";
    static constexpr auto create_null = vesk_zcf_state_cc0_create_null;
    static constexpr auto destroy = vesk_zcf_state_cc0_destroy;
    static constexpr auto write_telemetry_vector = vesk_zcf_state_cc0_write_telemetry_vector;
    static constexpr auto write_event = vesk_zcf_state_cc0_write_event;
    static constexpr auto write = binary_serializer_write_vesk_zcf_state_cc0;
    static constexpr auto read = binary_serializer_read_vesk_zcf_state_cc0;
};

template <>
struct stage_functions<vesk_zcf_state_ccc> {
    static constexpr uint32_t state = VESK_ZCF_STATE_CCC;
    static constexpr auto pointer = &vesk::ccc;
    static constexpr std::array closed_buffers = {&vesk_zcf_state_ccc::cbuf0_filename,
                                                  &vesk_zcf_state_ccc::cbuf1_filename};
    static constexpr auto open_buffer = &vesk_zcf_state_ccc::cbuf2;
    static constexpr const char *missing = "vesk->ccc != ((void *)0)";
    static constexpr const char *missing_at_close = "(*vesk)->ccc != ((void *)0)";
    static constexpr auto create_null = vesk_zcf_state_ccc_create_null;
    static constexpr auto destroy = vesk_zcf_state_ccc_destroy;
    static constexpr auto write_telemetry_vector = vesk_zcf_state_ccc_write_telemetry_vector;
    static constexpr auto write_event = vesk_zcf_state_ccc_write_event;
    static constexpr auto write = binary_serializer_write_vesk_zcf_state_ccc;
    static constexpr auto read = binary_serializer_read_vesk_zcf_state_ccc;
};

template <>
struct stage_functions<vesk_zcf_state_hcc> {
    static constexpr uint32_t state = VESK_ZCF_STATE_HCC;
    static constexpr auto pointer = &vesk::hcc;
    static constexpr std::array closed_buffers = {&vesk_zcf_state_hcc::hbuf_filename,
                                                  &vesk_zcf_state_hcc::cbuf1_filename};
    static constexpr auto open_buffer = &vesk_zcf_state_hcc::cbuf2;
    static constexpr const char *missing = "vesk->hcc != ((void *)0)";
    static constexpr const char *missing_at_close = "(*vesk)->hcc != ((void *)0)";
    static constexpr auto create_null = vesk_zcf_state_hcc_create_null;
    static constexpr auto destroy = vesk_zcf_state_hcc_destroy;
    static constexpr auto write_telemetry_vector = vesk_zcf_state_hcc_write_telemetry_vector;
    static constexpr auto write_event = vesk_zcf_state_hcc_write_event;
    static constexpr auto write = binary_serializer_write_vesk_zcf_state_hcc;
    static constexpr auto read = binary_serializer_read_vesk_zcf_state_hcc;
};

// Calls visit() with the functions of the stage that `state` names; aborts when it names none.
template <typename Visit>
auto visit_stage(uint32_t state, Visit visit)
{
    switch (state) {
    case VESK_ZCF_STATE_C00:
        return visit(stage_functions<vesk_zcf_state_c00>());
    case VESK_ZCF_STATE_CC0:
        return visit(stage_functions<vesk_zcf_state_cc0>());
    case VESK_ZCF_STATE_CCC:
        return visit(stage_functions<vesk_zcf_state_ccc>());
    case VESK_ZCF_STATE_HCC:
        break;
    default:
        VESK_REQUIRE(false, "0");
    }
    return visit(stage_functions<vesk_zcf_state_hcc>());
}

// A transition that fails leaves the old stage under the new state. The last two stages have one
// layout, so there the functions of the new state do with the old stage; elsewhere they would read
// past it.
static_assert(sizeof(vesk_zcf_state_ccc) == sizeof(vesk_zcf_state_hcc));
static_assert(offsetof(vesk_zcf_state_ccc, cbuf0_filename) ==
              offsetof(vesk_zcf_state_hcc, hbuf_filename));
static_assert(offsetof(vesk_zcf_state_ccc, cbuf1_filename) ==
              offsetof(vesk_zcf_state_hcc, cbuf1_filename));
static_assert(offsetof(vesk_zcf_state_ccc, cbuf2) == offsetof(vesk_zcf_state_hcc, cbuf2));

// What the stage really is. A stage that a caller put there himself is the one that `state` names.
uint32_t stage_type(const vesk *recorder)
{
    return recorder->stage_type != 0 ? recorder->stage_type : recorder->state;
}

bool stage_fits(const vesk *recorder, uint32_t state)
{
    const uint32_t type = stage_type(recorder);
    return recorder->stage != nullptr &&
           (type == state || (type == VESK_ZCF_STATE_CCC && state == VESK_ZCF_STATE_HCC));
}

// The stage of the recorder, which must be the one that these functions work on.
template <typename Stage>
Stage *require_stage(const vesk *recorder, stage_functions<Stage> functions)
{
    VESK_REQUIRE(stage_fits(recorder, functions.state), functions.missing);
    return recorder->*functions.pointer;
}

} // namespace

static void _set_stage(vesk *recorder, uint32_t type, void *stage)
{
    recorder->stage = stage;
    recorder->stage_type = type;
}

// Destroys the stage by what it is, whatever the state says.
static void _destroy_stage(vesk *recorder)
{
    if (recorder->stage != nullptr) {
        visit_stage(stage_type(recorder),
                    [&](auto functions) { functions.destroy(&(recorder->*functions.pointer)); });
    }
    _set_stage(recorder, 0, nullptr);
}

// ---- Life of a recorder -----------------------------------------------------------------------

static void _destroy(vesk *recorder)
{
    free(recorder->filename);
    free(recorder->state_filename);
    _destroy_stage(recorder);
    *recorder = vesk();
    free(recorder);
}

using owned_recorder = owner<vesk, _destroy>;

static void _construct_buffer_filename(vesk *recorder, const char *kind, char *buf, size_t size)
{
    snprintf(buf, size, "%s.%u.%s.z", recorder->filename, recorder->next_file_number, kind);
    ++recorder->next_file_number;
}

static void _vesk_construct_cbuf_filename(vesk *recorder, char *buf, size_t size)
{
    _construct_buffer_filename(recorder, "cbuf", buf, size);
}

static void _vesk_construct_hbuf_filename(vesk *recorder, char *buf, size_t size)
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

// Overwrites the state file in place: a failure leaves what was written until then.
static int _vesk_save(const vesk *recorder)
{
    owned_file file(fopen(recorder->state_filename, "w"));
    if (!file) {
        return QE_ERROR_OPEN;
    }
    owned<writer, writer_destroy> target(raw_writer_create(file.get(), close_file));
    if (!target) {
        return qe_get_last_error();
    }
    (void)file.release();
    const int written = binary_serializer_write_vesk(recorder, target.get());
    return written < 0 ? written : 0;
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
    _set_stage(recorder.get(), VESK_ZCF_STATE_C00, c00);
    const int saved = _vesk_save(recorder.get());
    if (saved < 0) {
        recorder.reset();
        qe_set_last_error(saved);
        return nullptr;
    }
    return recorder.release();
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

// ---- Moving from stage to stage ---------------------------------------------------------------

// Puts a finished stage in the place of the old one, whose open buffer is closed by that, and
// saves.
static int _install_stage(vesk *recorder, uint32_t type, void *stage)
{
    _destroy_stage(recorder);
    _set_stage(recorder, type, stage);
    return _vesk_save(recorder);
}

// The state is set before the stage is created and stays when that fails: the recorder is of no
// more use then and has to be opened again.
static int _vesk_c00_to_cc0(vesk *recorder)
{
    VESK_REQUIRE(recorder->state == VESK_ZCF_STATE_C00, "vesk->state == VESK_ZCF_STATE_C00");
    const auto *c00 = require_stage(recorder, stage_functions<vesk_zcf_state_c00>());
    char cbuf1_filename[filename_size];
    _vesk_construct_cbuf_filename(recorder, cbuf1_filename, sizeof cbuf1_filename);
    const char *cbuf0_filename = vesk_zcf_state_c00_get_filename(c00);
    VESK_REQUIRE(cbuf0_filename != nullptr, "cbuf0_filename != ((void *)0)");
    recorder->state = VESK_ZCF_STATE_CC0;
    vesk_zcf_state_cc0 *cc0 =
        vesk_zcf_state_cc0_create(cbuf0_filename, cbuf1_filename, recorder->num_cb_samples);
    if (cc0 == nullptr) {
        return qe_get_last_error();
    }
    return _install_stage(recorder, VESK_ZCF_STATE_CC0, cc0);
}

static int _vesk_cc0_to_ccc(vesk *recorder)
{
    VESK_REQUIRE(recorder->state == VESK_ZCF_STATE_CC0, "vesk->state == VESK_ZCF_STATE_CC0");
    const auto *cc0 = require_stage(recorder, stage_functions<vesk_zcf_state_cc0>());
    char cbuf2_filename[filename_size];
    _vesk_construct_cbuf_filename(recorder, cbuf2_filename, sizeof cbuf2_filename);
    const char *cbuf0_filename = vesk_zcf_state_cc0_get_cbuf0_filename(cc0);
    VESK_REQUIRE(cbuf0_filename != nullptr, "cbuf0_filename != ((void *)0)");
    const char *cbuf1_filename = vesk_zcf_state_cc0_get_cbuf1_filename(cc0);
    VESK_REQUIRE(cbuf1_filename != nullptr, "cbuf1_filename != ((void *)0)");
    recorder->state = VESK_ZCF_STATE_CCC;
    vesk_zcf_state_ccc *ccc = vesk_zcf_state_ccc_create(cbuf0_filename, cbuf1_filename,
                                                        cbuf2_filename, recorder->num_cb_samples);
    if (ccc == nullptr) {
        return qe_get_last_error();
    }
    return _install_stage(recorder, VESK_ZCF_STATE_CCC, ccc);
}

// Names outlive the stage that they were taken from.
static void _copy_filename(char (&buf)[filename_size], const char *filename)
{
    snprintf(buf, sizeof buf, "%s", filename);
}

// A new history buffer with room for the intervals of two current buffers.
static vesk_hist_buffer *_create_hist_buffer(vesk *recorder, char (&hbuf_filename)[filename_size])
{
    _vesk_construct_hbuf_filename(recorder, hbuf_filename, sizeof hbuf_filename);
    return vesk_hist_buffer_create(hbuf_filename, 2 * recorder->num_hb_intervals);
}

// The stage behind a new history buffer: the open current buffer of the old stage has become the
// full one, and a new one is opened.
static vesk_zcf_state_hcc *_create_hcc(vesk *recorder, const char *hbuf_filename,
                                       const char *cbuf2_filename)
{
    char new_cbuf_filename[filename_size];
    _vesk_construct_cbuf_filename(recorder, new_cbuf_filename, sizeof new_cbuf_filename);
    recorder->state = VESK_ZCF_STATE_HCC;
    return vesk_zcf_state_hcc_create(hbuf_filename, cbuf2_filename, new_cbuf_filename,
                                     recorder->num_cb_samples);
}

static int _vesk_ccc_to_hcc(vesk *recorder)
{
    VESK_REQUIRE(recorder->state == VESK_ZCF_STATE_CCC, "vesk->state == VESK_ZCF_STATE_CCC");
    const auto *ccc = require_stage(recorder, stage_functions<vesk_zcf_state_ccc>());
    VESK_REQUIRE(recorder->num_hb_intervals > 0, "vesk->num_hb_intervals > 0");
    VESK_REQUIRE(recorder->num_samples_per_interval > 0, "vesk->num_samples_per_interval > 0");
    char hbuf_filename[filename_size];
    vesk_hist_buffer *hbuf = _create_hist_buffer(recorder, hbuf_filename);
    if (hbuf == nullptr) {
        return qe_get_last_error();
    }
    char cbuf0_filename[filename_size];
    _copy_filename(cbuf0_filename, vesk_zcf_state_ccc_get_cbuf0_filename(ccc));
    char cbuf1_filename[filename_size];
    _copy_filename(cbuf1_filename, vesk_zcf_state_ccc_get_cbuf1_filename(ccc));
    const char *cbuf2_filename = vesk_zcf_state_ccc_get_cbuf2_filename(ccc);
    VESK_REQUIRE(cbuf2_filename != nullptr, "cbuf2_filename != ((void *)0)");

    int result =
        vesk_current_buffer_compress(cbuf0_filename, hbuf, recorder->num_samples_per_interval);
    if (result >= 0) {
        result =
            vesk_current_buffer_compress(cbuf1_filename, hbuf, recorder->num_samples_per_interval);
    }
    vesk_hist_buffer_close(&hbuf);
    if (result < 0) {
        return result;
    }
    vesk_zcf_state_hcc *hcc = _create_hcc(recorder, hbuf_filename, cbuf2_filename);
    if (hcc == nullptr) {
        return qe_get_last_error();
    }
    result = _install_stage(recorder, VESK_ZCF_STATE_HCC, hcc);
    if (result < 0) {
        // The history buffer is closed already: this ends the process. A recorder whose first
        // history nobody refers to does not go on.
        vesk_hist_buffer_close(&hbuf);
        return result;
    }
    // Only now does the state file on disk do without them.
    (void)unlink(cbuf0_filename);
    (void)unlink(cbuf1_filename);
    return 0;
}

static int _vesk_hcc_to_hcc(vesk *recorder)
{
    VESK_REQUIRE(recorder->state == VESK_ZCF_STATE_HCC, "vesk->state == VESK_ZCF_STATE_HCC");
    const auto *hcc = require_stage(recorder, stage_functions<vesk_zcf_state_hcc>());
    char hbuf_filename[filename_size];
    vesk_hist_buffer *hbuf = _create_hist_buffer(recorder, hbuf_filename);
    if (hbuf == nullptr) {
        return qe_get_last_error();
    }
    char hbuf0_filename[filename_size];
    _copy_filename(hbuf0_filename, vesk_zcf_state_hcc_get_hbuf_filename(hcc));
    VESK_REQUIRE(strcmp(hbuf0_filename, hbuf_filename) != 0,
                 "strcmp (hbuf0_filename, hbuf_filename) != 0");
    char cbuf1_filename[filename_size];
    _copy_filename(cbuf1_filename, vesk_zcf_state_hcc_get_cbuf1_filename(hcc));

    // The old history comes first.
    int result = vesk_hist_buffer_compress(hbuf0_filename, hbuf);
    if (result >= 0) {
        result =
            vesk_current_buffer_compress(cbuf1_filename, hbuf, recorder->num_samples_per_interval);
    }
    vesk_hist_buffer_close(&hbuf);
    if (result < 0) {
        return result;
    }
    const char *cbuf2_filename = vesk_zcf_state_hcc_get_cbuf2_filename(hcc);
    VESK_REQUIRE(cbuf2_filename != nullptr, "cbuf2_filename != ((void *)0)");
    vesk_zcf_state_hcc *next = _create_hcc(recorder, hbuf_filename, cbuf2_filename);
    if (next == nullptr) {
        return qe_get_last_error();
    }
    result = _install_stage(recorder, VESK_ZCF_STATE_HCC, next);
    if (result < 0) {
        return result;
    }
    (void)unlink(hbuf0_filename);
    (void)unlink(cbuf1_filename);
    return 0;
}

// Makes room for more vectors: moves on to the next stage.
static int _rotate(vesk *recorder)
{
    // The state changes before the old stage is destroyed.
    recorder->stage_type = stage_type(recorder);
    int result = 0;
    switch (recorder->state) {
    case VESK_ZCF_STATE_C00:
        result = _vesk_c00_to_cc0(recorder);
        VESK_REQUIRE(result != 0 || recorder->state == VESK_ZCF_STATE_CC0,
                     "vesk->state == VESK_ZCF_STATE_CC0");
        return result;
    case VESK_ZCF_STATE_CC0:
        result = _vesk_cc0_to_ccc(recorder);
        VESK_REQUIRE(result != 0 || recorder->state == VESK_ZCF_STATE_CCC,
                     "vesk->state == VESK_ZCF_STATE_CCC");
        return result;
    case VESK_ZCF_STATE_CCC:
        result = _vesk_ccc_to_hcc(recorder);
        break;
    default:
        result = _vesk_hcc_to_hcc(recorder);
    }
    VESK_REQUIRE(result != 0 || recorder->state == VESK_ZCF_STATE_HCC,
                 "vesk->state == VESK_ZCF_STATE_HCC");
    return result;
}

// ---- Writing ----------------------------------------------------------------------------------

int vesk_write_telemetry_vector(vesk *recorder, const matrix *vector)
{
    VESK_REQUIRE(recorder != nullptr, "vesk != ((void *)0)");
    VESK_REQUIRE(recorder->version == 1, "vesk->version == ((char) 1)");
    VESK_REQUIRE(vector != nullptr, "vector != ((void *)0)");
    for (;;) {
        const int written = visit_stage(recorder->state, [&](auto functions) {
            return functions.write_telemetry_vector(require_stage(recorder, functions), vector);
        });
        if (written != QE_ERROR_FULL) {
            return written;
        }
        const int rotated = _rotate(recorder);
        if (rotated != 0) {
            return rotated;
        }
    }
}

int vesk_write_event(vesk *recorder, const vesk_cb_record_event *event)
{
    VESK_REQUIRE(recorder != nullptr, "vesk != ((void *)0)");
    VESK_REQUIRE(recorder->version == 1, "vesk->version == ((char) 1)");
    VESK_REQUIRE(event != nullptr, "event != ((void *)0)");
    return visit_stage(recorder->state, [&](auto functions) {
        return functions.write_event(require_stage(recorder, functions), event);
    });
}

int vesk_write_tagged_event(vesk *recorder, const vesk_cb_record_event *event)
{
    VESK_REQUIRE(recorder != nullptr, "vesk != ((void *)0)");
    VESK_REQUIRE(recorder->version == 1, "vesk->version == ((char) 1)");
    VESK_REQUIRE(event != nullptr, "event != ((void *)0)");
    return visit_stage(recorder->state, [&](auto functions) {
        const auto *stage = require_stage(recorder, functions);
        return vesk_current_buffer_write_tagged_event(stage->*functions.open_buffer, event);
    });
}

// ---- Durability -------------------------------------------------------------------------------

static int _sync_stream(FILE *file)
{
    return fdatasync(fileno(file)) == 0 ? 0 : QE_ERROR_IO;
}

static int _sync_file(const char *filename)
{
    const owned_file file(fopen(filename, "r"));
    return file ? _sync_stream(file.get()) : QE_ERROR_OPEN;
}

// The full buffers are synced each time: they were written to since the last call if the recorder
// has moved on, and those that were not cost nothing.
template <typename Stage>
static int _sync_buffers(const Stage *stage, stage_functions<Stage> functions)
{
    for (char *Stage::*filename : functions.closed_buffers) {
        const int result = _sync_file(stage->*filename);
        if (result < 0) {
            return result;
        }
    }
    const vesk_current_buffer *cbuf = stage->*functions.open_buffer;
    VESK_REQUIRE(cbuf != nullptr, "cbuf != ((void *)0)");
    return _sync_stream(cbuf->file);
}

int vesk_sync(const vesk *recorder)
{
    VESK_REQUIRE(recorder != nullptr, "vesk != ((void *)0)");
    VESK_REQUIRE(recorder->version == 1, "vesk->version == ((char) 1)");
    // What the stage really is: after a failed transition its buffers are still those of the box.
    int result = visit_stage(stage_type(recorder), [&](auto functions) {
        return _sync_buffers(require_stage(recorder, functions), functions);
    });
    // The state file names the buffers, so it comes after them.
    if (result == 0) {
        result = _sync_file(recorder->state_filename);
    }
    return result < 0 ? result : _vesk_sync_folder(recorder->state_filename);
}

int vesk_backup_state(const vesk *recorder)
{
    VESK_REQUIRE(recorder != nullptr, "vesk != ((void *)0)");
    VESK_REQUIRE(recorder->version == 1, "vesk->version == ((char) 1)");
    char filename[max_filename];
    const int length =
        snprintf(filename, sizeof filename, "%s%s", recorder->state_filename, backup_suffix);
    if (length < 0 || length >= static_cast<int>(sizeof filename)) {
        return QE_ERROR_LIMIT;
    }
    // The state of a failed transition does not fit the files.
    if (stage_type(recorder) != recorder->state) {
        return QE_ERROR_MALFORMED;
    }
    replacement_file file;
    const int opened = file.open(filename);
    if (opened < 0) {
        return opened;
    }
    owned<writer, writer_destroy> target(raw_writer_create(file.file(), keep_file_open));
    if (!target) {
        return qe_get_last_error();
    }
    const int written = binary_serializer_write_vesk(recorder, target.get());
    target.reset();
    // The names of the stage are written without a result: the stream knows.
    if (written < 0 || ferror(file.file()) != 0) {
        return written < 0 ? written : QE_ERROR_IO;
    }
    return file.commit();
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
        recorder->num_samples_per_interval !=
            recorder->num_cb_samples / recorder->num_hb_intervals) {
        fields->fail(QE_ERROR_MALFORMED);
    }
}

// Reads the stage that the state names and opens its live buffer. The stage is installed before it
// is read and stays as far as that got.
static void _read_stage(field_reader *fields, vesk *recorder)
{
    if (recorder->state < VESK_ZCF_STATE_C00 || recorder->state > VESK_ZCF_STATE_HCC) {
        fields->fail(QE_ERROR_MALFORMED);
        return;
    }
    _destroy_stage(recorder);
    visit_stage(recorder->state, [&](auto functions) {
        auto *stage = functions.create_null();
        if (stage == nullptr) {
            fields->fail(qe_get_last_error());
            return;
        }
        _set_stage(recorder, recorder->state, stage);
        fields->form(functions.read, stage);
    });
}

int binary_serializer_read_vesk(vesk *recorder, reader *source)
{
    VESK_REQUIRE(recorder != nullptr, "vesk != ((void *)0)");
    VESK_REQUIRE(source != nullptr, "reader != ((void *)0)");
    VESK_REQUIRE(recorder->version == 1, "vesk->version == ((char) 1)");
    field_reader fields(source);
    fields.version(1)
        .replace_string(&recorder->filename)
        .replace_string(&recorder->state_filename)
        .u32(&recorder->state);
    _read_counts(&fields, recorder);
    if (fields.u32(&recorder->next_file_number).ok()) {
        _read_stage(&fields, recorder);
    }
    return fields.result();
}
