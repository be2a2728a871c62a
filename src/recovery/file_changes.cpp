// Cuts the tail off a buffer file, or writes the buffer anew. The bytes that are taken out are
// synced to FILE.torn before the buffer changes, so no crash loses them. FILE.torn begins anew when
// it would grow beyond one megabyte, so that repeated recoveries cannot fill the disk.
#include "recovery/file_changes.hpp"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vesk/error.h>
#include <vesk/vesk_limits.h>

#include "box/durable_file.hpp"
#include "recovery/recovery_steps.hpp"

static constexpr off_t max_torn_size = 1 << 20;

void _vesk_format_beside(char (&to)[max_filename], const char *path, const char *suffix)
{
    constexpr int longest_path = VESK_MAX_BASE_LENGTH + 64;
    snprintf(to, sizeof to, "%.*s%s", longest_path, path, suffix);
}

int _vesk_check_change(const char *path, bool with_torn, const trusted_owners &owners)
{
    for (const char *suffix : {replacement_suffix, torn_suffix}) {
        char beside[max_filename];
        struct stat status = {};
        _vesk_format_beside(beside, path, suffix);
        const file_presence presence = _vesk_look_at_file(beside, owners, &status);
        if (presence == file_presence::unknown) {
            return QE_ERROR_IO;
        }
        if (presence == file_presence::foreign && (suffix != torn_suffix || with_torn)) {
            return QE_ERROR_OPEN;
        }
    }
    return 0;
}

// Opens FILE.torn behind its end, or makes it anew. Only its owner may read it, because the buffer
// may not have been readable for everybody.
static owned_file _open_torn(const char *torn_path, const char *path, std::size_t n, bool *is_new)
{
    struct stat status = {};
    const bool there = _vesk_look_at_name(torn_path, &status);
    if (!there && !_vesk_means_absent(errno)) {
        return owned_file();
    }
    *is_new = !there || status.st_size + static_cast<off_t>(n) > max_torn_size;
    if (!*is_new) {
        return _vesk_open_plain_file(torn_path, O_WRONLY | O_APPEND);
    }
    if (there && (!S_ISREG(status.st_mode) || unlink(torn_path) != 0)) {
        return owned_file();
    }
    constexpr mode_t private_mode = 0600;
    owned_file file = _vesk_create_plain_file(torn_path, private_mode);
    struct stat original = {};
    if (file && _vesk_look_at_name(path, &original)) {
        _vesk_take_owner(file.get(), original, private_mode);
    }
    return file;
}

static int _keep_torn(const char *path, const byte_list &torn)
{
    if (torn.size() == 0) {
        return 0;
    }
    char torn_path[max_filename];
    _vesk_format_beside(torn_path, path, torn_suffix);
    bool is_new = false;
    const owned_file file = _open_torn(torn_path, path, torn.size(), &is_new);
    if (!file) {
        return QE_ERROR_OPEN;
    }
    if (fwrite(torn.begin(), 1, torn.size(), file.get()) != torn.size()) {
        return QE_ERROR_IO;
    }
    const int synced = _vesk_sync_file(file.get());
    return synced != 0 || !is_new ? synced : _vesk_sync_folder(torn_path);
}

static int _read_from(FILE *file, uint64_t offset, byte_list *bytes)
{
    constexpr std::size_t piece = 65536;
    if (fseeko(file, static_cast<off_t>(offset), SEEK_SET) != 0) {
        return QE_ERROR_IO;
    }
    for (;;) {
        unsigned char *room = bytes->reserve(piece);
        if (room == nullptr) {
            return QE_ERROR_NO_MEMORY;
        }
        const std::size_t n = _vesk_read_some(file, room, piece);
        bytes->add(n);
        if (n < piece) {
            return ferror(file) != 0 ? QE_ERROR_IO : 0;
        }
    }
}

int _vesk_cut_file(const char *path, uint64_t offset)
{
    const owned_file file = _vesk_open_plain_file(path, O_RDWR);
    if (!file) {
        return QE_ERROR_OPEN;
    }
    byte_list torn;
    int result = _read_from(file.get(), offset, &torn);
    if (result == 0) {
        result = _keep_torn(path, torn);
    }
    if (result != 0) {
        return result;
    }
    return ftruncate(fileno(file.get()), static_cast<off_t>(offset)) == 0
               ? _vesk_sync_file(file.get())
               : QE_ERROR_IO;
}

int _vesk_rewrite_buffer(const char *path, const char *like, const buffer_expectation &expected)
{
    replacement_file replacement;
    int result = replacement.open(path, like);
    if (result != 0) {
        return result;
    }
    mended_file mended;
    mended.buffer = replacement.file();
    buffer_contents contents;
    result = _vesk_mend_buffer(path, expected, {ignore_step, nullptr}, &mended, &contents);
    if (result == 0) {
        result = _keep_torn(path, mended.torn);
    }
    return result == 0 ? replacement.commit() : result;
}
