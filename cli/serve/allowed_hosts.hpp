// Which names a request may use for the server. A page from anywhere may make a name of its own
// point at this machine and have the browser ask for the box under that name (DNS rebinding); the
// browser then tells the foreign name in the header Host, and the request is refused.
#ifndef VESK_CLI_SERVE_ALLOWED_HOSTS_HPP
#define VESK_CLI_SERVE_ALLOWED_HOSTS_HPP

#include <string>
#include <string_view>
#include <vector>

#include "serve/listen_address.hpp"

namespace cli
{

class allowed_hosts
{
public:
    // @p names are allowed, too.
    allowed_hosts(const listen_address &address, std::vector<std::string> names);

    // @p host is the value of the header. Any port will do: who comes through a tunnel tells the
    // port of its other end.
    bool allows(std::string_view host) const;

private:
    listen_address address_;
    std::vector<std::string> names_;
};

} // namespace cli

#endif
