// localhost, loopback addresses and the address of the server are allowed; any IP address where the
// server listens on more than loopback, because nobody can make an address point elsewhere.
#include "serve/allowed_hosts.hpp"

#include <algorithm>
#include <optional>

namespace cli
{
namespace
{

constexpr std::size_t longest_host = 255;

std::string lower(std::string_view text)
{
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    return result;
}

bool is_port(std::string_view text)
{
    constexpr std::size_t most_digits = 5;
    return !text.empty() && text.size() <= most_digits &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// Without brackets and port; nothing where it is neither a name nor an address.
std::optional<std::string> name_in(std::string_view host)
{
    if (host.empty() || host.size() > longest_host) {
        return std::nullopt;
    }
    if (host.front() == '[') {
        const std::size_t end = host.find(']');
        const std::string_view rest = end == std::string_view::npos ? "[" : host.substr(end + 1);
        if (!rest.empty() && (rest.front() != ':' || !is_port(rest.substr(1)))) {
            return std::nullopt;
        }
        const std::string address(host.substr(1, end - 1));
        return address.find(':') != std::string::npos && is_ip_address(address)
                   ? std::optional(lower(address))
                   : std::nullopt;
    }
    const std::size_t colon = host.find(':');
    if (colon != std::string_view::npos && !is_port(host.substr(colon + 1))) {
        return std::nullopt;
    }
    return lower(host.substr(0, colon));
}

} // namespace

allowed_hosts::allowed_hosts(const listen_address &address, std::vector<std::string> names)
    : address_(address), names_(std::move(names))
{
    std::transform(names_.begin(), names_.end(), names_.begin(),
                   [](const std::string &name) { return lower(name); });
}

bool allowed_hosts::allows(std::string_view host) const
{
    const std::optional<std::string> name = name_in(host);
    if (!name) {
        return false;
    }
    if (*name == "localhost" || *name == address_.host || is_loopback_address(*name)) {
        return true;
    }
    if (!address_.is_loopback && is_ip_address(*name)) {
        return true;
    }
    return std::find(names_.begin(), names_.end(), *name) != names_.end();
}

} // namespace cli
