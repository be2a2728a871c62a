// Scanning a buffer: what it shows of whole files, what it takes for a record, and how the call
// ends.
#include <limits>

#include "common/failing_calls.hpp"
#include "common/open_files.hpp"
#include "recovery/scan_fixture.hpp"

namespace
{

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

} // namespace
