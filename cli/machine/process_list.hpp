// Finds the processes that use the most processor time, memory and disk, so that an event can tell
// who loaded the machine. Two passes over /proc give the use in between. Names of processes may
// hold any bytes.
#ifndef VESK_CLI_MACHINE_PROCESS_LIST_HPP
#define VESK_CLI_MACHINE_PROCESS_LIST_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "text/event_text.hpp"

namespace cli
{

// A process as /proc/PID/stat tells of it.
struct process_stat {
    std::string name; // any bytes, 15 of a process and up to 63 of a thread of the kernel
    uint64_t ticks = 0;
    uint64_t started = 0; // in ticks since the machine did
    uint64_t resident_pages = 0;
};

// Nothing when @p text has another form.
std::optional<process_stat> parse_process_stat(std::string_view text);
// Bytes that came from or went to disks, by /proc/PID/io.
std::optional<uint64_t> parse_process_io(std::string_view text);

struct process_use {
    uint32_t pid = 0;
    std::string name;
    double figure = 0;
};

// Sorted by use, the largest first. Processes that used nothing are not listed.
struct top_processes {
    double seconds = 0;                 // since the look before
    std::vector<process_use> processor; // percent of one processor
    std::vector<process_use> memory;    // resident bytes
    std::vector<process_use> io;        // bytes a second
    std::size_t processes = 0;
    bool is_whole = true; // all processes were looked at
};

// Looks at processes again and again, and compares.
class process_list
{
public:
    // So many are looked at in one go, for at most so long; it bounds memory (32 bytes for each)
    // and how long a sample may have to wait.
    static constexpr std::size_t most_processes = 100000;
    static constexpr double most_seconds = 0.25;

    // Processes of ROOT/proc. @p with_arguments: the command line takes the place of the name.
    process_list(std::string root, bool with_arguments)
        : root_(std::move(root)), with_arguments_(with_arguments)
    {
    }

    // The @p count that used the most since the last call. The first call compares with nothing: it
    // gives the memory only.
    top_processes look(std::size_t count, double monotonic);

private:
    struct usage {
        uint32_t pid;
        uint64_t started;
        uint64_t ticks;
        uint64_t io;
    };
    struct growth {
        double ticks;
        double io;
    };
    class leaders;

    growth growth_of(const usage &now) const;
    void look_at(uint32_t pid, leaders &leading, std::vector<usage> &seen) const;
    std::string arguments_of(uint32_t pid) const;
    void put_arguments(std::vector<process_use> &uses) const;

    std::string root_;
    bool with_arguments_;
    std::vector<usage> before_; // by pid
    std::optional<double> looked_;
    bool was_whole_ = true;
};

// As pairs "cpu1=87.5,1234,NAME", "memory1=BYTES,PID,NAME", "io1=BYTES,PID,NAME" and so on; the
// name comes last because anything may be in it.
void add_processes(event_text &text, const top_processes &top);

} // namespace cli

#endif
