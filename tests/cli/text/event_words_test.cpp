// Events in the words of people.
#include <gtest/gtest.h>

#include "text/event_words.hpp"
#include "text/own_events.hpp"

namespace
{

using namespace cli;

TEST(EventWords, TellWhatARecordingWrote)
{
    EXPECT_EQ(event_words("kernel priority=2 text=\"Out of memory\""), "kernel: Out of memory");
    EXPECT_EQ(event_words("start host=web-7 interval=1"), "the recording began on web-7");
    EXPECT_EQ(event_words("resume"), "the recording went on");
    EXPECT_EQ(event_words("end reason=SIGTERM"), "the recording ended (SIGTERM)");
    EXPECT_EQ(event_words("end reason=error error=\"disk gone\""),
              "the recording ended with an error: disk gone");
    EXPECT_EQ(event_words(gap_text({100, 160, 60, "killed", 0})),
              "gap of 1m: the recorder was killed");
    EXPECT_EQ(event_words("top seconds=60 processes=3 cpu1=97.5,1,a memory1=2048,2,b,c "
                          "io1=3400,3,d"),
              "most processor: a 97.5 %, memory: b,c 2 KiB, I/O: d 3.4 kB/s");
}

TEST(EventWords, TellWhoRecordsInALaterBuffer)
{
    EXPECT_EQ(event_words("machine host=web-7 boot_id=x version=1.0.0 interval=10 pid=9"),
              "still recording on web-7, every 10s");
    EXPECT_EQ(event_words("machine host=web-7"), "still recording on web-7");
    EXPECT_EQ(event_words("machine interval=3600"), "still recording, every 1h");
    EXPECT_EQ(event_words("machine"), "still recording");
    EXPECT_EQ(event_words("machine interval=-1"), "still recording");
}

TEST(EventWords, TellOfTheProgramThatGivesSensors)
{
    EXPECT_EQ(event_words("program state=started pid=12"),
              "the program of --from started (process 12)");
    EXPECT_EQ(event_words("program state=started"), "the program of --from started");
    EXPECT_EQ(event_words("program state=ended how=\"exit code 3\" pause=4"),
              "the program of --from ended (exit code 3); it is started again in 4s");
    EXPECT_EQ(event_words("program state=failed how=\"no memory\" pause=300"),
              "the program of --from cannot be started (no memory); it is tried again in 5m");
    EXPECT_EQ(event_words("program state=ended"), "the program of --from ended");
    EXPECT_EQ(event_words("program state=refused lines=1 reason=\"no time\""),
              "1 line of the program of --from refused: no time");
    EXPECT_EQ(event_words("program state=refused lines=20"),
              "20 lines of the program of --from refused");
}

TEST(EventWords, TellHowManyEventsWereLeftOut)
{
    EXPECT_EQ(event_words("omitted kernel=50"), "left out: 50 messages of the kernel");
    EXPECT_EQ(event_words("omitted kernel=1 top=2 user=1 recording=3"),
              "left out: 1 message of the kernel, 2 lists of processes, 1 event of users, 3 events "
              "of the recording");
}

TEST(EventWords, LeaveEverythingElseAsItIs)
{
    for (const char *text :
         {"door open", "", "kernel priority=2", "gap from=1", "top cpu1=x,1,a", "top cpu1=1",
          "kernel text=\"x", "program", "program state=x", "program state=refused",
          "program state=refused lines=-1", "omitted", "omitted kernel=-3", "omitted doors=3"}) {
        EXPECT_EQ(event_words(text), text);
    }
}

} // namespace
