// Decides about the files that do not belong to the recovered box. A buffer is deleted if the box
// holds everything in it; any other buffer is reported and kept. Unfinished files of an earlier
// recovery are deleted, and so is FILE.torn when its buffer is.
#ifndef VESK_RECOVERY_LEFTOVERS_HPP
#define VESK_RECOVERY_LEFTOVERS_HPP

#include "recovery/arrangement.hpp"
#include "recovery/file_numbers.hpp"
#include "recovery/recovery_steps.hpp"
#include "recovery/survey.hpp"

class leftovers
{
public:
    leftovers(const box_survey &survey, recovery_steps *steps, bool execute)
        : survey_(survey), steps_(steps), execute_(execute)
    {
    }

    // Finds what the recovered buffers of the box prove to hold. To be called before the other
    // functions. Returns 0 or QE_ERROR_NO_MEMORY (-22).
    int judge(const arrangement &box);

    // The numbers of files that stay and must not be overwritten. False without memory.
    bool list_kept_numbers(number_list *numbers) const;

    // Deletes and reports the files. `now` is the box under its final names.
    int clear_up(const arrangement &now);

private:
    bool goes(const box_file &file) const
    {
        return !file.placed && (file.copied || coverage_.holds(file));
    }
    bool stays(const buffer_name &name, const arrangement &now) const;
    int keep(const char *path, int error);
    int remove(const char *path);
    int clear_file(const box_file &file);
    int clear_path(const char *path);
    int clear_unfinished();
    int clear_beside(const char *suffix, const arrangement *spared);

    const box_survey &survey_;
    recovery_steps *steps_;
    bool execute_;
    arrangement box_;
    box_coverage coverage_;
};

#endif
