// Bringing what was written onto the medium, as often as the policy says. A medium that refuses is
// told once and is no failure: what was written is with the kernel all the same.
#ifndef VESK_CLI_BOX_BOX_SYNC_HPP
#define VESK_CLI_BOX_BOX_SYNC_HPP

#include <string>

#include <vesk/vesk.h>

#include "box/sync_policy.hpp"

namespace cli
{

class box_sync
{
public:
    box_sync(std::string base, const sync_policy &policy);

    // True unless nothing is ever synced.
    bool is_wanted() const { return policy_.when != sync_policy::moment::never; }
    // After a vector. @p moved_on tells that the buffers took turns with it: what the new files
    // replace is deleted then, so they are always due.
    void after_vector(struct vesk &recorder, bool moved_on);
    // Now, unless nothing is ever synced.
    void now(struct vesk &recorder);

private:
    std::string base_;
    sync_policy policy_;
    double last_;
    bool complained_ = false;
};

} // namespace cli

#endif
