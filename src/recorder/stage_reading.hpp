// Reading a stage from a state file, with a choice of how its current buffer is opened: straight
// from the file, or from bytes that were read before. Not exported.
#ifndef VESK_RECORDER_STAGE_READING_HPP
#define VESK_RECORDER_STAGE_READING_HPP

#include <vesk/reader.h>
#include <vesk/vesk_current_buffer.h>
#include <vesk/vesk_zcf_state_c00.h>
#include <vesk/vesk_zcf_state_cc0.h>
#include <vesk/vesk_zcf_state_ccc.h>
#include <vesk/vesk_zcf_state_hcc.h>

// Opens a current buffer to go on behind its last record; null with the code in the cell.
using open_current_buffer = vesk_current_buffer *(*)(const char *filename);

// As binary_serializer_read_vesk_zcf_state_c00() and so on, with `open` for the current buffer.
int _vesk_zcf_state_c00_read(vesk_zcf_state_c00 *state, reader *source, open_current_buffer open);
int _vesk_zcf_state_cc0_read(vesk_zcf_state_cc0 *state, reader *source, open_current_buffer open);
int _vesk_zcf_state_ccc_read(vesk_zcf_state_ccc *state, reader *source, open_current_buffer open);
int _vesk_zcf_state_hcc_read(vesk_zcf_state_hcc *state, reader *source, open_current_buffer open);

#endif
