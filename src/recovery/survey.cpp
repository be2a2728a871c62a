// Looking at a box, see survey.hpp.
#include "recovery/survey.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fcntl.h>

#include <vesk/error.h>

#include "box/durable_file.hpp"
#include "recovery/recovery_steps.hpp"

// --- the state file ----------------------------------------------------------------------------

std::size_t state_summary::form_size() const
{
    if (summary_.error != 0) {
        return 0;
    }
    constexpr std::size_t integer = 4;
    std::size_t size = 2 + 5 * integer; // two versions, the counts
    for (const char *text : {summary_.filename, summary_.state_filename}) {
        size += integer + strlen(text);
    }
    for (uint32_t i = 0; i < summary_.num_names; ++i) {
        size += integer + strlen(summary_.names[i]);
    }
    return size;
}

recorder_sizes state_summary::told_sizes() const
{
    constexpr uint32_t fields_up_to_sizes = 5;
    const recorder_sizes told = {summary_.num_cb_samples, summary_.num_hb_intervals};
    const bool contradicted =
        summary_.fields > fields_up_to_sizes &&
        (!told.usable() || summary_.num_samples_per_interval != told.samples / told.intervals);
    return summary_.fields < fields_up_to_sizes || contradicted ? recorder_sizes() : told;
}

int box_survey::look_at_state()
{
    struct stat status = {};
    const file_presence presence = _vesk_look_at_file(state_path_, owners_, &status);
    state_is_foreign_ = presence == file_presence::foreign;
    if (presence == file_presence::unknown) {
        return QE_ERROR_IO;
    }
    if (presence != file_presence::plain) {
        state_.set_missing();
        return 0;
    }
    const int scanned = state_.scan(state_path_);
    if (scanned == QE_ERROR_NO_MEMORY) {
        return scanned;
    }
    // It was there a moment ago: no descriptor is left, or it must not be read.
    return scanned == QE_ERROR_OPEN || scanned == QE_ERROR_IO ? QE_ERROR_IO : 0;
}

// All of a short file. 0, -41, or -22 without memory.
static int _read_all(const char *path, byte_list *bytes)
{
    constexpr std::size_t piece = 4096;
    constexpr std::size_t most = 1 << 20;
    const owned_file file = _vesk_open_plain_file(path, O_RDONLY);
    if (!file) {
        return QE_ERROR_IO;
    }
    while (bytes->size() < most) {
        unsigned char *room = bytes->reserve(piece);
        if (room == nullptr) {
            return QE_ERROR_NO_MEMORY;
        }
        const std::size_t n = fread(room, 1, piece, file.get());
        bytes->add(n);
        if (n < piece) {
            return ferror(file.get()) != 0 ? QE_ERROR_IO : 0;
        }
    }
    return 0;
}

// A copy that cannot be read is as good as none: the box may be whole without it.
int box_survey::look_at_copy()
{
    struct stat status = {};
    const file_presence presence = _vesk_look_at_file(copy_path_, owners_, &status);
    copy_is_foreign_ = presence == file_presence::foreign;
    if (presence != file_presence::plain) {
        copy_.set_missing();
        return 0;
    }
    if (copy_.scan(copy_path_) == QE_ERROR_NO_MEMORY) {
        return QE_ERROR_NO_MEMORY;
    }
    byte_list bytes;
    const int read = _read_all(copy_path_, &bytes);
    if (read == 0) {
        copy_checksum_ = _vesk_check_copy(bytes.begin(), bytes.size(), copy_.form_size());
    }
    return read == QE_ERROR_NO_MEMORY ? read : 0;
}

// --- the buffers -------------------------------------------------------------------------------

// Whether a file has nothing but zero bytes.
static int _find_blank(const char *path, bool *blank)
{
    constexpr std::size_t piece = 4096;
    unsigned char bytes[piece];
    const owned_file file = _vesk_open_plain_file(path, O_RDONLY);
    if (!file) {
        return QE_ERROR_IO;
    }
    for (;;) {
        const std::size_t n = fread(bytes, 1, piece, file.get());
        if (!std::all_of(bytes, bytes + n, [](unsigned char byte) { return byte == 0; })) {
            return 0;
        }
        if (n < piece) {
            *blank = ferror(file.get()) == 0;
            return *blank ? 0 : QE_ERROR_IO;
        }
    }
}

int box_survey::look_at_buffer(const buffer_name &name)
{
    char path[max_filename];
    struct stat status = {};
    _vesk_format_buffer_name(path, base_, name);
    const file_presence presence = _vesk_look_at_file(path, owners_, &status);
    if (presence == file_presence::foreign) {
        return foreign_.append(name) ? 0 : QE_ERROR_NO_MEMORY;
    }
    if (presence != file_presence::plain) {
        return presence == file_presence::missing ? 0 : QE_ERROR_IO;
    }
    box_file *file = files_.add(name);
    if (file == nullptr) {
        return QE_ERROR_NO_MEMORY;
    }
    file->identity = {status.st_dev, status.st_ino};
    buffer_expectation expected;
    expected.kind = name.kind;
    const int result =
        _vesk_mend_buffer(path, expected, {ignore_step, nullptr}, nullptr, &file->contents);
    if (result != 0) {
        return result == QE_ERROR_OPEN ? QE_ERROR_IO : result;
    }
    file->blank = status.st_size == 0;
    const bool unreadable = !file->holds_records() && file->contents.kind == 0 && !file->blank;
    return unreadable ? _find_blank(path, &file->blank) : 0;
}

int box_survey::look()
{
    if (strlen(base_) > VESK_MAX_BASE_LENGTH) {
        return QE_ERROR_LIMIT;
    }
    snprintf(state_path_, sizeof state_path_, "%s.state", base_);
    snprintf(copy_path_, sizeof copy_path_, "%s.state%s", base_, backup_suffix);
    buffer_names names;
    int result = _vesk_list_buffer_names(base_, "", &names);
    if (result == 0) {
        result = look_at_state();
    }
    if (result == 0) {
        result = look_at_copy();
    }
    if (result == 0 && state_->error == QE_ERROR_OPEN && state_is_foreign_) {
        result = QE_ERROR_OPEN;
    }
    for (const buffer_name &name : names) {
        if (result == 0) {
            result = look_at_buffer(name);
        }
    }
    // A whole copy of the state file is a box even where nothing else is left of it. What is
    // foreign under the name of a buffer is none.
    const bool nothing_is_left = files_.begin() == files_.end() && copy_->error != 0;
    return result == 0 && state_->error == QE_ERROR_OPEN && nothing_is_left ? QE_ERROR_OPEN
                                                                            : result;
}

bool box_survey::list_numbers(number_list *numbers) const
{
    for (const box_file *file : files_) {
        if (!numbers->append(file->name.number)) {
            return false;
        }
    }
    return std::all_of(foreign_.begin(), foreign_.end(),
                       [&](const buffer_name &name) { return numbers->append(name.number); });
}

// --- what the state says of the buffers --------------------------------------------------------

// The buffer that a state file means by `path`. False when that is none of this box.
bool box_survey::find_name(const char *path, buffer_name *name) const
{
    const std::size_t folder = _vesk_folder_length(base_);
    char beside[max_filename];
    const int length = snprintf(beside, sizeof beside, "%.*s%s", static_cast<int>(folder), base_,
                                path + _vesk_folder_length(path));
    return length < static_cast<int>(sizeof beside) &&
           _vesk_parse_buffer_name(beside, base_, name) &&
           (strcmp(path, beside) == 0 || _vesk_is_same_file(path, beside));
}

named_state box_survey::find_named(const vesk_state_summary &summary) const
{
    named_state named;
    if (summary.error != 0) {
        return named;
    }
    const stage_places places = places_of_stage(summary.state);
    named.box.stage = summary.state;
    named.next_file_number = summary.next_file_number;
    for (uint32_t i = 0; i < summary.num_names; ++i) {
        buffer_name name;
        if (!find_name(summary.names[i], &name) || name.kind != places.places[i].kind ||
            files_.find(name) == nullptr || named.box.has(name)) {
            return named;
        }
        named.box.add(name.kind, name.number);
    }
    named.fits = true;
    return named;
}

named_state box_survey::named_by_state() const
{
    return find_named(*state_);
}

// A copy whose checksum is wrong has changed since it was written: no name in it counts.
named_state box_survey::named_by_copy() const
{
    return copy_has_changed() ? named_state() : find_named(*copy_);
}

bool box_survey::state_leads_here() const
{
    char path[max_filename];
    const int length = snprintf(path, sizeof path, "%s.state", state_->filename);
    return length < static_cast<int>(sizeof path) &&
           (strcmp(path, state_path_) == 0 || _vesk_is_same_file(path, state_path_)) &&
           (strcmp(state_->state_filename, state_path_) == 0 ||
            _vesk_is_same_file(state_->state_filename, state_path_));
}
