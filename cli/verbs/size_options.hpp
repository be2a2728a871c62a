// The options that say how large a box becomes: by its shape (--samples, --intervals), by how far
// back it reaches (--keep) or by what it takes on the disk (--disk).
#ifndef VESK_CLI_VERBS_SIZE_OPTIONS_HPP
#define VESK_CLI_VERBS_SIZE_OPTIONS_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "box/box_shape.hpp"
#include "box/shape_search.hpp"
#include "verbs/verb.hpp"

namespace cli
{

struct size_options {
    box_shape shape;
    std::string keep; // empty: not wanted
    std::string disk;

    // Throws a usage failure for options that contradict each other or make no sense.
    void check() const;
    bool are_in_peoples_terms() const { return !keep.empty() || !disk.empty(); }
    // What is to be looked for; records and rotation are not filled in.
    size_wish wish(int64_t interval, uint64_t event_bytes) const;
    // The bytes of events of one buffer where the user has not said it: not more than a small part
    // of --disk.
    uint64_t event_bytes(std::optional<uint32_t> wanted) const;
};

void add_size_options(option_list &options, size_options &sizes);

// "raw 1h to 2h, summarised back to 7h to 8h, at most 8.1 MiB".
std::string size_words(const whole_shape &shape, int64_t interval, const record_bytes &largest,
                       uint64_t event_bytes);

// Notes where a box of this shape is not what the options want, as when it was made for others.
void note_other_size(const std::string &base, const whole_shape &shape, const record_bytes &largest,
                     const size_options &sizes, int64_t interval, uint64_t event_bytes);

} // namespace cli

#endif
