// Scanning a damaged buffer: what lies around the damage is shown, and hostile content costs
// bounded time and memory.
#include <cmath>
#include <limits>
#include <sys/stat.h>

#include "common/failing_calls.hpp"
#include "recovery/scan_fixture.hpp"

namespace
{

// ---- Damage

TEST_F(ScanBuffer, ShowsAFileThatEndsAnywhere)
{
    const std::string file = file_of(recorded_contents());
    const std::vector<std::size_t> offsets = recorded_offsets();
    for (std::size_t size = 0, whole = 0; size <= file.size(); ++size) {
        whole += whole + 1 < offsets.size() && offsets[whole + 1] == size ? 1U : 0U;
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
        bad += offsets[bad + 1] == at ? 1U : 0U;
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

} // namespace
