// Collects what happens to one stream of a buffer and decides at its end what is written: the
// stream as it was, or its content compressed anew; if a record was taken out, the old stream also
// goes to FILE.torn. Each step is reported to the receiver. finish() finds out whether cutting the
// tail off the file would do the same with less work.
#include "recovery/mended_stream.hpp"

#include <vesk/error.h>

void mended_stream::begin(uint64_t offset, uint64_t length)
{
    open_ = true;
    changed_ = false;
    to_torn_ = false;
    offset_ = offset;
    length_ = length;
}

int mended_stream::end()
{
    if (!open_) {
        return 0;
    }
    open_ = false;
    changed_otherwise_ = changed_otherwise_ || changed_ || cut_at_end_;
    int result = to_torn_ ? output_.set_aside(offset_, length_) : 0;
    if (result == 0) {
        result = changed_ ? output_.write_stream(&content_)
                          : output_.copy(offset_, length_, content_.price());
    }
    content_.clear();
    return result;
}

int mended_stream::cut(const vesk_scan_item &item)
{
    // Only a cut behind which nothing follows leaves the rest of the file as it is.
    changed_otherwise_ = changed_otherwise_ || cut_at_end_;
    cut_at_end_ = true;
    cut_offset_ = item.offset;
    contents_->bytes_aside += item.length;
    const int told = steps_.add(VESK_RECOVER_CUT, item.error, item.offset, item.length, 0);
    return told != 0 ? told : output_.set_aside(item.offset, item.length);
}

int mended_stream::set_aside(int error)
{
    ++contents_->records_aside;
    if (!to_torn_) {
        contents_->bytes_aside += length_;
    }
    to_torn_ = true;
    return tell_record(VESK_RECOVER_SET_ASIDE, error);
}

int mended_stream::tell_record(vesk_recover_action action, int error)
{
    changed_ = true;
    return steps_.add_record(action, error, offset_, length_);
}

int mended_stream::tell_mended(vesk_recover_action action)
{
    ++contents_->records_mended;
    return tell_record(action, QE_ERROR_MALFORMED);
}

int mended_stream::tell(vesk_recover_action action, int error, uint64_t offset, uint64_t length,
                        uint32_t count)
{
    return steps_.add(action, error, offset, length, count);
}

int mended_stream::finish(uint64_t fixed_part)
{
    const int flushed = steps_.finish();
    // What is left must be long enough for a scan to allow its records.
    contents_->cut_suffices = contents_->steps > 0 && cut_at_end_ && !changed_otherwise_ &&
                              output_.price() <= cut_offset_ + fixed_part;
    contents_->cut_offset = cut_offset_;
    return flushed != 0 ? flushed : output_.make_long_enough(fixed_part);
}
