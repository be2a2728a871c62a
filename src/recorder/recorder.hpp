// What the sources of the recorder share: what it does with each stage, by the type of the stage,
// and the steps of its life that opening, moving on and saving have in common. Not exported.
#ifndef VESK_RECORDER_RECORDER_HPP
#define VESK_RECORDER_RECORDER_HPP

#include <cstddef>
#include <cstdint>

#include <vesk/vesk.h>
#include <vesk/vesk_limits.h>

#include "box/stage_places.hpp"
#include "buffers/buffer_internal.hpp"

// The names of buffers are cut to this size, including the terminator.
inline constexpr std::size_t filename_size = 1024;

// With a base name that is not too long no name of a buffer is cut.
static_assert(VESK_MAX_BASE_LENGTH + sizeof ".4294967295.cbuf.z" == filename_size);

// What the recorder does with the stages of one type.
struct stage_functions {
    const char *missing;          // the text of an abort without the stage
    const char *missing_at_close; // the same when the recorder is closed
    void *(*create_null)();
    void (*destroy)(void *stage);
    int (*write)(const void *stage, writer *target);
    int (*read)(void *stage, reader *source, file_reading reading);
};

// The functions for the stage that `state` names; aborts when it names none.
const stage_functions &_vesk_stage_functions(uint32_t state);

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
inline uint32_t stage_type(const vesk *recorder)
{
    return recorder->stage_type != 0 ? recorder->stage_type : recorder->state;
}

inline bool stage_fits(const vesk *recorder, uint32_t state)
{
    const uint32_t type = stage_type(recorder);
    return recorder->stage != nullptr &&
           (type == state || (type == VESK_ZCF_STATE_CCC && state == VESK_ZCF_STATE_HCC));
}

// Aborts when the recorder has no stage that those functions take which `state` names.
void _vesk_require_stage(const vesk *recorder, uint32_t state);

// The buffers of a stage. Which they are, places_of_stage() tells.
struct stage_buffers {
    const char *full[max_places - 1]; // the names of the full ones, oldest first
    vesk_current_buffer *open;        // the one that is written to
    const char *open_is_missing;      // the text of an abort without it
};

// Those of the stage that `state` names; aborts without a live stage or in an unknown state.
stage_buffers _vesk_stage_buffers(const vesk *recorder, uint32_t state);

// ---- What vesk_start() adds ---------------------------------------------------------------------

class history_preparation;

// A recorder with this survives what ends or endangers others: see vesk_start.h.
struct recorder_safety {
    bool settle_due = false; // it has moved on since vesk_settle() was last through
    bool save_due = false;   // the state file on disk is not the state
    bool moved_on = false;   // the transition at hand has put its stage in place
    uint32_t num_consumed = 0;
    char consumed[2][filename_size] = {};       // files that the history replaces, not deleted yet
    history_preparation *preparation = nullptr; // owned: see vesk_prepare.h
};

inline recorder_safety *safety_of(const vesk *recorder)
{
    return static_cast<recorder_safety *>(recorder->safety);
}

// Makes a recorder such a one. 0 or QE_ERROR_NO_MEMORY (-22).
int _vesk_add_safety(vesk *recorder);

// As vesk_open(), over files that are read as a whole before; null, with the code in the cell, for
// everything that is not a whole box.
vesk *_vesk_open_read_whole(const char *filename);

// ---- Steps --------------------------------------------------------------------------------------

void _vesk_set_stage(vesk *recorder, uint32_t type, void *stage);

// As binary_serializer_read_vesk(). `reading` is how the current buffer is read.
int _vesk_read(vesk *recorder, reader *source, file_reading reading);

// Destroys the stage by what it is, whatever the state says.
void _vesk_destroy_stage(vesk *recorder);

// The name of the next buffer, of which the number is used up.
void _vesk_construct_cbuf_filename(vesk *recorder, char *buf, std::size_t size);
void _vesk_construct_hbuf_filename(vesk *recorder, char *buf, std::size_t size);
// The name that the latter will give.
void _vesk_format_hbuf_filename(const vesk *recorder, char *buf, std::size_t size);

// Overwrites the state file in place: a failure leaves what was written until then. The names of
// the stage are written without a result: whether they could be, only the stream knows. It is asked
// when `strict`.
int _vesk_write_state_file(const vesk *recorder, bool strict);

// The same, as strict as the recorder is.
int _vesk_save(const vesk *recorder);

// Makes room for more vectors: moves on to the next stage. 0, or a code.
int _vesk_rotate(vesk *recorder);

// Saves the state when that failed before. 0, or the code.
int _vesk_save_if_due(const vesk *recorder);

// Deletes what the history has replaced.
int _vesk_drop_consumed(const vesk *recorder);
#endif
