// When to look for what is new in a box that is written to: as soon as something may have come, and
// never so often that looking would load the machine.
#ifndef VESK_CLI_BOX_LOOK_PACE_HPP
#define VESK_CLI_BOX_LOOK_PACE_HPP

#include <string>

#include "box/folder_watch.hpp"

namespace cli
{

class look_pace
{
public:
    // For the box with the base name @p base.
    explicit look_pace(const std::string &base);

    // Wait for so many seconds, or until this descriptor (below 0: none) can be read; then ask
    // whether it is time to look.
    double seconds_to_wait() const;
    int awaited() const;
    bool is_time() const;

    // Around each look; @p any_came tells whether there was anything new.
    void begin_look();
    void end_look(bool any_came);

private:
    folder_watch folder_;
    double rest_until_ = 0; // not before
    double wait_until_ = 0; // and at the latest
    double begin_ = 0;      // of the look
    double pause_ = 0.05;   // where nobody tells that something has come
};

} // namespace cli

#endif
