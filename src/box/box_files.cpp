// Converts between the names of buffer files and their kind and number, and lists the buffer files
// of a box. A name counts only if it is exactly what the formatting function writes, so "01" or a
// number beyond 32 bits is never taken for a buffer. The folder is only listed here: no file is
// opened.
#include "box/box_files.hpp"

#include <algorithm>
#include <dirent.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <vesk/error.h>
#include <vesk/vesk_buffer.h>

#include "box/plain_file.hpp"

bool _vesk_format_buffer_name(char (&path)[max_filename], const char *base, const buffer_name &name,
                              const char *suffix)
{
    const char *kind = name.kind == VESK_BUFFER_TYPE_CURRENT ? "cbuf" : "hbuf";
    const int length =
        snprintf(path, max_filename, "%s.%u.%s.z%s", base, name.number, kind, suffix);
    return length >= 0 && static_cast<std::size_t>(length) < max_filename;
}

bool _vesk_parse_buffer_name(const char *path, const char *base, buffer_name *name,
                             const char *suffix)
{
    const std::size_t length = strlen(base);
    if (strncmp(path, base, length) != 0 ||
        sscanf(path + length, ".%u.", &name->number) != 1) { // NOLINT(cert-err34-c): compared below
        return false;
    }
    char canonical[max_filename];
    for (const uint32_t kind : {VESK_BUFFER_TYPE_CURRENT, VESK_BUFFER_TYPE_HIST}) {
        name->kind = kind;
        if (_vesk_format_buffer_name(canonical, base, *name, suffix) &&
            strcmp(path, canonical) == 0) {
            return true;
        }
    }
    return false;
}

std::size_t _vesk_folder_length(const char *path)
{
    const char *slash = strrchr(path, '/');
    return slash == nullptr ? 0 : static_cast<std::size_t>(slash - path) + 1;
}

static void _close_folder(DIR *folder)
{
    (void)closedir(folder);
}

static bool _comes_before(const buffer_name &a, const buffer_name &b)
{
    return a.number != b.number ? a.number < b.number : a.kind < b.kind;
}

int _vesk_list_buffer_names(const char *base, const char *suffix, buffer_names *names)
{
    const std::size_t folder_length = _vesk_folder_length(base);
    char path[max_filename];
    if (snprintf(path, sizeof path, "%.*s", static_cast<int>(folder_length), base) >=
        static_cast<int>(sizeof path)) {
        return QE_ERROR_OPEN;
    }
    const owner<DIR, _close_folder> folder(opendir(folder_length == 0 ? "." : path));
    if (!folder) {
        return errno == ENOENT ? QE_ERROR_OPEN : QE_ERROR_IO;
    }
    for (;;) {
        errno = 0;
        const dirent *entry = readdir(folder.get());
        if (entry == nullptr) {
            break;
        }
        const std::size_t left = sizeof path - folder_length;
        buffer_name name;
        if (snprintf(path + folder_length, left, "%s", entry->d_name) < static_cast<int>(left) &&
            _vesk_parse_buffer_name(path, base, &name, suffix) && !names->append(name)) {
            return QE_ERROR_NO_MEMORY;
        }
    }
    // readdir() returns null both for an error and at the end of the folder; only errno tells them
    // apart.
    if (errno != 0) {
        return QE_ERROR_IO;
    }
    std::sort(names->begin(), names->end(), _comes_before);
    return 0;
}

// 1 when the path leads to something, 0 when it does not, QE_ERROR_IO (-41) when that cannot be
// told.
static int _follow(const char *path, struct stat *status)
{
    int result = 0;
    do {
        result = stat(path, status);
    } while (result != 0 && errno == EINTR);
    if (result == 0) {
        return 1;
    }
    return _vesk_means_absent(errno) || errno == ELOOP || errno == EACCES ? 0 : QE_ERROR_IO;
}

int _vesk_is_same_file(const char *path, const char *other)
{
    struct stat a = {};
    struct stat b = {};
    int found = _follow(path, &a);
    if (found == 1) {
        found = _follow(other, &b);
    }
    return found != 1 ? found : a.st_dev == b.st_dev && a.st_ino == b.st_ino ? 1 : 0;
}
