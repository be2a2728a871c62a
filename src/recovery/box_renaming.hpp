// Low numbers for the buffers of a box whose numbers come to their end.
//
// In: the box under the names that its files have. Out: the names that they get, and the number of
// the next file. Each file has both names until the state file tells the new ones, so at any moment
// it names files that are there; only then the old names may be removed. Planning tells the same
// steps and changes nothing.
#ifndef VESK_RECOVERY_BOX_RENAMING_HPP
#define VESK_RECOVERY_BOX_RENAMING_HPP

#include <cstdint>

#include "recovery/arrangement.hpp"
#include "recovery/recovery_steps.hpp"
#include "recovery/survey.hpp"

// All functions return 0, what the visitor returned, QE_ERROR_IO (-41), QE_ERROR_LIMIT (-49) when
// no numbers are free, or QE_ERROR_NO_MEMORY (-22).
class box_renaming
{
public:
    box_renaming(const box_survey &survey, recovery_steps *steps, bool execute)
        : survey_(survey), steps_(steps), execute_(execute)
    {
    }

    // Gives the files of `box` the names `*names`, which is the same box.
    int renumber(const arrangement &box, arrangement *names, uint32_t *next_file_number);
    int remove_old_names(const arrangement &box) const;

private:
    void format_name(char (&path)[max_filename], const buffer_name &name,
                     const char *suffix = "") const
    {
        _vesk_format_buffer_name(path, survey_.base(), name, suffix);
    }
    int give_name(const buffer_name &old, const buffer_name &name);

    const box_survey &survey_;
    recovery_steps *steps_;
    bool execute_;
};

#endif
