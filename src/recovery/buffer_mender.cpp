#include "recovery/buffer_mender.hpp"

#include <cmath>
#include <errno.h>
#include <limits>
#include <stdio.h>
#include <string.h>
#include <unistd.h>
#include <zlib.h>

#include <vesk/vesk_buffer.h>
#include <vesk/vesk_cb_record.h>
#include <vesk/vesk_hb_record.h>

#include "buffers/storable.hpp"
#include "io/fields.hpp"
#include "support/object.hpp"

static constexpr char nameless[] = "unknown";
static constexpr char textless[] = "(no text)";

// --- names -------------------------------------------------------------------------------------

static uint32_t _count(const vesk_cb_record_sensor_names *names)
{
    return names == nullptr ? 0 : sensor_array_get_size(names->sensors);
}

static const char *_name_at(const sensor_array *sensors, uint32_t i)
{
    return sensor_array_get_sensors(sensors)[i]->canonical->name;
}

// The names "unknown.1", "unknown.2" and so on. Null without memory.
static sensor_array *_create_unknown_sensors(uint32_t n)
{
    owned<sensor_array, sensor_array_destroy> sensors(sensor_array_create_empty(n));
    for (uint32_t i = 0; sensors && i < n; ++i) {
        char name[32];
        snprintf(name, sizeof name, "%s.%u", nameless, i + 1);
        sensor *made = sensor_create(name);
        if (made == nullptr) {
            return nullptr;
        }
        sensor_array_set(sensors.get(), static_cast<int>(i), made);
    }
    return sensors.release();
}

static bool _is_taken(const sensor_array *sensors, uint32_t n, const char *name)
{
    for (uint32_t i = 0; i < n; ++i) {
        if (strcmp(_name_at(sensors, i), name) == 0) {
            return true;
        }
    }
    return false;
}

// A name that none of the sensors has, and none of those that take the place of the first `made`
// ones: `stem` with the first number from `made` + 1 on that makes one.
static sensor *_create_fresh_sensor(const sensor_array *sensors, const sensor_array *replacements,
                                    uint32_t made, const char *stem)
{
    // The number must not make the name too long to be stored.
    constexpr int longest_stem = max_stored_count - 16;
    const std::size_t size = strlen(stem) + 16;
    const owned_memory<char> name(allocate<char>(size));
    if (!name) {
        return nullptr;
    }
    const uint32_t n = sensor_array_get_size(sensors);
    uint32_t number = made;
    do {
        snprintf(name.get(), size, "%.*s.%u", longest_stem, stem, ++number);
    } while (_is_taken(sensors, n, name.get()) || _is_taken(replacements, made, name.get()));
    return sensor_create(name.get());
}

// A copy in which no name is empty and, if `unique`, none is repeated. Null without memory.
static vesk_cb_record_sensor_names *_create_mended_names(const vesk_cb_record_sensor_names *names,
                                                         bool unique)
{
    owned_names mended(vesk_cb_record_sensor_names_create_null());
    const uint32_t n = _count(names);
    if (!mended) {
        return nullptr;
    }
    timestamp_copy(&names->timestamp, &mended->timestamp);
    mended->sensors = sensor_array_create_empty(n);
    for (uint32_t i = 0; mended->sensors != nullptr && i < n; ++i) {
        const char *name = _name_at(names->sensors, i);
        const bool stays = name[0] != 0 && !(unique && _is_taken(names->sensors, i, name));
        sensor *made = stays ? sensor_create(name)
                             : _create_fresh_sensor(names->sensors, mended->sensors, i,
                                                    name[0] == 0 ? nameless : name);
        if (made == nullptr) {
            return nullptr;
        }
        sensor_array_set(mended->sensors, static_cast<int>(i), made);
    }
    return mended->sensors == nullptr ? nullptr : mended.release();
}

// --- the mender --------------------------------------------------------------------------------

namespace
{

class buffer_mender
{
public:
    buffer_mender(const char *filename, const buffer_expectation &expected,
                  const step_receiver &receiver, mended_file *output, buffer_contents *contents)
        : filename_(filename), expected_(expected), receiver_(receiver), output_(output),
          contents_(contents), capacity_(expected.capacity), last_time_(expected.time)
    {
    }

    int run()
    {
        const bool missing = access(filename_, F_OK) != 0 && errno == ENOENT;
        if (output_ != nullptr && !missing) {
            source_.reset(fopen(filename_, "r"));
            if (!source_) {
                return QE_ERROR_OPEN;
            }
        }
        int result = missing ? 0 : vesk_scan_buffer(filename_, take_item, this);
        if (result == 0) {
            result = end_stream();
        }
        if (result == 0) {
            result = finish();
        }
        contents_->cut_suffices = contents_->steps > 0 && cut_at_end_ && !changed_otherwise_;
        contents_->cut_offset = cut_offset_;
        return result;
    }

private:
    bool is_current() const { return expected_.kind == VESK_BUFFER_TYPE_CURRENT; }

    // --- telling what is done

    int tell(vesk_recover_action action, uint64_t offset, uint64_t length, uint32_t count,
             int error)
    {
        vesk_recover_step step = {};
        step.action = action;
        step.filename = filename_;
        step.offset = offset;
        step.length = length;
        step.count = count;
        step.error = error;
        ++contents_->steps;
        return receiver_.take(&step, receiver_.context);
    }

    // What is done to a record of the stream at hand.
    int tell_record(vesk_recover_action action, int error)
    {
        stream_.changed = true;
        return tell(action, stream_.offset, stream_.length, 1, error);
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

    static int take_item(const vesk_scan_item *item, void *mender)
    {
        return static_cast<buffer_mender *>(mender)->take(*item);
    }

    int take(const vesk_scan_item &item)
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
        return result != 0 ? result : take_content(item);
    }

    int take_content(const vesk_scan_item &item)
    {
        switch (item.kind) {
        case VESK_SCAN_HEADER:
            return take_header(item);
        case VESK_SCAN_SENSOR_NAMES:
            return take_names(item);
        case VESK_SCAN_SENSOR_VALUES:
            return take_sample(item);
        case VESK_SCAN_INTERVAL:
            return take_interval(item);
        case VESK_SCAN_EVENT:
        case VESK_SCAN_BARE_EVENT:
            return take_event(item);
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
        const int told = tell(VESK_RECOVER_CUT, item.offset, item.length, 0, item.error);
        return told != 0 ? told : copy_source(item.offset, item.length, &buffer_mender::keep_torn);
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
        int result = 0;
        if (stream_.to_torn) {
            result = copy_source(stream_.offset, stream_.length, &buffer_mender::keep_torn);
        }
        if (result == 0) {
            result = stream_.changed
                         ? write_stream()
                         : copy_source(stream_.offset, stream_.length, &buffer_mender::write);
        }
        content_.clear();
        return result;
    }

    // --- what is written

    int write(const unsigned char *bytes, std::size_t n)
    {
        return fwrite(bytes, 1, n, output_->buffer) == n ? 0 : QE_ERROR_IO;
    }

    int keep_torn(const unsigned char *bytes, std::size_t n)
    {
        return output_->torn.append(bytes, n) ? 0 : QE_ERROR_NO_MEMORY;
    }

    // Gives a piece of the file on to write() or keep_torn().
    int copy_source(uint64_t offset, uint64_t length,
                    int (buffer_mender::*give)(const unsigned char *, std::size_t))
    {
        if (output_ == nullptr) {
            return 0;
        }
        if (fseeko(source_.get(), static_cast<off_t>(offset), SEEK_SET) != 0) {
            return QE_ERROR_IO;
        }
        unsigned char piece[4096];
        while (length > 0) {
            const auto n = static_cast<std::size_t>(std::min<uint64_t>(length, sizeof piece));
            if (fread(piece, 1, n, source_.get()) != n) {
                return QE_ERROR_IO;
            }
            const int given = (this->*give)(piece, n);
            if (given != 0) {
                return given;
            }
            length -= n;
        }
        return 0;
    }

    // Writes the content that was put together as one stream.
    int write_stream()
    {
        if (output_ == nullptr || content_.size() == 0) {
            content_.clear();
            return 0;
        }
        uLongf size = compressBound(static_cast<uLong>(content_.size()));
        const owned_memory<unsigned char> compressed(allocate<unsigned char>(size));
        if (!compressed || compress(compressed.get(), &size, content_.begin(),
                                    static_cast<uLong>(content_.size())) != Z_OK) {
            return QE_ERROR_NO_MEMORY;
        }
        content_.clear();
        return write(compressed.get(), size);
    }

    static int append(byte_list *to, const vesk_scan_item &item)
    {
        return to->append(item.content, item.content_length) ? 0 : QE_ERROR_NO_MEMORY;
    }
    int append(const vesk_scan_item &item) { return append(&content_, item); }

    template <typename Form>
    int append_form(Form form)
    {
        return append_form(&content_, form);
    }
    template <typename Form>
    static int append_form(byte_list *to, Form form)
    {
        memory_writer target(to);
        const int written = form(field_writer(target.get())).result();
        return written < 0 ? written : 0;
    }

    // --- the header

    int add_header(uint64_t offset, uint64_t length, int error)
    {
        has_header_ = true;
        stream_.changed = true;
        const int told = tell(VESK_RECOVER_ADD_HEADER, offset, length, 0, error);
        return told != 0 ? told : append_form([this](field_writer fields) {
            return fields.u32(expected_.kind).byte(1).u32(capacity_);
        });
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
        return append(item);
    }

    // --- names

    int keep_names(const vesk_cb_record_sensor_names *names)
    {
        n_names_ = _count(names);
        owned_names &last = contents_->last_names;
        last.reset(vesk_cb_record_sensor_names_copy(names, nullptr));
        if (!last) {
            return QE_ERROR_NO_MEMORY;
        }
        if (!contents_->first_names) {
            contents_->first_names.reset(vesk_cb_record_sensor_names_copy(names, nullptr));
        }
        return contents_->first_names ? 0 : QE_ERROR_NO_MEMORY;
    }

    // Halving a history takes one names record between two intervals and no more, so names wait
    // there until an interval needs them.
    byte_list *names_target()
    {
        if (is_current()) {
            return &content_;
        }
        waiting_names_.clear();
        return &waiting_names_;
    }

    int append_names(const vesk_cb_record_sensor_names *names)
    {
        const int kept = keep_names(names);
        return kept != 0 ? kept : append_form(names_target(), [names](field_writer fields) {
            return fields.u32(VESK_CB_RECORD_SENSOR_NAMES)
                .form(binary_serializer_write_vesk_cb_record_sensor_names, names);
        });
    }

    int take_names(const vesk_scan_item &item)
    {
        // Names that wait already are for nothing.
        int result = waiting_names_.size() > 0 ? skip_waiting_names() : 0;
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
        const bool good = item.error == 0 && repeated == 0;
        waiting_in_stream_ = !is_current();
        if (good) {
            result = keep_names(item.names);
            return result != 0 ? result : append(names_target(), item);
        }
        const owned_names mended(_create_mended_names(item.names, unique));
        if (!mended) {
            return QE_ERROR_NO_MEMORY;
        }
        result = tell_mended(VESK_RECOVER_MEND_TEXT);
        return result != 0 ? result : append_names(mended.get());
    }

    // Takes names without an interval behind them out of the stream at hand, if they are in it.
    int skip_waiting_names()
    {
        if (!waiting_in_stream_) {
            return 0;
        }
        waiting_in_stream_ = false;
        return set_aside(QE_ERROR_MALFORMED);
    }

    // Puts the names that wait before the interval that is about to come.
    int use_waiting_names()
    {
        if (waiting_names_.size() == 0) {
            return 0;
        }
        stream_.changed = stream_.changed || !waiting_in_stream_;
        waiting_in_stream_ = false;
        const bool appended = content_.append(waiting_names_.begin(), waiting_names_.size());
        waiting_names_.clear();
        return appended ? 0 : QE_ERROR_NO_MEMORY;
    }

    // Names for `n` sensors, or for any number when that is 0, whose own names are lost.
    int replace_names(uint32_t n, int64_t time)
    {
        const vesk_cb_record_sensor_names *known = nullptr;
        for (const auto *names :
             {expected_.names_before, expected_.first_names, expected_.names_behind}) {
            if (known == nullptr && names != nullptr && (n == 0 || _count(names) == n)) {
                known = names;
            }
        }
        owned_names made(known != nullptr ? _create_mended_names(known, !is_current())
                                          : vesk_cb_record_sensor_names_create_null());
        if (!made) {
            return QE_ERROR_NO_MEMORY;
        }
        if (known == nullptr) {
            made->sensors = _create_unknown_sensors(std::max(n, 1U));
            if (made->sensors == nullptr) {
                return QE_ERROR_NO_MEMORY;
            }
        }
        made->timestamp.tv.tv_sec = static_cast<time_t>(time);
        return append_names(made.get());
    }

    // Sees to it that names for `n` sensors, or any, govern the record.
    int require_names(uint32_t n, int64_t time)
    {
        if (n_names_ > 0 && (n == 0 || n == n_names_)) {
            return 0;
        }
        const int told = tell_record(VESK_RECOVER_NAME_SENSORS,
                                     n_names_ == 0 ? QE_ERROR_UNKNOWN_KIND : QE_ERROR_MALFORMED);
        return told != 0 ? told : replace_names(n, time);
    }

    // --- records

    bool is_full() const { return capacity_ > 0 && contents_->data_records == capacity_; }

    // Whether a time cannot stay: it is null, or has microseconds, which the scanner leaves out.
    static bool has_bad_time(const vesk_scan_item &item, const timestamp &time, std::size_t at)
    {
        constexpr unsigned char zero[4] = {};
        return timestamp_is_null(&time) != 0 || memcmp(item.content + at, zero, sizeof zero) != 0;
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

    // Behind the type and the version of a record its time: version, seconds, microseconds.
    static constexpr std::size_t first_microseconds = 4 + 1 + 1 + 4;
    // An event has its own type between the two.
    static constexpr std::size_t event_microseconds = first_microseconds + 4;
    static constexpr std::size_t timestamp_size = 9;

    int take_sample(const vesk_scan_item &item)
    {
        vesk_cb_record_sensor_values *values = item.values;
        if (!is_current() || is_full()) {
            return set_aside(QE_ERROR_MALFORMED);
        }
        const bool bad_time = has_bad_time(item, values->timestamp, first_microseconds);
        mend_time(&values->timestamp);
        const int64_t time = values->timestamp.tv.tv_sec;
        int result = require_names(values->n_sensors, time);
        if (result == 0) {
            result = count_data(time, time, is_empty(*values));
        }
        if (result == 0 && bad_time) {
            result = tell_mended(VESK_RECOVER_MEND_TIME);
        }
        return result != 0 ? result : bad_time ? append_sample(values) : append(item);
    }

    int append_sample(const vesk_cb_record_sensor_values *values)
    {
        return append_form([values](field_writer fields) {
            return fields.u32(VESK_CB_RECORD_SENSOR_VALUES)
                .form(binary_serializer_write_vesk_cb_record_sensor_values, values);
        });
    }

    int take_interval(const vesk_scan_item &item)
    {
        vesk_hb_record_sensor_values *interval = item.interval;
        if (is_current() || is_full()) {
            return set_aside(QE_ERROR_MALFORMED);
        }
        const bool bad_time =
            has_bad_time(item, interval->start, first_microseconds) ||
            has_bad_time(item, interval->end, first_microseconds + timestamp_size);
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
        return result != 0 ? result : bad_time ? append_interval(interval) : append(item);
    }

    int append_interval(const vesk_hb_record_sensor_values *interval)
    {
        return append_form([interval](field_writer fields) {
            return fields.u32(VESK_HB_RECORD_SENSOR_VALUES)
                .form(binary_serializer_write_vesk_hb_record_sensor_values, interval);
        });
    }

    int take_event(const vesk_scan_item &item)
    {
        vesk_cb_record_event *event = item.event;
        if (!is_current() || event->type < 1 || event->type > last_event_type) {
            return set_aside(QE_ERROR_MALFORMED);
        }
        const bool bare = item.kind == VESK_SCAN_BARE_EVENT;
        const bool bad_time = has_bad_time(item, event->timestamp,
                                           event_microseconds - (bare ? sizeof event->type : 0));
        mend_time(&event->timestamp);
        int result = require_names(0, event->timestamp.tv.tv_sec);
        if (result == 0 && bare) {
            ++contents_->events_tagged;
            result = tell_record(VESK_RECOVER_TAG_EVENT, QE_ERROR_MALFORMED);
        }
        if (result == 0 && bad_time) {
            result = tell_mended(VESK_RECOVER_MEND_TIME);
        }
        const bool bad_text = has_bad_text(item);
        if (result == 0 && bad_text) {
            result = tell_mended(VESK_RECOVER_MEND_TEXT);
        }
        ++contents_->events;
        if (result != 0 || !(bare || bad_time || bad_text)) {
            return result != 0 ? result : append(item);
        }
        return append_event(event);
    }

    // Whether a text is empty or has a zero byte within, behind which the scanner leaves it out.
    static bool has_bad_text(const vesk_scan_item &item)
    {
        const std::size_t type = item.kind == VESK_SCAN_BARE_EVENT ? 0 : sizeof(uint32_t);
        const std::size_t fixed = type + 1 + sizeof item.event->type + timestamp_size + 4;
        const std::size_t length = strlen(item.event->text);
        return length == 0 || length + fixed != item.content_length;
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
        return append_form([event](field_writer fields) {
            return fields.u32(VESK_CB_RECORD_EVENT)
                .form(binary_serializer_write_vesk_cb_record_event, event);
        });
    }

    // --- the end

    int finish()
    {
        int result = 0;
        if (!has_header_ && capacity_ > 0) {
            changed_otherwise_ = true;
            result = add_header(0, 0, QE_ERROR_TRUNCATED);
            if (result == 0) {
                result = write_stream();
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
        result = tell(VESK_RECOVER_PAD, 0, 0, missing, QE_ERROR_NOT_FULL);
        if (result == 0 && n_names_ == 0) {
            result = replace_names(0, padding_time());
        }
        if (result == 0 && missing * uint64_t(n_names_) > most_padded_values) {
            result = keep_one_name();
        }
        return result != 0 || output_ == nullptr ? result : pad(missing);
    }

    // Sizes that no box has must not fill the disk.
    static constexpr uint32_t most_padding = 10'000'000;
    static constexpr uint64_t most_padded_values = most_padding;

    int64_t padding_time() const { return last_time_ != 0 ? last_time_ : 1; }

    // One sensor is enough where there is nothing to tell.
    int keep_one_name()
    {
        const owned_names one(vesk_cb_record_sensor_names_create_null());
        if (!one) {
            return QE_ERROR_NO_MEMORY;
        }
        const char *name = _name_at(contents_->last_names->sensors, 0);
        one->sensors = sensor_array_create_from_names(&name, 1);
        one->timestamp.tv.tv_sec = static_cast<time_t>(padding_time());
        return one->sensors == nullptr ? QE_ERROR_NO_MEMORY : append_names(one.get());
    }

    int pad(uint32_t n)
    {
        vesk_cb_record_sensor_values sample = {};
        vesk_hb_record_sensor_values interval = {};
        vesk_cb_record_sensor_values_init_null(&sample);
        vesk_hb_record_sensor_values_init_null(&interval);
        const owned_memory<float> nothing(allocate<float>(n_names_));
        const owned_memory<hist_value> no_summaries(allocate<hist_value>(n_names_));
        if (!nothing || !no_summaries) {
            return QE_ERROR_NO_MEMORY;
        }
        for (uint32_t i = 0; i < n_names_; ++i) {
            nothing.get()[i] = std::numeric_limits<float>::quiet_NaN();
            hist_value_init(&no_summaries.get()[i]);
        }
        sample.n_sensors = interval.n_sensors = n_names_;
        sample.values = nothing.get();
        interval.hvalues = no_summaries.get();
        for (timestamp *time : {&sample.timestamp, &interval.start, &interval.end}) {
            time->tv.tv_sec = static_cast<time_t>(padding_time());
        }
        constexpr std::size_t stream_size = 65536;
        int result = use_waiting_names();
        for (uint32_t i = 0; i < n && result == 0; ++i) {
            result = is_current() ? append_sample(&sample) : append_interval(&interval);
            if (result == 0 && content_.size() >= stream_size) {
                result = write_stream();
            }
        }
        return result != 0 ? result : write_stream();
    }

    const char *filename_;
    const buffer_expectation &expected_;
    const step_receiver &receiver_;
    mended_file *output_;
    buffer_contents *contents_;
    owned_file source_;
    stream stream_;
    byte_list content_; // of the stream at hand, as it should be
    byte_list waiting_names_;
    bool waiting_in_stream_ = false; // the names that wait are from the stream at hand
    uint32_t capacity_;
    uint32_t n_names_ = 0; // sensors of the names record that governs
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
