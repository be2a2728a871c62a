// Only addresses, no names: a name would have to be looked up, and may mean another address on the
// next day.
#include "serve/listen_address.hpp"

#include <arpa/inet.h>
#include <array>
#include <charconv>
#include <cstring>
#include <fmt/format.h>
#include <netinet/in.h>
#include <optional>
#include <sys/socket.h>

#include "process/failure.hpp"

namespace cli
{
namespace
{

constexpr int waiting_connections = 64;

bool is_ipv4(const std::string &host)
{
    in_addr address = {};
    return inet_pton(AF_INET, host.c_str(), &address) == 1;
}

bool is_ipv6(const std::string &host)
{
    in6_addr address = {};
    return inet_pton(AF_INET6, host.c_str(), &address) == 1;
}

// Digits alone: no sign, no space, and no more than a port has.
std::optional<uint16_t> port_in(std::string_view text)
{
    uint16_t port = 0;
    const char *const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, port);
    const bool is_whole = !text.empty() && read.ec == std::errc() && read.ptr == end;
    return is_whole ? std::optional(port) : std::nullopt;
}

// As the system writes the address: "::1" for "0:0:0:0:0:0:0:1".
std::string usual_form(const std::string &host, bool ipv6)
{
    std::array<unsigned char, sizeof(in6_addr)> address = {};
    std::array<char, INET6_ADDRSTRLEN> text = {};
    const int family = ipv6 ? AF_INET6 : AF_INET;
    (void)inet_pton(family, host.c_str(), address.data());
    return inet_ntop(family, address.data(), text.data(), text.size()) != nullptr ? text.data()
                                                                                  : host;
}

struct socket_address {
    sockaddr_storage storage = {};
    socklen_t size = 0;

    sockaddr *get() { return reinterpret_cast<sockaddr *>(&storage); }
};

socket_address to_system(const listen_address &address)
{
    socket_address result;
    if (address.is_ipv6) {
        sockaddr_in6 six = {};
        six.sin6_family = AF_INET6;
        six.sin6_port = htons(address.port);
        (void)inet_pton(AF_INET6, address.host.c_str(), &six.sin6_addr);
        result.size = sizeof(six);
        std::memcpy(&result.storage, &six, sizeof(six));
    } else {
        sockaddr_in four = {};
        four.sin_family = AF_INET;
        four.sin_port = htons(address.port);
        (void)inet_pton(AF_INET, address.host.c_str(), &four.sin_addr);
        result.size = sizeof(four);
        std::memcpy(&result.storage, &four, sizeof(four));
    }
    return result;
}

uint16_t port_of(const file_descriptor &listener)
{
    socket_address bound;
    bound.size = sizeof(bound.storage);
    if (getsockname(listener.get(), bound.get(), &bound.size) != 0) {
        return 0;
    }
    // The port stands at the same place in both.
    sockaddr_in four = {};
    std::memcpy(&four, &bound.storage, sizeof(four));
    return ntohs(four.sin_port);
}

} // namespace

std::string listen_address::url() const
{
    return fmt::format("http://{}{}{}:{}/", is_ipv6 ? "[" : "", host, is_ipv6 ? "]" : "", port);
}

bool is_ip_address(const std::string &host)
{
    return is_ipv4(host) || is_ipv6(host);
}

bool is_loopback_address(const std::string &host)
{
    in_addr four = {};
    in6_addr six = {};
    constexpr uint32_t loopback_network = 127;
    return (inet_pton(AF_INET, host.c_str(), &four) == 1 &&
            ntohl(four.s_addr) >> 24U == loopback_network) ||
           (inet_pton(AF_INET6, host.c_str(), &six) == 1 && IN6_IS_ADDR_LOOPBACK(&six) != 0);
}

listen_address parse_listen_address(const std::string &text)
{
    const failure wrong(exit_usage,
                        fmt::format("--listen: '{}' is no address with a port, as 127.0.0.1:8080, "
                                    "[::1]:8080 or localhost:8080",
                                    text));
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos) {
        throw wrong;
    }
    std::string host = text.substr(0, colon);
    const std::optional<uint16_t> port = port_in(std::string_view(text).substr(colon + 1));
    const bool has_brackets = host.size() > 2 && host.front() == '[' && host.back() == ']';
    if (has_brackets) {
        host = host.substr(1, host.size() - 2);
    } else if (host == "localhost") {
        host = "127.0.0.1";
    }
    if (!port || !(has_brackets ? is_ipv6(host) : is_ipv4(host))) {
        throw wrong;
    }
    listen_address address;
    address.host = usual_form(host, has_brackets);
    address.port = *port;
    address.is_ipv6 = has_brackets;
    address.is_loopback = is_loopback_address(address.host);
    address.is_any = address.host == "0.0.0.0" || address.host == "::";
    return address;
}

file_descriptor open_listener(listen_address &address)
{
    socket_address wanted = to_system(address);
    file_descriptor listener(socket(address.is_ipv6 ? AF_INET6 : AF_INET,
                                    SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int yes = 1;
    const bool is_ready =
        listener.is_open() &&
        setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes)) == 0 &&
        bind(listener.get(), wanted.get(), wanted.size) == 0 &&
        listen(listener.get(), waiting_connections) == 0;
    if (!is_ready) {
        throw failure(exit_failed, with_errno(address.url()));
    }
    address.port = port_of(listener);
    return listener;
}

} // namespace cli
