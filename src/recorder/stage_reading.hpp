// Reads a stage from a state file, with a choice of how its current buffer is read. The exported
// functions read it in pieces; vesk_start() reads it whole, so that a failing medium gives an error
// code. Not exported.
#ifndef VESK_RECORDER_STAGE_READING_HPP
#define VESK_RECORDER_STAGE_READING_HPP

#include <vesk/reader.h>
#include <vesk/vesk_zcf_state_c00.h>
#include <vesk/vesk_zcf_state_cc0.h>
#include <vesk/vesk_zcf_state_ccc.h>
#include <vesk/vesk_zcf_state_hcc.h>

#include "buffers/buffer_internal.hpp"

// As binary_serializer_read_vesk_zcf_state_c00() and so on. `reading` is how the current buffer is
// read.
int _vesk_zcf_state_c00_read(vesk_zcf_state_c00 *state, reader *source, file_reading reading);
int _vesk_zcf_state_cc0_read(vesk_zcf_state_cc0 *state, reader *source, file_reading reading);
int _vesk_zcf_state_ccc_read(vesk_zcf_state_ccc *state, reader *source, file_reading reading);
int _vesk_zcf_state_hcc_read(vesk_zcf_state_hcc *state, reader *source, file_reading reading);

#endif
