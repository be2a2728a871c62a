// Where a push goes: an engine behind HTTP, told by a URL. Its name is what cursors and messages
// call it; it never holds a password.
#ifndef VESK_CLI_PUSH_TARGET_HPP
#define VESK_CLI_PUSH_TARGET_HPP

#include <string>

namespace cli
{

enum class engine_kind { clickhouse, remote_write };

struct push_target {
    engine_kind engine = engine_kind::clickhouse;
    bool with_tls = false;
    std::string user;
    std::string host; // with brackets where it is an address of version 6
    std::string port;
    std::string database; // of ClickHouse: letters, digits and '_'
    std::string path;     // of remote write, with its query

    // "https://host:8443": where the requests go.
    std::string origin() const;
    // "clickhouse://host:8123/fleet": without the user.
    std::string name() const;
};

// "clickhouse://[USER@]HOST[:PORT]/DATABASE", with "clickhouses" over TLS, or
// "remote-write+http://[USER@]HOST[:PORT]/PATH", with "https" over TLS. Throws a usage failure for
// anything else, and for a password, that names @p option.
push_target parse_target(const std::string &url, const std::string &option = "--to");

} // namespace cli

#endif
