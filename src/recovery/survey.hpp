// Finds out which files of a box exist: the state file, its copy and the buffer files, each of
// which is read once. Nothing is decided or changed here. Files that are not regular, or belong to
// an untrusted user, are listed apart and not opened.
#ifndef VESK_RECOVERY_SURVEY_HPP
#define VESK_RECOVERY_SURVEY_HPP

#include <cstdint>

#include <vesk/vesk_scan.h>

#include "box/box_sizes.hpp"
#include "box/plain_file.hpp"
#include "box/state_file.hpp"
#include "recovery/arrangement.hpp"
#include "recovery/box_file.hpp"
#include "recovery/file_numbers.hpp"
#include "recovery/state_scan.hpp"

class box_survey
{
public:
    explicit box_survey(const char *base) : base_(base), owners_(base) {}

    // 0; QE_ERROR_OPEN (-40) when there is no box of this name, QE_ERROR_IO (-41) when its folder,
    // its state file or one of its buffers cannot be read, QE_ERROR_LIMIT (-49) when the name is
    // too long, QE_ERROR_NO_MEMORY (-22) without memory.
    int look();

    const char *base() const { return base_; }
    const char *state_path() const { return state_path_; }
    const char *copy_path() const { return copy_path_; }
    const trusted_owners &owners() const { return owners_; }

    const state_summary &state() const { return state_; }
    const state_summary &copy() const { return copy_; }
    // The buffers that the state file and its copy name, as far as they were found.
    const named_state &named_by_state() const { return named_by_state_; }
    const named_state &named_by_copy() const { return named_by_copy_; }
    // Whether the checksum of the copy is wrong.
    bool copy_has_changed() const { return copy_checksum_ == copy_checksum::wrong; }
    // Whether the paths in the state file lead to the state file itself, so that a recorder which
    // opens it goes on with this box.
    bool state_leads_here() const { return state_leads_here_; }

    box_file_list &files() { return files_; }
    const box_file_list &files() const { return files_; }
    // The number of buffer files, including those that were not opened.
    std::size_t count_files() const { return n_files_; }
    // Reads the sensors of a buffer, which look() does not keep: there may be many files. 0,
    // QE_ERROR_IO (-41) or QE_ERROR_NO_MEMORY (-22).
    int read_names(box_file *file) const;
    // Marks the files with records beside the box whose bytes are the first ones, or all, of one of
    // its buffers. To be called before any of these is changed. 0 or QE_ERROR_IO (-41).
    int find_copies(const arrangement &box);
    // The buffer files that were not looked into.
    const buffer_names &foreign() const { return foreign_; }
    bool state_is_foreign() const { return state_is_foreign_; }
    bool copy_is_foreign() const { return copy_is_foreign_; }

    // The numbers in all names, of buffers and of what is beside them. False without memory.
    bool list_numbers(number_list *numbers) const;

private:
    int look_at_state();
    int look_at_copy();
    int look_at_buffer(const buffer_name &name);
    int find_copy(const arrangement &box, box_file *file) const;
    int find_named(const vesk_state_summary &summary, named_state *named) const;
    int find_name(const char *path, buffer_name *name) const;
    int find_where_state_leads();

    const char *base_;
    trusted_owners owners_;
    char state_path_[max_filename] = {};
    char copy_path_[max_filename] = {};
    state_summary state_;
    state_summary copy_;
    named_state named_by_state_;
    named_state named_by_copy_;
    bool state_leads_here_ = false;
    bool state_is_foreign_ = false;
    bool copy_is_foreign_ = false;
    copy_checksum copy_checksum_ = copy_checksum::wrong;
    box_file_list files_;
    std::size_t n_files_ = 0;
    buffer_names foreign_;
};

#endif
