// Chooses which rows of a box and of its tiers tell about which time: the finest that there are,
// and no time twice. Nothing here reads a file.
#ifndef VESK_CLI_BOX_ROW_CHOICE_HPP
#define VESK_CLI_BOX_ROW_CHOICE_HPP

#include <cstddef>
#include <cstdint>
#include <vector>

namespace cli
{

// From the time of the first sample of a row to that of its last one.
struct row_span {
    int64_t start = 0;
    int64_t end = 0;
};

// One kind of rows of the box or of a tier, in the order of their file.
struct row_source {
    std::vector<row_span> rows;
    bool is_of_box = false; // the box itself: its history never repeats its raw samples
    // Rows of history begin and end anywhere. Where they are about as long as rows that end with a
    // minute or an hour, these are taken.
    bool is_history = false;
};

// Rows of one source that follow each other; not all of them need be chosen.
struct row_segment {
    std::size_t source = 0;
    std::size_t first = 0;
    std::size_t last = 0; // this one is in it
};

struct row_choice {
    std::vector<row_segment> segments;     // in the order of time
    std::vector<std::vector<bool>> chosen; // for each source, for each row
    std::vector<row_span> hidden;          // raw samples of these times are in a row that is chosen
    // Times between rows of two sources that only rows tell of which are not chosen: what was
    // recorded then is left out, not missing.
    std::vector<row_span> left_out;
};

// @p raw are the times of raw samples, each without gaps, in the order of their files. Where a row
// of a tier begins before the first of them and ends among them, the row is taken and hides these
// samples, unless nothing is older than they are: then they hold all that the row tells, as they do
// of each later row that ends with one of them. Between rows of two other sources less than one row
// of the coarser one is left out.
row_choice choose_rows(const std::vector<row_span> &raw, const std::vector<row_source> &sources);

} // namespace cli

#endif
