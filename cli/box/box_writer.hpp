// Writing into a box: the one place where the command meets the recorder.
#ifndef VESK_CLI_BOX_BOX_WRITER_HPP
#define VESK_CLI_BOX_BOX_WRITER_HPP

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_set>

#include <vesk/matrix.h>
#include <vesk/sensor_array.h>
#include <vesk/vesk.h>

#include "box/box_lock.hpp"
#include "box/recovery.hpp"
#include "box/sync_policy.hpp"
#include "process/failure.hpp"

namespace cli
{

struct stored_file;

// How much a box holds. What the user did not say is empty.
struct box_shape {
    std::optional<uint32_t> samples;
    std::optional<uint32_t> intervals;
};

// For new boxes: at one sample a second an hour in each buffer, summarised by the minute.
constexpr uint32_t default_samples = 3600;
constexpr uint32_t default_intervals = 60;

// What is missing is chosen to fit what is given. A shape that no box can have is a usage failure.
struct whole_shape {
    uint32_t samples;
    uint32_t intervals;
};
whole_shape complete_shape(const box_shape &shape);

// The disk did not take something. The box holds what it held before; writing may be tried again.
class storage_failure : public failure
{
public:
    explicit storage_failure(const std::string &message) : failure(exit_failed, message) {}
};

constexpr uint32_t last_event_type = 5;

struct event {
    uint32_t type; // 1 to last_event_type
    int64_t time;
    std::string text;
};

// What becomes of an event.
enum class event_result {
    recorded,
    too_early // it has to wait for the next vector; nothing was written
};

class box_writer
{
public:
    enum class if_missing { create, refuse };

    // Opens the box on @p base, or makes one when there is none. An existing box keeps its shape:
    // another one that is asked for is refused, and so is a box that another process writes to. A
    // box that a crash left behind is recovered first, and a note tells of it.
    explicit box_writer(const std::string &base, const box_shape &shape = {},
                        const sync_policy &sync = {}, if_missing missing = if_missing::create);
    box_writer(const box_writer &) = delete;
    box_writer &operator=(const box_writer &) = delete;

    // Refuses early what the constructor would refuse: a shape that a new box cannot have.
    static void check_shape_for(const std::string &base, const box_shape &shape);

    // The oldest interval of a box keeps every sensor that ever was, and no more than 10000 fit
    // into one. True when the box knows @p name or has room for it, which is then taken.
    bool admit(const std::string &name);
    // From now on vectors hold values of these sensors, which must have been admitted.
    void set_sensors(std::span<const std::string> names);
    // One vector, with the kernel when this returns. After a storage_failure the box is closed, and
    // the next call opens it again.
    void write(int64_t time, std::span<const float> values);
    // One event, on the medium when this returns recorded (unless nothing is ever synced).
    event_result write(const event &what);
    // What was written is on the medium when this returns.
    void sync();
    // The last act: whatever the policy says is done once more.
    void finish();

    // The open buffer holds its last vector: an event behind it would not be counted in the
    // history.
    bool is_full() const;

private:
    void open_or_create(if_missing missing);
    void refuse_moved_box() const;
    void recover();
    void open();
    void open_mended();
    void create();
    void reopen();
    void require_room() const;
    // Refuses what the recorder could not go on with, before it touches anything.
    void check_box();
    void check_buffer(const stored_file &file);

    int attempt(const std::function<int()> &write_it);
    int write_vector();
    void prepare_rotation();
    int write_first_history();
    void sync_if_due(bool moved_on);
    void back_up();

    struct closer {
        void operator()(struct vesk *recorder) const { vesk_close(&recorder); }
        void operator()(matrix *vector) const { matrix_destroy(&vector); }
    };
    std::string base_;
    std::string path_; // absolute: it holds in every working directory
    box_shape shape_;
    sync_policy sync_;
    box_lock lock_;
    std::unique_ptr<struct vesk, closer> recorder_; // null after a failure
    std::unique_ptr<matrix, closer> vector_;
    std::unordered_set<std::string> known_sensors_;
    int last_errno_ = 0;
    double last_sync_ = 0;
    bool sync_complained_ = false;
    bool backup_is_due_ = false;
};

} // namespace cli

#endif
