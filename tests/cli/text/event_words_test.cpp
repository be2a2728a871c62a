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

TEST(EventWords, LeaveEverythingElseAsItIs)
{
    for (const char *text :
         {"door open", "", "kernel priority=2", "gap from=1", "top cpu1=x,1,a", "top cpu1=1",
          "machine host=one", "omitted kernel=3", "kernel text=\"x"}) {
        EXPECT_EQ(event_words(text), text);
    }
}

} // namespace
