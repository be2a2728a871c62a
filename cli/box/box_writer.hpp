// Writing into a box, of which the recorder is one of several parts:
//
//   box_lock       nobody else writes meanwhile
//   box_start      is there a box; it is recovered and opened, or made
//   box_check      the recorder can take what is in the files
//   box_shape      how much the box holds
//   box_sync       when what was written is brought onto the medium
//
// The writer promises: what write() returned from is in the box; what it threw a storage_failure
// for may be there whole or not at all, and the next call puts the box in order first.
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

#include "box/box_lock.hpp"
#include "box/box_shape.hpp"
#include "box/box_start.hpp"
#include "box/box_sync.hpp"
#include "box/event.hpp"
#include "box/storage_failure.hpp"

namespace cli
{

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
    // One event, on the medium when this returns recorded (unless nothing is ever synced). It
    // waits, and nothing was written, where it would not be counted in the history: before the
    // first vector of a box and behind the last one of a full buffer. waiting_events keeps it then.
    // Throws an unrecordable_event when no box can hold it.
    event_result write(const event &what);
    // To be called when there is time until the next write: summarises for about so long what the
    // next rotation will need, so that the write that rotates does not have to. What fails here is
    // told by that write.
    void work_ahead(double seconds);
    // Brings what was written onto the medium, unless nothing is ever synced.
    void sync_now();
    // To be called last: syncs once more as the policy says.
    void finish();

    // True when the open buffer has no room for another vector.
    bool is_full() const;
    // How often this writer has begun a new buffer because the one before was full.
    uint64_t buffers_begun() const { return buffers_begun_; }

    // The time of the newest sample that was in the box before this writer came, if there was any.
    std::optional<int64_t> last_time_before() const { return last_time_before_; }

private:
    void open_or_create(if_missing missing);
    std::optional<int64_t> open();
    void reopen();

    void require_recordable_sensors();
    int attempt(const std::function<int()> &write_it);
    int try_once(const std::function<int()> &write_it);
    void make_ready();
    void require_lock();
    int write_vector();
    void finish_vector();
    void prepare_rotation();
    bool has_worked_ahead() const;
    void require_free_names() const;

    struct vector_release {
        void operator()(matrix *vector) const { matrix_destroy(&vector); }
    };
    box_name name_;
    box_shape shape_;
    box_lock lock_;
    box_sync sync_;
    owned_recorder recorder_;                        // null after a failure
    std::unique_ptr<matrix, vector_release> vector_; // what write() fills
    bool is_checked_ = false;                        // the sensors of vector_ can be recorded
    std::unordered_set<std::string> known_sensors_;
    std::optional<int64_t> last_time_before_;
    uint64_t buffers_begun_ = 0;
    int last_errno_ = 0;
};

} // namespace cli

#endif
