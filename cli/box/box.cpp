#include "box/box.hpp"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <fmt/format.h>
#include <sys/stat.h>

#include <vesk/error.h>
#include <vesk/sensor_array.h>
#include <vesk/vesk.h>
#include <vesk/vesk_buffer.h>

#include "process/failure.hpp"

namespace cli
{
namespace
{

std::string text_or_empty(const char *text)
{
    return text != nullptr ? text : "";
}

bool is_regular_file(const std::string &path, uint64_t &size)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return false;
    }
    size = static_cast<uint64_t>(status.st_size);
    return true;
}

uint64_t size_of(const std::string &path, bool &missing)
{
    uint64_t size = 0;
    missing = !is_regular_file(path, size);
    return size;
}

// The state file holds the names that the buffers had when they were made. The box may have been
// moved since: what follows its base name tells the buffer, and it lies beside the state file.
std::string where_it_is_now(const std::string &stored, const box_state &state,
                            const std::string &base)
{
    if (stored.starts_with(state.filename + ".")) {
        return base + stored.substr(state.filename.size());
    }
    return std::filesystem::path(base).replace_filename(std::filesystem::path(stored).filename());
}

std::vector<stored_file> named_files(const box_state &state, const std::string &base)
{
    std::vector<stored_file> files;
    for (std::size_t i = 0; i < state.names.size(); ++i) {
        stored_file file;
        file.path = where_it_is_now(state.names[i], state, base);
        const bool is_open = i + 1 == state.names.size();
        const bool is_history = i == 0 && state.stage == VESK_ZCF_STATE_HCC;
        file.buffer_kind = is_history ? VESK_BUFFER_TYPE_HIST : VESK_BUFFER_TYPE_CURRENT;
        file.role = is_open ? VESK_SCAN_OPEN : is_history ? VESK_SCAN_HISTORY : VESK_SCAN_FULL;
        file.size = size_of(file.path, file.missing);
        files.push_back(file);
    }
    return files;
}

bool is_beside(const std::string &path, const std::string &base)
{
    return path.starts_with(base + ".");
}

// All buffers beside the state file, in the order of their numbers.
std::vector<stored_file> files_beside(const std::string &base)
{
    std::vector<stored_file> files;
    const auto visit = [](const vesk_scan_file *file, void *context) {
        static_cast<std::vector<stored_file> *>(context)->push_back(
            {file->filename, file->buffer_kind, file->number, file->size, VESK_SCAN_ORPHAN,
             file->missing != 0});
        return 0;
    };
    const int result = vesk_scan_files(base.c_str(), visit, &files);
    if (result < 0) {
        throw failure(exit_unreadable, base + ": " + words_for(result));
    }
    return files;
}

struct visit_context {
    const std::function<void(const vesk_scan_item &)> &visit;
    std::exception_ptr thrown;
};

// Exceptions must not pass through the library: they are kept here and thrown on behind it.
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

uint32_t kind_of(const std::string &path)
{
    uint32_t kind = 0;
    scan_file(path, [&](const vesk_scan_item &item) {
        if (kind == 0) {
            kind = item.buffer_kind;
        }
    });
    const bool looks_like_history = path.ends_with(".hbuf.z");
    if (kind == 0) {
        kind = looks_like_history ? VESK_BUFFER_TYPE_HIST : VESK_BUFFER_TYPE_CURRENT;
    }
    return kind;
}

box lone_file(const std::string &path, uint64_t size)
{
    box result;
    result.name = path;
    result.is_file = true;
    stored_file file;
    file.path = path;
    file.size = size;
    file.buffer_kind = kind_of(path);
    result.files.push_back(file);
    return result;
}

std::size_t count_records(const std::string &path, uint32_t &capacity)
{
    std::size_t records = 0;
    scan_file(path, [&](const vesk_scan_item &item) {
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
        if (count_records((*file)->path, capacity) == capacity && capacity > 0) {
            return {*file};
        }
    }
    return candidates.empty() ? candidates : std::vector{candidates.back()};
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
    vesk_state_summary summary;
    state.error = vesk_scan_state(state.path.c_str(), &summary);
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
    return state.error == QE_ERROR_OPEN ? "is missing or cannot be opened" : words_for(state.error);
}

box find_box(const std::string &name)
{
    uint64_t size = 0;
    uint64_t ignored = 0;
    const bool is_file = is_regular_file(name, size);
    if (is_file && !name.ends_with(".state") && !is_regular_file(name + ".state", ignored)) {
        return lone_file(name, size);
    }
    box result;
    const bool is_state = is_file && name.ends_with(".state");
    result.name = is_state ? name.substr(0, name.size() - std::string(".state").size()) : name;
    result.state = read_state(result.name);
    if (result.state.error == 0) {
        result.files = named_files(result.state, result.name);
    }
    for (stored_file &file : files_beside(result.name)) {
        const auto same_path = [&](const stored_file &named) { return named.path == file.path; };
        if (result.state.error != 0) {
            result.files.push_back(std::move(file));
        } else if (!file.missing && is_beside(file.path, result.name) &&
                   std::none_of(result.files.begin(), result.files.end(), same_path)) {
            result.others.push_back(std::move(file));
        }
    }
    if (result.files.empty() && result.state.error == QE_ERROR_OPEN) {
        throw failure(exit_unreadable, name + ": there is no such box and no such file");
    }
    return result;
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

void scan_file(const std::string &path, const std::function<void(const vesk_scan_item &)> &visit)
{
    visit_context context{visit, nullptr};
    const int result = vesk_scan_buffer(path.c_str(), visit_item, &context);
    if (context.thrown) {
        std::rethrow_exception(context.thrown);
    }
    if (result < 0) {
        throw failure(exit_unreadable, with_errno(path));
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
