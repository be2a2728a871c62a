// Recovering a box with records that no recorder writes: their times, names, texts and types.
#include <algorithm>

#include "recovery/recover_fixture.hpp"

namespace
{

TEST_F(Recover, MendsNullTimesAndMicroseconds)
{
    make_box(2);
    append("r.1.cbuf.z", compressed_stream(stored_values_record(0, {3})));
    std::string with_microseconds = stored_values_record(1004, {4});
    with_microseconds[13] = 1;
    append("r.1.cbuf.z", compressed_stream(with_microseconds));
    EXPECT_EQ((steps{{VESK_RECOVER_MEND_TIME, "r.1.cbuf.z", 2}}), plan());
    EXPECT_EQ(2U, recover().records_mended);
    EXPECT_EQ((std::vector<float>{1, 2, 3, 4}), samples_in("r.1.cbuf.z"));
    goes_on(5);
}

TEST_F(Recover, MendsTimesOfEvents)
{
    make_box(2);
    append("r.1.cbuf.z", compressed_stream(stored_event_record(2, 0, "late")));
    EXPECT_EQ((steps{{VESK_RECOVER_MEND_TIME, "r.1.cbuf.z", 1}}), plan());
    EXPECT_EQ(1U, recover().records_mended);
    EXPECT_EQ((std::vector<std::string>{"2 late"}), events_in("r.1.cbuf.z"));
    goes_on(3);
}

TEST_F(Recover, MendsTimesOfIntervals)
{
    make_box(13);
    const std::string history = "r.4.hbuf.z";
    write_file(history,
               compressed_stream(stored_buffer_header(2, 4) + stored_names_record(1001, {"a"}) +
                                 stored_interval_record(1001, 1002, {stored_summary({1, 2})})) +
                   compressed_stream(stored_interval_record(0, 1004, {stored_summary({3, 4})})));
    const steps planned = plan();
    EXPECT_EQ(1, std::count(planned.begin(), planned.end(),
                            recover_step{VESK_RECOVER_MEND_TIME, history, 1}));
    recover();
    std::vector<long> starts;
    EXPECT_EQ(0, vesk_scan_buffer(
                     history.c_str(),
                     [](const vesk_scan_item *item, void *to) {
                         if (item->kind == VESK_SCAN_INTERVAL) {
                             static_cast<std::vector<long> *>(to)->push_back(
                                 item->interval->start.tv.tv_sec);
                         }
                         return 0;
                     },
                     &starts));
    EXPECT_EQ(4U, starts.size());
    ASSERT_LE(2U, starts.size());
    EXPECT_EQ(1001, starts[0]);
    EXPECT_EQ(1002, starts[1]); // the latest time before it
    goes_on(14);
}

TEST_F(Recover, MendsEmptyNamesAndTexts)
{
    make_box(1);
    append("r.1.cbuf.z", compressed_stream(stored_names_record(1002, {"b", ""}) +
                                           stored_values_record(1002, {2, 2})));
    append("r.1.cbuf.z", compressed_stream(stored_event_record(1, 1002, "")));
    append("r.1.cbuf.z", compressed_stream(stored_event_record(1, 1002, std::string("a\0b", 3))));
    EXPECT_EQ((steps{{VESK_RECOVER_MEND_TEXT, "r.1.cbuf.z", 3}}), plan());
    recover();
    EXPECT_EQ((std::vector<std::string>{"b", "unknown.2"}), sensors_in("r.1.cbuf.z"));
    EXPECT_EQ((std::vector<std::string>{"1 (no text)", "1 a"}), events_in("r.1.cbuf.z"));
    goes_on(3);
}

TEST_F(Recover, SetsAsideEventsThatCannotBeCounted)
{
    make_box(5);
    add_event(9, "nine");
    const std::string with_event = read_file("r.2.cbuf.z");
    EXPECT_EQ((steps{{VESK_RECOVER_SET_ASIDE, "r.2.cbuf.z", 1}}), plan());
    EXPECT_EQ(1U, recover().records_aside);
    EXPECT_TRUE(with_event.ends_with(read_file("r.2.cbuf.z.torn")));
    EXPECT_FALSE(read_file("r.2.cbuf.z.torn").empty());
    goes_on(6);
}

// A raw buffer of @p n samples, all in one stream.
std::string dense_buffer(uint32_t capacity, uint32_t n)
{
    std::string content = stored_buffer_header(1, capacity) + stored_names_record(1001, {"a"});
    for (uint32_t i = 1; i <= n; ++i) {
        content += stored_values_record(1000, {1});
    }
    return compressed_stream(content);
}

// So many records are only believed because the file is so long: it must not get shorter by what
// else is taken out of it.
TEST_F(Recover, KeepsDenseRecordsWhereTheFileLosesItsEnd)
{
    constexpr uint32_t n = 10000;
    write_file("r.1.cbuf.z", dense_buffer(n, n) + noise(8000));
    ASSERT_GT(6000U, dense_buffer(n, n).size());
    const vesk_recover_report report = recover(n, 2);
    EXPECT_EQ(n, report.samples_kept);
    EXPECT_EQ(8000U, report.bytes_aside);
    EXPECT_EQ(n, samples_in("r.1.cbuf.z").size());
    EXPECT_TRUE(noise(8000) == read_file("r.1.cbuf.z.torn"));

    const owned_recorder recorder(vesk_open("r"));
    const owned_matrix vector = make_vector(3000, {{"a", 2.0}});
    for (uint32_t i = 0; i < 2 * n + 1; ++i) {
        ASSERT_EQ(0, vesk_write_telemetry_vector(recorder.get(), vector.get()));
    }
    EXPECT_FALSE(fs::exists("r.1.cbuf.z"));
}

TEST_F(Recover, KeepsDenseRecordsWhereOthersAreTakenOut)
{
    write_file("r.1.cbuf.z", dense_buffer(30000, 20000));
    const std::size_t size = read_file("r.1.cbuf.z").size();
    const vesk_recover_report report = recover(30000, 2);
    EXPECT_LT(8192U, report.samples_kept);
    EXPECT_EQ(1U, report.records_aside);
    EXPECT_EQ(report.samples_kept, samples_in("r.1.cbuf.z").size());
    EXPECT_GE(size + 16, read_file("r.1.cbuf.z").size());
}

} // namespace
