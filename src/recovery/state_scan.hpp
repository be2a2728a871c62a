// What a state file or its copy says, read without trust.
//
// In: the path of the file. Out: its fields up to the first that is missing or that no recorder
// writes, and the code that says why it is refused. The form is described in state_file.hpp; the
// recorder reads it strictly, field by field from its stream, because it opens the buffers as it
// meets their names.
#ifndef VESK_RECOVERY_STATE_SCAN_HPP
#define VESK_RECOVERY_STATE_SCAN_HPP

#include <cstddef>

#include <vesk/error.h>
#include <vesk/vesk_scan.h>

#include "box/box_sizes.hpp"

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

    // For a file that is missing or must not be opened: nothing is known of it.
    void set_missing() { summary_.error = QE_ERROR_OPEN; }

    // The bytes of the form that was read.
    std::size_t form_size() const;

    // The sizes in the file, as far as they could be read; none when the quotient behind them does
    // not match.
    recorder_sizes told_sizes() const;

private:
    vesk_state_summary summary_ = {};
};

#endif
