// The head of an HTTP request, as far as a server needs it that only shows things: what is asked
// for, under which name, and where an event stream is to go on. Bytes may come from anybody.
#ifndef VESK_CLI_SERVE_REQUEST_HEAD_HPP
#define VESK_CLI_SERVE_REQUEST_HEAD_HPP

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace cli
{

struct request_head {
    bool only_head = false; // HEAD instead of GET
    std::string path;       // as it was sent: nothing in it is decoded
    std::string query;      // behind the '?'
    std::string host;
    std::string last_event;              // Last-Event-ID
    std::optional<std::string> asked_by; // Sec-Fetch-Site
};

// What has come of a head is one of these.
struct head_reading {
    enum class state { incomplete, complete, refused };

    state is = state::incomplete;
    request_head head; // of a complete one
    int status = 0;    // of HTTP, of one that is refused
};

// Browsers send less than half of it.
constexpr std::size_t longest_head = 8192;
constexpr std::size_t longest_target = 1024;
constexpr std::size_t most_header_lines = 64;

// Reads a head from the beginning of @p bytes. What is malformed, too long, has a body or is
// neither GET nor HEAD is refused, at the latest when longest_head bytes have come.
head_reading read_head(std::string_view bytes);

} // namespace cli

#endif
