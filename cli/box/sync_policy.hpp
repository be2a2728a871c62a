// When what was written is brought onto the medium.
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
