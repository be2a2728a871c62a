// Who pushes. A password comes from a file that only its owner can read, or from the environment,
// never from a command line, and is shown nowhere.
#ifndef VESK_CLI_PUSH_CREDENTIALS_HPP
#define VESK_CLI_PUSH_CREDENTIALS_HPP

#include <string>

namespace cli
{

struct credentials {
    std::string user; // empty where nobody is told
    std::string password;
};

// From the file @p path: the lines "user NAME" and "password TEXT"; without one from
// VESK_PUSH_USER and VESK_PUSH_PASSWORD. @p user, which the URL has told, wins. Throws a failure
// for a file that others may read, or that holds anything else.
credentials find_credentials(const std::string &path, const std::string &user);

} // namespace cli

#endif
