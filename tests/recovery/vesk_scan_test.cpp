#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk.h>
#include <vesk/vesk_buffer.h>
#include <vesk/vesk_scan.h>

#include "common/aborts.hpp"
#include "common/buffer_files.hpp"
#include "common/failing_calls.hpp"
#include "common/open_files.hpp"
#include "common/telemetry.hpp"
#include "common/temporary_directory.hpp"
#include "common/zlib_bytes.hpp"
#include "support/owner.hpp"

namespace
{

namespace fs = std::filesystem;

using lines = std::vector<std::string>;

// ---- buffer files ----

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
lines names_of(const vesk_cb_record_sensor_names *record)
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
std::string line_of(const vesk_scan_item &item)
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

int keep_item(const vesk_scan_item *item, void *context)
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

lines lines_of(const seen_items &items)
{
    lines all;
    for (const seen_item &item : items) {
        all.push_back(item.line);
    }
    return all;
}

// A file is what its streams are.
std::string file_of(const lines &contents)
{
    std::string file;
    for (const std::string &content : contents) {
        file += compressed_stream(content);
    }
    return file;
}

lines operator+(lines a, const lines &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

const char cbuf[] = "r.1.cbuf.z";
const char hbuf[] = "r.1.hbuf.z";

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
const lines &recorded_contents()
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
const std::vector<lines> &recorded_lines()
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
std::vector<std::size_t> recorded_offsets()
{
    std::vector<std::size_t> offsets = {0};
    for (const std::string &content : recorded_contents()) {
        offsets.push_back(offsets.back() + compressed_stream(content).size());
    }
    return offsets;
}

// The lines of the streams from `first` on, up to `last`.
lines recorded(std::size_t first, std::size_t last)
{
    lines all;
    for (std::size_t i = first; i < last; ++i) {
        all = all + recorded_lines()[i];
    }
    return all;
}

std::string damage(std::size_t length, int error)
{
    return "damage " + std::to_string(length) + " (" + std::to_string(error) + ")";
}

// Items follow each other in the file: nothing is left out and nothing comes twice.
void expect_whole(const seen_items &items, std::size_t size)
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

TEST_F(ScanBuffer, ShowsACurrentBuffer)
{
    EXPECT_EQ(recorded(0, 5), scan_contents(recorded_contents()));
}

TEST_F(ScanBuffer, ShowsAHistoryBuffer)
{
    const lines contents = {
        stored_buffer_header(2, 2) + stored_names_record(1001, {"a", "b"}) +
            stored_interval_record(1001, 1002, {stored_summary({1, 2}), stored_summary({3, 4, 5})},
                                   {1, 2, 3, 4, 5}),
        stored_interval_record(1003, 1004, {stored_summary({6}), stored_summary({})}),
    };
    EXPECT_EQ((lines{"header 2 2", "names 1001: a b", "interval 1001 to 1002: 2x2 3x5 events 12345",
                     "interval 1003 to 1004: 1x6 0x0 events 00000"}),
              scan_contents(contents, hbuf));
}

// Intervals without counts of events are of an older form.
TEST_F(ScanBuffer, ShowsIntervalsOfTheFirstForm)
{
    std::string interval = stored_interval_record(1001, 1002, {stored_summary({1, 2})});
    interval.resize(interval.size() - 21);
    interval[4] = 1;
    EXPECT_EQ(
        (lines{"header 2 2", "names 1001: a", "interval 1001 to 1002: 2x2 events 00000"}),
        scan_contents({stored_buffer_header(2, 2) + stored_names_record(1001, {"a"}) + interval},
                      hbuf));
}

TEST_F(ScanBuffer, SaysWhereAnItemLies)
{
    const std::vector<std::size_t> offsets = recorded_offsets();
    const seen_items items = scan_items(file_of(recorded_contents()));
    const uint32_t streams[] = {0, 0, 0, 1, 2, 3, 4};
    ASSERT_EQ(7U, items.size());
    std::size_t end = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
        const uint32_t stream = streams[i];
        EXPECT_EQ(stream, items[i].stream);
        EXPECT_EQ(offsets[stream], items[i].offset);
        EXPECT_EQ(offsets[stream + 1] - offsets[stream], items[i].length);
        EXPECT_EQ(i > 0 && streams[i - 1] == stream ? end : 0, items[i].content_offset);
        EXPECT_EQ(items[i].content.size(), items[i].content_length);
        EXPECT_EQ(
            recorded_contents()[stream].substr(items[i].content_offset, items[i].content_length),
            items[i].content);
        end = items[i].content_offset + items[i].content_length;
    }
}

TEST_F(ScanBuffer, SaysWhatGovernsAnItem)
{
    const seen_items items =
        scan_items(file_of({head() + stored_values_record(1000, {1, 2}),
                            stored_names_record(1001, {"c"}) + stored_values_record(1001, {3})}));
    ASSERT_EQ(5U, items.size());
    EXPECT_FALSE(items[0].has_names);
    EXPECT_EQ((lines{"a", "b"}), items[1].names);
    EXPECT_EQ((lines{"a", "b"}), items[2].names);
    EXPECT_EQ((lines{"c"}), items[3].names);
    EXPECT_EQ((lines{"c"}), items[4].names);
    for (const seen_item &item : items) {
        EXPECT_EQ(1U, item.buffer_kind);
        EXPECT_EQ(4U, item.capacity);
        EXPECT_EQ(0, item.error);
    }
}

TEST_F(ScanBuffer, FindsNothingInAnEmptyFile)
{
    EXPECT_EQ(lines{}, scan(""));
}

TEST_F(ScanBuffer, TakesAnyDivisionIntoStreams)
{
    std::string all;
    for (const std::string &content : recorded_contents()) {
        all += content;
    }
    EXPECT_EQ(recorded(0, 5), scan_contents({all}));
    EXPECT_EQ(recorded(0, 5), scan_contents({all, "", ""}));
}

// zlib takes pieces of a megabyte; this stream is longer and cannot be compressed.
TEST_F(ScanBuffer, TakesALongStreamWhole)
{
    constexpr uint32_t n = 10000;
    constexpr uint32_t samples = 40;
    const std::string bytes = noise(std::size_t(4) * n * samples);
    std::string content =
        stored_buffer_header(1, samples) + stored_names_record(1000, lines(n, "s"));
    for (uint32_t i = 0; i < samples; ++i) {
        content += stored_values_record(1000 + i, {}).substr(0, 14) + stored_u32(n) +
                   bytes.substr(std::size_t(4) * n * i, std::size_t(4) * n);
    }
    const seen_items items = scan_items(compressed_stream(content));
    ASSERT_EQ(2 + samples, items.size());
    for (const seen_item &item : items) {
        EXPECT_EQ(0, item.error);
    }
    EXPECT_EQ(content.size(), items.back().content_offset + items.back().content_length);
    EXPECT_GT(items.back().length, std::size_t(1) << 20);
}

// --- the header

TEST_F(ScanBuffer, TellsTheKindByTheContent)
{
    const std::string names = stored_names_record(1000, {"a"});
    EXPECT_EQ((lines{"header 1 4", "names 1000: a"}),
              scan_contents({stored_buffer_header(1, 4) + names}, hbuf));
    EXPECT_EQ((lines{"header 2 4", "names 1000: a"}),
              scan_contents({stored_buffer_header(2, 4) + names}, cbuf));
}

TEST_F(ScanBuffer, TellsTheKindByTheNameWithoutAHeader)
{
    const std::string interval = stored_interval_record(1001, 1002, {stored_summary({1})});
    const lines contents = {stored_names_record(1000, {"a"}) + interval};
    const seen_items history = scan_items(file_of(contents), hbuf);
    EXPECT_EQ((lines{"names 1000: a", "interval 1001 to 1002: 1x1 events 00000"}),
              lines_of(history));
    EXPECT_EQ(2U, history[0].buffer_kind);
    EXPECT_EQ(0U, history[0].capacity);

    const lines sample = {stored_names_record(1000, {"a"}) + stored_values_record(1001, {1})};
    for (const char *name : {cbuf, "anything", "z", "r.hbuf.z.old"}) {
        const seen_items current = scan_items(file_of(sample), name);
        EXPECT_EQ((lines{"names 1000: a", "values 1001: 1"}), lines_of(current)) << name;
        EXPECT_EQ(1U, current[0].buffer_kind);
    }
}

TEST_F(ScanBuffer, RefusesAHeaderWithAnOddCapacity)
{
    EXPECT_EQ((lines{"header 1 3 (-6)"}), scan_contents({stored_buffer_header(1, 3)}));
}

TEST_F(ScanBuffer, TakesNoHeaderForWhatIsNone)
{
    const std::string wrong[] = {stored_buffer_header(1, 0), stored_buffer_header(3, 4),
                                 stored_u32(1) + '\2' + stored_u32(4),
                                 stored_buffer_header(1, 4).substr(0, 8)};
    for (const std::string &content : wrong) {
        EXPECT_EQ(lines{"fragment " + std::to_string(content.size()) + " (-6)"},
                  scan_contents({content}));
    }
}

// The names record of 1, say, begins as a header does: kind 1, version 1, a number.
TEST_F(ScanBuffer, TakesARecordForNoHeaderWhenTheRestTellsSo)
{
    const std::string values = stored_u32(2) + '\1' + '\1' + std::string("\0\0\0\1", 4) +
                               stored_u32(0) + stored_u32(1) + stored_f32(7);
    EXPECT_EQ((lines{"values 1: 7 (-4)"}), scan_contents({values}, cbuf));
}

// --- damage

TEST_F(ScanBuffer, ShowsAFileThatEndsAnywhere)
{
    const std::string file = file_of(recorded_contents());
    const std::vector<std::size_t> offsets = recorded_offsets();
    for (std::size_t size = 0, whole = 0; size <= file.size(); ++size) {
        whole += whole + 1 < offsets.size() && offsets[whole + 1] == size ? 1 : 0;
        const std::size_t rest = size - offsets[whole];
        const seen_items items = scan_items(file.substr(0, size));
        EXPECT_EQ(recorded(0, whole) + (rest > 0 ? lines{damage(rest, -48)} : lines{}),
                  lines_of(items))
            << size;
        expect_whole(items, size);
    }
}

// Whether zlib finds this content at the beginning of the bytes.
bool holds(const std::string &bytes, const std::string &content)
{
    std::string found(content.size() + 1, '\0');
    uLongf size = found.size();
    return uncompress(reinterpret_cast<Bytef *>(found.data()), &size,
                      reinterpret_cast<const Bytef *>(bytes.data()), bytes.size()) == Z_OK &&
           found.substr(0, size) == content;
}

// One bad byte costs its stream and no other; without the first stream there are no names.
TEST_F(ScanBuffer, ShowsWhatLiesAroundABadByte)
{
    const std::string file = file_of(recorded_contents());
    const std::vector<std::size_t> offsets = recorded_offsets();
    for (std::size_t at = 0, bad = 0; at < file.size(); ++at) {
        bad += offsets[bad + 1] == at ? 1 : 0;
        for (const char flip : {'\x01', '\x80', '\xff'}) {
            std::string broken = file;
            broken[at] = static_cast<char>(broken[at] ^ flip);
            if (holds(broken.substr(offsets[bad]), recorded_contents()[bad])) {
                continue; // a bit that means nothing
            }
            const seen_items items = scan_items(broken);
            expect_whole(items, file.size());
            ASSERT_LE(bad, items.size());
            const std::size_t place = recorded(0, bad).size();
            EXPECT_EQ(VESK_SCAN_DAMAGE, items[place].kind) << at;
            EXPECT_EQ(offsets[bad + 1] - offsets[bad], items[place].length) << at;
            EXPECT_TRUE(items[place].error == -41 || items[place].error == -48) << at;
            if (bad > 0) {
                EXPECT_EQ(recorded(0, bad) + lines{items[place].line} + recorded(bad + 1, 5),
                          lines_of(items));
            } else {
                EXPECT_EQ(
                    (lines{items[0].line, "values 1002: 3 4 (-4)", "bare event 1002: 3 bare (-6)",
                           "event 1002: 4 tagged", "values 1003: 5 6 (-6)"}),
                    lines_of(items));
            }
        }
    }
}

TEST_F(ScanBuffer, TellsDamageOfAStreamFromItsEnd)
{
    const std::string first = compressed_stream(recorded_contents()[0]);
    std::string wrong_sum = compressed_stream(recorded_contents()[1]);
    wrong_sum.back() = static_cast<char>(wrong_sum.back() ^ 1);
    EXPECT_EQ(recorded(0, 1) + lines{damage(wrong_sum.size(), -41)}, scan(first + wrong_sum));
    EXPECT_EQ(recorded(0, 1) + lines{damage(100, -41)}, scan(first + std::string(100, '\0')));
    EXPECT_EQ(recorded(0, 1) + lines{damage(1, -48)}, scan(first + "\x78"));
}

TEST_F(ScanBuffer, SeesATornStreamThatTheNextOneCompletes)
{
    const std::string first = compressed_stream(recorded_contents()[0]);
    const std::string next = compressed_stream(stored_values_record(1003, {5, 6}));
    for (const std::size_t lost : {1U, 2U}) {
        const std::string whole = event_stream_that_ends_with(4, 1002, next.substr(0, lost));
        const std::string torn = whole.substr(0, whole.size() - lost);
        EXPECT_EQ(recorded(0, 1) + (lines{damage(torn.size(), -48), "values 1003: 5 6"}),
                  scan(first + torn + next));
        // What only looks like the beginning of another one changes nothing.
        const lines found = scan(first + whole + next);
        EXPECT_EQ(recorded(0, 1).size() + 2, found.size());
        EXPECT_EQ("values 1003: 5 6", found.back());
    }
}

TEST_F(ScanBuffer, SaysNothingOfTheBufferBeforeItsHeader)
{
    const std::string file = file_of(recorded_contents());
    const seen_items items = scan_items("damaged" + file);
    EXPECT_EQ(lines{damage(7, -41)} + recorded(0, 5), lines_of(items));
    EXPECT_EQ(0U, items[0].buffer_kind);
    EXPECT_EQ(0U, items[0].capacity);
    EXPECT_EQ(0U, items[0].offset);
    EXPECT_EQ(0U, items[0].stream);
    EXPECT_EQ(0U, items[0].content_length);
    EXPECT_FALSE(items[0].has_names);
    EXPECT_EQ(7U, items[1].offset);
    EXPECT_EQ(0U, items[1].stream);
}

// Damage has the number of the stream that comes next, and what governs the items around it.
TEST_F(ScanBuffer, CountsCompleteStreamsOnly)
{
    const std::string file = file_of(recorded_contents());
    const std::vector<std::size_t> offsets = recorded_offsets();
    std::string broken = file;
    broken.replace(offsets[1], offsets[3] - offsets[1], 40, '\xee');
    const seen_items items = scan_items(broken);
    EXPECT_EQ(recorded(0, 1) + lines{damage(40, -41)} + recorded(3, 5), lines_of(items));
    ASSERT_EQ(6U, items.size());
    EXPECT_EQ(1U, items[3].stream);
    EXPECT_EQ(1U, items[3].buffer_kind);
    EXPECT_EQ(4U, items[3].capacity);
    EXPECT_EQ((lines{"a", "b"}), items[3].names);
    EXPECT_EQ(1U, items[4].stream);
    EXPECT_EQ(2U, items[5].stream);
}

// What looks like a stream but is none of a buffer does not end the search.
TEST_F(ScanBuffer, SearchesForStreamsOfRecords)
{
    const std::string lookalikes[] = {
        compressed_stream("text, not records"),
        compressed_stream(""),
        "\x78\x9c\x78\x9c\x78\x9c",
        "\x78\xbb\xff\xff", // with a dictionary
        "\x08\x1d",         // the smallest window
    };
    const lines records = {stored_names_record(1000, {"a"})};
    for (const std::string &lookalike : lookalikes) {
        EXPECT_EQ((lines{damage(1 + lookalike.size(), -41), "names 1000: a"}),
                  scan("\xff" + lookalike + file_of(records)));
    }
    // Nor does it where nothing follows.
    EXPECT_EQ(lines{damage(3, -41)}, scan("\xff\xff\x78"));
}

// Each place of this file begins a stream that reaches to its end.
std::string entangled_streams(std::size_t size)
{
    std::string file = "\xff";
    while (file.size() < size) {
        file += from_hex("78 01 00 ff ff 00 00");
    }
    return file;
}

// Decoding what is no stream costs no more than so much for each byte.
TEST_F(ScanBuffer, GivesUpSearchingInTime)
{
    const std::string streams = file_of(recorded_contents());
    const std::string bad = entangled_streams(40000);
    const seen_items items = scan_items(bad + streams);
    EXPECT_EQ(lines{damage(bad.size() + streams.size(), -49)}, lines_of(items));
    // A file in which less is to be searched is searched to its end.
    const std::string little = entangled_streams(200);
    EXPECT_EQ(lines{damage(little.size(), -41)} + recorded(0, 5), scan(little + streams));
}

TEST_F(ScanBuffer, SearchesInTimeThatGrowsWithTheFile)
{
    const auto calls = [](std::size_t size) {
        const std::string file = entangled_streams(size);
        const failing_call counted(call_kind::zlib, 0);
        EXPECT_EQ(lines{damage(file.size(), -49)}, scan(file));
        return failing_call::count(call_kind::zlib);
    };
    const int once = calls(30000);
    EXPECT_GT(once, 1);
    // As many bytes more, as much more decoding: without a bound it would be four times as much.
    EXPECT_LE(calls(60000), 2 * once + 2);
}

// A small file that would grow without bounds.
TEST_F(ScanBuffer, BoundsTheContentOfAStreamSlow)
{
    const std::string trap = compressed_stream(std::string(std::size_t(102) << 20, '\0'));
    EXPECT_EQ(lines{damage(trap.size(), -41)}, scan(trap));
}

TEST_F(ScanBuffer, ShowsRecordsThatWereAbandoned)
{
    const std::string values = stored_values_record(1001, {1, 2});
    const lines expected = {"header 1 4", "names 1000: a b", "fragment 16 (-6)",
                            "values 1001: 1 2"};
    const seen_items items = scan_items(file_of({head(), values.substr(0, 16) + values}));
    EXPECT_EQ(expected, lines_of(items));
    EXPECT_EQ(values.substr(0, 16), items[2].content);
    EXPECT_EQ(0U, items[2].content_offset);
    EXPECT_EQ(16U, items[3].content_offset);
    // At the end of a stream and alone in one, too.
    EXPECT_EQ((lines{"header 1 4", "names 1000: a b", "values 1001: 1 2", "fragment 5 (-6)",
                     "fragment 7 (-6)", "values 1001: 1 2"}),
              scan_contents({head() + values + values.substr(0, 5), values.substr(0, 7), values}));
}

// A list of names that was abandoned behind the version of a sensor: the type word of the record
// that follows looks like the length of a name.
TEST_F(ScanBuffer, ShowsRecordsThatAnAbandonedOneSeemsToEndWith)
{
    const std::string abandoned =
        stored_names_record(1001, {"a", "x"}).substr(0, stored_names_record(1001, {"a"}).size()) +
        '\1';
    const std::string fragment = "fragment " + std::to_string(abandoned.size()) + " (-6)";
    const std::string values = stored_values_record(1001, {1, 2});
    const std::string event = stored_event_record(2, 1001, "event");
    EXPECT_EQ((lines{"header 1 4", "names 1000: a b", fragment, "values 1001: 1 2"}),
              scan_contents({head(), abandoned + values}));
    EXPECT_EQ((lines{"header 1 4", "names 1000: a b", fragment, "event 1001: 2 event"}),
              scan_contents({head(), abandoned + event}));
    EXPECT_EQ((lines{"header 1 4", "names 1000: a b", "values 1001: 1 2", fragment,
                     "values 1001: 1 2", "values 1001: 1 2"}),
              scan_contents({head() + values + abandoned + values + values}));
}

// All of this looks like records from many places on, but never up to the end.
TEST_F(ScanBuffer, ShowsLongFragmentsInTime)
{
    std::string content = head() + '\xff';
    const std::size_t fragment = content.size() - 1;
    for (int i = 0; i < 20000; ++i) {
        content += stored_event_body(1, 1000, "");
    }
    content += '\xff';
    EXPECT_EQ((lines{"header 1 4", "names 1000: a b",
                     "fragment " + std::to_string(content.size() - fragment) + " (-6)"}),
              scan_contents({content}));
}

// A short stream that holds ten thousand times the records that a recorder would write. What is too
// many is one piece of damage, and a stream behind it is found.
TEST_F(ScanBuffer, ShowsNoMoreRecordsThanAFileOfThisSizeMayHold)
{
    const std::string values = stored_values_record(1001, {1, 2});
    std::string many;
    for (int i = 0; i < 300000; ++i) {
        many += values;
    }
    const std::string file = file_of({head(), many, values});
    const seen_items items = scan_items(file);
    constexpr std::size_t sensors_named = 2;
    const std::size_t allowed = file.size() + 8192 - sensors_named;
    ASSERT_EQ(2 + 1 + allowed + 1 + 1, items.size());
    const seen_item &rest = items[items.size() - 2];
    EXPECT_EQ(VESK_SCAN_DAMAGE, rest.kind);
    EXPECT_EQ(-49, rest.error);
    EXPECT_EQ(many.size(), rest.content_offset + rest.content_length);
    EXPECT_EQ("values 1001: 1 2 (-6)", items.back().line); // more than the capacity
}

// One stream may hold as much padding as the buffer has room for.
TEST_F(ScanBuffer, ShowsAsMuchPaddingAsTheCapacity)
{
    constexpr uint32_t n = 200000;
    constexpr float nothing = std::numeric_limits<float>::quiet_NaN();
    for (const float value : {nothing, 2.0F}) {
        std::string content = stored_buffer_header(1, n) + stored_names_record(1000, {"a", "b"});
        for (uint32_t i = 0; i < n; ++i) {
            content += stored_values_record(1001, {nothing, value});
        }
        const seen_items items = scan_items(compressed_stream(content));
        if (std::isnan(value)) {
            ASSERT_EQ(2 + n, items.size());
            EXPECT_EQ(0, items.back().error);
        } else {
            // Of samples with values as many bytes are kept as a file of this size may ask for.
            EXPECT_GT(n / 2, items.size());
            EXPECT_EQ(-49, items.back().error);
        }
    }
}

// Nobody writes to it, so whoever opens it like a file waits for ever.
TEST_F(ScanBuffer, RefusesAPipeAndADeviceAtOnce)
{
    ASSERT_EQ(0, mkfifo(cbuf, 0600));
    seen_items items;
    EXPECT_EQ(QE_ERROR_OPEN, vesk_scan_buffer(cbuf, keep_item, &items));
    EXPECT_EQ(QE_ERROR_OPEN, vesk_scan_buffer("/dev/zero", keep_item, &items));
    EXPECT_TRUE(items.empty());
}

// A person may give a link.
TEST_F(ScanBuffer, FollowsALink)
{
    write_file("real", file_of(recorded_contents()));
    fs::create_symlink("real", cbuf);
    seen_items items;
    EXPECT_EQ(0, vesk_scan_buffer(cbuf, keep_item, &items));
    EXPECT_EQ(recorded(0, 5), lines_of(items));
}

// --- records

TEST_F(ScanBuffer, BelievesCountsOnlyWhenTheDataIsThere)
{
    const std::string timestamp = stored_timestamp(1000);
    const std::string values = stored_u32(2) + '\1' + timestamp;
    const std::string names = stored_u32(1) + '\1' + timestamp + '\1';
    const std::string event = stored_u32(3) + '\1' + stored_u32(1) + timestamp;
    const std::string wrong[] = {
        values + stored_u32(0),
        values + stored_u32(10001) + std::string(40004, '\0'),
        values + stored_u32(10000) + std::string(39999, '\0'),
        values + stored_u32(0xffffffff),
        names + stored_u32(0),
        names + stored_u32(10000) + '\1' + stored_string("a"),
        names + stored_u32(1) + '\1' + stored_u32(5) + "four",
        names + stored_u32(1) + '\1' + stored_u32(10001) + std::string(10001, 'a'),
        names + stored_u32(1) + '\2' + stored_string("a"),
        names.substr(0, 14) + '\2' + stored_u32(1) + '\1' + stored_string("a"),
        event + stored_u32(10001) + std::string(10001, 'a'),
        event + stored_u32(2) + "a",
        stored_u32(3) + '\2' + stored_event_body(1, 1000, "text").substr(1),
        stored_u32(2) + '\2' + stored_values_record(1000, {1, 2}).substr(5),
        stored_u32(2) + '\1' + '\2' + stored_values_record(1000, {1, 2}).substr(6),
        stored_u32(4) + '\1',
        stored_u32(0),
        std::string("\2\0\0", 3),
    };
    for (const std::string &record : wrong) {
        EXPECT_EQ("fragment " + std::to_string(record.size()) + " (-6)", scan_record(record));
    }
}

TEST_F(ScanBuffer, BelievesIntervalsOnlyWhenTheyAreThere)
{
    const std::string names = stored_buffer_header(2, 2) + stored_names_record(1000, {"a"});
    const std::string interval = stored_interval_record(1001, 1002, {stored_summary({1})});
    std::string version = interval;
    version[4] = 3;
    std::string summary_version = interval;
    summary_version[4 + 1 + 18 + 4] = 2;
    std::string events_version = interval;
    events_version[events_version.size() - 21] = 2;
    for (const std::string &record :
         {version, summary_version, events_version, interval.substr(0, interval.size() - 1),
          stored_event_record(1, 1000, "not here"), stored_event_body(1, 1000, "nor here")}) {
        EXPECT_EQ((lines{"header 2 2", "names 1000: a",
                         "fragment " + std::to_string(record.size()) + " (-6)"}),
                  scan_contents({names + record}, hbuf));
    }
}

TEST_F(ScanBuffer, TakesCountsUpToTheLimit)
{
    const std::string name(10000, 'n');
    EXPECT_EQ("names 1000: " + name, scan_record(stored_names_record(1000, {name})));
    EXPECT_EQ("event 1000: 5 " + name, scan_record(stored_event_record(5, 1000, name)));
}

TEST_F(ScanBuffer, SaysWhatReadersRefuse)
{
    const std::string text_with_end = std::string("a\0b", 3);
    EXPECT_EQ("bare event 1000: 1 text (-6)", scan_record(stored_event_body(1, 1000, "text")));
    EXPECT_EQ("event 1000: 1  (-6)", scan_record(stored_event_record(1, 1000, "")));
    EXPECT_EQ("event 1000: 1 a (-6)", scan_record(stored_event_record(1, 1000, text_with_end)));
    EXPECT_EQ("names 1000:  (-6)", scan_record(stored_names_record(1000, {""})));
    EXPECT_EQ("names 1000: a a (-6)", scan_record(stored_names_record(1000, {"a", text_with_end})));
    EXPECT_EQ("values 1000: 1 (-6)", scan_record(stored_values_record(1000, {1})));
    EXPECT_EQ("values 1000: 1 2 3 (-6)", scan_record(stored_values_record(1000, {1, 2, 3})));
}

TEST_F(ScanBuffer, SaysThatMicrosecondsAreRefused)
{
    const auto later = [](std::string record, std::size_t timestamp) {
        record[timestamp + 8] = 1;
        return record;
    };
    EXPECT_EQ("values 1000: 1 2 (-6)", scan_record(later(stored_values_record(1000, {1, 2}), 5)));
    EXPECT_EQ("names 1000: c (-6)", scan_record(later(stored_names_record(1000, {"c"}), 5)));
    EXPECT_EQ("event 1000: 1 e (-6)", scan_record(later(stored_event_record(1, 1000, "e"), 9)));
    const std::string interval = stored_interval_record(1001, 1002, {stored_summary({1})});
    for (const std::size_t timestamp : {std::size_t(5), std::size_t(14)}) {
        EXPECT_EQ("interval 1001 to 1002: 1x1 events 00000 (-6)",
                  scan_contents({stored_buffer_header(2, 2) + stored_names_record(1000, {"a"}) +
                                 later(interval, timestamp)},
                                hbuf)[2]);
    }
}

TEST_F(ScanBuffer, SaysThatTheFirstRecordNamesNoSensors)
{
    const std::string header = stored_buffer_header(1, 4);
    EXPECT_EQ((lines{"header 1 4", "values 1000: 1 (-4)", "names 1000: a"}),
              scan_contents(
                  {header + stored_values_record(1000, {1}) + stored_names_record(1000, {"a"})}));
    EXPECT_EQ((lines{"header 1 4", "event 1000: 1 e (-4)"}),
              scan_contents({header + stored_event_record(1, 1000, "e")}));
}

TEST_F(ScanBuffer, SaysThatThereAreMoreRecordsThanTheCapacity)
{
    const std::string sample = stored_values_record(1001, {1});
    EXPECT_EQ((lines{"header 1 2", "names 1000: a", "values 1001: 1", "event 1001: 1 e",
                     "values 1001: 1", "values 1001: 1 (-6)"}),
              scan_contents({stored_buffer_header(1, 2) + stored_names_record(1000, {"a"}) +
                             sample + stored_event_record(1, 1001, "e") + sample + sample}));
    const std::string interval = stored_interval_record(1001, 1002, {stored_summary({1})});
    const lines intervals =
        scan_contents({stored_buffer_header(2, 2) + stored_names_record(1000, {"a"}) + interval +
                       interval + interval},
                      hbuf);
    EXPECT_EQ("interval 1001 to 1002: 1x1 events 00000", intervals[3]);
    EXPECT_EQ("interval 1001 to 1002: 1x1 events 00000 (-6)", intervals[4]);
}

// Values that no sensor has are floats all the same.
TEST_F(ScanBuffer, KeepsEveryFloat)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ("values 1000: nan -0", scan_record(stored_values_record(1000, {nan, -0.0F})));
}

TEST_F(ScanBuffer, KeepsTimesBeforeTheEpoch)
{
    EXPECT_EQ("values -1: 1 2", scan_record(stored_values_record(0xffffffff, {1, 2})));
}

// --- the call

TEST_F(ScanBuffer, EndsWhenTheVisitorSaysSo)
{
    write_file(cbuf, "damaged" + file_of(recorded_contents()) + "damaged");
    for (int last = 1; last <= 9; ++last) {
        struct visits {
            int left;
            int result;
        } context = {last, -last};
        EXPECT_EQ(-last, vesk_scan_buffer(
                             cbuf,
                             [](const vesk_scan_item *, void *visits_left) {
                                 auto *v = static_cast<visits *>(visits_left);
                                 return --v->left == 0 ? v->result : 0;
                             },
                             &context));
        EXPECT_EQ(0, context.left);
    }
}

TEST_F(ScanBuffer, FailsOnAFileThatIsNotThere)
{
    seen_items items;
    EXPECT_EQ(QE_ERROR_OPEN, vesk_scan_buffer("r.9.cbuf.z", keep_item, &items));
    EXPECT_TRUE(items.empty());
}

TEST_F(ScanBuffer, FailsOnAFileThatCannotBeRead)
{
    fs::create_directory("folder");
    seen_items items;
    EXPECT_EQ(QE_ERROR_IO, vesk_scan_buffer("folder", keep_item, &items));
    EXPECT_TRUE(items.empty());
}

TEST_F(ScanBuffer, LeavesTheFileAlone)
{
    const std::string file = file_of(recorded_contents()) + "damaged";
    write_file(cbuf, file);
    const auto written = fs::last_write_time(cbuf);
    fs::permissions(cbuf, fs::perms::owner_read);
    seen_items items;
    EXPECT_EQ(0, vesk_scan_buffer(cbuf, keep_item, &items));
    EXPECT_EQ(file, read_file(cbuf));
    EXPECT_EQ(written, fs::last_write_time(cbuf));
    EXPECT_EQ(std::set<std::string>{cbuf}, folder_.names());
}

// A recorder has the file open and goes on with it.
TEST_F(ScanBuffer, ShowsAFileThatIsBeingWritten)
{
    owned<vesk, vesk_close> recorder(vesk_create("r", 4, 2));
    for (int i = 1; i <= 3; ++i) {
        const owned_matrix vector = make_vector(1000 + i, {{"a", i * 1.0}});
        ASSERT_EQ(0, vesk_write_telemetry_vector(recorder.get(), vector.get()));
        seen_items items;
        EXPECT_EQ(0, vesk_scan_buffer(cbuf, keep_item, &items));
        ASSERT_EQ(2U + static_cast<unsigned>(i), items.size());
        EXPECT_EQ("values " + std::to_string(1000 + i) + ": " + std::to_string(i),
                  items.back().line);
    }
}

int count_item(const vesk_scan_item *, void *context)
{
    ++*static_cast<int *>(context);
    return 0;
}

// Whatever fails: the code says so, and no memory or descriptor stays behind.
TEST_F(ScanBuffer, GivesBackWhatItTookWhenMemoryRunsOut)
{
    write_file(cbuf, file_of(recorded_contents()) + "damaged");
    write_file(hbuf, file_of({stored_buffer_header(2, 2) + stored_names_record(1000, {"a"}) +
                              stored_interval_record(1001, 1002, {stored_summary({1})})}));
    for (const char *name : {cbuf, hbuf}) {
        for (const call_kind kind : {call_kind::allocation, call_kind::zlib}) {
            int failures = 0;
            for (int n = 1; n > 0; ++n) {
                const std::ptrdiff_t files = count_open_files();
                const long blocks = count_live_blocks();
                int visits = 0;
                int result = 0;
                bool failed = false;
                {
                    const failing_call failing(kind, n);
                    result = vesk_scan_buffer(name, count_item, &visits);
                    failed = failing_call::happened();
                }
                EXPECT_EQ(blocks, count_live_blocks());
                EXPECT_EQ(files, count_open_files());
                EXPECT_EQ(failed ? QE_ERROR_NO_MEMORY : 0, result) << name << n;
                if (!failed) {
                    break;
                }
                ++failures;
            }
            EXPECT_GE(failures, 2);
        }
    }
}

TEST_F(ScanBuffer, FailsWhenReadingFails)
{
    write_file(cbuf, file_of(recorded_contents()));
    const std::ptrdiff_t files = count_open_files();
    int visits = 0;
    {
        const failing_call failing(call_kind::read, 1);
        EXPECT_EQ(QE_ERROR_IO, vesk_scan_buffer(cbuf, count_item, &visits));
    }
    {
        const failing_call failing(call_kind::open, 1);
        EXPECT_EQ(QE_ERROR_OPEN, vesk_scan_buffer(cbuf, count_item, &visits));
    }
    EXPECT_EQ(0, visits);
    EXPECT_EQ(files, count_open_files());
}

TEST_F(ScanBuffer, TakesNoBytesWhereThereAreNone)
{
    seen_items items;
    EXPECT_EQ(0, vesk_scan_bytes(nullptr, 0, VESK_BUFFER_TYPE_CURRENT, keep_item, &items));
    EXPECT_TRUE(items.empty());
}

TEST_F(ScanBuffer, RequiresBytesOfAKnownKindAndAVisitor)
{
    const unsigned char byte = 0;
    EXPECT_ABORTS((void)vesk_scan_bytes(nullptr, 1, VESK_BUFFER_TYPE_HIST, keep_item, nullptr),
                  "bytes != ((void *)0) || size == 0");
    EXPECT_ABORTS((void)vesk_scan_bytes(&byte, 1, 3, keep_item, nullptr),
                  "buffer_kind == VESK_BUFFER_TYPE_CURRENT || "
                  "buffer_kind == VESK_BUFFER_TYPE_HIST");
    EXPECT_ABORTS((void)vesk_scan_bytes(&byte, 1, VESK_BUFFER_TYPE_HIST, nullptr, nullptr),
                  "visit != ((void *)0)");
}

TEST_F(ScanBuffer, RequiresAFileAndAVisitor)
{
    EXPECT_ABORTS((void)vesk_scan_buffer(nullptr, keep_item, nullptr), "filename != ((void *)0)");
    EXPECT_ABORTS((void)vesk_scan_buffer(cbuf, nullptr, nullptr), "visit != ((void *)0)");
}

// ---- state files ----

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

const lines three_names = {"r.6.hbuf.z", "r.5.cbuf.z", "r.7.cbuf.z"};

state_form hcc_state()
{
    state_form form;
    form.state = 4;
    form.names = three_names;
    return form;
}

// A summary that frees itself. It is not initialised by anybody but the scan.
class owned_summary
{
public:
    explicit owned_summary(const std::string &bytes)
    {
        write_file("r.state", bytes);
        memset(static_cast<void *>(&summary_), 0xee, sizeof summary_);
        EXPECT_EQ(vesk_scan_state("r.state", &summary_), summary_.error);
    }
    owned_summary(const owned_summary &) = delete;
    owned_summary &operator=(const owned_summary &) = delete;
    ~owned_summary() { vesk_state_summary_destruct(&summary_); }

    const vesk_state_summary *operator->() const { return &summary_; }
    lines names() const { return {summary_.names, summary_.names + summary_.num_names}; }

private:
    vesk_state_summary summary_;
};

class ScanState : public ScanTest
{
protected:
    static int error_of(const std::string &bytes) { return owned_summary(bytes)->error; }
};

TEST_F(ScanState, SaysWhatItHolds)
{
    const lines all = {"r.1.cbuf.z", "r.2.cbuf.z", "r.3.cbuf.z"};
    for (const uint32_t state : {1U, 2U, 3U, 4U}) {
        state_form form;
        form.state = state;
        form.names = state == 4 ? three_names : lines(all.begin(), all.begin() + state);
        const owned_summary summary(form.bytes());
        EXPECT_EQ(0, summary->error);
        EXPECT_EQ(form.bytes().size(), summary->size);
        EXPECT_EQ(7 + form.names.size(), summary->fields);
        EXPECT_STREQ("r", summary->filename);
        EXPECT_STREQ("r.state", summary->state_filename);
        EXPECT_EQ(state, summary->state);
        EXPECT_EQ(4U, summary->num_cb_samples);
        EXPECT_EQ(2U, summary->num_hb_intervals);
        EXPECT_EQ(2U, summary->num_samples_per_interval);
        EXPECT_EQ(9U, summary->next_file_number);
        EXPECT_EQ(form.names, summary.names());
        for (uint32_t i = summary->num_names; i < 3; ++i) {
            EXPECT_EQ(nullptr, summary->names[i]);
        }
    }
}

TEST_F(ScanState, AgreesWithTheRecorder)
{
    owned<vesk, vesk_close> recorder(vesk_create("r", 4, 2));
    for (int i = 1; i <= 14; ++i) {
        const owned_matrix vector = make_vector(1000 + i, {{"a", i * 1.0}});
        ASSERT_EQ(0, vesk_write_telemetry_vector(recorder.get(), vector.get()));
    }
    const owned_summary summary(read_file("r.state"));
    EXPECT_EQ(0, summary->error);
    EXPECT_EQ(static_cast<uint32_t>(VESK_ZCF_STATE_HCC), summary->state);
    EXPECT_EQ(6U, summary->next_file_number);
    EXPECT_EQ((lines{"r.4.hbuf.z", "r.3.cbuf.z", "r.5.cbuf.z"}), summary.names());
}

TEST_F(ScanState, SaysHowMuchOfACutFileIsThere)
{
    const state_form form = hcc_state();
    const std::string bytes = form.bytes();
    const lines fields = form.fields();
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        // The version behind the numbers is no field, but there was a place for it.
        uint32_t whole = 0;
        for (std::size_t end = 0; whole < fields.size(); ++whole) {
            end += fields[whole].size();
            if (end - (whole == 6 ? 1 : 0) > size) {
                break;
            }
        }
        const owned_summary summary(bytes.substr(0, size));
        EXPECT_EQ(QE_ERROR_TRUNCATED, summary->error) << size;
        EXPECT_EQ(size, summary->size);
        EXPECT_EQ(whole, summary->fields) << size;
        EXPECT_EQ(whole > 0, summary->filename != nullptr);
        EXPECT_EQ(whole > 1, summary->state_filename != nullptr);
        EXPECT_EQ(whole > 2 ? 4U : 0U, summary->state);
        EXPECT_EQ(whole > 3 ? 4U : 0U, summary->num_cb_samples);
        EXPECT_EQ(whole > 4 ? 2U : 0U, summary->num_hb_intervals);
        EXPECT_EQ(whole > 5 ? 2U : 0U, summary->num_samples_per_interval);
        EXPECT_EQ(whole > 6 ? 9U : 0U, summary->next_file_number);
        const uint32_t names = whole > 7 ? whole - 7 : 0;
        EXPECT_EQ(lines(three_names.begin(), three_names.begin() + names), summary.names());
    }
}

TEST_F(ScanState, IgnoresWhatFollows)
{
    EXPECT_EQ(0, error_of(hcc_state().bytes() + "more"));
}

TEST_F(ScanState, RefusesOtherVersions)
{
    std::string bytes = hcc_state().bytes();
    bytes[0] = 2;
    EXPECT_EQ(QE_ERROR_BAD_VERSION, error_of(bytes));
    bytes = hcc_state().bytes();
    const std::size_t body = 1 + 5 + 11 + 5 * 4;
    ASSERT_EQ(1, bytes[body]);
    bytes[body] = 0;
    const owned_summary summary(bytes);
    EXPECT_EQ(QE_ERROR_BAD_VERSION, summary->error);
    EXPECT_EQ(7U, summary->fields);
    EXPECT_EQ(0U, summary->num_names);
}

TEST_F(ScanState, RefusesNumbersThatNoRecorderHas)
{
    struct numbers {
        uint32_t state, samples, intervals, samples_per_interval;
    };
    for (const numbers &n : std::vector<numbers>{{0, 4, 2, 2},
                                                 {5, 4, 2, 2},
                                                 {1, 0, 2, 0},
                                                 {1, 5, 5, 1},
                                                 {1, 4, 0, 2},
                                                 {1, 4, 3, 1},
                                                 {1, 4, 8, 0},
                                                 {1, 4, 2, 1},
                                                 {1, 4, 2, 3}}) {
        state_form form;
        form.state = n.state;
        form.samples = n.samples;
        form.intervals = n.intervals;
        form.samples_per_interval = n.samples_per_interval;
        const owned_summary summary(form.bytes());
        EXPECT_EQ(QE_ERROR_MALFORMED, summary->error)
            << n.state << " " << n.samples << " " << n.intervals;
        // They are told all the same.
        EXPECT_EQ(7U, summary->fields);
        EXPECT_EQ(n.samples, summary->num_cb_samples);
        EXPECT_EQ(0U, summary->num_names);
    }
    // An odd number of intervals is none of them.
    state_form odd;
    odd.samples = 6;
    odd.intervals = 3;
    EXPECT_EQ(0, error_of(odd.bytes()));
}

TEST_F(ScanState, RefusesStringsThatAreNone)
{
    state_form form;
    form.base = "";
    EXPECT_EQ(QE_ERROR_MALFORMED, error_of(form.bytes()));
    form.base = std::string("a\0b", 3);
    EXPECT_EQ(QE_ERROR_MALFORMED, error_of(form.bytes()));
    form.base = std::string(10001, 'a');
    EXPECT_EQ(QE_ERROR_MALFORMED, error_of(form.bytes()));
    form.base = std::string(9994, 'a');
    EXPECT_EQ(0, error_of(form.bytes()));
    form = hcc_state();
    form.names[1] = "";
    const owned_summary summary(form.bytes());
    EXPECT_EQ(QE_ERROR_MALFORMED, summary->error);
    EXPECT_EQ(8U, summary->fields);
    EXPECT_EQ(lines{three_names[0]}, summary.names());
    // The length is judged before the text is there.
    EXPECT_EQ(QE_ERROR_MALFORMED, error_of('\1' + stored_u32(10001)));
    EXPECT_EQ(QE_ERROR_TRUNCATED, error_of('\1' + stored_u32(10000)));
}

TEST_F(ScanState, FailsWithoutAFile)
{
    vesk_state_summary summary;
    EXPECT_EQ(QE_ERROR_OPEN, vesk_scan_state("nowhere.state", &summary));
    EXPECT_EQ(QE_ERROR_OPEN, summary.error);
    EXPECT_EQ(0U, summary.size);
    EXPECT_EQ(nullptr, summary.filename);
    vesk_state_summary_destruct(&summary);
    fs::create_directory("folder.state");
    EXPECT_EQ(QE_ERROR_IO, vesk_scan_state("folder.state", &summary));
    EXPECT_EQ(QE_ERROR_IO, summary.error);
    vesk_state_summary_destruct(&summary);
}

// No buffer file is there at all.
TEST_F(ScanState, OpensNoBufferFile)
{
    write_file("r.state", hcc_state().bytes());
    const failing_call counted(call_kind::open, 0);
    vesk_state_summary summary;
    EXPECT_EQ(0, vesk_scan_state("r.state", &summary));
    EXPECT_EQ(1, failing_call::count(call_kind::open));
    vesk_state_summary_destruct(&summary);
}

TEST_F(ScanState, IsEmptyAfterItsEnd)
{
    write_file("r.state", hcc_state().bytes());
    vesk_state_summary summary;
    EXPECT_EQ(0, vesk_scan_state("r.state", &summary));
    vesk_state_summary_destruct(&summary);
    EXPECT_EQ(nullptr, summary.filename);
    EXPECT_EQ(nullptr, summary.state_filename);
    EXPECT_EQ(nullptr, summary.names[2]);
    EXPECT_EQ(0U, summary.num_names);
    vesk_state_summary_destruct(&summary);
}

TEST_F(ScanState, GivesBackWhatItTookWhenMemoryRunsOut)
{
    write_file("r.state", hcc_state().bytes());
    const std::ptrdiff_t files = count_open_files();
    int failures = 0;
    for (int n = 1; n > 0; ++n) {
        const long blocks = count_live_blocks();
        vesk_state_summary summary;
        int result = 0;
        bool failed = false;
        {
            const failing_allocation failing(n);
            result = vesk_scan_state("r.state", &summary);
            failed = failing_call::happened();
        }
        vesk_state_summary_destruct(&summary);
        EXPECT_EQ(blocks, count_live_blocks());
        EXPECT_EQ(files, count_open_files());
        if (!failed) {
            EXPECT_EQ(0, result);
            break;
        }
        EXPECT_EQ(QE_ERROR_NO_MEMORY, result);
        ++failures;
    }
    // The file, two names of the box and three of its files.
    EXPECT_EQ(6, failures);
}

TEST_F(ScanState, RefusesAPipeAndALink)
{
    vesk_state_summary summary;
    ASSERT_EQ(0, mkfifo("r.state", 0600));
    EXPECT_EQ(QE_ERROR_OPEN, vesk_scan_state("r.state", &summary));
    fs::remove("r.state");
    write_file("elsewhere", hcc_state().bytes());
    fs::create_symlink("elsewhere", "r.state");
    EXPECT_EQ(QE_ERROR_OPEN, vesk_scan_state("r.state", &summary));
}

TEST_F(ScanState, RequiresAFileAndASummary)
{
    vesk_state_summary summary;
    EXPECT_ABORTS((void)vesk_scan_state(nullptr, &summary), "filename != ((void *)0)");
    EXPECT_ABORTS((void)vesk_scan_state("r.state", nullptr), "summary != ((void *)0)");
    EXPECT_ABORTS(vesk_state_summary_destruct(nullptr), "summary != ((void *)0)");
}

// ---- the files of a box ----

int keep_file(const vesk_scan_file *file, void *context)
{
    const char *roles[] = {"orphan", "history", "full", "open"};
    std::ostringstream line;
    line << roles[file->role] << " " << file->filename << " " << file->buffer_kind << " "
         << file->number << " " << file->size << (file->missing != 0 ? " missing" : "")
         << (file->foreign != 0 ? " foreign" : "");
    static_cast<lines *>(context)->push_back(line.str());
    return 0;
}

class ScanFiles : public ScanTest
{
protected:
    static lines scan(const char *base = "r")
    {
        lines files;
        EXPECT_EQ(0, vesk_scan_files(base, keep_file, &files));
        return files;
    }
    // Files of three bytes.
    static void make(const lines &names)
    {
        for (const std::string &name : names) {
            write_file(name, "xyz");
        }
    }
};

TEST_F(ScanFiles, ShowsThoseOfTheStateOldestFirst)
{
    const lines current = {"r.1.cbuf.z", "r.2.cbuf.z", "r.3.cbuf.z"};
    make(current + three_names);
    const lines expected[] = {
        {"open r.1.cbuf.z 1 1 3"},
        {"full r.1.cbuf.z 1 1 3", "open r.2.cbuf.z 1 2 3"},
        {"full r.1.cbuf.z 1 1 3", "full r.2.cbuf.z 1 2 3", "open r.3.cbuf.z 1 3 3"},
        {"history r.6.hbuf.z 2 6 3", "full r.5.cbuf.z 1 5 3", "open r.7.cbuf.z 1 7 3"},
    };
    for (const uint32_t state : {1U, 2U, 3U, 4U}) {
        state_form form;
        form.state = state;
        form.names = state == 4 ? three_names : lines(current.begin(), current.begin() + state);
        write_file("r.state", form.bytes());
        lines named = scan();
        named.resize(form.names.size());
        EXPECT_EQ(expected[state - 1], named);
    }
}

TEST_F(ScanFiles, ShowsOrphansByNumber)
{
    write_file("r.state", hcc_state().bytes());
    make(three_names + lines{"r.10.cbuf.z", "r.9.hbuf.z", "r.9.cbuf.z", "r.1.cbuf.z", "r.0.cbuf.z",
                             "r.4294967295.hbuf.z"});
    EXPECT_EQ((lines{"history r.6.hbuf.z 2 6 3", "full r.5.cbuf.z 1 5 3", "open r.7.cbuf.z 1 7 3",
                     "orphan r.0.cbuf.z 1 0 3", "orphan r.1.cbuf.z 1 1 3",
                     "orphan r.9.cbuf.z 1 9 3", "orphan r.9.hbuf.z 2 9 3",
                     "orphan r.10.cbuf.z 1 10 3", "orphan r.4294967295.hbuf.z 2 4294967295 3"}),
              scan());
}

TEST_F(ScanFiles, ShowsThatAFileIsMissing)
{
    write_file("r.state", hcc_state().bytes());
    make({"r.7.cbuf.z"});
    EXPECT_EQ((lines{"history r.6.hbuf.z 2 6 0 missing", "full r.5.cbuf.z 1 5 0 missing",
                     "open r.7.cbuf.z 1 7 3"}),
              scan());
}

TEST_F(ScanFiles, TakesAllForOrphansWithoutAState)
{
    make(three_names);
    const lines orphans = {"orphan r.5.cbuf.z 1 5 3", "orphan r.6.hbuf.z 2 6 3",
                           "orphan r.7.cbuf.z 1 7 3"};
    EXPECT_EQ(orphans, scan());
    write_file("r.state", "");
    EXPECT_EQ(orphans, scan());
    write_file("r.state", noise(100));
    EXPECT_EQ(orphans, scan());
    fs::remove("r.state");
    fs::create_directory("r.state");
    EXPECT_EQ(orphans, scan());
}

// What a state file names before it ends is named.
TEST_F(ScanFiles, TakesWhatACutStateSays)
{
    const state_form form = hcc_state();
    make(form.names);
    const std::string bytes = form.bytes();
    const lines named = {"history r.6.hbuf.z 2 6 3", "full r.5.cbuf.z 1 5 3",
                         "open r.7.cbuf.z 1 7 3"};
    const lines orphaned = {"orphan r.5.cbuf.z 1 5 3", "orphan r.6.hbuf.z 2 6 3",
                            "orphan r.7.cbuf.z 1 7 3"};
    for (std::size_t size = 0; size <= bytes.size(); ++size) {
        write_file("r.state", bytes.substr(0, size));
        const std::size_t missing = bytes.size() - size;
        const std::size_t name = 4 + three_names[0].size();
        const lines expected = missing == 0          ? named
                               : missing <= name     ? lines{named[0], named[1], orphaned[2]}
                               : missing <= 2 * name ? lines{named[0], orphaned[0], orphaned[2]}
                                                     : orphaned;
        EXPECT_EQ(expected, scan()) << size;
    }
}

TEST_F(ScanFiles, ShowsNothingElse)
{
    write_file("r.state", state_form().bytes());
    make({"r.1.cbuf.z", "r.01.cbuf.z", "r.+2.cbuf.z", "r.2.cbuf", "r.2.cbuf.z.bak", "r.2.dbuf.z",
          "rr.2.cbuf.z", "R.2.cbuf.z", "r..cbuf.z", "r.cbuf.z", "r.-2.cbuf.z",
          "r.4294967296.cbuf.z", "r.2 .cbuf.z", "r.2.cbuf.z ", "q.2.cbuf.z", "r.2.Cbuf.z"});
    EXPECT_EQ((lines{"open r.1.cbuf.z 1 1 3"}), scan());
}

TEST_F(ScanFiles, NamesFilesWithTheFolderOfTheBase)
{
    fs::create_directories("one/two");
    make({"one/two/r.3.cbuf.z", "one/two/r.4.hbuf.z", "one/r.9.cbuf.z", "r.9.cbuf.z"});
    EXPECT_EQ((lines{"orphan one/two/r.3.cbuf.z 1 3 3", "orphan one/two/r.4.hbuf.z 2 4 3"}),
              scan("one/two/r"));
    const std::string absolute = folder_.path() + "/r";
    EXPECT_EQ((lines{"orphan " + absolute + ".9.cbuf.z 1 9 3"}), scan(absolute.c_str()));
}

// The recorder was created under another name of its folder than it is looked at now.
TEST_F(ScanFiles, ShowsAFileOnceWhateverTheFolderIsCalled)
{
    state_form form;
    form.base = folder_.path() + "/r";
    form.names = {form.base + ".1.cbuf.z"};
    write_file("r.state", form.bytes());
    make({"r.1.cbuf.z", "r.2.cbuf.z"});
    EXPECT_EQ((lines{"open " + form.base + ".1.cbuf.z 1 1 3", "orphan r.2.cbuf.z 1 2 3"}), scan());
}

// The kind of a file that is not named as recorders name them is told by its place.
TEST_F(ScanFiles, ShowsNamedFilesWhateverTheyAreCalled)
{
    state_form form = hcc_state();
    form.names = {"history", "full", "open"};
    write_file("r.state", form.bytes());
    make(form.names);
    EXPECT_EQ((lines{"history history 2 0 3", "full full 1 0 3", "open open 1 0 3"}), scan());
}

// What is no file of a recorder has its name.
TEST_F(ScanFiles, TellsWhatIsNoRegularFile)
{
    write_file("r.state", hcc_state().bytes());
    ASSERT_EQ(0, mkfifo("r.5.cbuf.z", 0600));
    fs::create_symlink("/dev/zero", "r.6.hbuf.z");
    fs::create_directory("r.7.cbuf.z");
    fs::create_symlink("nowhere", "r.8.cbuf.z");
    EXPECT_EQ((lines{"history r.6.hbuf.z 2 6 0 foreign", "full r.5.cbuf.z 1 5 0 foreign",
                     "open r.7.cbuf.z 1 7 0 foreign", "orphan r.8.cbuf.z 1 8 0 foreign"}),
              scan());
}

// A state file may name any file of the machine.
TEST_F(ScanFiles, LooksAtNothingOutsideOfTheBox)
{
    fs::create_directories("box/inner");
    write_file("outside", "xyz");
    write_file("box/r.5.cbuf.z", "xyz");
    state_form form = hcc_state();
    const std::string outside = folder_.path() + "/outside";
    form.names = {outside, "box/inner/../r.5.cbuf.z", "box/../outside"};
    write_file("box/r.state", form.bytes());
    EXPECT_EQ((lines{"history " + outside + " 2 0 0 missing",
                     "full box/inner/../r.5.cbuf.z 1 0 0 missing",
                     "open box/../outside 1 0 0 missing", "orphan box/r.5.cbuf.z 1 5 3"}),
              scan("box/r"));
}

TEST_F(ScanFiles, EndsWhenTheVisitorSaysSo)
{
    write_file("r.state", state_form().bytes());
    make({"r.1.cbuf.z", "r.2.cbuf.z"});
    for (int last = 1; last <= 2; ++last) {
        int left = last;
        EXPECT_EQ(7, vesk_scan_files(
                         "r",
                         [](const vesk_scan_file *, void *visits) {
                             return --*static_cast<int *>(visits) == 0 ? 7 : 0;
                         },
                         &left));
        EXPECT_EQ(0, left);
    }
}

TEST_F(ScanFiles, FailsWithoutItsFolder)
{
    lines files;
    EXPECT_EQ(QE_ERROR_OPEN, vesk_scan_files("nowhere/r", keep_file, &files));
    EXPECT_TRUE(files.empty());
    const failing_call failing(call_kind::read, 1);
    EXPECT_EQ(QE_ERROR_IO, vesk_scan_files("r", keep_file, &files));
}

TEST_F(ScanFiles, RefusesANameThatIsTooLong)
{
    lines files;
    EXPECT_EQ(QE_ERROR_LIMIT, vesk_scan_files(std::string(4096, 'r').c_str(), keep_file, &files));
    // Short enough to be looked for, but not to be there.
    EXPECT_EQ(0, vesk_scan_files(std::string(4000, 'r').c_str(), keep_file, &files));
    EXPECT_TRUE(files.empty());
}

TEST_F(ScanFiles, GivesBackWhatItTookWhenMemoryRunsOut)
{
    write_file("r.state", hcc_state().bytes());
    make(three_names + lines{"r.1.cbuf.z", "r.2.cbuf.z"});
    const std::ptrdiff_t files = count_open_files();
    int failures = 0;
    for (int n = 1; n > 0; ++n) {
        const long blocks = count_live_blocks();
        int result = 0;
        bool failed = false;
        {
            const failing_allocation failing(n);
            result = vesk_scan_files(
                "r", [](const vesk_scan_file *, void *) { return 0; }, nullptr);
            failed = failing_call::happened();
        }
        EXPECT_EQ(blocks, count_live_blocks());
        EXPECT_EQ(files, count_open_files());
        EXPECT_EQ(failed ? QE_ERROR_NO_MEMORY : 0, result) << n;
        if (!failed) {
            break;
        }
        ++failures;
    }
    EXPECT_GT(failures, 6);
}

TEST_F(ScanFiles, RequiresANameAndAVisitor)
{
    EXPECT_ABORTS((void)vesk_scan_files(nullptr, keep_file, nullptr), "filename != ((void *)0)");
    EXPECT_ABORTS((void)vesk_scan_files("r", nullptr, nullptr), "visit != ((void *)0)");
}

} // namespace
