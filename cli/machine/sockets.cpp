// Measures what the kernel has counted of TCP and UDP since it started, and how many sockets exist
// now. TCP is counted for IPv4 and IPv6 together, UDP and the sockets for each of them.
#include "machine/sockets.hpp"

#include <optional>
#include <unistd.h>

#include "machine/text_fields.hpp"

namespace cli
{
namespace
{

struct entry {
    std::string_view section; // the first word of a line
    std::string_view key;
    const char *name;
    bool is_count_now = false; // and not one that only grows
};

constexpr entry entries[] = {
    {"Tcp:", "CurrEstab", "::tcp.established_count", true},
    {"Tcp:", "ActiveOpens", "::tcp.connects_per_s"},
    {"Tcp:", "PassiveOpens", "::tcp.accepts_per_s"},
    {"Tcp:", "AttemptFails", "::tcp.failed_attempts_per_s"},
    {"Tcp:", "EstabResets", "::tcp.resets_per_s"},
    {"Tcp:", "InSegs", "::tcp.received_segments_per_s"},
    {"Tcp:", "OutSegs", "::tcp.sent_segments_per_s"},
    {"Tcp:", "RetransSegs", "::tcp.retransmitted_segments_per_s"},
    {"Tcp:", "InErrs", "::tcp.receive_errors_per_s"},
    {"TcpExt:", "ListenOverflows", "::tcp.listen_overflows_per_s"},
    {"TcpExt:", "ListenDrops", "::tcp.listen_drops_per_s"},
    {"TcpExt:", "TCPTimeouts", "::tcp.timeouts_per_s"},
    {"TcpExt:", "TCPAbortOnMemory", "::tcp.aborts_on_memory_per_s"},
    {"Udp:", "InDatagrams", "::udp.received_datagrams_per_s"},
    {"Udp:", "OutDatagrams", "::udp.sent_datagrams_per_s"},
    {"Udp:", "NoPorts", "::udp.no_port_per_s"},
    {"Udp:", "InErrors", "::udp.receive_errors_per_s"},
    {"Udp:", "RcvbufErrors", "::udp.receive_buffer_errors_per_s"},
    {"Udp:", "SndbufErrors", "::udp.send_buffer_errors_per_s"},
};

constexpr entry entries_6[] = {
    {"", "Udp6InDatagrams", "::udp.ipv6_received_datagrams_per_s"},
    {"", "Udp6OutDatagrams", "::udp.ipv6_sent_datagrams_per_s"},
    {"", "Udp6NoPorts", "::udp.ipv6_no_port_per_s"},
    {"", "Udp6InErrors", "::udp.ipv6_receive_errors_per_s"},
    {"", "Udp6RcvbufErrors", "::udp.ipv6_receive_buffer_errors_per_s"},
    {"", "Udp6SndbufErrors", "::udp.ipv6_send_buffer_errors_per_s"},
};

constexpr entry socket_entries[] = {
    {"sockets:", "used", "::sockets.used_count", true},
    {"TCP:", "inuse", "::sockets.tcp_count", true},
    {"TCP:", "orphan", "::sockets.tcp_orphans_count", true},
    {"TCP:", "tw", "::sockets.tcp_time_wait_count", true},
    {"TCP:", "mem", "::sockets.tcp_memory_bytes", true},
    {"UDP:", "inuse", "::sockets.udp_count", true},
    {"UDP:", "mem", "::sockets.udp_memory_bytes", true},
    {"TCP6:", "inuse", "::sockets.tcp6_count", true},
    {"UDP6:", "inuse", "::sockets.udp6_count", true},
};

const entry *find(std::span<const entry> table, std::string_view section, std::string_view key)
{
    for (const entry &each : table) {
        if (each.section == section && each.key == key) {
            return &each;
        }
    }
    return nullptr;
}

bool knows_section(std::span<const entry> table, std::string_view section)
{
    for (const entry &each : table) {
        if (each.section == section) {
            return true;
        }
    }
    return false;
}

void add(const entry &what, std::string_view number, double unit, measurements &out)
{
    const auto count = parse_count(number);
    if (!count) {
        return;
    }
    if (what.is_count_now) {
        out.push_back({what.name, gauge{static_cast<double>(*count) * unit}});
    } else {
        out.push_back({what.name, counter{*count, unit}});
    }
}

// A kernel names each key once. The limit bounds what a text takes that repeats them.
constexpr std::size_t most_found = 2 * std::size(entries);

} // namespace

void parse_protocols(std::string_view text, measurements &out)
{
    const std::size_t most = out.size() + most_found;
    while (!text.empty() && out.size() < most) {
        std::string_view keys = cut(text, '\n');
        const std::string_view section = cut_word(keys);
        if (!knows_section(entries, section)) {
            continue;
        }
        std::string_view numbers = cut(text, '\n');
        if (cut_word(numbers) != section) {
            continue;
        }
        while (!keys.empty() && out.size() < most) {
            const std::string_view key = cut_word(keys);
            const std::string_view number = cut_word(numbers);
            if (const entry *known = find(entries, section, key)) {
                add(*known, number, 1, out);
            }
        }
    }
}

void parse_protocols_6(std::string_view text, measurements &out)
{
    const std::size_t most = out.size() + most_found;
    while (!text.empty() && out.size() < most) {
        std::string_view line = cut(text, '\n');
        if (const entry *known = find(entries_6, "", cut_word(line))) {
            add(*known, cut_word(line), 1, out);
        }
    }
}

void parse_sockets(std::string_view text, double page_size, measurements &out)
{
    const std::size_t most = out.size() + most_found;
    while (!text.empty() && out.size() < most) {
        std::string_view line = cut(text, '\n');
        const std::string_view section = cut_word(line);
        while (!line.empty() && out.size() < most) {
            const std::string_view key = cut_word(line);
            const std::string_view number = cut_word(line);
            if (const entry *known = find(socket_entries, section, key)) {
                add(*known, number, key == "mem" ? page_size : 1, out);
            }
        }
    }
}

void measure_sockets(const machine_files &files, measurements &out)
{
    const auto page_size = static_cast<double>(sysconf(_SC_PAGESIZE));
    const auto sockets = [&](std::string_view text, measurements &found) {
        parse_sockets(text, page_size, found);
    };
    files.parse_file(files.of_network("snmp"), parse_protocols, out);
    files.parse_file(files.of_network("netstat"), parse_protocols, out);
    files.parse_file(files.of_network("snmp6"), parse_protocols_6, out);
    files.parse_file(files.of_network("sockstat"), sockets, out);
    files.parse_file(files.of_network("sockstat6"), sockets, out);
}

} // namespace cli
