// Waits for the folder to tell of a change where the system does that, and looks ever more rarely
// where it does not and nothing comes.
#include "box/look_pace.hpp"

#include <algorithm>
#include <poll.h>

#include "process/clock.hpp"

namespace cli
{
namespace
{

constexpr double shortest_rest = 0.02;
// A look that takes long comes rarely: following takes a tenth of one processor at most.
constexpr double share = 9;
// Something may have happened that nobody told, as on a file system of the network.
constexpr double longest_told = 2;
constexpr double longest_untold = 1;

} // namespace

look_pace::look_pace(const std::string &base) : folder_(base)
{
    end_look(true);
}

double look_pace::seconds_to_wait() const
{
    const double now = monotonic_seconds();
    return std::max(0.0, (now < rest_until_ ? rest_until_ : wait_until_) - now);
}

int look_pace::awaited() const
{
    return monotonic_seconds() < rest_until_ ? -1 : folder_.descriptor();
}

bool look_pace::is_time() const
{
    const double now = monotonic_seconds();
    if (now < rest_until_) {
        return false;
    }
    pollfd folder = {folder_.descriptor(), POLLIN, 0};
    return now >= wait_until_ || poll(&folder, 1, 0) > 0;
}

void look_pace::begin_look()
{
    begin_ = monotonic_seconds();
    // Before the look, which would miss what comes behind it otherwise.
    folder_.forget();
}

void look_pace::end_look(bool any_came)
{
    const double now = monotonic_seconds();
    rest_until_ = now + std::max(shortest_rest, share * (begin_ > 0 ? now - begin_ : 0));
    if (folder_.descriptor() >= 0) {
        wait_until_ = rest_until_ + longest_told;
        return;
    }
    pause_ = any_came ? shortest_rest : std::min(longest_untold, 2 * pause_);
    wait_until_ = rest_until_ + pause_;
}

} // namespace cli
