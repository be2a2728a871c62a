// The moments at which written data is synced to the medium, as the option --sync names them. A
// sync costs time and wears out flash memory, so the user chooses how much a loss of power may
// take.
#ifndef VESK_CLI_BOX_SYNC_POLICY_HPP
#define VESK_CLI_BOX_SYNC_POLICY_HPP

#include <cstdint>
#include <string>

namespace cli
{

struct sync_policy {
    enum class moment { never, vector, interval, end };

    moment when = moment::end;
    int64_t seconds = 0; // of an interval
};

// "never", "vector", "end", or a time such as "10s". Anything else is a usage failure.
sync_policy parse_sync_policy(const std::string &text);

} // namespace cli

#endif
