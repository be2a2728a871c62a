// An interval of history that was pushed.
#ifndef VESK_CLI_PUSH_KNOWN_INTERVAL_HPP
#define VESK_CLI_PUSH_KNOWN_INTERVAL_HPP

#include <cstdint>
#include <tuple>

namespace cli
{

struct known_interval {
    int64_t start;
    int64_t end;
    uint32_t file; // of the history buffer that it was pushed from, with its place there
    uint32_t ordinal;

    bool operator==(const known_interval &) const = default;

    // Whether it was pushed after @p other: times alone would mislead where a clock was set back.
    bool is_behind(const known_interval &other) const
    {
        return std::tie(file, ordinal) > std::tie(other.file, other.ordinal);
    }
};

} // namespace cli

#endif
