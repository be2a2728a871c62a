// The sizes of a box, from whoever knows them. State files have no checksum and the headers of the
// buffers have one, so sizes count only when these agree.
#ifndef VESK_RECOVERY_SIZE_CHOICE_HPP
#define VESK_RECOVERY_SIZE_CHOICE_HPP

#include "box/box_sizes.hpp"
#include "recovery/arrangement.hpp"
#include "recovery/box_file.hpp"

// The first that fit: of the state file, of its copy, those that the caller gave, those of the
// headers; then what one of them has lost with what another one knows. False when none fit.
bool _vesk_choose_sizes(const box_file_list &files, const arrangement &box,
                        const recorder_sizes &of_state, const recorder_sizes &of_copy,
                        const recorder_sizes &given, recorder_sizes *sizes);

#endif
