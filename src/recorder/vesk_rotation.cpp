// Moves a recorder from stage to stage when its open buffer is full. The order on the disk makes
// every crash harmless: first the new files are written, then the state file that names them, and
// only then are the old files deleted.

#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <vesk/error.h>
#include <vesk/vesk.h>
#include <vesk/vesk_hist_buffer.h>

#include "box/durable_file.hpp"
#include "box/stage_places.hpp"
#include "buffers/buffer_internal.hpp"
#include "recorder/preparation.hpp"
#include "recorder/recorder.hpp"
#include "support/precondition.hpp"

// Puts a finished stage in the place of the old one, whose open buffer is closed by that, and
// saves.
static int _install_stage(vesk *recorder, uint32_t type, void *stage)
{
    _vesk_destroy_stage(recorder);
    _vesk_set_stage(recorder, type, stage);
    const int saved = _vesk_save(recorder);
    if (recorder->safety != nullptr) {
        safety_of(recorder)->moved_on = true;
        safety_of(recorder)->save_due = saved < 0;
    }
    return saved;
}

// Deletes two files that the history has replaced. A recorder from vesk_start() keeps them until
// the new history is on the medium.
static void _release_files(const vesk *recorder, const char *first, const char *second)
{
    recorder_safety *safety = safety_of(recorder);
    if (safety == nullptr) {
        (void)unlink(first);
        (void)unlink(second);
        return;
    }
    for (const char *filename : {first, second}) {
        snprintf(safety->consumed[safety->num_consumed++], filename_size, "%s", filename);
    }
}

// Closes the new history. A recorder from vesk_start() syncs it before the state file names it: if
// a loss of power left a state file without its history, the recovery would make an empty one. If
// the sync fails, vesk_settle() reports it later.
static void _finish_hbuf(const vesk *recorder, vesk_hist_buffer **hbuf)
{
    if (recorder->safety != nullptr && fdatasync(fileno((*hbuf)->fp)) == 0) {
        (void)_vesk_sync_folder((*hbuf)->filename);
    }
    vesk_hist_buffer_close(hbuf);
}

// How the recorder reads a file that it summarises.
static file_reading _reading(const vesk *recorder)
{
    return recorder->safety != nullptr ? file_reading::whole : file_reading::in_pieces;
}

// Summarises a full buffer into the history.
static int _compress_cbuf(const vesk *recorder, const char *filename, vesk_hist_buffer *hbuf)
{
    const uint32_t samples_per_hb_interval = recorder->num_samples_per_interval;
    VESK_REQUIRE(samples_per_hb_interval > 0, "samples_per_hb_interval > 0");
    vesk_current_buffer *cbuf = _vesk_current_buffer_open_plain(filename, _reading(recorder));
    return cbuf == nullptr ? qe_get_last_error()
                           : _vesk_current_buffer_compress(cbuf, hbuf, samples_per_hb_interval);
}

// Halves the old history into the new one.
static int _compress_hbuf(const vesk *recorder, const char *filename, vesk_hist_buffer *hbuf)
{
    vesk_hist_buffer *old = _vesk_hist_buffer_open_plain(filename, _reading(recorder));
    return old == nullptr ? qe_get_last_error() : _vesk_hist_buffer_compress(old, hbuf);
}

// The state is set before the stage is created and stays when that fails: the recorder is of no
// more use then and has to be opened again.
static int _vesk_c00_to_cc0(vesk *recorder)
{
    VESK_REQUIRE(recorder->state == VESK_ZCF_STATE_C00, "vesk->state == VESK_ZCF_STATE_C00");
    _vesk_require_stage(recorder, VESK_ZCF_STATE_C00);
    const vesk_zcf_state_c00 *c00 = recorder->c00;
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
    _vesk_require_stage(recorder, VESK_ZCF_STATE_CC0);
    const vesk_zcf_state_cc0 *cc0 = recorder->cc0;
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

// The history of a rotation: what was prepared, or a new buffer that has to be written.
struct new_history {
    char filename[filename_size];
    bool prepared;
    vesk_hist_buffer *hbuf; // null when it was prepared
};

// A new history buffer with room for the intervals of two current buffers. False, with the code in
// the cell, when there is none.
static bool _create_history(vesk *recorder, new_history *history)
{
    history->prepared = _vesk_place_preparation(recorder);
    history->hbuf = nullptr;
    _vesk_construct_hbuf_filename(recorder, history->filename, sizeof history->filename);
    if (!history->prepared) {
        history->hbuf =
            _vesk_hist_buffer_create_plain(history->filename, 2 * recorder->num_hb_intervals);
    }
    return history->prepared || history->hbuf != nullptr;
}

// Summarises a full file into the history.
using summarise = int(const vesk *recorder, const char *filename, vesk_hist_buffer *hbuf);

// Summarises two files, the older one first. 0, or a code.
static int _fill_history(const vesk *recorder, new_history *history, summarise *summarise_older,
                         const char *older, const char *newer)
{
    if (history->prepared) {
        return 0;
    }
    int result = summarise_older(recorder, older, history->hbuf);
    if (result >= 0) {
        result = _compress_cbuf(recorder, newer, history->hbuf);
    }
    _finish_hbuf(recorder, &history->hbuf);
    return result;
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
    _vesk_require_stage(recorder, VESK_ZCF_STATE_CCC);
    const vesk_zcf_state_ccc *ccc = recorder->ccc;
    VESK_REQUIRE(recorder->num_hb_intervals > 0, "vesk->num_hb_intervals > 0");
    VESK_REQUIRE(recorder->num_samples_per_interval > 0, "vesk->num_samples_per_interval > 0");
    new_history history;
    if (!_create_history(recorder, &history)) {
        return qe_get_last_error();
    }
    char cbuf0_filename[filename_size];
    _copy_filename(cbuf0_filename, vesk_zcf_state_ccc_get_cbuf0_filename(ccc));
    char cbuf1_filename[filename_size];
    _copy_filename(cbuf1_filename, vesk_zcf_state_ccc_get_cbuf1_filename(ccc));
    const char *cbuf2_filename = vesk_zcf_state_ccc_get_cbuf2_filename(ccc);
    VESK_REQUIRE(cbuf2_filename != nullptr, "cbuf2_filename != ((void *)0)");

    int result = _fill_history(recorder, &history, _compress_cbuf, cbuf0_filename, cbuf1_filename);
    if (result < 0) {
        return result;
    }
    vesk_zcf_state_hcc *hcc = _create_hcc(recorder, history.filename, cbuf2_filename);
    if (hcc == nullptr) {
        return qe_get_last_error();
    }
    result = _install_stage(recorder, VESK_ZCF_STATE_HCC, hcc);
    if (result < 0 && recorder->safety == nullptr) {
        // The history buffer is closed already, so this ends the process: a recorder cannot go on
        // when no state file refers to its first history.
        vesk_hist_buffer_close(&history.hbuf);
        return result;
    }
    // Only now does the state file on disk no longer name them.
    _release_files(recorder, cbuf0_filename, cbuf1_filename);
    return result;
}

static int _vesk_hcc_to_hcc(vesk *recorder)
{
    VESK_REQUIRE(recorder->state == VESK_ZCF_STATE_HCC, "vesk->state == VESK_ZCF_STATE_HCC");
    _vesk_require_stage(recorder, VESK_ZCF_STATE_HCC);
    const vesk_zcf_state_hcc *hcc = recorder->hcc;
    new_history history;
    if (!_create_history(recorder, &history)) {
        return qe_get_last_error();
    }
    char hbuf0_filename[filename_size];
    _copy_filename(hbuf0_filename, vesk_zcf_state_hcc_get_hbuf_filename(hcc));
    VESK_REQUIRE(strcmp(hbuf0_filename, history.filename) != 0,
                 "strcmp (hbuf0_filename, hbuf_filename) != 0");
    char cbuf1_filename[filename_size];
    _copy_filename(cbuf1_filename, vesk_zcf_state_hcc_get_cbuf1_filename(hcc));
    const char *cbuf2_filename = vesk_zcf_state_hcc_get_cbuf2_filename(hcc);
    VESK_REQUIRE(cbuf2_filename != nullptr, "cbuf2_filename != ((void *)0)");

    // The old history comes first.
    int result = _fill_history(recorder, &history, _compress_hbuf, hbuf0_filename, cbuf1_filename);
    if (result < 0) {
        return result;
    }
    vesk_zcf_state_hcc *next = _create_hcc(recorder, history.filename, cbuf2_filename);
    if (next == nullptr) {
        return qe_get_last_error();
    }
    result = _install_stage(recorder, VESK_ZCF_STATE_HCC, next);
    if (result < 0 && recorder->safety == nullptr) {
        return result;
    }
    _release_files(recorder, hbuf0_filename, cbuf1_filename);
    return result;
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

// Restores the recorder to its state before a failed transition and removes the files that the
// transition left, so that another one can be tried.
static void _undo(vesk *recorder, uint32_t state, uint32_t next_file_number)
{
    const uint32_t next = state == VESK_ZCF_STATE_HCC ? state : state + 1;
    const bool makes_history = places_of_stage(next).places[0].kind == VESK_BUFFER_TYPE_HIST;
    const uint32_t end = recorder->next_file_number;
    recorder->state = state;
    recorder->next_file_number = next_file_number;
    char filename[filename_size];
    if (makes_history && recorder->next_file_number < end) {
        _vesk_construct_hbuf_filename(recorder, filename, sizeof filename);
        (void)unlink(filename);
    }
    if (recorder->next_file_number < end) {
        _vesk_construct_cbuf_filename(recorder, filename, sizeof filename);
        (void)unlink(filename);
    }
    recorder->next_file_number = next_file_number;
}

int _vesk_rotate(vesk *recorder)
{
    recorder_safety *safety = safety_of(recorder);
    if (safety == nullptr) {
        return _rotate(recorder);
    }
    // The files that the previous transition replaced are deleted first, so that the room on the
    // disk stays bounded even if nothing can be synced.
    if (vesk_settle(recorder) < 0) {
        (void)_vesk_drop_consumed(recorder);
    }
    const uint32_t state = recorder->state;
    const uint32_t next_file_number = recorder->next_file_number;
    safety->moved_on = false;
    const int result = _rotate(recorder);
    if (safety->moved_on) {
        safety->settle_due = true;
    } else {
        _undo(recorder, state, next_file_number);
    }
    return result;
}
