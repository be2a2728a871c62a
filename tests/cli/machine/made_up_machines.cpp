// Written after the documentation of the kernel (Documentation/filesystems/proc, admin-guide, ABI).
#include "cli/machine/made_up_machines.hpp"

namespace
{

constexpr const char *snmp =
    "Ip: Forwarding DefaultTTL InReceives\nIp: 2 64 7236\n"
    "Icmp: InMsgs InErrors\nIcmp: 2 0\n"
    "Tcp: RtoAlgorithm RtoMin RtoMax MaxConn ActiveOpens PassiveOpens AttemptFails EstabResets "
    "CurrEstab InSegs OutSegs RetransSegs InErrs OutRsts InCsumErrors\n"
    "Tcp: 1 200 120000 -1 33 4 1 0 12 7164 3444 5 0 2 0\n"
    "Udp: InDatagrams NoPorts InErrors OutDatagrams RcvbufErrors SndbufErrors InCsumErrors "
    "IgnoredMulti MemErrors\n"
    "Udp: 70 1 2 72 3 4 0 0 0\n"
    "UdpLite: InDatagrams NoPorts\nUdpLite: 0 0\n";

constexpr const char *netstat =
    "TcpExt: SyncookiesSent ListenOverflows ListenDrops TCPTimeouts TCPAbortOnMemory\n"
    "TcpExt: 0 1 2 3 4\n"
    "IpExt: InNoRoutes InTruncatedPkts\nIpExt: 0 0\n";

constexpr const char *snmp6 = "Ip6InReceives                   \t0\n"
                              "Udp6InDatagrams                 \t1\n"
                              "Udp6NoPorts                     \t2\n"
                              "Udp6InErrors                    \t3\n"
                              "Udp6OutDatagrams                \t4\n"
                              "Udp6RcvbufErrors                \t5\n"
                              "Udp6SndbufErrors                \t6\n";

constexpr const char *sockstat = "sockets: used 1523\n"
                                 "TCP: inuse 1 orphan 2 tw 3 alloc 4 mem 5\n"
                                 "UDP: inuse 6 mem 7\n"
                                 "UDPLITE: inuse 0\nRAW: inuse 0\nFRAG: inuse 0 memory 0\n";

constexpr const char *sockstat6 = "TCP6: inuse 8\nUDP6: inuse 9\nUDPLITE6: inuse 0\nRAW6: inuse 0\n"
                                  "FRAG6: inuse 0 memory 0\n";

constexpr const char *meminfo =
    "MemTotal:       16277012 kB\nMemFree:         1049344 kB\nMemAvailable:    9123456 kB\n"
    "Buffers:          524288 kB\nCached:          7340032 kB\nSwapCached:         1024 kB\n"
    "Active:          6291456 kB\nSwapTotal:       2097148 kB\nSwapFree:        2096892 kB\n"
    "Zswap:                 0 kB\nDirty:               512 kB\nWriteback:             0 kB\n"
    "AnonPages:       4194304 kB\nShmem:            262144 kB\nKReclaimable:     400000 kB\n"
    "Slab:             655360 kB\nSReclaimable:     400000 kB\nCommitted_AS:   12582912 kB\n"
    "HugePages_Total:       0\n";

constexpr const char *vmstat = "nr_free_pages 262336\npgfault 123456789\npgmajfault 1234\n"
                               "pswpin 5\npswpout 6\noom_kill 1\n";

constexpr const char *net_dev =
    "Inter-|   Receive                                                |  Transmit\n"
    " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop "
    "fifo colls carrier compressed\n"
    "    lo:    7184      59    0    0    0     0          0         0     7184      59    0    0  "
    "  "
    "0     0       0          0\n"
    "wlp1s0: 347996753    7447    0    0    0     0          0         0   276567    3621    0    "
    "0 "
    "   0     0       0          0\n";

void put_common(const machine_tree &tree)
{
    tree.put("proc/meminfo", meminfo);
    tree.put("proc/vmstat", vmstat);
    tree.put("proc/uptime", "15548.69 28000.11\n");
    tree.put("proc/loadavg", "0.50 0.40 0.30 2/1187 123456\n");
    tree.put("proc/net/dev", net_dev);
    tree.put("proc/sys/fs/file-nr", "12345\t0\t9223372036854775807\n");
    tree.put_folder("proc/1");
    tree.put_folder("proc/4711");
}

void put_network(const machine_tree &tree)
{
    tree.put("proc/net/snmp", snmp);
    tree.put("proc/net/snmp6", snmp6);
    tree.put("proc/net/netstat", netstat);
    tree.put("proc/net/sockstat", sockstat);
    tree.put("proc/net/sockstat6", sockstat6);
    tree.put("proc/sys/net/netfilter/nf_conntrack_count", "17\n");
    tree.put("proc/sys/net/netfilter/nf_conntrack_max", "262144\n");
}

void put_pressure(const machine_tree &tree, const std::string &resource, bool some)
{
    const std::string full = "full avg10=0.00 avg60=0.00 avg300=0.00 total=131757512\n";
    tree.put("proc/pressure/" + resource,
             (some ? "some avg10=1.53 avg60=0.87 avg300=0.60 total=608676617\n" : "") + full);
}

void put_service(const machine_tree &tree, const std::string &name)
{
    const std::string folder = "sys/fs/cgroup/" + name;
    tree.put(folder + "/cgroup.procs", "1\n");
    tree.put(folder + "/cpu.stat", "usage_usec 5000000\nuser_usec 4000000\nsystem_usec 1000000\n");
    tree.put(folder + "/memory.current", "104857600\n");
    tree.put(folder + "/memory.pressure", "some avg10=0.00 avg60=0.00 avg300=0.00 total=12\n"
                                          "full avg10=0.00 avg60=0.00 avg300=0.00 total=10\n");
    tree.put(folder + "/memory.events", "low 0\nhigh 0\nmax 0\noom 0\noom_kill 0\n");
}

void put_battery(const machine_tree &tree)
{
    const std::string supplies = "sys/class/power_supply/";
    tree.put(supplies + "AC/type", "Mains\n");
    tree.put(supplies + "AC/online", "0\n");
    tree.put(supplies + "BAT0/type", "Battery\n");
    tree.put(supplies + "BAT0/capacity", "83\n");
    tree.put(supplies + "BAT0/voltage_now", "12100000\n");
    tree.put(supplies + "BAT0/power_now", "6500000\n");
    tree.put(supplies + "BAT0/current_now", "540000\n");
    tree.put(supplies + "BAT0/status", "Discharging\n");
}

void put_chips(const machine_tree &tree)
{
    const std::string chip = "sys/class/hwmon/hwmon0/";
    tree.put(chip + "name", "nct6775\n");
    tree.put(chip + "temp1_input", "45125\n");
    tree.put(chip + "temp1_label", "SYSTIN\n");
    tree.put(chip + "fan1_input", "1200\n");
    tree.put(chip + "in0_input", "1250\n");
    tree.put(chip + "curr1_input", "1500\n");
    tree.put(chip + "power1_input", "65000000\n");
    tree.put(chip + "humidity1_input", "41000\n");
}

} // namespace

void make_laptop(const machine_tree &tree)
{
    put_common(tree);
    put_network(tree);
    tree.put("proc/stat", "cpu  1432883 515540 326414 614128 19466 0 2183 47823 0 0\n"
                          "cpu0 731016 245790 154183 316680 6294 0 416 25035 0 0\n"
                          "cpu1 701866 269750 172230 297447 13172 0 1766 22788 0 0\n"
                          "intr 12322987 0 1 2\nctxt 25099630\nbtime 1795311870\nprocesses 494577\n"
                          "procs_running 8\nprocs_blocked 1\nsoftirq 10318723 0 1\n");
    tree.put(
        "proc/diskstats",
        "   7       0 loop0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n"
        " 259       0 nvme0n1 258042 30859 11317506 300816 1875106 174869 64521760 883407 0 "
        "760664 2249693 601046 928 49457328 909969 597285 155499\n"
        " 259       1 nvme0n1p1 258 30 1131 300 1875 174 6452 883 0 760 2249 601 9 4945 90 0 0\n");
    tree.put_folder("sys/block/nvme0n1");
    tree.put_folder("sys/block/loop0");
    tree.put("proc/self/mountinfo",
             "22 28 0:21 / /proc rw,nosuid shared:12 - proc proc rw\n"
             "28 1 259:1 / / rw,relatime shared:1 - ext4 /dev/nvme0n1p1 rw\n"
             "31 28 0:26 / /run rw,nosuid shared:5 - tmpfs tmpfs rw,size=1602432k\n"
             "40 28 0:50 / /home/user/mnt rw - fuse.sshfs user@host: rw\n");
    for (const char *resource : {"cpu", "io", "memory"}) {
        put_pressure(tree, resource, true);
    }
    put_pressure(tree, "irq", false);
    tree.put("sys/fs/cgroup/cgroup.controllers", "cpuset cpu io memory pids\n");
    for (const char *name :
         {"init.scope", "system.slice", "system.slice/ssh.service", "user.slice"}) {
        put_service(tree, name);
    }
    tree.put("proc/net/wireless",
             "Inter-| sta-|   Quality        |   Discarded packets               | Missed | WE\n"
             " face | tus | link level noise |  nwid  crypt   frag  retry   misc | beacon | 22\n"
             "wlp1s0: 0000   54.  -56.  -256        0      0      0      0      9        0\n");
    put_battery(tree);
    put_chips(tree);
    tree.put("sys/class/thermal/thermal_zone0/type", "x86_pkg_temp\n");
    tree.put("sys/class/thermal/thermal_zone0/temp", "47000\n");
    tree.put("sys/devices/system/cpu/cpufreq/policy0/scaling_cur_freq", "800000\n");
    tree.put("sys/devices/system/cpu/cpu0/thermal_throttle/core_throttle_count", "1\n");
    tree.put("sys/devices/system/cpu/cpu0/thermal_throttle/package_throttle_count", "2\n");
    tree.put("sys/class/powercap/intel-rapl:0/name", "package-0\n");
    tree.put("sys/class/powercap/intel-rapl:0/energy_uj", "123456789\n");
    tree.put("sys/class/powercap/intel-rapl:0:0/name", "core\n");
    tree.put("sys/class/powercap/intel-rapl:0:0/energy_uj", "23456789\n");
}

void make_server(const machine_tree &tree)
{
    put_common(tree);
    put_network(tree);
    tree.put("proc/stat", "cpu  100 1 50 800 40 0 1 0 0 0\ncpu0 100 1 50 800 40 0 1 0 0 0\n"
                          "intr 500 1 2\nctxt 700\nbtime 1600000000\nprocesses 90\n"
                          "procs_running 2\nprocs_blocked 0\n");
    tree.put("proc/diskstats", "   8       0 sda 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15\n"
                               "   9       0 md0 1 0 3 0 5 0 7 0 0 0 0 0 0 0 0\n");
    tree.put_folder("sys/block/sda");
    tree.put_folder("sys/block/md0");
    tree.put("proc/mdstat",
             "Personalities : [raid1]\n"
             "md0 : active raid1 sdb1[1] sda1[0](F)\n"
             "      1048512 blocks super 1.2 [2/1] [_U]\n\nunused devices: <none>\n");
    for (const char *controller : {"mc0", "mc1"}) {
        const std::string folder = std::string("sys/devices/system/edac/mc/") + controller;
        tree.put(folder + "/ce_count", "2\n");
        tree.put(folder + "/ue_count", "0\n");
    }
    tree.put("sys/fs/cgroup/unified/cgroup.controllers", "\n");
    tree.put("sys/fs/cgroup/unified/init.scope/cgroup.procs", "1\n");
    tree.put("sys/fs/cgroup/unified/init.scope/cpu.stat", "usage_usec 5000000\n");
}

void make_board(const machine_tree &tree)
{
    put_common(tree);
    tree.put("proc/stat", "cpu  100 0 50 800 40 0 1 0 0 0\ncpu0 100 0 50 800 40 0 1 0 0 0\n"
                          "intr 500\nctxt 700\nbtime 1\nprocesses 90\nprocs_running 1\n"
                          "procs_blocked 0\n");
    tree.put("proc/diskstats", " 179       0 mmcblk0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17\n");
    tree.put_folder("sys/block/mmcblk0");
    tree.put("sys/class/thermal/thermal_zone0/type", "cpu-thermal\n");
    tree.put("sys/class/thermal/thermal_zone0/temp", "51540\n");
    tree.put("sys/devices/system/cpu/cpufreq/policy0/scaling_cur_freq", "1500000\n");
}

void make_container(const machine_tree &tree)
{
    tree.put("proc/meminfo", "MemTotal:       1048576 kB\nMemFree:  1048000 kB\n");
    tree.put("proc/loadavg", "0.00 0.00 0.00 1/2 3\n");
    tree.put("proc/stat", "cpu  100 0 50 800 0 0 0 0 0 0\ncpu3 100 0 50 800 0 0 0 0 0 0\n");
    tree.put_folder("proc/1");
    tree.put_folder("proc/diskstats"); // something in the place of a file
}
