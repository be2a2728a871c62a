// Looks for the state file, its copy and the buffers of a box. A file that cannot be looked at is
// not treated as absent, because the caller would then make a new box over an existing one.

#include "box/box_presence.hpp"

#include <errno.h>
#include <stdio.h>
#include <sys/stat.h>

#include <vesk/error.h>

#include "box/box_files.hpp"
#include "box/durable_file.hpp"
#include "box/plain_file.hpp"

// 1 when there is something of this name, be it a link that leads nowhere, 0 when there is not.
static int _find_file(const char *path)
{
    struct stat status = {};
    if (_vesk_look_at_name(path, &status)) {
        return 1;
    }
    return errno == ENOENT ? 0 : QE_ERROR_OPEN;
}

int _vesk_find_box(const char *base)
{
    for (const char *suffix : {"", backup_suffix}) {
        char path[max_filename];
        const int length = snprintf(path, sizeof path, "%s.state%s", base, suffix);
        if (length < 0 || length >= static_cast<int>(sizeof path)) {
            return QE_ERROR_LIMIT;
        }
        const int found = _find_file(path);
        if (found != 0) {
            return found;
        }
    }
    buffer_names names;
    const int listed = _vesk_list_buffer_names(base, "", &names);
    if (listed < 0) {
        return listed;
    }
    return names.size() > 0 ? 1 : 0;
}
