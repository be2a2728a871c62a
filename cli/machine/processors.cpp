// The share of time of each processor, and what the scheduler counts. The lines of /proc/stat are
//   cpu  USER NICE SYSTEM IDLE IOWAIT IRQ SOFTIRQ STEAL GUEST GUEST_NICE     (all processors)
//   cpu0 ...                                                               (those that are online)
//   intr SUM ..., ctxt N, btime N, processes N, procs_running N, procs_blocked N
#include "machine/processors.hpp"

#include <array>
#include <fmt/format.h>
#include <optional>

#include "machine/text_fields.hpp"

namespace cli
{
namespace
{

struct kernel_counts {
    std::optional<uint64_t> switches, interrupts, forks, running, blocked;
};

// The four first have always been there.
void parse_processor(std::string_view name, std::string_view text, measurements &out)
{
    std::array<uint64_t, 8> n = {};
    if (parse_counts(text, n) < 4) {
        return;
    }
    measure_processor(name.empty() ? "total" : name_part(name),
                      {n[0], n[1], n[2], n[3], n[4], n[5], n[6], n[7]}, out);
}

void add_counter(const char *name, std::optional<uint64_t> count, measurements &out)
{
    if (count) {
        out.push_back({name, counter{*count, 1}});
    }
}

void add_gauge(const char *name, std::optional<uint64_t> count, measurements &out)
{
    if (count) {
        out.push_back({name, gauge{static_cast<double>(*count)}});
    }
}

void add(const kernel_counts &counts, measurements &out)
{
    add_counter("::kernel.context_switches_per_s", counts.switches, out);
    add_counter("::kernel.interrupts_per_s", counts.interrupts, out);
    add_counter("::kernel.forks_per_s", counts.forks, out);
    add_gauge("::kernel.running", counts.running, out);
    add_gauge("::kernel.blocked", counts.blocked, out);
}

} // namespace

void measure_processor(const std::string &name, const processor_ticks &ticks, measurements &out)
{
    const uint64_t idle = ticks.idle + ticks.iowait;
    const uint64_t busy =
        ticks.user + ticks.nice + ticks.system + ticks.irq + ticks.softirq + ticks.steal;
    const std::string prefix = fmt::format("::cpu.{}.", name);
    const auto add = [&](const char *what, uint64_t part) {
        out.push_back({prefix + what, portion{part, busy + idle}});
    };
    add("busy_percent", busy);
    add("user_percent", ticks.user + ticks.nice);
    add("system_percent", ticks.system + ticks.irq + ticks.softirq);
    add("iowait_percent", ticks.iowait);
    add("steal_percent", ticks.steal);
}

void parse_stat(std::string_view text, measurements &out)
{
    kernel_counts counts;
    std::size_t processors = 0;
    while (!text.empty()) {
        std::string_view line = cut(text, '\n');
        const std::string_view key = cut(line, ' ');
        if (key.starts_with("cpu")) {
            if (processors++ <= most_processors) {
                parse_processor(key.substr(3), line, out);
            }
        } else if (key == "ctxt") {
            counts.switches = parse_count(cut_word(line));
        } else if (key == "intr") {
            counts.interrupts = parse_count(cut_word(line));
        } else if (key == "processes") {
            counts.forks = parse_count(cut_word(line));
        } else if (key == "procs_running") {
            counts.running = parse_count(cut_word(line));
        } else if (key == "procs_blocked") {
            counts.blocked = parse_count(cut_word(line));
        }
    }
    add(counts, out);
}

void parse_load(std::string_view text, measurements &out)
{
    std::string_view line = cut(text, '\n');
    for (const char *name : {"::load.1min", "::load.5min", "::load.15min"}) {
        if (const auto value = parse_decimal(cut_word(line))) {
            out.push_back({name, gauge{*value}});
        }
    }
    // The fourth word is "2/345": threads that run or would like to, and all threads.
    std::string_view threads = cut_word(line);
    cut(threads, '/');
    add_gauge("::kernel.threads_count", parse_count(threads), out);
}

void parse_uptime(std::string_view text, measurements &out)
{
    std::string_view line = cut(text, '\n');
    if (const auto seconds = parse_decimal(cut_word(line))) {
        out.push_back({"::kernel.uptime_s", gauge{*seconds}});
    }
}

void measure_processors(const machine_files &files, measurements &out)
{
    files.parse_file("/proc/stat", parse_stat, out);
    files.parse_file("/proc/uptime", parse_uptime, out);
}

void measure_load(const machine_files &files, measurements &out)
{
    files.parse_file("/proc/loadavg", parse_load, out);
    // The states of the processes are not read, zombies not counted: that costs twenty times as
    // much, 10 microseconds for each process.
    if (const std::size_t processes = files.count_numbered("/proc")) {
        out.push_back({"::kernel.processes_count", gauge{static_cast<double>(processes)},
                       files.full_path("/proc")});
    }
}

} // namespace cli
