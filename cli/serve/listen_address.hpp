// The address that a server listens on, as a user writes it: "127.0.0.1:8080", "[::1]:8080",
// "localhost:8080". A port of 0 lets the system choose one.
#ifndef VESK_CLI_SERVE_LISTEN_ADDRESS_HPP
#define VESK_CLI_SERVE_LISTEN_ADDRESS_HPP

#include <cstdint>
#include <string>
#include <string_view>

#include "box/event_channel.hpp"

namespace cli
{

struct listen_address {
    std::string host; // an IP address as the system writes it, without brackets
    uint16_t port = 0;
    bool is_ipv6 = false;
    // Nobody outside of this machine reaches a loopback address; the address 0.0.0.0 or :: stands
    // for all addresses of the machine.
    bool is_loopback = false;
    bool is_any = false;

    // "http://[::1]:8080/".
    std::string url() const;
};

// Throws a usage failure for anything else than an IP address or localhost with a port.
listen_address parse_listen_address(const std::string &text);

// "127.0.0.1" and "::1", without brackets.
bool is_ip_address(const std::string &host);
bool is_loopback_address(const std::string &host);

// A socket that listens without ever waiting; sets the port of @p address to the real one. Throws a
// failure when the system refuses.
file_descriptor open_listener(listen_address &address);

} // namespace cli

#endif
