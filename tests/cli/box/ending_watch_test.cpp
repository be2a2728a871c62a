// How a box ended, and the sentence that says so.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "box/ending_watch.hpp"
#include "cli/usual_values.hpp"

namespace
{

using namespace cli;
using ::testing::HasSubstr;
using ::testing::Not;
using ended_how = box_ending::how;

constexpr int64_t end_of_night = 1795235971; // 2026-11-21T04:39:31Z

ending_watch machine_that_died()
{
    ending_watch watch;
    watch.take_event(end_of_night - 600, "start host=one " + boot);
    watch.take_event(end_of_night - 14, "kernel priority=2 text=\"Out of memory\"");
    watch.take_sample(end_of_night);
    return watch;
}

std::string sentence(const ending_watch &watch, bool is_written = false)
{
    return sentence_of(watch.result(is_written), zone::utc);
}

TEST(Ending, WithoutACleanStopTellsTheLastWordsOfTheKernel)
{
    EXPECT_EQ(
        sentence(machine_that_died()),
        "ended without a clean stop on 21 November 2026 04:39:31 UTC; 14 s before, the kernel "
        "reported: Out of memory");
}

TEST(Ending, WordsOfTheKernelThatAreFarAwayAreNotTold)
{
    ending_watch watch = machine_that_died();
    watch.take_sample(end_of_night + 7200);
    EXPECT_EQ(sentence(watch), "ended without a clean stop on 21 November 2026 06:39:31 UTC");
    watch = machine_that_died();
    watch.take_sample(end_of_night + 76);
    EXPECT_THAT(sentence(watch), HasSubstr("; 1m30s before, the kernel reported"));
    watch.take_event(end_of_night + 76, "kernel priority=1 text=last");
    EXPECT_THAT(sentence(watch), HasSubstr("; in the same second, the kernel reported: last"));
}

TEST(Ending, AMessageBehindTheLastSampleIsTheEnd)
{
    ending_watch watch = machine_that_died();
    watch.take_event(end_of_night + 1, "kernel priority=1 text=panic");
    EXPECT_THAT(sentence(watch), HasSubstr("04:39:32 UTC; in the same second"));
}

TEST(Ending, ThatIsCleanTellsItsReason)
{
    ending_watch watch = machine_that_died();
    watch.take_event(end_of_night, "end reason=SIGTERM " + boot);
    EXPECT_EQ(sentence(watch), "ended cleanly on 21 November 2026 04:39:31 UTC (SIGTERM)");
    EXPECT_EQ(watch.result(false).it_ended, ended_how::clean);
}

TEST(Ending, ByAnErrorTellsTheError)
{
    ending_watch watch = machine_that_died();
    watch.take_event(end_of_night, "end reason=error error=\"No space left\" " + boot);
    EXPECT_EQ(sentence(watch),
              "ended with an error on 21 November 2026 04:39:31 UTC: No space left");
    EXPECT_EQ(watch.result(false).it_ended, ended_how::failed);
}

TEST(Ending, IsUntoldWhereNoRecordingWrote)
{
    ending_watch watch;
    EXPECT_EQ(sentence(watch), "holds nothing yet");
    watch.take_event(end_of_night, "door open");
    EXPECT_EQ(sentence(watch), "does not tell how it ended; its latest record is of 21 November "
                               "2026 04:39:31 UTC");
}

TEST(Ending, OfABoxThatIsWrittenToIsThatOfTheRecordingBefore)
{
    ending_watch watch = machine_that_died();
    EXPECT_EQ(sentence(watch, true), "is being written");
    watch.take_event(end_of_night + 100, "resume host=one");
    watch.take_event(end_of_night + 100, "kernel priority=4 text=\"Linux version 6\"");
    watch.take_event(end_of_night + 100,
                     gap_text({end_of_night, end_of_night + 100, 100, "crash", 0}));
    watch.take_sample(end_of_night + 101);
    EXPECT_EQ(sentence(watch, true),
              "is being written; an earlier recording broke off on 21 November 2026 04:39:31 UTC; "
              "14 s before, the kernel reported: Out of memory");
    EXPECT_EQ(watch.broke_off(), end_of_night);
}

TEST(Ending, ShowsNoEscapesAndNoEndlessWords)
{
    ending_watch watch = machine_that_died();
    watch.take_event(end_of_night, "kernel priority=2 text=\"\\x1b[31m\\xe2\\x80\\xae" +
                                       std::string(5000, 'x') + "\"");
    const std::string text = sentence(watch);
    EXPECT_THAT(text, Not(HasSubstr("\x1b")));
    EXPECT_THAT(text, Not(HasSubstr("\u202e")));
    EXPECT_LT(text.size(), 300U);
}

} // namespace
