// Makes a box survive a loss of power: syncs its files, keeps a copy of its state file, and then
// deletes the files that the history has replaced.

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <vesk/error.h>
#include <vesk/vesk.h>

#include "box/durable_file.hpp"
#include "box/stage_places.hpp"
#include "box/state_file.hpp"
#include "io/plain_open.hpp"
#include "recorder/recorder.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

static int _sync_stream(FILE *file)
{
    return fdatasync(fileno(file)) == 0 ? 0 : QE_ERROR_IO;
}

static int _sync_file(const char *filename)
{
    const owned_file file = _vesk_open_plain_file(filename, O_RDONLY);
    return file ? _sync_stream(file.get()) : QE_ERROR_OPEN;
}

// The full buffers are synced each time: they were written to since the last call if the recorder
// has moved on, and those that were not cost nothing.
static int _sync_full_buffers(const stage_buffers &buffers, uint32_t num_full)
{
    for (uint32_t i = 0; i < num_full; ++i) {
        const int result = _sync_file(buffers.full[i]);
        if (result < 0) {
            return result;
        }
    }
    return 0;
}

int vesk_sync(const vesk *recorder)
{
    VESK_REQUIRE(recorder != nullptr, "vesk != ((void *)0)");
    VESK_REQUIRE(recorder->version == 1, "vesk->version == ((char) 1)");
    // The stage may be older than the state says: after a failed transition its buffers are still
    // those of the box.
    const uint32_t type = stage_type(recorder);
    const stage_buffers buffers = _vesk_stage_buffers(recorder, type);
    int result = _sync_full_buffers(buffers, num_full_places(type));
    if (result == 0) {
        const vesk_current_buffer *cbuf = buffers.open;
        VESK_REQUIRE(cbuf != nullptr, "cbuf != ((void *)0)");
        result = _sync_stream(cbuf->file);
    }
    // The state file names the buffers, so it comes after them.
    if (result == 0) {
        result = _sync_file(recorder->state_filename);
    }
    return result < 0 ? result : _vesk_sync_folder(recorder->state_filename);
}

int vesk_backup_state(const vesk *recorder)
{
    VESK_REQUIRE(recorder != nullptr, "vesk != ((void *)0)");
    VESK_REQUIRE(recorder->version == 1, "vesk->version == ((char) 1)");
    char filename[max_filename];
    const int length =
        snprintf(filename, sizeof filename, "%s%s", recorder->state_filename, backup_suffix);
    if (length < 0 || length >= static_cast<int>(sizeof filename)) {
        return QE_ERROR_LIMIT;
    }
    // The state of a failed transition does not fit the files.
    if (stage_type(recorder) != recorder->state) {
        return QE_ERROR_MALFORMED;
    }
    replacement_file file;
    const int opened = file.open(filename);
    if (opened < 0) {
        return opened;
    }
    // Writing the names of the stage reports no failure, so all memory is reserved before.
    constexpr std::size_t most_bytes = 65536;
    byte_list bytes;
    if (bytes.reserve(most_bytes) == nullptr) {
        return QE_ERROR_NO_MEMORY;
    }
    byte_list_writer target(&bytes);
    const int written = binary_serializer_write_vesk(recorder, target.get());
    if (written < 0) {
        return written;
    }
    if (!_vesk_append_copy_checksum(&bytes)) {
        return QE_ERROR_NO_MEMORY;
    }
    if (fwrite(bytes.begin(), 1, bytes.size(), file.file()) != bytes.size()) {
        return QE_ERROR_IO;
    }
    return file.commit();
}

int _vesk_save_if_due(const vesk *recorder)
{
    recorder_safety *safety = safety_of(recorder);
    if (safety == nullptr || !safety->save_due) {
        return 0;
    }
    const int saved = _vesk_save(recorder);
    safety->save_due = saved < 0;
    return saved;
}

int _vesk_drop_consumed(const vesk *recorder)
{
    recorder_safety *safety = safety_of(recorder);
    int result = 0;
    for (uint32_t i = 0; i < safety->num_consumed; ++i) {
        if (unlink(safety->consumed[i]) != 0 && errno != ENOENT) {
            result = QE_ERROR_IO;
        }
    }
    safety->num_consumed = 0;
    return result;
}

int vesk_settle(const vesk *recorder)
{
    VESK_REQUIRE(recorder != nullptr, "vesk != ((void *)0)");
    VESK_REQUIRE(recorder->version == 1, "vesk->version == ((char) 1)");
    recorder_safety *safety = safety_of(recorder);
    if (safety != nullptr && !safety->settle_due) {
        return 0;
    }
    int result = safety == nullptr ? 0 : _vesk_save_if_due(recorder);
    if (result == 0) {
        result = vesk_sync(recorder);
    }
    if (result == 0) {
        result = vesk_backup_state(recorder);
    }
    if (result < 0 || safety == nullptr) {
        return result;
    }
    safety->settle_due = false;
    return _vesk_drop_consumed(recorder);
}
