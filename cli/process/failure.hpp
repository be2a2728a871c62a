// The exceptions by which a verb gives up: a sentence for people and an exit code for programs.
// main() prints those that no verb caught, and ends with their code.
#ifndef VESK_CLI_PROCESS_FAILURE_HPP
#define VESK_CLI_PROCESS_FAILURE_HPP

#include <stdexcept>
#include <string>

#include "process/exit_codes.hpp"

namespace cli
{

class failure : public std::runtime_error
{
public:
    failure(exit_code code, const std::string &message) : std::runtime_error(message), code_(code)
    {
    }
    exit_code code() const { return code_; }

    // Something more that the user should know, shown behind the message.
    const std::string &remark() const { return remark_; }
    void set_remark(const std::string &text) { remark_ = text; }

private:
    exit_code code_;
    std::string remark_;
};

// Input that is refused at one line. It is shown as FILE:LINE: reason, the way compilers do, so
// that editors can jump to it.
class bad_input : public failure
{
public:
    bad_input(const std::string &file, unsigned long line, const std::string &reason)
        : failure(exit_failed, file + ":" + std::to_string(line) + ": " + reason)
    {
    }
};

// Turns an error code of the library into words.
std::string words_for(int code);

// "what: why", with the words of errno.
std::string with_errno(const std::string &what);

} // namespace cli

#endif
