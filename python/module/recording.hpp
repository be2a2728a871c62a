// A recorder that Python writes with. Everything that the library or the writer of boxes would
// abort over is refused here with an exception, before it is called.
#ifndef VESK_PYTHON_RECORDING_HPP
#define VESK_PYTHON_RECORDING_HPP

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <sys/types.h>
#include <vector>

#include "box/box_writer.hpp"
#include "box/waiting_events.hpp"

namespace vesk_python
{

// What is handed in cannot be recorded; it becomes a ValueError.
class bad_value : public std::invalid_argument
{
public:
    using std::invalid_argument::invalid_argument;
};

// Not for several threads at once: each call is one library_call.
class recording
{
public:
    // Opens the box, or makes one; see cli::box_writer. @p sync is a policy as --sync has it.
    recording(const std::string &base, const cli::box_shape &shape, const std::string &sync,
              bool create);
    recording(const recording &) = delete;
    recording &operator=(const recording &) = delete;
    // In a process that was forked off the box is left to the one that opened it.
    ~recording();

    void set_sensors(const std::vector<std::string> &names);
    // One sample, with a value for each sensor.
    void write(int64_t time, std::span<const float> values);
    // False when the event waits for the next sample.
    bool write_event(uint32_t type, int64_t time, const std::string &text);
    void sync();
    void close();

    bool is_open() const { return box_ != nullptr; }
    std::size_t width() const { return width_; }
    std::size_t written() const { return written_; } // samples
    std::size_t waiting() const { return waiting_; } // events

private:
    void require_usable() const;
    void leave_to_owner();

    struct open_box {
        open_box(const std::string &base, const cli::box_shape &shape, const cli::sync_policy &sync,
                 cli::box_writer::if_missing missing)
            : writer(base, shape, sync, missing), events(writer, base)
        {
        }
        cli::box_writer writer;
        cli::waiting_events events;
    };

    pid_t process_;
    std::unique_ptr<open_box> box_;
    std::size_t width_ = 0; // sensors of a sample; 0 before they were set
    std::size_t written_ = 0;
    std::size_t waiting_ = 0;
};

} // namespace vesk_python

#endif
