// Events of a recorder: which buffer takes them, how they are counted, and what an event costs.

#include "common/file_size_limit.hpp"
#include "common/memory_streams.hpp"
#include "recorder/recorder_fixture.hpp"

TEST_F(Recorder, EventsGoToTheOpenBufferAndNeverRotate)
{
    owned_recorder recorder = create_with(4);
    EXPECT_EQ(0, write_event(recorder.get()));
    EXPECT_EQ(0, write_event(recorder.get()));
    EXPECT_EQ(1U, recorder->state);
    recorder.reset();
    EXPECT_EQ(stored_cbuf(1, 4) + stored_event_body(3, 1000, "text") +
                  stored_event_body(3, 1000, "text"),
              content("r.1.cbuf.z"));
}

TEST_F(Recorder, EventsAreTakenInEveryStage)
{
    for (const int vectors : {1, 5, 9, 13}) {
        owned_recorder recorder = create_with(vectors);
        EXPECT_EQ(0, write_event(recorder.get())) << vectors;
    }
}

TEST_F(Recorder, ATextThatIsTooLongIsRefused)
{
    const owned_recorder recorder = create();
    const owned_event event = make_event(3, 1000, std::string(10001, 'x'));
    EXPECT_EQ(-49, vesk_write_event(recorder.get(), event.get()));
}

TEST_F(Recorder, AnEventKeepsItsBufferFromBeingSummarised)
{
    owned_recorder recorder = create_with(2);
    EXPECT_EQ(0, write_event(recorder.get()));
    write_all(recorder.get(), 3, 12);
    const std::string before = state();
    EXPECT_EQ(-6, write(recorder.get(), 13));
    EXPECT_EQ(-6, write(recorder.get(), 13));
    EXPECT_EQ(3U, recorder->state);
    EXPECT_EQ(
        (name_set{"r.state", "r.1.cbuf.z", "r.2.cbuf.z", "r.3.cbuf.z", "r.4.hbuf.z", "r.5.hbuf.z"}),
        files())
        << "each attempt leaves a history behind, and no buffer is lost";
    EXPECT_EQ(before, state());
    EXPECT_EQ(stored_hbuf_head() + stored_interval(1, 2), content("r.5.hbuf.z"));
}

TEST_F(Recorder, ARestartDoesNotHelpASummaryThatFails)
{
    owned_recorder recorder = create_with(2);
    EXPECT_EQ(0, write_event(recorder.get()));
    write_all(recorder.get(), 3, 12);
    EXPECT_EQ(-6, write(recorder.get(), 13));
    recorder.reset();
    recorder.reset(vesk_open("r"));
    EXPECT_EQ(-6, write(recorder.get(), 13));
    EXPECT_EQ((name_set{"r.state", "r.1.cbuf.z", "r.2.cbuf.z", "r.3.cbuf.z", "r.4.hbuf.z"}),
              files())
        << "numbers count from the state file again";
}

TEST_F(Recorder, AnEventInTheSecondStretchStopsTheLaterRotation)
{
    const owned_recorder recorder = create_with(first_in_hcc);
    EXPECT_EQ(0, write_event(recorder.get()));
    write_all(recorder.get(), 14, 20);
    for (int attempt = 0; attempt < 3; ++attempt) {
        EXPECT_EQ(-6, write(recorder.get(), 21));
    }
    EXPECT_EQ((name_set{"r.state", "r.6.hbuf.z", "r.5.cbuf.z", "r.7.cbuf.z", "r.8.hbuf.z",
                        "r.9.hbuf.z", "r.10.hbuf.z"}),
              files());
    EXPECT_EQ(4U, recorder->state);
}

TEST_F(Recorder, ARecorderWhoseOpenBufferHasAnEventOpensOnlyInPart)
{
    owned_recorder recorder = create_with(2);
    EXPECT_EQ(0, write_event(recorder.get()));
    recorder.reset();
    qe_set_last_error(0);
    const owned_recorder in_part = open();
    ASSERT_TRUE(in_part);
    EXPECT_EQ(-6, qe_get_last_error());
    EXPECT_EQ(1U, in_part->state);
    EXPECT_ABORTS(write(in_part.get(), 3), "cbuf0 != ((void *)0)");
    EXPECT_ABORTS(write_event(in_part.get()), "cbuf0 != ((void *)0)");
}

TEST_F(Recorder, TaggedEventsAreTakenInEveryStageAndNeverRotate)
{
    for (const int vectors : {1, 4, 5, 8, 9, 12, 13, 16, 17, 20}) {
        owned_recorder recorder = create_with(vectors);
        const std::string before = state();
        EXPECT_EQ(0, write_tagged(recorder.get(), 1, vectors)) << vectors;
        EXPECT_EQ(before, state()) << vectors;
        recorder.reset();
        qe_set_last_error(0);
        recorder = open();
        EXPECT_EQ(0, qe_get_last_error()) << vectors;
        EXPECT_EQ(0, write_tagged(recorder.get(), 1, vectors)) << vectors;
        write_all(recorder.get(), vectors + 1, vectors + 13);
    }
}

TEST_F(Recorder, TaggedEventsAreCountedThroughTheRotations)
{
    owned_recorder recorder = create();
    for (int i = 1; i <= first_in_hcc; ++i) {
        EXPECT_EQ(0, write(recorder.get(), i));
        // Types 1 to 5 in turn, each behind a vector.
        EXPECT_EQ(0, write_tagged(recorder.get(), static_cast<uint32_t>((i - 1) % 5 + 1), i)) << i;
    }
    // An event behind the second vector of an interval belongs to the next interval of its buffer,
    // and behind the last vector there is none.
    const auto interval = [](int from, const event_counts &events) {
        return stored_interval_record(
            static_cast<uint32_t>(1000 + from), static_cast<uint32_t>(1000 + from + 1),
            {stored_summary({static_cast<float>(from), static_cast<float>(from + 1)})}, events);
    };
    EXPECT_EQ(stored_hbuf_head() + interval(1, {.type1 = 1}) +
                  interval(3, {.type2 = 1, .type3 = 1}) + interval(5, {.type5 = 1}) +
                  interval(7, {.type1 = 1, .type2 = 1}),
              content("r.4.hbuf.z"));
    write_all(recorder.get(), 14, first_after_hcc);
    const std::string history = content("r.6.hbuf.z");
    // The first two intervals have become one, with the events of both.
    const std::string merged_events =
        "\1" + stored_u32(1) + stored_u32(0) + stored_u32(1) + stored_u32(1) + stored_u32(0);
    EXPECT_NE(std::string::npos, history.find(merged_events));
    write_all(recorder.get(), first_after_hcc + 1, 60);
}

TEST_F(Recorder, ATaggedEventNeedsAVectorBeforeIt)
{
    owned_recorder recorder = create();
    EXPECT_EQ(-4, write_tagged(recorder.get(), 1, 0));
    recorder.reset();
    recorder = open();
    EXPECT_EQ(-4, write_tagged(recorder.get(), 1, 0));
    write_all(recorder.get(), 1, 1);
    EXPECT_EQ(0, write_tagged(recorder.get(), 1, 1));
    recorder.reset();
    EXPECT_EQ(stored_buffer_header(1, 4) + stored_names_record(1001, {"a"}) + stored_sample(1) +
                  stored_event_record(1, 1001, "text"),
              content("r.1.cbuf.z"));
}

TEST_F(Recorder, ATaggedEventThatCouldNotBeReadIsRefused)
{
    owned_recorder recorder = create_with(1);
    const std::string before = read_file("r.1.cbuf.z");
    EXPECT_EQ(-6, write_tagged(recorder.get(), 6, 1));
    EXPECT_EQ(-6, write_tagged(recorder.get(), 1, -1000));
    EXPECT_EQ(-6, write_tagged(recorder.get(), 1, 1, ""));
    EXPECT_EQ(-49, write_tagged(recorder.get(), 1, 1, std::string(10001, 'x')));
    recorder.reset();
    EXPECT_EQ(before, read_file("r.1.cbuf.z"));
}

TEST_F(Recorder, ATaggedEventThatDoesNotReachTheFileIsAFailure)
{
    owned_recorder recorder = create_with(2);
    {
        const file_size_limit full(static_cast<std::size_t>(fs::file_size("r.1.cbuf.z")));
        EXPECT_EQ(-41, write_tagged(recorder.get(), 1, 2));
    }
    EXPECT_EQ(0, write_tagged(recorder.get(), 1, 2));
    write_all(recorder.get(), 3, 20);
}

TEST_F(Recorder, ATaggedEventNeedsItsBuffer)
{
    owned_recorder recorder = create_with(2);
    EXPECT_EQ(0, write_event(recorder.get()));
    recorder.reset();
    const owned_recorder in_part = open();
    EXPECT_ABORTS(write_tagged(in_part.get(), 1, 1), "cbuf != ((void *)0)");
    EXPECT_ABORTS(vesk_sync(in_part.get()), "cbuf != ((void *)0)");
}
