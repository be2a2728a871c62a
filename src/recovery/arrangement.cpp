// Chooses which of the files that a survey found make the box. The files and what the state file
// and its copy say go in; the stage and the names of the buffers come out. The header states the
// rules. An arrangement never replaces another one that is as good, so the same files always give
// the same box.
#include "recovery/arrangement.hpp"

#include <algorithm>

#include <vesk/error.h>

#include "recovery/file_numbers.hpp"

static constexpr uint64_t no_limit = uint64_t(UINT32_MAX) + 1;

static bool _is_same(const buffer_name &a, const buffer_name &b)
{
    return a.kind == b.kind && a.number == b.number;
}

bool arrangement::has(const buffer_name &name) const
{
    return std::any_of(names, names + n,
                       [&](const buffer_name &placed) { return _is_same(placed, name); });
}

bool arrangement::operator==(const arrangement &other) const
{
    return stage == other.stage && n == other.n &&
           std::equal(names, names + n, other.names, _is_same);
}

// --- what the box holds ------------------------------------------------------------------------

static void _add_spans(const buffer_contents &contents, time_span *to)
{
    for (const time_span &span : contents.spans) {
        to->start = std::min(to->start, span.start);
        to->end = std::max(to->end, span.end);
    }
}

static bool _lies_within(const buffer_contents &contents, const time_span &whole)
{
    return std::all_of(contents.spans.begin(), contents.spans.end(), [&](const time_span &span) {
        return span.start >= whole.start && span.end <= whole.end;
    });
}

// Whether a closed buffer holds all that it once held: neither now nor earlier was it padded.
static bool _is_whole(const box_file *file, bool when_mended)
{
    if (file == nullptr) {
        return false;
    }
    if (when_mended && file->mended.steps > 0) {
        // Mending fills a closed buffer up. Whether its header said so before does not count: who
        // looks at it again finds the header that it has got.
        return file->mended.records_padded == 0 && file->mended.empty_records == 0;
    }
    return file->is_full() && file->contents.empty_records == 0;
}

bool box_coverage::gather(const box_file_list &files, const arrangement &box, bool when_mended)
{
    for (uint32_t i = 0; i < box.n; ++i) {
        const box_file *file = files.find(box.names[i]);
        const bool whole = _is_whole(file, when_mended);
        closed_are_whole_ = closed_are_whole_ && (whole || i + 1 == box.n);
        if (file == nullptr) {
            continue;
        }
        identities_[i] = file->identity;
        const buffer_contents &contents = when_mended ? file->final_contents() : file->contents;
        _add_spans(contents, &box_span_);
        if (file->is_current()) {
            continue;
        }
        _add_spans(contents, &history_span_);
        history_number_ = file->name.number;
        history_is_whole_ = whole;
        if (!intervals_.append(contents.spans.begin(), contents.spans.size())) {
            return false;
        }
    }
    std::sort(intervals_.begin(), intervals_.end(),
              [](const time_span &a, const time_span &b) { return a.start < b.start; });
    for (std::size_t i = 1; i < intervals_.size(); ++i) {
        intervals_[i].end = std::max(intervals_[i].end, intervals_[i - 1].end);
    }
    return true;
}

// A complete history has no holes. An incomplete one holds only what lies within one of its
// intervals.
bool box_coverage::lies_in_history(const buffer_contents &contents) const
{
    if (history_is_whole_ && _lies_within(contents, history_span_)) {
        return true;
    }
    return std::all_of(contents.spans.begin(), contents.spans.end(), [this](const time_span &span) {
        const time_span *behind =
            std::upper_bound(intervals_.begin(), intervals_.end(), span.start,
                             [](int64_t start, const time_span &i) { return start < i.start; });
        return behind != intervals_.begin() && (behind - 1)->end >= span.end;
    });
}

bool box_coverage::holds(const box_file &file) const
{
    const buffer_contents &contents = file.contents;
    if (file.blank ||
        std::any_of(identities_, identities_ + max_places,
                    [&](const file_identity &i) { return i.is_same(file.identity); })) {
        return true;
    }
    if (contents.records_aside > 0) {
        return false;
    }
    if (!file.holds_records() && contents.bytes_aside == 0) {
        return true;
    }
    if (!file.is_current() && file.name.number > history_number_) {
        return closed_are_whole_ && _lies_within(contents, box_span_);
    }
    return contents.bytes_aside == 0 && contents.data_records > 0 &&
           file.name.number < history_number_ && lies_in_history(contents);
}

// --- choosing ----------------------------------------------------------------------------------

namespace
{

class chooser
{
public:
    chooser(const box_file_list &files, const buffer_names &foreign, const named_state &state,
            const named_state &copy, uint32_t free_number)
        : files_(files), foreign_(foreign), state_(state), copy_(copy), free_number_(free_number)
    {
    }

    int choose(arrangement_choice *choice)
    {
        const named_state *named = choose_named();
        arrangement best;
        if (named == nullptr) {
            best = rebuild(no_limit);
            try_instead(rebuild_without_blank_end(best), &best);
        } else {
            best = named->box;
            if (has_successor(*named)) {
                const arrangement rebuilt = rebuild(no_limit);
                if (holds_all_of(rebuilt, best)) {
                    try_instead(rebuilt, &best);
                }
            }
        }
        if (!closed_are_whole(best)) {
            try_instead(one_rotation_before(best), &best);
        }
        choice->box = best;
        choice->source = source_of(best);
        return out_of_memory_ ? QE_ERROR_NO_MEMORY : 0;
    }

private:
    vesk_recover_source source_of(const arrangement &box) const
    {
        if (state_.fits && state_.box == box) {
            return VESK_RECOVER_FROM_STATE;
        }
        return copy_.fits && copy_.box == box ? VESK_RECOVER_FROM_BACKUP
                                              : VESK_RECOVER_FROM_BUFFERS;
    }

    // --- what is written down

    // Prefers the state file, unless it is behind its buffers and the copy is not, or is less far
    // behind.
    const named_state *choose_named() const
    {
        for (const named_state *named : {&state_, &copy_}) {
            if (named->fits && !has_successor(*named)) {
                return named;
            }
        }
        if (state_.fits && copy_.fits) {
            return copy_.box.open().number > state_.box.open().number ? &copy_ : &state_;
        }
        return state_.fits ? &state_ : copy_.fits ? &copy_ : nullptr;
    }

    // Whether a buffer was written after the open one was full, by a recorder whose state was not
    // saved or is lost. A buffer that an older box of this name left behind was not.
    bool has_successor(const named_state &named) const
    {
        const box_file *open = files_.find(named.box.open());
        if (open == nullptr) {
            return false;
        }
        const uint32_t next = next_number(named);
        return std::any_of(files_.begin(), files_.end(), [&](const box_file *file) {
            return file->is_current() && file->name.number >= next && file->holds_records() &&
                   !file->identity.is_same(open->identity) &&
                   (is_told_to_follow(*file, named) || follows(*file, *open));
        });
    }

    // Whether the other one of state file and copy names the open buffer of this one and then the
    // file. A copy that is left alone may well be outdated, so what was made since belongs to it.
    bool is_told_to_follow(const box_file &file, const named_state &named) const
    {
        const named_state &other = &named == &state_ ? copy_ : state_;
        if (!other.fits && !other.has_changed) {
            return &named == &copy_ && files_.find(named.box.open())->holds_records();
        }
        const auto is_open = [&](const buffer_name &name) {
            return _is_same(name, named.box.open());
        };
        const buffer_name *end = other.box.names + other.box.n;
        const buffer_name *open = std::find_if(other.box.names, end, is_open);
        return std::any_of(open, end,
                           [&](const buffer_name &name) { return _is_same(name, file.name); });
    }

    uint32_t next_number(const named_state &named) const
    {
        uint32_t highest = named.box.open().number;
        for (const box_file *file : files_) {
            highest = std::max(highest, file->name.number);
        }
        const uint32_t least = named.box.open().number;
        const uint32_t told = named.next_file_number;
        const bool believable =
            told > least && (told <= highest || _vesk_is_believable_number(told, highest));
        return believable ? told : least + (least == UINT32_MAX ? 0 : 1);
    }

    // A buffer that lost something may have been full, and one that lost all of its samples may
    // have been begun at any time.
    static bool follows(const box_file &file, const box_file &open)
    {
        const bool has_lost = open.contents.bytes_aside > 0;
        if (open.blank || (!open.holds_records() && !has_lost)) {
            return false;
        }
        const growing_list<time_span> &before = open.contents.spans;
        const growing_list<time_span> &behind = file.contents.spans;
        if (behind.size() == 0 && file.contents.bytes_aside > 0) {
            return true;
        }
        return open.is_full() || has_lost ||
               (before.size() > 0 && behind.size() > 0 &&
                behind[0].start >= before[before.size() - 1].end);
    }

    // --- what the buffers tell

    // Whether another name of the file with a lower number is there, as a recovery that renumbers
    // the box leaves it when it is killed.
    bool has_lower_name(const box_file &file) const
    {
        return std::any_of(files_.begin(), files_.end(), [&](const box_file *other) {
            return other->name.number < file.name.number && other->identity.is_same(file.identity);
        });
    }

    // The file of a kind with the highest number below `limit`, or null.
    const box_file *highest_below(uint32_t kind, uint64_t limit) const
    {
        for (const box_file *const *at = files_.end(); at != files_.begin(); --at) {
            const box_file *file = at[-1];
            if (file->name.kind == kind && file->name.number < limit && !has_lower_name(*file)) {
                return file;
            }
        }
        return nullptr;
    }

    const box_file *current_below(const box_file *file) const
    {
        return file == nullptr ? nullptr
                               : highest_below(VESK_BUFFER_TYPE_CURRENT, file->name.number);
    }

    // The numbers tell what the buffers are: a history is made after the buffers that it
    // summarises and after the one that is full then, and before the one that is opened then.
    // Takes the open buffer from below `limit`.
    arrangement rebuild(uint64_t limit) const
    {
        const box_file *open = highest_below(VESK_BUFFER_TYPE_CURRENT, limit);
        const box_file *second = current_below(open);
        const box_file *third = current_below(second);
        const box_file *history =
            highest_below(VESK_BUFFER_TYPE_HIST, open == nullptr ? no_limit : open->name.number);
        if (history == nullptr && third == nullptr) {
            // Three buffers come before the first history, so some are missing here.
            history = highest_below(VESK_BUFFER_TYPE_HIST, no_limit);
        }
        if (history != nullptr) {
            return with_history(history, open, second);
        }
        arrangement box;
        for (const box_file *file : {third, second, open}) {
            if (file != nullptr) {
                box.add(VESK_BUFFER_TYPE_CURRENT, file->name.number);
            }
        }
        if (box.n == 0) {
            box.add(VESK_BUFFER_TYPE_CURRENT, free_number_);
        }
        box.stage = box.n;
        return box;
    }

    arrangement with_history(const box_file *history, const box_file *open,
                             const box_file *second) const
    {
        const uint32_t number = history->name.number;
        const bool opened = open != nullptr && open->name.number > number;
        const box_file *full = opened ? second : open;
        arrangement box;
        box.stage = VESK_ZCF_STATE_HCC;
        box.add(VESK_BUFFER_TYPE_HIST, number);
        // What is missing gets the number that it would have had, or a free one.
        box.add(VESK_BUFFER_TYPE_CURRENT,
                full != nullptr ? full->name.number : free_number_below(number));
        box.add(VESK_BUFFER_TYPE_CURRENT, opened ? open->name.number : free_number_);
        return box;
    }

    uint32_t free_number_below(uint32_t limit) const
    {
        const auto is_taken = [this](uint32_t number) {
            return std::any_of(foreign_.begin(), foreign_.end(), [=](const buffer_name &name) {
                return _is_same(name, {VESK_BUFFER_TYPE_CURRENT, number});
            });
        };
        uint32_t number = limit - std::min(limit, 1U);
        while (number > 0 && is_taken(number)) {
            --number;
        }
        return number > 0 || !is_taken(0) ? number : free_number_ + 1;
    }

    // Without an open buffer in which nothing can be read, as a loss of power leaves it.
    arrangement rebuild_without_blank_end(const arrangement &box) const
    {
        const box_file *open = files_.find(box.open());
        const bool blank =
            open != nullptr && !open->holds_records() && current_below(open) != nullptr;
        return blank ? rebuild(open->name.number) : box;
    }

    // --- what the buffers were made of

    bool closed_are_whole(const arrangement &box) const
    {
        return std::all_of(box.names, box.names + box.n - 1, [this](const buffer_name &name) {
            const box_file *file = files_.find(name);
            return file != nullptr && file->is_full();
        });
    }

    // The box before its last rotation, as far as the files of that are there; else `box` itself.
    arrangement one_rotation_before(const arrangement &box) const
    {
        const box_file *full =
            box.stage == VESK_ZCF_STATE_HCC ? files_.find(box.names[1]) : nullptr;
        const box_file *consumed = current_below(full);
        if (full == nullptr) {
            return box;
        }
        const box_file *history = highest_below(VESK_BUFFER_TYPE_HIST, box.names[0].number);
        const box_file *oldest = current_below(consumed);
        arrangement before;
        if (history != nullptr) {
            before.stage = VESK_ZCF_STATE_HCC;
            before.add(VESK_BUFFER_TYPE_HIST, history->name.number);
            before.add(VESK_BUFFER_TYPE_CURRENT,
                       consumed != nullptr ? consumed->name.number : free_number_);
        } else if (oldest != nullptr) {
            before.stage = VESK_ZCF_STATE_CCC;
            before.add(VESK_BUFFER_TYPE_CURRENT, oldest->name.number);
            before.add(VESK_BUFFER_TYPE_CURRENT, consumed->name.number);
        } else {
            return box;
        }
        before.add(VESK_BUFFER_TYPE_CURRENT, full->name.number);
        return before;
    }

    // --- comparing

    void try_instead(const arrangement &other, arrangement *best)
    {
        if (!(other == *best) && records_outside(other) < records_outside(*best)) {
            *best = other;
        }
    }

    // The records of files that are neither in the box nor covered by it.
    uint64_t records_outside(const arrangement &box)
    {
        box_coverage coverage;
        out_of_memory_ = !coverage.gather(files_, box, false) || out_of_memory_;
        uint64_t records = 0;
        for (const box_file *file : files_) {
            if (!box.has(file->name) && !coverage.holds(*file)) {
                records += file->contents.data_records + file->contents.events;
            }
        }
        return records;
    }

    bool holds_all_of(const arrangement &box, const arrangement &other)
    {
        box_coverage coverage;
        out_of_memory_ = !coverage.gather(files_, box, false) || out_of_memory_;
        return std::all_of(other.names, other.names + other.n, [&](const buffer_name &name) {
            const box_file *file = files_.find(name);
            return file == nullptr || box.has(name) || coverage.holds(*file);
        });
    }

    const box_file_list &files_;
    const buffer_names &foreign_;
    const named_state &state_;
    const named_state &copy_;
    uint32_t free_number_;
    bool out_of_memory_ = false;
};

} // namespace

int _vesk_choose_arrangement(const box_file_list &files, const buffer_names &foreign,
                             const named_state &state, const named_state &copy,
                             uint32_t free_number, arrangement_choice *choice)
{
    return chooser(files, foreign, state, copy, free_number).choose(choice);
}
