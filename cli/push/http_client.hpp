// Sends requests to one engine over HTTP, with TLS where the target has it. A request is bounded in
// time and its reply in size, no redirect is followed, and a certificate that does not fit is
// refused.
#ifndef VESK_CLI_PUSH_HTTP_CLIENT_HPP
#define VESK_CLI_PUSH_HTTP_CLIENT_HPP

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "process/stop_request.hpp"
#include "push/credentials.hpp"

namespace cli
{

struct http_reply {
    long status = 0;       // 0 where there was no reply
    std::string text;      // cut at most_reply_bytes
    std::string trouble;   // why there was no reply, printable
    bool is_final = false; // of trouble that trying again does not cure: a wrong certificate
};

constexpr std::size_t most_reply_bytes = 65536;

class http_client
{
public:
    // Requests go to @p origin and below; @p ca_file replaces the certificates of the system where
    // it is told. A request is given up when @p stop is requested.
    http_client(std::string origin, const credentials &who, const std::string &ca_file,
                const stop_request &stop);
    http_client(const http_client &) = delete;
    http_client &operator=(const http_client &) = delete;
    ~http_client();

    // @p headers are whole lines.
    http_reply post(const std::string &path, std::string_view body,
                    const std::vector<std::string> &headers = {});

private:
    struct session;
    std::unique_ptr<session> session_;
};

} // namespace cli

#endif
