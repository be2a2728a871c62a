// Reads /proc once and keeps the few processes that use the most processor time, memory and disk.
// Use is the growth since the previous pass. A process may end between two system calls and may
// have any bytes in its name, so each file is parsed on its own and a process that cannot be read
// is skipped.
#include "machine/process_list.hpp"

#include <algorithm>
#include <array>
#include <dirent.h>
#include <fmt/format.h>
#include <memory>
#include <unistd.h>

#include "machine/small_file.hpp"
#include "machine/text_fields.hpp"
#include "process/clock.hpp"

namespace cli
{
namespace
{

constexpr std::size_t longest_name = 63;
constexpr std::size_t longest_arguments = 200;
// The clock is read once for this many entries, because reading it for each would cost time.
constexpr std::size_t between_looks = 64;

// The fields behind the name, from 0 on: state, ppid, ...
constexpr std::size_t user_ticks = 11;
constexpr std::size_t system_ticks = 12;
constexpr std::size_t start_ticks = 19;
constexpr std::size_t resident = 21;

struct folder_closer {
    void operator()(DIR *folder) const { closedir(folder); }
};

} // namespace

std::optional<process_stat> parse_process_stat(std::string_view text)
{
    // The name may hold parentheses, blanks and line ends: it goes from the first to the last one.
    const auto open = text.find('(');
    const auto shut = text.rfind(')');
    if (open == std::string_view::npos || shut == std::string_view::npos || shut < open ||
        shut + 2 > text.size() || text[shut + 1] != ' ') {
        return std::nullopt;
    }
    process_stat found;
    found.name = text.substr(open + 1, std::min(shut - open - 1, longest_name));
    std::string_view rest = text.substr(shut + 2);
    std::array<std::string_view, resident + 1> fields;
    for (std::string_view &field : fields) {
        field = cut(rest, ' ');
    }
    const auto user = parse_count(fields[user_ticks]);
    const auto system = parse_count(fields[system_ticks]);
    const auto started = parse_count(fields[start_ticks]);
    const auto pages = parse_count(fields[resident]);
    if (!user || !system || !started || !pages) {
        return std::nullopt;
    }
    found.ticks = *user + *system;
    found.started = *started;
    found.resident_pages = *pages;
    return found;
}

std::optional<uint64_t> parse_process_io(std::string_view text)
{
    std::optional<uint64_t> total;
    while (!text.empty()) {
        std::string_view line = cut(text, '\n');
        const std::string_view key = cut(line, ' ');
        const auto count = parse_count(line);
        if ((key == "read_bytes:" || key == "write_bytes:") && count) {
            total = total.value_or(0) + *count;
        }
    }
    return total;
}

// Keeps the few processes that use most of one resource, for each resource.
class process_list::leaders
{
public:
    leaders(std::size_t count, top_processes &top) : count_(count), top_(top) {}

    void take(uint32_t pid, const process_stat &stat, const growth &grown)
    {
        static const auto page = static_cast<double>(sysconf(_SC_PAGESIZE));
        static const auto ticks_in_second = static_cast<double>(sysconf(_SC_CLK_TCK));
        const double seconds = std::max(top_.seconds, 0.001);
        offer(top_.processor, pid, stat.name, 100 * grown.ticks / ticks_in_second / seconds);
        offer(top_.memory, pid, stat.name, page * static_cast<double>(stat.resident_pages));
        offer(top_.io, pid, stat.name, grown.io / seconds);
    }

private:
    void offer(std::vector<process_use> &uses, uint32_t pid, const std::string &name,
               double figure) const
    {
        if (figure <= 0 || count_ == 0 || (uses.size() == count_ && uses.back().figure >= figure)) {
            return;
        }
        if (uses.size() == count_) {
            uses.pop_back();
        }
        const auto place = std::find_if(uses.begin(), uses.end(), [&](const process_use &other) {
            return other.figure < figure;
        });
        uses.insert(place, {pid, name, figure});
    }

    std::size_t count_;
    top_processes &top_;
};

// A process that the previous pass did not see has started since, unless that pass did not see all
// processes.
process_list::growth process_list::growth_of(const usage &now) const
{
    if (!looked_) {
        return {0, 0};
    }
    const auto found =
        std::lower_bound(before_.begin(), before_.end(), now.pid,
                         [](const usage &other, uint32_t pid) { return other.pid < pid; });
    const bool is_known =
        found != before_.end() && found->pid == now.pid && found->started == now.started;
    if (!is_known && !was_whole_) {
        return {0, 0};
    }
    const uint64_t ticks = is_known ? found->ticks : 0;
    const uint64_t io = is_known ? found->io : 0;
    return {static_cast<double>(now.ticks - std::min(now.ticks, ticks)),
            static_cast<double>(now.io - std::min(now.io, io))};
}

void process_list::look_at(uint32_t pid, leaders &leading, std::vector<usage> &seen) const
{
    const std::string folder = fmt::format("{}/proc/{}/", root_, pid);
    const auto stat = parse_process_stat(read_small_file(folder + "stat", 1024));
    if (!stat) {
        return; // it has ended
    }
    const auto io = parse_process_io(read_small_file(folder + "io", 1024));
    const usage now = {pid, stat->started, stat->ticks, io.value_or(0)};
    leading.take(pid, *stat, growth_of(now));
    seen.push_back(now);
}

top_processes process_list::look(std::size_t count, double monotonic)
{
    top_processes top;
    top.seconds = looked_ ? monotonic - *looked_ : 0;
    leaders leading(count, top);
    std::vector<usage> seen;
    seen.reserve(before_.size());
    const std::unique_ptr<DIR, folder_closer> folder(opendir((root_ + "/proc").c_str()));
    const double deadline = monotonic_seconds() + most_seconds;
    std::size_t entries = 0;
    while (const dirent *entry = folder ? readdir(folder.get()) : nullptr) {
        if (seen.size() == most_processes ||
            (++entries % between_looks == 0 && monotonic_seconds() > deadline)) {
            top.is_whole = false;
            break;
        }
        const auto pid = parse_count(entry->d_name);
        if (pid && *pid <= UINT32_MAX) {
            look_at(static_cast<uint32_t>(*pid), leading, seen);
        }
    }
    top.processes = seen.size();
    std::sort(seen.begin(), seen.end(),
              [](const usage &one, const usage &other) { return one.pid < other.pid; });
    before_ = std::move(seen);
    was_whole_ = top.is_whole;
    looked_ = monotonic;
    for (auto *uses : {&top.processor, &top.memory, &top.io}) {
        put_arguments(*uses);
    }
    return top;
}

// Threads of the kernel and processes that have ended have no arguments.
std::string process_list::arguments_of(uint32_t pid) const
{
    std::string text =
        read_small_file(fmt::format("{}/proc/{}/cmdline", root_, pid), longest_arguments);
    std::replace(text.begin(), text.end(), '\0', ' ');
    text.resize(text.find_last_not_of(' ') + 1);
    return text;
}

void process_list::put_arguments(std::vector<process_use> &uses) const
{
    for (process_use &use : uses) {
        const std::string arguments = with_arguments_ ? arguments_of(use.pid) : "";
        use.name = arguments.empty() ? use.name : arguments;
    }
}

void add_processes(event_text &text, const top_processes &top)
{
    const auto add = [&](const char *key, const std::vector<process_use> &uses, int digits) {
        for (std::size_t i = 0; i < uses.size(); ++i) {
            text.add(
                fmt::format("{}{}", key, i + 1),
                fmt::format("{:.{}f},{},{}", uses[i].figure, digits, uses[i].pid, uses[i].name));
        }
    };
    add("cpu", top.processor, 1);
    add("memory", top.memory, 0);
    add("io", top.io, 0);
}

} // namespace cli
