// Changes the files of a box: cuts off a tail, or writes a buffer anew. Bytes that are taken out
// are synced to FILE.torn before they disappear from the buffer.
#ifndef VESK_RECOVERY_FILE_CHANGES_HPP
#define VESK_RECOVERY_FILE_CHANGES_HPP

#include <cstdint>

#include "box/box_files.hpp"
#include "box/plain_file.hpp"
#include "recovery/buffer_mender.hpp"

inline constexpr char torn_suffix[] = ".torn";

// The path of a file beside `path`. The longest base name leaves room for it.
void _vesk_format_beside(char (&to)[max_filename], const char *path, const char *suffix);

// Whether the files that a change of `path` writes beside it can be made: 0, QE_ERROR_OPEN (-40)
// when something stands in their way, QE_ERROR_IO (-41) when that cannot be told.
int _vesk_check_change(const char *path, bool with_torn, const trusted_owners &owners);

// Takes everything from `offset` on out of the file. 0, QE_ERROR_OPEN (-40), QE_ERROR_IO (-41) or
// QE_ERROR_NO_MEMORY (-22).
int _vesk_cut_file(const char *path, uint64_t offset);

// Writes the buffer as it should be; when it is not there yet, for the owner of `like`. 0 or a code
// of _vesk_mend_buffer().
int _vesk_rewrite_buffer(const char *path, const char *like, const buffer_expectation &expected);

#endif
