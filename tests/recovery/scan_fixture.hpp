// What the tests of scanning share: a folder of their own, buffers as a recorder leaves them, what
// a scan shows of them as lines, and state files of any content.
#ifndef VESK_TESTS_RECOVERY_SCAN_FIXTURE_HPP
#define VESK_TESTS_RECOVERY_SCAN_FIXTURE_HPP

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk.h>
#include <vesk/vesk_buffer.h>
#include <vesk/vesk_scan.h>

#include "common/aborts.hpp"
#include "common/buffer_files.hpp"
#include "common/telemetry.hpp"
#include "common/temporary_directory.hpp"
#include "common/zlib_bytes.hpp"

namespace fs = std::filesystem;

using lines = std::vector<std::string>;

// What an item says, kept beyond the visit.
struct seen_item {
    vesk_scan_kind kind;
    uint32_t buffer_kind;
    uint32_t capacity;
    uint64_t offset;
    uint64_t length;
    uint32_t stream;
    uint32_t content_offset;
    uint32_t content_length;
    std::string content;
    lines names; // of the sensors that govern it
    bool has_names;
    int error;
    std::string line; // all of it that matters to a reader
};

using seen_items = std::vector<seen_item>;

// The first few of them.
inline lines names_of(const vesk_cb_record_sensor_names *record)
{
    constexpr uint32_t few = 9;
    lines names;
    if (record != nullptr) {
        const uint32_t n = sensor_array_get_size(record->sensors);
        for (uint32_t i = 0; i < std::min(n, few); ++i) {
            std::string name(10001, '\0');
            (void)sensor_get_name(sensor_array_get(record->sensors, static_cast<int>(i)),
                                  name.data(), 10001);
            names.emplace_back(name.c_str());
        }
    }
    return names;
}

// "values 1001: 1 2", and behind it the error if there is one.
inline std::string line_of(const vesk_scan_item &item)
{
    std::ostringstream line;
    switch (item.kind) {
    case VESK_SCAN_HEADER:
        line << "header " << item.buffer_kind << " " << item.capacity;
        break;
    case VESK_SCAN_SENSOR_NAMES:
        line << "names " << item.names->timestamp.tv.tv_sec << ":";
        for (const std::string &name : names_of(item.names)) {
            line << " " << name;
        }
        break;
    case VESK_SCAN_SENSOR_VALUES:
        line << "values " << item.values->timestamp.tv.tv_sec << ":";
        for (uint32_t i = 0; i < item.values->n_sensors; ++i) {
            line << " " << item.values->values[i];
        }
        break;
    case VESK_SCAN_EVENT:
    case VESK_SCAN_BARE_EVENT:
        line << (item.kind == VESK_SCAN_EVENT ? "event " : "bare event ")
             << item.event->timestamp.tv.tv_sec << ": " << item.event->type << " "
             << item.event->text;
        break;
    case VESK_SCAN_INTERVAL:
        line << "interval " << item.interval->start.tv.tv_sec << " to "
             << item.interval->end.tv.tv_sec << ":";
        for (uint32_t i = 0; i < item.interval->n_sensors; ++i) {
            line << " " << item.interval->hvalues[i].count << "x"
                 << item.interval->hvalues[i].last_value;
        }
        line << " events " << item.interval->events.n_type1_events
             << item.interval->events.n_type2_events << item.interval->events.n_type3_events
             << item.interval->events.n_type4_events << item.interval->events.n_type5_events;
        break;
    case VESK_SCAN_DAMAGE:
        line << (item.content == nullptr ? "damage " : "fragment ")
             << (item.content == nullptr ? item.length : item.content_length);
        break;
    }
    if (item.error != 0) {
        line << " (" << item.error << ")";
    }
    return line.str();
}

inline int keep_item(const vesk_scan_item *item, void *context)
{
    seen_item seen = {};
    seen.kind = item->kind;
    seen.buffer_kind = item->buffer_kind;
    seen.capacity = item->capacity;
    seen.offset = item->offset;
    seen.length = item->length;
    seen.stream = item->stream;
    seen.content_offset = item->content_offset;
    seen.content_length = item->content_length;
    if (item->content != nullptr) {
        seen.content.assign(reinterpret_cast<const char *>(item->content), item->content_length);
    }
    seen.names = names_of(item->names);
    seen.has_names = item->names != nullptr;
    seen.error = item->error;
    seen.line = line_of(*item);
    static_cast<seen_items *>(context)->push_back(seen);
    return 0;
}

inline lines lines_of(const seen_items &items)
{
    lines all;
    for (const seen_item &item : items) {
        all.push_back(item.line);
    }
    return all;
}

// A file is what its streams are.
inline std::string file_of(const lines &contents)
{
    std::string file;
    for (const std::string &content : contents) {
        file += compressed_stream(content);
    }
    return file;
}

inline lines operator+(lines a, const lines &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

inline const char cbuf[] = "r.1.cbuf.z";
inline const char hbuf[] = "r.1.hbuf.z";

// In a folder of its own, which is the working folder.
class ScanTest : public testing::Test
{
protected:
    ScanTest() : working_folder_(fs::current_path()) { fs::current_path(folder_.path()); }
    ~ScanTest() override { fs::current_path(working_folder_); }

    temporary_directory folder_;

private:
    fs::path working_folder_;
};

class ScanBuffer : public ScanTest
{
protected:
    static seen_items scan_items(const std::string &file, const char *name = cbuf)
    {
        write_file(name, file);
        seen_items items;
        EXPECT_EQ(0, vesk_scan_buffer(name, keep_item, &items));
        const uint32_t kind = std::string(name).ends_with(".hbuf.z") ? VESK_BUFFER_TYPE_HIST
                                                                     : VESK_BUFFER_TYPE_CURRENT;
        EXPECT_EQ(lines_of(items), scan_bytes(file, kind)) << name;
        return items;
    }
    static lines scan_bytes(const std::string &file, uint32_t kind)
    {
        seen_items items;
        EXPECT_EQ(0, vesk_scan_bytes(reinterpret_cast<const unsigned char *>(file.data()),
                                     file.size(), kind, keep_item, &items));
        return lines_of(items);
    }
    static lines scan(const std::string &file, const char *name = cbuf)
    {
        return lines_of(scan_items(file, name));
    }
    // The file that has these contents of streams.
    static lines scan_contents(const lines &contents, const char *name = cbuf)
    {
        return scan(file_of(contents), name);
    }
    // One record behind a header and the names of two sensors.
    static std::string scan_record(const std::string &record)
    {
        const lines all = scan_contents({head() + record});
        return all.size() == 3 ? all[2] : testing::PrintToString(all);
    }
    static std::string head()
    {
        return stored_buffer_header(1, 4) + stored_names_record(1000, {"a", "b"});
    }
};

// A current buffer as a recorder leaves it, stream by stream, with every record that it can hold.
inline const lines &recorded_contents()
{
    static const lines contents = {
        stored_buffer_header(1, 4) + stored_names_record(1001, {"a", "b"}) +
            stored_values_record(1001, {1, 2}),
        stored_values_record(1002, {3, 4}),
        stored_event_body(3, 1002, "bare"),
        stored_event_record(4, 1002, "tagged"),
        stored_values_record(1003, {5, 6}),
    };
    return contents;
}

// What each of its streams holds.
inline const std::vector<lines> &recorded_lines()
{
    static const std::vector<lines> all = {
        {"header 1 4", "names 1001: a b", "values 1001: 1 2"},
        {"values 1002: 3 4"},
        {"bare event 1002: 3 bare (-6)"},
        {"event 1002: 4 tagged"},
        {"values 1003: 5 6"},
    };
    return all;
}

// Where its streams begin, and behind them the size of the file.
inline std::vector<std::size_t> recorded_offsets()
{
    std::vector<std::size_t> offsets = {0};
    for (const std::string &content : recorded_contents()) {
        offsets.push_back(offsets.back() + compressed_stream(content).size());
    }
    return offsets;
}

// The lines of the streams from `first` on, up to `last`.
inline lines recorded(std::size_t first, std::size_t last)
{
    lines all;
    for (std::size_t i = first; i < last; ++i) {
        all = all + recorded_lines()[i];
    }
    return all;
}

inline std::string damage(std::size_t length, int error)
{
    return "damage " + std::to_string(length) + " (" + std::to_string(error) + ")";
}

// Items follow each other in the file: nothing is left out and nothing comes twice.
inline void expect_whole(const seen_items &items, std::size_t size)
{
    uint64_t end = 0;
    for (const seen_item &item : items) {
        if (item.content_offset == 0) {
            EXPECT_EQ(end, item.offset);
            end = item.offset + item.length;
        }
        EXPECT_EQ(end, item.offset + item.length);
    }
    EXPECT_EQ(size, end);
}

struct state_form {
    std::string base = "r";
    uint32_t state = 1;
    uint32_t samples = 4;
    uint32_t intervals = 2;
    uint32_t samples_per_interval = 2;
    uint32_t next = 9;
    lines names = {"r.1.cbuf.z"};

    // Its fields, in the order of the file.
    lines fields() const
    {
        lines all = {'\1' + stored_string(base), stored_string(base + ".state"),
                     stored_u32(state),          stored_u32(samples),
                     stored_u32(intervals),      stored_u32(samples_per_interval),
                     stored_u32(next) + '\1'};
        for (const std::string &name : names) {
            all.push_back(stored_string(name));
        }
        return all;
    }
    std::string bytes() const
    {
        std::string all;
        for (const std::string &field : fields()) {
            all += field;
        }
        return all;
    }
};

inline const lines three_names = {"r.6.hbuf.z", "r.5.cbuf.z", "r.7.cbuf.z"};

inline state_form hcc_state()
{
    state_form form;
    form.state = 4;
    form.names = three_names;
    return form;
}

#endif
