// Reads everything that lies under the name of a box: the state file, its copy and each buffer file
// once. Files that are not regular or belong to an untrusted user are listed without opening them.
// A file that is needed and cannot be read ends the survey with QE_ERROR_IO (-41), because a box
// must never be recovered from half of its files.
#include "recovery/survey.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fcntl.h>

#include <vesk/error.h>

#include "box/durable_file.hpp"
#include "recovery/recovery_steps.hpp"

// --- the state file ----------------------------------------------------------------------------

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
    // The file existed a moment ago, so the process has no descriptor left or no right to read it.
    return scanned == QE_ERROR_OPEN || scanned == QE_ERROR_IO ? QE_ERROR_IO : 0;
}

// All of a short file. 0, QE_ERROR_IO (-41), or QE_ERROR_NO_MEMORY (-22) without memory.
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
        const std::size_t n = _vesk_read_some(file.get(), room, piece);
        bytes->add(n);
        if (n < piece) {
            return ferror(file.get()) != 0 ? QE_ERROR_IO : 0;
        }
    }
    return 0;
}

// A copy that cannot be read is as good as none when the state file is whole, as the box may be
// whole without it. Otherwise the copy may be the only file that tells which buffers make the box,
// so a failed read must fail the recovery: a later attempt may succeed in reading it.
int box_survey::look_at_copy()
{
    struct stat status = {};
    const file_presence presence = _vesk_look_at_file(copy_path_, owners_, &status);
    copy_is_foreign_ = presence == file_presence::foreign;
    const bool is_needed = state_->error != 0;
    if (presence == file_presence::unknown && is_needed) {
        return QE_ERROR_IO;
    }
    if (presence != file_presence::plain) {
        copy_.set_missing();
        return 0;
    }
    const int scanned = copy_.scan(copy_path_);
    byte_list bytes;
    const int read =
        scanned == QE_ERROR_OPEN || scanned == QE_ERROR_IO || scanned == QE_ERROR_NO_MEMORY
            ? scanned
            : _read_all(copy_path_, &bytes);
    if (read == 0) {
        copy_checksum_ = _vesk_check_copy(bytes.begin(), bytes.size(), copy_.form_size());
    }
    return read == QE_ERROR_NO_MEMORY ? read : read != 0 && is_needed ? QE_ERROR_IO : 0;
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
        const std::size_t n = _vesk_read_some(file.get(), bytes, piece);
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
    expected.files_of_box = n_files_;
    const int result =
        _vesk_mend_buffer(path, expected, {ignore_step, nullptr}, nullptr, &file->contents);
    file->contents.forget_names();
    if (result != 0) {
        return result == QE_ERROR_OPEN ? QE_ERROR_IO : result;
    }
    file->blank = status.st_size == 0;
    const bool unreadable = !file->holds_records() && file->contents.kind == 0 && !file->blank;
    return unreadable ? _find_blank(path, &file->blank) : 0;
}

int box_survey::read_names(box_file *file) const
{
    char path[max_filename];
    _vesk_format_buffer_name(path, base_, file->name);
    buffer_expectation expected;
    expected.kind = file->name.kind;
    expected.files_of_box = n_files_;
    buffer_contents again;
    const int result = _vesk_mend_buffer(path, expected, {ignore_step, nullptr}, nullptr, &again);
    file->contents.first_names.reset(again.first_names.release());
    file->contents.last_names.reset(again.last_names.release());
    return result == QE_ERROR_OPEN ? QE_ERROR_IO : result;
}

// 1 when all bytes of a file are the first ones of another, 0 when not, or QE_ERROR_IO (-41).
static int _begins_like(const char *path, const char *whole)
{
    constexpr std::size_t piece = 4096;
    unsigned char bytes[piece];
    unsigned char of_whole[piece];
    const owned_file file = _vesk_open_plain_file(path, O_RDONLY);
    const owned_file other = _vesk_open_plain_file(whole, O_RDONLY);
    if (!file || !other) {
        return QE_ERROR_IO;
    }
    std::size_t n = 0;
    bool is_same = false;
    do {
        n = _vesk_read_some(file.get(), bytes, piece);
        is_same = _vesk_read_some(other.get(), of_whole, n) == n && memcmp(bytes, of_whole, n) == 0;
    } while (is_same && n == piece);
    return ferror(file.get()) != 0 || ferror(other.get()) != 0 ? QE_ERROR_IO : is_same ? 1 : 0;
}

int box_survey::find_copy(const arrangement &box, box_file *file) const
{
    char path[max_filename];
    _vesk_format_buffer_name(path, base_, file->name);
    int result = 0;
    for (uint32_t i = 0; i < box.n && result == 0; ++i) {
        if (files_.find(box.names[i]) != nullptr) {
            char of_box[max_filename];
            _vesk_format_buffer_name(of_box, base_, box.names[i]);
            result = _begins_like(path, of_box);
        }
    }
    file->copied = result > 0;
    return result < 0 ? result : 0;
}

// A file without a record may begin like any other: it has a header at most.
int box_survey::find_copies(const arrangement &box)
{
    int result = 0;
    for (box_file *file : files_) {
        if (result == 0 && !box.has(file->name) && file->holds_records()) {
            result = find_copy(box, file);
        }
    }
    return result;
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
    n_files_ = names.size();
    if (result == 0 && !owners_.are_known()) {
        result = QE_ERROR_IO;
    }
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
    if (result == 0) {
        result = find_named(*state_, &named_by_state_);
    }
    if (result == 0) {
        result = find_named(*copy_, &named_by_copy_);
    }
    // A copy whose checksum is wrong has changed since it was written.
    if (copy_has_changed()) {
        named_by_copy_.has_changed = named_by_copy_.fits;
        named_by_copy_.fits = false;
    }
    if (result == 0) {
        result = find_where_state_leads();
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

// 1 with the buffer that a state file means by `path`, 0 when that is none of this box, or
// QE_ERROR_IO (-41).
int box_survey::find_name(const char *path, buffer_name *name) const
{
    const std::size_t folder = _vesk_folder_length(base_);
    char beside[max_filename];
    const int length = snprintf(beside, sizeof beside, "%.*s%s", static_cast<int>(folder), base_,
                                path + _vesk_folder_length(path));
    if (length >= static_cast<int>(sizeof beside) ||
        !_vesk_parse_buffer_name(beside, base_, name)) {
        return 0;
    }
    return strcmp(path, beside) == 0 ? 1 : _vesk_is_same_file(path, beside);
}

int box_survey::find_named(const vesk_state_summary &summary, named_state *named) const
{
    const stage_places places = places_of_stage(summary.state);
    if (summary.error != 0 || summary.num_names != places.n) {
        return 0;
    }
    named->box.stage = summary.state;
    named->next_file_number = summary.next_file_number;
    for (uint32_t i = 0; i < places.n; ++i) {
        buffer_name name = {};
        const int found = find_name(summary.names[i], &name);
        if (found != 1 || name.kind != places.places[i].kind || files_.find(name) == nullptr ||
            named->box.has(name)) {
            return found < 0 ? found : 0;
        }
        named->box.add(name.kind, name.number);
    }
    named->fits = true;
    return 0;
}

int box_survey::find_where_state_leads()
{
    char path[max_filename];
    if (state_->error != 0 || snprintf(path, sizeof path, "%s.state", state_->filename) >=
                                  static_cast<int>(sizeof path)) {
        return 0;
    }
    int same = 1;
    for (const char *told :
         {static_cast<const char *>(path), static_cast<const char *>(state_->state_filename)}) {
        if (same == 1) {
            same = strcmp(told, state_path_) == 0 ? 1 : _vesk_is_same_file(told, state_path_);
        }
    }
    state_leads_here_ = same == 1;
    return same < 0 ? same : 0;
}
