// Measures memory, swap space and paging. The lines of /proc/meminfo are "MemTotal: 16384 kB",
// those of /proc/vmstat "pgfault 12345". Keys that this kernel does not have give no sensor.
#include "machine/memory.hpp"

#include <array>
#include <optional>

#include "machine/text_fields.hpp"

namespace cli
{
namespace
{

struct entry {
    std::string_view key;
    const char *name;
};

constexpr std::array<entry, 13> amounts = {{
    {"MemTotal", "::mem.total_bytes"},
    {"MemAvailable", "::mem.available_bytes"},
    {"MemFree", "::mem.free_bytes"},
    {"Buffers", "::mem.buffers_bytes"},
    {"Cached", "::mem.cached_bytes"},
    {"AnonPages", "::mem.anonymous_bytes"},
    {"Shmem", "::mem.shared_bytes"},
    {"Slab", "::mem.slab_bytes"},
    {"Dirty", "::mem.dirty_bytes"},
    {"Writeback", "::mem.writeback_bytes"},
    {"Committed_AS", "::mem.committed_bytes"},
    {"SwapTotal", "::swap.total_bytes"},
    {"SwapFree", nullptr}, // told as what is used
}};
constexpr std::size_t swap_total = 11;
constexpr std::size_t swap_free = 12;

constexpr std::array<entry, 5> events = {{
    {"pgfault", "::mem.faults_per_s"},
    {"pgmajfault", "::mem.major_faults_per_s"},
    {"pswpin", "::swap.in_pages_per_s"},
    {"pswpout", "::swap.out_pages_per_s"},
    {"oom_kill", "::mem.oom_kills_per_s"},
}};

// The numbers behind the keys of @p entries, where they are.
template <std::size_t size>
std::array<std::optional<uint64_t>, size> find_counts(std::string_view text,
                                                      const std::array<entry, size> &entries)
{
    std::array<std::optional<uint64_t>, size> counts = {};
    while (!text.empty()) {
        std::string_view line = cut(text, '\n');
        std::string_view key = cut_word(line);
        key.remove_suffix(key.ends_with(':') ? 1 : 0);
        for (std::size_t i = 0; i < size; ++i) {
            if (key == entries[i].key) {
                counts[i] = parse_count(cut_word(line));
                break;
            }
        }
    }
    return counts;
}

double bytes_of(uint64_t kibibytes)
{
    return static_cast<double>(kibibytes) * 1024;
}

} // namespace

void parse_memory(std::string_view text, measurements &out)
{
    const auto found = find_counts(text, amounts);
    for (std::size_t i = 0; i < amounts.size(); ++i) {
        if (found[i] && amounts[i].name != nullptr) {
            out.push_back({amounts[i].name, gauge{bytes_of(*found[i])}});
        }
    }
    if (found[swap_total] && found[swap_free]) {
        const uint64_t total = *found[swap_total];
        const uint64_t free = *found[swap_free];
        out.push_back({"::swap.used_bytes", gauge{bytes_of(total > free ? total - free : 0)}});
    }
}

void parse_paging(std::string_view text, measurements &out)
{
    const auto found = find_counts(text, events);
    for (std::size_t i = 0; i < events.size(); ++i) {
        if (found[i]) {
            out.push_back({events[i].name, counter{*found[i], 1}});
        }
    }
}

void measure_memory(const machine_files &files, measurements &out)
{
    files.parse_file("/proc/meminfo", parse_memory, out);
    files.parse_file("/proc/vmstat", parse_paging, out);
}

} // namespace cli
