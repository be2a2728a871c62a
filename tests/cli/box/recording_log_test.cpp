// What the events of a box tell about its recordings.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "box/box_writer.hpp"
#include "box/event_budget.hpp"
#include "box/recording_log.hpp"
#include "box/waiting_events.hpp"
#include "common/temporary_directory.hpp"

namespace
{

using namespace cli;
using state = recording_log::state;

const std::string boot_a = "boot_id=aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa";
const std::string boot_b(32, 'b');

recording_log log_of(const std::vector<std::string> &texts)
{
    recording_log log;
    int64_t time = 1000;
    for (const std::string &text : texts) {
        log.take_event(time++, text);
    }
    return log;
}

std::string reason_of_gap(const recording_log &past, const std::string &boot_id)
{
    machine_identity now;
    now.boot_id = boot_id;
    const auto found = gap_until(past, now, 5000);
    return found ? found->reason : "none";
}

TEST(RecordingLog, OfABoxWithoutEventsOfRecordingsIsSilent)
{
    const recording_log log = log_of({"door open", "end of the backup", "start", "starting x=1"});
    // "start" alone is one, if an empty one.
    EXPECT_EQ(log.last_state(), state::begun);
    EXPECT_EQ(log_of({"door open", "end of the backup"}).last_state(), state::silent);
    EXPECT_FALSE(log_of({}).last_time());
}

TEST(RecordingLog, KnowsTheLatestIdentity)
{
    const recording_log log = log_of({"start host=one version=1.0.0 interval=1 " + boot_a,
                                      "machine host=two version=1.1.0 interval=60"});
    ASSERT_TRUE(log.identity());
    EXPECT_EQ(log.identity()->host, "two");
    EXPECT_EQ(log.identity()->boot_id, "");
    EXPECT_EQ(log.version(), "1.1.0");
    EXPECT_EQ(log.interval(), 60);
}

TEST(RecordingLog, KnowsHowTheLastRecordingEnded)
{
    EXPECT_EQ(log_of({"machine host=x"}).last_state(), state::begun);
    const recording_log log = log_of({"start host=x", "end reason=SIGTERM host=x"});
    EXPECT_EQ(log.last_state(), state::ended);
    EXPECT_EQ(log.end_time(), 1001);
    EXPECT_EQ(log.end_reason(), "SIGTERM");
    EXPECT_EQ(log_of({"start", "end reason=error error=\"disk gone\""}).end_error(), "disk gone");
    EXPECT_EQ(log_of({"start", "end reason=count", "resume"}).last_state(), state::begun);
}

TEST(RecordingLog, TellsWhyThereIsAGap)
{
    const std::string same = boot_a.substr(8);
    EXPECT_EQ(reason_of_gap(log_of({}), same), "none");
    EXPECT_EQ(reason_of_gap(log_of({"start " + boot_a, "end " + boot_a}), same), "stop");
    EXPECT_EQ(reason_of_gap(log_of({"start " + boot_a, "end " + boot_a}), boot_b), "reboot");
    EXPECT_EQ(reason_of_gap(log_of({"start " + boot_a}), same), "killed");
    EXPECT_EQ(reason_of_gap(log_of({"start " + boot_a}), boot_b), "crash");
    EXPECT_EQ(reason_of_gap(log_of({"start " + boot_a}), ""), "unknown");
    EXPECT_EQ(reason_of_gap(log_of({"start"}), same), "unknown");
    EXPECT_EQ(reason_of_gap(log_of({"start", "end"}), same), "stop");
}

TEST(RecordingLog, MeasuresAGapFromTheLastSignOfLife)
{
    recording_log log = log_of({"start " + boot_a, "top seconds=60"});
    log.take_event(4000, "what a user says does not count");
    const auto found = gap_until(log, {}, 1100);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->from, 1001);
    EXPECT_EQ(found->to, 1100);
    EXPECT_EQ(found->seconds, 99);
}

TEST(RecordingLog, KeepsTheLatestGaps)
{
    recording_log log;
    for (int64_t i = 0; i < 3000; ++i) {
        log.take_event(i, gap_text({i, i + 1, 1, "stop", 0}));
    }
    EXPECT_EQ(log.number_of_gaps(), 3000U);
    EXPECT_EQ(log.gaps().size(), recording_log::most_gaps);
    EXPECT_EQ(log.gaps().front().from, 2000);
    EXPECT_EQ(log.gaps().back().from, 2999);
}

TEST(RecordingLog, IsReadFromABoxAndFromWhatWaits)
{
    const temporary_directory folder;
    const std::string base = folder.file("box");
    {
        box_writer box(base, {2, 2});
        const std::vector<std::string> sensors = {"::a"};
        const std::vector<float> values = {1};
        EXPECT_TRUE(box.admit("::a"));
        box.set_sensors(sensors);
        waiting_events events(box, base);
        box.write(1000, values);
        EXPECT_EQ(events.write({1, 1000, "start host=one " + boot_a}), event_result::recorded);
        box.write(1001, values);
        EXPECT_EQ(events.write({1, 1002, "end reason=SIGTERM"}), event_result::waits);
        box.finish();
    }
    const recording_log log = read_recording_log(find_box(base));
    EXPECT_EQ(log.last_state(), state::ended);
    EXPECT_EQ(log.last_time(), 1002);
}

TEST(RecordingLog, DoesWithoutWhatWaitsWhereSomethingElseHasTheName)
{
    const temporary_directory folder;
    const std::string base = folder.file("box");
    box_writer(base, {4, 2}).finish();
    std::filesystem::create_directory(base + ".events");
    EXPECT_EQ(read_recording_log(find_box(base)).last_state(), state::silent);
    EXPECT_TRUE(budget_of(find_box(base), 100000).has_room_for(event_source::user, {1, 1, "x"}));
}

TEST(RecordingLog, OfABoxThatWasImportedHasTheTimeOfItsSamplesOnly)
{
    const temporary_directory folder;
    const std::string base = folder.file("box");
    {
        box_writer box(base, {4, 2});
        const std::vector<std::string> sensors = {"::a"};
        const std::vector<float> values = {1};
        EXPECT_TRUE(box.admit("::a"));
        box.set_sensors(sensors);
        box.write(1000, values);
        box.finish();
    }
    const recording_log log = read_recording_log(find_box(base));
    EXPECT_EQ(log.last_state(), state::silent);
    EXPECT_FALSE(log.identity());
    EXPECT_EQ(log.last_time(), 1000);
    EXPECT_EQ(reason_of_gap(log, boot_b), "unknown");
}

} // namespace
