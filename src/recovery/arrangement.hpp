// Chooses which of the files that were found make the box. Nothing here reads the disk.
//
// A state file or its copy that names buffers which are all there is believed, the one that is
// further ahead when both are behind their buffers. It is left for the buffers themselves only when
// these show more, and hold all that it holds:
//
//   - a current buffer with a number at or above the next one is the successor of the open one,
//     whatever its times, if it was begun when that was full, if the other of the two names both in
//     this order, or if only the copy is left, which is written less often than the state file;
//     otherwise only if it is younger or has lost all its times, because what is older may be the
//     rest of a box over which this one was made;
//   - a history or a full buffer that lost something while the files that it was made of are still
//     there gives way to these, if less stays outside of the box then.
//
// What stays outside is counted in records: samples, events and intervals of files that are neither
// in the box nor covered by it. An arrangement that is as good as one before it never replaces it,
// so the choice depends on nothing but the files.
#ifndef VESK_RECOVERY_ARRANGEMENT_HPP
#define VESK_RECOVERY_ARRANGEMENT_HPP

#include <cstdint>

#include <vesk/vesk_recover.h>

#include "box/box_sizes.hpp"
#include "box/stage_places.hpp"
#include "recovery/box_file.hpp"

// The buffers of the box, oldest first, the open one last.
struct arrangement {
    uint32_t stage = 0;
    uint32_t n = 0;
    buffer_name names[max_places];

    void add(uint32_t kind, uint32_t number) { names[n++] = {kind, number}; }
    const buffer_name &open() const { return names[n - 1]; }
    bool has(const buffer_name &name) const;
    bool operator==(const arrangement &other) const;
};

// What a state file or its copy says.
struct named_state {
    bool fits = false; // it is whole, and the buffers that it names are there
    // Its checksum is wrong, so it does not fit. The buffers that it names are there all the same,
    // and were begun in this order.
    bool has_changed = false;
    arrangement box;
    uint32_t next_file_number = 0; // that it tells, whether or not it can be believed
};

struct arrangement_choice {
    arrangement box;
    vesk_recover_source source = VESK_RECOVER_FROM_STATE;
};

// The spans of time and the files that the box holds, with which the content of other files is
// compared.
class box_coverage
{
public:
    // Looks at the buffers of `box` as they are, or as they will be when they are recovered. False
    // without memory.
    bool gather(const box_file_list &files, const arrangement &box, bool when_mended);

    // Whether all that a file holds is in the box: it holds nothing, it was summarised into the
    // history, it is another name of a file of the box, or it is the history that an unfinished
    // rotation began to make of what is there.
    bool holds(const box_file &file) const;

private:
    bool lies_in_history(const buffer_contents &contents) const;

    time_span box_span_ = {INT64_MAX, INT64_MIN};
    time_span history_span_ = {INT64_MAX, INT64_MIN};
    // Sorted by their beginning; the end of each is the latest end among it and those before it.
    growing_list<time_span> intervals_;
    file_identity identities_[max_places];
    uint32_t history_number_ = 0;
    bool history_is_whole_ = false;
    bool closed_are_whole_ = true;
};

// Chooses, with `free_number` for a buffer that has to be made, and none of the names in `foreign`.
// 0, or QE_ERROR_NO_MEMORY (-22) without memory.
int _vesk_choose_arrangement(const box_file_list &files, const buffer_names &foreign,
                             const named_state &state, const named_state &copy,
                             uint32_t free_number, arrangement_choice *choice);

#endif
