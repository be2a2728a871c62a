// Where in the history of a box the intervals begin that an engine does not have.
//
// History is a chain: each turn of the recorder appends intervals, merges the older ones in pairs,
// and never drops any. So the place is found by the newest interval that the engine has, which is
// still there, or the end of a longer one; times alone would mislead where a clock was set back.
#ifndef VESK_CLI_PUSH_CHAIN_PLACE_HPP
#define VESK_CLI_PUSH_CHAIN_PLACE_HPP

#include <cstdint>
#include <optional>
#include <span>

#include "push/engine_door.hpp"

namespace cli
{

struct chain_link {
    int64_t start;
    int64_t end;
};

struct chain_place {
    std::size_t first = 0; // the first interval that the engine does not have as a whole
    int64_t known = 0; // the time up to which the engine has the content of that one; 0 for nothing
};

// @p file is the number of the history that @p chain is read from, @p newest what the engine has.
chain_place find_place(std::span<const chain_link> chain, uint32_t file,
                       const std::optional<known_interval> &newest);

} // namespace cli

#endif
