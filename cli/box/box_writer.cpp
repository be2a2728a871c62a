#include "box/box_writer.hpp"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <vesk/error.h>
#include <vesk/sensor_value.h>
#include <vesk/telemetry_matrix.h>
#include <vesk/timestamp.h>
#include <vesk/vesk_check.h>
#include <vesk/vesk_recover.h>

#include "box/box.hpp"
#include "process/clock.hpp"
#include "process/failure.hpp"
#include "process/terminal.hpp"

namespace cli
{
namespace
{

// The table behind one summary cannot be cleared more often than this.
constexpr uint32_t most_intervals = 65534;
constexpr std::size_t most_sensors = 10000;
// Where only the number of intervals is given.
constexpr uint32_t samples_per_interval = 60;
// The recorder builds the names of its buffers in 1024 bytes and would cut longer ones off.
constexpr std::size_t longest_base = 1000;

std::string state_file_of(const std::string &base)
{
    return base + ".state";
}

const std::string &required_name(const std::string &base)
{
    if (base.empty()) {
        throw failure(exit_usage, "the name of the box is empty");
    }
    return base;
}

bool exists(const std::string &path)
{
    return access(path.c_str(), F_OK) == 0;
}

// With the words of errno, if it says anything.
std::string explained(const std::string &what)
{
    return errno != 0 ? with_errno(what) : what;
}

void require_same(const std::string &base, const char *option, std::optional<uint32_t> wanted,
                  uint32_t found)
{
    if (wanted && *wanted != found) {
        throw failure(exit_usage, fmt::format("{}: was made with {} {}, which cannot be changed",
                                              base, option, found));
    }
}

bool same_file(const std::string &one, const std::string &other)
{
    struct stat first = {};
    struct stat second = {};
    return stat(one.c_str(), &first) == 0 && stat(other.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

std::string folder_of(const std::string &path)
{
    return std::filesystem::path(path).parent_path();
}

// The whole path of the box. The file system need not have it.
std::string whole_path(const std::string &base)
{
    std::string path = std::filesystem::absolute(base);
    if (path.size() > longest_base) {
        throw failure(exit_failed,
                      fmt::format("{}: the path is longer than {} characters", base, longest_base));
    }
    return path;
}

// True when there is anything of a box: a state file or a buffer.
bool is_there(const std::string &base)
{
    const auto found = [](const vesk_scan_file *file, void *) {
        return file->missing != 0 ? 0 : 1;
    };
    return exists(state_file_of(base)) || vesk_scan_files(base.c_str(), found, nullptr) == 1;
}

const vesk_current_buffer *open_buffer(const struct vesk &recorder)
{
    switch (recorder.state) {
    case VESK_ZCF_STATE_C00:
        return recorder.c00->cbuf0;
    case VESK_ZCF_STATE_CC0:
        return recorder.cc0->cbuf1;
    case VESK_ZCF_STATE_CCC:
        return recorder.ccc->cbuf2;
    default:
        return recorder.hcc->cbuf2;
    }
}

struct event_release {
    void operator()(vesk_cb_record_event *record) const { vesk_cb_record_event_destroy(&record); }
};

timestamp stamp_of(int64_t time)
{
    timestamp stamp = {};
    timeval tv = {};
    tv.tv_sec = static_cast<decltype(tv.tv_sec)>(time);
    const int result = timestamp_init_from_timeval(&stamp, &tv);
    if (result < 0) {
        throw failure(exit_failed, words_for(result));
    }
    return stamp;
}

// What a child found out, in memory that its parent sees.
class shared_outcome
{
public:
    shared_outcome()
    {
        void *memory = mmap(nullptr, sizeof(content), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            throw storage_failure(words_for(QE_ERROR_NO_MEMORY));
        }
        content_ = static_cast<content *>(memory);
        *content_ = {QE_ERROR_IO, 0};
    }
    shared_outcome(const shared_outcome &) = delete;
    shared_outcome &operator=(const shared_outcome &) = delete;
    ~shared_outcome() { munmap(content_, sizeof(content)); }

    void set(int result, int error) { *content_ = {result, error}; }
    int result() const { return content_->result; }
    int error() const { return content_->error; }

private:
    struct content {
        int result;
        int error;
    };
    content *content_;
};

// What the library says when it aborts is of no use to the user, nor is a core of it.
void be_silent()
{
    const struct rlimit none = {0, 0};
    (void)setrlimit(RLIMIT_CORE, &none);
    const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere >= 0) {
        dup2(nowhere, STDERR_FILENO);
    }
}

[[noreturn]] void refuse_damaged(const std::string &what)
{
    throw failure(exit_damaged, what + "; nothing was written");
}

// Why the recorder could not go on behind or with this item, or nothing.
std::string obstacle_in(const vesk_scan_item &item)
{
    if (item.kind == VESK_SCAN_BARE_EVENT) {
        return fmt::format("the event at {} cannot be read by the recorder", item.offset);
    }
    if (item.error != 0) {
        return damage_text(item);
    }
    if (item.kind == VESK_SCAN_EVENT && item.event->type > last_event_type) {
        return fmt::format("the event at {} is of the unknown type {}", item.offset,
                           item.event->type);
    }
    if (item.kind == VESK_SCAN_SENSOR_VALUES && timestamp_is_null(&item.values->timestamp) != 0) {
        return fmt::format("the sample at {} has no time", item.offset);
    }
    return {};
}

} // namespace

whole_shape complete_shape(const box_shape &shape)
{
    uint32_t samples = shape.samples.value_or(default_samples);
    if (shape.intervals && !shape.samples && *shape.intervals != 0 &&
        samples % *shape.intervals != 0) {
        samples = *shape.intervals * samples_per_interval;
    }
    if (samples == 0 || samples % 2 != 0) {
        throw failure(exit_usage, "--samples must be an even number above 0");
    }
    // An even number always has the even divisor 2.
    uint32_t intervals = std::min(default_intervals, samples);
    while (samples % intervals != 0 || intervals % 2 != 0) {
        --intervals;
    }
    intervals = shape.intervals.value_or(intervals);
    if (intervals == 0 || intervals % 2 != 0 || intervals > most_intervals) {
        throw failure(exit_usage, fmt::format("--intervals must be an even number from 2 to {}",
                                              most_intervals));
    }
    if (samples % intervals != 0) {
        throw failure(exit_usage,
                      fmt::format("--samples ({}) must be a multiple of --intervals ({})", samples,
                                  intervals));
    }
    return {samples, intervals};
}

void box_writer::check_shape_for(const std::string &base, const box_shape &shape)
{
    if (!exists(state_file_of(base))) {
        complete_shape(shape);
    }
}

box_writer::box_writer(const std::string &base, const box_shape &shape, const sync_policy &sync,
                       if_missing missing)
    : base_(required_name(base)), path_(whole_path(base)), shape_(shape), sync_(sync), lock_(base_),
      last_sync_(monotonic_seconds())
{
    open_or_create(missing);
    require_same(base_, "--samples", shape.samples, recorder_->num_cb_samples);
    require_same(base_, "--intervals", shape.intervals, recorder_->num_hb_intervals);
}

void box_writer::open_or_create(if_missing missing)
{
    if (is_there(base_)) {
        refuse_moved_box();
        recover();
        open();
    } else if (missing == if_missing::create) {
        create();
    } else {
        throw failure(exit_unreadable, base_ + ": there is no such box");
    }
}

// The recorder goes by the names in the state file, wherever the box is now.
void box_writer::refuse_moved_box() const
{
    const box found = find_box(base_);
    if (found.state.error != 0 || found.files.empty() || found.files.back().missing) {
        return;
    }
    if (!same_file(found.files.back().path, found.state.names.back())) {
        throw failure(exit_failed,
                      fmt::format("{}: the box was made as {} and lies elsewhere now; it can be "
                                  "read here, but not recorded to before `vesk repair {}`",
                                  base_, found.state.filename, base_));
    }
}

// The sizes matter only for a box that was killed before anything on the disk told them: then the
// same call is likely to be what made it.
void box_writer::recover()
{
    const auto [samples, intervals] = complete_shape(shape_);
    errno = 0;
    const recovery_plan plan = plan_recovery(path_, {samples, intervals});
    int result = plan.result;
    vesk_recover_report report = {};
    if (result == 0 && !plan.is_empty()) {
        result = vesk_recover(path_.c_str(), samples, intervals, &report);
    }
    if (result != 0) {
        last_errno_ = errno;
        const std::string text =
            fmt::format("{}: cannot be recovered: {}", base_, recovery_failure(result));
        if (result == QE_ERROR_MALFORMED || result == QE_ERROR_LIMIT) {
            throw failure(exit_unreadable, text);
        }
        errno = last_errno_;
        throw storage_failure(explained(text));
    }
    if (plan.is_needed()) {
        note(fmt::format("{}: recovered: {}", base_, report_text(report)));
    }
}

void box_writer::check_box()
{
    const box found = find_box(base_);
    if (found.state.error != 0) {
        refuse_damaged(found.state.path + ": " + state_words(found.state));
    }
    for (const stored_file &file : found.files) {
        if (file.missing) {
            refuse_damaged(file.path + ": is missing");
        }
        check_buffer(file);
    }
}

// The recorder appends to the open buffer and will read the others, and what it does not expect
// there stops it for good or ends the process.
void box_writer::check_buffer(const stored_file &file)
{
    bool any_names = false;
    bool any = false;
    scan_file(file.path, [&](const vesk_scan_item &item) {
        const std::string obstacle = obstacle_in(item);
        if (!obstacle.empty()) {
            refuse_damaged(file.path + ": " + obstacle);
        }
        any = true;
        if (item.kind == VESK_SCAN_SENSOR_NAMES) {
            any_names = true;
            for (std::string &name : sensor_names(*item.names)) {
                known_sensors_.insert(std::move(name));
            }
        }
    });
    if (!any) {
        refuse_damaged(file.path + ": the header is missing");
    }
    if (!any_names && file.role != VESK_SCAN_OPEN) {
        refuse_damaged(file.path + ": holds nothing");
    }
}

// Only of a box that was checked: a recorder that was read in part is returned, too, and neither
// writing to it nor closing it is safe. The cell tells it from a whole one.
void box_writer::open()
{
    check_box();
    qe_set_last_error(0);
    errno = 0;
    struct vesk *recorder = vesk_open(base_.c_str());
    const int error = qe_get_last_error();
    if (recorder == nullptr || error < 0) {
        last_errno_ = errno;
        const std::string reason = words_for(error);
        throw storage_failure(
            explained(fmt::format("{}: the box cannot be opened: {}", base_, reason)));
    }
    recorder_.reset(recorder);
}

// What is wrong in the files is mended once.
void box_writer::open_mended()
{
    try {
        open();
    } catch (const storage_failure &) {
        throw;
    } catch (const failure &) {
        recover();
        open();
    }
}

void box_writer::create()
{
    const auto [samples, intervals] = complete_shape(shape_);
    errno = 0;
    recorder_.reset(vesk_create(path_.c_str(), samples, intervals));
    if (!recorder_) {
        const std::string reason = words_for(qe_get_last_error());
        throw storage_failure(
            explained(fmt::format("{}: the box cannot be made: {}", base_, reason)));
    }
    if (sync_.when != sync_policy::moment::never) {
        sync();
    }
    back_up();
}

// What failed may have left a torn record, or a recorder that is ahead of its files.
void box_writer::reopen()
{
    require_room();
    recover();
    open();
}

// Mending writes a whole buffer anew, which on a full disk can only fail.
void box_writer::require_room() const
{
    struct statvfs space = {};
    if (last_errno_ != ENOSPC || statvfs(folder_of(path_).c_str(), &space) != 0) {
        return;
    }
    constexpr uint64_t reserve = 16384;
    uint64_t needed = 0;
    for (const stored_file &file : find_box(base_).files) {
        needed = std::max(needed, file.size);
    }
    if (uint64_t{space.f_bavail} * space.f_frsize < needed + reserve) {
        errno = ENOSPC;
        throw storage_failure(with_errno(base_));
    }
}

bool box_writer::admit(const std::string &name)
{
    if (known_sensors_.count(name) == 1) {
        return true;
    }
    if (known_sensors_.size() == most_sensors) {
        return false;
    }
    known_sensors_.insert(name);
    return true;
}

void box_writer::set_sensors(std::span<const std::string> names)
{
    std::vector<const char *> texts;
    texts.reserve(names.size());
    for (const std::string &name : names) {
        texts.push_back(name.c_str());
    }
    const auto count = static_cast<uint32_t>(names.size());
    sensor_array *sensors = sensor_array_create_from_names(texts.data(), count);
    matrix *values = sensors != nullptr ? matrix_create(1, count) : nullptr;
    timestamp none = {};
    timestamp_init_null(&none);
    matrix *vector =
        values != nullptr ? telemetry_matrix_create_vector(values, sensors, &none) : nullptr;
    if (vector == nullptr) {
        const int error = qe_get_last_error();
        if (values != nullptr) {
            matrix_destroy(&values);
        }
        if (sensors != nullptr) {
            sensor_array_destroy(&sensors);
        }
        throw failure(exit_failed, words_for(error));
    }
    vector_.reset(vector);
}

bool box_writer::is_full() const
{
    if (!recorder_) {
        return false;
    }
    const vesk_current_buffer *buffer = open_buffer(*recorder_);
    return buffer->num_data_records >= buffer->max_data_records;
}

void box_writer::write(int64_t time, std::span<const float> values)
{
    const timestamp stamp = stamp_of(time);
    const int updated = telemetry_matrix_update_vector_timestamp(vector_.get(), &stamp);
    if (updated < 0) {
        throw failure(exit_failed, fmt::format("{}: {}", base_, words_for(updated)));
    }
    for (uint32_t i = 0; i < values.size(); ++i) {
        const float value = std::isnan(values[i]) ? _qe_invalid_sensor_value : values[i];
        matrix_set(vector_.get(), 0, i, static_cast<double>(value));
    }
    const int refused = vesk_check_vector(vector_.get());
    if (refused < 0) {
        throw failure(exit_failed,
                      fmt::format("{}: this cannot be recorded: {}", base_, words_for(refused)));
    }
    attempt([&] { return write_vector(); });
}

event_result box_writer::write(const event &what)
{
    const timestamp stamp = stamp_of(what.time);
    const std::unique_ptr<vesk_cb_record_event, event_release> record(
        vesk_cb_record_event_create(what.type, &stamp, what.text.c_str()));
    if (!record) {
        throw failure(exit_failed, words_for(QE_ERROR_NO_MEMORY));
    }
    const int refused = vesk_check_event(record.get());
    if (refused < 0) {
        throw failure(exit_failed, fmt::format("{}: this event cannot be recorded: {}", base_,
                                               words_for(refused)));
    }
    const int result =
        attempt([&] { return vesk_write_tagged_event(recorder_.get(), record.get()); });
    if (result == QE_ERROR_UNKNOWN_KIND) {
        return event_result::too_early;
    }
    if (sync_.when != sync_policy::moment::never) {
        sync();
    }
    return event_result::recorded;
}

// Writes, and once more after a failure: what went wrong may be in the files, not on the disk.
int box_writer::attempt(const std::function<int()> &write_it)
{
    // Nothing was written when an event has to wait.
    const auto is_failure = [](int code) { return code < 0 && code != QE_ERROR_UNKNOWN_KIND; };
    if (!recorder_) {
        reopen();
    }
    errno = 0;
    int result = write_it();
    if (!is_failure(result)) {
        return result;
    }
    last_errno_ = errno;
    recorder_.reset();
    reopen();
    errno = 0;
    result = write_it();
    if (!is_failure(result)) {
        return result;
    }
    last_errno_ = errno;
    recorder_.reset();
    errno = last_errno_;
    throw storage_failure(explained(fmt::format("{}: {}", base_, words_for(result))));
}

int box_writer::write_vector()
{
    if (is_full()) {
        prepare_rotation();
    }
    const uint32_t number = recorder_->next_file_number;
    const bool first_history = is_full() && recorder_->state == VESK_ZCF_STATE_CCC;
    const int result = first_history ? write_first_history()
                                     : vesk_write_telemetry_vector(recorder_.get(), vector_.get());
    if (result < 0) {
        return result;
    }
    const bool moved_on = recorder_->next_file_number != number;
    // Not every failure to save it is told.
    if (moved_on && read_state(base_).error != 0) {
        recorder_.reset();
        open_mended();
    }
    sync_if_due(moved_on);
    if (moved_on || backup_is_due_) {
        back_up();
    }
    return result;
}

// A rotation reads the older buffers, and some damage there ends the process.
void box_writer::prepare_rotation()
{
    try {
        check_box();
    } catch (const failure &) {
        recorder_.reset();
        recover();
        open();
    }
}

// Making the first history is the one step in which a disk that fails ends the process that
// records. A child takes it.
int box_writer::write_first_history()
{
    shared_outcome outcome;
    recorder_.reset();
    const pid_t child = fork();
    if (child == 0) {
        be_silent();
        struct vesk *recorder = vesk_open(base_.c_str());
        errno = 0;
        const int result = vesk_write_telemetry_vector(recorder, vector_.get());
        outcome.set(result, errno);
        vesk_close(&recorder);
        _exit(0);
    }
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    errno = outcome.error();
    if (outcome.result() == 0) {
        open_mended();
    }
    return outcome.result();
}

void box_writer::sync_if_due(bool moved_on)
{
    using moment = sync_policy::moment;
    if (sync_.when == moment::never) {
        return;
    }
    // What the new files replace is deleted by now.
    const bool due = sync_.when == moment::interval &&
                     monotonic_seconds() - last_sync_ >= static_cast<double>(sync_.seconds);
    if (moved_on || due || sync_.when == moment::vector) {
        sync();
    }
}

void box_writer::sync()
{
    last_sync_ = monotonic_seconds();
    errno = 0;
    if (!recorder_ || vesk_sync(recorder_.get()) == 0) {
        return;
    }
    if (!sync_complained_) {
        complain(explained(base_ + ": cannot be synced; what is recorded may not survive the loss "
                                   "of power"));
        sync_complained_ = true;
    }
}

// Without the copy the box is as good; it is tried again with each vector.
void box_writer::back_up()
{
    backup_is_due_ = vesk_backup_state(recorder_.get()) != 0;
}

void box_writer::finish()
{
    if (sync_.when != sync_policy::moment::never) {
        sync();
    }
    recorder_.reset();
}

} // namespace cli
