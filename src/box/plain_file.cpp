// Whose the files in the folder of a box are, see plain_file.hpp.
#include "box/plain_file.hpp"

#include <cerrno>
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
