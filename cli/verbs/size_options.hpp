// The options that say how large a box becomes: by its shape (--samples, --intervals), by how far
// back it reaches (--keep) or by what it takes on the disk (--disk).
#ifndef VESK_CLI_VERBS_SIZE_OPTIONS_HPP
#define VESK_CLI_VERBS_SIZE_OPTIONS_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "box/box_shape.hpp"
#include "box/shape_search.hpp"
#include "box/tier.hpp"
#include "verbs/verb.hpp"

namespace cli
{

struct size_options {
    box_shape shape;
    std::string keep; // empty: not wanted
    std::string disk;
    std::string tiers = "auto"; // or "none", or names of tiers with commas between

    // Throws a usage failure for options that contradict each other or make no sense.
    void check() const;
    bool are_in_peoples_terms() const { return !keep.empty() || !disk.empty(); }
    // What is to be looked for; records and rotation are not filled in.
    size_wish wish(int64_t interval, uint64_t event_bytes) const;
    // The tiers that a new box gets, from the finest to the coarsest. Throws a usage failure for
    // tiers that do not fit @p interval.
    std::vector<tier_kind> wanted_tiers(int64_t interval) const;
    // The bytes of events of one buffer where the user has not said it: not more than a small part
    // of --disk.
    uint64_t event_bytes(std::optional<uint32_t> wanted) const;
};

void add_size_options(option_list &options, size_options &sizes);
// --tiers alone; @p when_auto tells what "auto" chooses.
void add_tiers(option_list &options, size_options &sizes, std::string_view when_auto);

// A box, or a tier of one, as far as its size is concerned.
struct sized_box {
    whole_shape shape;
    int64_t interval = 1;
    record_bytes largest;
    uint64_t event_bytes = 0;

    uint64_t bytes() const { return most_bytes(shape, largest, event_bytes); }
};

// So many samples of one box may --keep ask for before it takes a tier, and so many has a box that
// has one: the buffers of more would need long to take turns.
constexpr int64_t most_samples_kept = 172800;

// "raw 1h to 2h, in summary 7h to 8h, at most 8.1 MiB".
std::string size_words(const sized_box &what);

// Notes where a box and its tiers are not what the options want, as when they were made for others.
void note_other_size(const std::string &base, const std::vector<sized_box> &all,
                     const size_options &sizes);

} // namespace cli

#endif
