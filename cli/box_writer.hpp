// Writing into a box: the one place where the command meets the recorder.
#ifndef VESK_CLI_BOX_WRITER_HPP
#define VESK_CLI_BOX_WRITER_HPP

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <unordered_set>

#include <vesk/matrix.h>
#include <vesk/sensor_array.h>
#include <vesk/vesk.h>

#include "box_lock.hpp"

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

class box_writer
{
public:
    // Opens the box on @p base, or makes one when there is none. An existing box keeps its shape:
    // another one that is asked for is refused, and so is a box that another process writes to.
    box_writer(const std::string &base, const box_shape &shape);
    box_writer(const box_writer &) = delete;
    box_writer &operator=(const box_writer &) = delete;

    // Refuses early what the constructor would refuse: a shape that a new box cannot have.
    static void check_shape_for(const std::string &base, const box_shape &shape);

    // The oldest interval of a box keeps every sensor that ever was, and no more than 10000 fit
    // into one. True when the box knows @p name or has room for it, which is then taken.
    bool admit(const std::string &name);
    // From now on vectors hold values of these sensors, which must have been admitted.
    void set_sensors(std::span<const std::string> names);
    // One vector, on disk when this returns.
    void write(int64_t time, std::span<const float> values);

private:
    // Refuses what the recorder could not go on with, before it touches anything.
    void check_box();
    void check_buffer(const stored_file &file);
    void open(const box_shape &shape);
    void create(const box_shape &shape);

    struct closer {
        void operator()(struct vesk *recorder) const { vesk_close(&recorder); }
        void operator()(matrix *vector) const { matrix_destroy(&vector); }
    };
    std::string base_;
    box_lock lock_;
    std::unique_ptr<struct vesk, closer> recorder_;
    std::unique_ptr<matrix, closer> vector_;
    std::unordered_set<std::string> known_sensors_;
};

} // namespace cli

#endif
