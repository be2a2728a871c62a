// Recovers one buffer: first its header, then its streams in file order, then the padding at its
// end. Streams are handled by mended_stream.cpp and records by record_mender.cpp.
#include "recovery/buffer_mender.hpp"

#include <errno.h>
#include <sys/stat.h>

#include <vesk/error.h>
#include <vesk/vesk_buffer.h>

#include "recovery/buffer_scan.hpp"
#include "recovery/mended_stream.hpp"
#include "recovery/padding.hpp"
#include "recovery/record_mender.hpp"
#include "recovery/scan_limits.hpp"

namespace
{

class buffer_mender
{
public:
    buffer_mender(const char *filename, const buffer_expectation &expected,
                  const step_receiver &receiver, mended_file *output, buffer_contents *contents)
        : filename_(filename), expected_(expected), contents_(contents),
          stream_(filename, receiver, output, contents), records_(expected, &stream_, contents)
    {
    }

    int run()
    {
        struct stat status = {};
        const bool missing = !_vesk_look_at_name(filename_, &status) && _vesk_means_absent(errno);
        int result = missing ? 0 : stream_.output()->open_source(filename_);
        if (result == 0 && !missing) {
            result = _vesk_scan_items(filename_, link_rule::refuse, expected_.files_of_box,
                                      {take_item, this});
        }
        for (const auto part : {&buffer_mender::end_stream, &buffer_mender::complete_header,
                                &buffer_mender::fill_up, &buffer_mender::finish}) {
            if (result == 0) {
                result = (this->*part)();
            }
        }
        return result;
    }

private:
    static int take_item(const vesk_scan_item &item, const scanned_record *record, void *mender)
    {
        return static_cast<buffer_mender *>(mender)->take(item, record);
    }

    int take(const vesk_scan_item &item, const scanned_record *record)
    {
        if (item.kind == VESK_SCAN_DAMAGE && item.content_length == 0) {
            const int ended = end_stream();
            return ended != 0 ? ended : stream_.cut(item);
        }
        int result = 0;
        if (!stream_.is_open_at(item.offset)) {
            result = end_stream();
            stream_.begin(item.offset, item.length);
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
            return records_.take_names(item);
        case VESK_SCAN_SENSOR_VALUES:
            return records_.take_sample(item, *record);
        case VESK_SCAN_INTERVAL:
            return records_.take_interval(item, *record);
        case VESK_SCAN_EVENT:
        case VESK_SCAN_BARE_EVENT:
            return records_.take_event(item, *record);
        default:
            return stream_.set_aside(item.error);
        }
    }

    int end_stream()
    {
        const int left = records_.leave_stream();
        return left != 0 ? left : stream_.end();
    }

    // --- the header

    int add_header(uint64_t offset, uint64_t length, int error)
    {
        has_header_ = true;
        stream_.mark_changed();
        const int told = stream_.tell(VESK_RECOVER_ADD_HEADER, error, offset, length, 0);
        return told != 0 ? told
                         : stream_.content()->append_header(expected_.kind, records_.capacity());
    }

    int take_header(const vesk_scan_item &item)
    {
        contents_->kind = item.buffer_kind;
        contents_->capacity = item.capacity;
        if (records_.capacity() == 0 && item.error == 0) {
            records_.set_capacity(item.capacity);
        }
        if (item.buffer_kind != expected_.kind || item.capacity != records_.capacity()) {
            return add_header(item.offset, item.length, QE_ERROR_MALFORMED);
        }
        has_header_ = true;
        return stream_.content()->append(item);
    }

    // A buffer in which no stream is left gets a stream of its header alone.
    int complete_header()
    {
        if (has_header_ || records_.capacity() == 0) {
            return 0;
        }
        stream_.write_behind();
        const int added = add_header(0, 0, QE_ERROR_TRUNCATED);
        return added != 0 ? added : stream_.output()->write_stream(stream_.content());
    }

    // --- the end

    int fill_up()
    {
        if (!expected_.full || contents_->data_records >= records_.capacity()) {
            return 0;
        }
        stream_.write_behind();
        const auto missing = static_cast<uint32_t>(records_.capacity() - contents_->data_records);
        if (missing > most_padding) {
            return QE_ERROR_LIMIT;
        }
        contents_->records_padded = missing;
        int result = stream_.tell(VESK_RECOVER_PAD, QE_ERROR_NOT_FULL, 0, 0, missing);
        if (result == 0) {
            result = records_.begin_padding(missing);
        }
        const padding form = {expected_.kind, records_.n_sensors(), records_.padding_time()};
        return result != 0 || !stream_.has_output()
                   ? result
                   : _vesk_write_padding(form, missing, stream_.content(), stream_.output());
    }

    int finish() { return stream_.finish(fixed_part_of_file(expected_.files_of_box)); }

    const char *filename_;
    const buffer_expectation &expected_;
    buffer_contents *contents_;
    mended_stream stream_;
    record_mender records_;
    bool has_header_ = false;
};

} // namespace

int _vesk_mend_buffer(const char *filename, const buffer_expectation &expected,
                      const step_receiver &receiver, mended_file *output, buffer_contents *contents)
{
    return buffer_mender(filename, expected, receiver, output, contents).run();
}
