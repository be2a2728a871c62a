// Recovering a box. The phases, each of which assumes that those before it have succeeded:
//
//   look            reads everything once (survey)
//   arrange         chooses the buffers of the box and its sizes (arrangement, size_choice)
//   mend_buffers    makes each of them what the next rotation needs
//   judge_others    finds what the recovered buffers prove to hold (leftovers)
//   number          finds the number of the next file, and new names where the numbers end
//   put_state       writes the state file
//   clear_up        deletes what nothing needs any more
//
// The state file is written after all buffers that it names. A recovery that is killed before that
// leaves the old box with some buffers recovered; one that is killed later leaves the new box with
// files beside it that the next recovery deletes. Planning runs the same phases and changes
// nothing.
#include <new>

#include <vesk/error.h>
#include <vesk/vesk_recover.h>

#include "recovery/box_renaming.hpp"
#include "recovery/file_changes.hpp"
#include "recovery/file_numbers.hpp"
#include "recovery/leftovers.hpp"
#include "recovery/recovery_steps.hpp"
#include "recovery/size_choice.hpp"
#include "recovery/state_writing.hpp"
#include "recovery/survey.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

namespace
{

// Looks at a box, plans, and does what it planned if it is told to.
class recovery
{
public:
    recovery(const char *base, const recorder_sizes &given, const recovery_steps &steps,
             bool execute)
        : given_(given), steps_(steps), execute_(execute), survey_(base),
          renaming_(survey_, &steps_, execute), leftovers_(survey_, &steps_, execute)
    {
    }

    int run()
    {
        int result = survey_.look();
        for (const auto part :
             {&recovery::arrange, &recovery::mend_buffers, &recovery::judge_others,
              &recovery::number, &recovery::put_state, &recovery::clear_up}) {
            if (result == 0) {
                result = (this->*part)();
            }
        }
        return result;
    }

private:
    vesk_recover_report *report() { return steps_.report(); }

    // --- which buffers make the box

    int arrange()
    {
        uint32_t free_number = 0;
        int result = find_free_number(&free_number);
        arrangement_choice choice;
        if (result == 0) {
            result = _vesk_choose_arrangement(survey_.files(), survey_.foreign(),
                                              survey_.named_by_state(), survey_.named_by_copy(),
                                              free_number, &choice);
        }
        if (result != 0) {
            return result;
        }
        report()->source = choice.source;
        box_ = choice.box;
        // The copy comes last if its checksum shows that it has changed since it was written.
        const recorder_sizes of_state = survey_.state().told_sizes();
        const recorder_sizes of_copy = survey_.copy().told_sizes();
        const recorder_sizes believed = survey_.copy_has_changed() ? recorder_sizes() : of_copy;
        if (!_vesk_choose_sizes(survey_.files(), box_, of_state, believed, given_, &sizes_) &&
            !_vesk_choose_sizes(survey_.files(), box_, of_state, given_, of_copy, &sizes_)) {
            return QE_ERROR_MALFORMED;
        }
        if (!sizes_.history_fits()) {
            return QE_ERROR_LIMIT;
        }
        report()->state = box_.stage;
        report()->num_cb_samples = sizes_.samples;
        report()->num_hb_intervals = sizes_.intervals;
        return survey_.find_copies(box_);
    }

    // A number for a buffer that has to be made: that of the buffer which was made last when none
    // is there, otherwise one above all others where there is room.
    int find_free_number(uint32_t *number) const
    {
        number_list taken;
        if (!survey_.list_numbers(&taken)) {
            return QE_ERROR_NO_MEMORY;
        }
        uint32_t highest = 0;
        for (const uint32_t one : taken) {
            highest = std::max(highest, one);
        }
        const uint32_t told = survey_.state()->next_file_number;
        if (taken.size() == 0) {
            *number = told > 1 && _vesk_is_believable_number(told, 0) ? told - 1 : 1;
            return 0;
        }
        constexpr uint64_t room = 2;
        *number = _vesk_find_free_numbers(&taken, uint64_t(highest) + 1, room);
        if (*number == 0) {
            *number = _vesk_find_free_numbers(&taken, 1, room);
        }
        return 0;
    }

    // --- the buffers

    int mend_buffers()
    {
        int result = find_names();
        for (uint32_t i = 0; i < box_.n && result == 0; ++i) {
            result = mend_place(i);
        }
        return result;
    }

    // A buffer that has lost its names takes them from another buffer of the box. They are read
    // only when they are needed, which they are not in a sound box.
    int find_names()
    {
        bool all_good = true;
        for (uint32_t i = 0; i < box_.n; ++i) {
            const box_file *file = survey_.files().find(box_.names[i]);
            all_good = all_good && file != nullptr && is_good(file->contents, expect_place(i));
        }
        int result = 0;
        for (uint32_t i = 0; i < box_.n && !all_good && result == 0; ++i) {
            box_file *file = survey_.files().find(box_.names[i]);
            result = file == nullptr ? 0 : survey_.read_names(file);
        }
        return result;
    }

    buffer_expectation expect_place(uint32_t place) const
    {
        buffer_expectation expected;
        expected.kind = box_.names[place].kind;
        expected.capacity = capacity_of(expected.kind);
        expected.full = place + 1 < box_.n;
        expected.files_of_box = survey_.count_files();
        return expected;
    }

    int mend_place(uint32_t place)
    {
        const buffer_name &name = box_.names[place];
        char path[max_filename];
        _vesk_format_buffer_name(path, survey_.base(), name);
        box_file *file = survey_.files().find(name);
        buffer_expectation expected = expect_place(place);
        expected.time = last_time_;
        expected.names_before = last_names_;
        expected.names_behind = first_names_behind(place);
        if (file == nullptr) {
            const int told = steps_.tell_file(VESK_RECOVER_CREATE, path, 0, QE_ERROR_OPEN);
            buffer_contents made;
            return told != 0 ? told : mend_file(path, expected, &made);
        }
        file->placed = true;
        expected.first_names = file->contents.first_names.get();
        remember(file->contents);
        if (is_good(file->contents, expected)) {
            steps_.count_contents(name.kind, file->contents);
            return 0;
        }
        return mend_file(path, expected, &file->mended);
    }

    uint32_t capacity_of(uint32_t kind) const
    {
        return kind == VESK_BUFFER_TYPE_HIST ? 2 * sizes_.intervals : sizes_.samples;
    }

    // What is known of this buffer helps to recover the buffers behind it.
    void remember(const buffer_contents &contents)
    {
        if (contents.spans.size() > 0) {
            last_time_ = contents.spans[contents.spans.size() - 1].end;
        }
        if (contents.last_names) {
            last_names_ = contents.last_names.get();
        }
    }

    const vesk_cb_record_sensor_names *first_names_behind(uint32_t place) const
    {
        for (uint32_t i = place + 1; i < box_.n; ++i) {
            const box_file *file = survey_.files().find(box_.names[i]);
            if (file != nullptr && file->contents.first_names) {
                return file->contents.first_names.get();
            }
        }
        return nullptr;
    }

    static bool is_good(const buffer_contents &contents, const buffer_expectation &expected)
    {
        return contents.steps == 0 && contents.kind == expected.kind &&
               contents.capacity == expected.capacity &&
               contents.data_records <= expected.capacity &&
               (!expected.full || contents.data_records == expected.capacity);
    }

    int mend_file(const char *path, const buffer_expectation &expected, buffer_contents *contents)
    {
        int result = _vesk_mend_buffer(path, expected, steps_.receiver(), nullptr, contents);
        if (result != 0) {
            // The file existed when the box was surveyed.
            return result == QE_ERROR_OPEN && !steps_.stopped() ? QE_ERROR_IO : result;
        }
        steps_.count_contents(expected.kind, *contents);
        if (contents->steps == 0) {
            return 0;
        }
        const bool with_torn = contents->bytes_aside > 0 || contents->records_aside > 0;
        result = _vesk_check_change(path, with_torn, survey_.owners());
        if (result != 0 || !execute_) {
            return result;
        }
        return contents->cut_suffices ? _vesk_cut_file(path, contents->cut_offset)
                                      : _vesk_rewrite_buffer(path, survey_.state_path(), expected);
    }

    // --- the numbers

    int judge_others() { return leftovers_.judge(box_); }

    int number()
    {
        names_now_ = box_;
        number_list kept;
        if (!leftovers_.list_kept_numbers(&kept)) {
            return QE_ERROR_NO_MEMORY;
        }
        uint32_t highest = 0;
        for (uint32_t i = 0; i < box_.n; ++i) {
            highest = std::max(highest, box_.names[i].number);
        }
        uint64_t start = uint64_t(highest) + 1;
        const uint32_t told =
            report()->source == VESK_RECOVER_FROM_STATE    ? survey_.state()->next_file_number
            : report()->source == VESK_RECOVER_FROM_BACKUP ? survey_.copy()->next_file_number
                                                           : 0;
        for (const uint32_t one : kept) {
            highest = std::max(highest, one);
        }
        if (told > start && (told <= highest || _vesk_is_believable_number(told, highest))) {
            start = told;
        }
        next_ = _vesk_find_next_number(&kept, start);
        return next_ != 0 ? 0 : renaming_.renumber(box_, &names_now_, &next_);
    }

    // --- the state file

    int put_state()
    {
        const state_summary &state = survey_.state();
        if (report()->source == VESK_RECOVER_FROM_STATE && next_ == state->next_file_number &&
            names_now_ == box_ && sizes_ == state.told_sizes() && survey_.state_leads_here()) {
            return 0;
        }
        int result =
            steps_.tell_file(VESK_RECOVER_WRITE_STATE, survey_.state_path(), 0, state->error);
        if (result == 0) {
            result = _vesk_check_change(survey_.state_path(), false, survey_.owners());
        }
        return result != 0 || !execute_ ? result
                                        : _vesk_write_state(survey_, names_now_, sizes_, next_);
    }

    // --- the other files

    int clear_up()
    {
        const bool renamed = execute_ && !(names_now_ == box_);
        const int removed = renamed ? renaming_.remove_old_names(box_) : 0;
        return removed != 0 ? removed : leftovers_.clear_up(names_now_);
    }

    recorder_sizes given_;
    recovery_steps steps_;
    bool execute_;
    box_survey survey_;
    box_renaming renaming_;
    leftovers leftovers_;
    arrangement box_;       // under the names that its files have
    arrangement names_now_; // under those that they get
    recorder_sizes sizes_;
    uint32_t next_ = 0;
    int64_t last_time_ = 0;
    const vesk_cb_record_sensor_names *last_names_ = nullptr;
};

} // namespace

static int _recover(const char *filename, const recorder_sizes &given, vesk_recover_visitor visit,
                    void *context, bool execute, vesk_recover_report *report)
{
    VESK_REQUIRE(filename != nullptr, "filename != ((void *)0)");
    VESK_REQUIRE(filename[0] != 0, "filename[0] != 0");
    vesk_recover_report unwanted;
    vesk_recover_report *filled = report != nullptr ? report : &unwanted;
    *filled = {};
    const owned_memory<recovery> storage(allocate<recovery>());
    if (!storage) {
        return QE_ERROR_NO_MEMORY;
    }
    auto *work = new (storage.get())
        recovery(filename, given, recovery_steps(visit, context, filled), execute);
    const int result = work->run();
    work->~recovery();
    return result;
}

int vesk_recover(const char *filename, uint32_t num_cb_samples, uint32_t num_hb_intervals,
                 vesk_recover_report *report)
{
    return _recover(filename, {num_cb_samples, num_hb_intervals}, nullptr, nullptr, true, report);
}

int vesk_recover_plan(const char *filename, uint32_t num_cb_samples, uint32_t num_hb_intervals,
                      vesk_recover_visitor visit, void *context, vesk_recover_report *report)
{
    return _recover(filename, {num_cb_samples, num_hb_intervals}, visit, context, false, report);
}
