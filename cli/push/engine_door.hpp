// What a push needs of an engine. There is one for each kind of engine; it collects rows, and sends
// them in requests of bounded size.
#ifndef VESK_CLI_PUSH_ENGINE_DOOR_HPP
#define VESK_CLI_PUSH_ENGINE_DOOR_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "push/known_interval.hpp"
#include "push/push_request.hpp"
#include "push/pushed_box.hpp"

namespace cli
{

// What is told of a box besides its content.
struct box_facts {
    box_labels labels; // box is never empty
    int64_t first = 0;
    int64_t last = 0;
    raw_position position;
    int64_t position_time = 0;
};

// A place among the raw records of a box, with the time of the record before it.
struct timed_position {
    raw_position place;
    int64_t time;
};

struct row_counts {
    uint64_t samples = 0; // values
    uint64_t intervals = 0;
    uint64_t events = 0;
    uint64_t left_out = 0; // that the engine has no place for

    uint64_t all() const { return samples + intervals + events; }
};

// All calls may throw push_refused and push_given_up.
class engine_door
{
public:
    engine_door() = default;
    engine_door(const engine_door &) = delete;
    engine_door &operator=(const engine_door &) = delete;
    virtual ~engine_door() = default;

    // Makes the schema where it is missing.
    virtual void create(const std::string &cluster) = 0;

    // To be called before the rows of a box, with the names of its sensors.
    virtual void begin(const box_labels &labels, const std::vector<std::string> &sensors) = 0;
    // Whether the engine may lose what it has taken, so that it has to be asked at each push.
    virtual bool forgets() const { return false; }
    // Whether the engine has refused to be asked, so that the cursor is all that is known.
    virtual bool cannot_tell() const { return false; }
    // Whether rows that were taken may be seen by questions much later only.
    virtual bool delivers_later() { return false; }
    // How far the engine has been told it has the raw records of the box.
    virtual std::optional<timed_position> known_position() = 0;
    // The newest interval that the engine has of the box in history buffers up to @p file, of those
    // that end at @p from or later.
    virtual std::optional<known_interval> newest_interval(uint32_t file, int64_t from) = 0;

    // @p known is the time up to which the engine has the content of the interval already, in other
    // intervals; 0 where it has none of it.
    virtual void add_interval(const pushed_interval &interval,
                              const std::vector<std::string> &sensors, const summing &how,
                              int64_t known) = 0;
    virtual void add_sample(const raw_record &sample) = 0;
    virtual void add_event(const raw_record &event) = 0;
    // Rows that are added and not sent yet.
    virtual uint64_t waiting() const = 0;
    // Everything that was added is with the engine when this returns.
    virtual void flush() = 0;
    // Told last.
    virtual void tell(const box_facts &facts) = 0;

    // Of the box that was begun last.
    const row_counts &counts() const { return counts_; }

protected:
    row_counts counts_;
};

} // namespace cli

#endif
