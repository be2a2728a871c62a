// Tries for each round length of a summary all numbers of intervals, which are few enough because
// reach, size and time grow with that number: the first that reaches far enough and the last that
// fits are found by halving.
#include "box/shape_search.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <vector>

#include <vesk/vesk_limits.h>

#include "process/failure.hpp"
#include "text/byte_size.hpp"
#include "text/duration.hpp"

namespace cli
{
namespace
{

constexpr int64_t round_lengths[] = {2,    5,     10,    15,    20,    30,   60,
                                     120,  300,   600,   900,   1200,  1800, 3600,
                                     7200, 10800, 14400, 21600, 43200, 86400};
// In samples, where the interval between them is longer than these lengths.
constexpr uint32_t round_counts[] = {2, 3, 4, 6, 10, 12, 15, 20, 30, 60};

// Half of the greatest number of intervals, which must be even.
constexpr uint32_t most_pairs = VESK_MAX_INTERVALS / 2;
// More is refused by nothing, but reading such a box back takes its time.
constexpr uint64_t most_samples = 100000000;
// With fewer, the history would be too short to be of use.
constexpr uint32_t least_pairs = 4;

// Half an interval costs no sample. Where that is short, some samples are missed once in many
// hours.
double longest_rotation(const size_wish &wish)
{
    constexpr double acceptable = 3;
    const int64_t pause = wish.pause > 0 ? wish.pause : wish.interval;
    return std::max(static_cast<double>(pause) / 2, acceptable);
}

// How many samples make one interval.
std::vector<uint32_t> samples_per_interval(int64_t interval)
{
    std::vector<uint32_t> counts(std::begin(round_counts), std::end(round_counts));
    for (const int64_t length : round_lengths) {
        if (length % interval == 0 && length / interval > 1) {
            counts.push_back(static_cast<uint32_t>(length / interval));
        }
    }
    std::sort(counts.begin(), counts.end());
    counts.erase(std::unique(counts.begin(), counts.end()), counts.end());
    return counts;
}

// The samples may be too many for a box.
struct candidate {
    uint64_t samples;
    uint32_t intervals;

    whole_shape shape() const { return {static_cast<uint32_t>(samples), intervals}; }
};

candidate with_pairs(uint32_t pairs, uint32_t length)
{
    return {uint64_t{2} * pairs * length, 2 * pairs};
}

class search
{
public:
    explicit search(const size_wish &wish) : wish_(wish) {}

    // The smallest shape that reaches far enough and passes @p fits; the one that reaches farthest
    // without a wanted reach.
    template <typename Fits>
    std::optional<whole_shape> best(const Fits &fits) const
    {
        std::optional<whole_shape> found;
        for (const uint32_t length : samples_per_interval(wish_.interval)) {
            const std::optional<whole_shape> one =
                wish_.keep ? smallest(length, fits) : largest(length, fits);
            if (one && (!found || is_better(*one, *found))) {
                found = one;
            }
        }
        return found;
    }

    bool is_quick(const whole_shape &shape) const
    {
        return wish_.rotation.seconds(shape) <= longest_rotation(wish_);
    }
    bool is_small(const whole_shape &shape) const
    {
        return !wish_.disk || bytes(shape) <= *wish_.disk;
    }
    uint64_t bytes(const whole_shape &shape) const
    {
        return most_bytes(shape, wish_.records, wish_.event_bytes);
    }
    int64_t seconds(const whole_shape &shape) const
    {
        return static_cast<int64_t>(history_reach(shape).least) * wish_.interval;
    }

private:
    bool is_better(const whole_shape &one, const whole_shape &other) const
    {
        return wish_.keep ? bytes(one) < bytes(other) : seconds(one) > seconds(other);
    }

    template <typename Fits>
    std::optional<whole_shape> smallest(uint32_t length, const Fits &fits) const
    {
        const auto reaches = [&](uint32_t pairs) {
            const candidate one = with_pairs(pairs, length);
            return one.samples > most_samples || seconds(one.shape()) >= *wish_.keep;
        };
        const uint32_t pairs = first(reaches);
        const candidate one = with_pairs(pairs, length);
        if (one.samples > most_samples || !reaches(pairs) || !fits(one.shape())) {
            return std::nullopt;
        }
        return one.shape();
    }

    template <typename Fits>
    std::optional<whole_shape> largest(uint32_t length, const Fits &fits) const
    {
        const auto is_too_large = [&](uint32_t pairs) {
            const candidate one = with_pairs(pairs, length);
            return one.samples > most_samples || !fits(one.shape());
        };
        uint32_t pairs = first(is_too_large);
        pairs -= is_too_large(pairs) ? 1U : 0U;
        if (pairs < least_pairs) {
            return std::nullopt;
        }
        return with_pairs(pairs, length).shape();
    }

    // The first number of pairs for which @p holds, or the last number.
    template <typename Holds>
    static uint32_t first(const Holds &holds)
    {
        uint32_t low = least_pairs;
        uint32_t high = most_pairs;
        while (low < high) {
            const uint32_t middle = low + (high - low) / 2;
            if (holds(middle)) {
                high = middle;
            } else {
                low = middle + 1;
            }
        }
        return low;
    }

    const size_wish &wish_;
};

// The longest reach that a box with the same interval and bytes can have.
std::string what_can_be_had(const size_wish &wish)
{
    size_wish other = wish;
    other.keep.reset();
    const search all(other);
    const auto found = all.best(
        [&](const whole_shape &shape) { return all.is_quick(shape) && all.is_small(shape); });
    return found ? fmt::format("about {} can be had", format_rough_duration(all.seconds(*found)))
                 : "there is none of so few bytes";
}

[[noreturn]] void refuse_keep(const size_wish &wish)
{
    const search all(wish);
    const auto slow = all.best([](const whole_shape &) { return true; });
    const std::string keep = "--keep " + format_duration(*wish.keep);
    if (slow && wish.disk && all.is_quick(*slow)) {
        throw failure(exit_usage,
                      fmt::format("{} takes up to {}, which is more than --disk {}; with that {}; "
                                  "fewer sensors or a longer --interval keep more",
                                  keep, format_byte_size(all.bytes(*slow)),
                                  format_byte_size(*wish.disk), what_can_be_had(wish)));
    }
    throw failure(exit_usage,
                  fmt::format("{} is too long for one box with a sample every {}: each time that "
                              "its buffers take turns, samples would be missed for more than "
                              "{:g}s; {}; fewer sensors or a longer --interval keep more",
                              keep, format_duration(wish.interval), longest_rotation(wish),
                              what_can_be_had(wish)));
}

} // namespace

whole_shape find_shape(const size_wish &wish)
{
    const search all(wish);
    const auto found = all.best(
        [&](const whole_shape &shape) { return all.is_quick(shape) && all.is_small(shape); });
    if (found) {
        return *found;
    }
    if (wish.keep) {
        refuse_keep(wish);
    }
    throw failure(exit_usage,
                  fmt::format("--disk {}: is too little for a box with these sensors; events take "
                              "up to {} of it (--event-bytes)",
                              format_byte_size(*wish.disk),
                              format_byte_size(4 * wish.event_bytes)));
}

} // namespace cli
