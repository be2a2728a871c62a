// Deletes or reports the files that do not belong to a recovered box: old buffers, unfinished .new
// files and the .torn files of deleted buffers. A buffer is deleted only if the box holds
// everything in it; all others are reported and kept. It may be assumed that the new state file is
// on the medium before anything is deleted.
#include "recovery/leftovers.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <vesk/error.h>

#include "box/durable_file.hpp"
#include "recovery/file_changes.hpp"

int leftovers::judge(const arrangement &box)
{
    box_ = box;
    return coverage_.gather(survey_.files(), box, true) ? 0 : QE_ERROR_NO_MEMORY;
}

bool leftovers::list_kept_numbers(number_list *numbers) const
{
    for (const box_file *file : survey_.files()) {
        if (!file->placed && !goes(*file) && !numbers->append(file->name.number)) {
            return false;
        }
    }
    return std::all_of(survey_.foreign().begin(), survey_.foreign().end(),
                       [&](const buffer_name &name) { return numbers->append(name.number); });
}

bool leftovers::stays(const buffer_name &name, const arrangement &now) const
{
    const box_file *file = survey_.files().find(name);
    return now.has(name) || box_.has(name) || (file != nullptr && !goes(*file));
}

int leftovers::keep(const char *path, int error)
{
    ++steps_->report()->files_kept;
    return steps_->tell_file(VESK_RECOVER_KEEP, path, 0, error);
}

int leftovers::remove(const char *path)
{
    struct stat status = {};
    (void)_vesk_look_at_name(path, &status);
    const int told =
        steps_->tell_file(VESK_RECOVER_DELETE, path, static_cast<uint64_t>(status.st_size), 0);
    if (told != 0 || !execute_) {
        return told;
    }
    return unlink(path) == 0 ? 0 : QE_ERROR_IO;
}

int leftovers::clear_file(const box_file &file)
{
    char path[max_filename];
    _vesk_format_buffer_name(path, survey_.base(), file.name);
    if (!goes(file)) {
        return keep(path, 0);
    }
    ++steps_->report()->files_deleted;
    return remove(path);
}

// Removes a file that a recovery made. A foreign file in its place is reported and kept.
int leftovers::clear_path(const char *path)
{
    struct stat status = {};
    switch (_vesk_look_at_file(path, survey_.owners(), &status)) {
    case file_presence::missing:
        return 0;
    case file_presence::plain:
        return remove(path);
    case file_presence::foreign:
        return keep(path, QE_ERROR_WRONG_KIND);
    default:
        return QE_ERROR_IO;
    }
}

int leftovers::clear_unfinished()
{
    int result = 0;
    for (const char *path : {survey_.state_path(), survey_.copy_path()}) {
        char unfinished[max_filename];
        _vesk_format_beside(unfinished, path, replacement_suffix);
        if (result == 0) {
            result = clear_path(unfinished);
        }
    }
    return result == 0 ? clear_beside(replacement_suffix, nullptr) : result;
}

// The files with a suffix behind the name of a buffer. With `spared`, the files of buffers that
// stay are kept in silence; foreign ones among them are reported.
int leftovers::clear_beside(const char *suffix, const arrangement *spared)
{
    buffer_names names;
    int result = _vesk_list_buffer_names(survey_.base(), suffix, &names);
    for (const buffer_name &name : names) {
        char path[max_filename];
        struct stat status = {};
        if (result != 0 || !_vesk_format_buffer_name(path, survey_.base(), name, suffix)) {
            continue;
        }
        const bool is_spared =
            spared != nullptr && stays(name, *spared) &&
            _vesk_look_at_file(path, survey_.owners(), &status) == file_presence::plain;
        result = is_spared ? 0 : clear_path(path);
    }
    return result;
}

int leftovers::clear_up(const arrangement &now)
{
    int result = 0;
    for (const box_file *file : survey_.files()) {
        if (!file->placed && result == 0) {
            result = clear_file(*file);
        }
    }
    for (const buffer_name &name : survey_.foreign()) {
        char path[max_filename];
        _vesk_format_buffer_name(path, survey_.base(), name);
        if (result == 0) {
            result = keep(path, QE_ERROR_WRONG_KIND);
        }
    }
    if (result == 0 && survey_.copy_is_foreign()) {
        result = keep(survey_.copy_path(), QE_ERROR_WRONG_KIND);
    }
    if (result == 0) {
        result = clear_unfinished();
    }
    return result == 0 ? clear_beside(torn_suffix, &now) : result;
}
