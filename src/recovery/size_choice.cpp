// Chooses the sizes of a box: the samples of a current buffer and the intervals of a history. The
// sizes that the state file, its copy and the caller name go in, and the headers of the buffers
// confirm them. If no pair fits as a whole, the samples of one source are combined with the
// intervals of another. If nothing fits the headers, two sources that agree outvote them.
#include "recovery/size_choice.hpp"

// Whether a recorder makes buffers of this kind with this capacity. A damaged buffer can begin with
// bytes that only look like a header.
static bool _is_capacity(uint32_t kind, uint32_t capacity)
{
    return capacity > 0 && capacity % 2 == 0 &&
           (kind != VESK_BUFFER_TYPE_HIST || capacity / 2 <= VESK_MAX_INTERVALS);
}

// The capacity in the header of a buffer of the box, 0 where there is none.
static uint32_t _header_capacity(const box_file_list &files, const buffer_name &name)
{
    const box_file *file = files.find(name);
    const bool told = file != nullptr && file->contents.kind == name.kind &&
                      _is_capacity(name.kind, file->contents.capacity);
    return told ? file->contents.capacity : 0;
}

static uint32_t _first_capacity(const box_file_list &files, const arrangement &box, uint32_t kind)
{
    uint32_t capacity = 0;
    for (uint32_t i = 0; i < box.n && capacity == 0; ++i) {
        capacity = box.names[i].kind == kind ? _header_capacity(files, box.names[i]) : 0;
    }
    return capacity;
}

// Whether a header of that kind states this capacity, or no header of that kind states any.
static bool _agrees_with_headers(const box_file_list &files, const arrangement &box, uint32_t kind,
                                 uint32_t capacity)
{
    bool any = false;
    for (uint32_t i = 0; i < box.n; ++i) {
        const uint32_t found =
            box.names[i].kind == kind ? _header_capacity(files, box.names[i]) : 0;
        if (found == capacity) {
            return true;
        }
        any = any || found > 0;
    }
    return !any;
}

bool _vesk_choose_sizes(const box_file_list &files, const arrangement &box,
                        const recorder_sizes &of_state, const recorder_sizes &of_copy,
                        const recorder_sizes &given, recorder_sizes *sizes)
{
    const auto take = [&](const recorder_sizes &told) {
        const bool good =
            told.usable() &&
            _agrees_with_headers(files, box, VESK_BUFFER_TYPE_CURRENT, told.samples) &&
            _agrees_with_headers(files, box, VESK_BUFFER_TYPE_HIST, 2 * told.intervals);
        if (good) {
            *sizes = told;
        }
        return good;
    };
    const recorder_sizes known[] = {of_state,
                                    of_copy,
                                    given,
                                    {_first_capacity(files, box, VESK_BUFFER_TYPE_CURRENT),
                                     _first_capacity(files, box, VESK_BUFFER_TYPE_HIST) / 2}};
    for (const recorder_sizes &pair : known) {
        if (take(pair)) {
            return true;
        }
    }
    for (const recorder_sizes &samples : known) {
        for (const recorder_sizes &intervals : known) {
            if (take({samples.samples, intervals.intervals})) {
                return true;
            }
        }
    }
    // The headers contradict every source. If two sources agree, they are believed more than one
    // header.
    for (const recorder_sizes &pair : {of_state, of_copy}) {
        if (pair.usable() && (pair == given || (pair == of_state && pair == of_copy))) {
            *sizes = pair;
            return true;
        }
    }
    return false;
}
