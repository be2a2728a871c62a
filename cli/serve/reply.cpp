// Writes heads of answers, and the page that tells why there is no other answer.
#include "serve/reply.hpp"

#include <array>
#include <fmt/format.h>
#include <string_view>

#include "page/html.hpp"

namespace cli
{
namespace
{

struct status_name {
    int status;
    std::string_view name;
};

constexpr std::array<status_name, 12> status_names = {{
    {200, "OK"},
    {400, "Bad Request"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {408, "Request Timeout"},
    {413, "Content Too Large"},
    {414, "URI Too Long"},
    {421, "Misdirected Request"},
    {431, "Request Header Fields Too Large"},
    {503, "Service Unavailable"},
    {505, "HTTP Version Not Supported"},
}};

std::string_view name_of_status(int status)
{
    for (const status_name &one : status_names) {
        if (one.status == status) {
            return one.name;
        }
    }
    return "Error";
}

} // namespace

std::string reply_head(const reply &what)
{
    constexpr int method_not_allowed = 405;
    std::string head = fmt::format("HTTP/1.1 {} {}\r\nContent-Type: {}\r\n", what.status,
                                   name_of_status(what.status), what.type);
    if (!what.is_stream) {
        head += fmt::format("Content-Length: {}\r\n", what.body ? what.body->size() : 0);
    }
    if (what.status == method_not_allowed) {
        head += "Allow: GET, HEAD\r\n";
    }
    head += "Connection: close\r\n"
            "Cache-Control: no-store\r\n"
            "X-Content-Type-Options: nosniff\r\n"
            "X-Frame-Options: DENY\r\n"
            "Content-Security-Policy: frame-ancestors 'none'\r\n"
            "Cross-Origin-Resource-Policy: same-origin\r\n"
            "Referrer-Policy: no-referrer\r\n\r\n";
    return head;
}

reply error_reply(int status, const std::string &words)
{
    reply result;
    result.status = status;
    result.type = "text/html; charset=utf-8";
    result.body = std::make_shared<const std::string>(
        fmt::format("<!doctype html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
                    "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'\">\n"
                    "<meta name=\"color-scheme\" content=\"light dark\">\n"
                    "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n{}"
                    "<title>vesk: {}</title></head>\n<body><p>{}</p></body></html>\n",
                    // Looks again: a box that cannot be shown now may be shown later.
                    status == 503 ? "<meta http-equiv=\"refresh\" content=\"5\">\n" : "",
                    name_of_status(status), html_text(words)));
    return result;
}

} // namespace cli
