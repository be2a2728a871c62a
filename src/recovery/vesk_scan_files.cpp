// The buffer files of a box: those that its state file names, and those that lie beside it.
//
// In: the base name. Out: each file once, with what it is to the box. Nothing is assumed about the
// state file or the folder; no buffer file is opened.
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <vesk/error.h>
#include <vesk/vesk_buffer.h>
#include <vesk/vesk_limits.h>
#include <vesk/vesk_scan.h>

#include "box/box_files.hpp"
#include "box/plain_file.hpp"
#include "box/stage_places.hpp"
#include "support/precondition.hpp"

namespace
{

// The folder of `path`, which is shorter than a path may be. False when it is not.
bool get_folder(const char *path, char (&folder)[max_filename])
{
    const std::size_t length = _vesk_folder_length(path);
    if (length >= max_filename) {
        return false;
    }
    snprintf(folder, sizeof folder, "%.*s", static_cast<int>(length), length > 0 ? path : "");
    return true;
}

bool goes_up(const char *folder)
{
    for (const char *at = strstr(folder, "../"); at != nullptr; at = strstr(at + 1, "../")) {
        if (at == folder || at[-1] == '/') {
            return true;
        }
    }
    return false;
}

// 1 when a name in a state file is that of a file in the folder of the box: spelt as the base name
// is, or as another path to the same folder that has no ".." in it. 0 when it is not, or
// QE_ERROR_IO (-41). Nothing else is looked at.
int lies_in_box(const char *name, const char *base)
{
    char folder[max_filename];
    char folder_of_box[max_filename];
    const char *last = name + _vesk_folder_length(name);
    if (last[0] == 0 || strcmp(last, ".") == 0 || strcmp(last, "..") == 0 ||
        !get_folder(name, folder) || !get_folder(base, folder_of_box)) {
        return 0;
    }
    if (strcmp(folder, folder_of_box) == 0) {
        return 1;
    }
    return goes_up(folder) ? 0
                           : _vesk_is_same_file(folder[0] != 0 ? folder : ".",
                                                folder_of_box[0] != 0 ? folder_of_box : ".");
}

// 1 when the state file names the file of the box, 0 when it does not, or QE_ERROR_IO (-41).
int is_named(const vesk_state_summary &summary, const char *base, const char *filename)
{
    int found = 0;
    for (uint32_t i = 0; i < summary.num_names && found == 0; ++i) {
        const char *name = summary.names[i];
        found = strcmp(name, filename) == 0 ? 1 : lies_in_box(name, base);
        if (found == 1 && strcmp(name, filename) != 0) {
            found = _vesk_is_same_file(name, filename);
        }
    }
    return found;
}

int show_file(const char *filename, const buffer_name &name, vesk_scan_role role, bool may_look,
              int (*visit)(const vesk_scan_file *file, void *context), void *context)
{
    struct stat status = {};
    const bool there = may_look && _vesk_look_at_name(filename, &status);
    if (may_look && !there && !_vesk_means_absent(errno)) {
        return QE_ERROR_IO;
    }
    vesk_scan_file file = {};
    file.filename = filename;
    file.buffer_kind = name.kind;
    file.number = name.number;
    file.role = role;
    file.missing = there ? 0 : 1;
    file.foreign = there && !S_ISREG(status.st_mode) ? 1 : 0;
    file.size = file.foreign == 0 ? static_cast<uint64_t>(status.st_size) : 0;
    return visit(&file, context);
}

// The role of a file in the box, by its place among the names of the state file.
vesk_scan_role role_of(const vesk_state_summary &summary, uint32_t i)
{
    if (i + 1 == places_of_stage(summary.state).n) {
        return VESK_SCAN_OPEN;
    }
    return i == 0 && summary.state == VESK_ZCF_STATE_HCC ? VESK_SCAN_HISTORY : VESK_SCAN_FULL;
}

} // namespace

int vesk_scan_files(const char *filename, int (*visit)(const vesk_scan_file *file, void *context),
                    void *context)
{
    VESK_REQUIRE(filename != nullptr, "filename != ((void *)0)");
    VESK_REQUIRE(visit != nullptr, "visit != ((void *)0)");
    char state_filename[max_filename];
    if (snprintf(state_filename, sizeof state_filename, "%s.state", filename) >=
        static_cast<int>(sizeof state_filename)) {
        return QE_ERROR_LIMIT;
    }
    vesk_state_summary summary;
    buffer_names found;
    int result = vesk_scan_state(state_filename, &summary) == QE_ERROR_NO_MEMORY
                     ? QE_ERROR_NO_MEMORY
                     : _vesk_list_buffer_names(filename, "", &found);
    for (uint32_t i = 0; i < summary.num_names && result == 0; ++i) {
        const vesk_scan_role role = role_of(summary, i);
        buffer_name name;
        if (!_vesk_parse_buffer_name(summary.names[i], summary.filename, &name)) {
            name.kind =
                role == VESK_SCAN_HISTORY ? VESK_BUFFER_TYPE_HIST : VESK_BUFFER_TYPE_CURRENT;
        }
        const int in_box = lies_in_box(summary.names[i], filename);
        result = in_box < 0 ? in_box
                            : show_file(summary.names[i], name, role, in_box == 1, visit, context);
    }
    char path[max_filename];
    for (const buffer_name &name : found) {
        if (result != 0 || !_vesk_format_buffer_name(path, filename, name)) {
            continue;
        }
        const int named = is_named(summary, filename, path);
        result = named < 0    ? named
                 : named == 0 ? show_file(path, name, VESK_SCAN_ORPHAN, true, visit, context)
                              : 0;
    }
    vesk_state_summary_destruct(&summary);
    return result;
}
