// The names that govern the records of a buffer while it is recovered.
//
// In: the names records of the buffer, in order, and what is known about the sensors from
// elsewhere. Out: their bytes, in the content of the stream at hand, and the first and the last
// names of the buffer. Halving a history takes one names record between two intervals and no more,
// so there names wait until an interval needs them.
#ifndef VESK_RECOVERY_GOVERNING_NAMES_HPP
#define VESK_RECOVERY_GOVERNING_NAMES_HPP

#include <cstdint>

#include <vesk/vesk_buffer.h>

#include "recovery/buffer_mender.hpp"
#include "recovery/mended_content.hpp"

// All functions that return an int return 0, or QE_ERROR_NO_MEMORY (-22).
class governing_names
{
public:
    governing_names(const buffer_expectation &expected, mended_content *content,
                    buffer_contents *contents)
        : expected_(expected), content_(content), contents_(contents)
    {
    }

    // How many sensors they name; 0 before the first names.
    uint32_t count() const { return count_; }

    // Names that were found and can stay.
    int take(const vesk_scan_item &item);
    // Names that were found and cannot stay, as they are now.
    int take_mended(const vesk_cb_record_sensor_names *names);
    // Names for `n` sensors, or for any number when that is 0, whose own names are lost: those of
    // another buffer, when they are as many, or made ones.
    int replace(uint32_t n, int64_t time);
    // Padding needs names too; one sensor is enough where nothing is known.
    int keep_one(int64_t time);

    // Whether names of the stream at hand wait that no interval has needed.
    bool wait_in_stream() const { return waiting_in_stream_; }
    bool wait() const { return waiting_.bytes().size() > 0; }
    // They are not counted as part of the stream at hand any more.
    void leave_stream() { waiting_in_stream_ = false; }
    // Puts the names that wait before the interval that is about to come.
    int use_waiting();

private:
    bool is_current() const { return expected_.kind == VESK_BUFFER_TYPE_CURRENT; }
    int keep(const vesk_cb_record_sensor_names *names);
    mended_content *target();

    const buffer_expectation &expected_;
    mended_content *content_;
    buffer_contents *contents_;
    mended_content waiting_;
    bool waiting_in_stream_ = false;
    uint32_t count_ = 0;
};

#endif
