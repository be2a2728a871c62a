// Pushes a box now and then beside a recording, by a program of its own. Whatever becomes of a
// push, the recording does not wait for it.
#ifndef VESK_CLI_PUSH_PACED_PUSH_HPP
#define VESK_CLI_PUSH_PACED_PUSH_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "process/child_program.hpp"
#include "push/push_request.hpp"

namespace cli
{

class paced_push
{
public:
    // Runs @p command in a shell every @p period seconds, for the first time within one of them;
    // less often while it fails. @p seed keeps machines that start together apart.
    paced_push(std::string command, double period, uint32_t seed)
        : command_(std::move(command)), period_(period), seed_(seed)
    {
    }

    // Starts a push when it is time, and looks how it goes. Never waits.
    void look(double monotonic);
    // When to look at the latest.
    double seconds_to_look(double monotonic) const;
    // A sentence when pushes begin to fail, and another one when they succeed again.
    std::optional<std::string> take_notice() { return std::exchange(notice_, std::nullopt); }

private:
    void start(double monotonic);
    void read_output();
    void ended(const std::string &how, double monotonic);
    void failed(const std::string &why);
    void plan(double monotonic);
    double between_09_and_11();

    std::string command_;
    double period_;
    uint32_t seed_;
    uint32_t failures_ = 0; // in a row
    std::optional<double> next_;
    std::optional<child_program> child_;
    std::string output_;
    std::optional<std::string> notice_;
};

// What paced_push runs for a request: the program of pushes, with low priority. Throws a failure
// when it is not installed.
std::string push_command(const push_request &request);

} // namespace cli

#endif
