// Reading a file whole: the scanner looks at the same bytes more than once, and a recorder may be
// appending to the file meanwhile.
#include "recovery/loaded_file.hpp"

#include <stdio.h>
#include <sys/stat.h>

#include <vesk/error.h>

#include "support/owner.hpp"

// A FIFO would be waited for, and a device may have no end. A folder is told by reading it.
static bool _can_be_read_whole(const char *filename)
{
    struct stat status = {};
    return stat(filename, &status) != 0 || S_ISREG(status.st_mode) || S_ISDIR(status.st_mode);
}

int _vesk_load_file(const char *filename, byte_list *store)
{
    constexpr std::size_t piece = 65536;
    const owned_file file(_can_be_read_whole(filename) ? fopen(filename, "r") : nullptr);
    if (!file) {
        return QE_ERROR_OPEN;
    }
    for (;;) {
        unsigned char *room = store->reserve(piece);
        if (room == nullptr) {
            return QE_ERROR_NO_MEMORY;
        }
        const std::size_t n = fread(room, 1, piece, file.get());
        store->add(n);
        if (n < piece) {
            return ferror(file.get()) != 0 ? QE_ERROR_IO : 0;
        }
    }
}
