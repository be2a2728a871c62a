// Files are read with read() itself: stdio does not tell how much it has taken when a signal or the
// medium interrupts it.

#include "io/file_bytes.hpp"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vesk/error.h>

// Reads up to the end of the file.
static int _read_all(int descriptor, byte_list *bytes)
{
    constexpr std::size_t piece = 65536;
    for (;;) {
        unsigned char *room = bytes->reserve(piece);
        if (room == nullptr) {
            return QE_ERROR_NO_MEMORY;
        }
        const ssize_t n = read(descriptor, room, piece);
        if (n == 0) {
            return 0;
        }
        if (n > 0) {
            bytes->add(static_cast<std::size_t>(n));
        } else if (errno != EINTR) {
            return QE_ERROR_IO;
        }
    }
}

int _vesk_read_file(const char *filename, byte_list *bytes)
{
    // Opening a pipe that nobody writes to must not wait.
    const int descriptor = open(filename, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        return QE_ERROR_OPEN;
    }
    struct stat status = {};
    const bool regular = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    const int result = regular ? _read_all(descriptor, bytes) : QE_ERROR_OPEN;
    (void)close(descriptor);
    return result;
}
