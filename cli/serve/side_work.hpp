// Work that takes long, done in a process beside this one, so that a server goes on answering. The
// work sees this process as it was when it began and can change nothing in it; it gives back bytes.
#ifndef VESK_CLI_SERVE_SIDE_WORK_HPP
#define VESK_CLI_SERVE_SIDE_WORK_HPP

#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>

#include "box/event_channel.hpp"

namespace cli
{

class side_work
{
public:
    // Begins. Throws a failure where the system has no process or no memory for it. This process
    // may have one thread only.
    explicit side_work(const std::function<std::string()> &work);
    side_work(const side_work &) = delete;
    side_work &operator=(const side_work &) = delete;
    // Ends it if it goes on.
    ~side_work();

    // Can be read when the work is over, however it ended.
    int awaited() const { return end_.get(); }
    bool is_over() const;
    // When it is over: what the work gave back, nothing where it ended in another way.
    std::optional<std::string> result();

private:
    void collect();

    file_descriptor bytes_; // a file in memory
    file_descriptor end_;   // told by an end of file
    pid_t process_ = -1;
    int status_ = -1;
};

} // namespace cli

#endif
