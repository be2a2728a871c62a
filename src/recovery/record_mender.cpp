// Decides what is done to each record of a buffer that is recovered. A record that readers take
// stays byte for byte; one that they refuse is made anew from what was read of it, or taken out.
#include "recovery/record_mender.hpp"

#include <vesk/error.h>
#include <vesk/vesk_buffer.h>
#include <vesk/vesk_limits.h>

#include "buffers/storable.hpp"
#include "recovery/scan_limits.hpp"
#include "support/object.hpp"

static constexpr char textless[] = "(no text)";

// --- names -------------------------------------------------------------------------------------

int record_mender::take_names(const vesk_scan_item &item)
{
    // No interval needed the names that were waiting, so they are taken out of their stream.
    int result = names_.wait() ? leave_stream() : 0;
    // History cannot be merged with a sensor that is there twice.
    const bool unique = !is_current();
    const sensor_array *sensors = item.names->sensors;
    const int repeated = unique && result == 0 ? check_repetition(sensor_array_get_sensors(sensors),
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
    result = stream_->tell_mended(VESK_RECOVER_MEND_TEXT);
    return result != 0 ? result : names_.take_mended(mended.get());
}

int record_mender::leave_stream()
{
    if (!names_.wait_in_stream()) {
        return 0;
    }
    names_.leave_stream();
    return stream_->set_aside(QE_ERROR_MALFORMED);
}

// Writes the names that wait, because the next record is an interval that needs them.
int record_mender::use_waiting_names()
{
    if (!names_.wait()) {
        return 0;
    }
    if (!names_.wait_in_stream()) {
        stream_->mark_changed();
    }
    return names_.use_waiting();
}

// Makes sure that names for `n` sensors govern the record; with 0 any names do.
int record_mender::require_names(uint32_t n, int64_t time)
{
    if (names_.count() > 0 && (n == 0 || n == names_.count())) {
        return 0;
    }
    const int told =
        stream_->tell_record(VESK_RECOVER_NAME_SENSORS,
                             names_.count() == 0 ? QE_ERROR_UNKNOWN_KIND : QE_ERROR_MALFORMED);
    return told != 0 ? told : names_.replace(n, time);
}

// --- times -------------------------------------------------------------------------------------

// Whether a time cannot stay: it is null, or has microseconds, which the scanner leaves out.
static bool _is_bad(const timestamp &time, const scanned_record &record)
{
    return record.has_microseconds || timestamp_is_null(&time) != 0;
}

// Replaces a null time by the latest one.
void record_mender::mend_time(timestamp *time) const
{
    if (timestamp_is_null(time) != 0) {
        time->tv.tv_sec = static_cast<time_t>(last_time_ != 0 ? last_time_ : 1);
    }
}

// --- samples, intervals and events -------------------------------------------------------------

int record_mender::count_data(int64_t start, int64_t end, bool empty)
{
    ++contents_->data_records;
    contents_->empty_records += empty ? 1 : 0;
    last_time_ = end;
    return empty || contents_->spans.append({start, end}) ? 0 : QE_ERROR_NO_MEMORY;
}

int record_mender::take_sample(const vesk_scan_item &item, const scanned_record &record)
{
    vesk_cb_record_sensor_values *values = item.values;
    if (!is_current() || is_full()) {
        return stream_->set_aside(QE_ERROR_MALFORMED);
    }
    const bool bad_time = _is_bad(values->timestamp, record);
    mend_time(&values->timestamp);
    const int64_t time = values->timestamp.tv.tv_sec;
    int result = require_names(values->n_sensors, time);
    if (result == 0) {
        result = count_data(time, time, _vesk_is_without_values(*values));
    }
    if (result == 0 && bad_time) {
        result = stream_->tell_mended(VESK_RECOVER_MEND_TIME);
    }
    mended_content *content = stream_->content();
    return result != 0 ? result : bad_time ? content->append(values) : content->append(item);
}

int record_mender::take_interval(const vesk_scan_item &item, const scanned_record &record)
{
    vesk_hb_record_sensor_values *interval = item.interval;
    if (is_current() || is_full()) {
        return stream_->set_aside(QE_ERROR_MALFORMED);
    }
    const bool bad_time = _is_bad(interval->start, record) || _is_bad(interval->end, record);
    mend_time(&interval->start);
    mend_time(&interval->end);
    const int64_t start = interval->start.tv.tv_sec;
    int result = require_names(interval->n_sensors, start);
    if (result == 0) {
        result = use_waiting_names();
    }
    if (result == 0) {
        result = count_data(start, interval->end.tv.tv_sec, _vesk_is_without_values(*interval));
    }
    if (result == 0 && bad_time) {
        result = stream_->tell_mended(VESK_RECOVER_MEND_TIME);
    }
    mended_content *content = stream_->content();
    return result != 0 ? result : bad_time ? content->append(interval) : content->append(item);
}

int record_mender::take_event(const vesk_scan_item &item, const scanned_record &record)
{
    vesk_cb_record_event *event = item.event;
    if (!is_current() || event->type < VESK_MIN_EVENT_TYPE || event->type > VESK_MAX_EVENT_TYPE) {
        return stream_->set_aside(QE_ERROR_MALFORMED);
    }
    const bool bare = item.kind == VESK_SCAN_BARE_EVENT;
    const bool bad_time = _is_bad(event->timestamp, record);
    mend_time(&event->timestamp);
    int result = require_names(0, event->timestamp.tv.tv_sec);
    if (result == 0 && bare) {
        ++contents_->events_tagged;
        result = stream_->tell_record(VESK_RECOVER_TAG_EVENT, QE_ERROR_MALFORMED);
    }
    if (result == 0 && bad_time) {
        result = stream_->tell_mended(VESK_RECOVER_MEND_TIME);
    }
    if (result == 0 && record.has_bad_text) {
        result = stream_->tell_mended(VESK_RECOVER_MEND_TEXT);
    }
    ++contents_->events;
    if (result != 0 || !(bare || bad_time || record.has_bad_text)) {
        return result != 0 ? result : stream_->content()->append(item);
    }
    return append_event(event);
}

int record_mender::append_event(vesk_cb_record_event *event)
{
    if (event->text[0] == 0) {
        char *text = duplicate_string(textless);
        if (text == nullptr) {
            return QE_ERROR_NO_MEMORY;
        }
        free(event->text);
        event->text = text;
    }
    return stream_->content()->append(event);
}

// --- padding -----------------------------------------------------------------------------------

int record_mender::begin_padding(uint32_t missing)
{
    int result = names_.count() == 0 ? names_.replace(0, padding_time()) : 0;
    if (result == 0 && missing * uint64_t(names_.count()) > most_padded_values) {
        result = names_.keep_one(padding_time());
    }
    return result != 0 ? result : use_waiting_names();
}
