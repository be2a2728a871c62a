// Decides whether a name in the folder of a box is a regular file that a trusted user owns, and
// reads such files. Errors that do not prove that a name is absent are reported as unknown, so that
// no caller deletes or overwrites a file that it merely could not look at.
#include "box/plain_file.hpp"

#include <cerrno>
#include <unistd.h>

#include "box/box_files.hpp"

trusted_owners::trusted_owners(const char *base) : folder_owner_(geteuid())
{
    const auto length = static_cast<int>(_vesk_folder_length(base));
    char folder[max_filename];
    struct stat status = {};
    if (snprintf(folder, sizeof folder, "%.*s", length, length > 0 ? base : ".") >=
        static_cast<int>(sizeof folder)) {
        return;
    }
    int looked = 0;
    do {
        looked = stat(length > 0 ? folder : ".", &status);
    } while (looked != 0 && errno == EINTR);
    known_ = looked == 0 || _vesk_means_absent(errno);
    if (looked == 0) {
        folder_owner_ = status.st_uid;
    }
}

bool trusted_owners::trusts(uid_t user) const
{
    return user == folder_owner_ || user == geteuid() || user == 0;
}

// A name that is too long for any file, or below something that is no folder, is in no folder.
bool _vesk_means_absent(int error)
{
    return error == ENOENT || error == ENOTDIR || error == ENAMETOOLONG;
}

bool _vesk_look_at_name(const char *path, struct stat *status)
{
    int result = 0;
    do {
        result = lstat(path, status);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

std::size_t _vesk_read_some(FILE *file, void *to, std::size_t n)
{
    auto *at = static_cast<unsigned char *>(to);
    std::size_t done = 0;
    for (;;) {
        done += fread(at + done, 1, n - done, file);
        if (done == n || ferror(file) == 0 || errno != EINTR) {
            return done;
        }
        clearerr(file);
    }
}

file_presence _vesk_look_at_file(const char *path, const trusted_owners &owners,
                                 struct stat *status)
{
    if (!_vesk_look_at_name(path, status)) {
        return _vesk_means_absent(errno) ? file_presence::missing : file_presence::unknown;
    }
    return S_ISREG(status->st_mode) && owners.trusts(status->st_uid) ? file_presence::plain
                                                                     : file_presence::foreign;
}

void _vesk_take_owner(FILE *file, const struct stat &status, mode_t mode)
{
    const int descriptor = fileno(file);
    struct stat own = {};
    if (fstat(descriptor, &own) != 0) {
        return;
    }
    const bool same = own.st_uid == status.st_uid && own.st_gid == status.st_gid;
    // Only root may give files away. Other users may at least set a group that they belong to.
    if (!same && fchown(descriptor, status.st_uid, status.st_gid) != 0) {
        (void)!fchown(descriptor, static_cast<uid_t>(-1), status.st_gid);
    }
    (void)fchmod(descriptor, mode & 0777);
}
