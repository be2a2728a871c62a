// Opening files without following anything, see plain_file.hpp.
#include "box/plain_file.hpp"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "box/box_files.hpp"

trusted_owners::trusted_owners(const char *base) : folder_owner_(geteuid())
{
    const auto length = static_cast<int>(_vesk_folder_length(base));
    char folder[max_filename];
    struct stat status = {};
    if (snprintf(folder, sizeof folder, "%.*s", length, length > 0 ? base : ".") <
            static_cast<int>(sizeof folder) &&
        stat(length > 0 ? folder : ".", &status) == 0) {
        folder_owner_ = status.st_uid;
    }
}

bool trusted_owners::trusts(uid_t user) const
{
    return user == folder_owner_ || user == geteuid() || user == 0;
}

file_presence _vesk_look_at_file(const char *path, const trusted_owners &owners,
                                 struct stat *status)
{
    if (lstat(path, status) != 0) {
        return errno == ENOENT ? file_presence::missing : file_presence::unknown;
    }
    return S_ISREG(status->st_mode) && owners.trusts(status->st_uid) ? file_presence::plain
                                                                     : file_presence::foreign;
}

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

owned_file _vesk_open_plain_file(const char *path, int flags, link_rule rule)
{
    const int no_link = rule == link_rule::refuse ? O_NOFOLLOW : 0;
    // A FIFO without a writer would be waited for, but for O_NONBLOCK; regular files know no wait.
    const int descriptor = open(path, flags | no_link | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0) {
        return owned_file();
    }
    struct stat status = {};
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        const bool is_folder = S_ISDIR(status.st_mode);
        (void)close(descriptor);
        errno = is_folder ? EISDIR : EINVAL;
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

void _vesk_take_owner(FILE *file, const struct stat &status, mode_t mode)
{
    const int descriptor = fileno(file);
    struct stat own = {};
    if (fstat(descriptor, &own) != 0) {
        return;
    }
    const bool same = own.st_uid == status.st_uid && own.st_gid == status.st_gid;
    // Only root gives files away; the group alone may be one of ours.
    if (!same && fchown(descriptor, status.st_uid, status.st_gid) != 0) {
        (void)!fchown(descriptor, static_cast<uid_t>(-1), status.st_gid);
    }
    (void)fchmod(descriptor, mode & 0777);
}
