// Syncs the files of the box when the policy says so, and prints one note if the medium refuses.
// After a rotation it also syncs the new files and deletes those that they replace, whatever the
// policy says.
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

bool box_sync::after_vector(struct vesk &recorder)
{
    errno = 0;
    const bool settled = vesk_settle(&recorder) == 0;
    const int error = errno;
    if (!settled) {
        tell_failure(error);
    }
    using moment = sync_policy::moment;
    const bool due = policy_.when == moment::interval &&
                     monotonic_seconds() - last_ >= static_cast<double>(policy_.seconds);
    if (due || policy_.when == moment::vector) {
        sync(recorder);
    }
    return settled || (error != ENOSPC && error != EDQUOT);
}

void box_sync::now(struct vesk &recorder)
{
    if (policy_.when != sync_policy::moment::never) {
        sync(recorder);
    }
}

void box_sync::sync(struct vesk &recorder)
{
    last_ = monotonic_seconds();
    errno = 0;
    if (vesk_sync(&recorder) != 0) {
        tell_failure(errno);
    }
}

// The note is printed only once, because the medium is likely to go on refusing.
void box_sync::tell_failure(int error)
{
    if (complained_) {
        return;
    }
    const std::string text =
        base_ + ": cannot be synced; what is recorded may not survive the loss of power";
    errno = error;
    complain(error != 0 ? with_errno(text) : text);
    complained_ = true;
}

} // namespace cli
