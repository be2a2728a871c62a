// Looks for the newest known interval from the surest sign to the least one.
#include "push/chain_place.hpp"

#include <algorithm>

namespace cli
{
namespace
{

// Where the newest known interval should be by now: each turn takes two numbers of files, and
// halves the places of all intervals before it.
std::size_t expected_place(uint32_t file, const known_interval &newest)
{
    const uint32_t turns = (file - std::min(file, newest.file)) / 2;
    return turns < 32 ? newest.ordinal >> turns : 0;
}

// The interval nearest to @p place that @p fits; nothing where none does.
template <typename Predicate>
std::optional<std::size_t> nearest(std::span<const chain_link> chain, std::size_t place,
                                   Predicate fits)
{
    const auto distance = [place](std::size_t i) { return i < place ? place - i : i - place; };
    std::optional<std::size_t> best;
    for (std::size_t i = 0; i < chain.size(); ++i) {
        if (fits(chain[i]) && (!best || distance(i) < distance(*best))) {
            best = i;
        }
    }
    return best;
}

} // namespace

chain_place find_place(std::span<const chain_link> chain, uint32_t file,
                       const std::optional<known_interval> &newest)
{
    if (!newest) {
        return {};
    }
    const int64_t end = newest->end;
    // Of this very history.
    if (newest->file == file && newest->ordinal < chain.size() &&
        chain[newest->ordinal].start == newest->start && chain[newest->ordinal].end == end) {
        return {newest->ordinal + std::size_t{1}, 0};
    }
    const std::size_t expected = expected_place(file, *newest);
    // As it was, or merged with what stood before it.
    if (const auto found =
            nearest(chain, expected, [&](const chain_link &link) { return link.end == end; })) {
        return {*found + 1, 0};
    }
    // Merged with what stood behind it, after many turns without a push.
    if (const auto found = nearest(chain, expected, [&](const chain_link &link) {
            return link.start <= end && link.end > end;
        })) {
        return {*found, end};
    }
    // It is gone, as with another box that had the same name.
    const auto behind = std::find_if(chain.begin(), chain.end(),
                                     [&](const chain_link &link) { return link.end > end; });
    return {static_cast<std::size_t>(behind - chain.begin()), 0};
}

} // namespace cli
