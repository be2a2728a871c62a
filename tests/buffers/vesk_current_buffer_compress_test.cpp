// Summing up a current buffer as intervals of a history: its sensors, its events, and files that
// are short, long or damaged.
#include <string>
#include <vector>

#include <vesk/error.h>
#include <vesk/sensor_value.h>
#include <vesk/vesk_current_buffer.h>
#include <vesk/vesk_current_buffer_compress.h>
#include <vesk/vesk_hist_buffer.h>

#include "common/aborts.hpp"
#include "common/buffer_files.hpp"
#include "common/failing_calls.hpp"
#include "common/file_size_limit.hpp"
#include "common/history.hpp"
#include "common/open_files.hpp"
#include "common/telemetry.hpp"
#include "common/temporary_directory.hpp"
#include "common/zlib_streams.hpp"
#include "support/owner.hpp"

using testing::ElementsAre;

namespace
{

using owned_cbuf = owned<vesk_current_buffer, vesk_current_buffer_close>;
using owned_hbuf = owned<vesk_hist_buffer, vesk_hist_buffer_close>;
using string_list = std::vector<std::string>;

class CurrentBufferCompress : public testing::Test
{
protected:
    // Makes a file of raw samples of these records.
    void write_samples(uint32_t capacity, const string_list &records)
    {
        std::string content = stored_buffer_header(1, capacity);
        for (const std::string &record : records) {
            content += record;
        }
        write_file(cbuf_path_, deflate_stream(content));
    }
    owned_hbuf create_history(uint32_t capacity)
    {
        return owned_hbuf(vesk_hist_buffer_create(hbuf_path_.c_str(), capacity));
    }
    int compress(vesk_hist_buffer *hbuf, uint32_t samples_per_interval)
    {
        const auto before = count_open_files();
        const int result =
            vesk_current_buffer_compress(cbuf_path_.c_str(), hbuf, samples_per_interval);
        EXPECT_EQ(before, count_open_files());
        return result;
    }
    // The intervals that come of the samples, with the history's header in front.
    string_list history(uint32_t capacity, uint32_t samples_per_interval, int expected = 0)
    {
        owned_hbuf hbuf = create_history(capacity);
        EXPECT_EQ(expected, compress(hbuf.get(), samples_per_interval));
        hbuf.reset();
        return zlib_contents(read_file(hbuf_path_));
    }

    temporary_directory directory_;
    std::string cbuf_path_ = directory_.file("r.1.cbuf.z");
    std::string hbuf_path_ = directory_.file("r.4.hbuf.z");
};

std::string header(uint32_t capacity)
{
    return stored_buffer_header(2, capacity);
}

} // namespace

TEST_F(CurrentBufferCompress, FourSamplesByTwoAreTwoIntervals)
{
    write_samples(4, {stored_names_record(10, {"a", "b"}), stored_values_record(10, {1, 4}),
                      stored_values_record(11, {2, 3}), stored_values_record(12, {-5, 0.5F}),
                      stored_values_record(13, {7, 0.25F})});
    const std::string before = read_file(cbuf_path_);
    EXPECT_THAT(history(2, 2),
                ElementsAre(header(2) + stored_names_record(10, {"a", "b"}) +
                                stored_interval_record(
                                    10, 11, {stored_summary({1, 2}), stored_summary({4, 3})}),
                            stored_interval_record(
                                12, 13, {stored_summary({-5, 7}), stored_summary({0.5F, 0.25F})})));
    EXPECT_EQ(before, read_file(cbuf_path_)) << "the samples are only read";
}

TEST_F(CurrentBufferCompress, ASampleCanBeAnInterval)
{
    write_samples(2, {stored_names_record(10, {"a"}), stored_values_record(10, {1}),
                      stored_values_record(11, {2})});
    EXPECT_THAT(history(2, 1),
                ElementsAre(header(2) + stored_names_record(10, {"a"}) +
                                stored_interval_record(10, 10, {stored_summary({1})}),
                            stored_interval_record(11, 11, {stored_summary({2})})));
}

TEST_F(CurrentBufferCompress, TheHistoryStaysOpenForMore)
{
    write_samples(2, {stored_names_record(10, {"a"}), stored_values_record(10, {1}),
                      stored_values_record(11, {2})});
    owned_hbuf hbuf = create_history(4);
    EXPECT_EQ(0, compress(hbuf.get(), 2));
    EXPECT_EQ(1U, hbuf->num_data_records);
    write_samples(2, {stored_names_record(12, {"a"}), stored_values_record(12, {3}),
                      stored_values_record(13, {4})});
    EXPECT_EQ(0, compress(hbuf.get(), 2));
    EXPECT_EQ(2U, hbuf->num_data_records);
    EXPECT_EQ(stored_interval_record(12, 13, {stored_summary({3, 4})}),
              zlib_contents(read_file(hbuf_path_)).back());
}

TEST_F(CurrentBufferCompress, TooLittleRoomGives6AndWritesNothing)
{
    write_samples(4, {stored_names_record(10, {"a"}), stored_values_record(10, {1}),
                      stored_values_record(11, {1}), stored_values_record(12, {1}),
                      stored_values_record(13, {1})});
    EXPECT_THAT(history(1, 2, -6), ElementsAre(header(1)));
}

TEST_F(CurrentBufferCompress, AHistoryBeyondItsCapacityHasNoRoom)
{
    write_samples(2, {});
    owned_hbuf hbuf = create_history(2);
    hbuf->num_data_records = 3;
    EXPECT_EQ(-6, compress(hbuf.get(), 2));
}

TEST_F(CurrentBufferCompress, ACapacityThatIsNoMultipleGives6AndWritesNothing)
{
    write_samples(4, {stored_names_record(10, {"a"}), stored_values_record(10, {1})});
    EXPECT_THAT(history(9, 3, -6), ElementsAre(header(9)));
    EXPECT_THAT(history(9, 8, -6), ElementsAre(header(9)));
}

TEST_F(CurrentBufferCompress, AFileThatCannotBeOpenedGivesItsCode)
{
    EXPECT_THAT(history(2, 2, -40), ElementsAre(header(2)));
    write_file(cbuf_path_, "");
    EXPECT_THAT(history(2, 2, -48), ElementsAre(header(2)));
    write_file(cbuf_path_, deflate_stream(stored_buffer_header(2, 2)));
    EXPECT_THAT(history(2, 2, -3), ElementsAre(header(2)));
    write_file(cbuf_path_, deflate_stream(stored_buffer_header(3, 2)));
    EXPECT_THAT(history(2, 2, -4), ElementsAre(header(2)));
    write_file(cbuf_path_, deflate_stream(stored_buffer_header(1, 3)));
    EXPECT_THAT(history(2, 3, -41), ElementsAre(header(2)));
}

TEST_F(CurrentBufferCompress, AFileWithoutSamplesGivesNoInterval)
{
    write_samples(2, {});
    EXPECT_THAT(history(2, 2), ElementsAre(header(2)));
    write_samples(2, {stored_names_record(1, {"a"})});
    EXPECT_THAT(history(2, 2), ElementsAre(header(2)));
}

// ---- Sensors ----------------------------------------------------------------------------------

TEST_F(CurrentBufferCompress, ASensorWithoutValidValuesIsThereWithoutSamples)
{
    write_samples(2, {stored_names_record(10, {"a", "b"}),
                      stored_values_record(10, {1, _qe_invalid_sensor_value}),
                      stored_values_record(11, {2, _qe_invalid_sensor_value})});
    EXPECT_THAT(
        history(2, 2),
        ElementsAre(header(2) + stored_names_record(10, {"a", "b"}) +
                    stored_interval_record(10, 11, {stored_summary({1, 2}), stored_summary({})})));
}

TEST_F(CurrentBufferCompress, AFileOfNothingButMissingValuesStillHasIntervals)
{
    const float missing = _qe_invalid_sensor_value;
    write_samples(4, {stored_names_record(10, {"a"}), stored_values_record(10, {missing}),
                      stored_values_record(11, {missing}), stored_values_record(12, {missing}),
                      stored_values_record(13, {missing})});
    EXPECT_THAT(history(2, 2), ElementsAre(header(2) + stored_names_record(10, {"a"}) +
                                               stored_interval_record(10, 11, {stored_summary({})}),
                                           stored_interval_record(12, 13, {stored_summary({})})));
}

TEST_F(CurrentBufferCompress, MissingValuesAreSkippedOneByOne)
{
    const float missing = _qe_invalid_sensor_value;
    write_samples(4, {stored_names_record(10, {"a"}), stored_values_record(10, {missing}),
                      stored_values_record(11, {3}), stored_values_record(12, {missing}),
                      stored_values_record(13, {1})});
    EXPECT_THAT(history(1, 4),
                ElementsAre(header(1) + stored_names_record(10, {"a"}) +
                            stored_interval_record(10, 13, {stored_summary({3, 1})})));
}

TEST_F(CurrentBufferCompress, SensorsThatChangeInsideAnIntervalGiveTheUnion)
{
    write_samples(4, {stored_names_record(10, {"c", "a"}), stored_values_record(10, {1, 2}),
                      stored_names_record(11, {"b", "c"}), stored_values_record(11, {3, 4}),
                      stored_values_record(12, {5, 6}), stored_values_record(13, {7, 8})});
    EXPECT_THAT(
        history(2, 2),
        ElementsAre(
            header(2) + stored_names_record(10, {"a", "b", "c"}) +
                stored_interval_record(
                    10, 11, {stored_summary({2}), stored_summary({3}), stored_summary({1, 4})}),
            stored_names_record(12, {"b", "c"}) +
                stored_interval_record(12, 13, {stored_summary({5, 7}), stored_summary({6, 8})})));
}

TEST_F(CurrentBufferCompress, NamesAtAnIntervalsEndDoNotTouchIt)
{
    write_samples(2, {stored_names_record(10, {"a"}), stored_values_record(10, {1}),
                      stored_names_record(11, {"b"}), stored_values_record(11, {2})});
    EXPECT_THAT(history(2, 1),
                ElementsAre(header(2) + stored_names_record(10, {"a"}) +
                                stored_interval_record(10, 10, {stored_summary({1})}),
                            stored_names_record(11, {"b"}) +
                                stored_interval_record(11, 11, {stored_summary({2})})));
}

TEST_F(CurrentBufferCompress, ASensorNamedTwiceGetsBothValues)
{
    write_samples(2, {stored_names_record(10, {"a", "a"}), stored_values_record(10, {1, 2}),
                      stored_values_record(11, {3, 4})});
    EXPECT_THAT(history(1, 2),
                ElementsAre(header(1) + stored_names_record(10, {"a"}) +
                            stored_interval_record(10, 11, {stored_summary({1, 2, 3, 4})})));
}

TEST_F(CurrentBufferCompress, AnotherNumberOfValuesThanSensorsGives6)
{
    write_samples(4, {stored_names_record(10, {"a", "b"}), stored_values_record(10, {1, 2}),
                      stored_values_record(11, {3, 4}), stored_values_record(12, {5, 6}),
                      stored_values_record(13, {7})});
    // The sample that does not fit moves the end of the short interval, but adds no value.
    EXPECT_THAT(
        history(2, 2, -6),
        ElementsAre(
            header(2) + stored_names_record(10, {"a", "b"}) +
                stored_interval_record(10, 11, {stored_summary({1, 3}), stored_summary({2, 4})}),
            stored_interval_record(12, 13, {stored_summary({5}), stored_summary({6})})));
}

TEST_F(CurrentBufferCompress, AFirstSampleThatDoesNotFitLeavesNoInterval)
{
    write_samples(4, {stored_names_record(10, {"a"}), stored_values_record(10, {1}),
                      stored_values_record(11, {2}), stored_values_record(12, {3, 4})});
    EXPECT_THAT(history(2, 2, -6),
                ElementsAre(header(2) + stored_names_record(10, {"a"}) +
                            stored_interval_record(10, 11, {stored_summary({1, 2})})));
}

// ---- Events -----------------------------------------------------------------------------------

TEST_F(CurrentBufferCompress, EventsAreCountedByTypeInTheIntervalThatIsOpen)
{
    write_samples(4, {stored_names_record(10, {"a"}), stored_event_record(1, 9, "before the first"),
                      stored_values_record(10, {1}), stored_event_record(2, 10, "x"),
                      stored_event_record(2, 10, "x"), stored_values_record(11, {2}),
                      stored_event_record(3, 11, "behind the last sample"),
                      stored_values_record(12, {3}), stored_event_record(4, 12, "x"),
                      stored_event_record(5, 12, "x"), stored_values_record(13, {4}),
                      stored_event_record(1, 14, "behind everything")});
    EXPECT_THAT(
        history(2, 2),
        ElementsAre(header(2) + stored_names_record(10, {"a"}) +
                        stored_interval_record(10, 11, {stored_summary({1, 2})}, {1, 2, 0, 0, 0}),
                    stored_interval_record(12, 13, {stored_summary({3, 4})}, {0, 0, 1, 1, 1})));
}

TEST_F(CurrentBufferCompress, EventsWrittenAsTaggedRecordsAreCounted)
{
    {
        const owned_cbuf cbuf(vesk_current_buffer_create(cbuf_path_.c_str(), 2));
        const owned_event event = make_event(4, 10, "x");
        vesk_cb_record rec;
        vesk_cb_record_init_event(&rec, event.get());
        for (const long t : {10, 11}) {
            const owned_matrix vector = make_vector(t, {{"a", 1.0}});
            EXPECT_EQ(0, vesk_current_buffer_write_telemetry_vector(cbuf.get(), vector.get()));
            if (t == 10) {
                EXPECT_LE(0, binary_serializer_write_vesk_cb_record(&rec, cbuf->writer));
                EXPECT_LE(0, writer_flush(cbuf->writer));
            }
        }
    }
    EXPECT_THAT(history(1, 2), ElementsAre(header(1) + stored_names_record(10, {"a"}) +
                                           stored_interval_record(10, 11, {stored_summary({1, 1})},
                                                                  {0, 0, 0, 1, 0})));
}

TEST_F(CurrentBufferCompress, ABareEventGives6BehindWhatWasReadBefore)
{
    {
        const owned_cbuf cbuf(vesk_current_buffer_create(cbuf_path_.c_str(), 4));
        const owned_event event = make_event(1, 12, "wall");
        for (const long t : {10, 11, 12, 13}) {
            const owned_matrix vector = make_vector(t, {{"a", static_cast<double>(t)}});
            EXPECT_EQ(0, vesk_current_buffer_write_telemetry_vector(cbuf.get(), vector.get()));
            if (t == 12) {
                EXPECT_EQ(0, vesk_current_buffer_write_event(cbuf.get(), event.get()));
            }
        }
    }
    EXPECT_THAT(history(2, 2, -6),
                ElementsAre(header(2) + stored_names_record(10, {"a"}) +
                                stored_interval_record(10, 11, {stored_summary({10, 11})}),
                            stored_interval_record(12, 12, {stored_summary({12})})));
}

TEST_F(CurrentBufferCompress, AnEventOfAnotherTypeAborts)
{
    for (const uint32_t type : {0U, 6U, UINT32_MAX}) {
        write_samples(2, {stored_names_record(10, {"a"}), stored_event_record(type, 10, "x")});
        owned_hbuf hbuf = create_history(2);
        EXPECT_ABORTS(compress(hbuf.get(), 2), "0");
    }
}

// ---- Short, long and damaged files ------------------------------------------------------------

TEST_F(CurrentBufferCompress, AnUnfinishedIntervalIsWrittenShort)
{
    write_samples(4, {stored_names_record(10, {"a"}), stored_values_record(10, {1}),
                      stored_values_record(11, {2}), stored_values_record(12, {3}),
                      stored_event_record(5, 12, "x")});
    EXPECT_THAT(
        history(2, 2),
        ElementsAre(header(2) + stored_names_record(10, {"a"}) +
                        stored_interval_record(10, 11, {stored_summary({1, 2})}),
                    stored_interval_record(12, 12, {stored_summary({3})}, {0, 0, 0, 0, 1})));
}

TEST_F(CurrentBufferCompress, EventsAloneMakeNoInterval)
{
    write_samples(2, {stored_names_record(10, {"a"}), stored_event_record(1, 10, "x")});
    EXPECT_THAT(history(2, 2), ElementsAre(header(2)));
}

TEST_F(CurrentBufferCompress, MoreSamplesThanTheCapacityGive6)
{
    write_samples(2, {stored_names_record(10, {"a"}), stored_values_record(10, {1}),
                      stored_values_record(11, {2}), stored_values_record(12, {3}),
                      stored_values_record(13, {4})});
    // One too many is read; where there is room it is kept.
    EXPECT_THAT(history(2, 2, -6),
                ElementsAre(header(2) + stored_names_record(10, {"a"}) +
                                stored_interval_record(10, 11, {stored_summary({1, 2})}),
                            stored_interval_record(12, 12, {stored_summary({3})})));
    EXPECT_THAT(history(1, 2, -6),
                ElementsAre(header(1) + stored_names_record(10, {"a"}) +
                            stored_interval_record(10, 11, {stored_summary({1, 2})})));
}

TEST_F(CurrentBufferCompress, WhatWasReadBeforeDamageIsWritten)
{
    const std::string good = stored_buffer_header(1, 4) + stored_names_record(10, {"a"}) +
                             stored_values_record(10, {1}) + stored_values_record(11, {2}) +
                             stored_values_record(12, {3});
    const std::string last = stored_values_record(13, {4});
    const std::vector<std::pair<std::string, int>> cases = {
        {deflate_stream(good) + std::string(40, '\0'), -41},
        {deflate_stream(good + last.substr(0, 10)), -48},
        {deflate_stream(good + stored_u32(9)), -6},
        {deflate_stream(good + stored_u32(2) + '\2'), -12},
    };
    for (const auto &[file, code] : cases) {
        write_file(cbuf_path_, file);
        EXPECT_THAT(history(2, 2, code),
                    ElementsAre(header(2) + stored_names_record(10, {"a"}) +
                                    stored_interval_record(10, 11, {stored_summary({1, 2})}),
                                stored_interval_record(12, 12, {stored_summary({3})})))
            << code;
    }
}

TEST_F(CurrentBufferCompress, AHistoryThatTakesNoMoreIsReported)
{
    write_samples(4, {stored_names_record(10, {"a"}), stored_values_record(10, {1}),
                      stored_values_record(11, {2}), stored_values_record(12, {3}),
                      stored_values_record(13, {4})});
    owned_hbuf hbuf(vesk_hist_buffer_create("/dev/full", 2));
    EXPECT_EQ(-41, compress(hbuf.get(), 2));
    EXPECT_EQ(0U, hbuf->num_data_records);
    // A short interval at the end that cannot be written is the result when all went well before.
    write_samples(4, {stored_names_record(10, {"a"}), stored_values_record(10, {1})});
    EXPECT_EQ(-41, compress(hbuf.get(), 2));
    EXPECT_EQ(0U, hbuf->num_data_records);
}

TEST_F(CurrentBufferCompress, WithoutMemoryNothingLeaks)
{
    write_samples(2, {stored_names_record(10, {"a", "b"}), stored_values_record(10, {1, 2}),
                      stored_event_record(1, 10, "x"), stored_names_record(11, {"c"}),
                      stored_values_record(11, {3})});
    const timestamp t = make_timestamp(1);
    const owned_hist_list list = make_list({{"z", {1}}});
    bool succeeded = false;
    for (int n = 1; !succeeded; ++n) {
        owned_hbuf hbuf = create_history(2);
        // Lets zlib take its memory: a stream that has none cannot be closed.
        vesk_hist_buffer_write_interval(hbuf.get(), &t, &t, list.get(), nullptr);
        failing_allocation fault(n);
        const int result = compress(hbuf.get(), 2);
        succeeded = !failing_allocation::happened();
        if (succeeded) {
            EXPECT_EQ(0, result);
        } else {
            // Without the memory for columns it goes on.
            EXPECT_THAT(result, testing::AnyOf(-22, -41, 0)) << n;
        }
        if (result == 0) {
            EXPECT_EQ(2U, hbuf->num_data_records) << n;
        }
    }
}

// ---- Preconditions ----------------------------------------------------------------------------

TEST_F(CurrentBufferCompress, RequiresItsArguments)
{
    owned_hbuf hbuf = create_history(2);
    const char *path = cbuf_path_.c_str();
    EXPECT_ABORTS(vesk_current_buffer_compress(nullptr, hbuf.get(), 2),
                  "cbuf_filename != ((void *)0)");
    EXPECT_ABORTS(vesk_current_buffer_compress(path, nullptr, 2), "hbuf != ((void *)0)");
    EXPECT_ABORTS(vesk_current_buffer_compress(path, hbuf.get(), 0), "samples_per_hb_interval > 0");
}

TEST_F(CurrentBufferCompress, AnIntervalAtSecondZeroAborts)
{
    owned_hbuf hbuf = create_history(2);
    write_samples(2, {stored_names_record(1, {"a"}), stored_values_record(0, {1}),
                      stored_values_record(1, {1})});
    EXPECT_ABORTS(compress(hbuf.get(), 2), "!timestamp_is_null (&state->start)");
    write_samples(2, {stored_names_record(1, {"a"}), stored_values_record(1, {1}),
                      stored_values_record(0, {1})});
    EXPECT_ABORTS(compress(hbuf.get(), 2), "!timestamp_is_null (&state->end)");
    // Inside an interval no time is kept.
    write_samples(4, {stored_names_record(1, {"a"}), stored_values_record(1, {1}),
                      stored_values_record(0, {1}), stored_values_record(0, {1}),
                      stored_values_record(4, {1})});
    EXPECT_EQ(0, compress(hbuf.get(), 4));
}
