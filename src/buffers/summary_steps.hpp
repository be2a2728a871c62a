// The two works of a rotation, summarising a buffer of samples and halving a history, as rows of
// short steps that may lie far apart in time. A rotation takes all steps at once; vesk_prepare()
// takes some between two samples. Not exported.
#ifndef VESK_BUFFERS_SUMMARY_STEPS_HPP
#define VESK_BUFFERS_SUMMARY_STEPS_HPP

#include <cstdint>

#include <vesk/hist_value_list.h>
#include <vesk/timestamp.h>
#include <vesk/vesk_current_buffer.h>
#include <vesk/vesk_hb_record.h>
#include <vesk/vesk_hb_record_events.h>
#include <vesk/vesk_hist_buffer.h>

#include "buffers/interval_statistics.hpp"

// What a step answers besides a negative code.
inline constexpr int all_done = 0;
inline constexpr int more_to_do = 1;

// What content does that no recorder writes, but that decodes: an event of an unknown kind, a
// sample without a time, two statistics of one sensor in an interval.
enum class odd_content { aborts, gives_code };

// Every so many consecutive samples become one interval.
struct compression {
    vesk_current_buffer *cbuf; // owned
    vesk_hist_buffer *hbuf;    // the caller's
    odd_content odd;
    vesk_cb_record rec;
    timestamp start; // of the first sample of the open interval
    timestamp end;   // of its latest sample
    interval_statistics statistics;
    vesk_hb_record_events events;
    uint32_t samples_in_interval;
    uint32_t samples_per_hb_interval;
};

// Takes `cbuf`, in any case. 0, or QE_ERROR_MALFORMED (-6) where no whole intervals come out or the
// history has no room for them. What was initialised is destructed.
int _vesk_compression_init(compression *state, vesk_current_buffer *cbuf, vesk_hist_buffer *hbuf,
                           uint32_t samples_per_hb_interval, odd_content odd);
// Handles one record.
int _vesk_compression_step(compression *state);
void _vesk_compression_destruct(compression *state);

// Every two consecutive intervals become one.
struct merging {
    vesk_hist_buffer *hbuf_in;  // owned
    vesk_hist_buffer *hbuf_out; // the caller's
    odd_content odd;
    vesk_hb_record_sensor_names *names1; // sensors of the first interval; the input's working set,
                                         // or a copy of what that was then
    vesk_hb_record values1;
    vesk_hb_record values2;
    hist_value_list list;
    uint32_t intervals_consumed;
};

// Takes `hbuf_in`, in any case. 0, or QE_ERROR_MALFORMED (-6) where its capacity is odd or the
// output has no room. What was initialised is destructed.
int _vesk_merging_init(merging *state, vesk_hist_buffer *hbuf_in, vesk_hist_buffer *hbuf_out,
                       odd_content odd);
// Merges one pair.
int _vesk_merging_step(merging *state);
void _vesk_merging_destruct(merging *state);

#endif
