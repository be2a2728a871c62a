#include "machine/procps.hpp"

#include <array>
#include <fmt/format.h>
#include <iterator>
#include <libproc2/diskstats.h>
#include <libproc2/meminfo.h>
#include <libproc2/misc.h>
#include <libproc2/stat.h>
#include <libproc2/vmstat.h>

namespace cli
{
namespace
{

constexpr uint64_t sector_size = 512; // of the counters, whatever the disk's own is

stat_item tick_items[] = {STAT_TIC_ID,     STAT_TIC_USER,    STAT_TIC_NICE,
                          STAT_TIC_SYSTEM, STAT_TIC_IDLE,    STAT_TIC_IOWAIT,
                          STAT_TIC_IRQ,    STAT_TIC_SOFTIRQ, STAT_TIC_STOLEN};

// libproc2 remembers disks that are gone. It is asked anew each time; its differences are not used.
template <typename Info, int (*open)(Info **), int (*close)(Info **)>
class handle
{
public:
    handle()
    {
        if (open(&info_) < 0) {
            info_ = nullptr;
        }
    }
    handle(const handle &) = delete;
    handle &operator=(const handle &) = delete;
    ~handle()
    {
        if (info_ != nullptr) {
            close(&info_);
        }
    }
    explicit operator bool() const { return info_ != nullptr; }
    Info *get() const { return info_; }

private:
    Info *info_ = nullptr;
};

processor_ticks ticks_of(const stat_stack &stack)
{
    const stat_result *r = stack.head;
    return {r[1].result.ull_int, r[2].result.ull_int, r[3].result.ull_int, r[4].result.ull_int,
            r[5].result.ull_int, r[6].result.ull_int, r[7].result.ull_int, r[8].result.ull_int};
}

void add_gauge(measurements &out, const char *name, double value)
{
    out.push_back({name, gauge{value}});
}

void add_counter(measurements &out, const char *name, uint64_t count)
{
    out.push_back({name, counter{count, 1}});
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

void measure_disk(const std::string &name, const disk_counts &counts, measurements &out)
{
    if (counts.reads == 0 && counts.writes == 0) {
        return;
    }
    const std::string prefix = fmt::format("::disk.{}.", name_part(name));
    const auto add = [&](const char *what, uint64_t count, double unit) {
        out.push_back({prefix + what, counter{count, unit}});
    };
    add("reads_per_s", counts.reads, 1);
    add("read_bytes_per_s", counts.read_sectors, sector_size);
    add("writes_per_s", counts.writes, 1);
    add("write_bytes_per_s", counts.written_sectors, sector_size);
    // Milliseconds in a second: a tenth of a percent each.
    add("busy_percent", counts.busy_ms, 0.1);
    add("queue_length", counts.weighted_ms, 0.001);
}

namespace
{

void measure_processors(measurements &out)
{
    const handle<stat_info, procps_stat_new, procps_stat_unref> info;
    if (!info) {
        return;
    }
    const stat_reaped *found =
        procps_stat_reap(info.get(), STAT_REAP_CPUS_ONLY, tick_items, std::size(tick_items));
    if (found == nullptr) {
        return;
    }
    measure_processor("total", ticks_of(*found->summary), out);
    for (int i = 0; i < found->cpus->total; ++i) {
        const stat_stack &cpu = *found->cpus->stacks[i];
        measure_processor(std::to_string(cpu.head[0].result.s_int), ticks_of(cpu), out);
    }
    stat_item items[] = {STAT_SYS_CTX_SWITCHES, STAT_SYS_INTERRUPTS, STAT_SYS_PROC_CREATED,
                         STAT_SYS_PROC_RUNNING, STAT_SYS_PROC_BLOCKED};
    const stat_stack *kernel = procps_stat_select(info.get(), items, std::size(items));
    if (kernel == nullptr) {
        return;
    }
    add_counter(out, "::kernel.context_switches_per_s", kernel->head[0].result.ul_int);
    add_counter(out, "::kernel.interrupts_per_s", kernel->head[1].result.ul_int);
    add_counter(out, "::kernel.forks_per_s", kernel->head[2].result.ul_int);
    add_gauge(out, "::kernel.running", static_cast<double>(kernel->head[3].result.ul_int));
    add_gauge(out, "::kernel.blocked", static_cast<double>(kernel->head[4].result.ul_int));
}

void measure_load(measurements &out)
{
    double one = 0;
    double five = 0;
    double fifteen = 0;
    if (procps_loadavg(&one, &five, &fifteen) < 0) {
        return;
    }
    add_gauge(out, "::load.1min", one);
    add_gauge(out, "::load.5min", five);
    add_gauge(out, "::load.15min", fifteen);
}

void measure_memory(measurements &out)
{
    struct entry {
        const char *name;
        meminfo_item item;
    };
    static constexpr std::array<entry, 12> entries = {{
        {"::mem.total_bytes", MEMINFO_MEM_TOTAL},
        {"::mem.available_bytes", MEMINFO_MEM_AVAILABLE},
        {"::mem.free_bytes", MEMINFO_MEM_FREE},
        {"::mem.buffers_bytes", MEMINFO_MEM_BUFFERS},
        {"::mem.cached_bytes", MEMINFO_MEM_CACHED},
        {"::mem.anonymous_bytes", MEMINFO_MEM_ANON},
        {"::mem.shared_bytes", MEMINFO_MEM_SHARED},
        {"::mem.slab_bytes", MEMINFO_MEM_SLAB},
        {"::mem.dirty_bytes", MEMINFO_MEM_DIRTY},
        {"::mem.writeback_bytes", MEMINFO_MEM_WRITEBACK},
        {"::swap.total_bytes", MEMINFO_SWAP_TOTAL},
        {"::swap.used_bytes", MEMINFO_SWAP_USED},
    }};
    const handle<meminfo_info, procps_meminfo_new, procps_meminfo_unref> info;
    if (!info) {
        return;
    }
    meminfo_item items[entries.size()];
    for (std::size_t i = 0; i < entries.size(); ++i) {
        items[i] = entries[i].item;
    }
    const meminfo_stack *found = procps_meminfo_select(info.get(), items, std::size(items));
    if (found == nullptr) {
        return;
    }
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const auto kibibytes = static_cast<double>(found->head[i].result.ul_int);
        add_gauge(out, entries[i].name, kibibytes * 1024);
    }
}

void measure_paging(measurements &out)
{
    const handle<vmstat_info, procps_vmstat_new, procps_vmstat_unref> info;
    if (!info) {
        return;
    }
    vmstat_item items[] = {VMSTAT_PGFAULT, VMSTAT_PGMAJFAULT, VMSTAT_PSWPIN, VMSTAT_PSWPOUT,
                           VMSTAT_OOM_KILL};
    const vmstat_stack *found = procps_vmstat_select(info.get(), items, std::size(items));
    if (found == nullptr) {
        return;
    }
    add_counter(out, "::mem.faults_per_s", found->head[0].result.ul_int);
    add_counter(out, "::mem.major_faults_per_s", found->head[1].result.ul_int);
    add_counter(out, "::swap.in_pages_per_s", found->head[2].result.ul_int);
    add_counter(out, "::swap.out_pages_per_s", found->head[3].result.ul_int);
    add_counter(out, "::mem.oom_kills_per_s", found->head[4].result.ul_int);
}

void measure_disks(measurements &out)
{
    const handle<diskstats_info, procps_diskstats_new, procps_diskstats_unref> info;
    if (!info) {
        return;
    }
    diskstats_item items[] = {
        DISKSTATS_NAME,   DISKSTATS_TYPE,          DISKSTATS_READS,   DISKSTATS_READ_SECTORS,
        DISKSTATS_WRITES, DISKSTATS_WRITE_SECTORS, DISKSTATS_IO_TIME, DISKSTATS_WEIGHTED_TIME};
    const diskstats_reaped *found = procps_diskstats_reap(info.get(), items, std::size(items));
    if (found == nullptr) {
        return;
    }
    for (int i = 0; i < found->total; ++i) {
        const diskstats_result *r = found->stacks[i]->head;
        if (r[1].result.s_int == DISKSTATS_TYPE_DISK) {
            measure_disk(r[0].result.str,
                         {r[2].result.ul_int, r[3].result.ul_int, r[4].result.ul_int,
                          r[5].result.ul_int, r[6].result.ul_int, r[7].result.ul_int},
                         out);
        }
    }
}

} // namespace

void measure_procps(measurements &out)
{
    measure_processors(out);
    measure_load(out);
    measure_memory(out);
    measure_paging(out);
    measure_disks(out);
}

} // namespace cli
