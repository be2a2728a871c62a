// Brings requests to an engine: tries again what may pass, gives up what never will, and counts
// what was sent.
#ifndef VESK_CLI_PUSH_REQUESTS_HPP
#define VESK_CLI_PUSH_REQUESTS_HPP

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "process/failure.hpp"
#include "process/stop_request.hpp"
#include "process/terminal.hpp"
#include "push/http_client.hpp"
#include "push/retries.hpp"
#include "push/target.hpp"

namespace cli
{

// The engine has refused something for good.
class push_refused : public failure
{
public:
    explicit push_refused(const std::string &message) : failure(exit_failed, message) {}
};

// The engine cannot be reached, or takes nothing for too long, or the end was requested: whatever
// else is to be pushed would meet the same.
class push_given_up : public failure
{
public:
    explicit push_given_up(const std::string &message) : failure(exit_failed, message) {}
};

class requests
{
public:
    requests(const push_target &target, http_client &client, const stop_request &stop,
             retries pace);

    // Returns the reply. Throws push_refused or push_given_up.
    std::string send(const std::string &path, std::string_view body,
                     const std::vector<std::string> &headers = {});

    uint64_t count() const { return count_; }
    uint64_t bytes() const { return bytes_; }
    status_line &status() { return status_; }

private:
    // Tells how the attempt went; empty when it has succeeded.
    std::string try_once(const std::string &path, std::string_view body,
                         const std::vector<std::string> &headers, std::string &reply);
    void wait(const std::string &trouble);

    const push_target &target_;
    http_client &client_;
    const stop_request &stop_;
    retries pace_;
    status_line status_;
    uint64_t count_ = 0;
    uint64_t bytes_ = 0;
};

} // namespace cli

#endif
