// Chooses the sizes of a box among those that the state file, its copy, the caller and the headers
// of the buffers state. Headers have a checksum and state files have none, so sizes count only if
// the headers agree.
#ifndef VESK_RECOVERY_SIZE_CHOICE_HPP
#define VESK_RECOVERY_SIZE_CHOICE_HPP

#include "box/box_sizes.hpp"
#include "recovery/arrangement.hpp"
#include "recovery/box_file.hpp"

// Takes the first pair of sizes that fits: that of the state file, of its copy, of the caller, of
// the headers. If no pair fits, one size of one source is combined with the other size of another
// source. Returns false when nothing fits.
bool _vesk_choose_sizes(const box_file_list &files, const arrangement &box,
                        const recorder_sizes &of_state, const recorder_sizes &of_copy,
                        const recorder_sizes &given, recorder_sizes *sizes);

#endif
