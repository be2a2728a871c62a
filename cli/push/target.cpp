// Takes the URL of a target apart. It is strict: a name with an odd character is refused rather
// than handed on to a server.
#include "push/target.hpp"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <string_view>

#include "process/failure.hpp"
#include "process/terminal.hpp"

namespace cli
{
namespace
{

constexpr std::size_t longest_url = 2048;
constexpr std::size_t most_shown = 80;

struct scheme {
    std::string_view begin;
    engine_kind engine;
    bool with_tls;
    std::string_view port;
};

constexpr scheme schemes[] = {
    {"clickhouse://", engine_kind::clickhouse, false, "8123"},
    {"clickhouses://", engine_kind::clickhouse, true, "8443"},
    {"remote-write+http://", engine_kind::remote_write, false, "80"},
    {"remote-write+https://", engine_kind::remote_write, true, "443"},
};

[[noreturn]] void refuse(std::string_view url, const std::string &why)
{
    throw failure(exit_usage, fmt::format(" {}: {}", printable(url.substr(0, most_shown)), why));
}

bool is_word(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

bool is_of(std::string_view text, std::string_view more)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [&](char c) {
        return is_word(c) || more.find(c) != std::string_view::npos;
    });
}

const scheme &scheme_of(std::string_view url)
{
    for (const scheme &each : schemes) {
        if (url.starts_with(each.begin)) {
            return each;
        }
    }
    // What stands there may be a password.
    throw failure(exit_usage, ": the URL of a target begins with clickhouse://, clickhouses:// "
                              "(over TLS), remote-write+http:// or remote-write+https://");
}

// @p begin is the scheme, all that may be shown before it is known that there is no password.
std::string user_in(std::string_view &rest, std::string_view begin)
{
    const std::string_view authority = rest.substr(0, rest.find_first_of("/?#"));
    const std::size_t at = authority.rfind('@');
    if (at == std::string_view::npos) {
        return {};
    }
    const std::string_view user = authority.substr(0, at);
    if (user.find(':') != std::string_view::npos) {
        throw failure(exit_usage,
                      fmt::format(" {}...: a password does not belong on a command line, where "
                                  "everybody sees it; put it into a file of credentials or into "
                                  "VESK_PUSH_PASSWORD",
                                  begin));
    }
    if (!is_of(user, ".-")) {
        throw failure(exit_usage,
                      fmt::format(" {}...: the user consists of letters, digits, '_', '.' "
                                  "and '-'; one that does not belongs into a file of credentials",
                                  begin));
    }
    rest.remove_prefix(at + 1);
    return std::string(user);
}

std::string host_in(std::string_view &rest, std::string_view url)
{
    if (rest.starts_with('[')) {
        const std::size_t end = rest.find(']');
        const std::string_view address =
            rest.substr(1, end == std::string_view::npos ? 0 : end - 1);
        if (address.empty() ||
            address.find_first_not_of("0123456789abcdefABCDEF:.") != std::string_view::npos) {
            refuse(url, "the address in brackets is none");
        }
        std::string host(rest.substr(0, end + 1));
        rest.remove_prefix(end + 1);
        return host;
    }
    const std::string_view host = rest.substr(0, rest.find_first_of(":/?#"));
    if (!is_of(host, ".-")) {
        refuse(url, "a host is needed, by its name or address");
    }
    rest.remove_prefix(host.size());
    return std::string(host);
}

std::string port_in(std::string_view &rest, std::string_view url)
{
    if (!rest.starts_with(':')) {
        return {};
    }
    const std::string_view port = rest.substr(1, rest.find_first_of("/?#") - 1);
    unsigned number = 0;
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), number);
    if (error != std::errc() || end != port.data() + port.size() || number == 0 || number > 65535) {
        refuse(url, "the port is a number up to 65535");
    }
    rest.remove_prefix(port.size() + 1);
    return std::to_string(number);
}

std::string database_in(std::string_view rest, std::string_view url)
{
    const std::string_view database = rest.starts_with('/') ? rest.substr(1) : std::string_view();
    constexpr std::size_t longest = 64;
    if (!is_of(database, "") || database.size() > longest) {
        refuse(url,
               "a database is needed behind the host, such as /fleet: letters, digits and '_'");
    }
    return std::string(database);
}

std::string path_in(std::string_view rest, std::string_view url)
{
    if (!rest.starts_with('/') || !is_of(rest, "/.-~%?=&")) {
        refuse(url, "the path of remote write is needed behind the host: /api/v1/write");
    }
    return std::string(rest);
}

// Failures lack the name of the option in front.
push_target parse(const std::string &url)
{
    if (url.size() > longest_url) {
        throw failure(exit_usage, ": a URL of more than 2048 bytes");
    }
    const scheme &kind = scheme_of(url);
    push_target target;
    target.engine = kind.engine;
    target.with_tls = kind.with_tls;
    std::string_view rest = std::string_view(url).substr(kind.begin.size());
    target.user = user_in(rest, kind.begin);
    const std::string shown = std::string(kind.begin) + std::string(rest);
    target.host = host_in(rest, shown);
    target.port = port_in(rest, shown);
    if (target.port.empty()) {
        target.port = kind.port;
    }
    if (kind.engine == engine_kind::clickhouse) {
        target.database = database_in(rest, shown);
    } else {
        target.path = path_in(rest, shown);
    }
    return target;
}

} // namespace

std::string push_target::origin() const
{
    return fmt::format("{}://{}:{}", with_tls ? "https" : "http", host, port);
}

std::string push_target::name() const
{
    for (const scheme &each : schemes) {
        if (each.engine == engine && each.with_tls == with_tls) {
            return fmt::format("{}{}:{}{}", each.begin, host, port,
                               engine == engine_kind::clickhouse ? "/" + database : path);
        }
    }
    return {};
}

push_target parse_target(const std::string &url, const std::string &option)
{
    try {
        return parse(url);
    } catch (const failure &reason) {
        throw failure(reason.code(), option + reason.what());
    }
}

} // namespace cli
