// Merging the intervals of a history by pairs into another one: sensors that change between or
// inside pairs, and inputs and outputs that do not fit.
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/vesk_hist_buffer.h>
#include <vesk/vesk_hist_buffer_compress.h>

#include "common/aborts.hpp"
#include "common/buffer_files.hpp"
#include "common/failing_calls.hpp"
#include "common/history.hpp"
#include "common/open_files.hpp"
#include "common/telemetry.hpp"
#include "common/temporary_directory.hpp"
#include "common/zlib_streams.hpp"
#include "support/owner.hpp"

using testing::ElementsAre;

namespace
{

using owned_hbuf = owned<vesk_hist_buffer, vesk_hist_buffer_close>;
using strings = std::vector<std::string>;

class HistBufferCompress : public testing::Test
{
protected:
    // Makes a history of these records.
    void write_input(uint32_t capacity, const strings &records)
    {
        std::string content = stored_buffer_header(2, capacity);
        for (const std::string &record : records) {
            content += record;
        }
        write_file(in_path_, deflate_stream(content));
    }
    owned_hbuf create_output(uint32_t capacity)
    {
        return owned_hbuf(vesk_hist_buffer_create(out_path_.c_str(), capacity));
    }
    int compress(vesk_hist_buffer *hbuf)
    {
        const auto before = count_open_files();
        const int result = vesk_hist_buffer_compress(in_path_.c_str(), hbuf);
        EXPECT_EQ(before, count_open_files());
        return result;
    }
    // What comes of the input, with the header of the output in front.
    strings merged(uint32_t capacity, int expected = 0)
    {
        owned_hbuf hbuf = create_output(capacity);
        EXPECT_EQ(expected, compress(hbuf.get()));
        hbuf.reset();
        return zlib_contents(read_file(out_path_));
    }

    temporary_directory directory_;
    std::string in_path_ = directory_.file("r.4.hbuf.z");
    std::string out_path_ = directory_.file("r.6.hbuf.z");
};

std::string header(uint32_t capacity)
{
    return stored_buffer_header(2, capacity);
}

// Intervals of one summary.
std::string interval(uint32_t start, uint32_t end, const std::vector<float> &samples,
                     const event_counts &events = {})
{
    return stored_interval_record(start, end, {stored_summary(samples)}, events);
}

} // namespace

TEST_F(HistBufferCompress, NeighboursAreMergedByPairs)
{
    write_input(4, {stored_names_record(1, {"a"}), interval(1, 9, {3, 1}, {1, 2, 3, 4, 5}),
                    interval(11, 19, {2, 8}, {10, 20, 30, 40, 50}), interval(21, 29, {5}),
                    interval(31, 39, {4}, {0, 0, 0, 0, UINT32_MAX})});
    const std::string before = read_file(in_path_);
    EXPECT_THAT(merged(4), ElementsAre(header(4) + stored_names_record(1, {"a"}) +
                                           interval(1, 19, {3, 1, 2, 8}, {11, 22, 33, 44, 55}),
                                       interval(21, 39, {5, 4}, {0, 0, 0, 0, UINT32_MAX})));
    EXPECT_EQ(before, read_file(in_path_)) << "the input is only read";
}

TEST_F(HistBufferCompress, EventCountsWrap)
{
    write_input(2, {stored_names_record(1, {"a"}), interval(1, 2, {1}, {UINT32_MAX, 0, 0, 0, 0}),
                    interval(3, 4, {1}, {2, 0, 0, 0, 0})});
    EXPECT_THAT(merged(2), ElementsAre(header(2) + stored_names_record(1, {"a"}) +
                                       interval(1, 4, {1, 1}, {1, 0, 0, 0, 0})));
}

TEST_F(HistBufferCompress, ASensorWithoutSamplesTakesTheOthersSummary)
{
    write_input(4, {stored_names_record(1, {"a"}), interval(1, 2, {}), interval(3, 4, {7, 5}),
                    interval(5, 6, {9}), interval(7, 8, {})});
    EXPECT_THAT(merged(4),
                ElementsAre(header(4) + stored_names_record(1, {"a"}) + interval(1, 4, {7, 5}),
                            interval(5, 8, {9})));
}

TEST_F(HistBufferCompress, TheOutputStaysOpenForMore)
{
    write_input(2, {stored_names_record(1, {"a"}), interval(1, 2, {1}), interval(3, 4, {2})});
    owned_hbuf hbuf = create_output(4);
    EXPECT_EQ(0, compress(hbuf.get()));
    EXPECT_EQ(1U, hbuf->num_data_records);
    EXPECT_EQ(0, compress(hbuf.get()));
    EXPECT_EQ(3 - 1U, hbuf->num_data_records);
    EXPECT_EQ(interval(1, 4, {1, 2}), zlib_contents(read_file(out_path_)).back());
}

// ---- Sensors that change ----------------------------------------------------------------------

TEST_F(HistBufferCompress, NamesBetweenPairsAreFollowed)
{
    write_input(4, {stored_names_record(1, {"a"}), interval(1, 2, {1}), interval(3, 4, {2}),
                    stored_names_record(5, {"b"}), interval(5, 6, {3}), interval(7, 8, {4})});
    EXPECT_THAT(merged(4),
                ElementsAre(header(4) + stored_names_record(1, {"a"}) + interval(1, 4, {1, 2}),
                            stored_names_record(5, {"b"}) + interval(5, 8, {3, 4})));
}

TEST_F(HistBufferCompress, NamesInsideAPairDoNotPartIt)
{
    write_input(4, {stored_names_record(1, {"c", "a"}),
                    stored_interval_record(1, 2, {stored_summary({1}), stored_summary({2})}),
                    stored_names_record(3, {"b", "c"}),
                    stored_interval_record(3, 4, {stored_summary({3}), stored_summary({4})}),
                    stored_interval_record(5, 6, {stored_summary({5}), stored_summary({6})}),
                    stored_interval_record(7, 8, {stored_summary({7}), stored_summary({8})})});
    EXPECT_THAT(
        merged(4),
        ElementsAre(
            header(4) + stored_names_record(1, {"a", "b", "c"}) +
                stored_interval_record(
                    1, 4, {stored_summary({2}), stored_summary({3}), stored_summary({1, 4})}),
            stored_names_record(5, {"b", "c"}) +
                stored_interval_record(5, 8, {stored_summary({5, 7}), stored_summary({6, 8})})));
}

TEST_F(HistBufferCompress, TheSameNamesInsideAPairMakeNoDifference)
{
    write_input(2, {stored_names_record(1, {"a"}), interval(1, 2, {1}),
                    stored_names_record(3, {"a"}), interval(3, 4, {2})});
    EXPECT_THAT(merged(2),
                ElementsAre(header(2) + stored_names_record(1, {"a"}) + interval(1, 4, {1, 2})));
}

TEST_F(HistBufferCompress, NamesInARowBeforeAPairCountTheLast)
{
    write_input(2, {stored_names_record(1, {"a"}), stored_names_record(1, {"b", "c"}),
                    stored_names_record(1, {"d"}), interval(1, 2, {1}), interval(3, 4, {2})});
    EXPECT_THAT(merged(2),
                ElementsAre(header(2) + stored_names_record(1, {"d"}) + interval(1, 4, {1, 2})));
}

TEST_F(HistBufferCompress, SensorsThatChangeInEveryPair)
{
    write_input(6,
                {stored_names_record(1, {"a"}), interval(1, 2, {1}), stored_names_record(3, {"b"}),
                 interval(3, 4, {2}), stored_names_record(5, {"c"}), interval(5, 6, {3}),
                 stored_names_record(7, {"d"}), interval(7, 8, {4}), stored_names_record(9, {"a"}),
                 interval(9, 10, {5}), interval(11, 12, {6})});
    EXPECT_THAT(
        merged(6),
        ElementsAre(header(6) + stored_names_record(1, {"a", "b"}) +
                        stored_interval_record(1, 4, {stored_summary({1}), stored_summary({2})}),
                    stored_names_record(5, {"c", "d"}) +
                        stored_interval_record(5, 8, {stored_summary({3}), stored_summary({4})}),
                    stored_names_record(9, {"a"}) + interval(9, 12, {5, 6})));
}

TEST_F(HistBufferCompress, ASensorGoneInTheSecondIntervalKeepsItsSummary)
{
    write_input(2, {stored_names_record(1, {"a", "b"}),
                    stored_interval_record(1, 2, {stored_summary({1}), stored_summary({2, 3})}),
                    stored_names_record(3, {"a"}), interval(3, 4, {4})});
    EXPECT_THAT(merged(2),
                ElementsAre(header(2) + stored_names_record(1, {"a", "b"}) +
                            stored_interval_record(
                                1, 4, {stored_summary({1, 4}), stored_summary({2, 3})})));
}

TEST_F(HistBufferCompress, NamesTwiceInsideAPairAbort)
{
    write_input(2,
                {stored_names_record(1, {"a"}), interval(1, 2, {1}), stored_names_record(3, {"b"}),
                 stored_names_record(3, {"c"}), interval(3, 4, {2})});
    owned_hbuf hbuf = create_output(2);
    EXPECT_ABORTS(compress(hbuf.get()), "*names1 == state->hbuf_in->hb_rec_sensors_last");
}

TEST_F(HistBufferCompress, ASensorNamedTwiceAborts)
{
    write_input(2, {stored_names_record(1, {"a", "a"}),
                    stored_interval_record(1, 2, {stored_summary({1}), stored_summary({2})}),
                    stored_interval_record(3, 4, {stored_summary({1}), stored_summary({2})})});
    owned_hbuf hbuf = create_output(2);
    EXPECT_ABORTS(compress(hbuf.get()), "hvalue->count == 0");
}

TEST_F(HistBufferCompress, AnotherNumberOfSummariesThanSensorsGives6)
{
    write_input(4, {stored_names_record(1, {"a"}), interval(1, 2, {1}), interval(3, 4, {2}),
                    stored_interval_record(5, 6, {stored_summary({1}), stored_summary({2})}),
                    interval(7, 8, {3})});
    const std::string first = header(4) + stored_names_record(1, {"a"}) + interval(1, 4, {1, 2});
    EXPECT_THAT(merged(4, -6), ElementsAre(first));
    write_input(4, {stored_names_record(1, {"a"}), interval(1, 2, {1}), interval(3, 4, {2}),
                    interval(5, 6, {3}), stored_names_record(7, {"b", "c"}), interval(7, 8, {4})});
    EXPECT_THAT(merged(4, -6), ElementsAre(first));
}

// ---- Inputs and outputs that do not fit -------------------------------------------------------

TEST_F(HistBufferCompress, AnInputThatIsNotFullGives44BehindItsPairs)
{
    const strings records = {stored_names_record(1, {"a"}), interval(1, 2, {1}),
                             interval(3, 4, {2}), interval(5, 6, {3})};
    const std::string first = header(4) + stored_names_record(1, {"a"}) + interval(1, 4, {1, 2});
    for (const std::size_t n : {1U, 2U}) {
        write_input(4, strings(records.begin(), records.begin() + static_cast<long>(n)));
        EXPECT_THAT(merged(4, -44), ElementsAre(header(4))) << n;
    }
    for (const std::size_t n : {3U, 4U}) {
        write_input(4, strings(records.begin(), records.begin() + static_cast<long>(n)));
        EXPECT_THAT(merged(4, -44), ElementsAre(first)) << n;
    }
}

TEST_F(HistBufferCompress, NamesBehindAnUnpairedIntervalAreReleased)
{
    write_input(4, {stored_names_record(1, {"a"}), interval(1, 2, {1}), interval(3, 4, {2}),
                    interval(5, 6, {3}), stored_names_record(7, {"b"})});
    EXPECT_THAT(merged(4, -44),
                ElementsAre(header(4) + stored_names_record(1, {"a"}) + interval(1, 4, {1, 2})));
}

TEST_F(HistBufferCompress, AnInputWithoutRecordsAborts)
{
    write_input(4, {});
    owned_hbuf hbuf = create_output(4);
    EXPECT_ABORTS(compress(hbuf.get()), "*names1 != ((void *)0)");
}

TEST_F(HistBufferCompress, MoreIntervalsThanTheCapacityGive6)
{
    const strings records = {stored_names_record(1, {"a"}), interval(1, 2, {1}),
                             interval(3, 4, {2}), interval(5, 6, {3}), interval(7, 8, {4})};
    for (const std::size_t n : {4U, 5U}) {
        write_input(2, strings(records.begin(), records.begin() + static_cast<long>(n)));
        EXPECT_THAT(merged(4, -6),
                    ElementsAre(header(4) + stored_names_record(1, {"a"}) + interval(1, 4, {1, 2})))
            << n;
    }
}

TEST_F(HistBufferCompress, NamesBehindTheLastPairAreFine)
{
    write_input(2, {stored_names_record(1, {"a"}), interval(1, 2, {1}), interval(3, 4, {2}),
                    stored_names_record(5, {"b"})});
    EXPECT_THAT(merged(2),
                ElementsAre(header(2) + stored_names_record(1, {"a"}) + interval(1, 4, {1, 2})));
}

TEST_F(HistBufferCompress, TooLittleRoomGives6AndWritesNothing)
{
    write_input(4, {stored_names_record(1, {"a"}), interval(1, 2, {1}), interval(3, 4, {2}),
                    interval(5, 6, {3}), interval(7, 8, {4})});
    EXPECT_THAT(merged(1, -6), ElementsAre(header(1)));
    EXPECT_EQ(2U, merged(2).size());
    owned_hbuf hbuf = create_output(4);
    hbuf->num_data_records = 5;
    EXPECT_EQ(-6, compress(hbuf.get()));
}

TEST_F(HistBufferCompress, AFileThatCannotBeOpenedGivesItsCode)
{
    EXPECT_THAT(merged(4, -40), ElementsAre(header(4)));
    write_file(in_path_, "");
    EXPECT_THAT(merged(4, -48), ElementsAre(header(4)));
    write_file(in_path_, deflate_stream(stored_buffer_header(1, 4)));
    EXPECT_THAT(merged(4, -3), ElementsAre(header(4)));
    write_file(in_path_, deflate_stream(stored_buffer_header(7, 4)));
    EXPECT_THAT(merged(4, -4), ElementsAre(header(4)));
    write_file(in_path_, deflate_stream(stored_buffer_header(2, 3)));
    EXPECT_THAT(merged(4, -41), ElementsAre(header(4)));
}

TEST_F(HistBufferCompress, DamageGivesItsCodeBehindThePairsBefore)
{
    const std::string pair =
        header(4) + stored_names_record(1, {"a"}) + interval(1, 2, {1}) + interval(3, 4, {2});
    const std::string merged_pair =
        header(4) + stored_names_record(1, {"a"}) + interval(1, 4, {1, 2});
    const std::string third = interval(5, 6, {3});
    const std::string names = stored_names_record(7, {"b"});
    const std::vector<std::pair<std::string, int>> cases = {
        {deflate_stream(pair) + std::string(40, '\0'), -41},
        {deflate_stream(pair + third.substr(0, 30)), -48},
        {deflate_stream(pair + third) + std::string(40, '\0'), -41},
        {deflate_stream(pair + third + third.substr(0, 30)), -48},
        {deflate_stream(pair + third + names + third.substr(0, 30)), -48},
        {deflate_stream(pair + third + names.substr(0, 12)), -48},
        {deflate_stream(pair + third + stored_u32(3)), -6},
        {deflate_stream(pair + stored_u32(2) + '\3'), -12},
        {deflate_stream(pair + stored_u32(1) + '\1' + stored_timestamp(1) + '\1' + stored_u32(0)),
         -49},
    };
    for (const auto &[file, code] : cases) {
        write_file(in_path_, file);
        EXPECT_THAT(merged(4, code), ElementsAre(merged_pair)) << code;
    }
}

TEST_F(HistBufferCompress, AnOutputThatTakesNoMoreIsReported)
{
    write_input(4,
                {stored_names_record(1, {"a"}), interval(1, 2, {1}), stored_names_record(3, {"b"}),
                 interval(3, 4, {2}), interval(5, 6, {3}), interval(7, 8, {4})});
    owned_hbuf hbuf(vesk_hist_buffer_create("/dev/full", 4));
    EXPECT_EQ(-41, compress(hbuf.get()));
    EXPECT_EQ(0U, hbuf->num_data_records);
}

TEST_F(HistBufferCompress, WithoutMemoryNothingLeaks)
{
    write_input(4, {stored_names_record(1, {"a"}), interval(1, 2, {1}),
                    stored_names_record(3, {"b"}), interval(3, 4, {2}), interval(5, 6, {3}),
                    stored_names_record(7, {"c"}), interval(7, 8, {4})});
    const timestamp t = make_timestamp(1);
    const owned_hist_list list = make_list({{"z", {1}}});
    bool succeeded = false;
    for (int n = 1; !succeeded; ++n) {
        owned_hbuf hbuf = create_output(4);
        // Lets zlib take its memory: a stream that has none cannot be closed.
        vesk_hist_buffer_write_interval(hbuf.get(), &t, &t, list.get(), nullptr);
        failing_allocation fault(n);
        const int result = compress(hbuf.get());
        succeeded = !failing_allocation::happened();
        if (succeeded) {
            EXPECT_EQ(0, result);
        } else {
            EXPECT_THAT(result, testing::AnyOf(-22, -41)) << n;
        }
    }
}

// ---- Preconditions ----------------------------------------------------------------------------

TEST_F(HistBufferCompress, RequiresItsArguments)
{
    owned_hbuf hbuf = create_output(2);
    EXPECT_ABORTS(vesk_hist_buffer_compress(nullptr, hbuf.get()),
                  "hbuf_in_filename != ((void *)0)");
    EXPECT_ABORTS(vesk_hist_buffer_compress(in_path_.c_str(), nullptr), "hbuf_out != ((void *)0)");
}
