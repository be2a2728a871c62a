// The history that the next rotation will need, made before it is due: see vesk_prepare.h.
#ifndef VESK_RECORDER_PREPARATION_HPP
#define VESK_RECORDER_PREPARATION_HPP

#include <cstddef>
#include <cstdint>
#include <sys/stat.h>

#include <vesk/vesk.h>

#include "buffers/summary_steps.hpp"
#include "recorder/recorder.hpp"
#include "support/owner.hpp"

class history_preparation
{
public:
    // For the next rotation of `recorder`, which is in one of the last two stages.
    explicit history_preparation(const vesk *recorder);
    history_preparation(const history_preparation &) = delete;
    history_preparation &operator=(const history_preparation &) = delete;
    ~history_preparation() { abandon(); }

    // The next step. `memory` is what the result may take where it does not lie on the disk.
    // more_to_do, all_done, or the code with which it was given up, then and from then on.
    int step(std::size_t memory);
    // What the step before answered.
    int result() const { return result_; }

    // Whether this is the work of the rotation that is due now.
    bool is_for(const vesk *recorder) const;
    // Names the finished history and brings it onto the medium. 0, or a code and there is no file.
    int place();

private:
    enum class phase { begin, older, newer, sync };

    // One of the two files that are summarised.
    struct input {
        char filename[filename_size];
        struct stat status;
    };

    int next_step(std::size_t memory);
    int create_history(std::size_t memory);
    int step_through(input &from);
    int open_input(input &from);
    int open_old_history(const char *filename);
    int open_samples(const char *filename);
    void close_input();
    int keep_file();
    bool is_unchanged(const input &from) const;
    void abandon();

    int result_ = more_to_do;
    phase phase_ = phase::begin;
    uint32_t state_;
    uint32_t num_hb_intervals_;
    uint32_t num_samples_per_interval_;
    char hbuf_filename_[filename_size];
    input inputs_[2]; // the older one first
    bool lies_in_memory_ = false;
    vesk_hist_buffer *hbuf_ = nullptr; // owned, until it is complete
    owned_file file_;                  // the complete history
    bool is_merging_ = false;          // an old history is being halved
    bool is_compressing_ = false;      // samples are being summarised
    merging merging_;
    compression compression_;
};

// Ends the preparation of a recorder, if there is one.
void _vesk_drop_preparation(const vesk *recorder);

// Gives the history that was prepared the name that is next; what is left to do is done first.
// False when there is none that fits: the rotation makes it then.
bool _vesk_place_preparation(const vesk *recorder);

#endif
