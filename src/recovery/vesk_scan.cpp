#include <algorithm>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <zlib.h>

#include <vesk/vesk_limits.h>
#include <vesk/vesk_scan.h>

#include "box/box_files.hpp"
#include "io/zlib_format.hpp"
#include "recovery/records.hpp"
#include "support/growing_list.hpp"
#include "support/object.hpp"
#include "support/owner.hpp"
#include "support/precondition.hpp"

// --- files in memory
// ------------------------------------------------------------------------------

namespace
{

using byte_store = growing_list<unsigned char>;

} // namespace

// All of a file. 0, -40, -41 or -22.
static int _load_file(const char *filename, byte_store *store)
{
    constexpr std::size_t piece = 65536;
    const owned_file file(fopen(filename, "r"));
    if (!file) {
        return QE_ERROR_OPEN;
    }
    for (;;) {
        unsigned char *room = store->reserve(piece);
        if (room == nullptr) {
            return QE_ERROR_NO_MEMORY;
        }
        const std::size_t n = fread(room, 1, piece, file.get());
        store->add(n);
        if (n < piece) {
            return ferror(file.get()) != 0 ? QE_ERROR_IO : 0;
        }
    }
}

// --- streams
// --------------------------------------------------------------------------------------

namespace
{

// The longest content of one stream that a recorder writes: the header, 10000 names of 10000 bytes
// and as many values. More is a trap.
constexpr std::size_t max_content = 9 + 32 + 10000 * (10000 + 5 + 4);

enum class stream_end { complete, torn, bad, no_memory };

// Decodes one zlib stream after the other from memory.
class stream_decoder
{
public:
    stream_decoder()
        : ready_(inflateInit_(&zstrm_, zlib_interface_version, zlib_stream_size) == Z_OK)
    {
    }
    stream_decoder(const stream_decoder &) = delete;
    stream_decoder &operator=(const stream_decoder &) = delete;
    ~stream_decoder()
    {
        if (ready_) {
            inflateEnd(&zstrm_);
        }
    }

    // The stream that begins at `bytes`: its content, and with stream_end::complete its length.
    stream_end decode(const unsigned char *bytes, std::size_t n)
    {
        if (!ready_ || inflateReset(&zstrm_) != Z_OK) {
            return stream_end::no_memory;
        }
        content_.clear();
        length_ = 0;
        while (length_ < n) {
            const auto piece = static_cast<uInt>(std::min<std::size_t>(n - length_, 1U << 20));
            zstrm_.next_in = const_cast<Bytef *>(bytes + length_);
            zstrm_.avail_in = piece;
            const stream_end end = drain();
            length_ += piece - zstrm_.avail_in;
            if (end != stream_end::torn) {
                return end;
            }
        }
        return stream_end::torn;
    }

    const byte_store &content() const { return content_; }
    std::size_t length() const { return length_; }

private:
    // Decodes the input at hand; torn when the stream goes on behind it.
    stream_end drain()
    {
        constexpr uInt room = 65536;
        do {
            unsigned char *out = content_.reserve(room);
            if (out == nullptr) {
                return stream_end::no_memory;
            }
            zstrm_.next_out = out;
            zstrm_.avail_out = room;
            const int result = inflate(&zstrm_, Z_NO_FLUSH);
            content_.add(room - zstrm_.avail_out);
            if (result == Z_STREAM_END) {
                return stream_end::complete;
            }
            if (result == Z_MEM_ERROR) {
                return stream_end::no_memory;
            }
            if ((result != Z_OK && result != Z_BUF_ERROR) || content_.size() > max_content) {
                return stream_end::bad;
            }
        } while (zstrm_.avail_out == 0 || zstrm_.avail_in > 0);
        return stream_end::torn;
    }

    z_stream zstrm_ = {};
    bool ready_;
    byte_store content_;
    std::size_t length_ = 0;
};

// The two bytes that begin a zlib stream: deflate, a window of at most 32 KB, no dictionary.
bool may_begin_stream(const unsigned char *bytes)
{
    const unsigned header = bytes[0] * 256U + bytes[1];
    return (bytes[0] & 0x8fU) == 0x08 && header % 31 == 0 && (bytes[1] & 0x20U) == 0;
}

// --- a whole buffer file
// --------------------------------------------------------------------------

// Shows a visitor the items of a file in order and keeps what governs them.
class buffer_scan
{
public:
    buffer_scan(const char *filename, vesk_scan_visitor visit, void *context)
        : visit_(visit), context_(context), kind_by_name_(kind_of(filename))
    {
    }

    int run(const unsigned char *bytes, std::size_t size)
    {
        std::size_t at = 0;
        int result = 0;
        // Searching may cost so much more decoding before it gives up.
        budget_ = 64 * size + 65536;
        while (at < size && result == 0) {
            const stream_end end = decode_stream(bytes, size, at);
            if (end == stream_end::no_memory) {
                return QE_ERROR_NO_MEMORY;
            }
            if (end == stream_end::complete) {
                result = show_stream(at);
                at += decoder_.length();
            } else {
                charge_decoding();
                result = skip_damage(bytes, size, end, &at);
            }
        }
        return result;
    }

private:
    static uint32_t kind_of(const char *filename)
    {
        constexpr char suffix[] = ".hbuf.z";
        const std::size_t length = strlen(filename);
        const std::size_t tail = sizeof suffix - 1;
        return length >= tail && strcmp(filename + length - tail, suffix) == 0
                   ? VESK_BUFFER_TYPE_HIST
                   : VESK_BUFFER_TYPE_CURRENT;
    }

    // The stream at `at`. One that lost its last bytes passes for complete when those that follow
    // happen to be the same: the next one begins in its checksum then, and it is torn.
    stream_end decode_stream(const unsigned char *bytes, std::size_t size, std::size_t at)
    {
        constexpr std::size_t checksum_size = 4;
        const stream_end end = decoder_.decode(bytes + at, size - at);
        const std::size_t behind = at + decoder_.length();
        if (end != stream_end::complete) {
            return end;
        }
        bool content_is_lost = false;
        for (std::size_t next = behind - checksum_size; next < behind && budget_ > 0; ++next) {
            if (size - next < 2 || !may_begin_stream(bytes + next)) {
                continue;
            }
            const stream_end found = decode_record(bytes + next, size - next);
            if (found != stream_end::bad) {
                return found == stream_end::complete ? stream_end::torn : found;
            }
            content_is_lost = true;
        }
        return content_is_lost ? decoder_.decode(bytes + at, size - at) : end;
    }

    // A complete stream that begins with a record, tagged or a bare event, as all streams of a
    // buffer do; everything else is bad, and counts against the budget.
    stream_end decode_record(const unsigned char *bytes, std::size_t n)
    {
        const stream_end found = decoder_.decode(bytes, n);
        if (found == stream_end::no_memory ||
            (found == stream_end::complete && decoder_.content().size() > 0 &&
             decoder_.content().begin()[0] <= 1)) {
            return found;
        }
        charge_decoding();
        return stream_end::bad;
    }

    // What was decoded for nothing counts against the budget.
    void charge_decoding()
    {
        const std::size_t spent = decoder_.length() + decoder_.content().size() + 1;
        budget_ -= std::min(budget_, spent);
    }

    // Shows the bytes from *at to the next complete stream, or to the end, as damage.
    int skip_damage(const unsigned char *bytes, std::size_t size, stream_end end, std::size_t *at)
    {
        std::size_t next = *at + 1;
        bool gave_up = false;
        for (; next < size; ++next) {
            if (size - next < 2 || !may_begin_stream(bytes + next)) {
                continue;
            }
            if (budget_ == 0) {
                gave_up = true;
                next = size;
                break;
            }
            const stream_end found = decode_record(bytes + next, size - next);
            if (found == stream_end::no_memory) {
                return QE_ERROR_NO_MEMORY;
            }
            if (found == stream_end::complete) {
                break;
            }
        }
        vesk_scan_item item = {};
        item.kind = VESK_SCAN_DAMAGE;
        item.offset = *at;
        item.length = next - *at;
        item.error = gave_up                   ? QE_ERROR_LIMIT
                     : end == stream_end::torn ? QE_ERROR_TRUNCATED
                                               : QE_ERROR_IO;
        *at = next;
        item.stream = streams_;
        return show(&item);
    }

    int show_stream(std::size_t offset)
    {
        const unsigned char *content = decoder_.content().begin();
        const std::size_t n = decoder_.content().size();
        vesk_scan_item item = {};
        item.offset = offset;
        item.length = decoder_.length();
        item.stream = streams_++;
        std::size_t at = 0;
        int result = 0;
        if (item.stream == 0 && n > 0) {
            at = find_header(content, n);
            if (at > 0) {
                result = show_header(item, content, at);
            } else {
                buffer_kind_ = kind_by_name_;
            }
        }
        while (at < n && result == 0) {
            const std::size_t length = measure_record(content + at, n - at);
            if (length > 0) {
                result = show_record(item, content, at, length);
                at += length;
            } else {
                const std::size_t fragment = measure_fragment(content + at, n - at);
                result = show_fragment(item, content, at, fragment);
                at += fragment;
            }
        }
        return result;
    }

    // The length of the header that the content of the first stream begins with, 0 when it has
    // none. A header may look like the beginning of a record: what makes whole records of the rest
    // is it.
    std::size_t find_header(const unsigned char *content, std::size_t n)
    {
        constexpr std::size_t header_size = 9;
        byte_cursor at(content, n);
        const uint32_t kind = at.u32();
        at.version(1);
        const uint32_t capacity = at.u32();
        if (!at.ok() || (kind != VESK_BUFFER_TYPE_CURRENT && kind != VESK_BUFFER_TYPE_HIST) ||
            capacity == 0) {
            return 0;
        }
        if (!_vesk_are_records(kind, content + header_size, n - header_size) &&
            _vesk_are_records(kind_by_name_, content, n)) {
            return 0;
        }
        return header_size;
    }

    int show_header(vesk_scan_item item, const unsigned char *content, std::size_t size)
    {
        byte_cursor at(content, size);
        buffer_kind_ = at.u32();
        at.version(1);
        capacity_ = at.u32();
        item.kind = VESK_SCAN_HEADER;
        item.content = content;
        item.content_length = static_cast<uint32_t>(size);
        item.error = capacity_ % 2 == 0 ? 0 : QE_ERROR_MALFORMED;
        return show(&item);
    }

    int show_record(vesk_scan_item item, const unsigned char *content, std::size_t at,
                    std::size_t length)
    {
        scanned_record record;
        const int built = _vesk_build_record(buffer_kind_, content + at, length, &record);
        if (built < 0) {
            return built;
        }
        item.kind = record.kind;
        item.content = content + at;
        item.content_offset = static_cast<uint32_t>(at);
        item.content_length = static_cast<uint32_t>(length);
        item.values = record.values.get();
        item.event = record.event.get();
        item.interval = record.interval.get();
        if (record.kind == VESK_SCAN_SENSOR_NAMES) {
            names_.reset(record.names.release());
        }
        item.error = refusal(record);
        ++records_;
        return show(&item);
    }

    // The code with which the readers of the buffers refuse a record, 0 when they take it.
    int refusal(const scanned_record &record)
    {
        const uint32_t n = record.values     ? record.values->n_sensors
                           : record.interval ? record.interval->n_sensors
                                             : 0;
        if (n > 0) {
            ++data_records_;
        }
        if (record.error != 0) {
            return record.error;
        }
        if (records_ == 0 && record.kind != VESK_SCAN_SENSOR_NAMES) {
            return QE_ERROR_UNKNOWN_KIND;
        }
        if (n > 0 && (!names_ || sensor_array_get_size(names_->sensors) != n ||
                      (capacity_ > 0 && data_records_ > capacity_))) {
            return QE_ERROR_MALFORMED;
        }
        return 0;
    }

    // The length of the record that the content begins with, 0 where there is none. What was
    // abandoned may take the beginning of the record behind it for its own end; then no record
    // follows it, but whole ones begin inside of it.
    std::size_t measure_record(const unsigned char *content, std::size_t n)
    {
        const std::size_t length = _vesk_measure_record(buffer_kind_, content, n);
        if (length == 0 || length == n ||
            _vesk_measure_record(buffer_kind_, content + length, n - length) > 0) {
            return length;
        }
        return measure_fragment(content, n) < length ? 0 : length;
    }

    // How much of the content is no record: up to where nothing but whole records follow.
    std::size_t measure_fragment(const unsigned char *content, std::size_t n)
    {
        for (std::size_t length = 1; length < n && budget_ > 0; ++length) {
            const std::size_t rest = n - length;
            const std::size_t records =
                content[length] <= 1 ? _vesk_measure_records(buffer_kind_, content + length, rest)
                                     : 0;
            if (records == rest) {
                return length;
            }
            // Many records that lead nowhere cost as much as their bytes, at each of them.
            budget_ -= std::min(budget_, records + 1);
        }
        return n;
    }

    int show_fragment(vesk_scan_item item, const unsigned char *content, std::size_t at,
                      std::size_t length)
    {
        item.kind = VESK_SCAN_DAMAGE;
        item.content = content + at;
        item.content_offset = static_cast<uint32_t>(at);
        item.content_length = static_cast<uint32_t>(length);
        item.error = QE_ERROR_MALFORMED;
        return show(&item);
    }

    int show(vesk_scan_item *item)
    {
        item->buffer_kind = buffer_kind_;
        item->capacity = capacity_;
        item->names = names_.get();
        return visit_(item, context_);
    }

    vesk_scan_visitor visit_;
    void *context_;
    uint32_t kind_by_name_;
    stream_decoder decoder_;
    owned<vesk_cb_record_sensor_names, vesk_cb_record_sensor_names_destroy> names_;
    std::size_t budget_ = 0;
    uint32_t buffer_kind_ = 0;
    uint32_t capacity_ = 0;
    uint32_t streams_ = 0;
    uint64_t records_ = 0;
    uint64_t data_records_ = 0;
};

} // namespace

int vesk_scan_buffer(const char *filename, vesk_scan_visitor visit, void *context)
{
    VESK_REQUIRE(filename != nullptr, "filename != ((void *)0)");
    VESK_REQUIRE(visit != nullptr, "visit != ((void *)0)");
    byte_store file;
    const int loaded = _load_file(filename, &file);
    if (loaded < 0 || file.size() == 0) {
        return loaded;
    }
    return buffer_scan(filename, visit, context).run(file.begin(), file.size());
}

// --- the state file
// -------------------------------------------------------------------------------

// Takes a string into `*to`. 0, or why the file is refused.
static int _scan_string(byte_cursor *at, char **to)
{
    const uint32_t length = at->u32();
    if (at->ok() && (length == 0 || length > max_stored_count)) {
        return QE_ERROR_MALFORMED;
    }
    const unsigned char *bytes = at->take(length);
    if (bytes == nullptr) {
        return QE_ERROR_TRUNCATED;
    }
    if (memchr(bytes, 0, length) != nullptr) {
        return QE_ERROR_MALFORMED;
    }
    *to = strndup(reinterpret_cast<const char *>(bytes), length);
    return *to == nullptr ? QE_ERROR_NO_MEMORY : 0;
}

// Takes the four counts and the stage, each checked as vesk_open() does.
static int _scan_numbers(byte_cursor *at, vesk_state_summary *summary)
{
    for (uint32_t *number : {&summary->state, &summary->num_cb_samples, &summary->num_hb_intervals,
                             &summary->num_samples_per_interval, &summary->next_file_number}) {
        *number = at->u32();
        if (!at->ok()) {
            return QE_ERROR_TRUNCATED;
        }
        ++summary->fields;
    }
    const uint32_t samples = summary->num_cb_samples;
    const uint32_t intervals = summary->num_hb_intervals;
    return samples == 0 || samples % 2 != 0 || intervals == 0 || samples % intervals != 0 ||
                   summary->num_samples_per_interval != samples / intervals ||
                   summary->state < VESK_ZCF_STATE_C00 || summary->state > VESK_ZCF_STATE_HCC
               ? QE_ERROR_MALFORMED
               : 0;
}

static uint32_t _names_of_stage(uint32_t state)
{
    return state == VESK_ZCF_STATE_C00 ? 1 : state == VESK_ZCF_STATE_CC0 ? 2 : 3;
}

static int _scan_version(byte_cursor *at)
{
    const uint8_t version = at->byte();
    return !at->ok() ? QE_ERROR_TRUNCATED : version != 1 ? QE_ERROR_BAD_VERSION : 0;
}

static int _scan_state_fields(byte_cursor *at, vesk_state_summary *summary)
{
    int result = _scan_version(at);
    for (char **text : {&summary->filename, &summary->state_filename}) {
        if (result == 0) {
            result = _scan_string(at, text);
            summary->fields += result == 0 ? 1 : 0;
        }
    }
    if (result == 0) {
        result = _scan_numbers(at, summary);
    }
    if (result == 0) {
        result = _scan_version(at);
    }
    const uint32_t n = result == 0 ? _names_of_stage(summary->state) : 0;
    for (char **name = summary->names; name != summary->names + n && result == 0; ++name) {
        result = _scan_string(at, name);
        if (result == 0) {
            ++summary->num_names;
            ++summary->fields;
        }
    }
    return result;
}

int vesk_scan_state(const char *filename, vesk_state_summary *summary)
{
    VESK_REQUIRE(filename != nullptr, "filename != ((void *)0)");
    VESK_REQUIRE(summary != nullptr, "summary != ((void *)0)");
    *summary = {};
    byte_store file;
    summary->error = _load_file(filename, &file);
    summary->size = file.size();
    if (summary->error == 0) {
        byte_cursor at(file.begin(), file.size());
        summary->error = _scan_state_fields(&at, summary);
    }
    return summary->error;
}

void vesk_state_summary_destruct(vesk_state_summary *summary)
{
    VESK_REQUIRE(summary != nullptr, "summary != ((void *)0)");
    free(summary->filename);
    free(summary->state_filename);
    for (char *name : summary->names) {
        free(name);
    }
    *summary = {};
}

// --- the files of a box
// ---------------------------------------------------------------------------

namespace
{

bool is_named(const vesk_state_summary &summary, const char *filename)
{
    return std::any_of(summary.names, summary.names + summary.num_names, [=](const char *name) {
        return strcmp(name, filename) == 0 || _vesk_is_same_file(name, filename);
    });
}

int show_file(const char *filename, const buffer_name &name, vesk_scan_role role,
              int (*visit)(const vesk_scan_file *file, void *context), void *context)
{
    struct stat status = {};
    vesk_scan_file file = {};
    file.filename = filename;
    file.buffer_kind = name.kind;
    file.number = name.number;
    file.role = role;
    file.missing = stat(filename, &status) == 0 ? 0 : 1;
    file.size = static_cast<uint64_t>(status.st_size);
    return visit(&file, context);
}

// What a file is to the box, by its place among the names of the state file.
vesk_scan_role role_of(const vesk_state_summary &summary, uint32_t i)
{
    if (i + 1 == _names_of_stage(summary.state)) {
        return VESK_SCAN_OPEN;
    }
    return i == 0 && summary.state == VESK_ZCF_STATE_HCC ? VESK_SCAN_HISTORY : VESK_SCAN_FULL;
}

} // namespace

int vesk_scan_files(const char *filename, int (*visit)(const vesk_scan_file *file, void *context),
                    void *context)
{
    VESK_REQUIRE(filename != nullptr, "filename != ((void *)0)");
    VESK_REQUIRE(visit != nullptr, "visit != ((void *)0)");
    char state_filename[max_filename];
    if (snprintf(state_filename, sizeof state_filename, "%s.state", filename) >=
        static_cast<int>(sizeof state_filename)) {
        return QE_ERROR_LIMIT;
    }
    vesk_state_summary summary;
    buffer_names found;
    int result = vesk_scan_state(state_filename, &summary) == QE_ERROR_NO_MEMORY
                     ? QE_ERROR_NO_MEMORY
                     : _vesk_list_buffer_names(filename, "", &found);
    for (uint32_t i = 0; i < summary.num_names && result == 0; ++i) {
        const vesk_scan_role role = role_of(summary, i);
        buffer_name name;
        if (!_vesk_parse_buffer_name(summary.names[i], summary.filename, &name)) {
            name.kind =
                role == VESK_SCAN_HISTORY ? VESK_BUFFER_TYPE_HIST : VESK_BUFFER_TYPE_CURRENT;
        }
        result = show_file(summary.names[i], name, role, visit, context);
    }
    char path[max_filename];
    for (const buffer_name &name : found) {
        if (result == 0 && _vesk_format_buffer_name(path, filename, name) &&
            !is_named(summary, path)) {
            result = show_file(path, name, VESK_SCAN_ORPHAN, visit, context);
        }
    }
    vesk_state_summary_destruct(&summary);
    return result;
}
