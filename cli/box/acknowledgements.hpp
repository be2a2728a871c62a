// Reports outside of the box which vectors are in it, so that a program that feeds an import knows
// what it may forget. Each vector gives one line with its time, written only after the vector is in
// the box.
#ifndef VESK_CLI_BOX_ACKNOWLEDGEMENTS_HPP
#define VESK_CLI_BOX_ACKNOWLEDGEMENTS_HPP

#include <cstdint>
#include <string>

#include "box/event_channel.hpp"
#include "process/stop_request.hpp"

namespace cli
{

// Writes a line with its time for each vector that is in the box.
class acknowledgements
{
public:
    // @p where is the number of an open descriptor or the name of a file, which is appended to;
    // with an empty one nothing is told. Waits for the reader of a FIFO; throws a failure when the
    // end is requested meanwhile, or when there is no such descriptor or file.
    acknowledgements(const std::string &where, const stop_request &stop);

    // The line is with the kernel when this returns, unless the end was requested while a pipe took
    // nothing. Throws a failure when the line is refused.
    void add(int64_t time);

private:
    void open_file();

    const stop_request &stop_;
    std::string name_;
    file_descriptor file_;
};

} // namespace cli

#endif
