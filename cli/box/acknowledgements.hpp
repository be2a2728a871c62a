// Telling, outside the box, what is in it.
#ifndef VESK_CLI_BOX_ACKNOWLEDGEMENTS_HPP
#define VESK_CLI_BOX_ACKNOWLEDGEMENTS_HPP

#include <cstdint>
#include <string>

#include "box/event_channel.hpp"

namespace cli
{

// A line with its time for each vector that is in the box.
class acknowledgements
{
public:
    // @p where is the number of an open descriptor or the name of a file, which is appended to;
    // with an empty one nothing is told.
    explicit acknowledgements(const std::string &where);

    // The line is with the kernel when this returns.
    void add(int64_t time);

private:
    std::string name_;
    file_descriptor file_;
};

} // namespace cli

#endif
