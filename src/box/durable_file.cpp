#include "box/durable_file.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <vesk/error.h>

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

int replacement_file::open(const char *target)
{
    const int length = snprintf(target_, sizeof target_, "%s", target);
    const int path_length = snprintf(path_, sizeof path_, "%s%s", target, replacement_suffix);
    if (length < 0 || path_length >= static_cast<int>(sizeof path_)) {
        return QE_ERROR_LIMIT;
    }
    file_.reset(fopen(path_, "w"));
    return file_ ? 0 : QE_ERROR_OPEN;
}

int replacement_file::commit()
{
    if (_vesk_sync_file(file_.get()) < 0 || rename(path_, target_) != 0) {
        return QE_ERROR_IO;
    }
    file_.reset();
    return _vesk_sync_folder(target_);
}
