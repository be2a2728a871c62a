// Reads the rest of a file into memory with read(). It does not use stdio, which does not tell how
// much it has read when a signal or the medium interrupts it.

#include "io/file_bytes.hpp"

#include <algorithm>
#include <errno.h>
#include <unistd.h>

#include <vesk/error.h>

int _vesk_read_to_end(FILE *file, byte_list *bytes, std::size_t most)
{
    constexpr std::size_t piece = 65536;
    while (most > 0) {
        unsigned char *room = bytes->reserve(piece);
        if (room == nullptr) {
            return QE_ERROR_NO_MEMORY;
        }
        const ssize_t n = read(fileno(file), room, std::min(piece, most));
        if (n == 0) {
            return 0;
        }
        if (n > 0) {
            bytes->add(static_cast<std::size_t>(n));
            most -= static_cast<std::size_t>(n);
        } else if (errno != EINTR) {
            return QE_ERROR_IO;
        }
    }
    return 0;
}
