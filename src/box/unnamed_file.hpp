// A file that is written before it gets its name. Until then nobody sees it, and it is gone with
// the process. It lies in the folder where it will be named, or, where the file system knows no
// such files, in memory.
#ifndef VESK_BOX_UNNAMED_FILE_HPP
#define VESK_BOX_UNNAMED_FILE_HPP

#include <cstdio>

#include "support/owner.hpp"

// Makes one for the name `path`, for writing. Null with errno where the file system has none.
owned_file _vesk_create_unnamed_file(const char *path);
// Makes one in memory, for writing. Null with errno.
owned_file _vesk_create_file_in_memory(const char *path);

// Gives the whole file the name `path`, which nothing may have yet; one in memory is copied. 0, or
// QE_ERROR_IO (-41), and there is nothing of that name that was not there before.
int _vesk_name_file(FILE *file, const char *path);

#endif
