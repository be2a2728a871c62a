// The state file of a recovered box.
//
// In: the box under the names that its buffers have by now, its sizes and the number of its next
// file. Out: the state file, on the medium, in the place of the old one. It may be assumed that all
// buffers that it names are there and on the medium.
#ifndef VESK_RECOVERY_STATE_WRITING_HPP
#define VESK_RECOVERY_STATE_WRITING_HPP

#include <cstdint>

#include "box/box_sizes.hpp"
#include "recovery/arrangement.hpp"
#include "recovery/survey.hpp"

// 0, QE_ERROR_OPEN (-40), QE_ERROR_IO (-41), QE_ERROR_LIMIT (-49) or QE_ERROR_NO_MEMORY (-22).
int _vesk_write_state(const box_survey &survey, const arrangement &names,
                      const recorder_sizes &sizes, uint32_t next_file_number);

#endif
