// What a recording tells about itself, with made clocks and a made machine.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cli/machine/fake_machine.hpp"
#include "machine/recording_events.hpp"

namespace
{

using namespace cli;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

class RecordingEvents : public ::testing::Test
{
protected:
    RecordingEvents()
    {
        machine_.put("/proc/sys/kernel/hostname", "web1\n");
        machine_.put("/proc/sys/kernel/random/boot_id", std::string(32, 'a') + "\n");
        machine_.put("/etc/machine-id", std::string(32, 'c') + "\n");
        machine_.put_process(10, {"init", 5, 100, 0});
        options_.root = machine_.root();
    }
    ~RecordingEvents() override
    {
        if (pipe_ >= 0) {
            close(pipe_);
        }
    }

    void make_kernel_log()
    {
        machine_.put("/dev/other", "");
        ASSERT_EQ(mkfifo(machine_.path("/dev/kmsg").c_str(), 0600), 0);
        pipe_ = open(machine_.path("/dev/kmsg").c_str(), O_RDWR | O_CLOEXEC);
    }
    void say(unsigned priority, uint64_t microseconds, const std::string &text) const
    {
        const std::string record =
            std::to_string(priority) + ",1," + std::to_string(microseconds) + ",-;" + text + "\n";
        EXPECT_EQ(::write(pipe_, record.data(), record.size()),
                  static_cast<ssize_t>(record.size()));
    }

    recording_events &start(const recording_log *past = nullptr)
    {
        own_.emplace(out_, options_);
        own_->begin(past, at(0));
        return *own_;
    }
    // @p seconds after the recording began.
    static clock_reading at(double seconds)
    {
        return {100000 + seconds, 500 + seconds, 500 + seconds};
    }
    std::vector<std::string> texts() const
    {
        std::vector<std::string> result;
        for (const event &each : events_) {
            result.push_back(each.text);
        }
        return result;
    }
    std::vector<event> take() { return std::exchange(events_, {}); }

    fake_machine machine_;
    recording_event_options options_;
    std::vector<event> events_;
    limited_events out_{[this](const event &what) {
                            events_.push_back(what);
                            return event_result::recorded;
                        },
                        {default_event_bytes, 0, 0}};
    std::optional<recording_events> own_;
    int pipe_ = -1;
};

TEST_F(RecordingEvents, BeginWithTheIdentityOfTheMachine)
{
    start();
    ASSERT_EQ(events_.size(), 1U);
    EXPECT_EQ(events_[0].type, level_note);
    EXPECT_EQ(events_[0].time, 100000);
    const auto told = parse_event_text(events_[0].text);
    ASSERT_TRUE(told);
    EXPECT_EQ(told->word, "start");
    EXPECT_EQ(told->value("host"), "web1");
    EXPECT_EQ(told->value("machine_id"), std::string(32, 'c'));
    EXPECT_EQ(told->value("boot_id"), std::string(32, 'a'));
    EXPECT_EQ(told->number("interval"), 1);
    EXPECT_EQ(told->number("pid"), getpid());
    EXPECT_NE(told->value("version"), "");
}

TEST_F(RecordingEvents, LeaveTheMachineIdOutWhereItIsNotWanted)
{
    options_.machine_id = false;
    start().end(at(5), "SIGTERM");
    EXPECT_THAT(texts(), ::testing::Each(Not(HasSubstr("machine_id"))));
    EXPECT_THAT(texts(), ElementsAre(StartsWith("start "), StartsWith("end reason=SIGTERM host=")));
}

TEST_F(RecordingEvents, TellTheGapBeforeThem)
{
    recording_log past;
    past.take_event(99000, "start boot_id=" + std::string(32, 'b'));
    start(&past);
    ASSERT_EQ(events_.size(), 2U);
    EXPECT_THAT(events_[0].text, StartsWith("resume host=web1 "));
    EXPECT_EQ(events_[1].text, "gap from=99000 to=100000 seconds=1000 reason=crash");
    EXPECT_EQ(events_[1].type, level_error);
}

TEST_F(RecordingEvents, EndWithTheError)
{
    start().end(at(5), "error", "disk \"a\" is gone");
    EXPECT_EQ(events_.back().type, level_error);
    EXPECT_THAT(events_.back().text,
                StartsWith(R"(end reason=error error="disk \"a\" is gone" host=web1)"));
}

TEST_F(RecordingEvents, NameTheMachineAgainInEachBuffer)
{
    start().buffer_began(at(3600));
    EXPECT_THAT(events_.back().text, StartsWith("machine host=web1 "));
    EXPECT_EQ(events_.back().type, level_note);
}

TEST_F(RecordingEvents, TellThatTheMachineSlept)
{
    recording_events &own = start();
    take();
    own.sample(100001, 1);
    own.look({100601, 501, 1101});
    EXPECT_THAT(texts(), ElementsAre("gap from=100000 to=100601 seconds=600 reason=suspend"));
    own.sample(100602, 502);
    own.end({100602, 502, 1102}, "count");
    EXPECT_THAT(texts(), ElementsAre(StartsWith("gap "), StartsWith("end ")));
}

TEST_F(RecordingEvents, TellThatSamplesCameTooLate)
{
    recording_events &own = start();
    take();
    own.sample(100001, 1);
    EXPECT_EQ(own.sample(100005, 5), 3U);
    own.look(at(5));
    own.sample(100010, 10);
    own.look(at(10));
    EXPECT_THAT(texts(), ElementsAre("gap from=100001 to=100005 seconds=3 reason=late missed=3"));
    own.end(at(11), "count");
    EXPECT_EQ(events_[1].text, "gap from=100005 to=100010 seconds=4 reason=late missed=4");
    EXPECT_EQ(events_[1].type, level_warning);
}

TEST_F(RecordingEvents, HoldWhatTheKernelSays)
{
    make_kernel_log();
    recording_events &own = start();
    take();
    EXPECT_GE(own.kernel_fd(), 0);
    say(4, 501000000, "a warning");
    say(3, 501000000, "an error: \\x1b[2J");
    say(6, 501000000, "nothing");
    say(24, 501000000, "an emergency of a daemon");
    own.look(at(2));
    ASSERT_EQ(events_.size(), 3U);
    EXPECT_EQ(events_[0].text, "kernel priority=4 text=\"a warning\"");
    EXPECT_EQ(events_[0].type, level_warning);
    EXPECT_EQ(events_[0].time, 100001);
    EXPECT_EQ(events_[1].text, R"(kernel priority=3 text="an error: \\x1b[2J")");
    EXPECT_EQ(events_[1].type, level_error);
    EXPECT_EQ(events_[2].text, "kernel priority=0 facility=3 text=\"an emergency of a daemon\"");
    EXPECT_EQ(events_[2].type, level_critical);
}

TEST_F(RecordingEvents, HoldOfTheKernelWhatCameBehindTheLastSample)
{
    make_kernel_log();
    say(3, 300000000, "before the last sample");
    say(3, 450000000, "behind it");
    recording_log past;
    past.take_event(99900, "start");
    recording_events &own = start(&past);
    take();
    own.look(at(1));
    ASSERT_EQ(events_.size(), 1U);
    EXPECT_THAT(events_[0].text, HasSubstr("behind it"));
    EXPECT_EQ(events_[0].time, 99950);
}

TEST_F(RecordingEvents, CountWhatTheKernelSaysTooMuch)
{
    make_kernel_log();
    recording_events &own = start();
    take();
    for (int i = 0; i < 300; ++i) {
        say(3, 500000000, "flood");
    }
    int looks = 0;
    do {
        own.look(at(1));
        ++looks;
    } while (own.seconds_to_look() == 0 && looks < 1000);
    EXPECT_EQ(events_.size(), recording_events::kernel_messages_in_minute);
    EXPECT_GE(looks, 15); // few at once
    take();
    own.look(at(62));
    ASSERT_THAT(texts(), ::testing::Contains("omitted kernel=200"));
    say(3, 560000000, "later");
    own.look(at(63));
    EXPECT_THAT(texts().back(), HasSubstr("later"));
}

TEST_F(RecordingEvents, SayWhyThereIsNothingOfTheKernel)
{
    recording_events &own = start();
    EXPECT_EQ(own.kernel_fd(), -1);
    EXPECT_THAT(own.take_kernel_problem(), HasSubstr("/dev/kmsg: cannot be opened"));
    EXPECT_EQ(own.take_kernel_problem(), "");
    options_.kernel_log = false;
    make_kernel_log();
    EXPECT_EQ(start().kernel_fd(), -1);
    EXPECT_EQ(own_->take_kernel_problem(), "");
}

TEST_F(RecordingEvents, ListProcessesEveryMinute)
{
    recording_events &own = start();
    take();
    for (int second = 1; second < 60; ++second) {
        own.look(at(second));
    }
    EXPECT_THAT(events_, IsEmpty());
    machine_.put_process(10, {"init", 65, 100, 0});
    own.look(at(60));
    ASSERT_EQ(events_.size(), 1U);
    EXPECT_EQ(events_[0].type, level_note);
    EXPECT_THAT(events_[0].text,
                StartsWith("top seconds=60 processes=1 cpu1=1.0,10,init memory1="));
}

TEST_F(RecordingEvents, ListNoProcessesWhereNoneAreWanted)
{
    options_.top = 0;
    recording_events &own = start();
    take();
    machine_.put("/proc/pressure/memory", "some avg10=80.00 avg60=1.00 avg300=0.00 total=1\n");
    own.look(at(100));
    EXPECT_THAT(events_, IsEmpty());
}

TEST_F(RecordingEvents, ListProcessesAtOnceWhenMemoryIsShort)
{
    recording_events &own = start();
    take();
    machine_.put("/proc/pressure/memory", "some avg10=12.00 avg60=1.00 avg300=0.00 total=1\n");
    own.look(at(3));
    EXPECT_THAT(events_, IsEmpty()); // ten seconds after the last list at the earliest
    own.look(at(10));
    ASSERT_EQ(events_.size(), 1U);
    EXPECT_EQ(events_[0].type, level_notice);
    EXPECT_THAT(events_[0].text, HasSubstr(" passed=memory "));
    for (int second = 11; second < 70; ++second) {
        own.look(at(second));
    }
    EXPECT_EQ(events_.size(), 1U);
    own.look(at(70));
    ASSERT_EQ(events_.size(), 2U);
    EXPECT_EQ(events_[1].type, level_notice); // it is short of memory still
    machine_.put("/proc/pressure/memory", "some avg10=60.00 avg60=1.00 avg300=0.00 total=1\n");
    own.look(at(81));
    EXPECT_EQ(events_.size(), 3U);
}

} // namespace
