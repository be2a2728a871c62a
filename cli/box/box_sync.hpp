// Syncs what was written to the medium, as often as the policy says. A medium that refuses gives
// one note and no failure, because the kernel still has what was written.
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

    // After a vector. Where the buffers took turns with it, the new files are brought onto the
    // medium and what they replace is deleted, whatever the policy says; until that has worked, it
    // is tried again with each vector. False when the disk has no room for it.
    bool after_vector(struct vesk &recorder);
    // Now, unless nothing is ever synced.
    void now(struct vesk &recorder);

private:
    void sync(struct vesk &recorder);
    void tell_failure(int error);

    std::string base_;
    sync_policy policy_;
    double last_;
    bool complained_ = false;
};

} // namespace cli

#endif
