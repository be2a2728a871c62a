// The names of buffer files: how they are formed and recognised, and which of them lie in the
// folder of a box. No buffer is opened here.
#ifndef VESK_BOX_BOX_FILES_HPP
#define VESK_BOX_BOX_FILES_HPP

#include <cstddef>
#include <cstdint>

#include "support/growing_list.hpp"

// No path of a file may be longer, its terminator included.
inline constexpr std::size_t max_filename = 4096;

// What the name of a buffer file says: BASE.NUMBER.cbuf.z or BASE.NUMBER.hbuf.z.
struct buffer_name {
    uint32_t kind = 0; // VESK_BUFFER_TYPE_CURRENT or VESK_BUFFER_TYPE_HIST
    uint32_t number = 0;
};

using buffer_names = growing_list<buffer_name>;

// The path of a buffer file, or of a file beside it that has `suffix` behind that. False when it is
// too long.
bool _vesk_format_buffer_name(char (&path)[max_filename], const char *base, const buffer_name &name,
                              const char *suffix = "");

// False when `path` is not the path of a buffer file of `base` with `suffix` behind it.
bool _vesk_parse_buffer_name(const char *path, const char *base, buffer_name *name,
                             const char *suffix = "");

// All files of that form in the folder of `base`, by number. 0, QE_ERROR_OPEN (-40) when there is
// no such folder, QE_ERROR_IO (-41) when it cannot be read, QE_ERROR_NO_MEMORY (-22) without
// memory.
int _vesk_list_buffer_names(const char *base, const char *suffix, buffer_names *names);

// The length of the folder in `path`, the slash behind it included.
std::size_t _vesk_folder_length(const char *path);

// 1 when both paths lead to one file that is there, 0 when they do not, QE_ERROR_IO (-41) when that
// cannot be told. A path that may not be followed to its end leads to no file of a box.
int _vesk_is_same_file(const char *path, const char *other);

#endif
