// The texts of /proc, parsed: the shapes of several kernels, and lines that are not what they
// should be.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/machine/machine_tree.hpp"
#include "machine/kernel_tables.hpp"
#include "machine/memory.hpp"
#include "machine/network.hpp"
#include "machine/processors.hpp"
#include "machine/redundancy.hpp"
#include "machine/sockets.hpp"
#include "machine/text_fields.hpp"

namespace
{

using namespace cli;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

template <typename Parse>
std::vector<std::string> parsed(Parse parse, std::string_view text)
{
    measurements out;
    parse(text, out);
    return texts_of(out);
}

TEST(TextFields, WordsAreSeparatedByBlanksAndTabs)
{
    std::string_view text = " \t one two\tthree ";
    EXPECT_EQ(cut_word(text), "one");
    EXPECT_EQ(cut_word(text), "two");
    EXPECT_EQ(cut_word(text), "three");
    EXPECT_EQ(cut_word(text), "");
    EXPECT_EQ(cut_word(text), "");
    EXPECT_EQ(word_at("a b c", 2), "c");
    EXPECT_EQ(word_at("a b c", 3), "");
}

TEST(TextFields, CountsAreWholeAndFit)
{
    EXPECT_EQ(parse_count("18446744073709551615"), UINT64_MAX);
    for (const char *wrong : {"", "-1", "+1", "1.5", "1x", " 1", "18446744073709551616", "0x1"}) {
        EXPECT_EQ(parse_count(wrong), std::nullopt) << wrong;
    }
}

TEST(TextFields, DecimalsFitSinglePrecision)
{
    EXPECT_EQ(parse_decimal("0.25"), 0.25);
    EXPECT_EQ(parse_decimal("-12"), -12.0);
    for (const char *wrong : {"", "nan", "inf", "-inf", "1e300", "1e39", "1,5", "1.5 ", "x"}) {
        EXPECT_EQ(parse_decimal(wrong), std::nullopt) << wrong;
    }
}

TEST(Stat, HasProcessorsAndCountsOfTheScheduler)
{
    measurements out;
    parse_stat("cpu  10 1 5 80 4 0 1 2 0 0\n"
               "cpu1 10 1 5 80 4 0 1 2 0 0\n"
               "intr 500 1 2 3\n"
               "ctxt 700\n"
               "btime 1700000000\n"
               "processes 90\n"
               "procs_running 2\n"
               "procs_blocked 1\n"
               "softirq 4 1 2\n",
               out);
    EXPECT_THAT(texts_of(out),
                ElementsAre("::cpu.total.busy_percent", "::cpu.total.user_percent",
                            "::cpu.total.system_percent", "::cpu.total.iowait_percent",
                            "::cpu.total.steal_percent", "::cpu.1.busy_percent",
                            "::cpu.1.user_percent", "::cpu.1.system_percent",
                            "::cpu.1.iowait_percent", "::cpu.1.steal_percent",
                            "::kernel.context_switches_per_s+700", "::kernel.interrupts_per_s+500",
                            "::kernel.forks_per_s+90", "::kernel.running=2", "::kernel.blocked=1"));
    const auto busy = std::get<portion>(out[0].what);
    EXPECT_EQ(busy.part, 19U);
    EXPECT_EQ(busy.whole, 103U);
}

// Kernels without virtual machines and fine accounting end their lines earlier.
TEST(Stat, FieldsThatAreNotThereAreNothing)
{
    measurements out;
    parse_stat("cpu 10 1 5 80\n", out);
    ASSERT_EQ(out.size(), 5U);
    EXPECT_EQ(std::get<portion>(out[0].what).part, 16U);
    EXPECT_EQ(std::get<portion>(out[0].what).whole, 96U);
}

TEST(Stat, LinesThatCannotBeReadAreLeftOut)
{
    EXPECT_THAT(parsed(parse_stat, "cpu 1 2 3\ncpu0 a b c d\nctxt x\nprocesses\n\nintr -1\n"),
                IsEmpty());
}

TEST(Load, HasAveragesAndThreads)
{
    EXPECT_THAT(parsed(parse_load, "0.50 1.25 2.00 3/456 7890\n"),
                ElementsAre("::load.1min=0.5", "::load.5min=1.25", "::load.15min=2",
                            "::kernel.threads_count=456"));
    EXPECT_THAT(parsed(parse_load, "0.50"), ElementsAre("::load.1min=0.5"));
}

TEST(Uptime, IsInSeconds)
{
    EXPECT_THAT(parsed(parse_uptime, "15548.69 28000.11\n"),
                ElementsAre("::kernel.uptime_s=15548.69"));
    EXPECT_THAT(parsed(parse_uptime, "\n"), IsEmpty());
}

TEST(Memory, IsToldInBytesAndSwapAsWhatIsUsed)
{
    EXPECT_THAT(parsed(parse_memory, "MemTotal:       16384 kB\n"
                                     "MemFree:            4 kB\n"
                                     "MemAvailable:       8 kB\n"
                                     "Buffers:            1 kB\n"
                                     "Cached:             2 kB\n"
                                     "SwapCached:        99 kB\n"
                                     "SwapTotal:        100 kB\n"
                                     "SwapFree:          60 kB\n"
                                     "Dirty:              3 kB\n"
                                     "Writeback:          5 kB\n"
                                     "AnonPages:          6 kB\n"
                                     "Shmem:              7 kB\n"
                                     "Slab:               9 kB\n"
                                     "SReclaimable:      99 kB\n"
                                     "WritebackTmp:      99 kB\n"
                                     "Committed_AS:      11 kB\n"),
                ElementsAre("::mem.total_bytes=1.677722e+07", "::mem.available_bytes=8192",
                            "::mem.free_bytes=4096", "::mem.buffers_bytes=1024",
                            "::mem.cached_bytes=2048", "::mem.anonymous_bytes=6144",
                            "::mem.shared_bytes=7168", "::mem.slab_bytes=9216",
                            "::mem.dirty_bytes=3072", "::mem.writeback_bytes=5120",
                            "::mem.committed_bytes=11264", "::swap.total_bytes=102400",
                            "::swap.used_bytes=40960"));
}

// Swap space that is being taken away may have more free than there is.
TEST(Memory, SwapIsNeverUsedByLessThanNothing)
{
    EXPECT_THAT(parsed(parse_memory, "SwapTotal: 10 kB\nSwapFree: 20 kB\n"),
                ElementsAre("::swap.total_bytes=10240", "::swap.used_bytes=0"));
}

// Kernels before 4.13 do not count the processes that were killed for memory.
TEST(Paging, WhatIsNotCountedIsLeftOut)
{
    EXPECT_THAT(parsed(parse_paging, "pgfault 5\npgmajfault 1\npswpin 2\npswpout 3\n"),
                ElementsAre("::mem.faults_per_s+5", "::mem.major_faults_per_s+1",
                            "::swap.in_pages_per_s+2", "::swap.out_pages_per_s+3"));
    EXPECT_THAT(parsed(parse_paging, "oom_kill 4\noom_kill_x 9\n"),
                ElementsAre("::mem.oom_kills_per_s+4"));
}

TEST(Protocols, ArePairsOfALineOfKeysAndALineOfNumbers)
{
    EXPECT_THAT(parsed(parse_protocols, "Ip: Forwarding DefaultTTL\n"
                                        "Ip: 2 64\n"
                                        "Tcp: MaxConn CurrEstab RetransSegs\n"
                                        "Tcp: -1 12 34\n"
                                        "Udp: InDatagrams NoPorts InErrors\n"
                                        "Udp: 5 6 7\n"
                                        "UdpLite: InDatagrams\n"
                                        "UdpLite: 99\n"),
                ElementsAre("::tcp.established_count=12", "::tcp.retransmitted_segments_per_s+34",
                            "::udp.received_datagrams_per_s+5", "::udp.no_port_per_s+6",
                            "::udp.receive_errors_per_s+7"));
    EXPECT_THAT(parsed(parse_protocols, "TcpExt: SyncookiesSent ListenOverflows ListenDrops\n"
                                        "TcpExt: 1 2 3\n"
                                        "IpExt: InNoRoutes\n"
                                        "IpExt: 4\n"),
                ElementsAre("::tcp.listen_overflows_per_s+2", "::tcp.listen_drops_per_s+3"));
}

TEST(Protocols, NumbersWithoutKeysAndKeysWithoutNumbersAreLeftOut)
{
    EXPECT_THAT(parsed(parse_protocols, "Tcp: CurrEstab RetransSegs\nTcp: 12\n"),
                ElementsAre("::tcp.established_count=12"));
    EXPECT_THAT(parsed(parse_protocols, "Tcp: CurrEstab\nUdp: 12\n"), IsEmpty());
    EXPECT_THAT(parsed(parse_protocols, "Tcp: CurrEstab"), IsEmpty());
    EXPECT_THAT(parsed(parse_protocols, "Tcp: CurrEstab\nTcp: x\n"), IsEmpty());
}

TEST(Protocols, OfVersion6StandInALineEach)
{
    EXPECT_THAT(parsed(parse_protocols_6, "Ip6InReceives                   \t1\n"
                                          "Udp6InErrors                    \t3\n"
                                          "UdpLite6InErrors                \t4\n"),
                ElementsAre("::udp.ipv6_receive_errors_per_s+3"));
}

TEST(Sockets, AreCountedAndTheirMemoryIsInPages)
{
    const auto parse = [](std::string_view text, measurements &out) {
        parse_sockets(text, 4096, out);
    };
    EXPECT_THAT(parsed(parse, "sockets: used 15\n"
                              "TCP: inuse 1 orphan 2 tw 3 alloc 4 mem 5\n"
                              "UDP: inuse 6 mem 7\n"
                              "RAW: inuse 99\n"
                              "FRAG: inuse 99 memory 99\n"),
                ElementsAre("::sockets.used_count=15", "::sockets.tcp_count=1",
                            "::sockets.tcp_orphans_count=2", "::sockets.tcp_time_wait_count=3",
                            "::sockets.tcp_memory_bytes=20480", "::sockets.udp_count=6",
                            "::sockets.udp_memory_bytes=28672"));
    EXPECT_THAT(parsed(parse, "TCP6: inuse 8\nUDP6: inuse\n"),
                ElementsAre("::sockets.tcp6_count=8"));
}

TEST(Wireless, SignalsInDecibelAreTold)
{
    EXPECT_THAT(
        parsed(parse_wireless,
               "Inter-| sta-|   Quality        |   Discarded packets               | Missed | WE\n"
               " face | tus | link level noise |  nwid  crypt   frag  retry   misc | beacon | 22\n"
               " wlan0: 0000   54.  -56.  -256        0      0      0      0      9        0\n"
               " wlan1: 0000   54.   80.  0           0      0      0      0      9        0\n"),
        ElementsAre("::wireless.wlan0.signal_dBm=-56"));
}

TEST(OpenFiles, HaveALimit)
{
    EXPECT_THAT(parsed(parse_open_files, "799\t0\t9223372036854775807\n"),
                ElementsAre("::files.open_count=799", "::files.limit_count=9.223372e+18"));
    EXPECT_THAT(parsed(parse_open_files, "799\t0\n"), IsEmpty());
}

TEST(Arrays, TellMissingDisksAndHowFarACopyIs)
{
    EXPECT_THAT(parsed(parse_arrays,
                       "Personalities : [raid1] [raid6] [raid5] [raid4] [raid0]\n"
                       "md1 : active raid1 sdc1[2] sda1[0](F)\n"
                       "      1048512 blocks super 1.2 [2/1] [_U]\n"
                       "      [=>...................]  recovery =  7.4% (78336/1048512) "
                       "finish=0.2min speed=78336K/sec\n"
                       "      bitmap: 1/1 pages [4KB], 65536KB chunk\n"
                       "\n"
                       "md0 : active raid1 sdb1[1] sda2[0]\n"
                       "      1048512 blocks [2/2] [UU]\n"
                       "      \tresync=DELAYED\n"
                       "\n"
                       "md127 : inactive sde[1](S)\n"
                       "      976631512 blocks super 1.2\n"
                       "\n"
                       "unused devices: <none>\n"),
                ElementsAre("::md.md1.active_flag=1", "::md.md1.missing_disks_count=1",
                            "::md.md1.synced_percent=7.4", "::md.md0.active_flag=1",
                            "::md.md0.missing_disks_count=0", "::md.md0.synced_percent=nan",
                            "::md.md127.active_flag=0", "::md.md127.synced_percent=nan"));
    EXPECT_THAT(parsed(parse_arrays, "Personalities : \nunused devices: <none>\n"), IsEmpty());
}

TEST(Arrays, AFileThatIsCutTellsWhatItHas)
{
    EXPECT_THAT(parsed(parse_arrays, "md0 : active raid1 sdb1[1] sda2[0]\n      1048 blocks [2/"),
                ElementsAre("::md.md0.active_flag=1", "::md.md0.synced_percent=nan"));
    EXPECT_THAT(parsed(parse_arrays, "md0 : act"),
                ElementsAre("::md.md0.active_flag=0", "::md.md0.synced_percent=nan"));
}

} // namespace
