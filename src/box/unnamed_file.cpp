// Makes files without a name with O_TMPFILE, and in memory with memfd_create(), and names them: the
// first by a link, the others by copying them into a new file. A path goes in, a stream comes out.
#include "box/unnamed_file.hpp"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vesk/error.h>

#include "box/box_files.hpp"
#include "box/plain_file.hpp"

// What a new file may be at most; the umask of the process takes its part away.
static constexpr mode_t usual_mode = 0666;

static owned_file _make_stream(int descriptor)
{
    owned_file file(descriptor < 0 ? nullptr : fdopen(descriptor, "w"));
    if (!file && descriptor >= 0) {
        const int error = errno;
        (void)close(descriptor);
        errno = error;
    }
    return file;
}

owned_file _vesk_create_unnamed_file(const char *path)
{
    const auto length = static_cast<int>(_vesk_folder_length(path));
    char folder[max_filename];
    if (snprintf(folder, sizeof folder, "%.*s", length > 0 ? length : 1, length > 0 ? path : ".") >=
        static_cast<int>(sizeof folder)) {
        errno = ENAMETOOLONG;
        return owned_file();
    }
    return _make_stream(open(folder, O_TMPFILE | O_WRONLY | O_CLOEXEC, usual_mode));
}

owned_file _vesk_create_file_in_memory(const char *)
{
    return _make_stream(memfd_create("vesk", MFD_CLOEXEC));
}

static int _link(int descriptor, const char *path)
{
    char from[sizeof "/proc/self/fd/" + 3 * sizeof descriptor];
    snprintf(from, sizeof from, "/proc/self/fd/%d", descriptor);
    return linkat(AT_FDCWD, from, AT_FDCWD, path, AT_SYMLINK_FOLLOW);
}

// Copies all of `from` to `to`.
static int _copy_content(int from, int to)
{
    struct stat status = {};
    if (fstat(from, &status) != 0) {
        return QE_ERROR_IO;
    }
    off_t done = 0;
    while (done < status.st_size) {
        const ssize_t n = sendfile(to, from, &done, static_cast<size_t>(status.st_size - done));
        if (n == 0 || (n < 0 && errno != EINTR)) {
            return QE_ERROR_IO;
        }
    }
    return 0;
}

static int _copy(int descriptor, const char *path)
{
    const owned_file file = _vesk_create_plain_file(path, usual_mode);
    if (!file) {
        return QE_ERROR_IO;
    }
    const int result = _copy_content(descriptor, fileno(file.get()));
    if (result < 0) {
        (void)unlink(path);
        return result;
    }
    // As far as it can be done now: the next sync of the box tells when it cannot.
    (void)fdatasync(fileno(file.get()));
    return 0;
}

int _vesk_name_file(FILE *file, const char *path)
{
    const int descriptor = fileno(file);
    if (_link(descriptor, path) == 0) {
        return 0;
    }
    // Memory is no file system that the folder could be a part of.
    return errno == EXDEV ? _copy(descriptor, path) : static_cast<int>(QE_ERROR_IO);
}
