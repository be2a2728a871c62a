// Opens regular files and never something else under their names. Names in the folder of a box may
// be links, FIFOs or devices that somebody put there: none of them is followed or waited for. Only
// a path that a person gave may be a link. No descriptor stays open in a program that the process
// starts.
#ifndef VESK_IO_PLAIN_OPEN_HPP
#define VESK_IO_PLAIN_OPEN_HPP

#include <cstdio>
#include <sys/types.h>

#include "support/owner.hpp"

enum class link_rule {
    refuse, // the path is a name of a box
    follow  // the path was given by a person
};

// Opens a regular file that is there, with the access of `flags` (O_RDONLY, O_RDWR, O_APPEND).
// Null when it is something else, with errno.
owned_file _vesk_open_plain_file(const char *path, int flags, link_rule rule = link_rule::refuse);

// Makes a file that must not be there yet, for writing. Null when it is, with errno.
owned_file _vesk_create_plain_file(const char *path, mode_t mode);

// Makes a file, or empties a regular file that is there, for writing: fopen(path, "w") but for what
// is no regular file. Null with errno; what is there has kept its content then. A link to /dev/full
// is followed: it harms nothing, and is how people try what a full disk does.
owned_file _vesk_overwrite_plain_file(const char *path);

#endif
