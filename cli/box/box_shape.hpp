// How much a box holds: the number of samples in a buffer and of intervals that they become. What
// the user did not say is chosen to fit what he said; a shape that no box can have is refused here,
// before anything is made.
#ifndef VESK_CLI_BOX_BOX_SHAPE_HPP
#define VESK_CLI_BOX_BOX_SHAPE_HPP

#include <cstdint>
#include <optional>
#include <string>

namespace cli
{

// What the user said; the rest is empty.
struct box_shape {
    std::optional<uint32_t> samples;
    std::optional<uint32_t> intervals;
};

// For new boxes: at one sample a second an hour in each buffer, summarised by the minute.
constexpr uint32_t default_samples = 3600;
constexpr uint32_t default_intervals = 60;

struct whole_shape {
    uint32_t samples;
    uint32_t intervals;
};

// Throws a usage failure for a shape that no box can have.
whole_shape complete_shape(const box_shape &shape);

// Throws a usage failure when @p wanted is not what the box on @p base was made with.
void require_shape(const std::string &base, const box_shape &wanted, const whole_shape &found);

} // namespace cli

#endif
