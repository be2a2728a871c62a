// Opens regular files for reading, appending, creating and overwriting. A path goes in, a stream
// comes out, or null with errno. A link, FIFO or device under the path is refused without waiting
// for it, because anybody may have put it there. The exceptions are a link that a person named, and
// /dev/full.
#include "io/plain_open.hpp"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

static owned_file _make_stream(int descriptor, int flags)
{
    const char *mode = (flags & O_APPEND) != 0           ? "a"
                       : (flags & O_ACCMODE) == O_RDWR   ? "r+"
                       : (flags & O_ACCMODE) == O_WRONLY ? "w"
                                                         : "r";
    owned_file file(fdopen(descriptor, mode));
    if (!file) {
        const int error = errno;
        (void)close(descriptor);
        errno = error;
    }
    return file;
}

// Linux gives /dev/full this number on every machine.
static const dev_t full_device = makedev(1, 7);

// What a new file may be at most; the umask of the process takes its part away.
static constexpr mode_t usual_mode = 0666;

owned_file _vesk_open_plain_file(const char *path, int flags, link_rule rule)
{
    const int no_link = rule == link_rule::refuse ? O_NOFOLLOW : 0;
    // Without O_NONBLOCK, opening a FIFO would wait for its writer. Regular files ignore the flag.
    const int all_flags = flags | no_link | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    int descriptor = -1;
    do {
        descriptor = open(path, all_flags, usual_mode);
    } while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0) {
        return owned_file();
    }
    struct stat status = {};
    const int error = fstat(descriptor, &status) != 0 ? errno
                      : S_ISREG(status.st_mode)       ? 0
                      : S_ISDIR(status.st_mode)       ? EISDIR
                                                      : EINVAL;
    if (error != 0) {
        (void)close(descriptor);
        errno = error;
        return owned_file();
    }
    return _make_stream(descriptor, flags);
}

owned_file _vesk_create_plain_file(const char *path, mode_t mode)
{
    constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    const int descriptor = open(path, flags, mode);
    if (descriptor < 0) {
        return owned_file();
    }
    owned_file file = _make_stream(descriptor, O_WRONLY);
    if (!file) {
        (void)unlink(path);
    }
    return file;
}

// Null, without touching errno, when the path leads anywhere else than to /dev/full.
static owned_file _open_full_device(const char *path)
{
    const int error = errno;
    owned_file file;
    struct stat status = {};
    if (stat(path, &status) == 0 && S_ISCHR(status.st_mode) && status.st_rdev == full_device) {
        file = _make_stream(open(path, O_WRONLY | O_CLOEXEC | O_NOCTTY), O_WRONLY);
    }
    errno = error;
    return file;
}

owned_file _vesk_overwrite_plain_file(const char *path)
{
    // The file is emptied last, so that it keeps its content if anything before fails.
    owned_file file = _vesk_open_plain_file(path, O_WRONLY | O_CREAT);
    if (!file) {
        return _open_full_device(path);
    }
    if (ftruncate(fileno(file.get()), 0) != 0) {
        const int error = errno;
        file.reset();
        errno = error;
    }
    return file;
}
