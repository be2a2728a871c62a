// Finds the files of a box, holds them open and scans them. A box may be written to meanwhile: its
// files are looked at again until they are in order, or have stayed out of order for a while, which
// then counts as damage. Each file stays open, so that it can be read even after a rotation has
// deleted it.
#include "box/box.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vesk/error.h>
#include <vesk/sensor_array.h>
#include <vesk/vesk.h>
#include <vesk/vesk_buffer.h>

#include "box/box_lock.hpp"
#include "process/failure.hpp"

namespace cli
{
namespace
{

using clock = std::chrono::steady_clock;

std::string text_or_empty(const char *text)
{
    return text != nullptr ? text : "";
}

// False when nothing has this name. Throws a failure when the machine prevents an answer now but
// may give one later.
template <typename Call>
bool get_status(Call call, const std::string &path, struct stat &status)
{
    if (call(path.c_str(), &status) == 0) {
        return true;
    }
    if (code_for_errno(errno) == exit_failed) {
        throw failure(exit_failed, with_errno(path));
    }
    return false;
}

bool is_regular_file(const std::string &path)
{
    struct stat status = {};
    return get_status(stat, path, status) && S_ISREG(status.st_mode);
}

uint32_t kind_by_name(const std::string &path)
{
    return path.ends_with(".hbuf.z") ? VESK_BUFFER_TYPE_HIST : VESK_BUFFER_TYPE_CURRENT;
}

// Holds the file open, or notes why it cannot be opened. Throws a failure when the reason is the
// machine, because a later attempt may succeed.
void open_stored(stored_file &file, stored_bytes::links policy = stored_bytes::links::refuse)
{
    file.bytes = std::make_shared<stored_bytes>(file.path, policy);
    if (file.bytes->is_open()) {
        file.size = file.bytes->size();
        return;
    }
    if (!file.bytes->is_foreign() && code_for_errno(file.bytes->error()) == exit_failed) {
        throw failure(exit_failed, file.path + ": " + file.bytes->problem());
    }
    file.size = 0;
    file.missing = file.bytes->is_missing() || file.bytes->is_foreign();
    file.problem = file.bytes->problem();
}

// ".NUMBER.cbuf.z" at the end of a name, as recorders write it; empty when the name has none.
std::string buffer_suffix(const std::string &name)
{
    constexpr std::string_view kinds[] = {".cbuf.z", ".hbuf.z"};
    for (const std::string_view kind : kinds) {
        if (!name.ends_with(kind)) {
            continue;
        }
        const std::size_t end = name.size() - kind.size();
        const std::size_t dot = end == 0 ? std::string::npos : name.rfind('.', end - 1);
        if (dot == std::string::npos || dot + 1 == end) {
            return {};
        }
        const std::string_view number(name.data() + dot + 1, end - dot - 1);
        const bool digits =
            std::all_of(number.begin(), number.end(), [](char c) { return c >= '0' && c <= '9'; });
        return digits ? name.substr(dot) : std::string();
    }
    return {};
}

std::vector<stored_file> named_files(const box_state &state, const std::string &base)
{
    std::vector<stored_file> files;
    for (std::size_t i = 0; i < state.names.size(); ++i) {
        stored_file file;
        const bool is_open = i + 1 == state.names.size();
        const bool is_history = i == 0 && state.stage == VESK_ZCF_STATE_HCC;
        file.buffer_kind = is_history ? VESK_BUFFER_TYPE_HIST : VESK_BUFFER_TYPE_CURRENT;
        file.role = is_open ? VESK_SCAN_OPEN : is_history ? VESK_SCAN_HISTORY : VESK_SCAN_FULL;
        // The state file holds the names that the buffers had when they were made. The box may have
        // been moved since, and its buffers lie beside the state file: only the number counts.
        const std::string suffix = buffer_suffix(state.names[i]);
        file.path = suffix.empty() ? state.names[i] : base + suffix;
        if (suffix.empty()) {
            file.missing = true;
            file.problem = "is no name of a buffer of this box";
        } else {
            open_stored(file);
        }
        files.push_back(std::move(file));
    }
    return files;
}

// All buffers beside the state file, in the order of their numbers. With a whole state file they
// are not needed, so a folder that may not be listed counts as empty then.
std::vector<std::string> paths_beside(const std::string &base, bool needed)
{
    std::vector<std::string> paths;
    const auto visit = [](const vesk_scan_file *file, void *context) {
        static_cast<std::vector<std::string> *>(context)->emplace_back(file->filename);
        return 0;
    };
    errno = 0;
    const int result = vesk_scan_files(base.c_str(), visit, &paths);
    const int error = errno;
    if (result == QE_ERROR_NO_MEMORY) {
        throw failure(exit_failed, base + ": " + words_for(result));
    }
    if (result < 0 && (error == ENOENT || error == ENOTDIR)) {
        return {};
    }
    if (result < 0 && error != 0 && (needed || code_for_errno(error) == exit_failed)) {
        const std::string folder = std::filesystem::path(base).parent_path();
        errno = error;
        throw failure(code_for_errno(error), with_errno(folder.empty() ? "." : folder));
    }
    if (result < 0 && needed) {
        throw failure(exit_unreadable, base + ": " + words_for(result));
    }
    std::erase_if(paths, [&](const std::string &path) {
        return !path.starts_with(base) || buffer_suffix(path) != path.substr(base.size());
    });
    return paths;
}

stored_file file_beside(const std::string &path)
{
    stored_file file;
    file.path = path;
    file.buffer_kind = kind_by_name(path);
    open_stored(file);
    return file;
}

// A file that the box does not need. It is not held open: a folder may hold more of them than a
// process has descriptors. Nothing where it has been deleted meanwhile.
std::optional<stored_file> unneeded_file(const std::string &path)
{
    std::optional<stored_file> file = open_if_there(path);
    if (file) {
        file->bytes.reset();
    }
    return file;
}

struct visit_context {
    const std::function<void(const vesk_scan_item &)> &visit;
    std::exception_ptr thrown;
};

// Exceptions must not pass through the library: they are kept here and thrown again after its call
// has returned.
int visit_item(const vesk_scan_item *item, void *context)
{
    auto *state = static_cast<visit_context *>(context);
    try {
        state->visit(*item);
        return 0;
    } catch (...) {
        state->thrown = std::current_exception();
        return 1;
    }
}

uint32_t kind_of(const stored_file &file)
{
    uint32_t kind = 0;
    scan_file(file, [&](const vesk_scan_item &item) {
        if (kind == 0) {
            kind = item.buffer_kind;
        }
    });
    return kind != 0 ? kind : kind_by_name(file.path);
}

void pause()
{
    constexpr timespec moment = {0, 5'000'000};
    nanosleep(&moment, nullptr);
}

// Bytes at the end of a file that a record may begin with.
bool is_torn_end(const vesk_scan_item &item, std::size_t size)
{
    return item.kind == VESK_SCAN_DAMAGE && item.content_length == 0 &&
           item.error == QE_ERROR_TRUNCATED && item.offset + item.length == size;
}

// A recorder of another program holds no lock of this command. It is recognised by the bytes that
// it writes.
bool is_being_written(const stored_file &file)
{
    if (file.role == VESK_SCAN_OPEN && !file.is_live && !file.bytes->has_changed()) {
        pause();
    }
    return file.is_live || (file.role == VESK_SCAN_OPEN && file.bytes->has_changed());
}

// The user has named the file, and may do so by a link.
box lone_file(const std::string &path)
{
    box result;
    result.name = path;
    result.is_file = true;
    stored_file file;
    file.path = path;
    open_stored(file, stored_bytes::links::follow);
    if (!file.problem.empty()) {
        throw failure(exit_unreadable, path + ": " + file.problem);
    }
    file.buffer_kind = kind_of(file);
    result.files.push_back(std::move(file));
    return result;
}

std::size_t count_records(const stored_file &file, uint32_t &capacity)
{
    std::size_t records = 0;
    scan_file(file, [&](const vesk_scan_item &item) {
        capacity = item.capacity;
        records += item.kind == VESK_SCAN_INTERVAL ? 1 : 0;
    });
    return records;
}

// Failed rotations leave history buffers that were not finished, so without a state file the newest
// full one is the history.
std::vector<const stored_file *> likely_history(const std::vector<const stored_file *> &candidates)
{
    for (auto file = candidates.rbegin(); file != candidates.rend(); ++file) {
        uint32_t capacity = 0;
        if (count_records(**file, capacity) == capacity && capacity > 0) {
            return {*file};
        }
    }
    return candidates.empty() ? candidates : std::vector{candidates.back()};
}

[[noreturn]] void refuse_nothing(const std::string &name)
{
    if (std::error_code ignored; std::filesystem::is_directory(name, ignored)) {
        throw failure(exit_unreadable,
                      fmt::format("{}: is a folder; the name of a box is what the names of its "
                                  "files begin with, like {}/box",
                                  name, name.substr(0, name.find_last_not_of('/') + 1)));
    }
    const std::string foreign_state = foreign_words(name + ".state");
    if (!foreign_state.empty()) {
        throw failure(exit_unreadable,
                      fmt::format("{}.state: {}, and there is no buffer", name, foreign_state));
    }
    const std::string foreign = foreign_words(name);
    if (!foreign.empty() && !is_regular_file(name)) {
        throw failure(exit_unreadable, name + ": " + foreign + ", and there is no such box");
    }
    throw failure(exit_unreadable, name + ": there is no such box and no such file");
}

// The process that writes to the box, unless it is this one.
std::optional<pid_t> other_writer(const std::string &base)
{
    const std::optional<pid_t> holder = lock_holder(base);
    return holder != getpid() ? holder : std::nullopt;
}

// Looks at the files once, without regard to what happens to them meanwhile.
box look_at(const std::string &base)
{
    box result;
    result.name = base;
    result.writer = other_writer(base);
    result.state = read_state(base);
    if (result.state.error == 0) {
        result.files = named_files(result.state, base);
    }
    const auto is_known = [&](const std::string &path) {
        return std::any_of(result.files.begin(), result.files.end(),
                           [&](const stored_file &named) { return named.path == path; });
    };
    for (const std::string &path : paths_beside(base, result.state.error != 0)) {
        if (result.state.error != 0) {
            result.files.push_back(file_beside(path));
        } else if (is_known(path)) {
            continue;
        } else if (std::optional<stored_file> file = unneeded_file(path)) {
            result.others.push_back(std::move(*file));
        }
    }
    result.writer = result.writer ? result.writer : other_writer(base);
    for (stored_file &file : result.files) {
        file.is_live = file.role == VESK_SCAN_OPEN && result.writer.has_value();
    }
    return result;
}

bool is_in_order(const box &what)
{
    return what.state.error == 0 &&
           std::all_of(what.files.begin(), what.files.end(),
                       [](const stored_file &file) { return file.problem.empty(); });
}

// Finds the files as they were at one moment. A box may be out of order only because a recorder is
// just writing its state file or rotating its buffers, so it is looked at again, and disorder
// counts only if it lasts for a while.
box look_patiently(const std::string &base)
{
    constexpr auto short_while = std::chrono::milliseconds(15);
    constexpr auto long_while = std::chrono::milliseconds(500);
    constexpr auto limit = std::chrono::seconds(10);
    // Ends the loop even if the clock stands still.
    constexpr int most_looks = 3000;
    const auto begin = clock::now();
    auto unchanged_since = begin;
    box found = look_at(base);
    for (int looks = 1;; ++looks) {
        const bool same = !has_moved_on(found);
        const auto now = clock::now();
        if (looks == most_looks || now - begin > limit || (same && is_in_order(found))) {
            return found;
        }
        unchanged_since = same ? unchanged_since : now;
        if (same && now - unchanged_since >= (found.writer ? long_while : short_while)) {
            return found;
        }
        if (same) {
            pause();
        }
        found = look_at(base);
    }
}

} // namespace

bool stored_file::is_history() const
{
    return buffer_kind == VESK_BUFFER_TYPE_HIST;
}

box_state read_state(const std::string &base)
{
    box_state state;
    state.path = base + ".state";
    const stored_bytes file(state.path);
    if (!file.is_open()) {
        if (!file.is_missing() && !file.is_foreign()) {
            throw failure(code_for_errno(file.error()), state.path + ": " + file.problem());
        }
        state.error = QE_ERROR_OPEN;
        state.problem = file.problem();
        return state;
    }
    vesk_state_summary summary;
    errno = 0;
    state.error = vesk_scan_state(state.path.c_str(), &summary);
    if (errno != 0 && code_for_errno(errno) == exit_failed &&
        (state.error == QE_ERROR_OPEN || state.error == QE_ERROR_IO)) {
        vesk_state_summary_destruct(&summary);
        throw failure(exit_failed, with_errno(state.path));
    }
    state.size = summary.size;
    state.filename = text_or_empty(summary.filename);
    state.stage = summary.state;
    state.samples = summary.num_cb_samples;
    state.intervals = summary.num_hb_intervals;
    state.next_file_number = summary.next_file_number;
    for (uint32_t i = 0; i < summary.num_names; ++i) {
        state.names.push_back(text_or_empty(summary.names[i]));
    }
    vesk_state_summary_destruct(&summary);
    return state;
}

std::string state_words(const box_state &state)
{
    if (state.error == QE_ERROR_OPEN) {
        return state.problem.empty() ? "is missing" : state.problem;
    }
    return words_for(state.error);
}

box find_box(const std::string &name)
{
    if (name.empty()) {
        throw failure(exit_usage, "the name of the box is empty");
    }
    const std::string suffix = ".state";
    const bool is_file = is_regular_file(name);
    const bool is_state = is_file && name.ends_with(suffix);
    if (is_file && !is_state && !is_regular_file(name + suffix)) {
        return lone_file(name);
    }
    box result = look_patiently(is_state ? name.substr(0, name.size() - suffix.size()) : name);
    if (result.files.empty() && result.state.error == QE_ERROR_OPEN) {
        refuse_nothing(name);
    }
    return result;
}

bool has_moved_on(const box &what)
{
    return !what.is_file && read_state(what.name) != what.state;
}

summing how_summed(const box &what)
{
    const bool is_known = !what.is_file && what.state.error == 0;
    return is_known ? summing{what.state.samples, what.state.intervals} : summing{};
}

bool is_moved(const box &what)
{
    if (what.is_file || what.state.error != 0) {
        return false;
    }
    struct stat here = {};
    struct stat named = {};
    return get_status(lstat, what.state.path, here) &&
           (!get_status(stat, what.state.filename + ".state", named) ||
            here.st_dev != named.st_dev || here.st_ino != named.st_ino);
}

std::vector<const stored_file *> box::current_buffers() const
{
    std::vector<const stored_file *> found;
    for (const stored_file &file : files) {
        if (!file.is_history() && !file.missing) {
            found.push_back(&file);
        }
    }
    return found;
}

std::vector<const stored_file *> box::history_buffers() const
{
    std::vector<const stored_file *> found;
    for (const stored_file &file : files) {
        if (file.is_history() && !file.missing) {
            found.push_back(&file);
        }
    }
    return !is_file && state.error != 0 ? likely_history(found) : found;
}

std::optional<stored_file> open_if_there(const std::string &path)
{
    stored_file file = file_beside(path);
    return file.bytes->is_missing() ? std::nullopt : std::optional(std::move(file));
}

void scan_file(const std::string &path, const std::function<void(const vesk_scan_item &)> &visit)
{
    scan_file(file_beside(path), visit);
}

void scan_file(const stored_file &file, const std::function<void(const vesk_scan_item &)> &visit)
{
    scan_file_from(file, 0, visit);
}

void scan_file_from(const stored_file &file, uint64_t begin,
                    const std::function<void(const vesk_scan_item &)> &visit)
{
    if (!file.bytes || !file.bytes->is_open()) {
        throw read_failure(exit_unreadable, file.path + ": " + file.problem);
    }
    const std::vector<unsigned char> bytes = file.bytes->read(begin);
    const auto visit_settled = [&](const vesk_scan_item &item) {
        if (!is_torn_end(item, bytes.size()) || !is_being_written(file)) {
            vesk_scan_item placed = item;
            placed.offset += begin;
            visit(placed);
        }
    };
    scan_bytes(file.path, bytes, visit_settled);
}

void scan_bytes(const std::string &path, std::span<const unsigned char> bytes,
                const std::function<void(const vesk_scan_item &)> &visit)
{
    visit_context context{visit, nullptr};
    const int result =
        vesk_scan_bytes(bytes.data(), bytes.size(), kind_by_name(path), visit_item, &context);
    if (context.thrown) {
        std::rethrow_exception(context.thrown);
    }
    if (result < 0) {
        throw read_failure(exit_failed, path + ": " + words_for(result));
    }
}

bool is_damage(const vesk_scan_item &item)
{
    return item.kind != VESK_SCAN_BARE_EVENT && item.error != 0;
}

std::string damage_text(const vesk_scan_item &item)
{
    if (item.kind == VESK_SCAN_DAMAGE && item.content_length == 0) {
        const char *reason = item.error == QE_ERROR_TRUNCATED
                                 ? "the data ends inside a record"
                                 : (item.error == QE_ERROR_LIMIT ? "the search for records gave up"
                                                                 : "cannot be decoded");
        return fmt::format("{} bytes at {}: {}", item.length, item.offset, reason);
    }
    if (item.kind == VESK_SCAN_DAMAGE) {
        return fmt::format("{} bytes inside the record at {}: no record", item.content_length,
                           item.offset);
    }
    const char *what = item.error == QE_ERROR_UNKNOWN_KIND ? "no sensors were named before it"
                                                           : "the readers of the library refuse it";
    return fmt::format("the record at {}: {}", item.offset, what);
}

std::vector<std::string> sensor_names(const vesk_cb_record_sensor_names &names)
{
    std::vector<std::string> result;
    const sensor_array *sensors = names.sensors;
    const uint32_t count = sensors != nullptr ? sensor_array_get_size(sensors) : 0;
    result.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        result.emplace_back(sensor_array_get(sensors, static_cast<int>(i))->canonical->name);
    }
    return result;
}

} // namespace cli
