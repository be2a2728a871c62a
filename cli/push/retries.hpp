// How long to wait before a request is tried again, and when to give up. The pauses grow, and no
// two machines that lost the same engine come back in step.
#ifndef VESK_CLI_PUSH_RETRIES_HPP
#define VESK_CLI_PUSH_RETRIES_HPP

#include <algorithm>
#include <cstdint>
#include <optional>
#include <random>

namespace cli
{

class retries
{
public:
    // Gives up @p patience seconds behind the first failure.
    retries(double patience, uint32_t seed) : patience_(patience), chance_(seed) {}

    // To be called when a request was taken.
    void succeeded()
    {
        failed_since_.reset();
        pause_ = shortest;
    }
    // To be called when a request has failed at the time @p now, of a clock that nobody sets. The
    // seconds to wait; nothing when it is time to give up.
    std::optional<double> failed(double now)
    {
        failed_since_ = failed_since_.value_or(now);
        const double left = *failed_since_ + patience_ - now;
        if (left <= 0) {
            return std::nullopt;
        }
        // Between a half and the whole of the pause.
        const double wait = pause_ * std::uniform_real_distribution<double>(0.5, 1.0)(chance_);
        pause_ = std::min(2 * pause_, longest);
        return std::min(wait, left);
    }

    static constexpr double shortest = 1;
    static constexpr double longest = 60;

private:
    double patience_;
    double pause_ = shortest;
    std::optional<double> failed_since_;
    std::minstd_rand chance_;
};

} // namespace cli

#endif
