// What the kernel says: the messages of /dev/kmsg from warnings upwards, as they come.
//
// One record of it is "PRIORITY,SEQUENCE,MICROSECONDS,FLAGS;TEXT\n", maybe with more fields behind
// the flags, and lines behind it that begin with a blank and tell of the device. In TEXT the kernel
// has put \xNN in place of what is not printable; that stays as it is.
#ifndef VESK_CLI_MACHINE_KERNEL_LOG_HPP
#define VESK_CLI_MACHINE_KERNEL_LOG_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "machine/clock_watch.hpp"

namespace cli
{

struct kernel_message {
    unsigned priority = 0; // 0 emergency, 1 alert, 2 critical, 3 error, 4 warning, ...
    unsigned facility = 0; // 0 the kernel itself; others are processes that wrote into its log
    uint64_t sequence = 0;
    double seconds = 0; // on the kernel's clock
    std::string text;
};

// The least urgent messages that are taken.
constexpr unsigned priority_warning = 4;
// What is longer is cut off.
constexpr std::size_t longest_kernel_text = 1000;

// One line; nothing for a line of another form.
std::optional<kernel_message> parse_kernel_record(std::string_view line);

// Seconds since 1970 of a message that was read at @p now, when at @p drained (on the monotonic
// clock) all older ones had been read.
//
// The kernel stamps messages with a clock of its own, which stands still while the machine sleeps,
// as the monotonic clock does, but which nobody keeps in step with the time: it drifts by some ten
// in a million, so by a second or so in a day. A message that comes while the recording runs lies
// between the last look and now, and is as exact as that. One from before is off by the drift since
// the machine started, and by the time that the machine has slept since.
double wall_time_of(double stamp, const clock_reading &now, std::optional<double> drained);

class kernel_log
{
public:
    enum class begin { with_old, with_new };

    // @p path is "/dev/kmsg", or a file or pipe with the same records.
    kernel_log(const std::string &path, begin where);
    kernel_log(const kernel_log &) = delete;
    kernel_log &operator=(const kernel_log &) = delete;
    ~kernel_log();

    // Why there is nothing to read, in words; empty while there is.
    const std::string &problem() const { return problem_; }
    // Readable when there is a message; -1 where nothing can be read.
    int fd() const { return fd_; }

    // The next message that is a warning or worse. Nothing when there is none, or when it has not
    // turned up among as many records as may be read in one call.
    std::optional<kernel_message> next();
    // All messages that are there have been read.
    bool is_drained() const { return drained_; }
    // How many were overwritten before they could be read, and what is no record, since the last
    // call.
    uint64_t take_lost();

private:
    bool fill();
    std::string_view take_line();
    void count_lost(const kernel_message &message);
    void close_log(const std::string &problem);

    std::string path_;
    int fd_ = -1;
    std::string problem_;
    std::string unread_;
    std::size_t at_ = 0;
    bool drained_ = false;
    bool overrun_ = false;
    std::optional<uint64_t> sequence_; // of the last record
    uint64_t lost_ = 0;
};

// Lets so many messages through in a minute and counts the others.
class minute_quota
{
public:
    explicit minute_quota(uint64_t most) : most_(most) {}

    bool take(double monotonic);

private:
    uint64_t most_;
    uint64_t taken_ = 0;
    std::optional<double> begin_;
};

} // namespace cli

#endif
