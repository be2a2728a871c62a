#include "box/box_sync.hpp"

#include <cerrno>
#include <utility>

#include "process/clock.hpp"
#include "process/failure.hpp"
#include "process/terminal.hpp"

namespace cli
{

box_sync::box_sync(std::string base, const sync_policy &policy)
    : base_(std::move(base)), policy_(policy), last_(monotonic_seconds())
{
}

void box_sync::after_vector(struct vesk &recorder, bool moved_on)
{
    using moment = sync_policy::moment;
    const bool due = policy_.when == moment::interval &&
                     monotonic_seconds() - last_ >= static_cast<double>(policy_.seconds);
    if (moved_on || due || policy_.when == moment::vector) {
        now(recorder);
    }
}

void box_sync::now(struct vesk &recorder)
{
    if (!is_wanted()) {
        return;
    }
    last_ = monotonic_seconds();
    errno = 0;
    if (vesk_sync(&recorder) == 0 || complained_) {
        return;
    }
    const std::string text =
        base_ + ": cannot be synced; what is recorded may not survive the loss of power";
    complain(errno != 0 ? with_errno(text) : text);
    complained_ = true;
}

} // namespace cli
