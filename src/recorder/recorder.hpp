// What the sources of the recorder share: what it does with each stage, by the type of the stage,
// and the steps of its life that opening, moving on and saving have in common. Not exported.
#ifndef VESK_RECORDER_RECORDER_HPP
#define VESK_RECORDER_RECORDER_HPP

#include <array>
#include <cstddef>
#include <cstdint>

#include <vesk/vesk.h>

#include "recorder/stage_reading.hpp"
#include "support/precondition.hpp"

// The names of buffers are cut to this size, including the terminator.
inline constexpr std::size_t filename_size = 1024;

// The longest base name with which no name of a buffer is cut.
inline constexpr std::size_t max_base_length = 999;

// What the recorder does with a stage, by the type of the stage.
template <typename Stage>
struct stage_functions;

template <>
struct stage_functions<vesk_zcf_state_c00> {
    static constexpr uint32_t state = VESK_ZCF_STATE_C00;
    static constexpr auto pointer = &vesk::c00;
    static constexpr std::array<char * vesk_zcf_state_c00::*, 0> closed_buffers = {};
    static constexpr const char *missing = "vesk->c00 != ((void *)0)";
    static constexpr const char *missing_at_close = "(*vesk)->c00 != ((void *)0)";
    static constexpr auto create_null = vesk_zcf_state_c00_create_null;
    static constexpr auto destroy = vesk_zcf_state_c00_destroy;
    static constexpr auto write = binary_serializer_write_vesk_zcf_state_c00;
    static constexpr auto read = _vesk_zcf_state_c00_read;
};

template <>
struct stage_functions<vesk_zcf_state_cc0> {
    static constexpr uint32_t state = VESK_ZCF_STATE_CC0;
    static constexpr auto pointer = &vesk::cc0;
    static constexpr std::array closed_buffers = {&vesk_zcf_state_cc0::cbuf0_filename};
    static constexpr const char *missing = "vesk->cc0 != ((void *)0)";
    static constexpr const char *missing_at_close = "(*vesk)->cc0 != ((void *)0)";
    static constexpr auto create_null = vesk_zcf_state_cc0_create_null;
    static constexpr auto destroy = vesk_zcf_state_cc0_destroy;
    static constexpr auto write = binary_serializer_write_vesk_zcf_state_cc0;
    static constexpr auto read = _vesk_zcf_state_cc0_read;
};

template <>
struct stage_functions<vesk_zcf_state_ccc> {
    static constexpr uint32_t state = VESK_ZCF_STATE_CCC;
    static constexpr auto pointer = &vesk::ccc;
    static constexpr std::array closed_buffers = {&vesk_zcf_state_ccc::cbuf0_filename,
                                                  &vesk_zcf_state_ccc::cbuf1_filename};
    static constexpr const char *missing = "vesk->ccc != ((void *)0)";
    static constexpr const char *missing_at_close = "(*vesk)->ccc != ((void *)0)";
    static constexpr auto create_null = vesk_zcf_state_ccc_create_null;
    static constexpr auto destroy = vesk_zcf_state_ccc_destroy;
    static constexpr auto write = binary_serializer_write_vesk_zcf_state_ccc;
    static constexpr auto read = _vesk_zcf_state_ccc_read;
};

template <>
struct stage_functions<vesk_zcf_state_hcc> {
    static constexpr uint32_t state = VESK_ZCF_STATE_HCC;
    static constexpr auto pointer = &vesk::hcc;
    static constexpr std::array closed_buffers = {&vesk_zcf_state_hcc::hbuf_filename,
                                                  &vesk_zcf_state_hcc::cbuf1_filename};
    static constexpr const char *missing = "vesk->hcc != ((void *)0)";
    static constexpr const char *missing_at_close = "(*vesk)->hcc != ((void *)0)";
    static constexpr auto create_null = vesk_zcf_state_hcc_create_null;
    static constexpr auto destroy = vesk_zcf_state_hcc_destroy;
    static constexpr auto write = binary_serializer_write_vesk_zcf_state_hcc;
    static constexpr auto read = _vesk_zcf_state_hcc_read;
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

// The stage of the recorder, which must be the one that these functions work on.
template <typename Stage>
Stage *require_stage(const vesk *recorder, stage_functions<Stage> functions)
{
    VESK_REQUIRE(stage_fits(recorder, functions.state), functions.missing);
    return recorder->*functions.pointer;
}

// The current buffer that is written to, and the text of an abort that misses it.
struct open_buffer {
    vesk_current_buffer *buffer;
    const char *missing;
};

// Looks for it in the stage that `state` names; aborts without that stage or in an unknown state.
open_buffer _vesk_open_buffer(const vesk *recorder, uint32_t state);

// ---- What vesk_start() adds ---------------------------------------------------------------------

// A recorder with this survives what ends or endangers others: see vesk_start.h.
struct recorder_safety {
    bool settle_due = false; // it has moved on since vesk_settle() was last through
    bool save_due = false;   // the state file on disk is not the state
    bool moved_on = false;   // the transition at hand has put its stage in place
    uint32_t num_consumed = 0;
    char consumed[2][filename_size] = {}; // files that the history replaces, not deleted yet
};

inline recorder_safety *safety_of(const vesk *recorder)
{
    return static_cast<recorder_safety *>(recorder->safety);
}

// Makes a recorder such a one. 0 or -22.
int _vesk_add_safety(vesk *recorder);

// As vesk_open(), over bytes that were read before; null, with the code in the cell, for everything
// that is not a whole box.
vesk *_vesk_open_read_whole(const char *filename);

// ---- Steps --------------------------------------------------------------------------------------

void _vesk_set_stage(vesk *recorder, uint32_t type, void *stage);

// Destroys the stage by what it is, whatever the state says.
void _vesk_destroy_stage(vesk *recorder);

// The name of the next buffer, of which the number is used up.
void _vesk_construct_cbuf_filename(vesk *recorder, char *buf, std::size_t size);
void _vesk_construct_hbuf_filename(vesk *recorder, char *buf, std::size_t size);

// Overwrites the state file in place: a failure leaves what was written until then.
int _vesk_save(const vesk *recorder);

// Makes room for more vectors: moves on to the next stage. 0, or a code.
int _vesk_rotate(vesk *recorder);

// Saves the state when that failed before. 0, or the code.
int _vesk_save_if_due(const vesk *recorder);

// Deletes what the history has replaced.
int _vesk_drop_consumed(const vesk *recorder);
#endif
