// Replaces a file as a whole. The caller writes the new content to FILE.new; commit() syncs it,
// renames it over FILE and syncs the folder, so a crash leaves either the old file or the new one.
// A replacement that is not committed is removed. The new file keeps the owner and the permissions
// of the old one as far as the process may set them.
#include "box/durable_file.hpp"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vesk/error.h>

#include "box/plain_file.hpp"

int _vesk_sync_file(FILE *file)
{
    return fflush(file) == 0 && fsync(fileno(file)) == 0 ? 0 : QE_ERROR_IO;
}

int _vesk_sync_folder(const char *path)
{
    const auto length = static_cast<int>(_vesk_folder_length(path));
    char folder[max_filename];
    if (snprintf(folder, sizeof folder, "%.*s", length, length > 0 ? path : ".") >=
        static_cast<int>(sizeof folder)) {
        return QE_ERROR_IO;
    }
    const int descriptor = open(length > 0 ? folder : ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) {
        return QE_ERROR_IO;
    }
    const int result = fsync(descriptor);
    (void)close(descriptor);
    return result == 0 ? 0 : QE_ERROR_IO;
}

replacement_file::~replacement_file()
{
    if (file_) {
        (void)unlink(path_);
    }
}

// The file whose owner a new file gets: `like`, or the folder of `target`.
static bool _find_owner(const char *target, const char *like, struct stat *status)
{
    if (like != nullptr && _vesk_look_at_name(like, status) && S_ISREG(status->st_mode)) {
        return true;
    }
    const auto length = static_cast<int>(_vesk_folder_length(target));
    char folder[max_filename];
    snprintf(folder, sizeof folder, "%.*s", length > 0 ? length : 1, length > 0 ? target : ".");
    return stat(folder, status) == 0;
}

int replacement_file::open(const char *target, const char *like)
{
    const int length = snprintf(target_, sizeof target_, "%s", target);
    const int path_length = snprintf(path_, sizeof path_, "%s%s", target, replacement_suffix);
    if (length < 0 || path_length >= static_cast<int>(sizeof path_)) {
        return QE_ERROR_LIMIT;
    }
    struct stat status = {};
    const bool left_behind = _vesk_look_at_name(path_, &status);
    if (!left_behind && !_vesk_means_absent(errno)) {
        return QE_ERROR_IO;
    }
    if (left_behind && !S_ISREG(status.st_mode)) {
        return QE_ERROR_OPEN;
    }
    if (left_behind && unlink(path_) != 0) {
        return QE_ERROR_IO;
    }
    constexpr mode_t usual_mode = 0666;
    const bool there = _vesk_look_at_name(target_, &status);
    if (!there && !_vesk_means_absent(errno)) {
        // If its permissions are unknown, the new file might become readable for everybody.
        return QE_ERROR_IO;
    }
    const bool known = there && S_ISREG(status.st_mode);
    file_ = _vesk_create_plain_file(path_, known ? status.st_mode & 0777 : usual_mode);
    if (!file_) {
        return QE_ERROR_OPEN;
    }
    if (known) {
        _vesk_take_owner(file_.get(), status, status.st_mode);
    } else if (geteuid() == 0 && _find_owner(target_, like, &status)) {
        struct stat own = {};
        (void)fstat(fileno(file_.get()), &own);
        _vesk_take_owner(file_.get(), status, own.st_mode);
    }
    return 0;
}

int replacement_file::commit()
{
    if (_vesk_sync_file(file_.get()) < 0 || rename(path_, target_) != 0) {
        return QE_ERROR_IO;
    }
    file_.reset();
    return _vesk_sync_folder(target_);
}
