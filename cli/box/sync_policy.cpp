// Parses the value of the option --sync: "never", "vector", "end", or a duration such as "10s"
// between two syncs. Any other text is a usage failure with the reason that parse_duration() gives.
#include "box/sync_policy.hpp"

#include "text/duration.hpp"

namespace cli
{

sync_policy parse_sync_policy(const std::string &text)
{
    using moment = sync_policy::moment;
    if (text == "never") {
        return {moment::never, 0};
    }
    if (text == "vector") {
        return {moment::vector, 0};
    }
    if (text == "end") {
        return {moment::end, 0};
    }
    return {moment::interval, parse_duration(text, "--sync")};
}

} // namespace cli
