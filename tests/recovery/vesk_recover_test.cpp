// Recovering a box: what is cut off, mended and padded in its buffers, and by which names a box is
// found.
#include <cmath>

#include "common/failing_calls.hpp"
#include "recovery/recover_fixture.hpp"

namespace
{

TEST_F(Recover, LeavesAHealthyBoxOfEveryStageAlone)
{
    for (const int last : {0, 3, 4, 5, 9, 13, 16, 17, 21}) {
        make_box(last);
        const file_names before = files();
        std::vector<std::string> contents;
        for (const std::string &name : before) {
            contents.push_back(read_file(name));
        }
        vesk_recover_report report;
        EXPECT_EQ(0, vesk_recover("r", 0, 0, &report)) << last;
        EXPECT_EQ(0U, report.steps) << last;
        EXPECT_EQ(before, files()) << last;
        std::size_t i = 0;
        for (const std::string &name : before) {
            EXPECT_EQ(contents[i++], read_file(name)) << name;
            fs::remove(name);
        }
    }
}

TEST_F(Recover, ReportsWhatIsThere)
{
    make_box(18);
    vesk_recover_report report;
    ASSERT_EQ(0, vesk_recover("r", 0, 0, &report));
    EXPECT_EQ(VESK_RECOVER_FROM_STATE, report.source);
    EXPECT_EQ(static_cast<uint32_t>(VESK_ZCF_STATE_HCC), report.state);
    EXPECT_EQ(4U, report.num_cb_samples);
    EXPECT_EQ(2U, report.num_hb_intervals);
    EXPECT_EQ(6U, report.samples_kept);
    EXPECT_EQ(4U, report.intervals_kept);
}

TEST_F(Recover, CutsATornTailAndKeepsItBeside)
{
    make_box(6);
    const std::string whole = read_file("r.2.cbuf.z");
    const std::string torn = compressed_stream(stored_values_record(1007, {7})).substr(0, 9);
    append("r.2.cbuf.z", torn);
    EXPECT_EQ((steps{{VESK_RECOVER_CUT, "r.2.cbuf.z", 0}}), plan());
    const vesk_recover_report report = recover();
    EXPECT_EQ(torn.size(), report.bytes_aside);
    EXPECT_EQ(whole, read_file("r.2.cbuf.z"));
    EXPECT_EQ(torn, read_file("r.2.cbuf.z.torn"));
    goes_on(7);
}

TEST_F(Recover, CollectsTornTailsOfOneBufferInOneFile)
{
    make_box(2);
    append("r.1.cbuf.z", "x");
    recover();
    append("r.1.cbuf.z", "yz");
    recover();
    EXPECT_EQ("xyz", read_file("r.1.cbuf.z.torn"));
}

TEST_F(Recover, BeginsTheTornFileAnewBeforeItGrowsWithoutBound)
{
    make_box(2);
    write_file("r.1.cbuf.z.torn", std::string(1 << 20, 'x'));
    append("r.1.cbuf.z", "y");
    recover();
    EXPECT_EQ("y", read_file("r.1.cbuf.z.torn"));
}

TEST_F(Recover, FindsTheStreamsBehindATornOne)
{
    make_box(2);
    append("r.1.cbuf.z", compressed_stream(stored_values_record(1003, {3})).substr(0, 7));
    append("r.1.cbuf.z", compressed_stream(stored_values_record(1004, {4})));
    recover();
    EXPECT_EQ((std::vector<float>{1, 2, 4}), samples_in("r.1.cbuf.z"));
    goes_on(5);
}

TEST_F(Recover, FindsTheStreamThatCompletesATornOneByChance)
{
    make_box(2);
    const std::string next = compressed_stream(stored_values_record(1004, {4}));
    std::string torn = event_stream_that_ends_with(4, 1003, next.substr(0, 1));
    torn.pop_back();
    append("r.1.cbuf.z", torn + next);
    EXPECT_EQ(torn.size(), recover().bytes_aside);
    EXPECT_EQ((std::vector<float>{1, 2, 4}), samples_in("r.1.cbuf.z"));
    EXPECT_EQ(torn, read_file("r.1.cbuf.z.torn"));
    goes_on(5);
}

TEST_F(Recover, GivesAnEmptyOpenBufferItsHeader)
{
    make_box(4);
    owned_recorder recorder(vesk_open("r"));
    write(recorder.get(), 5);
    recorder.reset();
    write_file("r.2.cbuf.z", "");
    EXPECT_EQ((steps{{VESK_RECOVER_ADD_HEADER, "r.2.cbuf.z", 0}}), plan());
    recover();
    goes_on(5);
}

TEST_F(Recover, TagsBareEvents)
{
    make_box(5);
    add_event(3, "hello");
    // A recorder opens a buffer with a bare event no more, so the second one is appended by hand.
    append("r.2.cbuf.z", compressed_stream(stored_event_body(1, 1501, "again")));
    EXPECT_EQ((steps{{VESK_RECOVER_TAG_EVENT, "r.2.cbuf.z", 2}}), plan());
    EXPECT_EQ(2U, recover().events_tagged);
    EXPECT_EQ((std::vector<std::string>{"3 hello", "1 again"}), events_in("r.2.cbuf.z"));
    goes_on(6);
}

TEST_F(Recover, TagsAnEventBeforeTheFirstVector)
{
    make_box(0);
    add_event(2, "first");
    append("r.1.cbuf.z",
           compressed_stream(stored_names_record(1001, {"a"}) + stored_values_record(1001, {1})));
    recover();
    EXPECT_EQ((std::vector<std::string>{"2 first"}), events_in("r.1.cbuf.z"));
    EXPECT_EQ((std::vector<std::string>{"a"}), sensors_in("r.1.cbuf.z"));
    goes_on(2);
}

TEST_F(Recover, NamesSensorsAfterTheNeighbouringBufferWhenTheirNumberAgrees)
{
    make_box(6);
    const std::string header = stored_buffer_header(1, 4);
    write_file("r.2.cbuf.z", compressed_stream(header + stored_values_record(1005, {5})));
    EXPECT_EQ((steps{{VESK_RECOVER_NAME_SENSORS, "r.2.cbuf.z", 1}}), plan());
    recover();
    EXPECT_EQ((std::vector<std::string>{"a"}), sensors_in("r.2.cbuf.z"));
    goes_on(6);
}

TEST_F(Recover, InventsNamesWhenNoNeighbourHasThem)
{
    make_box(6);
    const std::string header = stored_buffer_header(1, 4);
    write_file("r.2.cbuf.z", compressed_stream(header + stored_values_record(1005, {5, 6})));
    recover();
    EXPECT_EQ((std::vector<std::string>{"unknown.1", "unknown.2"}), sensors_in("r.2.cbuf.z"));
    goes_on(6);
}

TEST_F(Recover, PadsAFullBufferThatLostSamples)
{
    make_box(6);
    cut("r.1.cbuf.z", 3);
    EXPECT_EQ((steps{{VESK_RECOVER_CUT, "r.1.cbuf.z", 0}, {VESK_RECOVER_PAD, "r.1.cbuf.z", 1}}),
              plan());
    EXPECT_EQ(1U, recover().samples_padded);
    const std::vector<float> samples = samples_in("r.1.cbuf.z");
    ASSERT_EQ(4U, samples.size());
    EXPECT_EQ(3, samples[2]);
    EXPECT_TRUE(std::isnan(samples[3]));
    goes_on(7);
}

TEST_F(Recover, PadsAHistoryThatLostIntervals)
{
    make_box(14);
    cut("r.4.hbuf.z", 3);
    EXPECT_EQ(1U, recover().intervals_padded);
    goes_on(15);
}

TEST_F(Recover, GivesRepeatedSensorsOfAHistoryNamesOfTheirOwn)
{
    make_box(14);
    write_file("r.4.hbuf.z", compressed_stream(stored_buffer_header(2, 4) +
                                               stored_names_record(1001, {"a", "a"})));
    const std::string summary = stored_summary({1, 2});
    for (uint32_t i = 0; i < 4; ++i) {
        append("r.4.hbuf.z", compressed_stream(stored_interval_record(1001 + 2 * i, 1002 + 2 * i,
                                                                      {summary, summary})));
    }
    recover();
    EXPECT_EQ((std::vector<std::string>{"a", "a.2"}), sensors_in("r.4.hbuf.z"));
    goes_on(15);
}

TEST_F(Recover, GivesNoNameThatAnotherSensorHasOrGets)
{
    make_box(14);
    const std::string longest(10000, 'x');
    write_file("r.4.hbuf.z", compressed_stream(stored_buffer_header(2, 4) +
                                               stored_names_record(1001, {"a", "a", "a", "a.2",
                                                                          longest, longest})));
    const std::vector<std::string> summaries(6, stored_summary({1, 2}));
    for (uint32_t i = 0; i < 4; ++i) {
        append("r.4.hbuf.z",
               compressed_stream(stored_interval_record(1001 + 2 * i, 1002 + 2 * i, summaries)));
    }
    recover();
    const std::vector<std::string> found = sensors_in("r.4.hbuf.z");
    EXPECT_EQ((std::set<std::string>(found.begin(), found.end())).size(), found.size());
    EXPECT_EQ((std::vector<std::string>{"a", "a.3", "a.4", "a.2"}),
              (std::vector<std::string>(found.begin(), found.begin() + 4)));
    goes_on(15);
}

TEST_F(Recover, LeavesOneNamesRecordBetweenTwoIntervalsOfAHistory)
{
    make_box(14);
    const std::string summary = stored_summary({1, 2});
    const auto interval = [&](uint32_t start) {
        return stored_interval_record(start, start + 1, {summary});
    };
    write_file("r.4.hbuf.z",
               compressed_stream(stored_buffer_header(2, 4) + stored_names_record(1001, {"a"}) +
                                 interval(1001)) +
                   compressed_stream(stored_names_record(1003, {"b"})) +
                   compressed_stream(stored_names_record(1003, {"c"}) + interval(1003)) +
                   compressed_stream(stored_names_record(1005, {"d"})) +
                   compressed_stream(interval(1005)) + compressed_stream(interval(1007)));
    const recover_step set_aside = {VESK_RECOVER_SET_ASIDE, "r.4.hbuf.z", 1};
    EXPECT_EQ((steps{set_aside, set_aside}), plan());
    EXPECT_EQ(4U, recover().intervals_kept);
    EXPECT_EQ(compressed_stream(stored_names_record(1003, {"b"})) +
                  compressed_stream(stored_names_record(1005, {"d"})),
              read_file("r.4.hbuf.z.torn"));
    EXPECT_EQ((std::vector<std::string>{"d"}), sensors_in("r.4.hbuf.z"));
    goes_on(15);
}

TEST_F(Recover, RefusesToPadWithoutBound)
{
    make_box(6);
    write_file("r.state", "");
    for (const char *name : {"r.1.cbuf.z", "r.2.cbuf.z"}) {
        write_file(name, compressed_stream(stored_buffer_header(1, 100'000'000)));
    }
    EXPECT_EQ(QE_ERROR_LIMIT, vesk_recover("r", 0, 2, nullptr));
}

TEST_F(Recover, PadsWithOneSensorWhereMoreWouldFillTheDisk)
{
    std::vector<std::string> many;
    std::vector<float> zeros(2000, 0);
    for (int i = 0; i < 2000; ++i) {
        many.push_back("s" + std::to_string(i));
    }
    make_box(0);
    write_file("r.1.cbuf.z",
               compressed_stream(stored_buffer_header(1, 10000) + stored_names_record(1001, many) +
                                 stored_values_record(1001, zeros)));
    write_file("r.2.cbuf.z", compressed_stream(stored_buffer_header(1, 10000)));
    write_file("r.state", "");
    EXPECT_EQ(9999U, recover(0, 2).samples_padded);
    EXPECT_EQ((std::vector<std::string>{"s0"}), sensors_in("r.1.cbuf.z"));
}

TEST_F(Recover, LooksBesideTheBaseNameAndNotWhereACopyCameFrom)
{
    fs::create_directory("copy");
    make_box(6);
    const std::string original = read_file("r.2.cbuf.z");
    for (const std::string &name : files()) {
        if (name != "copy") {
            fs::copy_file(name, "copy/" + name);
        }
    }
    vesk_recover_report report;
    ASSERT_EQ(0, vesk_recover("copy/r", 4, 2, &report));
    EXPECT_EQ(1U, report.steps);
    qe_set_last_error(0);
    owned_recorder recorder(vesk_open("copy/r"));
    ASSERT_EQ(0, qe_get_last_error());
    write(recorder.get(), 7);
    EXPECT_EQ(original, read_file("r.2.cbuf.z"));
}

TEST_F(Recover, TakesABoxByAnyPathThatLeadsToIt)
{
    make_box(6);
    vesk_recover_report report;
    EXPECT_EQ(0, vesk_recover("./r", 0, 0, &report));
    EXPECT_EQ(0U, report.steps);
    EXPECT_EQ(0, vesk_recover((fs::current_path() / "r").c_str(), 0, 0, &report));
    EXPECT_EQ(0U, report.steps);
}

TEST_F(Recover, RefusesABoxThatIsNotThere)
{
    EXPECT_EQ(QE_ERROR_OPEN, vesk_recover("r", 4, 2, nullptr));
    EXPECT_EQ(QE_ERROR_OPEN, vesk_recover("no/folder", 4, 2, nullptr));
    EXPECT_EQ(QE_ERROR_LIMIT,
              vesk_recover(std::string(VESK_MAX_BASE_LENGTH + 1, 'r').c_str(), 4, 2, nullptr));
    EXPECT_EQ((file_names{}), files());
}

TEST_F(Recover, TakesTheLongestNameOfABox)
{
    std::string base = "r";
    while (base.size() + 2 <= VESK_MAX_BASE_LENGTH) {
        base.insert(0, "./");
    }
    ASSERT_EQ(static_cast<std::size_t>(VESK_MAX_BASE_LENGTH), base.size());
    owned_recorder recorder(vesk_create(base.c_str(), 4, 2));
    ASSERT_TRUE(recorder);
    // The longest number that a name can have.
    recorder->next_file_number = 4294967290;
    for (int i = 1; i <= 10; ++i) {
        write(recorder.get(), i);
    }
    recorder.reset();
    EXPECT_EQ(1U, files().count("r.4294967291.cbuf.z"));
    append("r.4294967291.cbuf.z", "torn");
    vesk_recover_report report;
    EXPECT_EQ(0, vesk_recover(base.c_str(), 0, 0, &report));
    EXPECT_EQ(10U, report.samples_kept);
    qe_set_last_error(0);
    recorder.reset(vesk_open(base.c_str()));
    EXPECT_EQ(0, qe_get_last_error());
}

TEST_F(Recover, TellsAFolderThatCannotBeReadFromABoxThatIsNotThere)
{
    make_box(6);
    const failing_call failing(call_kind::open, 1);
    EXPECT_EQ(QE_ERROR_IO, vesk_recover("r", 4, 2, nullptr));
}

TEST_F(Recover, RefusesMoreIntervalsThanAHistoryHolds)
{
    write_file("r.state", "");
    EXPECT_EQ(QE_ERROR_LIMIT, vesk_recover("r", 65536, 65536, nullptr));
}

TEST_F(Recover, PassesOnWhatTheVisitorReturns)
{
    make_box(2);
    append("r.1.cbuf.z", "x");
    const auto stop = [](const vesk_recover_step *, void *) { return 7; };
    EXPECT_EQ(7, vesk_recover_plan("r", 0, 0, stop, nullptr, nullptr));
}

TEST_F(Recover, KeepsNoFileOpen)
{
    make_box(18);
    append("r.7.cbuf.z", "x");
    cut("r.6.hbuf.z", 2);
    const std::ptrdiff_t before = count_open_files();
    recover();
    EXPECT_EQ(before, count_open_files());
}

TEST_F(Recover, RequiresAName)
{
    EXPECT_ABORTS(vesk_recover(nullptr, 0, 0, nullptr), "filename != ((void *)0)");
    EXPECT_ABORTS(vesk_recover("", 0, 0, nullptr), "filename[0] != 0");
    EXPECT_ABORTS(vesk_recover_plan(nullptr, 0, 0, nullptr, nullptr, nullptr),
                  "filename != ((void *)0)");
    EXPECT_ABORTS(vesk_recover_plan("", 0, 0, nullptr, nullptr, nullptr), "filename[0] != 0");
}

} // namespace
