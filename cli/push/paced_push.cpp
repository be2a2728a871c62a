// Starts a push as a child process and takes what it says from a pipe that never makes it wait.
#include "push/paced_push.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <string_view>
#include <unistd.h>
#include <utility>

#include "process/failure.hpp"
#include "process/terminal.hpp"
#include "push/push_program.hpp"

namespace cli
{
namespace
{

// While a push runs; it cannot tell when it ends.
constexpr double between_looks = 0.5;
constexpr std::size_t longest_output = 400;
// After many failures it is tried so many times less often.
constexpr uint32_t most_doublings = 3;
// For the shell, which becomes the push: it yields to the recording, and where memory runs out the
// kernel ends it first. A service may be forbidden to change its priority; that is not worth a
// word.
constexpr std::string_view low_priority =
    "{ renice -n 10 -p $$; echo 500 >/proc/self/oom_score_adj; } >/dev/null 2>&1;";

std::string quoted(const std::string &word)
{
    std::string result = "'";
    for (const char c : word) {
        if (c == '\'') {
            result += "'\\'";
        }
        result += c;
    }
    result += '\'';
    return result;
}

} // namespace

void paced_push::look(double monotonic)
{
    if (!next_) {
        // Not all machines of a fleet that start at the same time push at the same time.
        next_ = monotonic + period_ * (between_09_and_11() - 0.9) / 0.2;
    }
    if (child_) {
        read_output();
        if (const std::optional<std::string> how = child_->ending()) {
            read_output();
            child_.reset();
            ended(*how, monotonic);
        }
    } else if (monotonic >= *next_) {
        start(monotonic);
    }
}

double paced_push::seconds_to_look(double monotonic) const
{
    return child_ ? between_looks : std::max(next_.value_or(monotonic) - monotonic, 0.0);
}

void paced_push::start(double monotonic)
{
    output_.clear();
    try {
        child_.emplace(command_);
    } catch (const failure &reason) {
        failed(reason.what());
        plan(monotonic);
    }
}

void paced_push::read_output()
{
    char buffer[4096];
    for (int reads = 0; reads < 16; ++reads) {
        const ssize_t got = read(child_->output(), buffer, sizeof buffer);
        if (got <= 0) {
            return;
        }
        const std::size_t room = longest_output - output_.size();
        output_.append(buffer, std::min(room, static_cast<std::size_t>(got)));
    }
}

void paced_push::ended(const std::string &how, double monotonic)
{
    if (how == "exit 0" || how == "exit 3") {
        // What is damaged in the box, the verbs that read it tell.
        if (failures_ > 0) {
            notice_ = "pushes succeed again";
        }
        failures_ = 0;
    } else {
        const std::string line = output_.substr(0, output_.find('\n'));
        failed(line.empty() ? how : printable(line));
    }
    plan(monotonic);
}

void paced_push::failed(const std::string &why)
{
    if (failures_++ == 0) {
        notice_ =
            fmt::format("a push has failed; the recording goes on, and so do attempts: {}", why);
    }
}

void paced_push::plan(double monotonic)
{
    const uint32_t doublings = std::min(failures_, most_doublings);
    next_ = monotonic + period_ * static_cast<double>(1U << doublings) * between_09_and_11();
}

double paced_push::between_09_and_11()
{
    seed_ = seed_ * 1664525 + 1013904223;
    return 0.9 + 0.2 * static_cast<double>(seed_ >> 8U) / static_cast<double>(1U << 24U);
}

std::string push_command(const push_request &request)
{
    request.check();
    std::string words;
    for (const std::string &word : words_of(request)) {
        words += fmt::format(" {}", quoted(word));
    }
    return fmt::format("{} exec {}{} 2>&1", low_priority, quoted(find_push_program()), words);
}

} // namespace cli
