// The mender takes the items of a buffer one by one. For each it decides whether the item stays, is
// changed or is taken out, tells that, and puts together what the stream should hold. A stream in
// which nothing has to be changed is copied as it is.
#include "recovery/buffer_mender.hpp"

#include <algorithm>
#include <cmath>
#include <errno.h>
#include <sys/stat.h>

#include <vesk/vesk_buffer.h>

#include "buffers/storable.hpp"
#include "recovery/buffer_scan.hpp"
#include "recovery/governing_names.hpp"
#include "recovery/padding.hpp"
#include "support/object.hpp"

static constexpr char textless[] = "(no text)";

namespace
{

class buffer_mender
{
public:
    buffer_mender(const char *filename, const buffer_expectation &expected,
                  const step_receiver &receiver, mended_file *output, buffer_contents *contents)
        : filename_(filename), expected_(expected), steps_(filename, receiver, &contents->steps),
          has_output_(output != nullptr), output_(output), contents_(contents),
          names_(expected, &content_, contents), capacity_(expected.capacity),
          last_time_(expected.time)
    {
    }

    int run()
    {
        struct stat status = {};
        const bool missing = lstat(filename_, &status) != 0 && errno == ENOENT;
        int result = missing ? 0 : output_.open_source(filename_);
        if (result == 0 && !missing) {
            result = _vesk_scan_items(filename_, link_rule::refuse, {take_item, this});
        }
        if (result == 0) {
            result = end_stream();
        }
        if (result == 0) {
            result = finish();
        }
        if (result == 0) {
            result = steps_.flush();
        }
        contents_->cut_suffices = contents_->steps > 0 && cut_at_end_ && !changed_otherwise_;
        contents_->cut_offset = cut_offset_;
        return result;
    }

private:
    bool is_current() const { return expected_.kind == VESK_BUFFER_TYPE_CURRENT; }

    // --- telling what is done

    // What is done to a record of the stream at hand.
    int tell_record(vesk_recover_action action, int error)
    {
        stream_.changed = true;
        return steps_.add_record(action, error, stream_.offset, stream_.length);
    }

    int tell_mended(vesk_recover_action action)
    {
        ++contents_->records_mended;
        return tell_record(action, QE_ERROR_MALFORMED);
    }

    // --- streams

    struct stream {
        bool open = false;
        bool changed = false;
        bool to_torn = false;
        uint64_t offset = 0;
        uint64_t length = 0;
    };

    static int take_item(const vesk_scan_item &item, const scanned_record *record, void *mender)
    {
        return static_cast<buffer_mender *>(mender)->take(item, record);
    }

    int take(const vesk_scan_item &item, const scanned_record *record)
    {
        if (item.kind == VESK_SCAN_DAMAGE && item.content_length == 0) {
            const int ended = end_stream();
            return ended != 0 ? ended : cut(item);
        }
        int result = 0;
        if (!stream_.open || stream_.offset != item.offset) {
            result = end_stream();
            stream_ = stream();
            stream_.open = true;
            stream_.offset = item.offset;
            stream_.length = item.length;
            if (result == 0 && !has_header_ && item.kind != VESK_SCAN_HEADER) {
                result = add_header(item.offset, item.length, QE_ERROR_UNKNOWN_KIND);
            }
        }
        return result != 0 ? result : take_content(item, record);
    }

    int take_content(const vesk_scan_item &item, const scanned_record *record)
    {
        switch (item.kind) {
        case VESK_SCAN_HEADER:
            return take_header(item);
        case VESK_SCAN_SENSOR_NAMES:
            return take_names(item);
        case VESK_SCAN_SENSOR_VALUES:
            return take_sample(item, *record);
        case VESK_SCAN_INTERVAL:
            return take_interval(item, *record);
        case VESK_SCAN_EVENT:
        case VESK_SCAN_BARE_EVENT:
            return take_event(item, *record);
        default:
            return set_aside(item.error);
        }
    }

    // Bytes in no complete stream.
    int cut(const vesk_scan_item &item)
    {
        // Only a cut behind which nothing follows leaves the rest of the file as it is.
        changed_otherwise_ = changed_otherwise_ || cut_at_end_;
        cut_at_end_ = true;
        cut_offset_ = item.offset;
        contents_->bytes_aside += item.length;
        const int told = steps_.add(VESK_RECOVER_CUT, item.error, item.offset, item.length, 0);
        return told != 0 ? told : output_.set_aside(item.offset, item.length);
    }

    // Takes a record out of the stream at hand, which is kept as a whole.
    int set_aside(int error)
    {
        ++contents_->records_aside;
        if (!stream_.to_torn) {
            contents_->bytes_aside += stream_.length;
        }
        stream_.to_torn = true;
        return tell_record(VESK_RECOVER_SET_ASIDE, error);
    }

    int end_stream()
    {
        if (!stream_.open) {
            return 0;
        }
        const int skipped = skip_waiting_names();
        if (skipped != 0) {
            return skipped;
        }
        stream_.open = false;
        changed_otherwise_ = changed_otherwise_ || stream_.changed || cut_at_end_;
        int result = stream_.to_torn ? output_.set_aside(stream_.offset, stream_.length) : 0;
        if (result == 0) {
            result = stream_.changed ? output_.write_stream(&content_)
                                     : output_.copy(stream_.offset, stream_.length);
        }
        content_.clear();
        return result;
    }

    // --- the header

    int add_header(uint64_t offset, uint64_t length, int error)
    {
        has_header_ = true;
        stream_.changed = true;
        const int told = steps_.add(VESK_RECOVER_ADD_HEADER, error, offset, length, 0);
        return told != 0 ? told : content_.append_header(expected_.kind, capacity_);
    }

    int take_header(const vesk_scan_item &item)
    {
        contents_->kind = item.buffer_kind;
        contents_->capacity = item.capacity;
        if (capacity_ == 0 && item.error == 0) {
            capacity_ = item.capacity;
        }
        if (item.buffer_kind != expected_.kind || item.capacity != capacity_) {
            return add_header(item.offset, item.length, QE_ERROR_MALFORMED);
        }
        has_header_ = true;
        return content_.append(item);
    }

    // --- names

    int take_names(const vesk_scan_item &item)
    {
        // Names that wait already are for nothing.
        int result = names_.wait() ? skip_waiting_names() : 0;
        // History cannot be merged with a sensor that is there twice.
        const bool unique = !is_current();
        const sensor_array *sensors = item.names->sensors;
        const int repeated = unique && result == 0
                                 ? check_repetition(sensor_array_get_sensors(sensors),
                                                    sensor_array_get_size(sensors))
                                 : 0;
        if (result != 0 || repeated == QE_ERROR_NO_MEMORY) {
            return result != 0 ? result : repeated;
        }
        if (item.error == 0 && repeated == 0) {
            return names_.take(item);
        }
        const owned_names mended = _vesk_create_mended_names(item.names, unique);
        if (!mended) {
            return QE_ERROR_NO_MEMORY;
        }
        result = tell_mended(VESK_RECOVER_MEND_TEXT);
        return result != 0 ? result : names_.take_mended(mended.get());
    }

    // Takes names without an interval behind them out of the stream at hand, if they are in it.
    int skip_waiting_names()
    {
        if (!names_.wait_in_stream()) {
            return 0;
        }
        names_.leave_stream();
        return set_aside(QE_ERROR_MALFORMED);
    }

    // Puts the names that wait before the interval that is about to come.
    int use_waiting_names()
    {
        if (!names_.wait()) {
            return 0;
        }
        stream_.changed = stream_.changed || !names_.wait_in_stream();
        return names_.use_waiting();
    }

    // Sees to it that names for `n` sensors, or any, govern the record.
    int require_names(uint32_t n, int64_t time)
    {
        if (names_.count() > 0 && (n == 0 || n == names_.count())) {
            return 0;
        }
        const int told =
            tell_record(VESK_RECOVER_NAME_SENSORS,
                        names_.count() == 0 ? QE_ERROR_UNKNOWN_KIND : QE_ERROR_MALFORMED);
        return told != 0 ? told : names_.replace(n, time);
    }

    // --- records

    bool is_full() const { return capacity_ > 0 && contents_->data_records == capacity_; }

    // Whether a time cannot stay: it is null, or has microseconds, which the scanner leaves out.
    static bool is_bad(const timestamp &time, const scanned_record &record)
    {
        return record.has_microseconds || timestamp_is_null(&time) != 0;
    }

    // Replaces a null time by the latest one.
    void mend_time(timestamp *time)
    {
        if (timestamp_is_null(time) != 0) {
            time->tv.tv_sec = static_cast<time_t>(last_time_ != 0 ? last_time_ : 1);
        }
    }

    int count_data(int64_t start, int64_t end, bool empty)
    {
        ++contents_->data_records;
        contents_->empty_records += empty ? 1 : 0;
        last_time_ = end;
        return empty || contents_->spans.append({start, end}) ? 0 : QE_ERROR_NO_MEMORY;
    }

    static bool is_empty(const vesk_cb_record_sensor_values &sample)
    {
        return std::all_of(sample.values, sample.values + sample.n_sensors,
                           [](float value) { return std::isnan(value); });
    }

    static bool is_empty(const vesk_hb_record_sensor_values &interval)
    {
        return std::all_of(interval.hvalues, interval.hvalues + interval.n_sensors,
                           [](const hist_value &summary) { return summary.count == 0; });
    }

    int take_sample(const vesk_scan_item &item, const scanned_record &record)
    {
        vesk_cb_record_sensor_values *values = item.values;
        if (!is_current() || is_full()) {
            return set_aside(QE_ERROR_MALFORMED);
        }
        const bool bad_time = is_bad(values->timestamp, record);
        mend_time(&values->timestamp);
        const int64_t time = values->timestamp.tv.tv_sec;
        int result = require_names(values->n_sensors, time);
        if (result == 0) {
            result = count_data(time, time, is_empty(*values));
        }
        if (result == 0 && bad_time) {
            result = tell_mended(VESK_RECOVER_MEND_TIME);
        }
        return result != 0 ? result : bad_time ? content_.append(values) : content_.append(item);
    }

    int take_interval(const vesk_scan_item &item, const scanned_record &record)
    {
        vesk_hb_record_sensor_values *interval = item.interval;
        if (is_current() || is_full()) {
            return set_aside(QE_ERROR_MALFORMED);
        }
        const bool bad_time = is_bad(interval->start, record) || is_bad(interval->end, record);
        mend_time(&interval->start);
        mend_time(&interval->end);
        const int64_t start = interval->start.tv.tv_sec;
        int result = require_names(interval->n_sensors, start);
        if (result == 0) {
            result = use_waiting_names();
        }
        if (result == 0) {
            result = count_data(start, interval->end.tv.tv_sec, is_empty(*interval));
        }
        if (result == 0 && bad_time) {
            result = tell_mended(VESK_RECOVER_MEND_TIME);
        }
        return result != 0 ? result : bad_time ? content_.append(interval) : content_.append(item);
    }

    int take_event(const vesk_scan_item &item, const scanned_record &record)
    {
        vesk_cb_record_event *event = item.event;
        if (!is_current() || event->type < 1 || event->type > VESK_MAX_EVENT_TYPE) {
            return set_aside(QE_ERROR_MALFORMED);
        }
        const bool bare = item.kind == VESK_SCAN_BARE_EVENT;
        const bool bad_time = is_bad(event->timestamp, record);
        mend_time(&event->timestamp);
        int result = require_names(0, event->timestamp.tv.tv_sec);
        if (result == 0 && bare) {
            ++contents_->events_tagged;
            result = tell_record(VESK_RECOVER_TAG_EVENT, QE_ERROR_MALFORMED);
        }
        if (result == 0 && bad_time) {
            result = tell_mended(VESK_RECOVER_MEND_TIME);
        }
        if (result == 0 && record.has_bad_text) {
            result = tell_mended(VESK_RECOVER_MEND_TEXT);
        }
        ++contents_->events;
        if (result != 0 || !(bare || bad_time || record.has_bad_text)) {
            return result != 0 ? result : content_.append(item);
        }
        return append_event(event);
    }

    int append_event(vesk_cb_record_event *event)
    {
        if (event->text[0] == 0) {
            char *text = duplicate_string(textless);
            if (text == nullptr) {
                return QE_ERROR_NO_MEMORY;
            }
            free(event->text);
            event->text = text;
        }
        return content_.append(event);
    }

    // --- the end

    int finish()
    {
        int result = 0;
        if (!has_header_ && capacity_ > 0) {
            changed_otherwise_ = true;
            result = add_header(0, 0, QE_ERROR_TRUNCATED);
            if (result == 0) {
                result = output_.write_stream(&content_);
            }
        }
        if (result != 0 || !expected_.full || contents_->data_records >= capacity_) {
            return result;
        }
        changed_otherwise_ = true;
        const auto missing = static_cast<uint32_t>(capacity_ - contents_->data_records);
        if (missing > most_padding) {
            return QE_ERROR_LIMIT;
        }
        contents_->records_padded = missing;
        result = steps_.add(VESK_RECOVER_PAD, QE_ERROR_NOT_FULL, 0, 0, missing);
        if (result == 0 && names_.count() == 0) {
            result = names_.replace(0, padding_time());
        }
        if (result == 0 && missing * uint64_t(names_.count()) > most_padded_values) {
            result = names_.keep_one(padding_time());
        }
        if (result == 0) {
            result = use_waiting_names();
        }
        const padding form = {expected_.kind, names_.count(), padding_time()};
        return result != 0 || !has_output_
                   ? result
                   : _vesk_write_padding(form, missing, &content_, &output_);
    }

    int64_t padding_time() const { return last_time_ != 0 ? last_time_ : 1; }

    const char *filename_;
    const buffer_expectation &expected_;
    step_runs steps_;
    bool has_output_;
    mended_output output_;
    buffer_contents *contents_;
    stream stream_;
    mended_content content_; // of the stream at hand, as it should be
    governing_names names_;
    uint32_t capacity_;
    bool has_header_ = false;
    bool cut_at_end_ = false;
    bool changed_otherwise_ = false;
    uint64_t cut_offset_ = 0;
    int64_t last_time_;
};

} // namespace

int _vesk_mend_buffer(const char *filename, const buffer_expectation &expected,
                      const step_receiver &receiver, mended_file *output, buffer_contents *contents)
{
    return buffer_mender(filename, expected, receiver, output, contents).run();
}
