#include <new>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vesk/vesk_buffer.h>
#include <vesk/vesk_limits.h>
#include <vesk/vesk_recover.h>
#include <vesk/vesk_scan.h>

#include "box/box_files.hpp"
#include "box/durable_file.hpp"
#include "box/state_form.hpp"
#include "io/fields.hpp"
#include "recovery/buffer_mender.hpp"
#include "support/object.hpp"
#include "support/precondition.hpp"

namespace
{

constexpr char torn_suffix[] = ".torn";
constexpr off_t max_torn_size = 1 << 20;

// The longest base name with which no name of a buffer is cut.
constexpr std::size_t max_base_length = 999;

// The most intervals of a current buffer with which the history of two of them can be made.
constexpr uint32_t max_intervals = 65534;

struct sizes {
    uint32_t samples = 0;
    uint32_t intervals = 0;

    friend bool operator==(const sizes &, const sizes &) = default;

    bool usable() const
    {
        return samples > 0 && samples % 2 == 0 && intervals > 0 && samples % intervals == 0;
    }
};

class state_summary
{
public:
    state_summary() = default;
    state_summary(const state_summary &) = delete;
    state_summary &operator=(const state_summary &) = delete;
    ~state_summary() { vesk_state_summary_destruct(&summary_); }

    int scan(const char *path) { return vesk_scan_state(path, &summary_); }
    const vesk_state_summary *operator->() const { return &summary_; }
    const vesk_state_summary &operator*() const { return summary_; }

    // The sizes that it tells, as far as it got; none when the quotient behind them is another.
    sizes told_sizes() const
    {
        constexpr uint32_t fields_up_to_sizes = 5;
        const sizes told = {summary_.num_cb_samples, summary_.num_hb_intervals};
        const bool contradicted =
            summary_.fields > fields_up_to_sizes &&
            (!told.usable() || summary_.num_samples_per_interval != told.samples / told.intervals);
        return summary_.fields < fields_up_to_sizes || contradicted ? sizes() : told;
    }

private:
    vesk_state_summary summary_ = {};
};

// --- the files ---------------------------------------------------------------------------------

// A buffer file that is there, with what was found in it.
struct box_file {
    buffer_name name;
    bool placed = false; // it belongs to the box
    buffer_contents contents;
    buffer_contents mended; // as the box needs it, when it has to be mended for that

    // What it holds in the end.
    const buffer_contents &final_contents() const { return mended.steps > 0 ? mended : contents; }

    bool is_current() const { return name.kind == VESK_BUFFER_TYPE_CURRENT; }
};

class box_file_list
{
public:
    box_file_list() = default;
    box_file_list(const box_file_list &) = delete;
    box_file_list &operator=(const box_file_list &) = delete;
    ~box_file_list()
    {
        for (box_file *file : files_) {
            file->~box_file();
            free(file);
        }
    }

    // Null without memory.
    box_file *add(const buffer_name &name)
    {
        auto *storage = allocate<box_file>();
        if (storage == nullptr || !files_.append(storage)) {
            free(storage);
            return nullptr;
        }
        auto *file = new (storage) box_file();
        file->name = name;
        return file;
    }

    box_file **begin() { return files_.begin(); }
    box_file **end() { return files_.end(); }

    box_file *find(const buffer_name &name)
    {
        for (box_file *file : files_) {
            if (file->name.kind == name.kind && file->name.number == name.number) {
                return file;
            }
        }
        return nullptr;
    }

    // The file of a kind with the highest number below `limit`, or null.
    box_file *highest_below(uint32_t kind, uint64_t limit)
    {
        box_file *highest = nullptr;
        for (box_file *file : files_) {
            if (file->name.kind == kind && file->name.number < limit &&
                (highest == nullptr || file->name.number > highest->name.number)) {
                highest = file;
            }
        }
        return highest;
    }

private:
    growing_list<box_file *> files_;
};

constexpr uint64_t no_limit = uint64_t(UINT32_MAX) + 1;

// The buffers of the box, oldest first, the open one last.
struct arrangement {
    uint32_t stage = 0;
    uint32_t n = 0;
    buffer_name names[3];

    void add(uint32_t kind, uint32_t number) { names[n++] = {kind, number}; }

    bool has(const buffer_name &name) const
    {
        return std::any_of(names, names + n, [&](const buffer_name &placed) {
            return placed.kind == name.kind && placed.number == name.number;
        });
    }
};

uint32_t kind_of_place(uint32_t stage, uint32_t place)
{
    return stage == VESK_ZCF_STATE_HCC && place == 0 ? VESK_BUFFER_TYPE_HIST
                                                     : VESK_BUFFER_TYPE_CURRENT;
}

// --- recovering --------------------------------------------------------------------------------

// Looks at a box, plans, and does what it planned if it is told to.
class recovery
{
public:
    recovery(const char *base, const sizes &given, vesk_recover_visitor visit, void *context,
             bool execute, vesk_recover_report *report)
        : base_(base), given_(given), visit_(visit), context_(context), execute_(execute),
          report_(report)
    {
    }

    int run()
    {
        int result = look();
        for (const auto part :
             {&recovery::arrange, &recovery::mend_buffers, &recovery::judge_others,
              &recovery::put_state, &recovery::clear_up}) {
            if (result == 0) {
                result = (this->*part)();
            }
        }
        return result;
    }

private:
    // --- looking

    static int ignore_step(const vesk_recover_step *, void *) { return 0; }

    int look()
    {
        if (strlen(base_) > max_base_length) {
            return QE_ERROR_LIMIT;
        }
        snprintf(state_path_, sizeof state_path_, "%s.state", base_);
        snprintf(backup_path_, sizeof backup_path_, "%s.state%s", base_, backup_suffix);
        buffer_names names;
        const int listed = _vesk_list_buffer_names(base_, "", &names);
        if (listed < 0) {
            return listed;
        }
        if (state_.scan(state_path_) == QE_ERROR_NO_MEMORY ||
            backup_.scan(backup_path_) == QE_ERROR_NO_MEMORY) {
            return QE_ERROR_NO_MEMORY;
        }
        if (state_->error == QE_ERROR_IO) {
            return QE_ERROR_IO;
        }
        if (state_->error == QE_ERROR_OPEN &&
            (access(state_path_, F_OK) == 0 || names.size() == 0)) {
            return QE_ERROR_OPEN;
        }
        for (const buffer_name &name : names) {
            const int surveyed = survey(name);
            if (surveyed < 0) {
                return surveyed;
            }
        }
        return 0;
    }

    int survey(const buffer_name &name)
    {
        box_file *file = files_.add(name);
        if (file == nullptr) {
            return QE_ERROR_NO_MEMORY;
        }
        char path[max_filename];
        _vesk_format_buffer_name(path, base_, name);
        buffer_expectation expected;
        expected.kind = name.kind;
        return _vesk_mend_buffer(path, expected, {ignore_step, nullptr}, nullptr, &file->contents);
    }

    // --- which buffers make the box

    int arrange()
    {
        report_->source = VESK_RECOVER_FROM_STATE;
        if (!take_arrangement(*state_)) {
            report_->source = VESK_RECOVER_FROM_BACKUP;
            if (!take_arrangement(*backup_)) {
                report_->source = VESK_RECOVER_FROM_BUFFERS;
                rebuild_arrangement();
            }
        }
        if (!choose_sizes()) {
            return QE_ERROR_MALFORMED;
        }
        if (sizes_.intervals > max_intervals) {
            return QE_ERROR_LIMIT;
        }
        report_->state = box_.stage;
        report_->num_cb_samples = sizes_.samples;
        report_->num_hb_intervals = sizes_.intervals;
        return 0;
    }

    // The buffer that a state file means by `path`. False when that is none of this box.
    bool find_named(const char *path, buffer_name *name) const
    {
        const std::size_t folder = _vesk_folder_length(base_);
        char beside[max_filename];
        const int length = snprintf(beside, sizeof beside, "%.*s%s", static_cast<int>(folder),
                                    base_, path + _vesk_folder_length(path));
        return length < static_cast<int>(sizeof beside) &&
               _vesk_parse_buffer_name(beside, base_, name) &&
               (strcmp(path, beside) == 0 || _vesk_is_same_file(path, beside));
    }

    // Takes the buffers that a state file names, if they are all there and none was begun behind
    // them.
    bool take_arrangement(const vesk_state_summary &summary)
    {
        arrangement named;
        named.stage = summary.state;
        if (summary.error != 0) {
            return false;
        }
        for (uint32_t i = 0; i < summary.num_names; ++i) {
            buffer_name name;
            if (!find_named(summary.names[i], &name) ||
                name.kind != kind_of_place(summary.state, i) || files_.find(name) == nullptr ||
                named.has(name)) {
                return false;
            }
            named.add(name.kind, name.number);
        }
        const box_file *open = files_.find(named.names[named.n - 1]);
        for (const box_file *file : files_) {
            if (goes_on_behind(*file, *open, summary)) {
                return false;
            }
        }
        box_ = named;
        return true;
    }

    // Whether a buffer was written after the open one was full, by a recorder that could not save
    // its state. A buffer that an older box of this name left behind was not.
    static bool goes_on_behind(const box_file &file, const box_file &open,
                               const vesk_state_summary &summary)
    {
        const growing_list<time_span> &spans = file.contents.spans;
        const growing_list<time_span> &open_spans = open.contents.spans;
        return file.is_current() && file.name.number >= summary.next_file_number &&
               open.contents.data_records >= summary.num_cb_samples && spans.size() > 0 &&
               (open_spans.size() == 0 || spans[0].start >= open_spans[open_spans.size() - 1].end);
    }

    // The numbers tell what the buffers are: a history is made after the buffers that it
    // summarises and after the one that is full then, and before the one that is opened then.
    void rebuild_arrangement()
    {
        box_ = arrangement();
        const uint32_t current = VESK_BUFFER_TYPE_CURRENT;
        box_file *open = files_.highest_below(current, no_limit);
        box_file *second = open == nullptr ? nullptr : highest_current_below(open);
        box_file *third = second == nullptr ? nullptr : highest_current_below(second);
        box_file *history = files_.highest_below(VESK_BUFFER_TYPE_HIST,
                                                 open == nullptr ? no_limit : open->name.number);
        if (history == nullptr && third == nullptr) {
            // Three buffers come before the first history, so some are missing here.
            history = files_.highest_below(VESK_BUFFER_TYPE_HIST, no_limit);
        }
        if (history != nullptr) {
            arrange_with_history(history, open, second);
            return;
        }
        for (const box_file *file : {third, second, open}) {
            if (file != nullptr) {
                box_.add(current, file->name.number);
            }
        }
        if (box_.n == 0) {
            box_.add(current, std::max(state_->next_file_number, 2U) - 1);
        }
        box_.stage = box_.n;
    }

    box_file *highest_current_below(const box_file *file)
    {
        return files_.highest_below(VESK_BUFFER_TYPE_CURRENT, file->name.number);
    }

    void arrange_with_history(const box_file *history, const box_file *open, const box_file *second)
    {
        const uint32_t number = history->name.number;
        const bool opened = open != nullptr && open->name.number > number;
        const box_file *full = opened ? second : open;
        box_.stage = VESK_ZCF_STATE_HCC;
        box_.add(VESK_BUFFER_TYPE_HIST, number);
        // What is missing gets the number that it would have had, or a free one.
        box_.add(VESK_BUFFER_TYPE_CURRENT,
                 full != nullptr ? full->name.number : number - std::min(number, 1U));
        box_.add(VESK_BUFFER_TYPE_CURRENT, opened ? open->name.number : free_number());
    }

    // A number that no buffer has, above all others where there is room.
    uint32_t free_number()
    {
        uint32_t number = 0;
        for (const box_file *file : files_) {
            number = std::max(number, file->name.number);
        }
        do {
            ++number;
        } while (files_.find({VESK_BUFFER_TYPE_CURRENT, number}) != nullptr);
        return number;
    }

    // The state files have no checksum, the headers of the buffers have one: sizes count only when
    // these agree.
    bool choose_sizes()
    {
        const sizes told[] = {state_.told_sizes(),
                              backup_.told_sizes(),
                              given_,
                              {header_capacity(VESK_BUFFER_TYPE_CURRENT),
                               header_capacity(VESK_BUFFER_TYPE_HIST) / 2}};
        for (const sizes &pair : told) {
            if (take_sizes(pair)) {
                return true;
            }
        }
        // What one of them has lost another may know.
        for (const sizes &samples : told) {
            for (const sizes &intervals : told) {
                if (take_sizes({samples.samples, intervals.intervals})) {
                    return true;
                }
            }
        }
        return false;
    }

    bool take_sizes(const sizes &told)
    {
        const bool good = told.usable() &&
                          agrees_with_headers(VESK_BUFFER_TYPE_CURRENT, told.samples) &&
                          agrees_with_headers(VESK_BUFFER_TYPE_HIST, 2 * told.intervals);
        if (good) {
            sizes_ = told;
        }
        return good;
    }

    // The capacity in the header of a buffer of the box, 0 where there is none.
    uint32_t header_capacity(const buffer_name &name)
    {
        const box_file *file = files_.find(name);
        return file != nullptr && file->contents.kind == name.kind ? file->contents.capacity : 0;
    }

    uint32_t header_capacity(uint32_t kind)
    {
        uint32_t capacity = 0;
        for (uint32_t i = 0; i < box_.n && capacity == 0; ++i) {
            capacity = box_.names[i].kind == kind ? header_capacity(box_.names[i]) : 0;
        }
        return capacity;
    }

    bool agrees_with_headers(uint32_t kind, uint32_t capacity)
    {
        bool any = false;
        for (uint32_t i = 0; i < box_.n; ++i) {
            const uint32_t found = box_.names[i].kind == kind ? header_capacity(box_.names[i]) : 0;
            if (found == capacity) {
                return true;
            }
            any = any || found > 0;
        }
        return !any;
    }

    // --- the buffers

    int tell(const vesk_recover_step &step)
    {
        if (step.action != VESK_RECOVER_KEEP) {
            ++report_->steps;
        }
        return visit_ == nullptr ? 0 : visit_(&step, context_);
    }

    int tell_file(vesk_recover_action action, const char *path, uint64_t size, int error)
    {
        vesk_recover_step step = {};
        step.action = action;
        step.filename = path;
        step.length = size;
        step.error = error;
        return tell(step);
    }

    static int take_step(const vesk_recover_step *step, void *self)
    {
        return static_cast<recovery *>(self)->tell(*step);
    }

    int mend_buffers()
    {
        int result = 0;
        for (uint32_t i = 0; i < box_.n && result == 0; ++i) {
            result = mend_place(i);
        }
        return result;
    }

    int mend_place(uint32_t place)
    {
        const buffer_name &name = box_.names[place];
        char path[max_filename];
        _vesk_format_buffer_name(path, base_, name);
        box_file *file = files_.find(name);
        buffer_expectation expected;
        expected.kind = name.kind;
        expected.capacity = capacity_of(name.kind);
        expected.full = place + 1 < box_.n;
        expected.time = last_time_;
        expected.names_before = last_names_;
        expected.names_behind = first_names_behind(place);
        int result = 0;
        if (file == nullptr) {
            result = tell_file(VESK_RECOVER_CREATE, path, 0, QE_ERROR_OPEN);
            if (result != 0) {
                return result;
            }
        } else {
            file->placed = true;
            expected.first_names = file->contents.first_names.get();
            remember(file->contents);
            if (is_good(file->contents, expected)) {
                report_contents(name.kind, file->contents);
                return 0;
            }
        }
        buffer_contents made;
        return mend_file(path, expected, file == nullptr ? &made : &file->mended);
    }

    uint32_t capacity_of(uint32_t kind) const
    {
        return kind == VESK_BUFFER_TYPE_HIST ? 2 * sizes_.intervals : sizes_.samples;
    }

    // What the buffers behind are mended with.
    void remember(const buffer_contents &contents)
    {
        if (contents.spans.size() > 0) {
            last_time_ = contents.spans[contents.spans.size() - 1].end;
        }
        if (contents.last_names) {
            last_names_ = contents.last_names.get();
        }
    }

    const vesk_cb_record_sensor_names *first_names_behind(uint32_t place)
    {
        for (uint32_t i = place + 1; i < box_.n; ++i) {
            const box_file *file = files_.find(box_.names[i]);
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
        const int result = _vesk_mend_buffer(path, expected, {take_step, this}, nullptr, contents);
        if (result != 0) {
            return result;
        }
        report_contents(expected.kind, *contents);
        if (!execute_ || contents->steps == 0) {
            return 0;
        }
        return contents->cut_suffices ? cut_file(path, contents->cut_offset)
                                      : rewrite_file(path, expected);
    }

    void report_contents(uint32_t kind, const buffer_contents &contents)
    {
        if (kind == VESK_BUFFER_TYPE_CURRENT) {
            report_->samples_kept += contents.data_records;
            report_->samples_padded += contents.records_padded;
        } else {
            report_->intervals_kept += contents.data_records;
            report_->intervals_padded += contents.records_padded;
        }
        report_->events_kept += contents.events;
        report_->events_tagged += contents.events_tagged;
        report_->records_mended += contents.records_mended;
        report_->records_aside += contents.records_aside;
        report_->bytes_aside += contents.bytes_aside;
    }

    // --- changing files

    // The base name leaves room for the suffix.
    static void format_beside(char (&to)[max_filename], const char *path, const char *suffix)
    {
        constexpr int longest_path = max_base_length + 64;
        snprintf(to, sizeof to, "%.*s%s", longest_path, path, suffix);
    }

    // What is taken out of a file is on the medium before it is gone from there.
    static int keep_torn(const char *path, const byte_list &torn)
    {
        if (torn.size() == 0) {
            return 0;
        }
        char torn_path[max_filename];
        format_beside(torn_path, path, torn_suffix);
        struct stat status = {};
        const bool begins_anew = stat(torn_path, &status) != 0 ||
                                 status.st_size + static_cast<off_t>(torn.size()) > max_torn_size;
        const owned_file file(fopen(torn_path, begins_anew ? "w" : "a"));
        if (!file) {
            return QE_ERROR_OPEN;
        }
        if (fwrite(torn.begin(), 1, torn.size(), file.get()) != torn.size()) {
            return QE_ERROR_IO;
        }
        const int synced = _vesk_sync_file(file.get());
        return synced != 0 || !begins_anew ? synced : _vesk_sync_folder(torn_path);
    }

    static int cut_file(const char *path, uint64_t offset)
    {
        const owned_file file(fopen(path, "r+"));
        if (!file) {
            return QE_ERROR_OPEN;
        }
        byte_list torn;
        int result = read_from(file.get(), offset, &torn);
        if (result == 0) {
            result = keep_torn(path, torn);
        }
        if (result != 0) {
            return result;
        }
        return ftruncate(fileno(file.get()), static_cast<off_t>(offset)) == 0
                   ? _vesk_sync_file(file.get())
                   : QE_ERROR_IO;
    }

    static int read_from(FILE *file, uint64_t offset, byte_list *bytes)
    {
        constexpr std::size_t piece = 65536;
        if (fseeko(file, static_cast<off_t>(offset), SEEK_SET) != 0) {
            return QE_ERROR_IO;
        }
        for (;;) {
            unsigned char *room = bytes->reserve(piece);
            if (room == nullptr) {
                return QE_ERROR_NO_MEMORY;
            }
            const std::size_t n = fread(room, 1, piece, file);
            bytes->add(n);
            if (n < piece) {
                return ferror(file) != 0 ? QE_ERROR_IO : 0;
            }
        }
    }

    static int rewrite_file(const char *path, const buffer_expectation &expected)
    {
        replacement_file replacement;
        int result = replacement.open(path);
        if (result != 0) {
            return result;
        }
        mended_file mended;
        mended.buffer = replacement.file();
        buffer_contents contents;
        result = _vesk_mend_buffer(path, expected, {ignore_step, nullptr}, &mended, &contents);
        if (result == 0) {
            result = keep_torn(path, mended.torn);
        }
        return result == 0 ? replacement.commit() : result;
    }

    // --- the state file

    int put_state()
    {
        uint32_t next = std::max(1U, state_->next_file_number);
        next = std::max(next, backup_->next_file_number);
        for (const buffer_name &name : box_.names) {
            next = std::max(next, name.number + 1);
        }
        for (const box_file *file : files_) {
            // A file that is kept must not be overwritten.
            if (!file->placed && !is_covered(*file)) {
                next = std::max(next, file->name.number + 1);
            }
        }
        if (report_->source == VESK_RECOVER_FROM_STATE && next == state_->next_file_number &&
            sizes_ == state_.told_sizes() && state_leads_here()) {
            return 0;
        }
        const int told = tell_file(VESK_RECOVER_WRITE_STATE, state_path_, 0, state_->error);
        return told != 0 || !execute_ ? told : write_state(next);
    }

    // Whether a recorder that reads the state file goes on beside it.
    bool state_leads_here() const
    {
        char path[max_filename];
        const int length = snprintf(path, sizeof path, "%s.state", state_->filename);
        return length < static_cast<int>(sizeof path) &&
               (strcmp(path, state_path_) == 0 || _vesk_is_same_file(path, state_path_)) &&
               (strcmp(state_->state_filename, state_path_) == 0 ||
                _vesk_is_same_file(state_->state_filename, state_path_));
    }

    int write_state(uint32_t next_file_number)
    {
        byte_list bytes;
        memory_writer target(&bytes);
        field_writer fields(target.get());
        write_state_head({base_, state_path_, box_.stage, sizes_.samples, sizes_.intervals,
                          sizes_.samples / sizes_.intervals, next_file_number},
                         &fields);
        fields.byte(1);
        for (uint32_t i = 0; i < box_.n; ++i) {
            char path[max_filename];
            _vesk_format_buffer_name(path, base_, box_.names[i]);
            fields.string(path);
        }
        if (fields.failed()) {
            return fields.result();
        }
        replacement_file replacement;
        const int opened = replacement.open(state_path_);
        if (opened != 0) {
            return opened;
        }
        return fwrite(bytes.begin(), 1, bytes.size(), replacement.file()) == bytes.size()
                   ? replacement.commit()
                   : QE_ERROR_IO;
    }

    // --- the other files

    // Finds what the buffers of the box prove to hold, before anything is decided by it.
    int judge_others()
    {
        closed_are_whole_ = true;
        for (uint32_t i = 0; i < box_.n; ++i) {
            const box_file *file = files_.find(box_.names[i]);
            if (i + 1 < box_.n && !is_whole(file)) {
                closed_are_whole_ = false;
            }
            if (file == nullptr) {
                continue;
            }
            add_spans(file->final_contents(), &box_span_);
            if (file->name.kind == VESK_BUFFER_TYPE_HIST) {
                add_spans(file->final_contents(), &history_span_);
                history_number_ = file->name.number;
            }
        }
        return 0;
    }

    // Whether a closed buffer holds all that it once held: neither now nor earlier was it padded.
    bool is_whole(const box_file *file) const
    {
        return file != nullptr && file->final_contents().empty_records == 0 &&
               file->final_contents().data_records == capacity_of(file->name.kind);
    }

    static void add_spans(const buffer_contents &contents, time_span *to)
    {
        for (const time_span &span : contents.spans) {
            to->start = std::min(to->start, span.start);
            to->end = std::max(to->end, span.end);
        }
    }

    static bool lies_within(const buffer_contents &contents, const time_span &whole)
    {
        for (const time_span &span : contents.spans) {
            if (span.start < whole.start || span.end > whole.end) {
                return false;
            }
        }
        return true;
    }

    // Whether all that a file holds is in the box: it holds nothing, it was summarised into the
    // history, or it is the history that an unfinished rotation began to make of what is there.
    bool is_covered(const box_file &file) const
    {
        const buffer_contents &contents = file.contents;
        if (contents.records_aside > 0) {
            return false;
        }
        if (contents.data_records == 0 && contents.events == 0 && contents.bytes_aside == 0) {
            return true;
        }
        if (!file.is_current() && file.name.number > history_number_) {
            return closed_are_whole_ && lies_within(contents, box_span_);
        }
        return contents.bytes_aside == 0 && file.name.number < history_number_ &&
               lies_within(contents, history_span_);
    }

    int clear_up()
    {
        int result = 0;
        for (const box_file *file : files_) {
            if (!file->placed && result == 0) {
                result = clear_file(*file);
            }
        }
        for (const char *path : {state_path_, backup_path_}) {
            char unfinished[max_filename];
            format_beside(unfinished, path, replacement_suffix);
            if (result == 0 && access(unfinished, F_OK) == 0) {
                result = remove(unfinished);
            }
        }
        if (result == 0) {
            result = clear_beside(replacement_suffix, false);
        }
        return result == 0 ? clear_beside(torn_suffix, true) : result;
    }

    int clear_file(const box_file &file)
    {
        char path[max_filename];
        _vesk_format_buffer_name(path, base_, file.name);
        if (!is_covered(file)) {
            ++report_->files_kept;
            return tell_file(VESK_RECOVER_KEEP, path, 0, 0);
        }
        ++report_->files_deleted;
        return remove(path);
    }

    // Deletes the files with a suffix behind the name of a buffer, or only those whose buffer is
    // gone.
    int clear_beside(const char *suffix, bool only_without_buffer)
    {
        buffer_names names;
        int result = _vesk_list_buffer_names(base_, suffix, &names);
        for (const buffer_name &name : names) {
            char path[max_filename];
            if (result == 0 && _vesk_format_buffer_name(path, base_, name, suffix) &&
                !(only_without_buffer && stays(name))) {
                result = remove(path);
            }
        }
        return result;
    }

    bool stays(const buffer_name &name)
    {
        const box_file *file = files_.find(name);
        return box_.has(name) || (file != nullptr && !is_covered(*file));
    }

    int remove(const char *path)
    {
        struct stat status = {};
        (void)stat(path, &status);
        const int told =
            tell_file(VESK_RECOVER_DELETE, path, static_cast<uint64_t>(status.st_size), 0);
        if (told != 0 || !execute_) {
            return told;
        }
        return unlink(path) == 0 ? 0 : QE_ERROR_IO;
    }

    const char *base_;
    sizes given_;
    vesk_recover_visitor visit_;
    void *context_;
    bool execute_;
    vesk_recover_report *report_;

    char state_path_[max_filename] = {};
    char backup_path_[max_filename] = {};
    state_summary state_;
    state_summary backup_;
    box_file_list files_;
    arrangement box_;
    sizes sizes_;

    int64_t last_time_ = 0;
    const vesk_cb_record_sensor_names *last_names_ = nullptr;

    time_span box_span_ = {INT64_MAX, INT64_MIN};
    time_span history_span_ = {INT64_MAX, INT64_MIN};
    uint32_t history_number_ = 0;
    bool closed_are_whole_ = false;
};

} // namespace

static int _recover(const char *filename, const sizes &given, vesk_recover_visitor visit,
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
    auto *work = new (storage.get()) recovery(filename, given, visit, context, execute, filled);
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
