// Gives the buffers of a box low numbers when their numbers near the end of the 32 bits. Every file
// gets its new name as a hard link, so that the old state file stays valid until the new one is
// written. On a file system without hard links the files are renamed one by one, oldest first;
// their order alone then tells the box after a crash.
#include "recovery/box_renaming.hpp"

#include <cerrno>
#include <cstdio>
#include <unistd.h>

#include <vesk/error.h>

#include "box/durable_file.hpp"
#include "recovery/file_changes.hpp"
#include "recovery/file_numbers.hpp"

// Whether the file system knows one name only for each file. The order of the numbers tells the
// box then, whenever this ends.
static bool _lacks_links()
{
    return errno == EPERM || errno == EOPNOTSUPP || errno == ENOSYS || errno == EMLINK;
}

int box_renaming::renumber(const arrangement &box, arrangement *names, uint32_t *next_file_number)
{
    number_list taken;
    bool listed = survey_.list_numbers(&taken);
    for (uint32_t i = 0; i < box.n; ++i) {
        listed = listed && taken.append(box.names[i].number);
    }
    if (!listed) {
        return QE_ERROR_NO_MEMORY;
    }
    constexpr uint64_t rooms[] = {uint64_t(1) << 28, uint64_t(1) << 21, 1 << 12, 1 << 4};
    uint32_t first = 0;
    for (const uint64_t room : rooms) {
        first = first != 0 ? first : _vesk_find_free_numbers(&taken, 1, room);
    }
    if (first == 0) {
        return QE_ERROR_LIMIT;
    }
    *next_file_number = first + box.n;
    // A history is older than the open buffer and younger than the full one.
    const bool with_history = box.stage == VESK_ZCF_STATE_HCC;
    int result = 0;
    for (uint32_t i = 0; i < box.n && result == 0; ++i) {
        const uint32_t place = with_history && i < 2 ? 1 - i : i;
        names->names[place].number = first + i;
        result = give_name(box.names[place], names->names[place]);
    }
    return result != 0 || !execute_ ? result : _vesk_sync_folder(survey_.state_path());
}

int box_renaming::give_name(const buffer_name &old, const buffer_name &name)
{
    char from[max_filename];
    char to[max_filename];
    format_name(from, old);
    format_name(to, name);
    const int told = steps_->tell_file(VESK_RECOVER_RENAME, from, 0, 0);
    if (told != 0 || !execute_) {
        return told;
    }
    if (link(from, to) != 0 && (!_lacks_links() || rename(from, to) != 0)) {
        return QE_ERROR_IO;
    }
    format_name(from, old, torn_suffix);
    format_name(to, name, torn_suffix);
    return link(from, to) == 0 || errno == ENOENT || errno == EEXIST ||
                   (_lacks_links() && rename(from, to) == 0)
               ? 0
               : QE_ERROR_IO;
}

int box_renaming::remove_old_names(const arrangement &box) const
{
    for (uint32_t i = 0; i < box.n; ++i) {
        for (const char *suffix : {"", torn_suffix}) {
            char path[max_filename];
            format_name(path, box.names[i], suffix);
            if (unlink(path) != 0 && errno != ENOENT) {
                return QE_ERROR_IO;
            }
        }
    }
    return 0;
}
