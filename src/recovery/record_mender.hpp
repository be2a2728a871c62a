// The records of a buffer that is recovered, one by one.
//
// In: names, samples, intervals and events as the scanner shows them, in file order. Out: each of
// them in the content of the stream at hand, as it was found or as readers take it, or taken out of
// the stream; and the counts and times of what stays. It may be assumed that the stream at hand is
// open and that the header, if there has to be one, is in its content.
#ifndef VESK_RECOVERY_RECORD_MENDER_HPP
#define VESK_RECOVERY_RECORD_MENDER_HPP

#include <cstdint>

#include "recovery/buffer_mender.hpp"
#include "recovery/governing_names.hpp"
#include "recovery/mended_stream.hpp"
#include "recovery/records.hpp"

// All functions that return an int return 0, what the receiver of the steps returned, or
// QE_ERROR_NO_MEMORY (-22).
class record_mender
{
public:
    record_mender(const buffer_expectation &expected, mended_stream *stream,
                  buffer_contents *contents)
        : expected_(expected), stream_(stream), contents_(contents),
          names_(expected, stream->content(), contents), capacity_(expected.capacity),
          last_time_(expected.time)
    {
    }

    // The number of samples or intervals that there may be; 0 as long as it is unknown.
    uint32_t capacity() const { return capacity_; }
    void set_capacity(uint32_t capacity) { capacity_ = capacity; }

    int take_names(const vesk_scan_item &item);
    int take_sample(const vesk_scan_item &item, const scanned_record &record);
    int take_interval(const vesk_scan_item &item, const scanned_record &record);
    int take_event(const vesk_scan_item &item, const scanned_record &record);

    // Before the stream at hand ends: takes names without an interval behind them out of it.
    int leave_stream();

    // Behind the last record: puts names there that govern `missing` records of padding, which
    // tell something of as many sensors as n_sensors() says, at the time padding_time().
    int begin_padding(uint32_t missing);
    uint32_t n_sensors() const { return names_.count(); }
    int64_t padding_time() const { return last_time_ != 0 ? last_time_ : 1; }

private:
    bool is_current() const { return expected_.kind == VESK_BUFFER_TYPE_CURRENT; }
    bool is_full() const { return capacity_ > 0 && contents_->data_records == capacity_; }
    void mend_time(timestamp *time) const;
    int require_names(uint32_t n, int64_t time);
    int use_waiting_names();
    int count_data(int64_t start, int64_t end, bool empty);
    int append_event(vesk_cb_record_event *event);

    const buffer_expectation &expected_;
    mended_stream *stream_;
    buffer_contents *contents_;
    governing_names names_;
    uint32_t capacity_;
    int64_t last_time_;
};

#endif
